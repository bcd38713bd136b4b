// Node material export: the space exporter, the exchange exporter and the node
// sub-exporter that owns one of them.
#include "material/materialexport_mmaterial_nodes.h"

#include <new>
#include <string>
#include <utility>
#include <vector>

#include "material/nodematerialbaker.h"
#include "vex/host.h"
#include "vex/lookup.h"

namespace interop::material {
namespace {

/// An id value of a description or an attribute (written as an Id or as a string).
std::optional<vex::Id> AsId(const vex::Data& data) {
  if (const auto* id = data.Get<vex::Id>()) return *id;
  if (const auto* s = data.Get<std::string>()) return vex::Id(*s);
  return std::nullopt;
}

vex::Result<vex::Id> ReadSpaceId(const vex::DataDictionary& description) {
  const vex::Data* d = description.Find(vex::exportkey::kSpaceId);
  if (d == nullptr) return VEX_FAIL(vex::ErrorKind::NotFound, "Key not found: spaceId");
  auto id = AsId(*d);
  if (!id) return VEX_FAIL(vex::ErrorKind::WrongDataType, "Wrong data type for key: spaceId");
  return *id;
}

vex::Result<const vex::INodeSpace*> FindSpace(const vex::Id& spaceId) {
  VEX_CHECK_STATE(vex::Host().materials != nullptr);
  return vex::Host().materials->FindNodeSpace(spaceId.View());
}

/// An id attribute of a space; an empty id when the space does not set it.
vex::Result<vex::Id> IdAttribute(const vex::INodeSpace& space, std::string_view attribute) {
  auto value = space.GetAttribute(attribute);
  if (!value) {
    if (value.error().kind == vex::ErrorKind::NotFound) return vex::Id();
    return std::unexpected(std::move(value).error());
  }
  auto id = AsId(*value);
  if (!id) return VEX_FAIL(vex::ErrorKind::WrongDataType, "Wrong data type for attribute: " + std::string(attribute));
  return *id;
}

vex::Result<vex::MaterialTypesMap> ReadMaterialTypes(const vex::DataDictionary& description) {
  const vex::Data* d = description.Find(vex::exportkey::kMaterialTypes);
  if (d == nullptr) return vex::MaterialTypesMap{};
  const auto* map = d->Get<vex::MaterialTypesMap>();
  if (map == nullptr) return VEX_FAIL(vex::ErrorKind::WrongDataType, "Wrong data type for key: materialTypes");
  return *map;
}

// --- space exporter ----------------------------------------------------------------------------

class SpaceExporter final : public SubExporter {
 public:
  vex::Result<void> Create(const vex::MaterialRef& material, const vex::DataDictionary& description) {
    VEX_ASSIGN(const vex::Id spaceId, ReadSpaceId(description));
    VEX_ASSIGN(const vex::INodeSpace* space, FindSpace(spaceId));
    VEX_ASSIGN(const vex::Id exportClass, IdAttribute(*space, vex::nodespace::kExportClassAttribute));
    const vex::NodeGraph* graph = material->GetGraph(spaceId.View());
    vex::IDocument* baseDocument = material->GetDocument();
    VEX_CHECK_STATE(baseDocument != nullptr);
    VEX_CHECK_STATE(graph != nullptr);
    VEX_ASSIGN(_nodesExporter, vex::CreateAs<vex::INodeMaterialExport>(exportClass.View()));
    return _nodesExporter->Initialize(*graph, *baseDocument, description);
  }

  vex::Result<vex::ParameterSetRef> GetParameters() override {
    VEX_CHECK_STATE(_nodesExporter != nullptr);
    return _nodesExporter->GetParameters();
  }

  vex::Result<vex::TextureResult> GetTextures(const vex::TextureRequest& request) override {
    VEX_CHECK_STATE(_nodesExporter != nullptr);
    return _nodesExporter->GetTextures(request);
  }

 private:
  std::shared_ptr<vex::INodeMaterialExport> _nodesExporter;
};

// --- exchange exporter -------------------------------------------------------------------------

class ExchangeExporter final : public SubExporter {
 public:
  vex::Result<void> Create(const vex::MaterialRef& material, const vex::DataDictionary& description) {
    _material = material;
    VEX_ASSIGN(_spaceId, ReadSpaceId(description));
    VEX_ASSIGN(const vex::INodeSpace* space, FindSpace(_spaceId));
    std::vector<vex::Id> spaceBundles;
    if (auto list = space->GetAttribute(vex::nodespace::kExchangeBundlesAttribute); list) {
      const auto* ids = list->Get<vex::DataArray>();
      if (ids == nullptr)
        return VEX_FAIL(vex::ErrorKind::WrongDataType,
                        "Wrong data type for attribute: " + std::string(vex::nodespace::kExchangeBundlesAttribute));
      for (const auto& e : *ids)
        if (auto id = AsId(e)) spaceBundles.push_back(std::move(*id));
    } else if (list.error().kind != vex::ErrorKind::NotFound) {
      return std::unexpected(std::move(list).error());
    }
    VEX_ASSIGN(const vex::MaterialTypesMap materialTypes, ReadMaterialTypes(description));

    const vex::Id targetMaterialTypeId = ChooseTargetBundle(spaceBundles, materialTypes);
    VEX_CHECK_STATE(targetMaterialTypeId.IsPopulated() == true);
    _target = targetMaterialTypeId;

    if (const vex::Data* d = description.Find(vex::exportkey::kTextureDimensions)) {
      if (const auto* n = d->Get<std::int64_t>()) _textureDimensions = *n;
      else if (const auto* m = d->Get<std::int32_t>()) _textureDimensions = *m;
      else return VEX_FAIL(vex::ErrorKind::WrongDataType, "Wrong data type for key: textureDimensions");
    }
    if (const vex::Data* d = description.Find(vex::exportkey::kTextureResize)) {
      const auto* n = d->Get<std::int32_t>();
      if (n == nullptr) return VEX_FAIL(vex::ErrorKind::WrongDataType, "Wrong data type for key: textureResize");
      _textureResize = *n;
    }

    VEX_CHECK_STATE(this->PrivateGetGraph());
    const vex::GraphNode* endNode = PrivateGetGraph()->EndNode();
    VEX_CHECK_STATE(endNode != nullptr);

    VEX_ASSIGN(const vex::Id exchangeClass, IdAttribute(*space, vex::nodespace::kExchangeClassAttribute));
    VEX_ASSIGN(auto exchange, vex::CreateAs<vex::IMaterialExchange>(exchangeClass.View()));
    VEX_ASSIGN(_parameters, exchange->Exchange(vex::Id(vex::nodespace::kExportIntent), *PrivateGetGraph(), *endNode,
                                               _target));
    return {};
  }

