#!/usr/bin/env bash
# The main job on the bundled examples: builds the module and the command line, lists what the
# module registers, maps every example parameter set into the other material models, writes the
# Corvane examples and the example scene's materials as glTF, USD, OBJ/MTL and FBX files (every glTF
# checked by the Khronos validator) and imports one back, runs the light commands, and converts the
# example meshes and scenes to Allplan XML. Results go to out/.
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
# Lights: colour temperature, base intensity, unit conversion and a light built from a description.
"$tool" light colortemp 3200 --normalize
"$tool" light base-intensity examples/lights_scene.vex --object Key
"$tool" light convert examples/lights_scene.vex --object Key --units 3 -o out/lights/radiant.vex
"$tool" light build examples/light_description.json -o out/lights/window_fill.vex
# Every Corvane example as files other tools open, in every format of the catalogue, each on a preview
# sphere, in out/files/<format>/<example>/; every glTF goes through the Khronos validator.
# The format list is the tool's own catalogue (first column of `vexinterop formats`).
mapfile -t formats < <("$tool" formats | cut -f1)
corvane_examples=(examples/corvane_*.json)
if ((${#corvane_examples[@]})); then
  for format in "${formats[@]}"; do
    echo "convert ${corvane_examples[*]} -> $format"
    "$tool" convert "${corvane_examples[@]}" --to "$format" -o "out/files/$format"
  done
  if [ -d tools/node_modules/gltf-validator ]; then
    node tools/checks/validate-gltf.mjs out/files/gltf/*/*.gltf
  fi
fi
for scene in examples/meshes/*.obj examples/scenes/allplan_*.vex; do
  name=$(basename "${scene%.*}")
  echo "allplan $scene"
  "$tool" allplan "$scene" -o "out/allplan/$name.xml" --log --options prepare
done
# The materials of the example scene: each exported with baked textures, one imported back.
for material in Brick Plaster Leather Wood Tiles "Viewport Metal" "Preview Glow"; do
  echo "material export $material"
  "$tool" material export examples/materials_scene.vex --material "$material" --texture-size 256 \
    -o "out/materials/${material// /_}.json"
done
"$tool" material import out/materials/Wood.json --scene examples/materials_scene.vex -o out/materials/imported.vex
# The example scene's materials as files of every format, and a glTF file imported back into a scene.
for format in "${formats[@]}"; do
  echo "export examples/materials_scene.vex -> $format"
  "$tool" export examples/materials_scene.vex --to "$format" --texture-size 256 -o "out/scene/$format"
done
if [ -d tools/node_modules/gltf-validator ]; then
  node tools/checks/validate-gltf.mjs out/scene/gltf/*/*.gltf
fi
"$tool" import out/scene/gltf/Wood/Wood.gltf -o out/scene/imported.vex
# A whole scene (examples/scenes/showroom.vex, written by examples/make_example_scene.py): meshes,
# hierarchy, materials, lights and a camera converted to every format and to .vex, every glTF
# validated, and each file imported back into a scene of its own.
python3 examples/make_example_scene.py out/showroom/showroom.vex
cmp out/showroom/showroom.vex examples/scenes/showroom.vex || echo "examples/scenes/showroom.vex differs from what its script writes"
for format in "${formats[@]}" vex; do
  echo "convert examples/scenes/showroom.vex -> $format"
  "$tool" convert examples/scenes/showroom.vex --to "$format" -o "out/showroom/$format"
done
if [ -d tools/node_modules/gltf-validator ]; then
  node tools/checks/validate-gltf.mjs out/showroom/gltf/showroom/showroom.gltf
fi
for written in out/showroom/gltf/showroom/showroom.gltf out/showroom/glb/showroom/showroom.glb \
               out/showroom/fbx/showroom/showroom.fbx out/showroom/obj/showroom/showroom.obj; do
  suffix=${written##*.}
  echo "import $written"
  "$tool" import "$written" -o "out/showroom/imported/showroom_$suffix.vex"
done
echo "results in out/"
