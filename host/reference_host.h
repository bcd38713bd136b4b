// The reference host: implements every host service over plain files, oneTBB
// and OpenImageIO, and loads a module library exactly as the application does
// (dlopen, system initialisation, component initialisation, start, messages,
// end).
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/component_system.h"
#include "host/materials.h"
#include "host/plugins.h"
#include "host/polygon_object.h"
#include "host/port_bundles.h"
#include "host/processes.h"
#include "host/registry_file.h"
#include "host/scene.h"
#include "host/services.h"
#include "host/ui_services.h"
#include "host/units.h"
#include "vex/host.h"
#include "vex/module_entry.h"

namespace host {

struct HostOptions {
  std::int32_t apiVersion = 2024500;  ///< the API version the host reports
  int threads = 0;                    ///< parallel-for workers; 0: all cores
  bool quiet = false;                 ///< console lines only to the in-memory log
};

/// What loading a module did: the entry results and every problem met on the way.
struct LoadReport {
  std::int32_t initResult = 0;
  std::int32_t startResult = 0;
  bool componentsRefused = false;
  std::vector<std::string> problems;
};

class ReferenceHost {
 public:
  explicit ReferenceHost(const HostOptions& options = {});
  ~ReferenceHost();
  ReferenceHost(const ReferenceHost&) = delete;
  ReferenceHost& operator=(const ReferenceHost&) = delete;

  const vex::HostApi& Api() const { return api_; }
  vex::HostApi& MutableApi() { return api_; }
  Console& console() { return console_; }
  Configuration& config() { return config_; }
  Dialogs& dialogs() { return dialogs_; }
  FileSystem& files() { return files_; }
  Images& images() { return images_; }
  IdTable& ids() { return ids_; }
  Parallel& parallel() { return *parallel_; }
  PluginRegistry& plugins() { return plugins_; }
  ComponentSystem& components() { return components_; }
  const PortBundles& bundles() const { return bundles_; }
  Documents& documents() { return documents_; }
  const Units& units() const { return units_; }
  /// The current user's registry: empty unless a test or the user describes one (".reg" file).
  RegistryFile& registry() { return registry_; }
  Processes& processes() { return processes_; }
  Polygons& polygons() { return polygons_; }
  FileViewer& fileViewer() { return fileViewer_; }
  StatusBar& statusBar() { return statusBar_; }
  MaterialSystem& materials() { return materials_; }

  /// For tests that link the module's objects: binds this host into the calling binary's glue
  /// and reads and initialises the declarations linked into it.
  vex::Result<void> BindInProcess(const vex::ModuleFramework& framework);

  /// Loads a module library and runs system initialisation, component initialisation, start and
  /// the resource and menu messages. An error means the module is not loaded.
  vex::Result<LoadReport> Load(const std::string& libraryPath);
  bool IsLoaded() const { return library_ != nullptr; }
  /// The module's entry function (nullptr when none is loaded): for raw protocol calls.
  vex::entry::EntryFunction Entry() const { return entry_; }
  const vex::ModuleFramework* Framework() const { return framework_; }
  /// Sends a message to the loaded module; returns the entry result (1 handled, -1 not).
  std::int32_t SendMessage(std::int32_t id, void* data = nullptr);
  /// Runs end and unloads the library. Every object the module made is released first.
  void Unload();

  /// The module library beside the running executable.
  static std::string DefaultModulePath();
  static constexpr const char* kModuleName = "interop_misc";

 private:
  HostOptions options_;
  Console console_;
  Configuration config_;
  Clock clock_;
  Resources resources_;
  Dialogs dialogs_;
  FileSystem files_;
  Images images_;
  IdTable ids_;
  std::unique_ptr<Parallel> parallel_;
  ComponentSystem components_;
  PortBundles bundles_;
  PluginRegistry plugins_;
  Documents documents_;
  Units units_;
  RegistryFile registry_;
  Processes processes_;
  Polygons polygons_;
  FileViewer fileViewer_;
  StatusBar statusBar_;
  MaterialSystem materials_;
  vex::HostApi api_;
  vex::ModuleHostContext moduleContext_;
  void* library_ = nullptr;
  vex::entry::EntryFunction entry_ = nullptr;
  const vex::ModuleFramework* framework_ = nullptr;
  bool inProcess_ = false;
  bool boundHere_ = false;
};

}  // namespace host
