// Corvane <-> glTF metallic-roughness mapping: the collecting of textures by
// glTF role and the texture combining pass that packs what a run into glTF
// collected into glTF's combined textures (the viewport-to-glTF mapping uses
// both). The mapping class itself is made by CreateCorvaneToGltfPbr
// (mappings.h).
#pragma once

#include <new>
#include <source_location>
#include <string>
#include <string_view>
#include <unordered_map>

#include "material/mapping/filed_textures.h"
#include "vex/error.h"
#include "vex/material.h"
#include "vex/ports.h"

namespace interop::mapping {

/// The roles textures are collected under: the glTF texture port each ends on, and two of the
/// combining pass's own, the opacity (which goes into the base colour's alpha) and a roughness
/// that is merged with the metal.
namespace role {
inline constexpr std::string_view kBaseColor = vex::ports::gltf::baseColorTexture;
inline constexpr std::string_view kOpacity = vex::ports::gltf::opacity;
inline constexpr std::string_view kMetalRoughness = vex::ports::gltf::metallicRoughnessTexture;
inline constexpr std::string_view kRoughness = "roughness";
inline constexpr std::string_view kEmissive = vex::ports::gltf::emissiveTexture;
inline constexpr std::string_view kNormal = vex::ports::gltf::normalTexture;
inline constexpr std::string_view kOcclusion = vex::ports::gltf::occlusionTexture;
}  // namespace role

/// Textures collected during a run into glTF, keyed by their source port.
using CollectedTextures = std::unordered_map<std::string, FiledTexture>;

/// Files a texture under its glTF role, replacing what the source port filed before. Lack of
/// memory is the only failure, reported at the caller.
inline vex::Result<void> Collect(CollectedTextures& collected, std::string_view source, std::string_view role,
                                 const vex::TextureBuffer& texture,
                                 std::source_location where = std::source_location::current()) {
  try {
    collected.insert_or_assign(std::string(source), FileTexture(source, role, texture));
  } catch (const std::bad_alloc&) {
    return std::unexpected(vex::MakeError(vex::ErrorKind::OutOfMemory, "Out of memory",
                                          vex::SourceUnit(where.file_name()), static_cast<int>(where.line())));
  }
  return {};
}

/// Packs the collected textures into the target's glTF texture ports, rewriting their pixels in
/// place (the pixel arrays of the source material's textures are consumed):
/// - the "transmission_weight" texture is inverted (1 - value; alpha kept);
/// - "opacity" goes into the alpha of "baseColorTexture" (the four-channel mean of the opacity
///   pixel), or alone becomes a white "baseColorTexture" with the three-channel mean as alpha;
/// - "metallicRoughnessTexture" becomes (0, roughness green, metal green, 1) with a "roughness"
///   entry, else (0, green, 1, 1);
/// - "occlusionTexture" becomes (mean of the four channels, 0, 0, 1);
/// - any other role is stored under its own name unchanged.
/// Every size and pixel-array check runs before the first pixel is rewritten: a failed run
/// returns an illegal-state error and leaves every buffer as it was. An entry that does not hold
/// a `TextureBuffer` is a wrong-data-type error ("Invalid TypedConstantParameter"). The entries
/// are released on success.
vex::Result<void> CombineTextures(CollectedTextures& collected, vex::ParameterSet& target);

}  // namespace interop::mapping
