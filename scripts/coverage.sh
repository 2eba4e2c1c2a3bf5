#!/usr/bin/env bash
# Builds an instrumented tree (gcc --coverage) in build-coverage/, runs the unit, end-to-end and
# Python tests in it, and prints the line and branch coverage of host/ and framework/ with gcovr.
# Branches that only throw, and branches the compiler proves unreachable, are left out.
#   bash scripts/coverage.sh [BUILD_DIR] [--html DIR]
set -euo pipefail
cd "$(dirname "$0")/.."
dir=build-coverage
html=
while [[ $# -gt 0 ]]; do
  case $1 in
    --html) html=$2; shift 2 ;;
    *) dir=$1; shift ;;
  esac
done
bash scripts/install-deps.sh --coverage
jobs=$(nproc)
launcher=()
if command -v ccache >/dev/null; then launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache); fi
# A build directory keeps the generator it was made with.
generator=()
if [[ ! -f $dir/CMakeCache.txt ]] && command -v ninja >/dev/null; then generator=(-G Ninja); fi
cmake -S . -B "$dir" "${generator[@]}" "${launcher[@]}" -DCMAKE_BUILD_TYPE=Debug \
  -DTESU_COVERAGE=ON -DTESU_BUILD_BENCH=OFF
cmake --build "$dir" -j "$jobs"
# Counters add up across runs: start from zero so that the figure is this run's.
find "$dir" -name '*.gcda' -delete
ctest --test-dir "$dir" --output-on-failure -j "$jobs" -L 'unit|e2e|python'
report=()
if [[ -n $html ]]; then
  mkdir -p "$html"
  report=(--html-details "$html/index.html")
fi
gcovr --root . --object-directory "$dir" --filter 'host/' --filter 'framework/' \
  --exclude-throw-branches --exclude-unreachable-branches \
  --print-summary "${report[@]}"
