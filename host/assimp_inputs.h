// The mesh library's file access limited to regular files: an OBJ's material library or a
// texture named by a file is opened only when it is one (a FIFO would block, /dev/zero would
// never end). Header-only, for the units that already wrap the mesh library.
#pragma once

#include <cstring>

#include <assimp/DefaultIOSystem.h>

#include "host/input_files.h"

namespace host {

class RegularFileIO final : public Assimp::DefaultIOSystem {
 public:
  Assimp::IOStream* Open(const char* file, const char* mode = "rb") override {
    if (file != nullptr && mode != nullptr && std::strchr(mode, 'w') == nullptr && !CheckInputFile(file))
      return nullptr;
    return Assimp::DefaultIOSystem::Open(file, mode);
  }
};

}  // namespace host
