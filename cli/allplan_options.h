// The Allplan saver's options as the command line spells them (--options prepare weld=0.5 ...).
#pragma once

#include <string>

#include "vex/error.h"
#include "vex/scene.h"

namespace cli {

/// Sets one option in the saver's settings: "prepare", "edges", "faces", "volumes", "packed",
/// "weld=T" or an option id ("2001", "2008=T"), flags optionally "=true" or "=false".
/// IllegalArgument naming the option (quoted, cut to 200 characters) for anything else.
vex::Result<void> ApplyAllplanOption(const std::string& text, vex::ParamContainer& settings);

}  // namespace cli
