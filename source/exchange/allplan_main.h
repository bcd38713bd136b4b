// The scene saver that writes Allplan XML.
#pragma once

#include <memory>

#include "vex/plugins.h"

namespace interop::exchange {

/// The saver's allocator, handed to the host at registration.
std::shared_ptr<vex::ISceneSaver> AllocateAllplanSaver();

}  // namespace interop::exchange
