// vexinterop material export|import
#include "cli/commands.h"

namespace cli {

void AddMaterialCommands(CLI::App&, Context&) {}

}  // namespace cli
