#include "host/input_checks.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "host/input_files.h"
#include "host/json_text.h"

namespace host {
namespace {

std::vector<std::string_view> Words(std::string_view line) {
  std::vector<std::string_view> out;
  std::size_t i = 0;
  while (i < line.size()) {
    while (i < line.size() && (line[i] == ' ' || line[i] == '\t')) ++i;
    const std::size_t start = i;
    while (i < line.size() && line[i] != ' ' && line[i] != '\t') ++i;
    if (i > start) out.push_back(line.substr(start, i - start));
  }
  return out;
}

/// A PLY scalar type by either of its names; `integral` leaves out the floating-point ones.
bool IsPlyType(std::string_view type, bool integral) {
  constexpr std::array<std::string_view, 12> kIntegral = {"char",   "uchar", "short", "ushort", "int",   "uint",
                                                          "int8",   "uint8", "int16", "uint16", "int32", "uint32"};
  constexpr std::array<std::string_view, 4> kFloating = {"float", "double", "float32", "float64"};
  return std::find(kIntegral.begin(), kIntegral.end(), type) != kIntegral.end() ||
         (!integral && std::find(kFloating.begin(), kFloating.end(), type) != kFloating.end());
}

/// Bytes of a PLY scalar type in a binary body; the largest value a list's count type holds.
std::size_t PlyTypeSize(std::string_view type) {
  if (type == "char" || type == "uchar" || type == "int8" || type == "uint8") return 1;
  if (type == "short" || type == "ushort" || type == "int16" || type == "uint16") return 2;
  if (type == "double" || type == "float64") return 8;
  return 4;
}
/// An element's or a property's name: a letter or '_' first, then letters, digits, '_', '-' or
/// '.'. The mesh library reads a name that opens with a digit as part of the count after it.
bool IsPlyName(std::string_view name) {
  const auto letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; };
  if (name.empty() || !letter(name.front())) return false;
  return std::all_of(name.begin(), name.end(),
                     [&](char c) { return letter(c) || (c >= '0' && c <= '9') || c == '-' || c == '.'; });
}
bool IsSignedPlyType(std::string_view type) { return type == "char" || type == "short" || type.starts_with("int"); }
std::uint64_t PlyCountMax(std::string_view type) {
  return (std::uint64_t(1) << (8 * PlyTypeSize(type) - (IsSignedPlyType(type) ? 1 : 0))) - 1;
}

struct PlyProperty {
  bool list = false;
  std::string_view countType, valueType;
};
struct PlyElement {
  std::string_view name;
  std::uint64_t count = 0;
  std::vector<PlyProperty> properties;
  std::size_t line = 0;  ///< of the header
};

/// A list's count that the body cannot hold. The mesh library sizes the list from the count
/// before it reads a value (a count of 3e9 in a file of 100 bytes took 23 GB and 49 s).
std::string ListTooLong(const PlyElement& element, std::uint64_t instance, std::string_view count, std::string_view room) {
  return "element " + Quoted(element.name) + " " + std::to_string(instance) + ": a list of " + std::string(count) +
         " values where " + std::string(room);
}

/// The body as the mesh library reads it: in ASCII one instance per line (no blank line or comment
/// among them), every list's count a whole number in its type's range and no more than the
/// values left on its line; in binary every list within the bytes left. Returns the problem with
/// the body's line number (ASCII) or byte offset (binary), empty when there is none.
std::string CheckPlyBody(std::string_view body, const std::vector<PlyElement>& elements, bool ascii, bool bigEndian,
                         std::size_t headerLines, const std::string& file) {
  if (ascii) {
    // Text only: the library ends a line at a NUL as well, and the rows would part from ours.
    for (std::size_t i = 0; i < body.size(); ++i) {
      const auto u = static_cast<unsigned char>(body[i]);
      const bool lineEnd = u == '\n' || (u == '\r' && i + 1 < body.size() && body[i + 1] == '\n');
      if (u < 0x20 && u != '\t' && !lineEnd) {
        char hex[8];
        std::snprintf(hex, sizeof hex, "0x%02X", u);
        const auto lines = static_cast<std::size_t>(std::count(body.begin(), body.begin() + static_cast<std::ptrdiff_t>(i), '\n'));
        return file + ":" + std::to_string(headerLines + 1 + lines) + ": the ASCII body holds the byte " + hex;
      }
    }
    std::size_t pos = 0, line = headerLines;
    const auto nextLine = [&](std::string_view& out) {
      if (pos >= body.size()) return false;
      std::size_t end = body.find('\n', pos);
      if (end == std::string_view::npos) end = body.size();
      out = body.substr(pos, end - pos);
      pos = end + 1;
      ++line;
      return true;
    };
    const auto nextWord = [](std::string_view& text) {
      const std::size_t start = std::min(text.find_first_not_of(" \t\r"), text.size());
      const std::size_t end = std::min(text.find_first_of(" \t\r", start), text.size());
      const std::string_view word = text.substr(start, end - start);
      text.remove_prefix(end);
      return word;
    };
    const auto wordsIn = [](std::string_view text) {
      std::size_t n = 0;
      for (std::size_t i = 0; i < text.size();) {
        while (i < text.size() && (text[i] == ' ' || text[i] == '\t' || text[i] == '\r')) ++i;
        if (i < text.size()) ++n;
        while (i < text.size() && text[i] != ' ' && text[i] != '\t' && text[i] != '\r') ++i;
      }
      return n;
    };
    // Every row complete on its own line: the library reads a short row on into the next line,
    // and a missing row as the last one again, and the two readings would disagree on counts.
    for (const auto& element : elements)
      for (std::uint64_t i = 0; i < element.count; ++i) {
        std::string_view rest;
        const auto where = [&] { return file + ":" + std::to_string(line) + ": "; };
        if (!nextLine(rest))
          return where() + "the body ends before row " + std::to_string(i) + " of element " + Quoted(element.name);
        // The library counts blank lines and comments as rows of their own, or skips them, by
        // where the line ends fall: among the rows they are refused.
        const std::size_t first = rest.find_first_not_of(" \t\r");
        if (first == std::string_view::npos || rest.substr(first).starts_with("comment"))
          return where() + "a blank line or a comment among the rows (element " + Quoted(element.name) + " " +
                 std::to_string(i) + ")";
        for (const auto& property : element.properties) {
          const std::string_view word = nextWord(rest);
          if (word.empty())
            return where() + "element " + Quoted(element.name) + " " + std::to_string(i) +
                   ": the row ends before its values do";
          if (!property.list) continue;
          std::uint64_t count = 0;
          const auto [ptr, ec] = std::from_chars(word.data(), word.data() + word.size(), count);
          if (ec != std::errc() || ptr != word.data() + word.size())
            return where() + "element " + Quoted(element.name) + " " + std::to_string(i) + ": the list's count " +
                   Quoted(word) + " is not a whole number";
          if (count > PlyCountMax(property.countType) || count > wordsIn(rest))
            return where() + ListTooLong(element, i, word, "the line holds " + std::to_string(wordsIn(rest)));
          for (std::uint64_t k = 0; k < count; ++k) nextWord(rest);
        }
      }
    return {};
  }
  std::size_t at = 0;
  for (const auto& element : elements) {
    // Rows without lists have one size: skipped whole (an element may claim 2^62 empty rows).
    if (std::none_of(element.properties.begin(), element.properties.end(), [](const PlyProperty& p) { return p.list; })) {
      std::uint64_t row = 0;
      for (const auto& property : element.properties) row += PlyTypeSize(property.valueType);
      if (row != 0 && element.count > (body.size() - std::min(at, body.size())) / row)
        return file + ": the body ends before the rows of element " + Quoted(element.name) + " do";
      at += static_cast<std::size_t>(element.count * row);
      continue;
    }
    for (std::uint64_t i = 0; i < element.count; ++i)
      for (const auto& property : element.properties) {
        if (!property.list) {
          at += PlyTypeSize(property.valueType);
          continue;
        }
        const std::size_t size = PlyTypeSize(property.countType);
        if (at + size > body.size())
          return file + ": the body ends in row " + std::to_string(i) + " of element " + Quoted(element.name);
        std::uint64_t count = 0;
        for (std::size_t k = 0; k < size; ++k) {
          const auto byte = static_cast<unsigned char>(body[at + (bigEndian ? k : size - 1 - k)]);
          count = (count << 8) | byte;
        }
        if (IsSignedPlyType(property.countType) && (count >> (8 * size - 1)) != 0) count = 0;  // negative: no values
        at += size;
        const std::size_t room = (body.size() - std::min(at, body.size())) / PlyTypeSize(property.valueType);
        if (count > room)
          return file + ": byte " + std::to_string(at - size) + " of the body: " +
                 ListTooLong(element, i, std::to_string(count), "the file holds " + std::to_string(room) + " more");
        at += count * PlyTypeSize(property.valueType);
      }
  }
  if (at > body.size()) return file + ": the body ends before the rows of element " + Quoted(elements.back().name) + " do";
  return {};
}

std::uint32_t LittleEndian32(std::string_view bytes, std::size_t at) {
  std::uint32_t v = 0;
  for (int i = 3; i >= 0; --i) v = (v << 8) | static_cast<unsigned char>(bytes[at + static_cast<std::size_t>(i)]);
  return v;
}

}  // namespace

