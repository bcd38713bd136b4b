#include "host/reference_host.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>

namespace fs = std::filesystem;

namespace host {

ReferenceHost::ReferenceHost(const HostOptions& options)
    : options_(options), parallel_(std::make_unique<Parallel>(options.threads)) {
  console_.quiet = options.quiet;
  auto builtin = PortBundles::Builtin();
  if (!builtin) {
    std::cerr << "reference host: " << builtin.error().Describe() << '\n';
    std::abort();
  }
  bundles_ = std::move(*builtin);
  api_.apiVersion = options.apiVersion;
  api_.console = &console_;
  api_.parallel = parallel_.get();
  api_.configuration = &config_;
  api_.clock = &clock_;
  api_.resources = &resources_;
  api_.dialogs = &dialogs_;
  api_.files = &files_;
  api_.images = &images_;
  api_.ids = &ids_;
  api_.components = &components_;
  api_.bundles = &bundles_;
  api_.plugins = &plugins_;
  api_.documents = &documents_;
  api_.units = &units_;
  api_.registry = &registry_;
  api_.processes = &processes_;
  api_.polygons = &polygons_;
  api_.fileViewer = &fileViewer_;
  api_.statusBar = &statusBar_;
  api_.materials = &materials_;
  if (auto published = materials_.PublishClasses(components_, config_); !published) {
    std::cerr << "reference host: " << published.error().Describe() << '\n';
    std::abort();
  }
  // The host's own helpers (lookups, interning) go through the same tables as the module's.
  if (!vex::IsHostBound()) {
    vex::BindHost(&api_);
    boundHere_ = true;
  }
}

ReferenceHost::~ReferenceHost() {
  Unload();
  if (inProcess_ || boundHere_) vex::BindHost(nullptr);
}

vex::Result<void> ReferenceHost::BindInProcess(const vex::ModuleFramework& framework) {
  vex::BindHost(&api_);
  inProcess_ = true;
  VEX_TRY(components_.AddModule(kModuleName, framework, config_));
  return components_.InitialiseModule(kModuleName);
}

std::string ReferenceHost::DefaultModulePath() {
  std::error_code ec;
  const fs::path exe = fs::read_symlink("/proc/self/exe", ec);
  const fs::path dir = ec ? fs::current_path() : exe.parent_path();
  return (dir / (std::string("lib") + kModuleName + ".so")).string();
}

vex::Result<LoadReport> ReferenceHost::Load(const std::string& libraryPath) {
  if (library_) return VEX_FAIL(vex::ErrorKind::IllegalState, "A module is already loaded");
  LoadReport report;
  void* handle = dlopen(libraryPath.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle) return VEX_FAIL(vex::ErrorKind::FileIO, libraryPath + ": cannot load: " + dlerror());
  auto entry = reinterpret_cast<vex::entry::EntryFunction>(dlsym(handle, vex::entry::kEntrySymbol));
  auto* framework = static_cast<const vex::ModuleFramework*>(dlsym(handle, vex::entry::kFrameworkSymbol));
  if (!entry || !framework) {
    dlclose(handle);
    return VEX_FAIL(vex::ErrorKind::NotFound, libraryPath + ": not a module (vex_main or g_kelvo missing)");
  }
  library_ = handle;
  entry_ = entry;
  framework_ = framework;
  // Static declarations were made when the library loaded; read them before the first call.
  if (auto added = components_.AddModule(kModuleName, *framework, config_); !added) {
    report.componentsRefused = true;
    report.problems.push_back("component part refused: " + added.error().message);
  }
  moduleContext_.modulePath = fs::absolute(libraryPath).string();
  moduleContext_.resourceDir = (fs::absolute(libraryPath).parent_path() / "res").string();
  report.initResult = entry_(vex::entry::kSystemInit, &api_, nullptr, &moduleContext_);
  if (report.initResult != vex::entry::kOk) {
    const auto code = report.initResult;
    components_.RemoveModule(kModuleName);
    dlclose(library_);
    library_ = nullptr;
    entry_ = nullptr;
    framework_ = nullptr;
    return VEX_FAIL(vex::ErrorKind::IllegalState,
                    libraryPath + ": system initialisation refused (result " + std::to_string(code) + ")");
  }
  if (!report.componentsRefused) {
    if (auto init = components_.InitialiseModule(kModuleName); !init)
      report.problems.push_back("components not initialised: " + init.error().message);
  }
  report.startResult = entry_(vex::entry::kStart, nullptr, nullptr, nullptr);
  if (report.startResult != vex::entry::kOk) {
    std::string refused;
    for (const auto& a : plugins_.Attempts())
      if (!a.accepted) refused += " " + a.kind + " " + std::to_string(a.id);
    report.problems.push_back("start failed (result " + std::to_string(report.startResult) +
                              "), refused registration:" + (refused.empty() ? " none" : refused));
  }
  SendMessage(vex::entry::kMsgNone);
  vex::entry::ResourceMessageData resource{this};
  if (SendMessage(vex::entry::kMsgLoadResources, &resource) != vex::entry::kOk)
    report.problems.push_back("module resources did not load from " + moduleContext_.resourceDir);
  SendMessage(vex::entry::kMsgBuildMenu);
  return report;
}

std::int32_t ReferenceHost::SendMessage(std::int32_t id, void* data) {
  if (!entry_) return vex::entry::kUnhandled;
  return entry_(vex::entry::kMessage, reinterpret_cast<void*>(static_cast<std::intptr_t>(id)), data, nullptr);
}

void ReferenceHost::Unload() {
  if (!library_) return;
  SendMessage(vex::entry::kMsgEndActivity);
  entry_(vex::entry::kEnd, nullptr, nullptr, nullptr);
  plugins_.Clear();
  // Documents may hold values the module made (custom data); they go before its code does.
  documents_.CloseAll();
  components_.RemoveModule(kModuleName);
  dlclose(library_);
  library_ = nullptr;
  entry_ = nullptr;
  framework_ = nullptr;
}

}  // namespace host
