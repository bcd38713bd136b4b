// Image files as TextureBuffers (RGBA float, linear light for colour data).
// The one unit that talks to OpenImageIO.
#pragma once

#include <string>
#include <string_view>

#include "vex/host.h"

namespace host {

struct ImageWriteOptions {
  bool floatPixels = false;  ///< write 32-bit float (EXR) instead of 8 bits per channel
  bool srgb = false;         ///< encode linear colour as sRGB when writing 8 bits
  int pngCompression = 3;    ///< zlib level for PNG (fast; files stay small for textures)
};

/// Reads any format OpenImageIO knows. 8-bit and 16-bit colour data (`colorData`) is decoded from
/// sRGB to linear light; data textures stay as stored. Grey and RGB images get alpha 1.
vex::Result<vex::TextureBuffer> ReadImage(std::string_view path, bool colorData);

/// Writes a buffer as PNG (8 bits) or EXR (float) by the path's suffix and the options.
vex::Result<void> WriteImage(const std::string& path, const vex::TextureBuffer& buffer,
                             const ImageWriteOptions& options);

}  // namespace host

namespace host {

/// A copy of `buffer` resampled to width x height with a filtered (Lanczos) resize; the pixels
/// are taken as they are stored (linear light for colour data). FileIO-free: fails only for an
/// empty buffer or a zero size (IllegalArgument).
vex::Result<vex::TextureBuffer> ResizeImage(const vex::TextureBuffer& buffer, std::int64_t width,
                                            std::int64_t height);

}  // namespace host
