#!/usr/bin/env bash
# Compiles the consumer against an install prefix, by pkg-config and by CMake.
set -euo pipefail
prefix=$1
here=$(cd "$(dirname "$0")" && pwd)
out=$(mktemp -d)
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig:$prefix/lib/x86_64-linux-gnu/pkgconfig:$prefix/share/pkgconfig"
libdir=$(pkg-config --variable=libdir kelvor)
g++ "$here/consumer.cpp" -o "$out/consumer-pc" $(pkg-config --cflags --libs kelvor)
LD_LIBRARY_PATH="$libdir" "$out/consumer-pc"
cmake -S "$here" -B "$out/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$out/cmake" >/dev/null
LD_LIBRARY_PATH="$libdir" "$out/cmake/consumer"
test -L "$libdir/libkelvor.so.1"
echo "consumer builds: pkg-config and find_package OK"
