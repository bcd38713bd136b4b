#include "host/json_text.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <string>
#include <vector>

#include "host/input_files.h"

namespace host {
namespace {

std::atomic<int> g_depthLimit{kDefaultJsonDepth};

/// The JSON library's error id for a number too large for its type.
constexpr int kNumberOverflow = 406;

/// Length of the UTF-8 sequence starting at text[i], or 0 when it is not a valid one
/// (overlong forms, surrogates and code points above U+10FFFF included).
std::size_t Utf8Length(std::string_view text, std::size_t i) {
  const auto at = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
  const unsigned char c = at(i);
  if (c < 0x80) return 1;
  std::size_t n = 0;
  unsigned char lo = 0x80, hi = 0xBF;  // range of the second byte
  if (c >= 0xC2 && c <= 0xDF) {
    n = 2;
  } else if (c >= 0xE0 && c <= 0xEF) {
    n = 3;
    if (c == 0xE0) lo = 0xA0;
    if (c == 0xED) hi = 0x9F;
  } else if (c >= 0xF0 && c <= 0xF4) {
    n = 4;
    if (c == 0xF0) lo = 0x90;
    if (c == 0xF4) hi = 0x8F;
  } else {
    return 0;
  }
  if (i + n > text.size()) return 0;
  if (at(i + 1) < lo || at(i + 1) > hi) return 0;
  for (std::size_t k = 2; k < n; ++k)
    if ((at(i + k) & 0xC0) != 0x80) return 0;
  return n;
}

std::string Hex(unsigned char c) {
  char buffer[8];
  std::snprintf(buffer, sizeof buffer, "0x%02X", c);
  return buffer;
}

struct ScanError {
  std::size_t offset = 0;
  std::string reason;
};

/// One pass over the text before the JSON library sees it: nesting depth and UTF-8, with the
/// byte where each goes wrong. Brackets inside strings do not count.
std::optional<ScanError> Scan(std::string_view text, int maxDepth) {
  int depth = 0;
  bool inString = false;
  for (std::size_t i = 0; i < text.size();) {
    const char c = text[i];
    if (static_cast<unsigned char>(c) >= 0x80) {
      const std::size_t n = Utf8Length(text, i);
      if (n == 0)
        return ScanError{i, "invalid UTF-8 byte " + Hex(static_cast<unsigned char>(c)) +
                                " (the file must be UTF-8 text)"};
      i += n;
      continue;
    }
    if (inString) {
      if (c == '\\')
        ++i;
      else if (c == '"')
        inString = false;
    } else if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      if (++depth > maxDepth)
        return ScanError{i, "arrays and objects nested deeper than " + std::to_string(maxDepth) + " levels"};
    } else if (c == ']' || c == '}') {
      --depth;
    }
    ++i;
  }
  return std::nullopt;
}

/// Where `offset` lies in the document, as the members and elements that lead to it
/// ("nodes[0] 'Top'.translation[0]"): an element that is an object is followed by its "name" when
/// the name comes before the offset. Walks the text again, so it costs nothing until a value is
/// refused; the text before the offset is JSON (the library read it).
std::string PlaceOf(std::string_view text, std::size_t offset) {
  struct Level {
    bool array = false;
    std::size_t index = 0;
    std::string key, name;
    bool expectKey = true;  ///< objects: the next string is a key
  };
  std::vector<Level> levels;
  std::string lastKey;
  for (std::size_t i = 0; i < offset && i < text.size(); ++i) {
    const char c = text[i];
    if (c == '"') {
      std::string value;
      for (++i; i < text.size() && text[i] != '"'; ++i) {
        if (text[i] == '\\' && i + 1 < text.size()) ++i;
        value += text[i];
      }
      if (levels.empty() || levels.back().array) continue;
      Level& level = levels.back();
      if (level.expectKey) {
        level.key = value;
        level.expectKey = false;
      } else if (level.key == "name") {
        level.name = value;
      }
    } else if (c == '{' || c == '[') {
      levels.push_back(Level{c == '[', 0, {}, {}, true});
    } else if (c == '}' || c == ']') {
      if (!levels.empty()) levels.pop_back();
    } else if (c == ',' && !levels.empty()) {
      if (levels.back().array)
        ++levels.back().index;
      else
        levels.back().expectKey = true;
    }
  }
  std::string place;
  for (std::size_t k = 0; k < levels.size(); ++k) {
    const Level& level = levels[k];
    if (level.array) {
      place += "[" + std::to_string(level.index) + "]";
      if (k + 1 < levels.size() && !levels[k + 1].array && !levels[k + 1].name.empty())
        place += " '" + levels[k + 1].name + "'";
    } else if (!level.expectKey || k + 1 < levels.size()) {
      place += (place.empty() ? "" : ".") + level.key;
    }
  }
  return place;
}

/// Builds the document through the library's own DOM builder, keeping the position and the token
/// where the text stops being JSON instead of the library's exception.
class Builder {
 public:
  using Json = nlohmann::ordered_json;
  Builder(Json& root) : dom_(root, false) {}
  bool null() { return dom_.null(); }
  bool boolean(bool v) { return dom_.boolean(v); }
  bool number_integer(Json::number_integer_t v) { return dom_.number_integer(v); }
  bool number_unsigned(Json::number_unsigned_t v) { return dom_.number_unsigned(v); }
  bool number_float(Json::number_float_t v, const std::string& s) { return dom_.number_float(v, s); }
  bool string(std::string& v) { return dom_.string(v); }
  bool binary(Json::binary_t& v) { return dom_.binary(v); }
  bool start_object(std::size_t n) { return dom_.start_object(n); }
  bool key(std::string& v) { return dom_.key(v); }
  bool end_object() { return dom_.end_object(); }
  bool start_array(std::size_t n) { return dom_.start_array(n); }
  bool end_array() { return dom_.end_array(); }
  bool parse_error(std::size_t position, const std::string& lastToken, const nlohmann::detail::exception& e) {
    failed = true;
    this->position = position;
    this->lastToken = lastToken;
    this->id = e.id;
    return false;
  }

