#!/usr/bin/env bash
# Installs what is needed, builds, and converts the bundled 25-million-weight classifier.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release -DTESU_BUILD_TESTS=OFF
cmake --build build
build/bin/tesu-convert --model build/examples/resnet50.pb --output build/resnet50.converted.pb \
  --json build/resnet50.converted.json
