// Mesh files (OBJ, glTF/GLB, FBX, PLY, STL, COLLADA and the other formats
// Assimp reads) opened as a document of polygon objects. The one unit that
// wraps Assimp.
#pragma once

#include <string>
#include <string_view>

#include "host/scene.h"
#include "vex/units.h"

namespace host::mesh_import {

/// Whether the file's suffix names a mesh format this unit reads (case-insensitive).
bool IsMeshFile(std::string_view path);

/// Opens a mesh file as a new active document named after the file. Every mesh of every node
/// becomes one polygon object named after its node (and the mesh, when a node holds several),
/// with the node transforms applied to its points, points at the same place welded, and the
/// material's base (or diffuse) colour as its colour when the file names a material. Lines and
/// points of the file are left out.
/// The document's unit (setting 2117) is the file's own where the format records one (FBX),
/// metres otherwise. On failure no document is added; the error names the file and the problem.
vex::Result<Document*> Load(Documents& documents, const std::string& path, const vex::IUnits& units);

}  // namespace host::mesh_import
