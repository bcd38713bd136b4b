// Host materials as the exchange framework sees them: a material's type, its
// document, whether it is node-based, and its channel parameters.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "vex/data.h"
#include "vex/error.h"
#include "vex/material.h"
#include "vex/scene.h"

namespace vex {

/// Host id of the standard material type.
inline constexpr std::int32_t kStandardMaterialType = 5703;

class IShader;    // below
struct NodeGraph;  // below

class IMaterial {
 public:
  virtual ~IMaterial() = default;
  virtual std::int32_t GetType() const = 0;
  virtual std::string GetName() const = 0;
  virtual bool IsNodeBased() const = 0;
  /// The document holding the material, or nullptr for a material outside any document.
  virtual IDocument* GetDocument() const = 0;
  /// A channel parameter (colour 2100, texture link 8000, ...); NotFound when absent.
  virtual Result<Data> GetParameter(std::int32_t id) const = 0;
  /// The object linked at `id` when it is of `type` (the shader base type 5707 accepts every
  /// shader); nullptr when the link is empty or of another type.
  virtual const IShader* GetLink(std::int32_t id, std::int32_t type) const {
    (void)id;
    (void)type;
    return nullptr;
  }
  /// The material's node graph in a node space; nullptr when it has none there.
  virtual const NodeGraph* GetGraph(std::string_view spaceId) const {
    (void)spaceId;
    return nullptr;
  }
};

using MaterialRef = std::shared_ptr<IMaterial>;

// ---------------------------------------------------------------------------------------------
// Channel materials: parameter and type ids of the host

/// The colour channel's colour value (Color).
inline constexpr std::int32_t kMaterialColorValue = 2100;
/// The colour channel's texture link.
inline constexpr std::int32_t kMaterialColorLink = 8000;
/// The base type of every shader; a channel link counts only when it points to one.
inline constexpr std::int32_t kShaderBaseType = 5707;
/// Shader types.
inline constexpr std::int32_t kBitmapShaderType = 5833;
inline constexpr std::int32_t kSubstanceShaderType = 1032171;
/// On a bitmap shader: its image file (String, relative to the document's directory or absolute).
inline constexpr std::int32_t kBitmapShaderFile = 1010;
/// On a Substance shader: the link to its Substance asset.
inline constexpr std::int32_t kSubstanceShaderAsset = 1000;

/// A Substance asset object of a document: a named archive file.
struct SubstanceAsset {
  std::string name;
  std::string file;  ///< relative to the document's directory or absolute
};

/// A shader linked into a channel of a material.
class IShader {
 public:
  virtual ~IShader() = default;
  /// The shader type (5833 bitmap, 1032171 Substance, or another shader's id).
  virtual std::int32_t GetType() const = 0;
  /// A parameter of the shader; NotFound when absent.
  virtual Result<Data> GetParameter(std::int32_t id) const = 0;
  /// The asset an asset link parameter points to; nullptr when the link is empty.
  virtual const SubstanceAsset* GetAssetLink(std::int32_t id) const = 0;
};

// ---------------------------------------------------------------------------------------------
// Node materials

/// One node of a node graph: its id in the graph, the template it was made from (the asset id,
/// e.g. an image node) and the values of its unconnected ports. A key "<port>.<property>" carries a
/// property of that port's value (e.g. "opacity.mute").
struct GraphNode {
  std::string id;
  Id asset;
  DataDictionary ports;
};

/// A connection: the output of `from` feeds the input port `port` of node `to`.
struct GraphLink {
  std::string from;
  std::string to;
  std::string port;
  bool operator==(const GraphLink&) const = default;
};

/// A material's node graph in one node space, with the id of its material end node.
struct NodeGraph {
  std::vector<GraphNode> nodes;
  std::vector<GraphLink> links;
  std::string endNode;

