#!/usr/bin/env bash
# Builds the libFuzzer targets with clang, AddressSanitizer and UndefinedBehaviorSanitizer, then
# runs each for SECONDS (default 20) from the generated seeds. Fails when any target finds a
# crash, a leak, a broken invariant or an input that takes too long; the input is kept under
# build-fuzz/artifacts/. Usage: scripts/fuzz.sh [SECONDS] [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-20}
shift || true
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(fuzz_model_load fuzz_parse fuzz_to_json)
build=${TESU_FUZZ_BUILD_DIR:-build-fuzz}

CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DTESU_BUILD_FUZZ=ON -DTESU_SANITIZE=ON -DTESU_BUILD_TESTS=OFF -DTESU_BUILD_BENCH=OFF \
  -DTESU_PYTHON=OFF >/dev/null
cmake --build "$build" --target fuzz_seeds "${targets[@]}"

mkdir -p "$build/artifacts"
failed=()
for target in "${targets[@]}"; do
  corpus="$build/corpus/$target"  # grows from run to run; never checked in
  mkdir -p "$corpus"
  echo "== $target for ${seconds}s"
  if ! UBSAN_OPTIONS=print_stacktrace=1 "$build/bin/$target" \
      -max_total_time="$seconds" -max_len=65536 -rss_limit_mb=2048 -timeout=25 \
      -dict=fuzz/model.dict -print_final_stats=1 -seed="${TESU_FUZZ_SEED:-1}" \
      -artifact_prefix="$build/artifacts/$target-" "$corpus" "$build/fuzz/seeds"; then
    failed+=("$target")
  fi
done
if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzzing found faults in: ${failed[*]} (inputs in $build/artifacts/)" >&2
  exit 1
fi
