// The glTF words the writer and the reader share: sampler codes and their names, the extensions
// the unit reads and writes, the properties a texture entry of a glTF-bundle set carries, and the
// texture ports with the file's field for each. Spelled here once.
#pragma once

#include <array>
#include <optional>
#include <string_view>

#include "vex/ports.h"

namespace host::formats::gltf {

namespace ports = vex::ports::gltf;

/// Properties of a texture entry (a port of the glTF bundle that carries a texture). Sampler
/// values are the names in kWrapModes and kFilters; the transform is KHR_texture_transform's, in
/// the file's own texture space (v counted from the top of the image).
inline constexpr std::string_view kWrapS = "wrapS";
inline constexpr std::string_view kWrapT = "wrapT";
inline constexpr std::string_view kMagFilter = "magFilter";
inline constexpr std::string_view kMinFilter = "minFilter";
inline constexpr std::string_view kUvOffset = "uvOffset";      ///< Vector2d
inline constexpr std::string_view kUvRotation = "uvRotation";  ///< radians
inline constexpr std::string_view kUvScale = "uvScale";        ///< Vector2d
inline constexpr std::string_view kTexCoord = "texCoord";      ///< the texture coordinate set the file names

inline constexpr std::string_view kEmissiveStrengthExtension = "KHR_materials_emissive_strength";
inline constexpr std::string_view kTextureTransformExtension = "KHR_texture_transform";
inline constexpr std::string_view kLightsExtension = "KHR_lights_punctual";

struct Code {
  int value;
  std::string_view name;
};

inline constexpr std::array<Code, 3> kWrapModes = {{
    {33071, "CLAMP_TO_EDGE"},
    {33648, "MIRRORED_REPEAT"},
    {10497, "REPEAT"},
}};

inline constexpr std::array<Code, 6> kFilters = {{
    {9728, "NEAREST"},
    {9729, "LINEAR"},
    {9984, "NEAREST_MIPMAP_NEAREST"},
    {9985, "LINEAR_MIPMAP_NEAREST"},
    {9986, "NEAREST_MIPMAP_LINEAR"},
    {9987, "LINEAR_MIPMAP_LINEAR"},
}};

template <std::size_t N>
constexpr std::optional<std::string_view> NameOf(const std::array<Code, N>& codes, int value) {
  for (const auto& c : codes)
    if (c.value == value) return c.name;
  return std::nullopt;
}

template <std::size_t N>
constexpr std::optional<int> ValueOf(const std::array<Code, N>& codes, std::string_view name) {
  for (const auto& c : codes)
    if (c.name == name) return c.value;
  return std::nullopt;
}

inline constexpr int kNearest = 9728;
inline constexpr int kLinear = 9729;
/// The wrap mode of a sampler that names none.
inline constexpr int kDefaultWrap = 10497;  // REPEAT

/// The texture ports of the bundle, in the order the writer and reader visit them, and whether
/// the port's texels are colour (sRGB-encoded in the file).
struct TexturePort {
  std::string_view port;
  bool color;
};
inline constexpr std::array<TexturePort, 5> kTexturePorts = {{
    {ports::baseColorTexture, true},
    {ports::metallicRoughnessTexture, false},
    {ports::emissiveTexture, true},
    {ports::normalTexture, false},
    {ports::occlusionTexture, false},
}};

}  // namespace host::formats::gltf
