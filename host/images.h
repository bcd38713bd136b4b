// Image files as TextureBuffers (RGBA float, linear light for colour data).
// The one unit that talks to OpenImageIO.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "vex/host.h"

namespace host {

struct ImageWriteOptions {
  bool floatPixels = false;  ///< write 32-bit float (EXR) instead of 8 bits per channel
  bool srgb = false;         ///< encode linear colour as sRGB when writing 8 bits
  /// zlib level and row filter for PNG. Level 1 with the "up" filter (32) encodes a 4096² texture
  /// about 2.5 times faster than level 3 with adaptive filters and 8 times faster than the usual
  /// level 6, for files 2% and 7% larger respectively (measured on baked-looking textures).
  int pngCompression = 1;
  int pngFilter = 32;
};

/// Largest image (width x height) the reader decodes unless raised: 8192 x 8192, 1 GiB as float
/// RGBA. The command line's --max-pixels changes it for the process.
inline constexpr std::uint64_t kDefaultMaxImagePixels = std::uint64_t(8192) * 8192;
std::uint64_t MaxImagePixels();
void SetMaxImagePixels(std::uint64_t pixels);

/// Runs job(i) for every i in [0, count) on the worker threads, several at a time, and waits.
/// Image codecs are single-threaded: files are read and written in parallel with this.
void ForEachImageJob(std::size_t count, const std::function<void(std::size_t)>& job);

/// Reads any format OpenImageIO knows. 8-bit and 16-bit colour data (`colorData`) is decoded from
/// sRGB to linear light; data textures stay as stored. Grey and RGB images get alpha 1.
/// Before any pixel memory is taken the header is checked: only a regular file is read, the size
/// must be at most MaxImagePixels() (FileIO error naming the size and the limit), and the file
/// must be large enough for the pixels its header claims (no codec packs more than about a
/// thousand decoded bytes into one byte of file).
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
