// The command line's shared context and the sub-command groups. Every group
// reaches the module only through the library the reference host loads.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "host/paramset_json.h"
#include "host/scene_file.h"
#include "host/reference_host.h"

namespace cli {

/// Exit codes, the only ones the program returns (listed in --help and the README).
inline constexpr int kExitOk = 0;
inline constexpr int kExitFailure = 1;    ///< the work failed (bad input, failed mapping, cannot write)
inline constexpr int kExitNoMapping = 2;  ///< no mapping between the two bundles
inline constexpr int kExitUsage = 64;     ///< wrong usage: every argument error, an unknown command

class Context {
 public:
  std::string modulePath;             ///< --module; default: the library beside the executable
  std::vector<std::string> settings;  ///< --set name=value
  bool verbose = false;               ///< --verbose: echo console lines and dialogs
  std::uint64_t maxPixels = 0;        ///< --max-pixels; 0: the image reader's default
  int maxJsonDepth = 0;               ///< --max-json-depth; 0: the JSON reader's default
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

/// Reads a parameter-set file against the host's bundles, images and ids.
vex::Result<vex::ParameterSet> ReadSetFile(host::ReferenceHost& host, const std::string& path);
/// Scene-file read options bound to the host's units.
host::scene_file::ReadOptions SceneReadOptions(const host::ReferenceHost& host);
/// Loads a .vex scene into a new document of the host.
vex::Result<host::Document*> LoadScene(host::ReferenceHost& host, const std::string& path);
/// Write options bound to the host's bundles.
host::json::WriteOptions SetWriteOptions(host::ReferenceHost& host);
/// Saves the document as `path` with the textures its materials are waiting to write (beside
/// it), all staged and put in place together; returns the number of textures.
vex::Result<std::size_t> SaveSceneWithTextures(host::Document& document, const std::string& path);

/// A check for a whole-number option within [min, max] whose message is plain:
/// "expected a whole number from MIN to MAX, got 'TEXT'".
CLI::Validator WholeNumberIn(std::int64_t min, std::int64_t max);

void AddCoreCommands(CLI::App& app, Context& context);      // info, map
void AddLightCommands(CLI::App& app, Context& context);     // light ...
void AddAllplanCommands(CLI::App& app, Context& context);   // allplan ...
void AddMaterialCommands(CLI::App& app, Context& context);  // material export|import
void AddArchicadCommands(CLI::App& app, Context& context);  // archicad ...
void AddFileCommands(CLI::App& app, Context& context);      // export, convert, import
void AddMergeCommands(CLI::App& app, Context& context);     // merge

}  // namespace cli
