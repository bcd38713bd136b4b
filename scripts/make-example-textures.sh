#!/usr/bin/env bash
# Generates the small textures of examples/corvane_textured.json (and the sky of
# examples/lights_scene.vex) into examples/textures/ with
# oiiotool (package openimageio-tools, installed by scripts/setup.sh).
#
#   bash scripts/make-example-textures.sh [SIZE]     # SIZE defaults to 256 (square textures)
#
# The images are patterns and gradients rather than noise so that the PNGs stay a few KiB each.
# Colour textures (diffuse, emission, tint) are sRGB-encoded 8-bit images; the others hold data
# (metalness, roughness, transmission, normals) and are read as stored.
set -euo pipefail
cd "$(dirname "$0")/.."
size=${1:-256}
case "$size" in
  '' | *[!0-9]*) echo "make-example-textures.sh: SIZE must be a whole number of pixels" >&2; exit 1 ;;
esac
command -v oiiotool >/dev/null || { echo "make-example-textures.sh: oiiotool not found (run scripts/setup.sh)" >&2; exit 1; }
out=examples/textures
mkdir -p "$out"
res="${size}x${size}"
cell=$((size / 8 > 0 ? size / 8 : 1))

# Diffuse colour: a warm brick-like checker.
oiiotool --pattern checker:width=$cell:height=$cell:color1=0.62,0.24,0.14:color2=0.78,0.52,0.30 "$res" 3 \
  -d uint8 -o "$out/diffuse.png"
# Metalness: metal squares in a dielectric field (grey, data).
oiiotool --pattern checker:width=$((cell * 2)):height=$((cell * 2)):color1=1:color2=0 "$res" 1 \
  -d uint8 -o "$out/metalness.png"
# Roughness: smooth on the left, rough on the right.
oiiotool --pattern fill:left=0.1:right=0.9 "$res" 1 -d uint8 -o "$out/roughness.png"
# Transmission: clear at the top, none at the bottom.
oiiotool --pattern fill:top=0.6:bottom=0 "$res" 1 -d uint8 -o "$out/transmission.png"
# Tangent-space normal map: a tilt that turns across the image, around the straight (0.5, 0.5, 1).
oiiotool --pattern fill:topleft=0.35,0.35,0.93:topright=0.65,0.35,0.93:bottomleft=0.35,0.65,0.93:bottomright=0.65,0.65,0.93 \
  "$res" 3 -d uint8 -o "$out/normal.png"
# Emission: glowing orange cells on black.
oiiotool --pattern checker:width=$((cell * 4)):height=$cell:color1=1,0.45,0.05:color2=0,0,0 "$res" 3 \
  -d uint8 -o "$out/emission.png"
# Tint (exported as ambient occlusion for glTF): darker towards the bottom right.
oiiotool --pattern fill:topleft=1,1,1:topright=0.8,0.8,0.8:bottomleft=0.8,0.8,0.8:bottomright=0.55,0.55,0.55 \
  "$res" 3 -d uint8 -o "$out/tint.png"

ls -l "$out"
# Sky (the dome light of examples/lights_scene.vex): a float HDR, blue above, warm at the horizon.
oiiotool --pattern fill:top=0.35,0.55,1.0:bottom=1.0,0.92,0.8 "$((size / 2))x$((size / 4))" 3 -d float -o "$out/sky.hdr"
