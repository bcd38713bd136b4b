#!/usr/bin/env bash
# `vexinterop convert` of four Corvane sets with 2048 x 2048 textures into every format, this build
# against a baseline build of the same tool, measured in the same session: the runs alternate
# (baseline, this build, baseline, ...) so that both see the same machine load, and the report is
# the median of each and their ratio (this build / baseline; below 1 is faster).
#
#   bash bench/files_before_after.sh [NEW_TOOL] [BASELINE_TOOL]     (RUNS=5 by default)
#
# The baseline is usually the tool built from an older commit in its own build directory, e.g.
#   git worktree add /tmp/before <commit> && cmake -S /tmp/before -B build-before ... && ninja -C build-before vexinterop
set -euo pipefail
new=${1:-build/bin/vexinterop}
old=${2:-build-before/bin/vexinterop}
runs=${RUNS:-5}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Four sets, each with a colour, a roughness and a normal texture of 2048 x 2048.
for i in 1 2 3 4; do
  oiiotool --pattern checker:width=$((32 * i)):height=$((32 * i)):color1=0.9,0.2,0.1:color2=0.1,0.3,0.8 2048x2048 3 \
    -o "$work/color$i.png"
  oiiotool --pattern fill:left=0:right=1 2048x2048 3 -o "$work/rough$i.png"
  oiiotool --pattern constant:color=0.55,0.45,0.95 2048x2048 3 --addc 0.01 -o "$work/normal$i.png"
  cat > "$work/set$i.json" <<JSON
{"bundle": "net.kelvo.material.portbundle.corvane",
 "parameters": {
  "diffuse_color": {"type": "Color", "value": [1, 1, 1], "texture": "color$i.png"},
  "fresnel_type": {"type": "String", "value": "metalness"},
  "metalness": {"type": "Float", "value": 0.$i},
  "reflection_roughness": {"type": "Float", "value": 1, "texture": "rough$i.png"},
  "overall_normal": {"type": "Color", "value": [0.5, 0.5, 1], "texture": "normal$i.png"},
  "emission_weight": {"type": "Float", "value": 0.5},
  "emission_color": {"type": "Color", "value": [0.2, 0.4, 0.1]}}}
JSON
done
inputs=("$work"/set1.json "$work"/set2.json "$work"/set3.json "$work"/set4.json)

# Seconds of one convert run (the output directory is removed between runs).
run() {
  local tool=$1 format=$2 extra=$3 out="$work/out"
  rm -rf "$out"
  local start end
  start=$(date +%s.%N)
  # shellcheck disable=SC2086
  "$tool" convert "${inputs[@]}" --to "$format" $extra -o "$out" >/dev/null 2>&1 || return 1
  end=$(date +%s.%N)
  echo "$end - $start" | bc -l
}

median() { sort -g | awk '{a[NR] = $1} END {print (NR % 2) ? a[(NR + 1) / 2] : (a[NR / 2] + a[NR / 2 + 1]) / 2}'; }

printf '%-6s %10s %10s %8s\n' format baseline_s new_s ratio
for format in $("$new" formats | cut -f1); do
  # The same FBX work on both sides: binary FBX (the baseline's default was ASCII).
  oldExtra="" newExtra=""
  [ "$format" = fbx ] && oldExtra="--fbx-binary"
  if ! run "$old" "$format" "$oldExtra" >/dev/null; then
    printf '%-6s %10s\n' "$format" "(the baseline does not write it)"
    continue
  fi
  if ! run "$new" "$format" "$newExtra" >/dev/null; then
    printf '%-6s %10s\n' "$format" "(this build cannot write it yet)"
    continue
  fi
  oldTimes=() newTimes=()
  for ((r = 0; r < runs; ++r)); do
    oldTimes+=("$(run "$old" "$format" "$oldExtra")")
    newTimes+=("$(run "$new" "$format" "$newExtra")")
  done
  o=$(printf '%s\n' "${oldTimes[@]}" | median)
  n=$(printf '%s\n' "${newTimes[@]}" | median)
  printf '%-6s %10.3f %10.3f %8.2f\n' "$format" "$o" "$n" "$(echo "$n / $o" | bc -l)"
done