vex::Result<void> CheckPlyHeader(std::string_view bytes, const std::string& file) {
  const auto fail = [&](std::size_t line, const std::string& reason) {
    return VEX_FAIL(vex::ErrorKind::IllegalArgument, file + ":" + std::to_string(line) + ": " + reason);
  };
  std::size_t pos = 0;
  std::size_t number = 0;
  bool ascii = false, bigEndian = false;
  bool haveFormat = false;
  std::vector<PlyElement> elements;
  // Smallest body the declared elements need, in bytes; saturates instead of wrapping.
  std::uint64_t needed = 0;
  std::uint64_t currentCount = 0;
  constexpr std::uint64_t kHuge = std::uint64_t(1) << 62;
  while (true) {
    if (pos >= bytes.size()) return fail(number, "the PLY header ends before \"end_header\"");
    std::size_t end = bytes.find('\n', pos);
    if (end == std::string_view::npos) return fail(number + 1, "the PLY header ends before \"end_header\"");
    std::string_view line = bytes.substr(pos, end - pos);
    pos = end + 1;
    ++number;
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    // The header is ASCII text. The library's header reader stops a word at a NUL and reads on
    // behind it, and misreads the body after a name it cannot match.
    for (const char c : line) {
      const auto u = static_cast<unsigned char>(c);
      if ((u < 0x20 && c != '\t') || u >= 0x7F) {
        char hex[8];
        std::snprintf(hex, sizeof hex, "0x%02X", u);
        return fail(number, std::string("the PLY header holds the byte ") + hex + " (it must be ASCII text)");
      }
    }
    const auto words = Words(line);
    if (number == 1) {
      if (line != "ply") return fail(1, "not a PLY file (the first line must be \"ply\")");
      continue;
    }
    if (words.empty()) continue;
    const std::string_view kind = words[0];
    if (kind == "end_header") break;
    if (kind == "comment" || kind == "obj_info") continue;
    if (kind == "format") {
      if (words.size() != 3 || (words[1] != "ascii" && words[1] != "binary_little_endian" &&
                                 words[1] != "binary_big_endian"))
        return fail(number, "malformed format line " + Quoted(line));
      ascii = words[1] == "ascii";
      bigEndian = words[1] == "binary_big_endian";
      haveFormat = true;
    } else if (kind == "element") {
      if (words.size() != 3) return fail(number, "malformed element line " + Quoted(line));
      std::uint64_t count = 0;
      const auto [ptr, ec] = std::from_chars(words[2].data(), words[2].data() + words[2].size(), count);
      if (ec != std::errc() || ptr != words[2].data() + words[2].size())
        return fail(number, "element count " + Quoted(words[2]) + " is not a number");
      currentCount = count > kHuge ? kHuge : count;
      if (!IsPlyName(words[1])) return fail(number, "the element name " + Quoted(words[1]) + " is not a word");
      elements.push_back({words[1], currentCount, {}, number});
    } else if (kind == "property") {
      // The mesh library misreads a body after a property type it does not know (a body of a
      // few hundred bytes then allocates gigabytes), so only the format's own types pass.
      if (words.size() < 3) return fail(number, "malformed property line " + Quoted(line));
      if (words[1] == "list" && words.size() != 5) return fail(number, "malformed list property " + Quoted(line));
      if (words[1] != "list" && words.size() != 3) return fail(number, "malformed property line " + Quoted(line));
      if (words[1] == "list" && !IsPlyType(words[2], true))
        return fail(number, "the list's count type " + Quoted(words[2]) + " is not an integer type");
      const std::string_view type = words[1] == "list" ? words[3] : words[1];
      if (!IsPlyType(type, false)) return fail(number, "unknown PLY property type " + Quoted(type));
      if (elements.empty()) return fail(number, "a property before the first element");
      if (!IsPlyName(words.back())) return fail(number, "the property name " + Quoted(words.back()) + " is not a word");
      elements.back().properties.push_back({words[1] == "list", words[1] == "list" ? words[2] : "", type});
      const std::uint64_t each = ascii ? 2 : 1;
      needed = needed + currentCount * each > kHuge ? kHuge : needed + currentCount * each;
    } else {
      return fail(number, "unknown PLY header line " + Quoted(line));
    }
  }
  if (!haveFormat) return fail(number, "the PLY header has no format line");
  // Rows of nothing take no room, so the body cannot bound them; the library walks each one.
  for (const auto& element : elements)
    if (element.count > 0 && element.properties.empty())
      return fail(element.line, "element " + Quoted(element.name) + " has " + std::to_string(element.count) +
                                    " rows but no properties");
  const std::uint64_t body = bytes.size() - pos;
  if (needed > body)
    return fail(number, "the header declares elements needing at least " + std::to_string(needed) +
                            " bytes but the file holds " + std::to_string(body) + " after the header");
  if (const std::string problem = CheckPlyBody(bytes.substr(pos), elements, ascii, bigEndian, number, file);
      !problem.empty())
    return VEX_FAIL(vex::ErrorKind::IllegalArgument, problem);
  return {};
}

