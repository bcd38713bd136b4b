#include "host/input_checks.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
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
  bool ascii = false;
  bool haveFormat = false;
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
      haveFormat = true;
    } else if (kind == "element") {
      if (words.size() != 3) return fail(number, "malformed element line " + Quoted(line));
      std::uint64_t count = 0;
      const auto [ptr, ec] = std::from_chars(words[2].data(), words[2].data() + words[2].size(), count);
      if (ec != std::errc() || ptr != words[2].data() + words[2].size())
        return fail(number, "element count " + Quoted(words[2]) + " is not a number");
      currentCount = count > kHuge ? kHuge : count;
    } else if (kind == "property") {
      if (words.size() < 3) return fail(number, "malformed property line " + Quoted(line));
      if (words[1] == "list" && words.size() != 5) return fail(number, "malformed list property " + Quoted(line));
      const std::uint64_t each = ascii ? 2 : 1;
      needed = needed + currentCount * each > kHuge ? kHuge : needed + currentCount * each;
    } else {
      return fail(number, "unknown PLY header line " + Quoted(line));
    }
  }
  if (!haveFormat) return fail(number, "the PLY header has no format line");
  const std::uint64_t body = bytes.size() - pos;
  if (needed > body)
    return fail(number, "the header declares elements needing at least " + std::to_string(needed) +
                            " bytes but the file holds " + std::to_string(body) + " after the header");
  return {};
}

vex::Result<void> CheckMtlText(std::string_view text, const std::string& file) {
  // Lines end where the mesh library's reader ends them: at a line feed, a carriage return, a
  // form feed or a NUL. Statements are recognised by their first letters, the way it does.
  constexpr std::string_view kLineEnds("\n\r\f\0", 4);
  constexpr std::array<std::string_view, 6> kTextureStatements = {"map_", "bump", "disp", "norm", "decal", "refl"};
  std::size_t pos = 0;
  std::size_t number = 1;
  while (pos < text.size()) {
    std::size_t end = text.find_first_of(kLineEnds, pos);
    if (end == std::string_view::npos) end = text.size();
    const std::string_view line = text.substr(pos, end - pos);
    if (line.starts_with("newmtl")) return {};
    const std::size_t first = line.find_first_not_of(" \t");
    const std::string_view statement = line.substr(std::min(first, line.size()));
    for (const std::string_view texture : kTextureStatements)
      if (statement.starts_with(texture))
        return VEX_FAIL(vex::ErrorKind::IllegalArgument,
                        file + ":" + std::to_string(number) + ": " +
                            Quoted(statement.substr(0, statement.find_first_of(" \t"))) + " before the first \"newmtl\"");
    if (end < text.size() && text[end] == '\n') ++number;
    pos = end + 1;
  }
  return {};
}

vex::Result<void> CheckGltfBytes(std::string_view bytes, const std::string& file, bool binary) {
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
  VEX_TRY(ParseJsonText(json, file));
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
