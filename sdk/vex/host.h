// The host's function tables as a module calls them. The host hands a HostApi
// to the module at system initialisation; the module's glue binds it and every
// unit reaches the services through Host().
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "vex/component.h"
#include "vex/data.h"
#include "vex/error.h"
#include "vex/function_ref.h"
#include "vex/id.h"
#include "vex/material.h"
#include "vex/plugins.h"
#include "vex/process.h"
#include "vex/registry.h"
#include "vex/scene.h"
#include "vex/units.h"

namespace vex {

class IPolygons;    // vex/polygon.h
class IFileViewer;  // vex/ui.h
class IStatusBar;   // vex/ui.h
class IMaterialSystem;  // vex/material_host.h

/// The host's console: plain lines for the user, and diagnostic lines that name their source.
class IConsole {
 public:
  virtual ~IConsole() = default;
  virtual void Print(std::string_view line) = 0;
  virtual void Diagnostic(std::string_view text, std::string_view unit, int line) = 0;
};

/// The host's dynamic parallel-for: calls `body(begin, end)` on worker threads for sub-ranges
/// that cover [0, count) exactly once, and returns when all are done. Misuse (a negative count,
/// no body) fails with "Assertion failed: Someone has broken ParallelFor." from "parallelfordynamic".
class IParallel {
 public:
  virtual ~IParallel() = default;
  virtual Result<void> ParallelFor(std::int64_t count, FunctionRef<void(std::int64_t, std::int64_t)> body,
                                   std::int64_t grain = 0) = 0;
};

/// String configuration values ("g_..." settings), registered with help text.
class IConfiguration {
 public:
  virtual ~IConfiguration() = default;
  virtual Result<void> Register(std::string_view name, std::string_view help, std::string_view fallback) = 0;
  /// The current value; empty when unset or unknown.
  virtual std::string GetString(std::string_view name) const = 0;
  virtual Result<void> SetString(std::string_view name, std::string_view value) = 0;
};

class IClock {
 public:
  virtual ~IClock() = default;
  /// Wall-clock time in seconds since the epoch.
  virtual double NowSeconds() const = 0;
};

/// A module's string resources by number. A missing string reads as "StrNotFound".
class StringTable {
 public:
  static constexpr std::string_view kNotFound = "StrNotFound";
  void Set(std::int32_t id, std::string text) { strings_[id] = std::move(text); }
  std::string Get(std::int32_t id) const {
    const auto it = strings_.find(id);
    return it == strings_.end() ? std::string(kNotFound) : it->second;
  }
  bool IsEmpty() const { return strings_.empty(); }

