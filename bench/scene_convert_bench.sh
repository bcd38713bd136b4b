#!/usr/bin/env bash
# Whole-scene conversion of a generated scene (1,000,000 triangles, 50 materials; make_big_scene.py)
# by `vexinterop convert` against `assimp export` of the same file to the same format, measured in
# the same session. Runs alternate (assimp, ours, assimp, ...) so that both see the same machine
# load; the report is the median wall-clock time and the largest peak resident memory of each, and
# their ratios (assimp / ours for time: above 1 means ours is faster; ours / assimp for memory).
#
#   bash bench/scene_convert_bench.sh [TOOL]        (RUNS=3, OBJECTS=50, CELLS=100 by default)
#
# Cases: OBJ -> .glb, glTF -> USD, glTF -> FBX (binary). The mesh library has no USD writer, so
# glTF -> USD is set against its glTF -> glTF run of the same input. The glTF input of the last two
# cases is the .glb that our first case wrote, read by both tools.
set -euo pipefail
tool=$(realpath "${1:-build/bin/vexinterop}")
runs=${RUNS:-3}
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

python3 "$here/make_big_scene.py" "$work/big.obj" --objects "${OBJECTS:-50}" --cells "${CELLS:-100}"

# "seconds kilobytes" of one command; its output folder is emptied first.
measure() {
  local out=$1
  shift
  rm -rf "$out" && mkdir -p "$out"
  /usr/bin/time -f "%e %M" -o "$work/time" "$@" >"$work/log" 2>&1 || {
    echo "failed: $*" >&2
    cat "$work/log" >&2
    exit 1
  }
  cat "$work/time"
}

median() { sort -n | awk '{a[NR]=$1} END {print (NR % 2) ? a[(NR + 1) / 2] : (a[NR / 2] + a[NR / 2 + 1]) / 2}'; }
largest() { sort -n | tail -n 1; }

# The glTF input of the later cases.
"$tool" convert "$work/big.obj" --to glb -o "$work/input" >/dev/null
glb="$work/input/big/big.glb"

printf '%-16s %10s %10s %10s %10s %8s %8s\n' case "ours s" "assimp s" "ours MB" "assimp MB" speedup memory
report() {
  local name=$1 ours_t=$2 ours_m=$3 theirs_t=$4 theirs_m=$5
  awk -v n="$name" -v ot="$ours_t" -v om="$ours_m" -v at="$theirs_t" -v am="$theirs_m" 'BEGIN {
    printf "%-16s %10.2f %10.2f %10.0f %10.0f %7.2fx %8.2f\n", n, ot, at, om / 1024, am / 1024, at / ot, om / am }'
}

run_case() {
  local name=$1 input=$2 to=$3 assimp_format=$4 assimp_suffix=$5
  : >"$work/ours" && : >"$work/theirs"
  for ((i = 0; i < runs; ++i)); do
    measure "$work/a" assimp export "$input" "$work/a/out.$assimp_suffix" -f "$assimp_format" >>"$work/theirs"
    measure "$work/o" "$tool" convert "$input" --to "$to" -o "$work/o" >>"$work/ours"
  done
  report "$name" "$(cut -d' ' -f1 "$work/ours" | median)" "$(cut -d' ' -f2 "$work/ours" | largest)" \
    "$(cut -d' ' -f1 "$work/theirs" | median)" "$(cut -d' ' -f2 "$work/theirs" | largest)"
}

run_case "obj -> glb" "$work/big.obj" glb glb2 glb
run_case "gltf -> usd" "$glb" usd glb2 glb
run_case "gltf -> fbx" "$glb" fbx fbx fbx
run_case "gltf -> glb" "$glb" glb glb2 glb
