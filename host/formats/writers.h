// The four writers behind WriteMaterial, one unit each (glTF and FBX wrap their
// libraries; USD and OBJ are text the project writes itself).
#pragma once

#include <string>

#include "host/formats/formats.h"

namespace host::formats::detail {

vex::Result<WrittenMaterial> WriteGltf(const PortReader& material, const std::string& name,
                                       const std::string& directory, const WriteOptions& options);
vex::Result<WrittenMaterial> WriteUsd(const PortReader& material, const std::string& name,
                                      const std::string& directory);
vex::Result<WrittenMaterial> WriteObj(const PortReader& material, const std::string& name,
                                      const std::string& directory);
vex::Result<WrittenMaterial> WriteFbx(const PortReader& material, const std::string& name,
                                      const std::string& directory, const vex::IPortBundles& bundles, bool ascii);

/// Writes `text` to "<directory>/<file>"; FileIO naming the file on failure.
vex::Result<void> WriteText(const std::string& directory, const std::string& file, const std::string& text);

}  // namespace host::formats::detail
