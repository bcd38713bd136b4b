#include "host/formats/readers.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "host/images.h"
#include "host/input_files.h"

namespace fs = std::filesystem;

namespace host::formats {

vex::Result<std::vector<ImportedMaterial>> ReadMaterials(const std::string& path, const vex::IPortBundles& bundles) {
  std::string suffix = fs::path(path).extension().string();
  std::transform(suffix.begin(), suffix.end(), suffix.begin(), [](unsigned char c) { return std::tolower(c); });
  VEX_TRY(CheckInputFile(path));
  if (suffix == ".gltf" || suffix == ".glb") return detail::ReadGltfMaterials(path, bundles);
  if (suffix == ".obj") return detail::ReadAssimpMaterials(path, true, bundles);
  if (suffix == ".fbx") return detail::ReadAssimpMaterials(path, false, bundles);
  return VEX_FAIL(vex::ErrorKind::IllegalArgument,
                  path + ": unknown file type (expected .gltf, .glb, .obj or .fbx)");
}

namespace detail {

vex::Result<vex::TextureBuffer> ReadPortTexture(const std::string& materialFile, const std::string& imagePath,
                                                const vex::IPortBundles& bundles, std::string_view bundle,
                                                std::string_view port) {
  bool color = false;
  if (auto b = bundles.Find(bundle))
    if (const auto* described = (*b)->FindPort(port)) color = described->color;
  auto texture = ReadImage(imagePath, color);
  if (!texture)
    return VEX_FAIL(vex::ErrorKind::FileIO,
                    materialFile + ": texture " + imagePath + " of " + std::string(port) + ": " + texture.error().message);
  if (color) texture->colorSpace = "sRGB";
  return texture;
}

double RoughnessFromPhong(double exponent) {
  if (!(exponent > 0.0)) return 1.0;
  return std::clamp(std::pow(2.0 / (exponent + 2.0), 0.25), 0.0, 1.0);
}

}  // namespace detail
}  // namespace host::formats
