// Material import: a parameter set becomes a Corvane node material of the document.
#include "material/materialimport_nodematerial.h"

#include <new>
#include <string>
#include <variant>

#include "material/mapping/mapping_import.h"
#include "material/materialimport_conversions.h"
#include "vex/host.h"
#include "vex/interfaces.h"
#include "vex/lookup.h"

namespace interop::material {
namespace {

inline constexpr std::string_view kEndNode = "material";
inline constexpr std::string_view kImportedName = "Imported Material";

/// A constant as a node port value.
vex::Data ToData(const vex::PackedConstantParameter& constant) {
  return std::visit(
      [](const auto& v) -> vex::Data {
        using T = std::decay_t<decltype(v)>;
        if constexpr (std::is_same_v<T, std::uint32_t>) return vex::Data(static_cast<std::int64_t>(v));
        else if constexpr (std::is_same_v<T, vex::Url> || std::is_same_v<T, vex::CString>) return vex::Data(v.text);
        else if constexpr (std::is_same_v<T, vex::InternedId>) return vex::Data(v.Str());
        else return vex::Data(v);
      },
      constant.Value());
}

bool IsColorPort(std::string_view port) {
  auto bundle = vex::Host().bundles->Find(vex::bundle::kCorvane);
  const vex::PortDeclaration* known = bundle ? (*bundle)->FindPort(port) : nullptr;
  return known != nullptr && known->color;
}

class NodeMaterialImporter final : public vex::ComponentBase<vex::IMaterialImport> {
 public:
  std::string_view ClassId() const override { return kImporterClassId; }

  vex::Result<vex::MaterialRef> CreateMaterial(vex::IDocument& document, const vex::ParameterSetRef& parameters,
                                               std::string_view nodeSpaceId) override {
    if (nodeSpaceId != kCorvaneNodeSpace)
      return VEX_FAIL(vex::ErrorKind::IllegalArgument,
                      "MapMaterialData (import) cannot handle nodespace for Corvane import: " + std::string(nodeSpaceId));
    VEX_CHECK_ARGUMENT(parameters != nullptr);
    VEX_CHECK_STATE(vex::Host().materials != nullptr);
    VEX_ASSIGN(auto corvane, ConvertToCorvane(parameters));
    VEX_ASSIGN(auto graph, BuildCorvaneGraph(document, *corvane));
    return vex::Host().materials->CreateNodeMaterial(document, std::string(kImportedName), nodeSpaceId,
                                                     std::move(graph));
  }
};

}  // namespace

vex::Result<std::shared_ptr<const vex::ParameterSet>> ConvertToCorvane(const vex::ParameterSetRef& source) {
  VEX_CHECK_ARGUMENT(source != nullptr);
  const vex::Id& bundle = source->GetBundle();
  if (bundle == vex::bundle::kCorvane) return source;
  if (bundle == vex::bundle::kGltf) {
    // The way back of the Corvane-glTF mapping is that mapping's class run on a glTF set.
    VEX_ASSIGN(auto mapping, vex::FindMapping(vex::bundle::kCorvane, vex::bundle::kGltf));
    VEX_ASSIGN(auto output, mapping->MapMaterialData(source));
    return std::shared_ptr<const vex::ParameterSet>(std::move(output.target));
  }
  vex::Result<std::shared_ptr<vex::ParameterSet>> converted = std::shared_ptr<vex::ParameterSet>();
  if (bundle == vex::bundle::kStandardSurface) converted = ImportStandardSurfaceToCorvane(*source);
  else if (bundle == vex::bundle::kFbxLambert || bundle == vex::bundle::kFbxPhong) converted = ImportFbxToCorvane(*source);
  else if (bundle == vex::bundle::kUsdPreviewSurface) converted = ImportUsdPreviewSurfaceToCorvane(*source);
  else if (bundle == vex::bundle::kGeneric) converted = mapping::ImportGenericToCorvane(*source);
  else if (bundle == vex::bundle::kObj) converted = mapping::ImportObjToCorvane(*source);
  else
    return VEX_FAIL(vex::ErrorKind::IllegalArgument,
                    "Illegal argument: no import conversion into Corvane for the bundle \"" + bundle.Str() + "\"");
  if (!converted) return std::unexpected(std::move(converted).error());
  return std::shared_ptr<const vex::ParameterSet>(std::move(*converted));
}

vex::Result<vex::NodeGraph> BuildCorvaneGraph(vex::IDocument& document, const vex::ParameterSet& corvane) {
  VEX_CHECK_STATE(vex::Host().materials != nullptr);
  vex::NodeGraph graph;
  graph.endNode = std::string(kEndNode);
  vex::GraphNode end;
  end.id = std::string(kEndNode);
  end.asset = vex::Id(vex::node::kCorvaneMaterial);
  std::vector<vex::GraphNode> images;
  for (const auto& [port, entry] : corvane.Entries()) {
    if (const auto* substance = std::get_if<vex::SubstanceReference>(&entry.value)) {
      // The renderer's graph has no Substance node: the port keeps its default.
      VEX_DIAGNOSTIC("Material Import: the Substance reference \"" + substance->assetName + "\" on port " + port +
                     " is not imported");
      continue;
    }
    const auto* reference = std::get_if<vex::ImageReference>(&entry.value);
    if (const vex::PackedConstantParameter* constant = entry.Constant()) end.ports.Set(port, ToData(*constant));
    if (reference == nullptr && !entry.IsTextured()) {
      for (std::size_t i = 0; i < entry.properties.Size(); ++i)
        end.ports.Set(port + "." + entry.properties.KeyAt(i), entry.properties.ValueAt(i));
      continue;
    }
    vex::GraphNode image;
    image.id = "image_" + port;
    image.asset = vex::Id(vex::node::kCorvaneImage);
    std::string colorSpace;
    if (reference != nullptr) {
      image.ports.Set("file", reference->url.text);
      colorSpace = reference->colorSpace;
    } else {
      VEX_ASSIGN(std::string file, vex::Host().materials->AddDocumentTexture(document, port, *entry.texture));
      image.ports.Set("file", std::move(file));
      colorSpace = entry.texture->colorSpace == "sRGB" ? "sRGB" : "raw";
    }
    for (std::size_t i = 0; i < entry.properties.Size(); ++i)
      image.ports.Set(entry.properties.KeyAt(i), entry.properties.ValueAt(i));
    if (!image.ports.Contains("colorSpace"))
      image.ports.Set("colorSpace", colorSpace.empty() ? std::string(IsColorPort(port) ? "sRGB" : "raw") : colorSpace);
    graph.links.push_back({image.id, end.id, port});
    images.push_back(std::move(image));
  }
  graph.nodes.push_back(std::move(end));
  for (auto& image : images) graph.nodes.push_back(std::move(image));
  return graph;
}

vex::Result<vex::ComponentRef> CreateNodeMaterialImporter() { return vex::MakeComponent<NodeMaterialImporter>(); }

const vex::MaterialImportDescription& ImporterRegistrationRecord() {
  static const vex::MaterialImportDescription record{vex::Id(kCorvaneNodeSpace), vex::Id(kImporterClassId)};
  return record;
}

}  // namespace interop::material
