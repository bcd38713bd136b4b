#include "host/input_checks.h"

#include <algorithm>
#include <tuple>
#include <numeric>
#include <cmath>
#include <climits>
#include <bit>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "host/input_files.h"
#include "host/json_text.h"
#include "vex/polygon.h"

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
  std::string_view name;
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

/// A binary scalar of `type` at `at` as a double.
double PlyBinaryValue(std::string_view body, std::size_t at, std::string_view type, bool bigEndian) {
  const std::size_t size = PlyTypeSize(type);
  std::uint64_t bits = 0;
  for (std::size_t k = 0; k < size; ++k) bits = (bits << 8) | static_cast<unsigned char>(body[at + (bigEndian ? k : size - 1 - k)]);
  if (type == "float" || type == "float32") return static_cast<double>(std::bit_cast<float>(static_cast<std::uint32_t>(bits)));
  if (type == "double" || type == "float64") return std::bit_cast<double>(bits);
  if (IsSignedPlyType(type) && size < 8 && (bits >> (8 * size - 1)) != 0)
    return static_cast<double>(static_cast<std::int64_t>(bits) - (std::int64_t(1) << (8 * size)));
  return static_cast<double>(bits);
}

/// Where a mesh is read from the body: the "vertex" element's x, y and z, the "face" element's
/// list of vertex indices ("vertex_indices" or "vertex_index").
struct PlyMeshTarget {
  vex::PolygonMesh* mesh = nullptr;
  std::size_t vertex = SIZE_MAX, face = SIZE_MAX;  ///< element indices
  std::array<std::size_t, 3> xyz{SIZE_MAX, SIZE_MAX, SIZE_MAX};
  std::size_t indices = SIZE_MAX;  ///< property index in the face element

  PlyMeshTarget(vex::PolygonMesh* out, const std::vector<PlyElement>& elements) : mesh(out) {
    for (std::size_t e = 0; e < elements.size(); ++e) {
      const auto& props = elements[e].properties;
      if (elements[e].name == "vertex" && vertex == SIZE_MAX) {
        vertex = e;
        for (std::size_t p = 0; p < props.size(); ++p)
          for (std::size_t axis = 0; axis < 3; ++axis)
            if (!props[p].list && props[p].name == std::array<std::string_view, 3>{"x", "y", "z"}[axis]) xyz[axis] = p;
      }
      if (elements[e].name == "face" && face == SIZE_MAX) {
        face = e;
        for (std::size_t p = 0; p < props.size(); ++p)
          if (props[p].list && (props[p].name == "vertex_indices" || props[p].name == "vertex_index")) indices = p;
      }
    }
  }
  bool Reads(std::size_t element) const { return mesh != nullptr && (element == vertex || element == face); }
  /// A value of row `row` of `element`'s property `property` (list items one by one).
  void Scalar(std::size_t element, std::size_t property, double value) {
    if (element != vertex) return;
    auto& point = mesh->points.back();
    if (property == xyz[0]) point.x = value;
    if (property == xyz[1]) point.y = value;
    if (property == xyz[2]) point.z = value;
  }
  void Row(std::size_t element) {
    if (element == vertex) mesh->points.push_back({0, 0, 0});
  }
  void List(std::size_t element, std::size_t property, std::uint64_t count) {
    if (element == face && property == indices) mesh->polygonSizes.push_back(static_cast<std::int32_t>(count));
  }
  void Item(std::size_t element, std::size_t property, double value) {
    if (element == face && property == indices) mesh->polygonPoints.push_back(static_cast<std::int32_t>(std::clamp(value, -1.0, 2147483647.0)));
  }
};

