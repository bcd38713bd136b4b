// The reference host's materials: channel materials with their shaders and
// Substance assets, node materials with one graph per node space, the node
// spaces the host ships (with their exchange and export classes), and the
// material system the module reaches through vex::Host().materials.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/scene.h"
#include "vex/component.h"
#include "vex/material_host.h"

namespace host {

class ComponentSystem;
class Configuration;

/// A shader linked into a channel: its type, its parameters and its asset link.
class Shader final : public vex::IShader {
 public:
  explicit Shader(std::int32_t type) : type_(type) {}
  std::int32_t GetType() const override { return type_; }
  vex::Result<vex::Data> GetParameter(std::int32_t id) const override;
  const vex::SubstanceAsset* GetAssetLink(std::int32_t id) const override;

  vex::ParamContainer& MutableParameters() { return parameters_; }
  const vex::ParamContainer& Parameters() const { return parameters_; }
  /// Links an asset at `id` (nullptr clears the link).
  void SetAssetLink(std::int32_t id, std::shared_ptr<const vex::SubstanceAsset> asset);
  const std::vector<std::pair<std::int32_t, std::shared_ptr<const vex::SubstanceAsset>>>& AssetLinks() const {
    return assets_;
  }

 private:
  std::int32_t type_;
  vex::ParamContainer parameters_;
  std::vector<std::pair<std::int32_t, std::shared_ptr<const vex::SubstanceAsset>>> assets_;
};

/// One host material. A material made by MakeMaterial is outside any document until it is
/// inserted with MaterialStore::Insert.
class Material final : public vex::IMaterial {
 public:
  Material(std::int32_t type, std::string name) : type_(type), name_(std::move(name)) {}

  std::int32_t GetType() const override { return type_; }
  std::string GetName() const override { return name_; }
  bool IsNodeBased() const override { return nodeBased_; }
  vex::IDocument* GetDocument() const override;
  vex::Result<vex::Data> GetParameter(std::int32_t id) const override;
  const vex::IShader* GetLink(std::int32_t id, std::int32_t type) const override;
  const vex::NodeGraph* GetGraph(std::string_view spaceId) const override;

  void SetName(std::string name) { name_ = std::move(name); }
  void SetNodeBased(bool nodeBased) { nodeBased_ = nodeBased; }
  vex::ParamContainer& MutableParameters() { return parameters_; }
  const vex::ParamContainer& Parameters() const { return parameters_; }
  /// Links a shader at `id` (nullptr clears the link).
  void SetLink(std::int32_t id, std::shared_ptr<Shader> shader);
  const std::vector<std::pair<std::int32_t, std::shared_ptr<Shader>>>& Links() const { return links_; }
  /// Sets (or replaces) the graph of a node space.
  void SetGraph(std::string spaceId, vex::NodeGraph graph);
  const std::vector<std::pair<std::string, vex::NodeGraph>>& Graphs() const { return graphs_; }

 private:
  friend class MaterialStore;
  std::int32_t type_;
  std::string name_;
  bool nodeBased_ = false;
  Document* document_ = nullptr;
  vex::ParamContainer parameters_;
  std::vector<std::pair<std::int32_t, std::shared_ptr<Shader>>> links_;
  std::vector<std::pair<std::string, vex::NodeGraph>> graphs_;
};

/// A texture an import made for a document, saved beside the scene file under `file`.
struct PendingTexture {
  std::string file;  ///< relative to the document's directory
  vex::TextureBuffer pixels;
};

/// The materials of one document and the Substance assets they link to.
class MaterialStore {
 public:
  explicit MaterialStore(Document& document) : document_(document) {}
  /// Adds a material that is outside any document; fails for one that already has a document.
  vex::Result<Material*> Insert(std::shared_ptr<Material> material);
  const std::vector<std::shared_ptr<Material>>& All() const { return materials_; }
  /// The first material of that name; nullptr when there is none.
  Material* Find(std::string_view name) const;