vex::Result<void> CheckMtlText(std::string_view text, const std::string& file) {
  // The mesh library drops a UTF-8 byte order mark; it ends lines at a line feed, a carriage
  // return, a form feed or a NUL, and skips the blanks that open a line, except on the first.
  // Until a material exists it accepts only what it skips: blank lines and comments. Anything
  // else there (a texture statement in any spelling it matches, or text it would read across
  // into the next line) is refused, so the first material always comes first.
  constexpr std::string_view kLineEnds("\n\r\f\0", 4);
  if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
  std::size_t pos = 0;
  std::size_t number = 1;
  while (pos < text.size()) {
    std::size_t end = text.find_first_of(kLineEnds, pos);
    if (end == std::string_view::npos) end = text.size();
    std::string_view line = text.substr(pos, end - pos);
    const bool blankFirst = !line.empty() && (line.front() == ' ' || line.front() == '\t');
    if (pos == 0 && blankFirst) {
      // A first line that opens with a blank is skipped whole, a "newmtl" on it included.
    } else {
      line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
      if (line.starts_with("newmtl")) return {};
      if (!line.empty() && line.front() != '#')
        return VEX_FAIL(vex::ErrorKind::IllegalArgument,
                        file + ":" + std::to_string(number) + ": " +
                            Quoted(line.substr(0, line.find_first_of(" \t"))) + " before the first \"newmtl\"");
    }
    if (end < text.size() && text[end] == '\n') ++number;
    pos = end + 1;
  }
  return {};
}

