// The update-merge message: the host imported a file into a scene earlier, the
// file has changed on disk, and the host asks the scene hooks how to merge the
// updated version into the scene.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vex/scene.h"

namespace vex {

/// Scene-hook message id; the hook's `data` is an UpdateMergeData*.
inline constexpr std::int32_t kMsgUpdateMerge = 1001096;

/// Object parameter (string): the file an object was imported from. The host sets it on the
/// top-level objects of an import, and the update merge matches objects by it and by name.
inline constexpr std::int32_t kObjectImportSource = 1096;

/// What a hook decided for one update merge.
struct UpdateMergeOutcome {
  bool handled = false;    ///< a hook answered (the host's default merge is skipped)
  bool cancelled = false;  ///< the user cancelled: nothing was changed
  std::vector<std::string> added;    ///< names of objects inserted
  std::vector<std::string> updated;  ///< names of objects whose parameters were replaced
  std::vector<std::string> removed;  ///< names of objects taken out of the scene
  std::vector<std::string> kept;     ///< names of objects left as they were although the file differs
};

struct UpdateMergeData {
  std::string sourceFile;              ///< the imported file, as recorded on its objects
  std::vector<SceneObjectRef> updated;  ///< the updated file's top-level objects, made by the host, not inserted
  UpdateMergeOutcome outcome;           ///< filled in by the hook
};

}  // namespace vex
