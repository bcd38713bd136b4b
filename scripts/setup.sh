#!/usr/bin/env bash
# Installs everything the project needs from Debian's packages (and npm for the
# glTF validator). Idempotent: packages already present are left alone.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config git
  libtbb-dev libopenimageio-dev openimageio-tools libassimp-dev zlib1g-dev libdeflate-dev
  nlohmann-json3-dev libcli11-dev libpugixml-dev libtinygltf-dev libstb-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  g++-mingw-w64-x86-64-posix wine64
  nodejs blender python3-numpy assimp-utils clang libclang-rt-14-dev
  libasan8 libubsan1 time
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

if ((${#missing[@]})); then
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO="sudo"
  stamp=/var/lib/apt/periodic/interop-misc-update-stamp
  if [ ! -f "$stamp" ]; then
    $SUDO apt-get update -qq
    $SUDO mkdir -p "$(dirname "$stamp")" && $SUDO touch "$stamp"
  fi
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# The independent checkers the test suite runs on written files (the Khronos glTF validator and
# the three.js loaders), pinned by tools/package-lock.json and installed into tools/node_modules.
if ! command -v npm >/dev/null 2>&1; then
  as_root=""
  [ "$(id -u)" -eq 0 ] || as_root="sudo"
  DEBIAN_FRONTEND=noninteractive $as_root apt-get install -y -qq --no-install-recommends npm
fi
if command -v npm >/dev/null 2>&1; then
  tools="$(cd "$(dirname "$0")/.." && pwd)/tools"
  if [ ! -d "$tools/node_modules/gltf-validator" ] || [ ! -d "$tools/node_modules/three" ] ||
     [ "$tools/package-lock.json" -nt "$tools/node_modules/.package-lock.json" ]; then
    (cd "$tools" && npm ci --no-audit --no-fund --loglevel=error)
  fi
fi
