#!/usr/bin/env bash
# Builds everything and runs the whole test suite, then the unit tests again under
# AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc)

cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
ninja -C build -j"$jobs"
ctest --test-dir build --output-on-failure -j"$jobs"
# Every fuzz harness over its corpus and then mutating for a bounded time (FUZZ_SECONDS each,
# default 20) from a fixed seed (FUZZ_SEED), with the sanitizers: the same tree gives the same
# outcome. Exploring with new seeds and longer runs: scripts/fuzz.sh.
FUZZ_JOBS=$jobs FUZZ_SEED=${FUZZ_SEED:-20261124} bash scripts/fuzz.sh "${FUZZ_SECONDS:-20}"
# The Windows registry code, cross-built and run under Wine.
bash scripts/test-windows.sh

if [ "${INTEROP_SKIP_SANITIZERS:-0}" != "1" ]; then
  cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DINTEROP_SANITIZE=ON -DINTEROP_BUILD_BENCH=OFF >/dev/null
  ninja -C build-asan -j"$jobs" interop_unit_tests
  ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
    ctest --test-dir build-asan --output-on-failure -j"$jobs" -L unit
fi
