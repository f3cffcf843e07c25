#!/usr/bin/env bash
# The CI run. In order: dependencies; a g++ -Werror build and its tests; a
# clang -Werror compile of everything (benchmarks too); an install-and-consume
# check (the examples built against the install); the Debian packages built,
# checked, installed, used and removed; the fuzz pass (when scripts/fuzz.sh
# exists); a 32-bit (-m32) build and its tests; a ThreadSanitizer build and
# its tests; the MinGW-w64 builds of Kelvor.dll with their export check and
# the 64-bit tests under Wine; an AddressSanitizer + UndefinedBehaviorSanitizer
# build and its tests, whose CTest summary is the last thing printed. Each
# build has its own directory under build/; any failure ends the run. Every
# step reports its duration in seconds.
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
  bash tests/consumer/api_doc.sh "$prefix"
  rm -rf "$prefix"
}

# The Debian packages: a Release build for /usr, cpack -G DEB, each package's
# files and dependencies checked, all three installed, the examples built
# against /usr both ways, the tool run from /usr/bin, then everything removed
# again. It refuses to run over a Kelvor package already on the machine.
package() {
  local dir=build/package pkgs=(libkelvor1 libkelvor-dev kelvor-tools) p
  # known PACKAGE: dpkg holds anything of it (installed, or its configuration).
  known() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -qv "not-installed$"; }
  for p in "${pkgs[@]}"; do
    if known "$p"; then
      echo "$p is on this machine already: purge it (dpkg -P $p) before this step"
      return 1
    fi
  done
  configure "$dir" -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
    -DKELVOR_BUILD_TESTS=OFF -DKELVOR_BUILD_TOOLS=ON -DKELVOR_WERROR=ON
  cmake --build "$dir" -j"$jobs"
  rm -f "$dir"/*.deb
  (cd "$dir" && cpack -G DEB >/dev/null)
  local ver arch multi
  ver=$(sed -n 's/^project(Kelvor VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
  arch=$(dpkg --print-architecture)
  multi=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
  local lib=usr/lib/$multi
  deb() { echo "$dir/${1}_${ver}_${arch}.deb"; }
  # files PACKAGE: the package's files and links, one a line, sorted.
  files() { dpkg-deb -c "$(deb "$1")" | awk '$1 !~ /^d/ {print $6}' | sed 's|^\./||' | sort; }
  expect() {  # expect WHAT EXPECTED ACTUAL
    if [ "$2" != "$3" ]; then
      printf '%s:\n  expected: %s\n  found:    %s\n' "$1" "$2" "$3"
      return 1
    fi
  }
  for p in "${pkgs[@]}"; do
    test -f "$(deb "$p")" || { echo "cpack made no $(deb "$p")"; return 1; }
  done
  expect "libkelvor1 files" "$lib/libkelvor.so.1 $lib/libkelvor.so.$ver" \
    "$(files libkelvor1 | xargs)"
  expect "kelvor-tools files" "usr/bin/kelvor" "$(files kelvor-tools | xargs)"
  local dev
  dev=$(files libkelvor-dev)
  for p in usr/include/kelvor/Kelvor.h usr/include/kelvor/base/tools/KString.h \
           usr/include/kelvor/misc/KObj.h "$lib/libkelvor.so" "$lib/pkgconfig/kelvor.pc" \
           "$lib/cmake/Kelvor/KelvorConfig.cmake" "$lib/cmake/Kelvor/KelvorTargets.cmake"; do
    grep -qx "$p" <<<"$dev" || { echo "libkelvor-dev lacks $p"; return 1; }
  done
  if grep -q 'libkelvor\.so\.\|^usr/bin' <<<"$dev"; then
    echo "libkelvor-dev holds runtime or tool files:"; echo "$dev"; return 1
  fi
  expect "libkelvor-dev depends" "libkelvor1 (= $ver), zlib1g-dev" \
    "$(dpkg-deb -f "$(deb libkelvor-dev)" Depends)"
  local dep
  dep=$(dpkg-deb -f "$(deb libkelvor1)" Depends)
  for p in libc6 libstdc++6 zlib1g; do
    grep -q "\b$p (>=" <<<"$dep" || { echo "libkelvor1 depends lacks $p: $dep"; return 1; }
  done
  dep=$(dpkg-deb -f "$(deb kelvor-tools)" Depends)
  grep -q "libkelvor1 (= $ver)" <<<"$dep" || { echo "kelvor-tools depends: $dep"; return 1; }
  grep -q "libc6 (>=" <<<"$dep" || { echo "kelvor-tools depends lacks libc6: $dep"; return 1; }

  # Installed, used, removed; removal also runs when a check fails. Purged,
  # not only removed: libkelvor1's maintainer scripts would otherwise leave it
  # in the "config-files" state.
  (
    trap 'dpkg --purge kelvor-tools libkelvor-dev libkelvor1 >/dev/null' EXIT
    dpkg -i "$(deb libkelvor1)" "$(deb libkelvor-dev)" "$(deb kelvor-tools)" >/dev/null
    bash tests/consumer/check.sh /usr
    /usr/bin/kelvor --help >/dev/null
    /usr/bin/kelvor demo
  )
  for p in "${pkgs[@]}"; do
    if known "$p"; then echo "$p is still on this machine"; return 1; fi
  done
  test ! -e "/$lib/libkelvor.so.1" || { echo "/$lib/libkelvor.so.1 left behind"; return 1; }
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
step "Debian packages (build, check, install, use, remove)" package
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
