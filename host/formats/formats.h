// The pieces every file writer shares: reading a port with the bundle's default, writing a
// texture file, numbers as text, texture fitting and the preview mesh a material is shown on.
#pragma once

#include <cstdint>
#include <optional>
#include <utility>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/formats/format_io.h"
#include "vex/host.h"
#include "vex/material.h"

namespace host::formats {

/// What one of the material writers below produced: the files (relative to the output
/// directory, the main file first), the losses it noted, and port -> texture file.
struct WrittenMaterial {
  std::vector<std::string> files;
  std::vector<std::string> warnings;
  std::vector<std::pair<std::string, std::string>> textures;
};

/// The size a texture of width x height gets under a size limit (`maxSize` > 0: the longer side
/// at most maxSize, the aspect kept) and, with `powerOfTwo`, each side rounded to the nearest
/// power of two (not above the limit). Sides stay at least 1.
std::pair<std::int64_t, std::int64_t> FittedSize(std::int64_t width, std::int64_t height, int maxSize,
                                                 bool powerOfTwo);

/// Resamples every texture of the set whose size FittedSize changes (filtered, in linear light)
/// and returns one line per resampled texture ("<port>: WxH -> wxh").
vex::Result<std::vector<std::string>> FitTextures(vex::ParameterSet& set, int maxSize, bool powerOfTwo);

// --- shared by the writers ----------------------------------------------------------------------

/// A set's view with its bundle's defaults: a port the set lacks reads as the bundle's default.
/// The one reader of ports that every writer uses.
class PortReader {
 public:
  PortReader(const vex::ParameterSet& set, const vex::IPortBundles& bundles);
  const vex::ParameterSet& Set() const { return set_; }
  const vex::PortBundle* Bundle() const { return bundle_; }
  /// The entry of the set, else of the bundle's defaults; nullptr when neither has one.
  const vex::Parameter* Entry(std::string_view port) const;
  /// A number (Float, Int, UInt or Bool), else `fallback`.
  double Number(std::string_view port, double fallback) const;
  /// A colour with alpha (ColorA; Color, Vector or a number with the fallback's alpha), else
  /// `fallback`.
  vex::ColorA Rgba(std::string_view port, vex::ColorA fallback) const;
  /// A colour (Color, ColorA, Vector: the first three components; a number as grey), else `fallback`.
  vex::Color Rgb(std::string_view port, vex::Color fallback) const;
  /// The alpha of a ColorA port, else `fallback`.
  double Alpha(std::string_view port, double fallback) const;
  std::string Text(std::string_view port, std::string fallback) const;
  /// The set's own entry when it carries a texture (defaults carry none), else nullptr.
  const vex::Parameter* Textured(std::string_view port) const;
  /// The texture of the set's own entry, else nullptr.
  const vex::TextureBuffer* Texture(std::string_view port) const;
  /// True when the bundle marks the port as colour data (its texture is stored sRGB-encoded).
  bool IsColorPort(std::string_view port) const;

 private:
  const vex::PackedConstantParameter* Constant(std::string_view port) const;
  const vex::ParameterSet& set_;
  const vex::PortBundle* bundle_ = nullptr;
};

/// Writes `texture` as "<directory>/<file>" (PNG, 8 bits; sRGB-encoded when `srgb`). FileIO
/// naming the file on failure.
vex::Result<void> WriteTexture(const std::string& directory, const std::string& file, const vex::TextureBuffer& texture,
                               bool srgb);

/// A file name made of letters, digits, '-' and '_' only (others become '_'); never empty.
std::string SafeName(std::string_view name);

/// Numbers as text the same way in every writer: shortest round-trip form, '.' as the decimal
/// point whatever the locale.
std::string FormatNumber(double value);

/// The preview mesh: a UV sphere of radius 1 around the origin with per-vertex normals and
/// texture coordinates (V up), counter-clockwise triangles seen from outside.
struct PreviewMesh {
  std::vector<float> positions;       ///< x, y, z per vertex
  std::vector<float> normals;         ///< x, y, z per vertex, unit length
  std::vector<float> uvs;             ///< u, v per vertex, in [0, 1]
  std::vector<float> tangents;        ///< x, y, z, w per vertex: along +u, w the bitangent's sign
  std::vector<std::uint32_t> indices; ///< three per triangle
  std::size_t VertexCount() const { return positions.size() / 3; }
  std::size_t TriangleCount() const { return indices.size() / 3; }
};

/// `segments` around the axis (>= 3) and `rings` from pole to pole (>= 2). The seam and the
/// poles have their own vertices so that texture coordinates stay continuous.
PreviewMesh MakeUvSphere(int segments = 32, int rings = 16);

}  // namespace host::formats