  vex::Result<vex::ParameterSetRef> GetParameters() override {
    auto set = std::shared_ptr<vex::ParameterSet>(new (std::nothrow) vex::ParameterSet(_target));
    if (!set) return VEX_FAIL(vex::ErrorKind::OutOfMemory, "Out of memory");
    for (const auto& p : _parameters) set->Set(p.port, p.value);
    return vex::ParameterSetRef(std::move(set));
  }

  vex::Result<vex::TextureResult> GetTextures(const vex::TextureRequest& request) override {
    VEX_CHECK_STATE(this->PrivateGetGraph());
    const vex::NodeGraph& graph = *PrivateGetGraph();
    const vex::GraphNode* endNode = graph.EndNode();
    VEX_CHECK_STATE(endNode != nullptr);
    bool colorData = false;
    if (auto bundle = vex::Host().bundles->Find(_target.View()); bundle)
      if (const vex::PortDeclaration* known = (*bundle)->FindPort(request.port)) colorData = known->color;
    BakeSettings settings;
    settings.dimensions = _textureDimensions;
    settings.resize = static_cast<vex::TextureResize>(_textureResize);
    VEX_ASSIGN(auto buffer, BakeNodeInput(graph, *endNode, request.port, settings, _material->GetDocument(), colorData));
    vex::TextureResult result;
    result.present = true;
    result.textures.emplace_back(request.port, std::move(buffer));
    return result;
  }

 private:
  const vex::NodeGraph* PrivateGetGraph() const { return _material ? _material->GetGraph(_spaceId.View()) : nullptr; }

  vex::MaterialRef _material;
  vex::Id _spaceId;
  vex::Id _target;
  std::int64_t _textureDimensions = 1024;
  std::int32_t _textureResize = static_cast<std::int32_t>(vex::TextureResize::Stretch);
  std::vector<vex::PackedMaterialParameter> _parameters;
};

// --- node sub-exporter -------------------------------------------------------------------------

class NodeExporter final : public SubExporter {
 public:
  explicit NodeExporter(SubExporterRef exporter) : _exporter(std::move(exporter)) {}

  vex::Result<vex::ParameterSetRef> GetParameters() override {
    VEX_CHECK_STATE(_exporter != nullptr);
    return _exporter->GetParameters();
  }

  vex::Result<vex::TextureResult> GetTextures(const vex::TextureRequest& request) override {
    VEX_CHECK_STATE(_exporter != nullptr);
    return _exporter->GetTextures(request);
  }

 private:
  SubExporterRef _exporter;
};

template <class T>
vex::Result<SubExporterRef> Build(const vex::MaterialRef& material, const vex::DataDictionary& description) {
  auto exporter = std::shared_ptr<T>(new (std::nothrow) T());
  if (!exporter) return VEX_FAIL(vex::ErrorKind::OutOfMemory, "Out of memory");
  VEX_TRY(exporter->Create(material, description));
  return SubExporterRef(std::move(exporter));
}

}  // namespace

vex::Id ChooseTargetBundle(const std::vector<vex::Id>& spaceBundles, const vex::MaterialTypesMap& accepted) {
  vex::Id fallback;
  for (const auto& bundle : spaceBundles) {
    const auto value = accepted.Find(bundle);
    if (!value) continue;
    if (*value == 0) return bundle;
    fallback = bundle;
  }
  return fallback;
}

vex::Result<SubExporterRef> CreateNodeExporter(const vex::MaterialRef& material, const vex::DataDictionary& description) {
  VEX_CHECK_ARGUMENT(material != nullptr);
  VEX_ASSIGN(const vex::Id spaceId, ReadSpaceId(description));
  VEX_ASSIGN(const vex::INodeSpace* space, FindSpace(spaceId));
  VEX_ASSIGN(const vex::Id exportClass, IdAttribute(*space, vex::nodespace::kExportClassAttribute));
  vex::Result<SubExporterRef> built = exportClass.IsPopulated() ? Build<SpaceExporter>(material, description)
                                                                : Build<ExchangeExporter>(material, description);
  if (!built) return std::unexpected(std::move(built).error());
  auto node = std::shared_ptr<NodeExporter>(new (std::nothrow) NodeExporter(std::move(*built)));
  if (!node) return VEX_FAIL(vex::ErrorKind::OutOfMemory, "Out of memory");
  return SubExporterRef(std::move(node));
}

}  // namespace interop::material
