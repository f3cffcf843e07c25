#!/usr/bin/env bash
# xml show / check on a document the library wrote, and on broken ones.
. "$(dirname "$0")/lib.sh"

k demo --keep lib >/dev/null
k xml check lib/tree.xml | grep -q "lib/tree.xml: ok" || fail "check of the library's document"
k xml show lib/tree.xml >tree.txt
key=$(sed -n 's/.*LINKEDKEY = "\(.*\)"/\1/p' tree.txt)
grep -q "^  \[2\] \"report 2006\" $key" tree.txt || fail "item with its key: $(cat tree.txt)"
grep -q '^    \. author = "Durand"' tree.txt || fail "property: $(cat tree.txt)"
grep -q '^    \[-100\] ' tree.txt || fail "link under its folder: $(cat tree.txt)"
grep -q "^      -> $key \"report 2006\" (resolved" tree.txt || fail "link target: $(cat tree.txt)"

# A link whose target is not in the document is shown broken; escaped
# property names and values come back decoded.
sed -e "/<LINKEDKEY>/s/$key/{00000000-0000-0000-0000-00000000BEEF}/" \
    -e 's/<author>Durand</<aXMLOBJ_TAGEQb>xXMLOBJ_TAGINFy</; s/<\/author>/<\/aXMLOBJ_TAGEQb>/' lib/tree.xml >broken.xml
k xml show broken.xml >broken.txt
grep -q "(broken" broken.txt || fail "broken link: $(cat broken.txt)"
grep -q '\. a=b = "x<y"' broken.txt || fail "escapes: $(cat broken.txt)"

# Parse errors give the line and column; a well-formed file that is not an
# object document passes the check but not show.
head -c 300 lib/tree.xml >cut.xml
expect 1 "cut.xml:[0-9]+:[0-9]+: " -- xml check cut.xml
printf '<a>\n  <b>\n</a>\n' >mismatch.xml
expect 1 "mismatch.xml:3:[0-9]+: " -- xml check mismatch.xml
: >empty.xml
expect 1 "empty.xml: empty document" -- xml check empty.xml
printf '<a/>\n' >plain.xml
expect 0 "" -- xml check plain.xml
expect 1 "plain.xml: not an object document" -- xml show plain.xml
expect 1 "nothere.xml: cannot open" -- xml show nothere.xml
if command -v xmllint >/dev/null; then
  xmllint --noout lib/tree.xml || fail "xmllint rejects the library's document"
  xmllint --noout mismatch.xml 2>/dev/null && fail "xmllint accepts mismatch.xml"
fi
expect 2 "" -- xml
expect 2 "" -- xml show
echo ok
