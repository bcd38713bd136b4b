#include "host/materials.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <new>

#include "host/component_system.h"
#include "host/images.h"
#include "host/services.h"
#include "vex/host.h"

namespace fs = std::filesystem;

namespace host {

// --- shaders and materials ---------------------------------------------------------------------

vex::Result<vex::Data> Shader::GetParameter(std::int32_t id) const {
  const vex::Data* d = parameters_.Find(id);
  if (d == nullptr) return VEX_FAIL(vex::ErrorKind::NotFound, "Shader has no parameter " + std::to_string(id));
  return *d;
}

const vex::SubstanceAsset* Shader::GetAssetLink(std::int32_t id) const {
  for (const auto& [linkId, asset] : assets_)
    if (linkId == id) return asset.get();
  return nullptr;
}

void Shader::SetAssetLink(std::int32_t id, std::shared_ptr<const vex::SubstanceAsset> asset) {
  std::erase_if(assets_, [id](const auto& e) { return e.first == id; });
  if (asset) assets_.emplace_back(id, std::move(asset));
}

vex::IDocument* Material::GetDocument() const { return document_; }

vex::Result<vex::Data> Material::GetParameter(std::int32_t id) const {
  const vex::Data* d = parameters_.Find(id);
  if (d == nullptr) return VEX_FAIL(vex::ErrorKind::NotFound, "Material has no parameter " + std::to_string(id));
  return *d;
}

const vex::IShader* Material::GetLink(std::int32_t id, std::int32_t type) const {
  for (const auto& [linkId, shader] : links_) {
    if (linkId != id) continue;
    // Every shader is of the shader base type; any other type must match exactly.
    if (type == vex::kShaderBaseType || shader->GetType() == type) return shader.get();
    return nullptr;
  }
  return nullptr;
}

const vex::NodeGraph* Material::GetGraph(std::string_view spaceId) const {
  for (const auto& [space, graph] : graphs_)
    if (space == spaceId) return &graph;
  return nullptr;
}

void Material::SetLink(std::int32_t id, std::shared_ptr<Shader> shader) {
  std::erase_if(links_, [id](const auto& e) { return e.first == id; });
  if (shader) links_.emplace_back(id, std::move(shader));
}

void Material::SetGraph(std::string spaceId, vex::NodeGraph graph) {
  for (auto& [space, existing] : graphs_)
    if (space == spaceId) {
      existing = std::move(graph);
      return;
    }
  graphs_.emplace_back(std::move(spaceId), std::move(graph));
}

std::shared_ptr<Material> MakeMaterial(std::int32_t type, std::string name) {
  return std::make_shared<Material>(type, std::move(name));
}

// --- the document's store ----------------------------------------------------------------------

vex::Result<Material*> MaterialStore::Insert(std::shared_ptr<Material> material) {
  if (!material) return VEX_FAIL(vex::ErrorKind::IllegalArgument, "Illegal argument: no material to insert");
  if (material->document_ != nullptr)
    return VEX_FAIL(vex::ErrorKind::IllegalState,
                    "Illegal state: material " + material->GetName() + " already belongs to a document");
  material->document_ = &document_;
  materials_.push_back(std::move(material));
  document_.SetChanged(true);
  return materials_.back().get();
}

Material* MaterialStore::Find(std::string_view name) const {
  for (const auto& m : materials_)
    if (m->GetName() == name) return m.get();
  return nullptr;
}

std::shared_ptr<vex::SubstanceAsset> MaterialStore::AddAsset(vex::SubstanceAsset asset) {
  assets_.push_back(std::make_shared<vex::SubstanceAsset>(std::move(asset)));
  return assets_.back();
}

std::shared_ptr<vex::SubstanceAsset> MaterialStore::FindAsset(std::string_view name) const {
  for (const auto& a : assets_)
    if (a->name == name) return a;
  return nullptr;
}

MaterialStore& Document::Materials() {
  if (!materials_) materials_ = std::make_shared<MaterialStore>(*this);
  return *materials_;
}

// --- node spaces -------------------------------------------------------------------------------

vex::Result<vex::Data> NodeSpace::GetAttribute(std::string_view attributeId) const {
  queries_.emplace_back(attributeId);
  const vex::Data* d = attributes_.Find(attributeId);
  if (d == nullptr)
    return VEX_FAIL(vex::ErrorKind::NotFound, "Node space " + id_ + " has no attribute " + std::string(attributeId));
  return *d;
}

namespace {

/// A constant of the port's type from a node's port value. Whole numbers are accepted for Float
/// ports and three or four numbers for colours, as hand-written scene files hold them.
vex::Result<vex::PackedConstantParameter> ToConstant(const vex::Data& value, vex::ConstantType type,
                                                      const std::string& where) {
  using T = vex::ConstantType;
  auto number = [](const vex::Data& d) -> std::optional<double> {
    if (const auto* f = d.Get<double>()) return *f;
    if (const auto* i = d.Get<std::int32_t>()) return *i;
    if (const auto* l = d.Get<std::int64_t>()) return static_cast<double>(*l);
    return std::nullopt;
  };
  auto numbers = [&](std::size_t n) -> std::optional<std::vector<double>> {
    const auto* a = value.Get<vex::DataArray>();
    if (a == nullptr || a->size() != n) return std::nullopt;
    std::vector<double> out;
    for (const auto& e : *a) {
      auto f = number(e);
      if (!f) return std::nullopt;
      out.push_back(*f);
    }
    return out;
  };
  switch (type) {
    case T::Bool:
      if (const auto* b = value.Get<bool>()) return vex::PackedConstantParameter(*b);
      break;
    case T::Int:
      if (const auto* i = value.Get<std::int32_t>()) return vex::PackedConstantParameter(*i);
      break;
    case T::Float:
      if (auto f = number(value)) return vex::PackedConstantParameter(*f);
      break;
    case T::Color:
      if (const auto* c = value.Get<vex::Color>()) return vex::PackedConstantParameter(*c);
      if (auto f = numbers(3)) return vex::PackedConstantParameter(vex::Color{(*f)[0], (*f)[1], (*f)[2]});
      break;
    case T::ColorA:
      if (const auto* c = value.Get<vex::ColorA>()) return vex::PackedConstantParameter(*c);
      if (auto f = numbers(4)) return vex::PackedConstantParameter(vex::ColorA{(*f)[0], (*f)[1], (*f)[2], (*f)[3]});
      break;
    case T::Vector:
      if (const auto* v = value.Get<vex::Vector3d>()) return vex::PackedConstantParameter(*v);
      if (auto f = numbers(3)) return vex::PackedConstantParameter(vex::Vector3d{(*f)[0], (*f)[1], (*f)[2]});
      break;
    case T::String:
      if (const auto* s = value.Get<std::string>()) return vex::PackedConstantParameter(*s);
      break;
    case T::Id:
      if (const auto* id = value.Get<vex::Id>()) return vex::PackedConstantParameter(*id);
      if (const auto* s = value.Get<std::string>()) return vex::PackedConstantParameter(vex::Id(*s));
      break;
    default:
      break;
  }
  return VEX_FAIL(vex::ErrorKind::WrongDataType,
                  "Illegal argument: " + where + " does not hold a value of type " +
                      std::string(vex::ConstantTypeName(type)));
}

/// Properties of a port stored on the end node as "<port>.<property>".
vex::DataDictionary PortProperties(const vex::GraphNode& node, std::string_view port) {
  vex::DataDictionary out;
  const std::string prefix = std::string(port) + ".";
  for (std::size_t i = 0; i < node.ports.Size(); ++i)
    if (node.ports.KeyAt(i).starts_with(prefix)) out.Set(node.ports.KeyAt(i).substr(prefix.size()), node.ports.ValueAt(i));
  return out;
}

bool IsImageNode(const vex::GraphNode& node) {
  return node.asset == vex::node::kImage || node.asset == vex::node::kCorvaneImage;
}

std::string StringPort(const vex::GraphNode& node, std::string_view port) {
  const vex::Data* d = node.ports.Find(port);
  const auto* s = d ? d->Get<std::string>() : nullptr;
  return s ? *s : std::string();
}

/// The exchange class of a space that exchanges in one bundle: the end node's ports by the
/// bundle's vocabulary.
class NodeExchange : public vex::ComponentBase<vex::IMaterialExchange> {
 public:
  NodeExchange(std::string_view classId, std::string_view bundle) : classId_(classId), bundle_(bundle) {}
  std::string_view ClassId() const override { return classId_; }

