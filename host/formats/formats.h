// Material files for other tools: the four formats the command line writes
// (glTF 2.0, USD text, OBJ/MTL, FBX), the bundles each writer takes, and the
// pieces every writer shares (reading a port with the bundle's default,
// writing a texture file, the preview mesh it puts the material on).
#pragma once

#include <cstdint>
#include <optional>
#include <utility>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "vex/host.h"
#include "vex/material.h"

namespace host::formats {

enum class Format { Gltf, Usd, Obj, Fbx };

/// "gltf", "usd", "obj" or "fbx" (lower case); nullopt for anything else.
std::optional<Format> ParseFormat(std::string_view name);
std::string_view FormatName(Format format);
/// The main file's suffix with its dot (".gltf", ".usda", ".obj", ".fbx").
std::string_view MainSuffix(Format format);

/// The bundles a writer takes, preferred first. A set in another bundle is mapped into the first
/// of them that a registered mapping reaches. FBX takes its Phong bundle, then the OBJ bundle
/// (whose colours, opacity and normal map an FBX Phong surface carries too).
std::span<const std::string_view> AcceptedBundles(Format format);

struct WriteOptions {
  /// glTF: write KHR_materials_emissive_strength when the emission exceeds 1 (otherwise the
  /// emissive factor is clamped to 1, as the mapping clamps it).
  bool emissiveStrength = false;
  /// FBX: the ASCII form instead of binary FBX 7.4.
  bool fbxAscii = false;
};

/// What a writer produced: the files (relative to the output directory, the main file first) and
/// the losses it noted.
struct WrittenMaterial {
  std::vector<std::string> files;
  std::vector<std::string> warnings;
  std::vector<std::pair<std::string, std::string>> textures;  ///< port of the set -> texture file
};

/// Writes the material `name` (a set in one of AcceptedBundles(format)) on the preview mesh into
/// `directory`, which must exist: "<name><suffix>" plus companions (.bin, .mtl, textures named
/// "<name>_<port>.png"). IllegalArgument when the set's bundle is not one the writer takes;
/// FileIO naming the file when a file cannot be written. Files already written stay: callers
/// write into a directory of their own and discard it on failure.
vex::Result<WrittenMaterial> WriteMaterial(Format format, const vex::ParameterSet& set, const std::string& name,
                                           const std::string& directory, const vex::IPortBundles& bundles,
                                           const WriteOptions& options = {});

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
class PortReader {
 public:
  PortReader(const vex::ParameterSet& set, const vex::IPortBundles& bundles);
  const vex::ParameterSet& Set() const { return set_; }
  const vex::PortBundle* Bundle() const { return bundle_; }
  /// The entry of the set, else of the bundle's defaults; nullptr when neither has one.
  const vex::Parameter* Entry(std::string_view port) const;
  /// A number (Float, Int, UInt or Bool), else `fallback`.
  double Number(std::string_view port, double fallback) const;
  /// A colour (Color, ColorA, Vector: the first three components), else `fallback`.
  vex::Color Rgb(std::string_view port, vex::Color fallback) const;
  /// The alpha of a ColorA port, else `fallback`.
  double Alpha(std::string_view port, double fallback) const;
  std::string Text(std::string_view port, std::string fallback) const;
  /// The texture of the set's own entry (defaults carry none).
  const vex::TextureBuffer* Texture(std::string_view port) const;
  /// True when the bundle marks the port as colour data (its texture is stored sRGB-encoded).
  bool IsColorPort(std::string_view port) const;

 private:
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
