// The update-merge scene hook: when the host merges an updated version of an
// imported file into a scene, it shows which objects are new, changed or gone,
// lets the user choose what to take, and applies the answer to the document.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "vex/plugins.h"
#include "vex/update_merge.h"

namespace interop::exchange {

/// What an updated file would change in a document.
struct MergePlan {
  std::vector<vex::SceneObjectRef> added;         ///< in the file only
  std::vector<vex::ISceneObject*> changedCurrent;  ///< in both and different: the scene's object...
  std::vector<vex::SceneObjectRef> changedUpdate;  ///< ...and the file's, at the same index
  std::vector<vex::ISceneObject*> gone;            ///< in the scene (from that file) only
  bool IsEmpty() const { return added.empty() && changedCurrent.empty() && gone.empty(); }
};

/// Matches the document's top-level objects imported from `data.sourceFile` with the updated
/// file's objects by name; an object differs when its type, parameters or children differ.
MergePlan PlanMerge(const vex::IDocument& document, const vex::UpdateMergeData& data);

std::shared_ptr<vex::ISceneHook> MakeUpdateMergeHook();

}  // namespace interop::exchange
