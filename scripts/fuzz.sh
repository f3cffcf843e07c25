#!/usr/bin/env bash
# Builds the libFuzzer targets of fuzz/ (clang, ASan + UBSan) and runs each
# for the given number of seconds (default 20) on a scratch copy of its seed
# corpus, so fuzz/corpus is never written. Prints one line per target with
# its execution count; exits 1 when any target finds something (the input
# that did it is kept under the build directory's artifacts/).
#   KELVOR_FUZZ_BUILD  build directory (default build/fuzz)
#   KELVOR_JOBS        parallel build jobs (default: all processors)
set -euo pipefail
cd "$(dirname "$0")/.."
secs=${1:-20}
build=${KELVOR_FUZZ_BUILD:-build/fuzz}
jobs=${KELVOR_JOBS:-$(nproc)}

# Installs what is missing (Debian 12, as root, like scripts/deps.sh).
pkgs=(clang libclang-rt-14-dev cmake ninja-build zlib1g-dev)
source scripts/packages.sh
install_missing "${pkgs[@]}"

cmake -S . -B "$build" -G Ninja -DKELVOR_BUILD_FUZZ=ON -DKELVOR_BUILD_TESTS=OFF \
      -DKELVOR_BUILD_EXAMPLES=OFF -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
      -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" --target fuzz_all -j"$jobs"

artifacts="$build/artifacts"
mkdir -p "$artifacts"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}

failed=0
for src in fuzz/fuzz_*.cpp; do
  name=$(basename "$src" .cpp)
  target=${name#fuzz_}
  mkdir -p "$scratch/$name"
  if [ -d "fuzz/corpus/$name" ]; then cp -R "fuzz/corpus/$name/." "$scratch/$name/"; fi
  log="$scratch/$name.log"
  rc=0
  "$build/fuzz/$name" -max_total_time="$secs" -timeout=25 -rss_limit_mb=2048 \
      -print_final_stats=1 -artifact_prefix="$artifacts/$name-" "$scratch/$name" >"$log" 2>&1 || rc=$?
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
  # A run cut short by a finding prints no final stats: take its last status line.
  [ -n "$execs" ] || execs=$( (grep -a -o -E '^#[0-9]+' "$log" || true) | tail -n 1 | tr -d '#')
  if [ "$rc" -eq 0 ]; then
    printf '%-14s ok       %s s  %s executions\n' "$target" "$secs" "${execs:-?}"
  else
    failed=1
    printf '%-14s FAILED   %s s  %s executions (exit %s)\n' "$target" "$secs" "${execs:-?}" "$rc"
    grep -a -E 'ERROR:|runtime error|property failed|Test unit written' "$log" | head -n 20 || true
  fi
done
exit "$failed"
