// Assimp keeps process-wide state (its logger, its format registries); the
// FBX writer and the OBJ/FBX reader take this lock around every call into it
// so that conversions running in parallel stay apart.
#pragma once

#include <mutex>

namespace host::formats::detail {

inline std::mutex& AssimpMutex() {
  static std::mutex mutex;
  return mutex;
}

}  // namespace host::formats::detail
