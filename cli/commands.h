// The command line's shared context and the sub-command groups. Every group
// reaches the module only through the library the reference host loads.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "host/reference_host.h"

namespace cli {

/// Exit codes.
inline constexpr int kExitOk = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitNoMapping = 2;

class Context {
 public:
  std::string modulePath;             ///< --module; default: the library beside the executable
  std::vector<std::string> settings;  ///< --set name=value
  bool verbose = false;               ///< --verbose: echo console lines and dialogs
  /// Runs on the new host before the module is loaded (a described registry, the user directory).
  std::function<vex::Result<void>(host::ReferenceHost&)> beforeLoad;

  /// The host with the module loaded and the settings applied (loaded on first use).
  vex::Result<host::ReferenceHost*> Host();
  ~Context();

 private:
  std::unique_ptr<host::ReferenceHost> host_;
};

/// Prints "vexinterop: <message>" (and the source unit and line) to stderr; returns `code`.
int Fail(const vex::Error& error, int code = kExitFailure);
int Fail(const std::string& message, int code = kExitFailure);

void AddCoreCommands(CLI::App& app, Context& context);      // info, map
void AddLightCommands(CLI::App& app, Context& context);     // light ...
void AddAllplanCommands(CLI::App& app, Context& context);   // allplan ...
void AddMaterialCommands(CLI::App& app, Context& context);  // material export|import
void AddArchicadCommands(CLI::App& app, Context& context);  // archicad ...
void AddFileCommands(CLI::App& app, Context& context);      // export, convert, import
void AddMergeCommands(CLI::App& app, Context& context);     // merge

}  // namespace cli
