// The FBX unit's writer and reader with the signatures every format unit has (format_io.h).
#pragma once

#include <string>

#include "host/formats/format_io.h"

namespace host::formats::detail {

/// Binary FBX 7.4 (ASCII with WriteOptions::fbxAscii; images inside the file with
/// WriteOptions::embedTextures) of a scene whose materials are sets of the FBX Phong or the OBJ
/// bundle.
vex::Result<WrittenFiles> WriteFbx(const SceneData& scene, const std::string& directory, const std::string& stem,
                                   const vex::IPortBundles& bundles, const WriteOptions& options);

/// An FBX file (binary or ASCII) as a scene: its meshes, nodes with local transforms, unit and up
/// axis, and materials as sets of the generic bundle with their textures. A texture that cannot
/// be read is a warning (its port keeps the constant); FileIO naming the file when the file
/// itself cannot be read.
vex::Result<SceneData> ReadFbx(const std::string& path, const vex::IPortBundles& bundles, const ReadOptions& options);

/// Refuses an FBX file (its `bytes`, read from `path`) that the mesh library would recurse through
/// too deeply (records or braces nested past a few dozen levels, Models parented deeper than
/// kMaxNodeDepth or in a cycle), before it is handed the file. ReadFbx checks the same.
vex::Result<void> CheckFbxNesting(const std::string& bytes, const std::string& path);

}  // namespace host::formats::detail
