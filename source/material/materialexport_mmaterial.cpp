// PENDING: the exporter's behaviour lands with the material export issue.
#include "material/materialexport_mmaterial.h"

#include "vex/interfaces.h"

namespace interop::material {
namespace {

class MaterialExporter final : public vex::ComponentBase<vex::IMaterialExport> {
 public:
  std::string_view ClassId() const override { return kExporterClassId; }
  vex::Result<void> Initialize(const vex::MaterialRef&, const vex::DataDictionary&) override {
    return VEX_FAIL(vex::ErrorKind::Unknown, "Material export is not available in this build");
  }
  vex::Result<vex::ParameterSetRef> GetParameters() override {
    return VEX_FAIL(vex::ErrorKind::Unknown, "Material export is not available in this build");
  }
  vex::Result<vex::TextureResult> GetTextures(const vex::TextureRequest&) override {
    return VEX_FAIL(vex::ErrorKind::Unknown, "Material export is not available in this build");
  }
  vex::Result<vex::ParameterSetRef> Export(const vex::MaterialRef& m, const vex::DataDictionary& d) override {
    VEX_TRY(Initialize(m, d));
    return GetParameters();
  }
  std::int32_t GetSupportedMaterialType() const override { return vex::kStandardMaterialType; }
};

}  // namespace

vex::Result<vex::ComponentRef> CreateMaterialExporter() { return vex::MakeComponent<MaterialExporter>(); }

const vex::MaterialExportDescription& ExporterRegistrationRecord() {
  static const vex::MaterialExportDescription record{vex::kStandardMaterialType, vex::Id(kExporterClassId)};
  return record;
}

}  // namespace interop::material
