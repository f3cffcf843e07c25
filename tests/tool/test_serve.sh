#!/usr/bin/env bash
# serve: a real server process answering curl and headless Chromium; stops
# cleanly on SIGINT.
. "$(dirname "$0")/lib.sh"
command -v curl >/dev/null || skip "curl is not installed (scripts/deps.sh installs it)"

mkdir -p root/sub
printf 'hello\n' >root/a.txt
printf '\211PNG\r\n\032\n\000\000\001binary' >root/i.png
printf '<p id="x">page</p>\n' >"root/sub/a b.html"
printf 'secret\n' >outside.txt
symlink=0
if [ -z "$RUNNER" ]; then
  ln -s ../outside.txt root/escape && symlink=1
else
  echo "note: the symbolic-link escape is not checked under $RUNNER (a Unix link is an ordinary file there)"
fi

$RUNNER "$KELVOR" serve --port 0 --root root >url.txt 2>serve.err &
pid=$!
stop() { kill -INT $pid 2>/dev/null || true; }
trap 'stop; rm -rf "$WORK"' EXIT
for _ in $(seq 100); do grep -q '^http://' url.txt 2>/dev/null && break; sleep 0.1; done
url=$(tr -d '\r' <url.txt)
[[ "$url" =~ ^http://127\.0\.0\.1:[0-9]+/$ ]] || fail "no URL printed: $(cat url.txt serve.err)"

# status CODE TYPE PATH: the answer's status and content type.
status() {
  local got
  got=$(curl -s --path-as-is -o body.out -w '%{http_code} %{content_type}' "$url$3")
  [ "$got" = "$1 $2" ] || fail "$3: got '$got', wanted '$1 $2'"
}
status 200 "text/html; charset=ISO-8859-1" ""
for e in a.txt i.png sub/; do grep -q "href=\"/$e\"" body.out || fail "listing lacks $e: $(cat body.out)"; done
status 200 "text/plain; charset=ISO-8859-1" a.txt
cmp body.out root/a.txt || fail "a.txt content"
status 200 "image/png" i.png
cmp body.out root/i.png || fail "a binary file is not served byte for byte"
status 200 "text/html; charset=ISO-8859-1" "sub/a%20b.html"
status 200 "text/html; charset=ISO-8859-1" "sub"
grep -q 'href="/sub/a%20b.html"' body.out || fail "sub listing: $(cat body.out)"
for p in ../outside.txt %2e%2e/outside.txt %2E%2e%2foutside.txt sub/..%2f..%2foutside.txt %2e%2e%5coutside.txt; do
  status 403 "text/html; charset=ISO-8859-1" "$p"
done
[ $symlink = 0 ] || status 403 "text/html; charset=ISO-8859-1" escape
status 404 "text/html; charset=ISO-8859-1" missing.txt

# Headless Chromium renders the listing and loads a file.
chrome=$(command -v chromium || command -v chromium-browser || true)
if [ -z "$chrome" ] && [ "$(id -u)" = 0 ] && command -v apt-get >/dev/null; then
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq chromium >/dev/null 2>&1 || true
  chrome=$(command -v chromium || true)
fi
if [ -n "$chrome" ]; then
  dom=$(timeout 120 "$chrome" --headless --no-sandbox --disable-gpu --dump-dom "$url" 2>/dev/null)
  for e in a.txt i.png sub/; do grep -q ">$e</a>" <<<"$dom" || fail "Chromium's DOM lacks $e: $dom"; done
  dom=$(timeout 120 "$chrome" --headless --no-sandbox --disable-gpu --dump-dom "${url}sub/a%20b.html" 2>/dev/null)
  grep -q '<p id="x">page</p>' <<<"$dom" || fail "Chromium did not load the page: $dom"
else
  echo "note: Chromium is missing and cannot be installed (not root): browser checks skipped"
fi

stop
rc=0
wait $pid || rc=$?
[ $rc = 0 ] || fail "serve ended with $rc after SIGINT: $(cat serve.err)"
curl -s -m 2 "$url" >/dev/null && fail "still serving after SIGINT"
expect 1 "nodir: not a directory" -- serve --port 0 --root nodir
expect 2 "" -- serve --port 70000
echo ok
