#!/usr/bin/env bash
# Builds everything with AddressSanitizer and UndefinedBehaviorSanitizer and
# runs every test; threaded tests run once more under ThreadSanitizer, and the
# fuzz targets (when there are any) get a short run with clang.
# Usage: tools/test.sh        (ZOLT_FUZZ_SECONDS=N sets the time per fuzz target)
set -euo pipefail
cd "$(dirname "$0")/.."
tools/deps.sh clang libclang-rt-14-dev

jobs=$(nproc)
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1:strict_string_checks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}

echo "== AddressSanitizer + UndefinedBehaviorSanitizer =="
cmake -S . -B build/asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DZOLT_SANITIZE="address;undefined" \
  -DZOLT_BUILD_TESTS=ON -DZOLT_BUILD_BENCH=ON -DZOLT_BUILD_EXAMPLES=ON >/dev/null
cmake --build build/asan -j"$jobs"
ctest --test-dir build/asan -j"$jobs" --output-on-failure

if ctest --test-dir build/asan -N -L threaded | grep -q 'Total Tests: [1-9]'; then
  echo "== ThreadSanitizer (threaded tests) =="
  cmake -S . -B build/tsan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DZOLT_SANITIZE=thread \
    -DZOLT_BUILD_TESTS=ON -DZOLT_BUILD_EXAMPLES=OFF >/dev/null
  cmake --build build/tsan -j"$jobs"
  TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1} \
    ctest --test-dir build/tsan -j"$jobs" -L threaded --output-on-failure
fi

if compgen -G "tests/fuzz/*_fuzz.cpp" >/dev/null; then
  echo "== libFuzzer (short runs) =="
  CC=clang CXX=clang++ cmake -S . -B build/fuzz -G Ninja -DCMAKE_BUILD_TYPE=Debug \
    -DZOLT_BUILD_FUZZERS=ON -DZOLT_BUILD_TESTS=OFF -DZOLT_BUILD_EXAMPLES=OFF >/dev/null
  # Only the fuzz drivers: clang does not put the sanitizer runtimes into
  # shared libraries, so libzolt_timing.so itself cannot link in this build.
  cmake --build build/fuzz -j"$jobs" --target $(for source in tests/fuzz/*_fuzz.cpp; do basename "$source" .cpp; done)
  for source in tests/fuzz/*_fuzz.cpp; do
    name=$(basename "$source" .cpp)
    corpus=build/fuzz/corpus/$name && mkdir -p "$corpus"
    seeds=tests/fuzz/seeds/$name
    [ -d "$seeds" ] || seeds=
    echo "-- $name"
    build/fuzz/tests/"$name" -max_total_time="${ZOLT_FUZZ_SECONDS:-20}" -print_final_stats=0 \
      "$corpus" $seeds 2>&1 | tail -n 2
  done
fi
