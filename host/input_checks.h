// Checks made on a user's file before a third-party reader sees it, for inputs those readers
// handle badly: a PLY header that ends early (the mesh library spins on it), glTF JSON nested
// deep enough to exhaust the stack of a recursive reader.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "vex/error.h"

namespace host {

/// A PLY header: "ply", a "format" line, element and property lines, "end_header" followed by the
/// body. Fails with "FILE:LINE: <reason>" for a header that ends before "end_header", a line that
/// is not one of the header's kinds, or element counts that the body cannot hold (at least one
/// byte per binary property, two per ASCII one).
vex::Result<void> CheckPlyHeader(std::string_view bytes, const std::string& file);

/// An OBJ material library: texture statements (map_..., bump, disp, decal, refl, norm) must
/// follow a "newmtl" line (the mesh library writes through a null material otherwise).
/// Fails with "FILE:LINE: <reason>".
vex::Result<void> CheckMtlText(std::string_view text, const std::string& file);

/// glTF (`binary` false) or GLB bytes: the container's lengths (GLB) and the JSON text, which
/// must be valid and within the nesting limit (json_text.h). Errors name the file and position.
vex::Result<void> CheckGltfBytes(std::string_view bytes, const std::string& file, bool binary);

/// Reads a file a glTF refers to (a buffer or image uri) only when it is a regular file; the
/// signature of the glTF library's file callback, `error` gets the one-line reason.
bool ReadReferencedFile(std::vector<unsigned char>* out, std::string* error, const std::string& path, void*);

}  // namespace host
