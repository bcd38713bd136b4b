// vexinterop allplan ...
#include "cli/commands.h"

namespace cli {

void AddAllplanCommands(CLI::App&, Context&) {}

}  // namespace cli
