#!/usr/bin/env bash
# Runs the fuzz harnesses (tests/fuzz) built with the sanitizers and coverage feedback.
#   scripts/fuzz.sh [SECONDS [HARNESS...]]
# Each harness first replays its corpus, then mutates it for SECONDS (default 600). New inputs
# that reach new code go to out/fuzz/<harness>/new; a crash or hang is written to
# out/fuzz/<harness>/crash-* or timeout-* and ends that harness with a non-zero status.
# FUZZ_JOBS harnesses run at once (default 2), under nice. FUZZ_SEED fixes the mutations' seed
# (the test command's run uses one, so that its outcome is the same on every run of a tree);
# without it each run takes a new seed from the clock and prints it.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-600}
shift || true
harnesses=("$@")
if ((${#harnesses[@]} == 0)); then
  harnesses=(paramset scene material_file light registry image gltf obj fbx ply allplan_options)
fi
jobs=${FUZZ_JOBS:-2}
seed=()
if [ -n "${FUZZ_SEED:-}" ]; then seed=(-seed="$FUZZ_SEED"); fi

if [ ! -f build/build.ninja ]; then
  cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
ninja -C build fuzzing

export ASAN_OPTIONS="detect_leaks=0:malloc_limit_mb=4096:allocator_may_return_null=0:${ASAN_OPTIONS:-}"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1:${UBSAN_OPTIONS:-}"
status=0
run() {
  local h=$1 dir=out/fuzz/$1
  mkdir -p "$dir"
  if nice -n 19 build/bin/fuzzing_"$h" -max_total_time="$seconds" -timeout=20 "${seed[@]}" -new="$dir/new" \
      -artifact_prefix="$dir/" "tests/fuzz/corpus/$h" >"$dir/log" 2>&1; then
    echo "$h: $(tail -n 1 "$dir/log")"
  else
    echo "$h: FAILED, see $dir/log; its end:"
    tail -n 40 "$dir/log" | sed "s/^/  $h| /"
    return 1
  fi
}
running=0
for h in "${harnesses[@]}"; do
  run "$h" &
  running=$((running + 1))
  if ((running >= jobs)); then
    wait -n || status=1
    running=$((running - 1))
  fi
done
while ((running > 0)); do
  wait -n || status=1
  running=$((running - 1))
done
exit $status
