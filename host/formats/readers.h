// Materials of files made by other tools, as parameter sets of the format's
// bundle: glTF and GLB (tinygltf) give sets of the glTF bundle, OBJ (Assimp)
// sets of the OBJ bundle, FBX (Assimp) sets of the generic bundle. Textures
// are loaded into the sets (colour ports linearised from sRGB).
#pragma once

#include <string>
#include <vector>

#include "vex/host.h"
#include "vex/material.h"

namespace host::formats {

struct ImportedMaterial {
  std::string name;      ///< the file's name for it ("material_<i>" when it has none)
  vex::ParameterSet set; ///< tagged with the format's bundle
  std::vector<std::string> warnings;  ///< what the bundle could not take
};

namespace detail {
vex::Result<std::vector<ImportedMaterial>> ReadGltfMaterials(const std::string& path, const vex::IPortBundles& bundles);
/// OBJ and FBX.
vex::Result<std::vector<ImportedMaterial>> ReadAssimpMaterials(const std::string& path, bool obj,
                                                               const vex::IPortBundles& bundles);
/// Reads an image for a port of `bundle` (colour ports are linearised); the message names the
/// material file and the image.
vex::Result<vex::TextureBuffer> ReadPortTexture(const std::string& materialFile, const std::string& imagePath,
                                                const vex::IPortBundles& bundles, std::string_view bundle,
                                                std::string_view port);
/// Phong exponent to a roughness in [0, 1] and back (n = 2 / r^4 - 2).
double RoughnessFromPhong(double exponent);
}  // namespace detail

}  // namespace host::formats
