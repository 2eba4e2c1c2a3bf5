#!/usr/bin/env bash
# Mutation pass over the unit and end-to-end tests, for reviewers (not part of CI). Each mutant
# of the list is one textual change to one line; it is applied alone to a scratch copy of the
# tree, the tests that `ctest -L unit` and `ctest -L e2e` run are rebuilt (incrementally, in one
# build directory kept between runs) and run, and the mutant counts as killed when a test fails,
# crashes or times out. The copy is restored before the next mutant.
#
#   bash scripts/mutate.sh [MUTANTS_FILE] [NAME...]
#
# MUTANTS_FILE defaults to scripts/mutants.txt; NAMEs pick mutants by name. Every line of the
# file that is neither empty nor a comment is
#   name @@ file @@ text @@ replacement [@@ equivalent: why]
# where `text` must occur on exactly one line of `file` and its first occurrence there becomes
# `replacement`; finding the line by its text keeps a mutant valid while the file is edited.
# A mutant marked equivalent changes no behaviour a test could see; when it survives it is left
# out of the kill rate, and so is a mutant that does not build.
#
# Environment: MUTATE_DIR (scratch tree and build, default /tmp/tesu-mutate), MUTATE_JOBS
# (default: the number of cores), MUTATE_TIMEOUT (seconds per test, default 120),
# MUTATE_CTEST_ARGS (more ctest arguments, e.g. "-E LongChain" where time is short).
set -uo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
list=${1:-$root/scripts/mutants.txt}
[[ $# -gt 0 ]] && shift
picked=("$@")
work=${MUTATE_DIR:-/tmp/tesu-mutate}
jobs=${MUTATE_JOBS:-$(nproc)}
timeout=${MUTATE_TIMEOUT:-120}
read -r -a extra <<<"${MUTATE_CTEST_ARGS:-}"
src=$work/src
build=$work/build
logs=$work/logs
results=$work/results.tsv

[[ -f $list ]] || { echo "mutate: no mutant list $list" >&2; exit 2; }
mkdir -p "$src" "$logs"

# The scratch copy: the tracked and new files of the work tree as they are now, uncommitted
# changes included. Unchanged files keep their times, so the build stays incremental.
(cd "$root" && git ls-files -z --cached --others --exclude-standard |
  tar --null -T - -cf -) | tar -xf - -C "$src" || { echo "mutate: copy failed" >&2; exit 2; }

launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  # Objects of the same source hit the cache whatever the scratch directory is called.
  export CCACHE_BASEDIR=$work CCACHE_NOHASHDIR=1
fi
generator=()
if [[ ! -f $build/CMakeCache.txt ]] && command -v ninja >/dev/null; then generator=(-G Ninja); fi
cmake -S "$src" -B "$build" "${generator[@]}" "${launcher[@]}" -DCMAKE_BUILD_TYPE=Release \
  -DTESU_BUILD_BENCH=OFF -DTESU_PYTHON=OFF >"$logs/configure.log" 2>&1 ||
  { echo "mutate: configure failed, see $logs/configure.log" >&2; exit 2; }

build_tests() {
  cmake --build "$build" -j "$jobs" --target unit_tests e2e_tests >"$1" 2>&1
}

# 0 when every test passes; otherwise the number of tests that did not and the first two of
# them are written to $2.
run_tests() {
  ctest --test-dir "$build" -L '^(unit|e2e)$' -j "$jobs" --timeout "$timeout" "${extra[@]}" \
    >"$1" 2>&1
  local status=$?
  grep -E '\*\*\*(Failed|Exception|Timeout|Not Run)' "$1" |
    sed -E 's/.*Test +#[0-9]+: ([^ ]+) .*/\1/' |
    awk '{ names = NR <= 2 ? names (NR > 1 ? ", " : "") $0 : names } END { if (NR) print NR ": " names }' >"$2"
  return $status
}

echo "mutate: baseline build and tests in $build"
build_tests "$logs/baseline-build.log" || { echo "mutate: baseline build failed" >&2; exit 2; }
run_tests "$logs/baseline-test.log" "$logs/baseline-first" ||
  { echo "mutate: baseline tests fail ($(cat "$logs/baseline-first")); fix them first" >&2; exit 2; }

current=
restore() {
  if [[ -n $current ]]; then
    # A plain copy gives the file a new time, so the next build compiles the original again.
    cp "$work/original" "$src/$current"
    current=
  fi
}
trap 'restore; exit 130' INT TERM
trap restore EXIT

: >"$results"
while IFS= read -r line; do
  [[ -z ${line//[[:space:]]/} || $line =~ ^[[:space:]]*# ]] && continue
  fields=()
  rest=$line
  while [[ $rest == *' @@ '* ]]; do
    fields+=("${rest%% @@ *}")
    rest=${rest#* @@ }
  done
  fields+=("$rest")
  name=${fields[0]}
  file=${fields[1]:-}
  from=${fields[2]:-}
  to=${fields[3]:-}
  note=${fields[4]:-}
  if [[ ${#picked[@]} -gt 0 && " ${picked[*]} " != *" $name "* ]]; then continue; fi
  if [[ ${#fields[@]} -lt 4 || ! -f $src/$file ]]; then
    printf '%s\t%s\t%s\t%s\n' "$name" "$file" invalid "bad line or no such file" >>"$results"
    continue
  fi
  lines=$(grep -cF -- "$from" "$src/$file")
  if [[ $lines -ne 1 ]]; then
    printf '%s\t%s\t%s\t%s\n' "$name" "$file" invalid "text on $lines lines" >>"$results"
    continue
  fi
  cp "$src/$file" "$work/original"
  current=$file
  FROM=$from TO=$to perl -i -pe 's/\Q$ENV{FROM}\E/$ENV{TO}/ if !$done && ($done = index($_, $ENV{FROM}) >= 0)' \
    "$src/$file"
  echo "mutate: $name ($file)"
  if ! build_tests "$logs/$name-build.log"; then
    status=invalid detail="does not build"
  elif run_tests "$logs/$name-test.log" "$logs/$name-first"; then
    if [[ $note == equivalent* ]]; then status=equivalent; else status=survived; fi
    detail=${note:-}
  else
    status=killed detail=$(cat "$logs/$name-first" 2>/dev/null)
  fi
  restore
  printf '%s\t%s\t%s\t%s\n' "$name" "$file" "$status" "$detail" >>"$results"
done <"$list"
# The last mutant's file is restored; rebuild so the scratch build matches the tree again.
build_tests "$logs/final-build.log"

echo
awk -F'\t' '
  { printf "%-28s %-46s %-10s %s\n", $1, $2, $3, $4; count[$3]++ }
  END {
    scored = count["killed"] + count["survived"]
    printf "\nkilled %d, survived %d, equivalent %d, invalid %d\n", count["killed"],
           count["survived"], count["equivalent"], count["invalid"]
    if (scored > 0) printf "kill rate: %.1f%% of %d non-equivalent mutants\n", 100 * count["killed"] / scored, scored
  }' "$results"
