// vexinterop archicad ...
#include "cli/commands.h"

namespace cli {

void AddArchicadCommands(CLI::App&, Context&) {}

}  // namespace cli
