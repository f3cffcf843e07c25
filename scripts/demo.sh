#!/usr/bin/env bash
# Builds the library and runs the example program.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake -S . -B build/demo -G Ninja -DCMAKE_BUILD_TYPE=Release -DKELVOR_BUILD_TESTS=OFF >/dev/null
cmake --build build/demo -j"$(nproc)" --target kelvor_demo
./build/demo/kelvor_demo
