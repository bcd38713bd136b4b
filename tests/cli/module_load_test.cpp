// The built library loaded as the application loads it: exported symbols,
// the entry protocol's action table, start registrations and declarations.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <set>
#include <string>

#include "host/reference_host.h"
#include "vex/lookup.h"

namespace {

constexpr const char* kModule = INTEROP_MODULE_PATH;

std::string Shell(const std::string& command) {
  std::string out;
  std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  char buffer[4096];
  while (pipe && fgets(buffer, sizeof buffer, pipe.get())) out += buffer;
  return out;
}

/// The library opened on its own, for raw calls of the entry function.
struct RawModule {
  void* handle = dlopen(kModule, RTLD_NOW | RTLD_LOCAL);
  vex::entry::EntryFunction entry =
      handle ? reinterpret_cast<vex::entry::EntryFunction>(dlsym(handle, "vex_main")) : nullptr;
  ~RawModule() {
    if (handle) dlclose(handle);
  }
  std::int32_t Call(std::int32_t action, void* p1 = nullptr, void* p2 = nullptr, void* p3 = nullptr) {
    return entry(action, p1, p2, p3);
  }
  std::int32_t Message(std::int32_t id, void* data = nullptr) {
    return entry(6, reinterpret_cast<void*>(static_cast<std::intptr_t>(id)), data, nullptr);
  }
};

TEST(ModuleLibrary, ExportsExactlyTheThreeEntrySymbols) {
  const std::string symbols = Shell(std::string("nm -D --defined-only ") + kModule + " | awk '{print $3}' | sort");
  EXPECT_EQ(symbols, "g_CpuYieldDelegate\ng_kelvo\nvex_main\n");
}

TEST(ModuleLibrary, EntryActionsFollowTheLifeCycleTable) {
  host::ReferenceHost host({2024500, 1, true});
  vex::ModuleHostContext context{kModule, std::string(INTEROP_SOURCE_DIR) + "/build-none"};
  RawModule module;
  ASSERT_NE(module.entry, nullptr);

  // A host older than 2024500, or no third argument: refused.
  vex::HostApi old = host.Api();
  old.apiVersion = 2024499;
  EXPECT_EQ(module.Call(1, &old, nullptr, &context), -3);
  EXPECT_EQ(module.Call(1, const_cast<vex::HostApi*>(&host.Api()), nullptr, nullptr), -3);
  // Not initialised: the resource message cannot load anything.
  EXPECT_EQ(module.Message(1), -1);

  // Nested pairs: only the outermost binds and releases.
  EXPECT_EQ(module.Call(1, const_cast<vex::HostApi*>(&host.Api()), nullptr, &context), 1);
  EXPECT_EQ(module.Call(1, &old, nullptr, nullptr), 1);  // inner call does nothing, whatever it gets
  EXPECT_EQ(module.Call(4), 5);
  EXPECT_EQ(module.Call(5), -1);
  EXPECT_EQ(module.Call(99), -1);
  EXPECT_EQ(module.Message(0), 1);
  EXPECT_EQ(module.Message(1001084), -1);
  EXPECT_EQ(module.Message(1001188), -1);
  EXPECT_EQ(module.Message(424242), -1);
  EXPECT_EQ(module.Call(3), 1);
  EXPECT_EQ(module.Message(0), 1);  // still initialised after the inner end
  EXPECT_EQ(module.Call(3), 1);
  EXPECT_EQ(module.Call(3), 1);  // an unmatched end is harmless
}

TEST(ModuleLibrary, ResourceMessageClearsThePointerField) {
  host::ReferenceHost host({2024500, 1, true});
  const std::string dir = std::string(kModule).substr(0, std::string(kModule).rfind('/'));
  vex::ModuleHostContext context{kModule, dir + "/res"};
  RawModule module;
  ASSERT_EQ(module.Call(1, const_cast<vex::HostApi*>(&host.Api()), nullptr, &context), 1);
  int marker = 0;
  vex::entry::ResourceMessageData data{&marker};
  EXPECT_EQ(module.Message(1, &data), 1);
  EXPECT_EQ(data.pointer, nullptr);
  EXPECT_EQ(module.Call(3), 1);

  vex::ModuleHostContext nowhere{kModule, "/nonexistent"};
  ASSERT_EQ(module.Call(1, const_cast<vex::HostApi*>(&host.Api()), nullptr, &nowhere), 1);
  vex::entry::ResourceMessageData kept{&marker};
  EXPECT_EQ(module.Message(1, &kept), -1);
  EXPECT_EQ(kept.pointer, &marker);
  EXPECT_EQ(module.Call(3), 1);
}

TEST(ModuleLibrary, StartRegistersInOrderAndStopsAtTheFirstRefusal) {
  {
    host::ReferenceHost host({2024500, 1, true});
    auto report = host.Load(kModule);
    ASSERT_TRUE(report) << report.error().message;
    EXPECT_EQ(report->startResult, 1);
    EXPECT_TRUE(report->problems.empty());
    const auto attempts = host.plugins().Attempts();
    ASSERT_EQ(attempts.size(), 4u);
    EXPECT_EQ(attempts[0].id, 1016440);
    EXPECT_EQ(attempts[0].name, "Allplan XML");  // resource string 10000
    EXPECT_EQ(attempts[1].id, 200000215);
    EXPECT_EQ(attempts[2].id, 200000216);
    EXPECT_EQ(attempts[3].id, 465001602);
    const auto& saver = host.plugins().Savers().at(0);
    EXPECT_EQ(saver.suffix, "xml");
    EXPECT_EQ(saver.formatName, "Allplan");
    EXPECT_EQ(saver.infoFlags, 0x100000);
    const auto& command = host.plugins().Commands().at(0);
    EXPECT_EQ(command.helpText, "Send To ArchiCAD");
    EXPECT_EQ(command.infoFlags, 0x10000000);
    EXPECT_EQ(host.plugins().Hooks().at(0).priority, 5000);
    EXPECT_EQ(host.plugins().Hooks().at(1).name, "UpdateMerge Hook");
    EXPECT_EQ(host.plugins().Hooks().at(1).lastOption, 1);
  }
  {
    host::ReferenceHost host({2024500, 1, true});
    host.plugins().refuse = {200000215};  // the second registration of the start routine
    auto report = host.Load(kModule);
    ASSERT_TRUE(report);
    EXPECT_EQ(report->startResult, 0);
    const auto attempts = host.plugins().Attempts();
    ASSERT_EQ(attempts.size(), 2u);  // neither the hook nor the update-merge hook was tried
    EXPECT_FALSE(attempts[1].accepted);
  }
  {
    host::ReferenceHost host({2024499, 1, true});
    auto refused = host.Load(kModule);
    ASSERT_FALSE(refused);
    EXPECT_NE(refused.error().message.find("refused (result -3)"), std::string::npos);
    EXPECT_FALSE(host.IsLoaded());
  }
}

TEST(ModuleLibrary, DeclarationsComeInTheirStaticOrderAndClassesAfterInitialisation) {
  // Before the component system initialises the module, published classes resolve to nothing.
  host::ReferenceHost host({2024500, 1, true});
  RawModule module;
  auto* framework = static_cast<const vex::ModuleFramework*>(dlsym(module.handle, "g_kelvo"));
  ASSERT_NE(framework, nullptr);
  ASSERT_TRUE(host.components().AddModule("probe", *framework, host.config()));
  EXPECT_FALSE(host.components().IsClassPublished("net.kelvo.material.class.materialmapping.corvane.to.obj"));
  ASSERT_TRUE(host.components().InitialiseModule("probe"));
  EXPECT_TRUE(host.components().IsClassPublished("net.kelvo.material.class.materialmapping.corvane.to.obj"));

  std::vector<std::string> classes, registerUnit;
  std::set<std::string> ids;
  for (const auto& d : framework->Declarations()) {
    if (d.kind == vex::DeclarationKind::Component) classes.push_back(d.id);
    if (d.unit == "register") registerUnit.push_back(d.id);
    if (d.kind == vex::DeclarationKind::Component || d.kind == vex::DeclarationKind::Interface ||
        d.kind == vex::DeclarationKind::Registry || d.kind == vex::DeclarationKind::DataType) {
      EXPECT_TRUE(ids.insert(d.id).second) << "declared twice: " << d.id;
    }
  }
  const std::vector<std::string> expected = {
      "net.kelvo.material.class.materialmapping.viewport.to.fbxphong",
      "net.kelvo.material.class.materialmapping.viewport.to.standardsurface",
      "net.kelvo.material.class.materialmapping.viewport.to.usdpreviewsurface",
      "net.kelvo.material.class.materialmapping.corvane.to.usdpreviewsurface",
      "net.kelvo.material.class.materialmapping.viewport.to.gltfpbr",
      "net.kelvo.material.class.materialmapping.corvane.to.gltfpbr",
      "net.kelvo.material.class.materialmapping.corvane.to.obj",
      "net.kelvo.material.materialimport.nodematerial",
      "net.kelvo.material.class.materialexport.mmaterial"};
  ASSERT_GE(classes.size(), expected.size());
  EXPECT_EQ(std::vector<std::string>(classes.begin(), classes.begin() + 9), expected);
  const std::vector<std::string> expectedRegister = {
      "net.kelvo.exchange.interface.globalimport", "net.kelvo.exchange.interface.globalutils",
      "net.kelvo.material.interface.materialexport", "net.kelvo.material.registry.materialexporters",
      "net.kelvo.material.interface.materialimport", "net.kelvo.material.registry.materialimporters",
      "net.kelvo.material.interface.materialmapping", "net.kelvo.material.registry.materialmappers",
      "net.kelvo.material.interface.parameterstorage", "net.kelvo.material.datatype.materialexportdescription",
      "net.kelvo.material.datatype.materialimportdescription",
      "net.kelvo.material.datatype.materialmappingdescription"};
  ASSERT_GE(registerUnit.size(), expectedRegister.size());
  EXPECT_EQ(std::vector<std::string>(registerUnit.begin(), registerUnit.begin() + 12), expectedRegister);
  // Every declaration of the main unit comes before every declaration of the register unit.
  bool seenRegister = false;
  for (const auto& d : framework->Declarations()) {
    seenRegister = seenRegister || d.unit == "register";
    if (seenRegister) {
      EXPECT_NE(d.unit, "main") << d.id;
    }
  }
  host.components().RemoveModule("probe");
}

}  // namespace
