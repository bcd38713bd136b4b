#!/usr/bin/env bash
# The main job on the bundled examples: builds the module and the command line, lists what the
# module registers, and maps every example parameter set into the other material models.
# Results go to out/.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
ninja -C build vexinterop
tool=build/bin/vexinterop
mkdir -p out
shopt -s nullglob
"$tool" info
for example in examples/*.json; do
  name=$(basename "$example" .json)
  bundle=$(sed -n 's/.*"bundle": *"\([^"]*\)".*/\1/p' "$example" | head -n 1)
  case "$bundle" in
    net.kelvo.material.portbundle.corvane)
      targets="net.kelvo.material.portbundle.gltf net.kelvo.material.portbundle.obj net.kelvo.material.portbundle.usdpreviewsurface" ;;
    net.kelvo.nodespace.exchange.bundle.viewportmaterial)
      targets="net.kelvo.material.portbundle.fbxsurfacephong net.kelvo.material.portbundle.standardsurface net.kelvo.material.portbundle.usdpreviewsurface net.kelvo.material.portbundle.gltf" ;;
    *) targets="" ;;
  esac
  for target in $targets; do
    short=${target##*.}
    echo "map $example -> $short"
    "$tool" map "$example" --to "$target" -o "out/$name/$short.json"
  done
done
# The materials of the example scene: each exported with baked textures, one imported back.
for material in Brick Plaster Leather Wood Tiles "Viewport Metal" "Preview Glow"; do
  echo "material export $material"
  "$tool" material export examples/materials_scene.vex --material "$material" --texture-size 256 \
    -o "out/materials/${material// /_}.json"
done
"$tool" material import out/materials/Wood.json --scene examples/materials_scene.vex -o out/materials/imported.vex
echo "results in out/"
