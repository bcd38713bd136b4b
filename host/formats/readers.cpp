#include "host/formats/readers.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "host/images.h"

namespace fs = std::filesystem;

namespace host::formats {

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

vex::Error MissingFile(const std::string& file, const std::string& what) {
  return VEX_ERROR(vex::ErrorKind::FileIO, file + ": " + what + " does not exist");
}

std::string MissingTexture(const std::string& material, const std::string& texture) {
  return "material '" + material + "': texture \"" + texture + "\"";
}

double RoughnessFromPhong(double exponent) {
  if (!(exponent > 0.0)) return 1.0;
  return std::clamp(std::pow(2.0 / (exponent + 2.0), 0.25), 0.0, 1.0);
}

}  // namespace detail
}  // namespace host::formats
