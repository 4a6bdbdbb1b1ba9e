#!/usr/bin/env bash
# Builds and runs every test: the normal build, then the test suite under the
# address and undefined-behaviour sanitizers. Set LDP_NO_SANITIZE=1 to skip the
# second build.
set -euo pipefail
cd "$(dirname "$0")/.."
source tools/deps.sh
jobs=${LDP_JOBS:-2}

ldp_build_tools
ldp_configure build -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build -j"$jobs"
ctest --test-dir build --output-on-failure -j"$jobs"

if [ "${LDP_NO_SANITIZE:-0}" != 1 ]; then
   ldp_configure build-asan -DCMAKE_BUILD_TYPE=Debug -DLDP_SANITIZE=ON -DLDP_BENCH=OFF
   cmake --build build-asan -j"$jobs"
   ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
      ctest --test-dir build-asan --output-on-failure -j"$jobs"
fi
