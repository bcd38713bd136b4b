// The material writers of the glTF and FBX units (one material on the preview sphere), and
// the text helper the text formats share.
#pragma once

#include <string>

#include "host/formats/formats.h"

namespace host::formats::detail {

vex::Result<WrittenMaterial> WriteGltf(const PortReader& material, const std::string& name,
                                       const std::string& directory, const WriteOptions& options);
vex::Result<WrittenMaterial> WriteFbx(const PortReader& material, const std::string& name,
                                      const std::string& directory, bool binary);

/// Writes `text` to "<directory>/<file>"; FileIO naming the file on failure.
vex::Result<void> WriteText(const std::string& directory, const std::string& file, const std::string& text);

}  // namespace host::formats::detail
