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
echo
# A virtual instrument on a pseudo-terminal, plus an emulated FTDI USB module
# (the emulated D2XX runtime, found through LD_LIBRARY_PATH) for discovery.
LD_LIBRARY_PATH="$PWD/build/release/sim/d2xx/runtime${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}" \
  ZOLT_SIM_FTDI="ZT000001=Digilent USB Device" \
  build/release/examples/zolt_first_instrument
echo
# Record, decode and analyse: a simulated photon-pair stream through a stream
# file, the decoder, the coincidence and correlation analysis and a tag file.
build/release/examples/zolt_record_and_analyze
