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
/// Phong exponent to a roughness in [0, 1] and back (n = 2 / r^4 - 2).
double RoughnessFromPhong(double exponent);
}  // namespace detail

}  // namespace host::formats
