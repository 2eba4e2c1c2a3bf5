#!/usr/bin/env bash
# Installs the Debian 12 packages the build and its tests need, clang included (the
# ThreadSanitizer build and the fuzz targets); with --coverage also gcovr (scripts/coverage.sh).
# Skips apt entirely when they are present.
set -euo pipefail
packages=(cmake ninja-build g++ libprotobuf-dev protobuf-compiler nlohmann-json3-dev libcli11-dev
          libgtest-dev libgmock-dev libbenchmark-dev graphviz
          python3-dev pybind11-dev python3-numpy python3-pytest)
# The Debian packages (debian/, dpkg-buildpackage, lintian, the manual page from --help) and the
# Python package's build, its virtual environment test and its type check.
packages+=(file dpkg-dev debhelper dh-python fakeroot lintian help2man
           python3-build python3-setuptools python3-wheel python3-venv python3-mypy)
# The --report page: Graphviz's library for its graph pictures, and headless Chromium with
# Selenium for the browser tests.
packages+=(pkg-config libgraphviz-dev chromium chromium-driver python3 python3-selenium)
# clang and its sanitizer run-times: the ThreadSanitizer build of scripts/test.sh and the fuzz
# targets of scripts/fuzz.sh (--fuzz, kept for callers that ask for them).
packages+=(clang libclang-rt-14-dev)
for option in "$@"; do
  case $option in
    --coverage) packages+=(gcovr) ;;
  esac
done
missing=()
for package in "${packages[@]}"; do
  dpkg -s "$package" >/dev/null 2>&1 || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0
as_root=()
[ "$(id -u)" -eq 0 ] || as_root=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update
"${as_root[@]}" apt-get install -y --no-install-recommends "${missing[@]}"
