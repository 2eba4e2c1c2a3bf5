#!/usr/bin/env bash
# Checks a built tree the way a plug-in author and a user meet it, from outside the tree:
#   1. installs it into a temporary prefix and compiles the installed headers on their own;
#   2. builds examples/plugin against that prefix with find_package(tesu) and installs it there;
#   3. runs the installed tesu-convert (also through a symbolic link): --version,
#      --list-frameworks, and a conversion with each plug-in;
#   4. packs the .deb with CPack and, as root, installs it with dpkg and converts the bundled
#      sample with /usr/bin/tesu-convert (outside CI the package is removed again).
# Usage: scripts/check-install.sh [BUILD_DIR]   (a configured and built tree; default build-test)
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
build=${1:-build-test}
[[ -f $build/CMakeCache.txt ]] || { echo "check-install: $build is not a build directory" >&2; exit 1; }
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/prefix
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
unset TESU_PLUGIN_DIR

step() { echo "== check-install: $*"; }
fail() { echo "check-install: FAILED: $*" >&2; exit 1; }
# expect WHAT EXPECTED ACTUAL
expect() { [[ $2 == "$3" ]] || fail "$1: expected [$2], got [$3]"; }

step "install into $prefix"
cmake --install "$build" --prefix "$prefix" >/dev/null
(cd "$prefix/include/tesu" && find . -name '*.h' | sort | sed 's|^\./\(.*\)|#include "\1"|') \
  >"$scratch/headers.cpp"
c++ -std=c++17 -fsyntax-only -I"$prefix/include/tesu" "$scratch/headers.cpp" ||
  fail "the installed headers need files that were not installed"

step "build examples/plugin against the installed package"
cmake -S examples/plugin -B "$scratch/plugin" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$scratch/plugin" >/dev/null
cmake --install "$scratch/plugin" --prefix "$prefix" >/dev/null

step "run the installed tesu-convert"
cli=$prefix/bin/tesu-convert
ln -s "$cli" "$scratch/tesu-convert-link"
cd "$scratch"
"$cli" --version | tee version.txt
expect "--version" "tesu-convert $version" "$(head -n1 version.txt)"
expect "--version plug-ins" "  libchain_parser.so: 7 Chain|  liborvane_parser.so: 6 Orvane" \
  "$(tail -n +3 version.txt | paste -sd '|')"
frameworks=$'6 Orvane\n7 Chain'
expect "--list-frameworks" "$frameworks" "$("$cli" --list-frameworks)"
expect "--list-frameworks through a link" "$frameworks" "$(./tesu-convert-link --list-frameworks)"
"$cli" --framework 7 --model "$root/examples/plugin/sample.chain" --output chain.pb \
  --json chain.json --log-level error >/dev/null
expect "Activation nodes of the chain sample" 3 "$(grep -c '"type": "Activation"' chain.json)"
"$cli" --model "$prefix/share/tesu/examples/mobile.pb" --output mobile.pb --log-level error >/dev/null
cd "$root"

step "Debian package"
cpack --config "$build/CPackConfig.cmake" -B "$scratch/deb" >/dev/null
deb=$(ls "$scratch"/deb/*.deb)
dpkg-deb --info "$deb" | grep -E '^ (Package|Version|Depends):'
if [[ $(id -u) -ne 0 ]]; then
  echo "check-install: not root, so $(basename "$deb") is not installed and run"
else
  dpkg -i "$deb" >/dev/null
  /usr/bin/tesu-convert --version
  (cd "$scratch" && /usr/bin/tesu-convert --model /usr/share/tesu/examples/mobile.pb \
    --output deb-mobile.pb --json deb-mobile.json)
  # A developer's machine is left as it was; CI's is thrown away.
  [[ ${CI:-} == true ]] || dpkg --purge tesu-convert >/dev/null
fi
step "passed"
