// Entry function and life cycle of the module, and the `main` unit's static
// declarations: the component classes the module publishes.
#include <cstdint>
#include <new>

#include "exchange/allplan_main.h"
#include "exchange/archicad_exchange.h"
#include "exchange/updatemerge_dialog.h"
#include "frame/module.h"
#include "material/materialexport_mmaterial.h"
#include "material/materialimport_nodematerial.h"
#include "material/mapping/mappings.h"
#include "vex/host.h"
#include "vex/interfaces.h"
#include "vex/module_entry.h"

#define INTEROP_EXPORT extern "C" __attribute__((visibility("default")))

// constinit: the declarations of every unit land here during static initialisation, whatever
// the order of the units' own initialisers.
extern "C" {
__attribute__((visibility("default"))) constinit vex::ModuleFramework g_kelvo{};
__attribute__((visibility("default"))) constinit vex::entry::CpuYieldDelegate g_CpuYieldDelegate = nullptr;
}

namespace interop {
namespace {

using namespace vex::entry;

int g_initCount = 0;
ModuleContext* g_context = nullptr;
vex::HostApi g_boundApi;  // the module's own copy of the host's tables

constexpr std::int32_t kAllplanSaverId = 1016440;
constexpr std::int32_t kUpdateMergeHookId = 465001602;

// --- life cycle ---------------------------------------------------------------------------

std::int32_t SystemInit(void* p1, void* p3) {
  if (g_initCount++ > 0) return kOk;
  const auto* api = static_cast<const vex::HostApi*>(p1);
  if (api == nullptr || p3 == nullptr || api->apiVersion < vex::HostApi::kMinimumApiVersion) {
    // A refused initialisation leaves the module as if it had never been initialised.
    g_initCount = 0;
    return kRefused;
  }
  g_boundApi = *api;
  vex::BindHost(&g_boundApi);
  g_context = new (std::nothrow) ModuleContext{};
  if (g_context != nullptr) g_context->host = *static_cast<const vex::ModuleHostContext*>(p3);
  return kOk;
}

void EndRoutine() {}

std::int32_t End() {
  if (g_initCount == 0) return kOk;
  if (--g_initCount > 0) return kOk;
  EndRoutine();
  exchange::ReleaseArchiCadExchange();
  if (g_context != nullptr) g_context->strings = {};  // release the resource strings
  delete g_context;
  g_context = nullptr;
  vex::BindHost(nullptr);
  return kOk;
}

// --- start and messages ----------------------------------------------------------------------

bool StartRoutine() {
  if (!vex::IsHostBound()) return false;
  auto& plugins = *vex::Host().plugins;
  vex::SceneSaverRegistration saver;
  saver.id = kAllplanSaverId;
  saver.name = GetString(10000);
  saver.infoFlags = 0x100000;
  saver.suffix = "xml";
  saver.formatName = "Allplan";
  saver.allocate = &exchange::AllocateAllplanSaver;
  if (!plugins.RegisterSceneSaver(saver)) return false;
  if (!exchange::RegisterArchiCadExchange()) return false;
  vex::SceneHookRegistration merge;
  merge.id = kUpdateMergeHookId;
  merge.name = "UpdateMerge Hook";
  merge.infoFlags = 0;
  merge.priority = 0;
  merge.lastOption = 1;
  merge.hook = exchange::MakeUpdateMergeHook();
  return plugins.RegisterSceneHook(merge);
}

bool MessageRoutine(std::int32_t id, void* data) {
  switch (id) {
    case kMsgNone:
      return true;
    case kMsgLoadResources: {
      if (!LoadResources()) return false;
      if (data != nullptr) static_cast<ResourceMessageData*>(data)->pointer = nullptr;
      return true;
    }
    case kMsgEndActivity:
      exchange::ArchiCadHandBackAll();
      return false;
    case kMsgBuildMenu:
      exchange::ArchiCadInsertMenu();
      return false;
    default:
      return false;
  }
}

}  // namespace

ModuleContext* Context() { return g_context; }

bool LoadResources() {
  if (g_context == nullptr || !vex::IsHostBound()) return false;
  if (g_context->stringsLoaded) return true;
  auto strings = vex::Host().resources->LoadModuleStrings(g_context->host);
  if (!strings) return false;
  g_context->strings = std::move(*strings);
  g_context->stringsLoaded = true;
  return true;
}

std::string GetString(std::int32_t id) {
  if (g_context == nullptr) return std::string(vex::StringTable::kNotFound);
  if (!g_context->stringsLoaded) LoadResources();
  return g_context->strings.Get(id);
}

// --- static declarations of the `main` unit ---------------------------------------------------
namespace {

vex::Data MappingRecord(std::string_view source, std::string_view target) {
  return vex::Data::MakeCustom(vex::MaterialMappingDescription{vex::Id(source), vex::Id(target)});
}

struct MainUnit {
  static constexpr std::string_view kUnit = "main";
  MainUnit() {
    using vex::DeclarationKind;
    auto& fw = g_kelvo;
    // Host declarations this unit uses.
    for (const char* ref : {"net.kelvo.declarations.objects", "net.kelvo.declarations.gradients",
                            "net.kelvo.declarations.pixelformats", "net.kelvo.declarations.colorprofiles",
                            "net.kelvo.declarations.materialparameters", "net.kelvo.declarations.materialmappings",
                            "net.kelvo.declarations.materialexport", "net.kelvo.declarations.materialexportdata",
                            "net.kelvo.declarations.nodematerialexchange", "net.kelvo.declarations.nodespaces",
                            "net.kelvo.declarations.nodegraphs", "net.kelvo.declarations.nodetemplates",
                            "net.kelvo.declarations.materialimport", "net.kelvo.declarations.objectmodel",
                            "net.kelvo.declarations.objectmodeldata", "net.kelvo.declarations.globalimport",
                            "net.kelvo.declarations.globalimportdata", "net.kelvo.declarations.globalimporttypes",
                            "net.kelvo.declarations.globalimportregistry", "net.kelvo.declarations.globalimportutils",
                            "net.kelvo.declarations.globalimportpresenter"})
      fw.Declare({DeclarationKind::Reference, ref, std::string(kUnit)});
    fw.Declare({DeclarationKind::UnitDependency, ".materialexport_mmaterial", std::string(kUnit)});
    fw.Declare({DeclarationKind::UnitDependency, ".materialimport_material", std::string(kUnit)});
    fw.Declare({DeclarationKind::RegistryEntry, "net.kelvo.vex.exchanges", std::string(kUnit),
                std::string(vex::registry::kReplaceModule)});

    using namespace vex::bundle;
    const auto mapping = vex::IMaterialMapping::kInterfaceId;
    const auto mappers = vex::registry::kMaterialMappers;
    for (const auto& m : mapping::kMappingClasses)
      vex::DeclareClass(fw, kUnit, m.classId, mapping, m.factory, mappers, MappingRecord(m.source, m.target));
    vex::DeclareClass(fw, kUnit, material::kImporterClassId, vex::IMaterialImport::kInterfaceId,
                      &material::CreateNodeMaterialImporter, vex::registry::kMaterialImporters,
                      vex::Data::MakeCustom(material::ImporterRegistrationRecord()));
    vex::DeclareClass(fw, kUnit, material::kExporterClassId, vex::IMaterialExport::kInterfaceId,
                      &material::CreateMaterialExporter, vex::registry::kMaterialExporters,
                      vex::Data::MakeCustom(material::ExporterRegistrationRecord()));
  }
  ~MainUnit() { g_kelvo.Withdraw(kUnit); }
};

MainUnit s_mainUnit INTEROP_UNIT_PRIORITY(kMainUnitPriority);

}  // namespace
}  // namespace interop

INTEROP_EXPORT std::int32_t vex_main(std::int32_t action, void* p1, void* p2, void* p3) {
  using namespace vex::entry;
  switch (action) {
    case kSystemInit:
      return interop::SystemInit(p1, p3);
    case kStart:
      return interop::StartRoutine() ? kOk : kFailed;
    case kEnd:
      return interop::End();
    case kQuery:
      return kQueryAnswer;
    case kMessage:
      return interop::MessageRoutine(static_cast<std::int32_t>(reinterpret_cast<std::intptr_t>(p1)), p2) ? kOk
                                                                                                        : kUnhandled;
    default:
      return kUnhandled;
  }
}