namespace {

/// The JSON text of glTF or GLB bytes, the GLB container checked.
vex::Result<std::string_view> GltfJson(std::string_view bytes, const std::string& file, bool binary) {
  std::string_view json = bytes;
  if (binary) {
    if (bytes.size() < 20 || bytes.substr(0, 4) != "glTF")
      return VEX_FAIL(vex::ErrorKind::IllegalArgument, file + ": not a GLB file (no \"glTF\" header)");
    const std::uint32_t total = LittleEndian32(bytes, 8);
    const std::uint32_t chunk = LittleEndian32(bytes, 12);
    if (total > bytes.size())
      return VEX_FAIL(vex::ErrorKind::IllegalArgument, file + ": the GLB header gives " + std::to_string(total) +
                                                           " bytes but the file holds " + std::to_string(bytes.size()));
    if (LittleEndian32(bytes, 16) != 0x4E4F534Au || chunk > bytes.size() - 20)
      return VEX_FAIL(vex::ErrorKind::IllegalArgument, file + ": the GLB file's first chunk is not its JSON");
    json = bytes.substr(20, chunk);
  }
  return json;
}

}  // namespace

vex::Result<void> CheckGltfBytes(std::string_view bytes, const std::string& file, bool binary) {
  VEX_ASSIGN(const std::string_view json, GltfJson(bytes, file, binary));
  VEX_TRY(ParseJsonText(json, file));
  return {};
}

vex::Result<void> CheckGltfNodeTree(std::string_view bytes, const std::string& file, bool binary) {
  VEX_ASSIGN(const std::string_view json, GltfJson(bytes, file, binary));
  VEX_ASSIGN(const auto document, ParseJsonText(json, file));
  const auto nodes = document.is_object() ? document.find("nodes") : document.end();
  if (nodes == document.end() || !nodes->is_array()) return {};
  const auto name = [&](std::size_t i) {
    const auto& node = (*nodes)[i];
    if (node.is_object() && node.contains("name") && node["name"].is_string() && !node["name"].get_ref<const std::string&>().empty())
      return node["name"].get<std::string>();
    return "node_" + std::to_string(i);
  };
  const auto fail = [&](const std::string& what) { return VEX_FAIL(vex::ErrorKind::IllegalArgument, file + ": " + what); };
  const std::size_t count = nodes->size();
  std::vector<std::int64_t> parent(count, -1);
  for (std::size_t i = 0; i < count; ++i) {
    const auto& node = (*nodes)[i];
    if (!node.is_object() || !node.contains("children") || !node["children"].is_array()) continue;
    for (const auto& child : node["children"]) {
      const std::int64_t c = child.is_number_integer() ? child.get<std::int64_t>() : -1;
      if (c < 0 || static_cast<std::size_t>(c) >= count)
        return fail("node '" + name(i) + "': child " + child.dump() + " does not exist");
      if (parent[static_cast<std::size_t>(c)] >= 0 || static_cast<std::size_t>(c) == i)
        return fail("node '" + name(static_cast<std::size_t>(c)) + "' has more than one parent");
      parent[static_cast<std::size_t>(c)] = static_cast<std::int64_t>(i);
    }
  }
  if (const auto misplaced = FindMisplacedNode(parent))
    return fail(DescribeMisplacedNode(*misplaced, name(misplaced->node)));
  return {};
}

