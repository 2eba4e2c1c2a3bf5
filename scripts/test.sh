#!/usr/bin/env bash
# Builds everything and runs the whole test suite: unit, end-to-end and benchmark smoke tests,
# then the unit and end-to-end tests again under AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
jobs=$(nproc)

cmake -S . -B build-test -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build-test -j "$jobs"
ctest --test-dir build-test --output-on-failure -j "$jobs"

cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DTESU_SANITIZE=ON -DTESU_BUILD_BENCH=OFF
cmake --build build-asan -j "$jobs"
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build-asan --output-on-failure -j "$jobs" -L 'unit|e2e'
