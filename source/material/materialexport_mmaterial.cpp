// The standard material's exporter: checks the material type and hands the work
// to the legacy or the node sub-exporter, which it owns until the next
// Initialize or its end.
#include "material/materialexport_mmaterial.h"

#include "material/materialexport_mmaterial_legacy.h"
#include "material/materialexport_mmaterial_nodes.h"
#include "vex/interfaces.h"

namespace interop::material {
namespace {

class MaterialExporter final : public vex::ComponentBase<vex::IMaterialExport> {
 public:
  std::string_view ClassId() const override { return kExporterClassId; }

  vex::Result<void> Initialize(const vex::MaterialRef& material, const vex::DataDictionary& description) override {
    // Every Initialize replaces the sub-exporter; a failed one leaves none.
    _exporter.reset();
    VEX_CHECK_ARGUMENT(material != nullptr);
    const std::int32_t materialType = material->GetType();
    VEX_CHECK_STATE(materialType == GetSupportedMaterialType());
    vex::Result<SubExporterRef> created = material->IsNodeBased() ? CreateNodeExporter(material, description)
                                                                   : CreateLegacyExporter(material, description);
    if (!created) return std::unexpected(std::move(created).error());
    _exporter = std::move(*created);
    return {};
  }

  vex::Result<vex::ParameterSetRef> GetParameters() override {
    VEX_CHECK_STATE(_exporter != nullptr);
    return _exporter->GetParameters();
  }

  vex::Result<vex::TextureResult> GetTextures(const vex::TextureRequest& request) override {
    VEX_CHECK_STATE(_exporter != nullptr);
    if (request.IsEmpty()) return vex::TextureResult{};
    return _exporter->GetTextures(request);
  }

  vex::Result<vex::ParameterSetRef> Export(const vex::MaterialRef& material,
                                           const vex::DataDictionary& description) override {
    VEX_TRY(Initialize(material, description));
    return GetParameters();
  }

  std::int32_t GetSupportedMaterialType() const override { return vex::kStandardMaterialType; }

 private:
  SubExporterRef _exporter;
};

}  // namespace

vex::Result<vex::ComponentRef> CreateMaterialExporter() { return vex::MakeComponent<MaterialExporter>(); }

const vex::MaterialExportDescription& ExporterRegistrationRecord() {
  static const vex::MaterialExportDescription record{vex::kStandardMaterialType, vex::Id(kExporterClassId)};
  return record;
}

}  // namespace interop::material
