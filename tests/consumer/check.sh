#!/usr/bin/env bash
# Builds programs outside the tree against an installed Kelvor and runs them:
# the small consumer and every example under examples/, each once through
# find_package (CMake) and once through pkg-config (its Makefile).
# Usage: check.sh PREFIX   (PREFIX may be /usr, for the installed packages)
set -euo pipefail
prefix=$1
here=$(cd "$(dirname "$0")" && pwd)
examples=$(cd "$here/../../examples" && pwd)
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig:$prefix/lib/x86_64-linux-gnu/pkgconfig:$prefix/share/pkgconfig${PKG_CONFIG_PATH:+:$PKG_CONFIG_PATH}"
libdir=$(pkg-config --variable=libdir kelvor)
export LD_LIBRARY_PATH="$libdir${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}"
test -L "$libdir/libkelvor.so.1"

g++ "$here/consumer.cpp" -o "$out/consumer-pc" $(pkg-config --cflags --libs kelvor)
"$out/consumer-pc"
cmake -S "$here" -B "$out/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$out/consumer" >/dev/null
"$out/consumer/consumer"

# serve BINARY: runs the HTTP example with --once on a free port, fetches two
# pages with curl and checks that the server answered and stopped cleanly.
serve() {
  local bin=$1 log=$out/serve.log port="" i pid
  timeout 60 "$bin" --once >"$log" 2>&1 &
  pid=$!
  for i in $(seq 100); do
    port=$(sed -n 's|^listening on http://127.0.0.1:\([0-9]*\)/$|\1|p' "$log")
    [ -n "$port" ] && break
    sleep 0.1
  done
  if [ -z "$port" ]; then
    cat "$log"; kill "$pid" 2>/dev/null || true; return 1
  fi
  # The 404 does not count as a page; the greeting does and ends the run.
  [ "$(curl -s -o /dev/null -w '%{http_code}' "http://127.0.0.1:$port/missing")" = 404 ]
  [ "$(curl -sf "http://127.0.0.1:$port/hello?name=C%2B%2B+CI")" = "Hello, C++ CI!" ]
  wait "$pid"
  cat "$log"
}

# run NAME BINARY: runs one example the way CI checks it.
run() {
  local name=$1 bin=$2
  echo "-- $name ($bin)"
  # The library comes from the prefix under test, not from somewhere else.
  local found
  found=$(ldd "$bin" | sed -n 's/.*libkelvor\.so\.1 => \(.*\) (0x.*/\1/p')
  if [ "$(readlink -f "$found")" != "$(readlink -f "$libdir/libkelvor.so.1")" ]; then
    echo "$bin uses ${found:-no libkelvor.so.1}, not the one in $libdir"; return 1
  fi
  if [ "$name" = http-server ]; then
    if ! command -v curl >/dev/null; then
      echo "skipped: curl is not installed (scripts/deps.sh installs it)"
      return 0
    fi
    serve "$bin"
  else
    mkdir -p "$out/run"
    "$bin" "$out/run"
  fi
}

for dir in "$examples"/*/; do
  name=$(basename "$dir")
  prog=$(sed -n 's/^add_executable(\([A-Za-z0-9_]*\) .*/\1/p' "$dir/CMakeLists.txt")
  cmake -S "$dir" -B "$out/$name-cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
  cmake --build "$out/$name-cmake" >/dev/null
  run "$name" "$out/$name-cmake/$prog"
  mkdir -p "$out/$name-pc"
  make -s -C "$out/$name-pc" -f "$dir/Makefile" VPATH="$dir" "$prog" >/dev/null
  run "$name" "$out/$name-pc/$prog"
done
echo "consumer and examples: pkg-config and find_package OK"
