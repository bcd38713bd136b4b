// What the format readers share: loading a port's image (colour ports linearised from sRGB)
// and the Phong exponent as a roughness.
#pragma once

#include <string>
#include <vector>

#include "vex/host.h"
#include "vex/material.h"

namespace host::formats {

namespace detail {
/// Reads an image for a port of `bundle` (colour ports are linearised); the message names the
/// material file and the image.
vex::Result<vex::TextureBuffer> ReadPortTexture(const std::string& materialFile, const std::string& imagePath,
                                                const vex::IPortBundles& bundles, std::string_view bundle,
                                                std::string_view port);
/// A file the scene names that is not there: FileIO "<file>: <what> does not exist", `what`
/// naming the object and the file ("material 'Brick': texture \"bricks.png\"").
vex::Error MissingFile(const std::string& file, const std::string& what);
/// The `what` of a missing texture: "material 'Brick': texture \"bricks.png\"".
std::string MissingTexture(const std::string& material, const std::string& texture);
/// Phong exponent to a roughness in [0, 1] and back (n = 2 / r^4 - 2).
double RoughnessFromPhong(double exponent);
}  // namespace detail

}  // namespace host::formats
