// The format catalogue: one row per file format the host reads or writes. The command line's
// format list, its `--to` parsing, the import's dispatch by suffix and the examples script all
// take the formats from here; nothing else in the host lists them.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "host/formats/format_io.h"
#include "vex/id.h"

namespace host::formats {

/// The write options a format honours (bits of FormatRow::options).
enum FormatOption : unsigned {
  kOptionGlb = 1u << 0,               ///< --glb
  kOptionEmissiveStrength = 1u << 1,  ///< --emissive-strength
  kOptionFbxAscii = 1u << 2,          ///< --fbx-ascii
  kOptionEmbedTextures = 1u << 3,     ///< --embed-textures
  kOptionFloatTextures = 1u << 4,     ///< --float-textures
};

struct FormatRow {
  std::string_view name;                        ///< what `--to` takes ("gltf", "usd", ...)
  std::span<const std::string_view> suffixes;   ///< with their dot, lower case; the first is written
  std::span<const std::string_view> bundles;    ///< the bundles the writer takes, preferred first
  ReaderFn read;                                ///< nullptr: the host does not read the format
  WriterFn write;
  unsigned options;                             ///< FormatOption bits the writer honours
  bool glb;                                     ///< the row writes the binary form of glTF
  std::string_view description;
};

/// Every row, in the order the command line lists them.
std::span<const FormatRow> Catalogue();
/// The row named `name` (exact, lower case); nullptr when there is none.
const FormatRow* FindFormat(std::string_view name);
/// The row that reads a file by its suffix (any case); nullptr when no reader takes it.
const FormatRow* FindReader(std::string_view path);
/// True when `row`'s writer takes sets of `bundle` as they are.
bool WriterTakes(const FormatRow& row, const vex::Id& bundle);
/// The rows' names joined with `separator` ("gltf, glb, usd, obj, fbx").
std::string FormatNames(std::string_view separator = ", ");
/// The suffixes the readers take, joined with `separator` (".gltf, .glb, .obj, .fbx").
std::string ReadableSuffixes(std::string_view separator = ", ");
/// The options the named row honours, as `--flag` names; empty for an option it ignores.
std::string_view OptionFlag(FormatOption option);

}  // namespace host::formats

namespace host {
class StagedOutput;
}

namespace host::formats {

/// One material on the preview mesh (a UV sphere), as the scene a writer takes.
SceneData PreviewScene(const std::string& name, vex::ParameterSetRef set);

/// Writes `scene` with `row`'s writer as the folder `targetDirectory` holding
/// "<stem><suffix>" and its companions: staged in `staged` and committed when the writer
/// succeeded (replacing an existing folder), discarded otherwise. The glb row sets
/// `options.glb`.
vex::Result<WrittenFiles> WriteFormatFile(const FormatRow& row, const SceneData& scene, const std::string& targetDirectory,
                                          const std::string& stem, const vex::IPortBundles& bundles,
                                          WriteOptions options, StagedOutput& staged);

/// Reads a file with the reader its suffix names. IllegalArgument naming the file and the
/// suffixes read when no reader takes it.
vex::Result<SceneData> ReadFormatFile(const std::string& path, const vex::IPortBundles& bundles,
                                      const ReadOptions& options = {});

}  // namespace host::formats