  vex::Result<std::vector<vex::PackedMaterialParameter>> Exchange(const vex::Id& intent, const vex::NodeGraph& graph,
                                                                  const vex::GraphNode& endNode,
                                                                  const vex::Id& bundle) override {
    if (intent != vex::nodespace::kExportIntent)
      return VEX_FAIL(vex::ErrorKind::IllegalArgument,
                      "Illegal argument: " + std::string(classId_) + " does not support the intent " + intent.Str());
    if (bundle != bundle_)
      return VEX_FAIL(vex::ErrorKind::IllegalArgument, "Illegal argument: " + std::string(classId_) +
                                                           " cannot exchange materials in " + bundle.Str());
    VEX_ASSIGN(const vex::PortBundle* vocabulary, vex::Host().bundles->Find(bundle_));
    std::vector<vex::PackedMaterialParameter> out;
    for (const auto& port : vocabulary->ports) {
      vex::Parameter p;
      if (const vex::GraphNode* source = graph.Source(endNode.id, port.name)) {
        vex::ImageReference ref;
        if (IsImageNode(*source)) {
          ref.url.text = StringPort(*source, "file");
          ref.colorSpace = StringPort(*source, "colorSpace");
        }
        ref.bakePort = port.name;
        p.value = std::move(ref);
      } else if (const vex::Data* value = endNode.ports.Find(port.name)) {
        VEX_ASSIGN(p.value, ToConstant(*value, port.type, "node " + endNode.id + " port " + port.name));
      } else {
        continue;
      }
      p.properties = PortProperties(endNode, port.name);
      out.push_back({port.name, std::move(p)});
    }
    return out;
  }

