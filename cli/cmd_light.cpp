// vexinterop light ...
#include "cli/commands.h"

namespace cli {

void AddLightCommands(CLI::App&, Context&) {}

}  // namespace cli