  const GraphNode* Find(std::string_view id) const {
    for (const auto& n : nodes)
      if (n.id == id) return &n;
    return nullptr;
  }
  const GraphNode* EndNode() const { return Find(endNode); }
  /// The node whose output feeds `port` of node `to`; nullptr when the port is not connected.
  const GraphNode* Source(std::string_view to, std::string_view port) const {
    for (const auto& l : links)
      if (l.to == to && l.port == port) return Find(l.from);
    return nullptr;
  }
};

/// Node templates the host provides to every node space (texture nodes) and the end nodes of the
/// spaces it ships.
namespace node {
inline constexpr std::string_view kImage = "net.kelvo.nodes.node.image";
inline constexpr std::string_view kConstantColor = "net.kelvo.nodes.node.constantcolor";
inline constexpr std::string_view kChecker = "net.kelvo.nodes.node.checker";
inline constexpr std::string_view kLinearGradient = "net.kelvo.nodes.node.lineargradient";
inline constexpr std::string_view kCorvaneMaterial = "com.corvane3d.corvane4vex.node.standardmaterial";
inline constexpr std::string_view kCorvaneImage = "com.corvane3d.corvane4vex.node.image";
inline constexpr std::string_view kViewportMaterial = "net.kelvo.nodes.node.viewportmaterial";
}  // namespace node

/// Node spaces and their attributes.
namespace nodespace {
inline constexpr std::string_view kCorvane = "com.corvane3d.corvane4vex.class.nodespace";
inline constexpr std::string_view kViewport = "net.kelvo.nodes.nodespace.viewport";
inline constexpr std::string_view kExportClassAttribute = "net.kelvo.nodes.nodespace.nodematerialexportclass";
inline constexpr std::string_view kExchangeBundlesAttribute = "net.kelvo.nodes.nodespace.materialexchangebundleids";
inline constexpr std::string_view kExchangeClassAttribute = "net.kelvo.nodes.nodespace.materialexchangeclass";
inline constexpr std::string_view kExportIntent = "net.kelvo.nodes.materialexchange.intent_export";
}  // namespace nodespace

/// Keys of a material export description.
namespace exportkey {
inline constexpr std::string_view kSpaceId = "spaceId";                    ///< Id
inline constexpr std::string_view kMaterialTypes = "materialTypes";        ///< MaterialTypesMap
inline constexpr std::string_view kTextureDimensions = "textureDimensions";  ///< int64
inline constexpr std::string_view kTextureResize = "textureResize";          ///< int32, TextureResize
}  // namespace exportkey

/// How a baked texture is fitted to the requested square size N x N.
enum class TextureResize : std::int32_t {
  Stretch = 0,  ///< N x N, the source scaled to fill it whatever its aspect
  Pad = 1,      ///< N x N, the whole source scaled to fit inside, centred; the rest transparent black
  Crop = 2,     ///< N x N, the source scaled to cover it, centred; what overhangs is cut off
  Fit = 3,      ///< the longer side N, the other side by the source's aspect (no padding)
};

/// The node-space form of a packed parameter: a port and its value.
struct PackedMaterialParameter {
  static constexpr std::string_view kDataTypeId = "net.kelvo.nodes.datatype.packedmaterialparameter";
  std::string port;
  Parameter value;
};

/// A node space's own complete export class.
class INodeMaterialExport {
 public:
  static constexpr std::string_view kInterfaceId = "net.kelvo.nodes.interface.nodematerialexport";
  virtual ~INodeMaterialExport() = default;
  virtual Result<void> Initialize(const NodeGraph& graph, IDocument& document, const DataDictionary& description) = 0;
  virtual Result<ParameterSetRef> GetParameters() = 0;
  virtual Result<TextureResult> GetTextures(const TextureRequest& request) = 0;
};

/// A node space's material-exchange class: converts between a graph and parameters of a bundle.
class IMaterialExchange {
 public:
  static constexpr std::string_view kInterfaceId = "net.kelvo.nodes.interface.materialexchange";
  virtual ~IMaterialExchange() = default;
  /// With the export intent: the parameters of the graph's end node in `bundle`. A connected port
  /// yields an ImageReference whose bakePort names the port (its url the image file when an image
  /// node feeds it directly). Fails for an intent or a bundle the space does not support.
  virtual Result<std::vector<PackedMaterialParameter>> Exchange(const Id& intent, const NodeGraph& graph,
                                                                const GraphNode& endNode, const Id& bundle) = 0;
};


/// A node space: its id and its attributes.
class INodeSpace {
 public:
  virtual ~INodeSpace() = default;
  virtual std::string_view GetId() const = 0;
  /// An attribute of the space; NotFound when the space does not set it.
  virtual Result<Data> GetAttribute(std::string_view attributeId) const = 0;
};

/// The host's material system: node spaces, node materials, Substance support.
class IMaterialSystem {
 public:
  virtual ~IMaterialSystem() = default;
  /// NotFound ("Unknown node space: <id>") for a space the host does not know.
  virtual Result<const INodeSpace*> FindNodeSpace(std::string_view spaceId) const = 0;
  /// A new node material holding `graph` in `spaceId`, inserted into the document.
  virtual Result<MaterialRef> CreateNodeMaterial(IDocument& document, std::string name, std::string_view spaceId,
                                                 NodeGraph graph) = 0;
  /// Keeps pixels for a material of the document; returns the image file name (relative to the
  /// document's directory) the texture is saved under with the document.
  virtual Result<std::string> AddDocumentTexture(IDocument& document, std::string_view name,
                                                 const TextureBuffer& texture) = 0;
  /// The host's Substance support: true when it can use the asset (its file exists).
  virtual bool CheckSubstanceAsset(const SubstanceAsset& asset, const IDocument* document) const = 0;
};

/// A path of a document's file reference: absolute paths stay, relative ones are taken from the
/// document's directory (as they are without a document or a directory).
inline std::string ResolveDocumentPath(std::string_view path, const IDocument* document) {
  if (path.empty() || path.front() == '/' || document == nullptr) return std::string(path);
  std::string dir = document->GetPath();
  if (dir.empty()) return std::string(path);
  if (dir.back() != '/') dir.push_back('/');
  return dir + std::string(path);
}

}  // namespace vex