 private:
  std::string_view classId_;
  std::string_view bundle_;
};

vex::Result<vex::ComponentRef> CreateCorvaneExchange() {
  auto p = std::shared_ptr<NodeExchange>(new (std::nothrow) NodeExchange(hostclass::kCorvaneExchange, vex::bundle::kCorvane));
  if (!p) return VEX_FAIL(vex::ErrorKind::OutOfMemory, "Out of memory");
  return vex::ComponentRef(std::move(p));
}

vex::Result<vex::ComponentRef> CreateViewportExchange() {
  auto p =
      std::shared_ptr<NodeExchange>(new (std::nothrow) NodeExchange(hostclass::kViewportExchange, vex::bundle::kViewport));
  if (!p) return VEX_FAIL(vex::ErrorKind::OutOfMemory, "Out of memory");
  return vex::ComponentRef(std::move(p));
}

/// The preview space's own export class: its end node's "color", "emission" and "opacity" as a
/// set of the generic bundle. It bakes nothing.
class PreviewExport final : public vex::ComponentBase<vex::INodeMaterialExport> {
 public:
  std::string_view ClassId() const override { return hostclass::kPreviewExport; }

  vex::Result<void> Initialize(const vex::NodeGraph& graph, vex::IDocument& document,
                               const vex::DataDictionary& description) override {
    (void)description;
    const vex::GraphNode* end = graph.EndNode();
    if (end == nullptr || end->asset != kPreviewMaterialNode)
      return VEX_FAIL(vex::ErrorKind::IllegalArgument,
                      "Illegal argument: the preview material has no end node of type " + std::string(kPreviewMaterialNode));
    auto set = std::make_shared<vex::ParameterSet>(vex::Id(vex::bundle::kGeneric));
    const struct {
      std::string_view from, to;
      vex::ConstantType type;
    } ports[] = {{"color", vex::ports::generic::diffuseColor, vex::ConstantType::Color},
                 {"emission", vex::ports::generic::emissiveColor, vex::ConstantType::Color},
                 {"opacity", vex::ports::generic::opacityColor, vex::ConstantType::Float}};
    for (const auto& port : ports) {
      if (const vex::GraphNode* source = graph.Source(end->id, port.from); source && IsImageNode(*source)) {
        vex::ImageReference ref;
        ref.url.text = vex::ResolveDocumentPath(StringPort(*source, "file"), &document);
        ref.colorSpace = StringPort(*source, "colorSpace");
        vex::Parameter p;
        p.value = std::move(ref);
        set->Set(port.to, std::move(p));
        continue;
      }
      const vex::Data* value = end->ports.Find(port.from);
      if (value == nullptr) continue;
      VEX_ASSIGN(auto constant, ToConstant(*value, port.type, "node " + end->id + " port " + std::string(port.from)));
      if (const double* grey = constant.Get<double>()) constant = vex::PackedConstantParameter(vex::Color{*grey, *grey, *grey});
      set->Set(port.to, vex::Parameter(std::move(constant)));
    }
    set_ = std::move(set);
    return {};
  }
  vex::Result<vex::ParameterSetRef> GetParameters() override {
    if (!set_) return VEX_FAIL(vex::ErrorKind::IllegalState, "Illegal state: the preview export is not initialised");
    return vex::ParameterSetRef(set_);
  }
  vex::Result<vex::TextureResult> GetTextures(const vex::TextureRequest& request) override {
    (void)request;
    return vex::TextureResult{};
  }

