#!/usr/bin/env bash
# Requests per second and latency percentiles of the mini server and of
# cpp-httplib answering the same small page on loopback, one after the
# other, each loaded by wrk with "Connection: close" (one request per
# connection). Prints both lines and the ratio (mini server / cpp-httplib).
#   BUILD=build/bench DURATION=10 CONNECTIONS=32 THREADS=2 bench/http_bench.sh
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD=${BUILD:-build/bench}
DURATION=${DURATION:-10}
CONNECTIONS=${CONNECTIONS:-32}
THREADS=${THREADS:-2}

command -v wrk >/dev/null || { echo "wrk is missing (scripts/deps.sh installs it)"; exit 1; }
if [ ! -x "$BUILD/http_server_kelvor" ] || [ ! -x "$BUILD/http_server_httplib" ] || [ "${REBUILD:-1}" = 1 ]; then
  cmake -S . -B "$BUILD" -G Ninja -DCMAKE_BUILD_TYPE=Release -DKELVOR_BUILD_BENCH=ON >/dev/null
  cmake --build "$BUILD" -j2 --target http_server_kelvor http_server_httplib >/dev/null
fi
[ -x "$BUILD/http_server_httplib" ] || { echo "cpp-httplib is missing (scripts/deps.sh installs it)"; exit 1; }

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

# Latency text of wrk ("812.00us", "1.20ms", "2.01s") in milliseconds.
to_ms() {
  awk -v v="$1" 'BEGIN {
    n = v + 0; u = v; sub(/^[0-9.]+/, "", u)
    if (u == "us") n /= 1000; else if (u == "s") n *= 1000; else if (u == "m") n *= 60000
    printf "%.3f", n }'
}

# Runs one server, loads it, prints "name rps p50 p90 p99 errors" into $tmp/$1.
run() {
  local name=$1 bin=$BUILD/$2
  mkfifo "$tmp/in-$name"
  "$bin" <"$tmp/in-$name" >"$tmp/port-$name" &
  local pid=$!
  exec 3>"$tmp/in-$name"
  for _ in $(seq 100); do [ -s "$tmp/port-$name" ] && break; sleep 0.05; done
  local port
  port=$(head -n1 "$tmp/port-$name")
  wrk -t"$THREADS" -c"$CONNECTIONS" -d"${DURATION}s" --latency -H "Connection: close" \
    "http://127.0.0.1:$port/" >"$tmp/wrk-$name"
  exec 3>&-  # end of input: the server stops
  wait "$pid"
  local out=$tmp/wrk-$name
  local rps p50 p90 p99 errs non2xx
  rps=$(awk '/^Requests\/sec:/ {print $2}' "$out")
  p50=$(to_ms "$(awk '$1 == "50%" {print $2}' "$out")")
  p90=$(to_ms "$(awk '$1 == "90%" {print $2}' "$out")")
  p99=$(to_ms "$(awk '$1 == "99%" {print $2}' "$out")")
  errs=$(awk '/Socket errors:/ {gsub(",", ""); print $4 + $6 + $8 + $10}' "$out")
  non2xx=$(awk '/Non-2xx/ {print $5}' "$out")
  echo "$name ${rps:-0} $p50 $p90 $p99 $(( ${errs:-0} + ${non2xx:-0} ))" >"$tmp/$name"
}

run kelvor http_server_kelvor
run httplib http_server_httplib

echo "HTTP server, ${DURATION} s, $CONNECTIONS connections, $THREADS wrk threads, Connection: close"
printf "%-12s %12s %10s %10s %10s %8s\n" server "requests/s" "p50 ms" "p90 ms" "p99 ms" errors
for n in kelvor httplib; do
  read -r name rps p50 p90 p99 errs <"$tmp/$n"
  printf "%-12s %12.1f %10s %10s %10s %8s\n" "$name" "$rps" "$p50" "$p90" "$p99" "$errs"
done
read -r _ a _ <"$tmp/kelvor"
read -r _ b _ <"$tmp/httplib"
awk -v a="$a" -v b="$b" 'BEGIN { r = (b > 0) ? a / b : 0;
  printf "ratio (mini server / cpp-httplib): %.3f (goal 1.00: %s)\n", r, (r >= 1 ? "met" : "missed") }'
