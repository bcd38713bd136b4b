// Whole scenes between a host document and the interchange scene (scene_data.h): polygon objects
// and meshes, the object hierarchy and its local transforms, the document unit, cameras, the
// document's materials through the material exporter and importer, and Corvane lights through the
// module's global utilities and global import. Also the checks a scene passes before anything is
// written (its hierarchy, transforms, meshes and the files it names) and the change of unit and up
// axis between a scene and the frame a writer wants.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "host/formats/catalogue.h"
#include "host/formats/conversion.h"
#include "host/formats/scene_data.h"
#include "host/scene.h"
#include "vex/interfaces.h"

namespace host::formats {

/// The module's classes that carry lights (the global utilities and the global import).
inline constexpr std::string_view kGlobalUtilsClass = "net.kelvo.exchange.globalutils";
inline constexpr std::string_view kGlobalImportClass = "net.kelvo.exchange.globalimport";

/// How a document becomes a scene.
struct DocumentExport {
  /// Materials are exported preferring this writer's bundles and then carried into one of them;
  /// nullptr leaves each set in the bundle the exporter chose.
  const FormatRow* row = nullptr;
  std::int64_t textureSize = 1024;  ///< size of baked textures
  ConversionContext conversion;
  /// The module's global utilities: Corvane lights need them (base intensity, units, colour
  /// temperature); without them lights are left out with a warning.
  vex::IGlobalUtils* utils = nullptr;
};

/// The document as an interchange scene in the document's own unit (2117; metres when the document
/// has none) with +Y up. Objects become nodes in depth-first order (parents first): polygon objects
/// meshes (polygons fanned into triangles; their normals, texture coordinates and materials when
/// they carry them), Corvane lights lights, cameras cameras, anything else an empty node. Every
/// material of the document goes through its exporter. Each object's polygon mesh is released
/// once its triangles are made, so the geometry is held once and a half at most; the document is
/// left without meshes (it is the caller's scratch copy). Fails naming `source` and the object.
vex::Result<SceneData> SceneFromDocument(Document& document, const std::string& source, const DocumentExport& how);

/// How a scene becomes host objects.
struct DocumentImport {
  vex::IGlobalUtils* utils = nullptr;    ///< lights: colour temperature
  vex::IGlobalImport* importer = nullptr;  ///< lights: the global import builds them
  std::string nodeSpace;                  ///< the renderer the lights are built for (default Corvane)
};

/// Adds the scene to an empty document: its unit becomes the document unit, a +Z up scene is
/// turned to +Y up, materials go through the material importer (Corvane node materials), lights
/// through neutral descriptions and the global import, meshes become polygon objects with their
/// normals, texture coordinates and material names, cameras camera objects. Meshes are moved out
/// of `scene` one by one. Fails naming `source` and the node; the document may then hold part of
/// the scene (the caller discards it).
vex::Result<std::vector<std::string>> SceneIntoDocument(SceneData&& scene, Document& document, const std::string& source,
                                                        const DocumentImport& how);

/// The problems that make a scene unwritable, as one line naming `source` and the object: a
/// parent index out of range or after its child, a cycle of parents, a node naming a mesh, light
/// or camera that does not exist, a non-finite transform, a mesh without triangles, with an index
/// beyond its vertices, attribute arrays of the wrong size, non-finite vertices, parts beyond the
/// triangles or naming a material that does not exist. IllegalArgument.
vex::Result<void> ValidateScene(const SceneData& scene, const std::string& source);

/// Brings the scene into `metersPerUnit` and `upAxis` ('Y' or 'Z'): lengths (vertices,
/// translations, light sizes and ranges, camera clip planes and heights) are scaled, and a
/// change of up axis turns the root nodes about +X.
void ConvertFrame(SceneData& scene, double metersPerUnit, char upAxis);

/// The frame a writer wants: glTF and OBJ metres with +Y up; the others keep the scene's own.
void ConvertFrameFor(SceneData& scene, const FormatRow& row);

/// Every file a glTF names beside itself (the buffers and images of a .gltf or of a GLB's JSON
/// chunk) exists: FileIO "<file>: mesh 'X': buffer 0 "x.bin" does not exist" or "<file>:
/// material 'Y': texture "y.png" does not exist" otherwise. They are looked for before the
/// reader runs because the glTF library fails on a missing buffer without naming the mesh. Other
/// files pass: their readers check the files they name when ReadOptions::requireFiles is set
/// (OBJ material libraries and texture maps, FBX textures, glTF images once more), as the scene
/// road sets it.
vex::Result<void> CheckReferencedFiles(const std::string& path);

/// Every texture file the document's materials name (bitmap shaders' files and image nodes,
/// relative to the document's folder) exists: FileIO "<source>: material 'Y': texture "y.png"
/// does not exist" otherwise. A document read from a .vex is checked with it before it is
/// written whole.
vex::Result<void> CheckDocumentFiles(Document& document, const std::string& source);

/// The scene's materials carried into a bundle `row`'s writer takes (texture properties resolved
/// first); the warnings of each conversion, prefixed with the material's name.
vex::Result<std::vector<std::string>> MaterialsToWriter(SceneData& scene, const FormatRow& row,
                                                        const ConversionContext& conversion);

/// A local transform as the host's position, rotation (radians about x, y, z, x first) and scale;
/// `sheared` is set when the matrix holds a shear these cannot express.
struct Decomposed {
  vex::Vector3d position, rotation, scale{1, 1, 1};
  bool sheared = false;
};
Decomposed Decompose(const Matrix4& local);

}  // namespace host::formats
