// Corvane <-> glTF metallic-roughness mapping: the texture combining pass that
// packs the textures a Corvane-to-glTF run collected into glTF's combined
// textures. The mapping class itself is made by CreateCorvaneToGltfPbr
// (mappings.h).
#pragma once

#include <string>
#include <unordered_map>

#include "material/mapping/filed_textures.h"
#include "vex/error.h"
#include "vex/material.h"

namespace interop::mapping {

/// Textures collected during a Corvane-to-glTF run, keyed by their source port.
using CollectedTextures = std::unordered_map<std::string, FiledTexture>;

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
