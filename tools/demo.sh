#!/usr/bin/env bash
# Builds zolt timing in release mode and runs the demo program.
# Usage: tools/demo.sh
set -euo pipefail
cd "$(dirname "$0")/.."
tools/deps.sh

cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DZOLT_BUILD_TESTS=OFF \
  -DZOLT_BUILD_EXAMPLES=ON >/dev/null
cmake --build build/release -j"$(nproc)"
echo
build/release/examples/zolt_versions
