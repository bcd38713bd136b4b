// The host's native scene file (suffix "vex"): one document as JSON, written
// so that scenes can be made by hand, loaded, changed and saved again. The
// format is described in docs/scene-file.md. One unit wraps the JSON library
// for it.
#pragma once

#include <iosfwd>
#include <string>
#include <string_view>

#include "host/scene.h"
#include "vex/data.h"
#include "vex/units.h"

namespace host::scene_file {

inline constexpr std::string_view kSuffix = "vex";
inline constexpr int kVersion = 1;

struct ReadOptions {
  const vex::IUnits* units = nullptr;  ///< resolves {"unitscale": "cm"}; without it only the full form reads
};

/// Fills an empty document from the text; `source` names the file in messages. On failure the
/// document may hold part of the scene. The text is read as Load reads a file: section by
/// section, the geometry arrays straight into the meshes.
vex::Result<void> Parse(std::string_view text, const std::string& source, Document& document,
                        const ReadOptions& options = {});

/// Writes the document to `out` as it walks it, the geometry arrays formatted straight into a
/// buffer: no tree and no text of the whole document is made. Fails for a value the format cannot
/// hold (a custom data type it does not know, an interned id, a number that is not finite), naming
/// the place; `out` then holds part of the text, so write to a scratch file (WriteFile, Save).
vex::Result<void> Write(const Document& document, std::ostream& out);

/// Fills an empty document from the file at `path` (named so in messages), read through a buffer as
/// it is parsed, never whole. On failure the document may hold part of the scene.
vex::Result<void> ParseFile(const std::string& path, Document& document, const ReadOptions& options = {});

/// The document as text (Write into a string).
vex::Result<std::string> Dump(const Document& document);

/// Writes the document into the file `path` (a scratch file the caller stages), naming `target`,
/// the file it becomes, in messages.
vex::Result<void> WriteFile(const Document& document, const std::string& path, const std::string& target);

/// Opens a scene file as a new active document named after the file (or the file's "name"); its
/// path is the file's directory. The file is read through a buffer as it is parsed, never whole.
/// On failure no document is added.
vex::Result<Document*> Load(Documents& documents, const std::string& path, const ReadOptions& options = {});

/// Writes the document to a scratch file beside `path` (host/staged_output.h), then renames it: a
/// failure leaves an existing file untouched. The directory must exist.
vex::Result<void> Save(const Document& document, const std::string& path);

/// A JSON object read into a data dictionary with plain values: booleans, whole numbers (int32,
/// int64 when they do not fit), other numbers (float64), strings, arrays and nested objects. The
/// typed forms of the scene file ({"float64": 1}, {"vector": [..]}, ...) are read as those types.
/// Used for neutral object descriptions written by hand.
vex::Result<vex::DataDictionary> ParseDictionary(std::string_view text, const std::string& source,
                                                 const ReadOptions& options = {});
vex::Result<vex::DataDictionary> ReadDictionaryFile(const std::string& path, const ReadOptions& options = {});

}  // namespace host::scene_file
