#!/usr/bin/env bash
# Builds the libFuzzer targets with clang, AddressSanitizer and UndefinedBehaviorSanitizer, then
# runs each for SECONDS (default 20) from its checked-in corpus (fuzz/corpus/TARGET/) and, for the
# model targets, the generated seed models. What a run finds goes to build-fuzz/corpus/TARGET/,
# never into the tree. Fails when any target finds a crash, a leak, a broken invariant or an
# input that takes too long; the input is kept under build-fuzz/artifacts/.
#
# Usage: scripts/fuzz.sh [SECONDS] [TARGET...]
#        scripts/fuzz.sh --merge [TARGET...]
# --merge rebuilds fuzz/corpus/TARGET/ from scratch: the hand-named seeds in it are kept, and of
# the rest of it, of build-fuzz/corpus/TARGET/ and of the generated seeds only the inputs that
# reach new edges (libFuzzer's -merge=1 into a fresh directory).
set -euo pipefail
cd "$(dirname "$0")/.."
mode=run
if [[ ${1:-} == --merge ]]; then
  mode=merge
  shift
  seconds=0
else
  seconds=${1:-20}
  shift || true
fi
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(fuzz_model_load fuzz_parse fuzz_to_json fuzz_cli_options)
build=${TESU_FUZZ_BUILD_DIR:-build-fuzz}

CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DTESU_BUILD_FUZZ=ON -DTESU_SANITIZE=ON -DTESU_BUILD_TESTS=OFF -DTESU_BUILD_BENCH=OFF \
  -DTESU_PYTHON=OFF >/dev/null
cmake --build "$build" --target fuzz_seeds "${targets[@]}"

# The inputs a target starts from after its own growing corpus, and its dictionary.
inputs_of() {
  [[ -d fuzz/corpus/$1 ]] && echo "fuzz/corpus/$1"
  [[ $1 == fuzz_cli_options ]] || echo "$build/fuzz/seeds"
}
dict_of() {
  if [[ $1 == fuzz_cli_options ]]; then echo fuzz/cli_options.dict; else echo fuzz/model.dict; fi
}

if [[ $mode == merge ]]; then
  for target in "${targets[@]}"; do
    fresh=$(mktemp -d)
    # Hand-named seeds stay; libFuzzer names what it keeps by a 40-digit hash.
    if [[ -d fuzz/corpus/$target ]]; then
      find "fuzz/corpus/$target" -maxdepth 1 -type f ! -regex '.*/[0-9a-f]\{40\}' \
        -exec cp {} "$fresh/" \;
    fi
    mkdir -p "$build/corpus/$target"
    mapfile -t inputs < <(inputs_of "$target")
    # Edge coverage only (-use_counters=0): how often an edge runs does not earn a file a place.
    "$build/bin/$target" -merge=1 -use_counters=0 -max_len=65536 -rss_limit_mb=2048 -timeout=25 \
      "$fresh" "$build/corpus/$target" "${inputs[@]}" >/dev/null 2>&1
    rm -rf "fuzz/corpus/$target"
    mv "$fresh" "fuzz/corpus/$target"
    chmod 755 "fuzz/corpus/$target"
    echo "$target: $(find "fuzz/corpus/$target" -type f | wc -l) files," \
      "$(du -sb "fuzz/corpus/$target" | cut -f1) bytes"
  done
  exit 0
fi

mkdir -p "$build/artifacts"
failed=()
for target in "${targets[@]}"; do
  corpus="$build/corpus/$target"  # grows from run to run; never checked in
  mkdir -p "$corpus"
  mapfile -t inputs < <(inputs_of "$target")
  echo "== $target for ${seconds}s"
  if ! UBSAN_OPTIONS=print_stacktrace=1 "$build/bin/$target" \
      -max_total_time="$seconds" -max_len=65536 -rss_limit_mb=2048 -timeout=25 \
      -dict="$(dict_of "$target")" -print_final_stats=1 -seed="${TESU_FUZZ_SEED:-1}" \
      -artifact_prefix="$build/artifacts/$target-" "$corpus" "${inputs[@]}"; then
    failed+=("$target")
  fi
done
if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzzing found faults in: ${failed[*]} (inputs in $build/artifacts/)" >&2
  exit 1
fi
