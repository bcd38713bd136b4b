// Starting another program from a module: the program's path and its
// arguments, handed to the operating system directly (never through a shell).
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "vex/error.h"

namespace vex {

class IProcesses {
 public:
  virtual ~IProcesses() = default;
  /// Starts `program` with `arguments` (each passed as one argument, unquoted and unsplit) and
  /// returns without waiting for it. Fails with FileIO when the program cannot be started.
  virtual Result<void> Start(std::string_view program, const std::vector<std::string>& arguments) = 0;
};

}  // namespace vex
