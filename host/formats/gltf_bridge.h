// What the glTF writer produced before it becomes the catalogue's WrittenFiles.
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


}  // namespace host::formats::detail
