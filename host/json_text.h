// The one door between JSON text and nlohmann::json for every reader and writer of the host and
// the command line. Reading bounds the nesting depth (the readers above it recurse), checks UTF-8
// and reports "FILE:LINE:COLUMN: reason" in one line; writing never throws.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "vex/error.h"

namespace host {

/// Deepest nesting of arrays and objects a JSON text may have, unless changed.
inline constexpr int kDefaultJsonDepth = 256;

/// The process-wide nesting limit (the command line's --max-json-depth sets it); at least 1.
int JsonDepthLimit();
void SetJsonDepthLimit(int depth);

/// Parses `text` (from `file`, for messages); objects keep their keys in the file's order. Fails with IllegalArgument and a one-line message
/// "FILE:LINE:COLUMN: <reason>" (line and column count from 1, the column in bytes) when the text
/// is not JSON, nests deeper than `maxDepth`, or holds bytes that are not UTF-8 (the reason names
/// the byte). No text of the JSON library's exceptions reaches the message.
vex::Result<nlohmann::ordered_json> ParseJsonText(std::string_view text, const std::string& file,
                                          int maxDepth = JsonDepthLimit());

/// `value` as text (`indent` < 0: compact). Strings holding bytes that are not UTF-8 (names read
/// from Latin-1 files) are written with U+FFFD in place of each bad byte: the output is always
/// valid UTF-8 and this never throws.
std::string DumpJsonText(const nlohmann::ordered_json& value, int indent = -1);
std::string DumpJsonText(const nlohmann::json& value, int indent = -1);

/// 1-based line and column (in bytes) of `offset` in `text`.
struct TextPosition {
  std::size_t line = 1;
  std::size_t column = 1;
};
TextPosition PositionOf(std::string_view text, std::size_t offset);

}  // namespace host
