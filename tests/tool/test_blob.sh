#!/usr/bin/env bash
# blob show / make on files the library wrote, JSON round trips in the three
# forms, a peer reading the zipped form, and malformed files.
. "$(dirname "$0")/lib.sh"

k demo --keep lib >/dev/null
# Files written by the library read back, and JSON of each makes the same bytes.
for f in bin zip txt; do
  k blob show lib/blob.$f >listing.txt
  grep -q "langlist\[1\]" listing.txt || fail "blob.$f listing: $(cat listing.txt)"
  k blob show --json lib/blob.$f >j.json
  opt=(); [ $f = zip ] && opt=(--zip); [ $f = txt ] && opt=(--text)
  k blob make again.$f "${opt[@]}" <j.json
  cmp lib/blob.$f again.$f || fail "blob.$f: JSON round trip changed the bytes"
done

# Every kind from JSON, through each form and back to the same JSON and bytes.
cat >all.json <<'JSON'
{"elements": [
 {"name": "e", "kind": "empty", "value": null},
 {"name": "r", "kind": "raw", "value": "00FF10"},
 {"name": "t", "kind": "text", "value": "a\nb\u00e9\u00ff"},
 {"name": "l", "kind": "list", "value": ["a", "", "bc"]},
 {"name": "i", "kind": "int", "value": -2147483648},
 {"name": "li", "kind": "listint", "value": [1, -2, 2147483647]},
 {"name": "lv", "kind": "listvariant", "value": [{"kind": "int", "value": 3},
   {"kind": "listvariant", "value": [{"kind": "text", "value": "x"}]}]},
 {"name": "d", "kind": "double", "value": 0.1},
 {"name": "dn", "kind": "double", "value": "0x7FF8000000000001"},
 {"name": "f", "kind": "float", "value": 1.5},
 {"name": "fi", "kind": "float", "value": "0xFF800000"},
 {"name": "dt", "kind": "datetime", "value": "2006-03-15 10:20:30"},
 {"name": "ldt", "kind": "listdatetime", "value": ["2006-03-15 10:20:30", "1999-12-31 23:59:59"]},
 {"name": "u", "kind": "uint64", "value": 18446744073709551615},
 {"name": "lu", "kind": "listuint64", "value": [0, 18446744073709551615]},
 {"name": "ll", "kind": "listlist", "value": [["a"], [], ["b", "c"]]},
 {"name": "lang", "kind": "langlist", "value": [{"code": 70, "texts": ["bonjour"]}, {"code": 200, "texts": []}]},
 {"name": "i64", "kind": "int64", "value": -9223372036854775808},
 {"name": "li64", "kind": "listint64", "value": [-1, 9223372036854775807]},
 {"name": "u32", "kind": "uint32", "value": 4000000000}
]}
JSON
# Elements come back sorted by name, as the library keeps them.
norm() { python3 -c 'import json,sys; e=json.load(open(sys.argv[1]))["elements"]; print(json.dumps(sorted(e, key=lambda x: x["name"].lower()), sort_keys=True))' "$1"; }
for opt in "" --zip --text; do
  k blob make b.blob $opt <all.json
  k blob show --json b.blob >back.json
  [ "$(norm all.json)" = "$(norm back.json)" ] || fail "form '$opt': JSON changed: $(cat back.json)"
  k blob make c.blob $opt <back.json
  cmp b.blob c.blob || fail "form '$opt': bytes changed"
done
# The GUID list exists in the text form only.
echo '[{"name": "g", "kind": "listguid", "value": ["{00000000-0000-0000-0000-000000000001}"]}]' >g.json
k blob make g.blob --text <g.json
k blob show --json g.blob | grep -q '{00000000-0000-0000-0000-000000000001}' || fail "GUID list"
k blob make g.bin <g.json 2>err.txt && fail "GUID list written in binary"
grep -q "element 0: a GUID list has no binary form" err.txt || fail "GUID list: $(cat err.txt)"

# The zipped form is a plain zlib stream of the binary form: a peer reads it.
k blob make z.blob --zip <all.json
k blob make p.blob <all.json
if command -v python3 >/dev/null; then
  python3 -c 'import sys,zlib; sys.exit(zlib.decompress(open("z.blob","rb").read()) != open("p.blob","rb").read())' ||
    fail "zlib peer does not read the zipped form"
fi

# An empty blob is an empty file, both ways.
echo '[]' | k blob make empty.blob
[ ! -s empty.blob ] || fail "empty blob is not empty"
k blob show empty.blob | grep -q "0 elements" || fail "empty file"

# Malformed files fail with the file named and the reason.
printf 'IR01\001\000\000\000' >magic.blob
printf 'IQ02\001\000\000\000' >version.blob
printf 'IQ01\005\000\000\000\004\000\000\000' >trunc.blob
printf 'IQ01\377\377\377\177\004\000\000\000\002\000\000\000a\000' >count.blob
printf 'IQ01\001\000\000\000\002\000\000\000\377\377\377\177a' >textlen.blob
printf 'IQ01\001\000\000\000\033\000\000\000\002\000\000\000a\000' >tag.blob
head -c 30 z.blob >zip.blob
printf 'IQ01\377\000\061\377\000\064\377x\377\000' >text.blob
printf 'IQ0' >short.blob
expect 1 "magic.blob: not a blob.*wrong magic" -- blob show magic.blob
expect 1 "version.blob: not a blob" -- blob show version.blob
for f in trunc count textlen tag zip text short; do
  expect 1 "$f.blob: not a blob" -- blob show $f.blob
done
expect 1 "missing.blob: cannot open" -- blob show missing.blob

# Bad JSON and bad values are refused with the element named.
bad() { printf '%s' "$1" >bad.json; k blob make x.blob <bad.json 2>err.txt && fail "accepted $1"; grep -Eq "$2" err.txt || fail "$1: $(cat err.txt)"; }
bad '{' "not JSON"
bad '[{"name": "a", "kind": "int", "value": 2147483648}]' "element 0: integer out of range"
bad '[{"name": "a", "kind": "nope", "value": 1}]' "unknown kind"
bad '[{"name": "", "kind": "int", "value": 1}]' "needs a name"
bad '[{"name": "a", "kind": "raw", "value": "0G"}]' "hex"
bad '[{"name": "a", "kind": "text", "value": "\u0100"}]' "ISO-8859-1"
bad '[{"name": "a", "kind": "datetime", "value": "2006-03-15"}]' "date"
bad '[{"name": "a", "kind": "text", "value": "x\u0000y"}]' "NUL byte"
printf '[{"name": "a", "kind": "text", "value": "x\\u0000y"}]' | k blob make zerobyte.blob --text
k blob show --json zerobyte.blob | grep -q 'x\\u0000y' || fail "NUL in the text form"

# Usage errors exit 2.
expect 2 "" -- blob
expect 2 "" -- blob make a --zip --text
expect 0 "" -- blob show --help
echo ok
