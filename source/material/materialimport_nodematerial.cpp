// PENDING: the importer's behaviour lands with the material import issue.
#include "material/materialimport_nodematerial.h"

#include "vex/interfaces.h"

namespace interop::material {
namespace {

class NodeMaterialImporter final : public vex::ComponentBase<vex::IMaterialImport> {
 public:
  std::string_view ClassId() const override { return kImporterClassId; }
  vex::Result<vex::MaterialRef> CreateMaterial(vex::IDocument&, const vex::ParameterSetRef&,
                                               std::string_view) override {
    return VEX_FAIL(vex::ErrorKind::Unknown, "Material import is not available in this build");
  }
};

}  // namespace

vex::Result<vex::ComponentRef> CreateNodeMaterialImporter() { return vex::MakeComponent<NodeMaterialImporter>(); }

const vex::MaterialImportDescription& ImporterRegistrationRecord() {
  static const vex::MaterialImportDescription record{vex::Id(kCorvaneNodeSpace), vex::Id(kImporterClassId)};
  return record;
}

}  // namespace interop::material
