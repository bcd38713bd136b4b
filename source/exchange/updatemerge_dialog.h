// The update-merge scene hook.
#pragma once

#include <memory>

#include "vex/plugins.h"

namespace interop::exchange {

std::shared_ptr<vex::ISceneHook> MakeUpdateMergeHook();

}  // namespace interop::exchange
