// The parameter-set JSON: the command line's and the dumps' form of a
// parameter set. One unit wraps the JSON library for it.
//
//   {"bundle": "<port bundle id>",
//    "parameters": {
//      "<port>": {"type": "<Bool|Int|UInt|Float|Vector2d|Vector|Vector4d|Color|ColorA|Url|String|Id|
//                           InternedId|CString>", "value": <value>,
//                 "texture": "<image path relative to the JSON file>",        (optional)
//                 "properties": {"colorSpace": "sRGB", ...}},                   (optional)
//      "<port>": {"type": "ImageReference", "url": "<path>", "colorSpace": "sRGB"},
//      "<port>": {"type": "SubstanceReference", "asset": "<path>", "name": "<name>"}}}
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "vex/host.h"

namespace host {
class StagedOutput;
}

namespace host::json {

enum class TextureMode {
  Describe,  ///< a texture is written as {"width": w, "height": h} (no pixels): dumps and reports
  Files,     ///< a texture is written as the file name a writer callback chose
  Embed,     ///< a texture is written inline: {"width": w, "height": h, "colorSpace": "sRGB" (when set),
             ///< "pixels": base64 of w*h RGBA 32-bit little-endian floats} -- the dumps' form, which
             ///< ParseParameterSet reads back
};

/// Serialises a set. With TextureMode::Files, `textureName(port, buffer)` names each texture file.
std::string DumpParameterSet(const vex::ParameterSet& set, TextureMode mode,
                             const std::function<std::string(const std::string&, const vex::TextureBuffer&)>&
                                 textureName = {});

struct ReadOptions {
  const vex::IPortBundles* bundles = nullptr;  ///< when given: unknown ports and wrong types are errors
  vex::IImages* images = nullptr;              ///< when given: textures are loaded
  vex::IIdTable* ids = nullptr;                ///< interns "InternedId" values (required for them)
};

/// Parses a set; `source` names the file in messages, textures are resolved against `baseDir`.
vex::Result<vex::ParameterSet> ParseParameterSet(std::string_view text, const std::string& source,
                                                 const std::string& baseDir, const ReadOptions& options);

vex::Result<vex::ParameterSet> ReadParameterSetFile(const std::string& path, const ReadOptions& options);

struct WriteOptions {
  bool floatTextures = false;  ///< EXR instead of PNG
  const vex::IPortBundles* bundles = nullptr;  ///< colour ports of the bundle are written sRGB-encoded
};

/// Writes the JSON and every texture beside it (named "<json stem>.<port>.png|exr") into an existing
/// directory. All files are staged (host/staged_output.h) and put in place together: a failure
/// leaves no output behind.
vex::Result<void> WriteParameterSetFile(const std::string& path, const vex::ParameterSet& set,
                                        const WriteOptions& options);
/// The same, staging the files in `staged` without committing them (the caller commits or
/// discards them with the rest of its output).
vex::Result<void> WriteParameterSetFile(const std::string& path, const vex::ParameterSet& set,
                                        const WriteOptions& options, StagedOutput& staged);

}  // namespace host::json
