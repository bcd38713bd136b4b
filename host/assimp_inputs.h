// The mesh library's file access limited to regular files: an OBJ's material library or a
// texture named by a file is opened only when it is one (a FIFO would block, /dev/zero would
// never end), and a material library only when it passes CheckMtlText. Header-only, for the
// units that already wrap the mesh library.
#pragma once

#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

#include <assimp/DefaultIOSystem.h>

#include "host/input_checks.h"
#include "host/input_files.h"

namespace host {

class RegularFileIO final : public Assimp::DefaultIOSystem {
 public:
  RegularFileIO() = default;
  /// For an OBJ: every file the library opens besides `objFile` is one of its material
  /// libraries, whatever its name, and is checked as one.
  explicit RegularFileIO(std::string objFile) : objFile_(std::move(objFile)) {}

  Assimp::IOStream* Open(const char* file, const char* mode = "rb") override {
    if (file == nullptr || mode == nullptr || std::strchr(mode, 'w') != nullptr)
      return Assimp::DefaultIOSystem::Open(file, mode);
    struct stat info {};
    if (::stat(file, &info) != 0) return nullptr;  // missing: the library goes on without it
    auto bytes = ReadInputFile(file);
    if (!bytes) return Refuse(bytes.error().message);
    if (IsMaterialLibrary(file))
      if (auto checked = CheckMtlText(*bytes, file); !checked) return Refuse(checked.error().message);
    return Assimp::DefaultIOSystem::Open(file, mode);
  }
  /// Why the first file the library asked for was refused; empty when none was.
  const std::string& Refused() const { return refused_; }

 private:
  Assimp::IOStream* Refuse(const std::string& why) {
    if (refused_.empty()) refused_ = why;
    return nullptr;
  }
  bool IsMaterialLibrary(const char* file) const {
    if (objFile_.empty()) return false;
    std::error_code ec;
    return !std::filesystem::equivalent(file, objFile_, ec);
  }

  std::string objFile_;
  std::string refused_;
};

}  // namespace host
