#!/usr/bin/env bash
# Installs the build and test dependencies that are missing (Debian 12, as root).
set -euo pipefail
# g++-multilib and lib32z1-dev serve the 32-bit build, which compiles GoogleTest
# from the googletest source package. gzip(1), python3 (zlib, xml, http.client,
# hmac), curl, md5sum/sha1sum (coreutils) are the peers the tests compare with;
# the -dev packages of the peer libraries, and wrk (the load generator of
# bench/http_bench.sh), serve the benchmarks only. dpkg-dev
# (dpkg-shlibdeps) and file(1) serve cpack's Debian packages. CLI11 and
# nlohmann-json (header-only) build the kelvor tool; chromium renders its
# served pages in the tool's tests.
pkgs=(g++ clang cmake ninja-build make pkg-config zlib1g-dev libgtest-dev libbenchmark-dev tzdata
      g++-multilib lib32z1-dev googletest gzip python3 curl coreutils
      libxml2-dev libpugixml-dev libexpat1-dev libssl-dev libmsgpack-cxx-dev libcpp-httplib-dev wrk
      dpkg-dev file libcli11-dev nlohmann-json3-dev chromium)
source "$(dirname "${BASH_SOURCE[0]}")/packages.sh"
install_missing "${pkgs[@]}"