  bool failed = false;
  std::size_t position = 0;
  std::string lastToken;
  int id = 0;

 private:
  nlohmann::detail::json_sax_dom_parser<Json> dom_;
};

}  // namespace

int JsonDepthLimit() { return g_depthLimit.load(std::memory_order_relaxed); }
void SetJsonDepthLimit(int depth) { g_depthLimit.store(std::max(depth, 1), std::memory_order_relaxed); }

TextPosition PositionOf(std::string_view text, std::size_t offset) {
  TextPosition p;
  offset = std::min(offset, text.size());
  for (std::size_t i = 0; i < offset; ++i) {
    if (text[i] == '\n') {
      ++p.line;
      p.column = 1;
    } else {
      ++p.column;
    }
  }
  return p;
}

vex::Result<nlohmann::ordered_json> ParseJsonText(std::string_view text, const std::string& file, int maxDepth) {
  const auto fail = [&](std::size_t offset, const std::string& reason) {
    const TextPosition p = PositionOf(text, offset);
    return VEX_FAIL(vex::ErrorKind::IllegalArgument,
                    file + ":" + std::to_string(p.line) + ":" + std::to_string(p.column) + ": " + reason);
  };
  if (auto problem = Scan(text, std::max(maxDepth, 1))) return fail(problem->offset, problem->reason);
  nlohmann::ordered_json root;
  Builder builder(root);
  bool ok = false;
  try {
    ok = nlohmann::ordered_json::sax_parse(text, &builder, nlohmann::ordered_json::input_format_t::json, true);
  } catch (const std::bad_alloc&) {
    return VEX_FAIL(vex::ErrorKind::OutOfMemory, file + ": out of memory while reading JSON");
  } catch (const std::exception&) {
    // The builder reports every syntax error itself; anything else is a value the library refuses.
    return fail(text.size(), "not valid JSON");
  }
  if (ok && !builder.failed) return root;
  // The library's position counts the bytes read, the offending one included.
  const std::size_t offset = builder.position > 0 ? builder.position - 1 : 0;
  if (builder.id == kNumberOverflow) {
    // The library stops after the number: the place is where the number starts.
    const std::size_t start = std::min(text.rfind(builder.lastToken, offset), offset);
    const std::string place = PlaceOf(text, start);
    return fail(start, (place.empty() ? "" : place + ": ") + "the number " + builder.lastToken +
                            " is beyond the range of a double");
  }
  std::string reason = "not valid JSON: ";
  if (offset >= text.size())
    reason += "unexpected end of text";
  else
    reason += "unexpected character " + Quoted(text.substr(offset, 1));
  return fail(offset, reason);
}

std::string DumpJsonText(const nlohmann::ordered_json& value, int indent) {
  return value.dump(indent, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::string DumpJsonText(const nlohmann::json& value, int indent) {
  return value.dump(indent, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace host
