#include "host/registry_file.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstring>
#include <fstream>
#include <sstream>

#include "host/input_files.h"

namespace host {
namespace {

constexpr std::string_view kCurrentUser = "HKEY_CURRENT_USER";

std::string Lower(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return out;
}

bool EqualNoCase(std::string_view a, std::string_view b) { return Lower(a) == Lower(b); }

/// "HKCU\\a\\b\\" -> "HKEY_CURRENT_USER\\a\\b": the hive spelt out, no empty components.
std::string NormalKeyPath(std::string_view path) {
  std::string out;
  std::size_t start = 0;
  bool first = true;
  while (start <= path.size()) {
    auto end = path.find('\\', start);
    if (end == std::string_view::npos) end = path.size();
    std::string_view part = path.substr(start, end - start);
    if (!part.empty()) {
      if (first && EqualNoCase(part, "HKCU")) part = kCurrentUser;
      if (!first) out += '\\';
      out.append(part);
      first = false;
    }
    start = end + 1;
  }
  return out;
}

// UTF-16LE (regedit's default for version 5 files) to UTF-8.
std::string FromUtf16(std::string_view bytes) {
  std::string out;
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    std::uint32_t c = static_cast<unsigned char>(bytes[i]) | (static_cast<unsigned char>(bytes[i + 1]) << 8);
    if (c >= 0xD800 && c < 0xDC00 && i + 3 < bytes.size()) {
      const std::uint32_t low = static_cast<unsigned char>(bytes[i + 2]) | (static_cast<unsigned char>(bytes[i + 3]) << 8);
      c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
      i += 2;
    }
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (c < 0x800) {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += static_cast<char>(0xE0 | (c >> 12));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (c >> 18));
      out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

struct LineError {
  std::string message;
};

/// A quoted string starting at text[pos] == '"'; pos ends after the closing quote.
bool ReadQuoted(std::string_view text, std::size_t& pos, std::string& out) {
  ++pos;
  while (pos < text.size()) {
    const char c = text[pos++];
    if (c == '"') return true;
    if (c == '\\' && pos < text.size()) {
      const char e = text[pos++];
      out += e == 'n' ? '\n' : e == 'r' ? '\r' : e == 't' ? '\t' : e == '0' ? '\0' : e;
    } else {
      out += c;
    }
  }
  return false;
}

bool ReadHexBytes(std::string_view text, std::string& out) {
  std::size_t i = 0;
  while (i < text.size()) {
    while (i < text.size() && (text[i] == ',' || std::isspace(static_cast<unsigned char>(text[i])))) ++i;
    if (i == text.size()) break;
    if (i + 1 >= text.size() || !std::isxdigit(static_cast<unsigned char>(text[i])) ||
        !std::isxdigit(static_cast<unsigned char>(text[i + 1])))
      return false;
    out += static_cast<char>(std::stoi(std::string(text.substr(i, 2)), nullptr, 16));
    i += 2;
    if (i < text.size() && text[i] != ',' && !std::isspace(static_cast<unsigned char>(text[i]))) return false;
  }
  return true;
}

}  // namespace

RegistryFile::Key& RegistryFile::MakeKey(std::string_view keyPath) {
  const std::string path = NormalKeyPath(keyPath);
  // Parents exist whenever a child does.
  for (std::size_t slash = path.find('\\'); slash != std::string::npos; slash = path.find('\\', slash + 1)) {
    const std::string parent = path.substr(0, slash);
    keys_.try_emplace(Lower(parent), Key{parent, {}});
  }
  return keys_.try_emplace(Lower(path), Key{path, {}}).first->second;
}

void RegistryFile::SetValue(std::string_view keyPath, std::string_view name, Type type, std::string data) {
  Key& key = MakeKey(keyPath);
  const auto [at, added] = key.byName.try_emplace(Lower(name), key.values.size());
  if (!added) {
    Value& v = key.values[at->second];
    v.type = type;
    v.data = std::move(data);
    return;
  }
  key.values.push_back({std::string(name), type, std::move(data)});
}

void RegistryFile::Key::Reindex() {
  byName.clear();
  for (std::size_t i = 0; i < values.size(); ++i) byName.try_emplace(Lower(values[i].name), i);
}

void RegistryFile::SetString(std::string_view keyPath, std::string_view name, std::string_view text) {
  std::string data(text);
  data += '\0';  // string values are stored with their terminator
  SetValue(keyPath, name, Type::String, std::move(data));
}

bool RegistryFile::DeleteKey(std::string_view keyPath) {
  const std::string key = Lower(NormalKeyPath(keyPath));
  // The key and its sub-keys ("key\\...", which sort between "key\\" and "key]") only: a file
  // deleting many keys stays linear.
  std::size_t removed = keys_.erase(key);
  const auto first = keys_.lower_bound(key + '\\');
  const auto last = keys_.lower_bound(key + ']');
  removed += static_cast<std::size_t>(std::distance(first, last));
  keys_.erase(first, last);
  return removed > 0;
}

vex::Result<void> RegistryFile::LoadFile(const std::string& path) {
  const auto read = ReadInputFile(path);
  if (!read) return std::unexpected(read.error());
  const std::string_view bytes = *read;
  if (bytes.starts_with("\xFF\xFE")) return Parse(FromUtf16(bytes.substr(2)), path);
  if (bytes.starts_with("\xEF\xBB\xBF")) return Parse(bytes.substr(3), path);
  return Parse(bytes, path);
}

vex::Result<void> RegistryFile::Parse(std::string_view text, const std::string& source) {
  // Joined logical lines (a trailing "\" continues hex data on the next line) with their first line number.
  std::vector<std::pair<std::string, int>> lines;
  {
    std::string current;
    int currentLine = 0;
    int number = 0;
    std::size_t start = 0;
    while (start < text.size()) {
      auto end = text.find('\n', start);
      if (end == std::string_view::npos) end = text.size();
      std::string line(text.substr(start, end - start));
      start = end + 1;
      ++number;
      if (!line.empty() && line.back() == '\r') line.pop_back();
      if (current.empty()) currentLine = number;
      // Only hex data continues over lines; strings end with their closing quote.
      const bool continued =
          !line.empty() && line.back() == '\\' && (!current.empty() || line.find("=hex") != std::string::npos);
      if (continued) {
        line.pop_back();
        current += line;
        continue;
      }
      current += line;
      lines.emplace_back(std::move(current), currentLine);
      current.clear();
    }
    if (!current.empty()) lines.emplace_back(std::move(current), currentLine);
  }
  const auto fail = [&](int line, const std::string& problem) {
    return VEX_FAIL(vex::ErrorKind::WrongDataType, source + ":" + std::to_string(line) + ": " + problem);
  };

  bool header = false;
  std::string section;
  bool sectionDeleted = false;
  for (auto& [raw, number] : lines) {
    std::string_view line(raw);
    while (!line.empty() && std::isspace(static_cast<unsigned char>(line.front()))) line.remove_prefix(1);
    while (!line.empty() && std::isspace(static_cast<unsigned char>(line.back()))) line.remove_suffix(1);
    if (line.empty() || line.front() == ';') continue;
    if (!header) {
      if (line != "Windows Registry Editor Version 5.00" && line != "REGEDIT4")
        return fail(number, "not a registry file (expected \"Windows Registry Editor Version 5.00\" or \"REGEDIT4\")");
      header = true;
      continue;
    }
    if (line.front() == '[') {
      if (line.back() != ']') return fail(number, "a key line must end with \"]\"");
      std::string_view path = line.substr(1, line.size() - 2);
      sectionDeleted = !path.empty() && path.front() == '-';
      if (sectionDeleted) path.remove_prefix(1);
      if (NormalKeyPath(path).empty()) return fail(number, "empty key path");
      section = NormalKeyPath(path);
      if (sectionDeleted)
        DeleteKey(section);
      else
        MakeKey(section);
      continue;
    }
    if (section.empty()) return fail(number, "a value before the first key");
    if (sectionDeleted) return fail(number, "a value under a deleted key");
    std::string name;
    std::size_t pos = 0;
    if (line.front() == '@') {
      pos = 1;
    } else if (line.front() == '"') {
      if (!ReadQuoted(line, pos, name)) return fail(number, "unterminated value name");
    } else {
      return fail(number, "expected a value (\"name\"=... or @=...)");
    }
    while (pos < line.size() && std::isspace(static_cast<unsigned char>(line[pos]))) ++pos;
    if (pos >= line.size() || line[pos] != '=') return fail(number, "expected \"=\" after the value name");
    ++pos;
    while (pos < line.size() && std::isspace(static_cast<unsigned char>(line[pos]))) ++pos;
    std::string_view rest = line.substr(pos);
    if (rest == "-") {
      Key& key = MakeKey(section);
      // Marked here and swept once at the end: deleting many values stays linear.
      if (const auto it = key.byName.find(Lower(name)); it != key.byName.end()) {
        key.values[it->second].removed = true;
        key.byName.erase(it);
        key.swept = false;
      }
    } else if (!rest.empty() && rest.front() == '"') {
      std::string data;
      std::size_t at = 0;
      if (!ReadQuoted(rest, at, data)) return fail(number, "unterminated string value");
      if (at != rest.size()) return fail(number, "unexpected text after the string value");
      SetString(section, name, data);
    } else if (rest.starts_with("dword:")) {
      const std::string_view digits = rest.substr(6);
      if (digits.size() != 8 || !std::ranges::all_of(digits, [](char c) { return std::isxdigit(static_cast<unsigned char>(c)); }))
        return fail(number, "a dword value needs eight hexadecimal digits");
      std::uint32_t v = 0;
      std::from_chars(digits.data(), digits.data() + digits.size(), v, 16);  // eight hex digits fit
      std::string data(4, '\0');
      for (int i = 0; i < 4; ++i) data[static_cast<std::size_t>(i)] = static_cast<char>((v >> (8 * i)) & 0xFF);
      SetValue(section, name, Type::Dword, std::move(data));
    } else if (rest.starts_with("hex")) {
      Type type = Type::Binary;
      std::size_t colon = rest.find(':');
      if (colon == std::string_view::npos) return fail(number, "hex value without \":\"");
      if (rest[3] == '(') {
        const auto close = rest.find(')');
        if (close == std::string_view::npos || close > colon) return fail(number, "malformed hex(type) value");
        const std::string kind(rest.substr(4, close - 4));
        if (kind.empty() || !std::ranges::all_of(kind, [](char c) { return std::isxdigit(static_cast<unsigned char>(c)); }))
          return fail(number, "malformed hex(type) value");
        std::uint32_t code = 0;
        const auto [end, ec] = std::from_chars(kind.data(), kind.data() + kind.size(), code, 16);
        if (ec != std::errc() || end != kind.data() + kind.size())
          return fail(number, "value type hex(" + (kind.size() > 16 ? kind.substr(0, 16) + "..." : kind) +
                                  ") is larger than 32 bits");
        type = static_cast<Type>(code);
      } else if (colon != 3) {
        return fail(number, "malformed hex value");
      }
      std::string data;
      if (!ReadHexBytes(rest.substr(colon + 1), data)) return fail(number, "malformed hexadecimal bytes");
      SetValue(section, name, type, std::move(data));
    } else {
      return fail(number, "unsupported value data (expected \"text\", dword:, hex: or -)");
    }
  }
  if (!header) return fail(1, "empty file, not a registry file");
  for (auto& [unused, key] : keys_) {
    (void)unused;
    if (key.swept) continue;
    std::erase_if(key.values, [](const Value& v) { return v.removed; });
    key.Reindex();
    key.swept = true;
  }
  return {};
}

vex::Result<vex::RegistryKey> RegistryFile::OpenCurrentUserKey(std::string_view path) {
  const std::string full = NormalKeyPath(std::string(kCurrentUser) + "\\" + std::string(path));
  const bool exists = keys_.contains(Lower(full));
  attempts_.push_back({std::string(path), exists});
  if (!exists) return VEX_FAIL(vex::ErrorKind::NotFound, "registry key not found: " + full);
  const vex::RegistryKey handle = next_++;
  open_.emplace(handle, Lower(full));
  return handle;
}

vex::Result<vex::RegistryValue> RegistryFile::EnumValue(vex::RegistryKey handle, std::uint32_t index) {
  const auto open = open_.find(handle);
  if (open == open_.end()) return VEX_FAIL(vex::ErrorKind::IllegalArgument, "invalid registry key handle");
  const auto key = keys_.find(open->second);
  if (key == keys_.end()) return VEX_FAIL(vex::ErrorKind::IllegalState, "registry key was deleted");
  if (index >= key->second.values.size()) return VEX_FAIL(vex::ErrorKind::NotFound, "no more registry values");
  const Value& v = key->second.values[index];
  return vex::RegistryValue{v.name, v.data};
}

vex::Result<std::size_t> RegistryFile::QueryValue(vex::RegistryKey handle, std::string_view name,
                                                  std::span<char> buffer) {
  const auto open = open_.find(handle);
  if (open == open_.end()) return VEX_FAIL(vex::ErrorKind::IllegalArgument, "invalid registry key handle");
  const auto key = keys_.find(open->second);
  if (key == keys_.end()) return VEX_FAIL(vex::ErrorKind::IllegalState, "registry key was deleted");
  const auto at = key->second.byName.find(Lower(name));
  if (at == key->second.byName.end()) return VEX_FAIL(vex::ErrorKind::NotFound, "registry value not found");
  const Value& v = key->second.values[at->second];
  if (v.data.size() > buffer.size())
    return VEX_FAIL(vex::ErrorKind::IllegalArgument,
                    "more data: the value holds " + std::to_string(v.data.size()) + " bytes");
  if (!v.data.empty()) std::memcpy(buffer.data(), v.data.data(), v.data.size());
  return v.data.size();
}

void RegistryFile::CloseKey(vex::RegistryKey key) { open_.erase(key); }

}  // namespace host
