#!/usr/bin/env bash
# Builds and runs the whole test suite twice (warnings as errors, then
# AddressSanitizer + UndefinedBehaviorSanitizer), checks that clang compiles
# everything warning-free, and that an installed copy can be consumed through
# pkg-config and find_package. The sanitizer run's CTest summary comes last.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
jobs=$(nproc)
export CTEST_OUTPUT_ON_FAILURE=1

echo "== normal build (g++, -Werror)"
cmake -S . -B build/normal -G Ninja -DKELVOR_WERROR=ON >/dev/null
cmake --build build/normal -j"$jobs"
ctest --test-dir build/normal -j"$jobs"

echo "== clang build (-Werror, compile only)"
cmake -S . -B build/clang -G Ninja -DKELVOR_WERROR=ON -DCMAKE_C_COMPILER=clang \
      -DCMAKE_CXX_COMPILER=clang++ -DKELVOR_BUILD_BENCH=ON >/dev/null
cmake --build build/clang -j"$jobs"

echo "== install and consume"
prefix=$(mktemp -d)
cmake --install build/normal --prefix "$prefix" >/dev/null
bash tests/consumer/check.sh "$prefix"

echo "== sanitizer build (ASan + UBSan)"
cmake -S . -B build/asan -G Ninja -DKELVOR_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug \
      -DKELVOR_BUILD_EXAMPLES=OFF >/dev/null
cmake --build build/asan -j"$jobs"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=0
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
ctest --test-dir build/asan -j"$jobs"
