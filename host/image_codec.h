// The image codec: the one unit that talks to OpenImageIO. It is built as a shared library of its
// own (libinterop_images.so, beside the program) and loaded the first time an image is read,
// written or resized (host/images.cpp): the image library pulls in some 250 libraries, whose
// loading costs about half a second and 130 MB before main, so that commands without textures
// never pay for it. A program that links the codec in (the fuzz harnesses) uses it directly.
#pragma once

#include <cstdint>
#include <string>

#include "host/images.h"

namespace host {

struct ImageCodec {
  /// Decodes a regular file already checked by the caller; `maxPixels` as MaxImagePixels().
  vex::Result<vex::TextureBuffer> (*read)(const std::string& nativePath, bool colorData, std::uint64_t maxPixels);
  vex::Result<void> (*write)(const std::string& path, const vex::TextureBuffer& buffer,
                             const ImageWriteOptions& options);
  vex::Result<vex::TextureBuffer> (*resize)(const vex::TextureBuffer& buffer, std::int64_t width, std::int64_t height);
};

inline constexpr const char* kImageCodecLibrary = "libinterop_images.so";

}  // namespace host

extern "C" const host::ImageCodec* interop_image_codec();
