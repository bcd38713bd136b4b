// Checks made on a user's file before a third-party reader sees it, for inputs those readers
// handle badly: glTF JSON nested deep enough to exhaust the stack of a recursive reader, an MTL
// statement before its first material, hierarchies deeper than the readers recurse. PLY, which
// the mesh library reads into gigabytes on a misread count, is read here instead.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "vex/error.h"
#include "vex/polygon.h"

namespace host {

/// How deep a node hierarchy may go, a root being at level 1. Deeper scenes are refused where
/// they are read (glTF, FBX, .vex, and the mesh library's formats) and where a scene is checked
/// before writing: the libraries that read and write them recurse once per level.
inline constexpr int kMaxNodeDepth = 1000;

/// A PLY file: "ply", a "format" line, element and property lines, "end_header" followed by the
/// body. Fails with "FILE:LINE: <reason>" for a header that ends before "end_header", holds a byte
/// that is not ASCII text, a line that is not one of the header's kinds, a property type that is
/// not the format's own, or element counts that the body cannot hold (at least one byte per binary
/// property, two per ASCII one); and for a list whose count the body cannot hold (ASCII: more
/// values than its line has left; binary: more than the bytes left).
vex::Result<void> CheckPlyFile(std::string_view bytes, const std::string& file);

/// A PLY file's mesh, checked as CheckPlyFile checks it: the "vertex" rows' x, y and z, and the
/// "face" rows' "vertex_indices" (or "vertex_index"); other elements and properties are passed
/// over. Corners at the same place become one point; faces of fewer than three corners are left
/// out. A face that names a vertex the file does not have fails ("FILE: face F refers to vertex V
/// of N"), as does a vertex that is not finite. The mesh library's own reading of PLY allocates
/// what a list's count or a misread row claims, so the host reads the format itself.
vex::Result<vex::PolygonMesh> ReadPlyMesh(std::string_view bytes, const std::string& file);

/// An OBJ material library as the mesh library reads it: nothing but blank lines and comments
/// may come before the first "newmtl" line (it writes through a null material otherwise, for
/// texture statements in spellings it matches loosely). Fails with "FILE:LINE: <reason>".
vex::Result<void> CheckMtlText(std::string_view text, const std::string& file);

/// glTF (`binary` false) or GLB bytes: the container's lengths (GLB) and the JSON text, which
/// must be valid and within the nesting limit (json_text.h). Errors name the file and position.
vex::Result<void> CheckGltfBytes(std::string_view bytes, const std::string& file, bool binary);

/// CheckGltfBytes, then the nodes as the mesh library walks them: a child that exists, one parent
/// each, no cycle, no deeper than kMaxNodeDepth. "FILE: node 'NAME' ..." otherwise.
vex::Result<void> CheckGltfNodeTree(std::string_view bytes, const std::string& file, bool binary);

/// A node of a hierarchy given as each node's parent (-1 for a root) that lies deeper than
/// kMaxNodeDepth or on a cycle of parents.
struct MisplacedNode {
  std::size_t node = 0;
  bool cycle = false;  ///< on a cycle of parents, else too deep
};
/// The first such node, if any; iterative, linear in the number of nodes.
std::optional<MisplacedNode> FindMisplacedNode(std::span<const std::int64_t> parent);
/// "node 'NAME' lies on a cycle of parents" or "node 'NAME': the hierarchy is deeper than N levels".
std::string DescribeMisplacedNode(const MisplacedNode& misplaced, const std::string& name);

/// Markup (an XML file such as COLLADA) whose elements nest no deeper than `limit`; comments,
/// declarations, processing instructions and CDATA are skipped, quotes in tags respected.
/// "FILE:LINE: elements nested deeper than N levels" otherwise.
vex::Result<void> CheckMarkupDepth(std::string_view text, const std::string& file, int limit);

/// Reads a file a glTF refers to (a buffer or image uri) only when it is a regular file; the
/// signature of the glTF library's file callback, `error` gets the one-line reason.
bool ReadReferencedFile(std::vector<unsigned char>* out, std::string* error, const std::string& path, void*);

}  // namespace host
