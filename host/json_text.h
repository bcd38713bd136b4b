// The one door between JSON text and nlohmann::json for every reader and writer of the host and
// the command line. Reading bounds the nesting depth (the readers above it recurse), checks UTF-8
// and reports "FILE:LINE:COLUMN: reason" in one line; writing never throws.
#pragma once

#include <cstddef>
#include <optional>
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

/// Receives the values of a JSON text as the text is read (the JSON library's event interface),
/// so that a reader can keep what it needs without a tree of the whole text. An event that
/// returns false ends the reading; the handler sets `stop` to the error it ends with.
class JsonEventHandler : public nlohmann::json_sax<nlohmann::ordered_json> {
 public:
  std::optional<vex::Error> stop;

  bool binary(binary_t&) override { return true; }  // JSON text has none
  /// Kept by the reading, which words the message itself.
  bool parse_error(std::size_t position, const std::string& lastToken, const nlohmann::detail::exception& e) final {
    syntaxError_ = position;
    syntaxErrorId_ = e.id;
    lastToken_ = lastToken;
    return false;
  }

 private:
  friend class JsonReading;
  std::optional<std::size_t> syntaxError_;
  int syntaxErrorId_ = 0;
  std::string lastToken_;
};

/// Reads `text` (from `file`, for messages) into `handler`, with the checks and the messages of
/// ParseJsonText.
vex::Result<void> ReadJsonEvents(std::string_view text, const std::string& file, JsonEventHandler& handler,
                                 int maxDepth = JsonDepthLimit());

/// Reads the regular file at `path` into `handler` through a buffer, never holding the whole text:
/// each block is checked for nesting and UTF-8 before the parser sees any of it, so a text that
/// fits in one block (1 MiB) fails exactly as ParseJsonText would; in a larger one a problem is
/// reported when the reading reaches its block. Messages are "PATH:LINE:COLUMN: <reason>" and
/// those of ReadInputFile.
vex::Result<void> ReadJsonFileEvents(const std::string& path, JsonEventHandler& handler,
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