std::optional<MisplacedNode> FindMisplacedNode(std::span<const std::int64_t> parent) {
  const std::size_t count = parent.size();
  std::vector<int> level(count, 0);  // 0: not known yet
  std::vector<std::size_t> path;
  for (std::size_t i = 0; i < count; ++i) {
    path.clear();
    std::int64_t at = static_cast<std::int64_t>(i);
    while (at >= 0 && static_cast<std::size_t>(at) < count && level[static_cast<std::size_t>(at)] == 0) {
      if (path.size() == count) return MisplacedNode{i, true};
      path.push_back(static_cast<std::size_t>(at));
      at = parent[static_cast<std::size_t>(at)];
    }
    int base = at >= 0 && static_cast<std::size_t>(at) < count ? level[static_cast<std::size_t>(at)] : 0;
    for (auto node = path.rbegin(); node != path.rend(); ++node) {
      level[*node] = ++base;
      if (base > kMaxNodeDepth) return MisplacedNode{*node, false};
    }
  }
  return std::nullopt;
}

std::string DescribeMisplacedNode(const MisplacedNode& misplaced, const std::string& name) {
  if (misplaced.cycle) return "node '" + name + "' lies on a cycle of parents";
  return "node '" + name + "': the hierarchy is deeper than " + std::to_string(kMaxNodeDepth) + " levels";
}

vex::Result<void> CheckMarkupDepth(std::string_view text, const std::string& file, int limit) {
  int depth = 0;
  std::size_t line = 1;
  std::size_t counted = 0;  // the text up to here has been counted for line feeds
  const auto lineAt = [&](std::size_t pos) {
    line += static_cast<std::size_t>(std::count(text.begin() + static_cast<std::ptrdiff_t>(counted),
                                                text.begin() + static_cast<std::ptrdiff_t>(pos), '\n'));
    counted = pos;
    return line;
  };
  std::size_t pos = 0;
  while ((pos = text.find('<', pos)) != std::string_view::npos) {
    const std::string_view rest = text.substr(pos);
    const auto skipTo = [&](std::string_view end) {
      const std::size_t found = text.find(end, pos);
      pos = found == std::string_view::npos ? text.size() : found + end.size();
    };
    if (rest.starts_with("<!--")) { skipTo("-->"); continue; }
    if (rest.starts_with("<![CDATA[")) { skipTo("]]>"); continue; }
    if (rest.starts_with("<?")) { skipTo("?>"); continue; }
    if (rest.starts_with("<!")) { skipTo(">"); continue; }
    const bool closing = rest.starts_with("</");
    // The tag's end, outside quoted attribute values.
    char quote = 0;
    std::size_t end = pos + 1;
    for (; end < text.size(); ++end) {
      const char c = text[end];
      if (quote != 0) {
        if (c == quote) quote = 0;
      } else if (c == '"' || c == '\'') {
        quote = c;
      } else if (c == '>') {
        break;
      }
    }
    if (end >= text.size()) break;  // an unclosed tag is the reader's to report
    if (closing) {
      depth = std::max(depth - 1, 0);
    } else if (text[end - 1] != '/' && ++depth > limit) {
      return VEX_FAIL(vex::ErrorKind::IllegalArgument, file + ":" + std::to_string(lineAt(pos)) +
                                                           ": elements nested deeper than " + std::to_string(limit) +
                                                           " levels");
    }
    pos = end + 1;
  }
  return {};
}

bool ReadReferencedFile(std::vector<unsigned char>* out, std::string* error, const std::string& path, void*) {
  auto bytes = ReadInputFile(path);
  if (!bytes) {
    if (error) *error += bytes.error().message + "\n";
    return false;
  }
  out->assign(bytes->begin(), bytes->end());
  return true;
}

}  // namespace host
