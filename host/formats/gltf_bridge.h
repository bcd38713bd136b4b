// The glTF unit seen from the material-preview entry points (WriteMaterial and ReadMaterials),
// with plain arguments only, so that their units need not include format_io.h.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "host/formats/scene_data.h"
#include "vex/host.h"

namespace host::formats::detail {

struct GltfPreviewFiles {
  std::vector<std::string> files;
  std::vector<std::string> warnings;
  std::vector<std::pair<std::string, std::string>> textures;  ///< port of the first material -> image file
};

/// WriteGltf with the options spelled out.
vex::Result<GltfPreviewFiles> WriteGltfScene(const SceneData& scene, const std::string& directory,
                                             const std::string& stem, const vex::IPortBundles& bundles,
                                             bool emissiveStrength, bool glb);

/// ReadGltf with textures at the file's own size.
vex::Result<SceneData> ReadGltfScene(const std::string& path, const vex::IPortBundles& bundles);

}  // namespace host::formats::detail
