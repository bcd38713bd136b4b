// PENDING: the merge dialog lands with the ArchiCAD issue.
#include "exchange/updatemerge_dialog.h"

namespace interop::exchange {
namespace {

class UpdateMergeHook final : public vex::ISceneHook {
 public:
  bool Message(vex::IDocument&, std::int32_t, std::int32_t, void*) override { return true; }
};

}  // namespace

std::shared_ptr<vex::ISceneHook> MakeUpdateMergeHook() { return std::make_shared<UpdateMergeHook>(); }

}  // namespace interop::exchange
