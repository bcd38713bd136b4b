// The `register` unit: the material-exchange interfaces, registries and data
// types this module defines for the host and other modules.
#include "frame/module.h"
#include "vex/interfaces.h"
#include "vex/material.h"

namespace interop {
namespace {

struct RegisterUnit {
  static constexpr std::string_view kUnit = "register";
  RegisterUnit() {
    using vex::DeclarationKind;
    auto& fw = g_kelvo;
    const std::string unit(kUnit);
    auto declare = [&](DeclarationKind kind, std::string_view id, std::string_view related = {}) {
      fw.Declare({kind, std::string(id), unit, std::string(related)});
    };
    declare(DeclarationKind::Interface, vex::IGlobalImport::kInterfaceId);
    declare(DeclarationKind::Interface, vex::IGlobalUtils::kInterfaceId);
    declare(DeclarationKind::Interface, vex::IMaterialExport::kInterfaceId);
    declare(DeclarationKind::Registry, vex::registry::kMaterialExporters);
    declare(DeclarationKind::Interface, vex::IMaterialImport::kInterfaceId);
    declare(DeclarationKind::Registry, vex::registry::kMaterialImporters);
    declare(DeclarationKind::Interface, vex::IMaterialMapping::kInterfaceId);
    declare(DeclarationKind::Registry, vex::registry::kMaterialMappers);
    declare(DeclarationKind::Interface, vex::ParameterSet::kInterfaceId);
    declare(DeclarationKind::DataType, vex::MaterialExportDescription::kDataTypeId,
            "kelvo::material::MaterialExportDescription");
    declare(DeclarationKind::DataType, vex::MaterialImportDescription::kDataTypeId,
            "kelvo::material::MaterialImportDescription");
    declare(DeclarationKind::DataType, vex::MaterialMappingDescription::kDataTypeId,
            "kelvo::material::MaterialMappingDescription");
    // The module also defines the accepted-types map and the Substance reference (parameter model).
    declare(DeclarationKind::DataType, vex::MaterialTypesMap::kDataTypeId, "kelvo::material::MaterialTypesMap");
    declare(DeclarationKind::DataType, vex::SubstanceReference::kDataTypeId, "kelvo::material::SubstanceReference");
  }
  ~RegisterUnit() { g_kelvo.Withdraw(kUnit); }
};

RegisterUnit s_registerUnit INTEROP_UNIT_PRIORITY(kRegisterUnitPriority);

}  // namespace
}  // namespace interop
