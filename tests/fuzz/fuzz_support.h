// What the harnesses share: a scratch folder for inputs that readers take by path, splitting one
// input into several texts, and the host services the readers are bound to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include <unistd.h>

#include "host/port_bundles.h"
#include "host/units.h"

namespace fuzz {

/// A folder of this process, removed at exit.
inline const std::filesystem::path& Scratch() {
  static const std::filesystem::path dir = [] {
    std::string pattern = (std::filesystem::temp_directory_path() / "vexfuzz-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) std::abort();
    std::atexit([] {
      std::error_code ec;
      std::filesystem::remove_all(Scratch(), ec);
    });
    return std::filesystem::path(pattern);
  }();
  return dir;
}

/// Writes `bytes` to Scratch()/name and returns the path.
inline std::string WriteScratch(const std::string& name, std::string_view bytes) {
  const auto path = Scratch() / name;
  std::ofstream(path, std::ios::binary | std::ios::trunc).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return path.string();
}

/// The input as text, cut into `parts` pieces at NUL bytes (missing pieces are empty).
inline std::vector<std::string_view> Split(const std::uint8_t* data, std::size_t size, std::size_t parts) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  std::vector<std::string_view> out;
  while (out.size() + 1 < parts) {
    const auto nul = text.find('\0');
    if (nul == std::string_view::npos) break;
    out.push_back(text.substr(0, nul));
    text.remove_prefix(nul + 1);
  }
  out.push_back(text);
  out.resize(parts);
  return out;
}

inline const host::PortBundles& Bundles() {
  static const host::PortBundles bundles = *host::PortBundles::Builtin();
  return bundles;
}

inline const host::Units& HostUnits() {
  static const host::Units units;
  return units;
}

}  // namespace fuzz
