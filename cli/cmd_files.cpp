// vexinterop export, convert, import
#include "cli/commands.h"

namespace cli {

void AddFileCommands(CLI::App&, Context&) {}

}  // namespace cli