/// The body as the mesh library reads it: in ASCII one instance per line (no blank line or comment
/// among them), every list's count a whole number in its type's range and no more than the
/// values left on its line; in binary every list within the bytes left. Returns the problem with
/// the body's line number (ASCII) or byte offset (binary), empty when there is none. With a
/// target's mesh, its vertices and faces are read as well.
std::string CheckPlyBody(std::string_view body, const std::vector<PlyElement>& elements, bool ascii, bool bigEndian,
                         std::size_t headerLines, const std::string& file, PlyMeshTarget& target) {
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
    const auto number = [](std::string_view word, double& value) {
      const auto [ptr, ec] = std::from_chars(word.data(), word.data() + word.size(), value);
      return ec == std::errc() && ptr == word.data() + word.size() && std::isfinite(value);
    };
    // Every row complete on its own line: the library reads a short row on into the next line,
    // and a missing row as the last one again, and the two readings would disagree on counts.
    for (std::size_t e = 0; e < elements.size(); ++e) {
      const auto& element = elements[e];
      const bool reads = target.Reads(e);
      for (std::uint64_t i = 0; i < element.count; ++i) {
        std::string_view rest;
        const auto where = [&] { return file + ":" + std::to_string(line) + ": "; };
        const auto row = [&] { return "element " + Quoted(element.name) + " " + std::to_string(i); };
        if (!nextLine(rest))
          return where() + "the body ends before row " + std::to_string(i) + " of element " + Quoted(element.name);
        // The library counts blank lines and comments as rows of their own, or skips them, by
        // where the line ends fall: among the rows they are refused.
        const std::size_t first = rest.find_first_not_of(" \t\r");
        if (first == std::string_view::npos || rest.substr(first).starts_with("comment"))
          return where() + "a blank line or a comment among the rows (" + row() + ")";
        if (reads) target.Row(e);
        for (std::size_t p = 0; p < element.properties.size(); ++p) {
          const auto& property = element.properties[p];
          const std::string_view word = nextWord(rest);
          if (word.empty()) return where() + row() + ": the row ends before its values do";
          double value = 0;
          if (!property.list) {
            if (reads && !number(word, value)) return where() + row() + ": " + Quoted(word) + " is not a number";
            if (reads) target.Scalar(e, p, value);
            continue;
          }
          std::uint64_t count = 0;
          const auto [ptr, ec] = std::from_chars(word.data(), word.data() + word.size(), count);
          if (ec != std::errc() || ptr != word.data() + word.size())
            return where() + row() + ": the list's count " + Quoted(word) + " is not a whole number";
          if (count > PlyCountMax(property.countType) || count > wordsIn(rest))
            return where() + ListTooLong(element, i, word, "the line holds " + std::to_string(wordsIn(rest)));
          if (reads) target.List(e, p, count);
          for (std::uint64_t k = 0; k < count; ++k) {
            const std::string_view item = nextWord(rest);
            if (reads && !number(item, value)) return where() + row() + ": " + Quoted(item) + " is not a number";
            if (reads) target.Item(e, p, value);
          }
        }
      }
    }
    return {};
  }
  std::size_t at = 0;
  for (std::size_t e = 0; e < elements.size(); ++e) {
    const auto& element = elements[e];
    const bool reads = target.Reads(e);
    // Rows without lists have one size: skipped whole (an element may claim 2^62 empty rows).
    if (std::none_of(element.properties.begin(), element.properties.end(), [](const PlyProperty& p) { return p.list; })) {
      std::uint64_t row = 0;
      for (const auto& property : element.properties) row += PlyTypeSize(property.valueType);
      if (row != 0 && element.count > (body.size() - std::min(at, body.size())) / row)
        return file + ": the body ends before the rows of element " + Quoted(element.name) + " do";
      if (!reads) {
        at += static_cast<std::size_t>(element.count * row);
        continue;
      }
    }
    for (std::uint64_t i = 0; i < element.count; ++i) {
      if (reads) target.Row(e);
      for (std::size_t p = 0; p < element.properties.size(); ++p) {
        const auto& property = element.properties[p];
        if (!property.list) {
          if (reads && at + PlyTypeSize(property.valueType) <= body.size())
            target.Scalar(e, p, PlyBinaryValue(body, at, property.valueType, bigEndian));
          at += PlyTypeSize(property.valueType);
          continue;
        }
        const std::size_t size = PlyTypeSize(property.countType);
        if (at + size > body.size())
          return file + ": the body ends in row " + std::to_string(i) + " of element " + Quoted(element.name);
        const double counted = PlyBinaryValue(body, at, property.countType, bigEndian);
        const std::uint64_t count = counted > 0 ? static_cast<std::uint64_t>(counted) : 0;  // negative: no values
        at += size;
        const std::size_t itemSize = PlyTypeSize(property.valueType);
        const std::size_t room = (body.size() - std::min(at, body.size())) / itemSize;
        if (count > room)
          return file + ": byte " + std::to_string(at - size) + " of the body: " +
                 ListTooLong(element, i, std::to_string(count), "the file holds " + std::to_string(room) + " more");
        if (reads) {
          target.List(e, p, count);
          for (std::uint64_t k = 0; k < count; ++k) target.Item(e, p, PlyBinaryValue(body, at + k * itemSize, property.valueType, bigEndian));
        }
        at += count * itemSize;
      }
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

namespace {

/// The PLY file checked; with `mesh`, its vertices and faces read too.
vex::Result<void> WalkPly(std::string_view bytes, const std::string& file, vex::PolygonMesh* mesh) {
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
      elements.back().properties.push_back({words[1] == "list", words[1] == "list" ? words[2] : "", type, words.back()});
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
  PlyMeshTarget target(mesh, elements);
  if (const std::string problem = CheckPlyBody(bytes.substr(pos), elements, ascii, bigEndian, number, file, target);
      !problem.empty())
    return VEX_FAIL(vex::ErrorKind::IllegalArgument, problem);
  return {};
}

}  // namespace

vex::Result<void> CheckPlyFile(std::string_view bytes, const std::string& file) { return WalkPly(bytes, file, nullptr); }

vex::Result<vex::PolygonMesh> ReadPlyMesh(std::string_view bytes, const std::string& file) {
  vex::PolygonMesh read;
  VEX_TRY(WalkPly(bytes, file, &read));
  // ASCII values are checked as they are read; binary ones can hold a NaN or an infinity.
  for (std::size_t v = 0; v < read.points.size(); ++v) {
    const auto& p = read.points[v];
    if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z))
      return VEX_FAIL(vex::ErrorKind::IllegalArgument, file + ": vertex " + std::to_string(v) + " is not finite");
  }
  std::size_t at = 0;
  for (std::size_t f = 0; f < read.polygonSizes.size(); ++f) {
    for (std::int32_t k = 0; k < read.polygonSizes[f]; ++k) {
      const std::int32_t index = read.polygonPoints[at + static_cast<std::size_t>(k)];
      if (index < 0 || static_cast<std::size_t>(index) >= read.points.size())
        return VEX_FAIL(vex::ErrorKind::IllegalArgument, file + ": face " + std::to_string(f) + " refers to vertex " +
                                                             std::to_string(index) + " of " +
                                                             std::to_string(read.points.size()));
    }
    at += static_cast<std::size_t>(read.polygonSizes[f]);
  }
  // Corners at the same place become one point, and lines and points, which have no face, go.
  // The vertices sorted by place (the first of equals first), then numbered in file order.
  vex::PolygonMesh out;
  const auto key = [&](std::int32_t v) {
    const auto& p = read.points[static_cast<std::size_t>(v)];
    return std::tuple(p.x, p.y, p.z, v);
  };
  std::vector<std::int32_t> order(read.points.size());
  std::iota(order.begin(), order.end(), 0);
  std::sort(order.begin(), order.end(), [&](std::int32_t a, std::int32_t b) { return key(a) < key(b); });
  std::vector<std::int32_t> first(read.points.size());  // the first vertex at each vertex's place
  for (std::size_t k = 0; k < order.size(); ++k) {
    const auto& p = read.points[static_cast<std::size_t>(order[k])];
    const bool same = k > 0 && p == read.points[static_cast<std::size_t>(order[k - 1])];
    first[static_cast<std::size_t>(order[k])] = same ? first[static_cast<std::size_t>(order[k - 1])] : order[k];
  }
  std::vector<std::int32_t> point(read.points.size());
  for (std::size_t v = 0; v < read.points.size(); ++v) {
    if (first[v] == static_cast<std::int32_t>(v)) {
      point[v] = static_cast<std::int32_t>(out.points.size());
      out.points.push_back(read.points[v]);
    } else {
      point[v] = point[static_cast<std::size_t>(first[v])];
    }
  }
  at = 0;
  for (const std::int32_t size : read.polygonSizes) {
    if (size >= 3) {
      out.polygonSizes.push_back(size);
      for (std::int32_t k = 0; k < size; ++k)
        out.polygonPoints.push_back(point[static_cast<std::size_t>(read.polygonPoints[at + static_cast<std::size_t>(k)])]);
    }
    at += static_cast<std::size_t>(size);
  }
  return out;
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