  std::shared_ptr<vex::SubstanceAsset> AddAsset(vex::SubstanceAsset asset);
  std::shared_ptr<vex::SubstanceAsset> FindAsset(std::string_view name) const;
  const std::vector<std::shared_ptr<vex::SubstanceAsset>>& Assets() const { return assets_; }

  std::vector<PendingTexture>& PendingTextures() { return pending_; }
  bool IsEmpty() const { return materials_.empty() && assets_.empty(); }

 private:
  Document& document_;
  std::vector<std::shared_ptr<Material>> materials_;
  std::vector<std::shared_ptr<vex::SubstanceAsset>> assets_;
  std::vector<PendingTexture> pending_;
};

/// A standalone material (outside any document).
std::shared_ptr<Material> MakeMaterial(std::int32_t type, std::string name);

/// A node space with its attributes. It remembers which attributes were asked for.
class NodeSpace final : public vex::INodeSpace {
 public:
  NodeSpace(std::string id, vex::DataDictionary attributes) : id_(std::move(id)), attributes_(std::move(attributes)) {}
  std::string_view GetId() const override { return id_; }
  vex::Result<vex::Data> GetAttribute(std::string_view attributeId) const override;
  const std::vector<std::string>& Queries() const { return queries_; }
  void ClearQueries() { queries_.clear(); }
  vex::DataDictionary& MutableAttributes() { return attributes_; }

 private:
  std::string id_;
  vex::DataDictionary attributes_;
  mutable std::vector<std::string> queries_;
};

/// Classes of the host's node spaces (published under the host's own name, "vexon").
namespace hostclass {
inline constexpr std::string_view kCorvaneExchange = "com.corvane3d.corvane4vex.class.materialexchange";
inline constexpr std::string_view kViewportExchange = "net.kelvo.nodes.class.viewportmaterialexchange";
inline constexpr std::string_view kPreviewExport = "net.vexon.nodes.class.previewmaterialexport";
}  // namespace hostclass

/// The preview space: a simple diffuse/emission space that brings its own export class, which
/// exports the end node's "color", "emission" and "opacity" into the generic bundle.
inline constexpr std::string_view kPreviewSpace = "net.vexon.nodes.nodespace.preview";
inline constexpr std::string_view kPreviewMaterialNode = "net.vexon.nodes.node.previewmaterial";

class MaterialSystem final : public vex::IMaterialSystem {
 public:
  MaterialSystem();
  ~MaterialSystem() override;
  MaterialSystem(const MaterialSystem&) = delete;
  MaterialSystem& operator=(const MaterialSystem&) = delete;

  /// Publishes the node spaces' exchange and export classes in the component system.
  vex::Result<void> PublishClasses(ComponentSystem& components, Configuration& config);

  vex::Result<const vex::INodeSpace*> FindNodeSpace(std::string_view spaceId) const override;
  vex::Result<vex::MaterialRef> CreateNodeMaterial(vex::IDocument& document, std::string name,
                                                   std::string_view spaceId, vex::NodeGraph graph) override;
  vex::Result<std::string> AddDocumentTexture(vex::IDocument& document, std::string_view name,
                                              const vex::TextureBuffer& texture) override;
  bool CheckSubstanceAsset(const vex::SubstanceAsset& asset, const vex::IDocument* document) const override;

  /// Host-side access (tests change attributes and read the query log).
  NodeSpace* Space(std::string_view spaceId);
  /// Adds a space (replacing one of the same id).
  NodeSpace& AddSpace(std::string id, vex::DataDictionary attributes);

 private:
  std::vector<std::unique_ptr<NodeSpace>> spaces_;
  vex::ModuleFramework framework_{};
};

/// Writes the document's pending textures into `directory` (8-bit PNG, colour sRGB-encoded) and
/// forgets them. Returns the files written; on failure the files written so far are removed.
vex::Result<std::vector<std::string>> WritePendingTextures(Document& document, const std::string& directory);

}  // namespace host
