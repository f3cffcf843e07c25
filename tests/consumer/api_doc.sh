#!/usr/bin/env bash
# Compiles every C++ block of docs/api.md against an installed Kelvor, so
# that the overview names only what the headers declare.
# Usage: api_doc.sh PREFIX
set -euo pipefail
prefix=$1
doc="$(cd "$(dirname "$0")/../.." && pwd)/docs/api.md"
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig:$prefix/lib/x86_64-linux-gnu/pkgconfig${PKG_CONFIG_PATH:+:$PKG_CONFIG_PATH}"
awk -v dir="$out" '
  /^```cpp$/ { n++; f = sprintf("%s/block%02d.cpp", dir, n)
               print "#include <kelvor/Kelvor.h>\n#include <cstdio>\n#include <cstdlib>" > f
               inside = 1; next }
  /^```$/    { inside = 0; next }
  inside     { print >> f }' "$doc"
n=0
for f in "$out"/block*.cpp; do
  g++ -fsyntax-only -Wall -Wextra -Wshadow -Werror $(pkg-config --cflags kelvor) "$f" ||
    { echo "docs/api.md: block $(basename "$f" .cpp) does not compile"; exit 1; }
  n=$((n + 1))
done
[ "$n" -gt 0 ] || { echo "docs/api.md: no C++ block found"; exit 1; }
echo "docs/api.md: $n examples compile"