 private:
  std::map<std::int32_t, std::string> strings_;
};

/// What the host tells a module about itself (the p3 of system initialisation).
struct ModuleHostContext {
  std::string modulePath;   ///< the loaded library file
  std::string resourceDir;  ///< where the module's resource files live
};

class IResources {
 public:
  virtual ~IResources() = default;
  /// Loads the module's string tables from its resource directory.
  virtual Result<StringTable> LoadModuleStrings(const ModuleHostContext& module) = 0;
};

/// Dialogs. The reference host is non-interactive: it records them and answers questions by policy.
class IDialogs {
 public:
  virtual ~IDialogs() = default;
  virtual void Message(std::string_view text) = 0;
  virtual bool Question(std::string_view text) = 0;
  /// One check box of a choice dialog.
  struct Choice {
    std::string label;
    bool preset = false;
    bool enabled = true;  ///< a disabled box is shown greyed out; its answer is its preset
  };
  /// A dialog with a text and check boxes; returns the boxes as the user left them, or nothing when
  /// the user cancelled. A host without such a dialog asks one question per box.
  virtual std::optional<std::vector<bool>> Choose(std::string_view text, const std::vector<Choice>& choices) {
    std::vector<bool> out;
    for (const auto& c : choices) out.push_back(c.enabled ? Question(std::string(text) + "\n" + c.label) : c.preset);
    return out;
  }
};

/// An open file of the host's file service.
class IFile {
 public:
  virtual ~IFile() = default;
  virtual Result<void> Write(const void* bytes, std::size_t size) = 0;
  Result<void> Write(std::string_view text) { return Write(text.data(), text.size()); }
  /// Flushes and closes; reports a failed flush.
  virtual Result<void> Close() = 0;
};

struct FileOpenOptions {
  std::int32_t byteOrder = 1;  ///< 1 little-endian (Intel), 2 big-endian (Motorola)
  std::string type;            ///< four-character file type ("VEXC")
  std::string creator;         ///< four-character creator ("VEX1")
  bool errorDialog = false;    ///< show the host's error dialog on failure
};

class IFileSystem {
 public:
  virtual ~IFileSystem() = default;
  virtual bool Exists(std::string_view path) const = 0;
  virtual bool IsDirectory(std::string_view path) const = 0;
  virtual Result<void> CreateDirectory(std::string_view path) = 0;
  virtual Result<void> Remove(std::string_view path) = 0;
  /// Opens a file for writing, replacing it.
  virtual Result<std::unique_ptr<IFile>> OpenWrite(std::string_view path, const FileOpenOptions& options) = 0;
  /// The host's per-user writable directory.
  virtual std::string UserWritePath() const = 0;
  /// The host's standard data serialisation of a parameter set (self-describing, readable back).
  virtual Result<void> WriteParameterSet(std::string_view path, const ParameterSet& set) = 0;
};

/// Image files as linear RGBA float pixels.
class IImages {
 public:
  virtual ~IImages() = default;
  /// Reads an image; 8-bit colour data is linearised when `colorData` is true.
  virtual Result<TextureBuffer> Read(std::string_view path, bool colorData) = 0;
};

class IIdTable {
 public:
  virtual ~IIdTable() = default;
  virtual InternedId Intern(std::string_view text) = 0;
};

/// One entry of a host registry: its id and its record.
struct RegistryEntry {
  std::string id;
  Data record;
};

/// The host's component system.
class IComponentSystem {
 public:
  virtual ~IComponentSystem() = default;
  /// A new instance of a published class; NotFound before the class is usable.
  virtual Result<ComponentRef> CreateInstance(std::string_view classId) = 0;
  virtual bool IsClassPublished(std::string_view classId) const = 0;
  /// The entries of a registry in their order.
  virtual std::vector<RegistryEntry> GetRegistryEntries(std::string_view registryId) const = 0;
  /// The type name of a registered data type.
  virtual std::optional<std::string> GetDataTypeName(std::string_view dataTypeId) const = 0;
};

/// The host's port-bundle registry: each bundle's vocabulary and its default parameter set.
class IPortBundles {
 public:
  virtual ~IPortBundles() = default;
  /// NotFound ("Unknown port bundle: <id>") for an id the host does not know.
  virtual Result<const PortBundle*> Find(std::string_view bundleId) const = 0;
  virtual std::vector<std::string> Ids() const = 0;
};

/// The tables the host binds into a module at system initialisation.
struct HostApi {
  static constexpr std::int32_t kMinimumApiVersion = 2024500;
  std::int32_t apiVersion = 0;
  IConsole* console = nullptr;
  IParallel* parallel = nullptr;
  IConfiguration* configuration = nullptr;
  IClock* clock = nullptr;
  IResources* resources = nullptr;
  IDialogs* dialogs = nullptr;
  IFileSystem* files = nullptr;
  IImages* images = nullptr;
  IIdTable* ids = nullptr;
  IComponentSystem* components = nullptr;
  IPortBundles* bundles = nullptr;
  IPluginRegistry* plugins = nullptr;
  IDocuments* documents = nullptr;
  IUnits* units = nullptr;
  IRegistry* registry = nullptr;    ///< the current user's registry (Windows), or a described one
  IProcesses* processes = nullptr;  ///< starting other programs
  IPolygons* polygons = nullptr;      ///< polygon copies of documents (vex/polygon.h)
  IFileViewer* fileViewer = nullptr;  ///< shows files to the user (vex/ui.h)
  IStatusBar* statusBar = nullptr;    ///< progress of long operations (vex/ui.h)
  IMaterialSystem* materials = nullptr;  ///< node spaces and node materials (vex/material_host.h)
};

/// Binds (or, with nullptr, unbinds) the host tables for this binary's glue.
void BindHost(const HostApi* api);
bool IsHostBound();
/// The bound host tables. Calling it unbound is a programming error and aborts with a message.
const HostApi& Host();

/// A diagnostic console line naming this source unit and line.
#define VEX_DIAGNOSTIC(text) (::vex::Host().console->Diagnostic((text), VEX_UNIT, __LINE__))

}  // namespace vex
