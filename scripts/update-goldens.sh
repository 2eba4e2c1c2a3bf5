#!/usr/bin/env bash
# Regenerates the golden conversions in tests/e2e/golden/ with a build's tesu-convert:
#
#   bash scripts/update-goldens.sh [BUILD_DIR]      (BUILD_DIR defaults to build-test)
#
# The build directory must be configured; the tool, the plug-in and the samples are brought up
# to date first. A changed golden is a changed conversion: review the diff before committing.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build-test}
if [[ ! -f $build/CMakeCache.txt ]]; then
  echo "update-goldens: $build is not a configured build directory" >&2
  exit 1
fi
cmake --build "$build" --target tesu-convert orvane_parser samples

golden=tests/e2e/golden
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
# convert MODEL GOLDEN_NAME
convert() {
  "$build/bin/tesu-convert" --model "$1" --output "$scratch/out.pb" --json "$golden/$2" \
    --check_report "$scratch" --log-level error >/dev/null
  echo "update-goldens: $golden/$2 from $1"
}
mkdir -p "$golden"
convert "$build/examples/mobile.pb" mobile.json
convert examples/tiny.json tiny.json
