#!/usr/bin/env bash
# Checks a built tree the way a plug-in author and a user meet it, from outside the tree:
#   1. installs it into a temporary prefix and compiles the installed headers on their own;
#   2. builds examples/plugin against that prefix with find_package(tesu) and installs it there;
#   3. runs the installed tesu-convert (also through a symbolic link): --version,
#      --list-frameworks, and a conversion with each plug-in;
#   4. imports the Python package installed under the prefix, in a virtual environment;
#   5. builds the wheel with setup.py and imports it in a fresh virtual environment;
#   6. builds the Debian packages with dpkg-buildpackage, runs lintian on them (errors fail) and,
#      as root, installs them with dpkg and converts the bundled sample with
#      /usr/bin/tesu-convert and with the python3-tesu module (outside CI they are removed again).
# Usage: scripts/check-install.sh [BUILD_DIR]   (a configured and built tree; default build-test)
# TESU_CHECK_INSTALL_SKIP="wheel deb" leaves steps out, for a quick check.
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
(cd "$prefix/include" && find tesu -name '*.h' | sort | sed 's|^\(.*\)|#include <\1>|') \
  >"$scratch/headers.cpp"
c++ -std=c++17 -fsyntax-only -I"$prefix/include" -I"$prefix/include/tesu" "$scratch/headers.cpp" ||
  fail "the installed headers need files that were not installed"
# Not as system headers, as a plug-in build might see them: the example stays free of warnings.
c++ -std=c++17 -fsyntax-only -Wall -Wextra -Woverloaded-virtual -Werror -I"$prefix/include" \
  -I"$prefix/include/tesu" examples/plugin/chain_parser.cpp ||
  fail "the plug-in example does not compile cleanly against the installed headers"

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

skipped() { [[ " ${TESU_CHECK_INSTALL_SKIP:-} " == *" $1 "* ]]; }
python=/usr/bin/python3
# convert_sample PYTHON: converts the sample model with the tesu module that PYTHON imports.
convert_sample() {
  (cd "$scratch" && "$1" -c 'import sys, tesu
graph = tesu.convert(sys.argv[1])
assert 6 in tesu.frameworks(), tesu.frameworks()
print(tesu.__file__, graph)' "$2")
}

step "import the Python package installed under the prefix"
site=$(sed -n 's/^TESU_PYTHON_INSTALL_DIR:STRING=//p' "$build/CMakeCache.txt")
if [[ -n $site ]]; then
  [[ -L $prefix/$site/tesu/plugins ]] || fail "no plug-ins link in $prefix/$site/tesu"
  readelf -d "$prefix/$site"/tesu/_tesu*.so | grep -q 'R.*PATH.*\[\$ORIGIN/' ||
    fail "the installed module has no relative run path"
  PYTHONPATH=$prefix/$site convert_sample $python "$prefix/share/tesu/examples/mobile.pb" |
    grep -F "$prefix/$site/tesu/" || fail "the module under the prefix did not convert"
fi

# A copy of the source tree, without build folders, for the builds that work in the tree.
source_copy() {
  mkdir -p "$1"
  git ls-files -z --cached --others --exclude-standard | tar --null -T - -cf - | tar -xf - -C "$1"
}

if ! skipped wheel; then
  step "build the wheel and import it in a fresh virtual environment"
  source_copy "$scratch/wheel-src"
  (cd "$scratch/wheel-src" && $python -m build --wheel --no-isolation --outdir "$scratch/dist") \
    >"$scratch/wheel.log" 2>&1 || { tail -n 30 "$scratch/wheel.log"; fail "wheel build"; }
  $python -m venv --system-site-packages "$scratch/venv"
  "$scratch/venv/bin/python" -m pip install --no-index --no-deps "$scratch"/dist/*.whl >/dev/null
  convert_sample "$scratch/venv/bin/python" "$prefix/share/tesu/examples/mobile.pb" |
    grep -F "$scratch/venv/" || fail "the wheel's module did not convert"
fi

if ! skipped deb; then
  step "Debian packages"
  source_copy "$scratch/deb/tesu"
  (cd "$scratch/deb/tesu" && dpkg-buildpackage -b -us -uc -j"$(nproc)") >"$scratch/deb.log" 2>&1 ||
    { tail -n 30 "$scratch/deb.log"; fail "dpkg-buildpackage"; }
  debs=("$scratch"/deb/libtesu0.1_*.deb "$scratch"/deb/libtesu-dev_*.deb \
        "$scratch"/deb/tesu-convert_*.deb "$scratch"/deb/python3-tesu_*.deb)
  for deb in "${debs[@]}"; do dpkg-deb --field "$deb" Package Version Depends; done
  lintian --fail-on error "${debs[@]}" ||
    fail "lintian reports errors"
  if [[ $(id -u) -ne 0 ]]; then
    echo "check-install: not root, so the packages are not installed and run"
  else
    dpkg -i "${debs[@]}" >/dev/null
    (cd "$scratch" && /usr/bin/tesu-convert --model /usr/share/tesu/examples/mobile.pb \
      --output deb-mobile.pb --json deb-mobile.json)
    convert_sample /usr/bin/python3 /usr/share/tesu/examples/mobile.pb |
      grep -F /usr/lib/python3/dist-packages/tesu/ || fail "python3-tesu did not convert"
    # A developer's machine is left as it was; CI's is thrown away.
    [[ ${CI:-} == true ]] || dpkg --purge python3-tesu tesu-convert libtesu-dev libtesu0.1 >/dev/null
  fi
fi
step "passed"
