#!/usr/bin/env bash
# The CI run. In order: dependencies; a g++ -Werror build and its tests; a
# clang -Werror compile of everything (benchmarks too); an install-and-consume
# check; the fuzz pass (when scripts/fuzz.sh exists); a 32-bit (-m32) build
# and its tests; a ThreadSanitizer build and its tests; the MinGW-w64 builds
# of Kelvor.dll with their export check and the 64-bit tests under Wine; an
# AddressSanitizer +
# UndefinedBehaviorSanitizer build and its tests, whose CTest summary is the
# last thing printed. Each build has its own directory under build/; any
# failure ends the run. Every step reports its duration in seconds.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=${KELVOR_JOBS:-$(nproc)}
export CTEST_OUTPUT_ON_FAILURE=1
run_start=$SECONDS

# step NAME COMMAND...: runs the command and prints how long it took.
step() {
  local name=$1 start=$SECONDS
  shift
  echo "== $name"
  "$@"
  echo "== $name: $((SECONDS - start)) s"
}

configure() {  # configure DIR CMAKE-ARGS...
  local dir=$1
  shift
  cmake -S . -B "$dir" -G Ninja "$@" >/dev/null
}

normal() {
  configure build/normal -DKELVOR_WERROR=ON
  cmake --build build/normal -j"$jobs"
  ctest --test-dir build/normal -j"$jobs"
}

clang_compile() {
  configure build/clang -DKELVOR_WERROR=ON -DCMAKE_C_COMPILER=clang \
    -DCMAKE_CXX_COMPILER=clang++ -DKELVOR_BUILD_BENCH=ON
  cmake --build build/clang -j"$jobs"
}

consume() {
  local prefix
  prefix=$(mktemp -d)
  cmake --install build/normal --prefix "$prefix" >/dev/null
  bash tests/consumer/check.sh "$prefix"
  rm -rf "$prefix"
}

m32() {
  configure build/m32 -DCMAKE_TOOLCHAIN_FILE=cmake/m32.cmake
  cmake --build build/m32 -j"$jobs"
  ctest --test-dir build/m32 -j"$jobs"
}

tsan() {
  configure build/tsan -DKELVOR_TSAN=ON -DCMAKE_C_COMPILER=clang \
    -DCMAKE_CXX_COMPILER=clang++
  cmake --build build/tsan -j"$jobs"
  TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1"
  if [ -f tests/tsan.supp ]; then
    TSAN_OPTIONS+=":suppressions=$PWD/tests/tsan.supp"
  fi
  export TSAN_OPTIONS
  # clang 14's TSan cannot map its shadow memory under some kernels' address
  # randomisation ("unexpected memory mapping"); without randomisation it can.
  local probe wrap=() out
  probe=$(find build/tsan -maxdepth 1 -type f -name 'test_*' -perm -u+x | head -n 1)
  if ! out=$("$probe" --gtest_list_tests 2>&1) && grep -q "unexpected memory mapping" <<<"$out"; then
    echo "TSan needs a fixed address layout here: running the tests under setarch -R"
    wrap=(setarch "$(uname -m)" -R)
  fi
  "${wrap[@]}" ctest --test-dir build/tsan -j"$jobs"
}

asan_build() {
  configure build/asan -DKELVOR_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug
  cmake --build build/asan -j"$jobs"
}

step "dependencies" bash scripts/deps.sh
step "g++ build (-Werror) and tests" normal
step "clang build (-Werror, compile only, with benchmarks)" clang_compile
step "install and consume" consume
if [ -f scripts/fuzz.sh ]; then
  step "fuzz (20 s per target)" bash scripts/fuzz.sh 20
fi
step "32-bit build (-m32) and tests" m32
step "ThreadSanitizer build and tests" tsan
step "Windows builds (MinGW-w64, 64 and 32 bits) and the 64-bit tests under Wine" \
  bash scripts/windows.sh
step "sanitizer build (ASan + UBSan)" asan_build
echo "== elapsed before the last tests: $((SECONDS - run_start)) s"
echo "== sanitizer tests (ASan + UBSan); CTest reports their time"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=0
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
ctest --test-dir build/asan -j"$jobs"
