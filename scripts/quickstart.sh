#!/usr/bin/env bash
# Installs what is needed, builds, and converts the bundled 25-million-weight classifier.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
# No generator named: a new tree gets CMake's default and an existing one keeps its own.
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release -DTESU_BUILD_TESTS=OFF
cmake --build build -j "$(nproc)"
build/bin/tesu-convert --model build/examples/resnet50.pb --output build/resnet50.converted.pb \
  --json build/resnet50.converted.json