 private:
  std::shared_ptr<vex::ParameterSet> set_;
};

vex::DataDictionary SpaceAttributes(std::string_view exportClass, std::vector<std::string_view> bundles,
                                    std::string_view exchangeClass) {
  vex::DataDictionary a;
  if (!exportClass.empty()) a.Set(std::string(vex::nodespace::kExportClassAttribute), vex::Id(exportClass));
  if (!bundles.empty()) {
    vex::DataArray ids;
    for (const auto b : bundles) ids.emplace_back(vex::Id(b));
    a.Set(std::string(vex::nodespace::kExchangeBundlesAttribute), std::move(ids));
  }
  if (!exchangeClass.empty()) a.Set(std::string(vex::nodespace::kExchangeClassAttribute), vex::Id(exchangeClass));
  return a;
}

constexpr std::string_view kHostModule = "vexon";

}  // namespace

// --- the material system -----------------------------------------------------------------------

MaterialSystem::MaterialSystem() {
  AddSpace(std::string(vex::nodespace::kCorvane), SpaceAttributes({}, {vex::bundle::kCorvane}, hostclass::kCorvaneExchange));
  AddSpace(std::string(vex::nodespace::kViewport),
           SpaceAttributes({}, {vex::bundle::kViewport}, hostclass::kViewportExchange));
  AddSpace(std::string(kPreviewSpace), SpaceAttributes(hostclass::kPreviewExport, {}, {}));
}

MaterialSystem::~MaterialSystem() { framework_.Withdraw(kHostModule); }

vex::Result<void> MaterialSystem::PublishClasses(ComponentSystem& components, Configuration& config) {
  if (framework_.Declarations().empty()) {
    framework_.Declare({vex::DeclarationKind::Interface, std::string(vex::IMaterialExchange::kInterfaceId),
                        std::string(kHostModule)});
    framework_.Declare({vex::DeclarationKind::Interface, std::string(vex::INodeMaterialExport::kInterfaceId),
                        std::string(kHostModule)});
    vex::DeclareClass(framework_, kHostModule, hostclass::kCorvaneExchange, vex::IMaterialExchange::kInterfaceId,
                      &CreateCorvaneExchange);
    vex::DeclareClass(framework_, kHostModule, hostclass::kViewportExchange, vex::IMaterialExchange::kInterfaceId,
                      &CreateViewportExchange);
    vex::DeclareClass(framework_, kHostModule, hostclass::kPreviewExport, vex::INodeMaterialExport::kInterfaceId,
                      &vex::MakeComponent<PreviewExport>);
  }
  VEX_TRY(components.AddModule(std::string(kHostModule), framework_, config));
  return components.InitialiseModule(std::string(kHostModule));
}

vex::Result<const vex::INodeSpace*> MaterialSystem::FindNodeSpace(std::string_view spaceId) const {
  for (const auto& s : spaces_)
    if (s->GetId() == spaceId) return static_cast<const vex::INodeSpace*>(s.get());
  return VEX_FAIL(vex::ErrorKind::NotFound, "Unknown node space: " + std::string(spaceId));
}

NodeSpace* MaterialSystem::Space(std::string_view spaceId) {
  for (const auto& s : spaces_)
    if (s->GetId() == spaceId) return s.get();
  return nullptr;
}

NodeSpace& MaterialSystem::AddSpace(std::string id, vex::DataDictionary attributes) {
  std::erase_if(spaces_, [&](const auto& s) { return s->GetId() == id; });
  spaces_.push_back(std::make_unique<NodeSpace>(std::move(id), std::move(attributes)));
  return *spaces_.back();
}

vex::Result<vex::MaterialRef> MaterialSystem::CreateNodeMaterial(vex::IDocument& document, std::string name,
                                                                 std::string_view spaceId, vex::NodeGraph graph) {
  auto* doc = dynamic_cast<Document*>(&document);
  if (doc == nullptr)
    return VEX_FAIL(vex::ErrorKind::IllegalArgument, "Illegal argument: the document is not one of this host's");
  VEX_TRY(FindNodeSpace(spaceId));
  if (graph.EndNode() == nullptr)
    return VEX_FAIL(vex::ErrorKind::IllegalArgument,
                    "Illegal argument: the graph has no end node \"" + graph.endNode + "\"");
  auto material = MakeMaterial(vex::kStandardMaterialType, std::move(name));
  material->SetNodeBased(true);
  material->SetGraph(std::string(spaceId), std::move(graph));
  VEX_TRY(doc->Materials().Insert(material));
  return vex::MaterialRef(std::move(material));
}

vex::Result<std::string> MaterialSystem::AddDocumentTexture(vex::IDocument& document, std::string_view name,
                                                            const vex::TextureBuffer& texture) {
  auto* doc = dynamic_cast<Document*>(&document);
  if (doc == nullptr)
    return VEX_FAIL(vex::ErrorKind::IllegalArgument, "Illegal argument: the document is not one of this host's");
  if (texture.IsEmpty()) return VEX_FAIL(vex::ErrorKind::IllegalArgument, "Illegal argument: empty texture");
  std::string stem;
  for (const char c : name) stem.push_back(std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-' ? c : '_');
  if (stem.empty()) stem = "texture";
  auto& pending = doc->Materials().PendingTextures();
  const std::string folder = (doc->GetName().empty() ? std::string("scene") : doc->GetName()) + "_textures/";
  std::string file = folder + stem + ".png";
  for (int n = 2; std::any_of(pending.begin(), pending.end(), [&](const auto& p) { return p.file == file; }); ++n)
    file = folder + stem + "_" + std::to_string(n) + ".png";
  pending.push_back({file, texture});
  return file;
}

bool MaterialSystem::CheckSubstanceAsset(const vex::SubstanceAsset& asset, const vex::IDocument* document) const {
  if (asset.file.empty()) return false;
  std::error_code ec;
  return fs::is_regular_file(NativePath(vex::ResolveDocumentPath(asset.file, document)), ec);
}

vex::Result<std::vector<std::string>> WritePendingTextures(Document& document, const std::string& directory) {
  std::vector<std::string> written;
  auto& pending = document.Materials().PendingTextures();
  for (const auto& texture : pending) {
    const fs::path path = fs::path(directory) / texture.file;
    std::error_code ec;
    fs::create_directories(path.parent_path(), ec);
    ImageWriteOptions options;
    options.srgb = texture.pixels.colorSpace == "sRGB";
    if (auto r = WriteImage(path.string(), texture.pixels, options); !r) {
      for (const auto& w : written) fs::remove(w, ec);
      return std::unexpected(std::move(r).error());
    }
    written.push_back(path.string());
  }
  pending.clear();
  return written;
}

}  // namespace host
