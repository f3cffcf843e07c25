#!/usr/bin/env bash
# Builds the library and the kelvor tool, then runs "kelvor demo": a narrated
# persistence round trip.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake -S . -B build/demo -G Ninja -DCMAKE_BUILD_TYPE=Release -DKELVOR_BUILD_TESTS=OFF \
  -DKELVOR_BUILD_TOOLS=ON >/dev/null
cmake --build build/demo -j"$(nproc)" --target kelvor-tool
./build/demo/tools/kelvor/kelvor demo
