// The current user's registry of Windows, passed through to modules.
#pragma once

#include <memory>

#include "vex/registry.h"

namespace host::win {

/// The system registry through RegOpenKeyA, RegEnumValueA, RegQueryValueExA and RegCloseKey.
std::unique_ptr<vex::IRegistry> MakeWindowsRegistry();

}  // namespace host::win
