#!/usr/bin/env bash
# digest, guid, date and demo as processes, against md5sum/sha1sum and the
# library's own text forms.
. "$(dirname "$0")/lib.sh"

# Digests: md5sum's layout and values, standard input, base32, errors.
printf '' >empty.bin
printf 'abc' >abc.txt
head -c 3000000 /dev/zero | tr '\0' 'k' >big.bin
for f in empty.bin abc.txt big.bin; do
  [ "$(k digest $f | tr -d '\r')" = "$(md5sum $f)" ] || fail "md5 of $f"
  [ "$(k digest --sha1 $f | tr -d '\r')" = "$(sha1sum $f)" ] || fail "sha1 of $f"
done
[ "$(k digest - <abc.txt)" = "900150983cd24fb0d6963f7d28e17f72  -" ] || fail "md5 of standard input"
# Base32 (RFC 4648) of the SHA-1 of "abc".
[ "$(k digest --sha1 --base32 abc.txt)" = "VGMT4NSHA2AWVOR6EVYXQUGCNSONBWE5  abc.txt" ] || fail "base32"
expect 1 "missing.bin: cannot open" -- digest abc.txt missing.bin
grep -q "abc.txt" out.txt || fail "the readable file is still digested"
expect 2 "" -- digest

# GUIDs: fresh ones differ, all forms of one.
k guid new 3 >g.txt
[ "$(sort -u g.txt | grep -cE '^\{[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\}$')" = 3 ] || fail "guid new: $(cat g.txt)"
k guid show 00112233445566778899aabbccddeeff >show.txt
grep -q "braced: *{00112233-4455-6677-8899-AABBCCDDEEFF}" show.txt || fail "braced: $(cat show.txt)"
grep -q "memory: *33 22 11 00 55 44 77 66 88 99 AA BB CC DD EE FF" show.txt || fail "memory order: $(cat show.txt)"
grep -q "big-endian: *00 11 22 33 44 55 66 77 88 99 AA BB CC DD EE FF" show.txt || fail "RFC order"
[ "$(k guid show '{00112233-4455-6677-8899-AABBCCDDEEFF}' | tr -d '\r')" = "$(tr -d '\r' <show.txt)" ] ||
  fail "the braced and the plain form disagree"
expect 1 "xyz: not a GUID" -- guid show xyz
expect 2 "" -- guid new 0

# Dates: every form in, every form out.
k date "2006-03-07 09:05:30" >d1.txt
grep -q "mysql: *2006-03-07 09:05:30" d1.txt || fail "mysql: $(cat d1.txt)"
grep -q "http: *Tue, 07 Mar 2006 09:05:30 GMT" d1.txt || fail "http"
stored=$(sed -n 's/^stored: *//p' d1.txt | tr -d '\r')
k date "$stored" | grep -q "mysql: *2006-03-07 09:05:30" || fail "stored day number $stored"
k date "7/3/2006 9:5" | grep -q "mysql: *2006-03-07 09:05:00" || fail "d/m/yyyy h:m"
k date "7/3/2006" | grep -q "month: *Mars" || fail "d/m/yyyy"
expect 1 "07/03/06: not a date" -- date 07/03/06
expect 1 "junk: not a date" -- date junk

# The demo narrates and removes what it made.
k demo >demo.txt
dir=$(sed -n 's/^Working in //p' demo.txt | tr -d '\r')
grep -q "the link resolves to \"report 2006\": yes" demo.txt || fail "demo: $(cat demo.txt)"
grep -q "tree.xml  md5 [0-9a-f]\{32\}" demo.txt || fail "demo digests"
[ -z "$RUNNER" ] && { [ ! -e "$dir" ] || fail "demo left $dir"; }
expect 2 "" -- nosuchcommand
echo ok
