// The mesh library's file access limited to regular files: an OBJ's material library or a
// texture named by a file is opened only when it is one (a FIFO would block, /dev/zero would
// never end). Header-only, for the units that already wrap the mesh library.
#pragma once

#include <sys/stat.h>

#include <cstring>
#include <string>

#include <assimp/DefaultIOSystem.h>

#include "host/input_checks.h"
#include "host/input_files.h"

namespace host {

class RegularFileIO final : public Assimp::DefaultIOSystem {
 public:
  Assimp::IOStream* Open(const char* file, const char* mode = "rb") override {
    if (file == nullptr || mode == nullptr || std::strchr(mode, 'w') != nullptr)
      return Assimp::DefaultIOSystem::Open(file, mode);
    struct stat info {};
    if (::stat(file, &info) != 0) return nullptr;  // missing: the library goes on without it
    auto bytes = ReadInputFile(file);
    if (!bytes) return Refuse(bytes.error().message);
    std::string_view name(file);
    if (name.size() > 4 && (name.ends_with(".mtl") || name.ends_with(".MTL")))
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
  std::string refused_;
};

}  // namespace host
