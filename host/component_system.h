// The reference host's component system: reads a module's static declarations,
// makes its classes usable when the module is initialised, and answers class,
// registry and data-type lookups.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "vex/host.h"

namespace host {

class Configuration;

class ComponentSystem final : public vex::IComponentSystem {
 public:
  /// Reads the declarations of a module. Settings are registered with `config` at once (they
  /// exist from library load on). Fails, refusing the module's component part, when a class
  /// implements an interface nobody declares or a declaration is malformed.
  vex::Result<void> AddModule(const std::string& module, const vex::ModuleFramework& framework,
                              Configuration& config);
  /// Builds the class objects and publishes the classes and registry entries of a module.
  vex::Result<void> InitialiseModule(const std::string& module);
  /// Forgets everything of a module (before its library is unloaded).
  void RemoveModule(const std::string& module);

  /// The declarations of a module in declaration order.
  std::vector<vex::Declaration> Declarations(const std::string& module) const;

  vex::Result<vex::ComponentRef> CreateInstance(std::string_view classId) override;
  bool IsClassPublished(std::string_view classId) const override;
  std::vector<vex::RegistryEntry> GetRegistryEntries(std::string_view registryId) const override;
  std::optional<std::string> GetDataTypeName(std::string_view dataTypeId) const override;

 private:
  struct ClassObject {
    std::string module;
    vex::ComponentFactory factory = nullptr;
  };
  struct ModuleState {
    std::vector<vex::Declaration> declarations;
    bool initialised = false;
  };
  mutable std::mutex mutex_;
  std::map<std::string, ModuleState, std::less<>> modules_;
  std::map<std::string, ClassObject, std::less<>> published_;
  std::map<std::string, std::vector<std::pair<std::string, vex::RegistryEntry>>, std::less<>> registries_;
  std::map<std::string, std::pair<std::string, std::string>, std::less<>> dataTypes_;  // id -> (module, name)
};

}  // namespace host
