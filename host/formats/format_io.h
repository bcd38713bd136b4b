// The contract between the format catalogue and the format units: what a writer is given and
// returns, what a reader is given. Every format unit implements one writer and, where the format
// is read, one reader with these signatures.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/formats/scene_data.h"
#include "vex/host.h"

namespace host::formats {

struct WriteOptions {
  bool glb = false;               ///< glTF: one binary .glb instead of .gltf + .bin + images
  bool emissiveStrength = true;   ///< glTF: KHR_materials_emissive_strength for emission above 1
  bool fbxAscii = false;          ///< FBX: the ASCII form instead of binary FBX 7.4
  bool embedTextures = false;     ///< FBX: images inside the file instead of beside it
  bool floatTextures = false;     ///< OBJ/USD: 32-bit float EXR instead of 8-bit PNG
};

/// What a writer produced: files relative to the output directory (the main file first) and
/// one line for each thing the file cannot say as the set says it.
struct WrittenFiles {
  std::vector<std::string> files;
  std::vector<std::string> warnings;
  /// Which file each textured port became (for reports): material name, port, file.
  struct Texture {
    std::string material, port, file;
  };
  std::vector<Texture> textures;
};

struct ReadOptions {
  /// 0 keeps every texture at the file's resolution and aspect; otherwise the longer side is
  /// fitted to this size.
  int textureSize = 0;
  /// Every file the scene names beside itself (a texture, a material library, a buffer) must
  /// exist: a missing one fails the read with one line naming the file and the object
  /// ("<file>: material 'Brick': texture "bricks.png" does not exist"). Off, a missing texture is
  /// a warning and its port keeps the constant. Reading a whole scene sets it (a scene that
  /// claims to be whole is not written without a part of it); reading a file's materials leaves
  /// it off (a material without its picture is still worth having).
  bool requireFiles = false;
};

// Writers take a scene whose materials are in one of the format's bundles and write
// "<directory>/<stem><suffix>" with its companions; `directory` exists and is the writer's own
// (a staging directory: the caller commits or discards it whole). Readers return the file's
// scene with materials in the format's bundle and a warning line for everything they could not
// carry. Both fail with FileIO naming the file, the place and the problem.
using WriterFn = vex::Result<WrittenFiles> (*)(const SceneData& scene, const std::string& directory,
                                               const std::string& stem, const vex::IPortBundles& bundles,
                                               const WriteOptions& options);
using ReaderFn = vex::Result<SceneData> (*)(const std::string& path, const vex::IPortBundles& bundles,
                                            const ReadOptions& options);

}  // namespace host::formats
