#!/usr/bin/env bash
# Builds everything and runs the whole test suite: unit, end-to-end and benchmark smoke tests,
# then checks the install tree, the plug-in SDK and the .deb (scripts/check-install.sh), then runs
# the unit and end-to-end tests again under AddressSanitizer and UndefinedBehaviorSanitizer, and
# the unit tests (among them the conversions on parallel threads) under ThreadSanitizer.
# The first build uses CMake's default generator (Unix Makefiles) and the second Ninja, so both
# generators are built.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
jobs=$(nproc)

# configure DIR GENERATOR ARGS...: a directory set up by another generator is configured afresh.
configure() {
  local dir=$1 generator=$2
  shift 2
  local fresh=()
  if [[ -f $dir/CMakeCache.txt ]] &&
     ! grep -qx "CMAKE_GENERATOR:INTERNAL=$generator" "$dir/CMakeCache.txt"; then
    fresh=(--fresh)
  fi
  cmake "${fresh[@]}" -S . -B "$dir" -G "$generator" "$@"
}

configure build-test "Unix Makefiles" -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build-test -j "$jobs"
ctest --test-dir build-test --output-on-failure -j "$jobs"
bash scripts/check-install.sh build-test

configure build-asan Ninja -DCMAKE_BUILD_TYPE=Debug -DTESU_SANITIZE=ON -DTESU_BUILD_BENCH=OFF \
  -DTESU_PYTHON=OFF
cmake --build build-asan -j "$jobs"
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build-asan --output-on-failure -j "$jobs" -L 'unit|e2e'

# ThreadSanitizer cannot share a build with AddressSanitizer, and needs clang (see CMakeLists.txt).
# Only the unit tests are built: they hold the test that converts on several threads at once,
# and the rest of the tree adds build time but no threads.
# The tests that make the heap fail replace the global operator new, which the run-time linked
# in by ThreadSanitizer owns; they run in the two builds above.
CC=clang CXX=clang++ configure build-tsan Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTESU_TSAN=ON \
  -DTESU_BUILD_BENCH=OFF -DTESU_PYTHON=OFF
cmake --build build-tsan -j "$jobs" --target unit_tests
TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" \
  ctest --test-dir build-tsan --output-on-failure -j "$jobs" -L unit \
  -E 'ExhaustedHeap|AllocationFailure'
