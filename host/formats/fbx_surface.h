// What an FBX Phong surface says, in FBX's own terms, made from a parameter set of the FBX Phong
// bundle or of the OBJ bundle; and the one conversion between a roughness and FBX's shininess
// exponent that the writer and the reader share.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "host/formats/scene_data.h"
#include "vex/host.h"
#include "vex/material.h"

namespace host::formats::detail {

/// A texture connected to one property of the surface.
struct SurfaceTexture {
  std::string property;  ///< the FBX property it drives ("DiffuseColor", "NormalMap", ...)
  std::string port;      ///< the set's port it came from
  const vex::TextureBuffer* buffer = nullptr;
  bool srgb = false;     ///< colour data: stored sRGB-encoded
};

struct Surface {
  vex::Color diffuse{0.8, 0.8, 0.8};
  double diffuseFactor = 1.0;
  vex::Color ambient{0, 0, 0};
  double ambientFactor = 1.0;
  vex::Color emissive{0, 0, 0};
  double emissiveFactor = 1.0;
  vex::Color specular{0.2, 0.2, 0.2};
  double specularFactor = 1.0;
  double shininess = 20.0;  ///< the Phong exponent, 0 to 100
  vex::Color transparentColor{1, 1, 1};
  double transparencyFactor = 0.0;  ///< 1 - opacity
  double opacity = 1.0;
  vex::Color reflection{0, 0, 0};
  double reflectionFactor = 0.0;
  double bumpFactor = 1.0;  ///< the normal map's strength
  std::vector<SurfaceTexture> textures;
};

/// The surface for a set of the FBX Phong bundle or of the OBJ bundle (a port the set lacks reads
/// as its bundle's default). `losses` gets one line per value the surface cannot say.
/// IllegalArgument for a set of another bundle.
vex::Result<Surface> MakeSurface(const vex::ParameterSet& set, const vex::IPortBundles& bundles,
                                 std::vector<std::string>& losses);

/// Roughness r in [0, 1] and the shininess exponent n in [0, 100]: n = 100 (1 - r)^2 and
/// r = 1 - sqrt(n) / 10 (n clamped to [0, 100]), the conversion mainstream FBX importers apply.
double ShininessFromRoughness(double roughness);
double RoughnessFromShininess(double shininess);

/// What the FBX writer produced: files relative to the directory (the .fbx first), one line per
/// loss, and the texture file written for each port of each material ("<material>/<port>").
struct FbxOutput {
  std::vector<std::string> files;
  std::vector<std::string> warnings;
  std::vector<std::pair<std::string, std::string>> textures;  ///< port -> file
};

/// Writes "<directory>/<stem>.fbx" (binary FBX 7.4, or ASCII with `ascii`) and, unless `embed`,
/// one PNG per texture beside it ("<material>_<port>.png"). IllegalArgument naming the mesh,
/// node or material for a scene that cannot be written (indices out of range, parents after
/// children, non-finite transforms); FileIO naming the file when a file cannot be written.
vex::Result<FbxOutput> WriteFbxFile(const SceneData& scene, const std::string& directory, const std::string& stem,
                                    const vex::IPortBundles& bundles, bool ascii, bool embed);

}  // namespace host::formats::detail
