// The glTF unit's writer and reader (glTF 2.0 text with its companions, and binary .glb).
#pragma once

#include <string>

#include "host/formats/format_io.h"

namespace host::formats::detail {

vex::Result<WrittenFiles> WriteGltf(const SceneData& scene, const std::string& directory, const std::string& stem,
                                    const vex::IPortBundles& bundles, const WriteOptions& options);
vex::Result<SceneData> ReadGltf(const std::string& path, const vex::IPortBundles& bundles, const ReadOptions& options);

}  // namespace host::formats::detail
