// The node material baker: renders the texture input of a material end node's
// port into a TextureBuffer of a requested size. Texture nodes are the host's
// image node (file, colour space, filtered resampling, channel select, value
// scale), constant colour, checker and linear gradient; checker and gradient
// colours may themselves be fed by texture nodes. Pixels are evaluated
// independently on the host's parallel-for.
#pragma once

#include <cstdint>
#include <string_view>

#include "vex/material.h"
#include "vex/material_host.h"

namespace interop::material {

struct BakeSettings {
  std::int64_t dimensions = 1024;  ///< the requested size N (textures are N x N, or N on the longer side)
  vex::TextureResize resize = vex::TextureResize::Stretch;
};

inline constexpr std::int64_t kMaxBakeDimensions = 16384;

/// The size of the baked buffer for a source of `source` pixels (procedural sources are N x N).
vex::Dimensions FittedDimensions(vex::Dimensions source, std::int64_t size, vex::TextureResize mode);

/// Renders what feeds `port` of `endNode`. `colorData` says whether the port takes colour (image
/// nodes without an explicit colour space are then read as sRGB colour). Image files are resolved
/// against the document's directory and read through the host's image service. Fails with an
/// illegal-argument error when the port has no input, a node cannot be baked, the graph has a
/// cycle or the size is outside 1..16384, and with the image service's error for an unreadable
/// file. Nothing is rendered before every check has passed.
vex::Result<vex::TextureBuffer> BakeNodeInput(const vex::NodeGraph& graph, const vex::GraphNode& endNode,
                                              std::string_view port, const BakeSettings& settings,
                                              const vex::IDocument* document, bool colorData);

}  // namespace interop::material
