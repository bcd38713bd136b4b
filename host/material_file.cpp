#include "host/json_text.h"
#include "host/material_file.h"

#include <charconv>
#include <cmath>
#include <limits>

#include "host/json_codec.h"
#include "host/materials.h"

using Json = host::json_codec::Json;

namespace host::material_file {
namespace {

struct Reader : json_codec::Decoder {
  vex::Result<std::int32_t> Int32(const Json& v, const std::string& where) const {
    VEX_ASSIGN(const std::int64_t n, Integer(v, std::numeric_limits<std::int32_t>::min(),
                                             std::numeric_limits<std::int32_t>::max(), where));
    return static_cast<std::int32_t>(n);
  }

  vex::Result<std::vector<double>> Numbers(const Json& v, std::size_t n, const std::string& where) const {
    return Floats(v, n, where);
  }

  /// A value: true/false, a string, a plain number (whole: int32, else float64), a list of numbers
  /// (kept as an array) or a typed value {"<tag>": ..}.
  vex::Result<vex::Data> Value(const Json& v, const std::string& where) const {
    if (v.is_boolean()) return vex::Data(v.get<bool>());
    if (v.is_string()) return vex::Data(v.get<std::string>());
    if (v.is_number_integer()) {
      VEX_ASSIGN(auto n, Int32(v, where));
      return vex::Data(n);
    }
    if (v.is_number()) return vex::Data(v.get<double>());
    if (v.is_array()) {
      vex::DataArray out;
      for (std::size_t i = 0; i < v.size(); ++i) {
        VEX_ASSIGN(vex::Data e, Value(v[i], where + "[" + std::to_string(i) + "]"));
        out.push_back(std::move(e));
      }
      return vex::Data(std::move(out));
    }
    if (!v.is_object() || v.size() != 1) return std::unexpected(Fail(where, "expected a value"));
    const std::string tag = v.begin().key();
    // Strings and booleans are written bare; their tags are not this file's.
    if (tag != "bool" && tag != "string")
      if (auto scalar = Scalar(tag, v.begin().value(), where)) return std::move(*scalar);
    return std::unexpected(Fail(where, "unknown value type \"" + tag + "\""));
  }

  vex::Result<std::int32_t> IdKey(const std::string& key, const std::string& where) const {
    std::int32_t id = 0;
    const auto [end, ec] = std::from_chars(key.data(), key.data() + key.size(), id);
    if (ec != std::errc() || end != key.data() + key.size())
      return std::unexpected(Fail(where, "parameter ids are whole numbers"));
    return id;
  }

  vex::Result<vex::ParamContainer> Container(const Json& v, const std::string& where) const {
    if (!v.is_object()) return std::unexpected(Fail(where, "expected an object of parameters"));
    vex::ParamContainer out;
    for (const auto& [k, e] : v.items()) {
      VEX_ASSIGN(auto id, IdKey(k, where + "." + k));
      VEX_ASSIGN(vex::Data d, Value(e, where + "." + k));
      out.Set(id, std::move(d));
    }
    return out;
  }

  vex::Result<vex::NodeGraph> Graph(const Json& v, const std::string& where) const {
    VEX_TRY(Keys(v, {"endNode", "nodes", "links"}, where));
    vex::NodeGraph graph;
    if (!v.contains("endNode")) return std::unexpected(Fail(where, "a graph needs its \"endNode\""));
    VEX_ASSIGN(graph.endNode, String(v["endNode"], where + ".endNode"));
    if (v.contains("nodes")) {
      const Json& nodes = v["nodes"];
      if (!nodes.is_array()) return std::unexpected(Fail(where + ".nodes", "expected an array of nodes"));
      for (std::size_t i = 0; i < nodes.size(); ++i) {
        const std::string at = where + ".nodes[" + std::to_string(i) + "]";
        VEX_TRY(Keys(nodes[i], {"id", "asset", "ports"}, at));
        if (!nodes[i].contains("id") || !nodes[i].contains("asset"))
          return std::unexpected(Fail(at, "a node needs \"id\" and \"asset\""));
        vex::GraphNode node;
        VEX_ASSIGN(node.id, String(nodes[i]["id"], at + ".id"));
        VEX_ASSIGN(std::string asset, String(nodes[i]["asset"], at + ".asset"));
        node.asset = vex::Id(std::move(asset));
        if (graph.Find(node.id) != nullptr) return std::unexpected(Fail(at + ".id", "node \"" + node.id + "\" given twice"));
        if (nodes[i].contains("ports")) {
          const Json& ports = nodes[i]["ports"];
          if (!ports.is_object()) return std::unexpected(Fail(at + ".ports", "expected an object"));
          for (const auto& [k, e] : ports.items()) {
            VEX_ASSIGN(vex::Data d, Value(e, at + ".ports." + k));
            node.ports.Set(k, std::move(d));
          }
        }
        graph.nodes.push_back(std::move(node));
      }
    }
    if (graph.EndNode() == nullptr)
      return std::unexpected(Fail(where + ".endNode", "no node \"" + graph.endNode + "\" in the graph"));
    if (v.contains("links")) {
      const Json& links = v["links"];
      if (!links.is_array()) return std::unexpected(Fail(where + ".links", "expected an array of links"));
      for (std::size_t i = 0; i < links.size(); ++i) {
        const std::string at = where + ".links[" + std::to_string(i) + "]";
        VEX_TRY(Keys(links[i], {"from", "to", "port"}, at));
        if (!links[i].contains("from") || !links[i].contains("to") || !links[i].contains("port"))
          return std::unexpected(Fail(at, "a link needs \"from\", \"to\" and \"port\""));
        vex::GraphLink link;
        VEX_ASSIGN(link.from, String(links[i]["from"], at + ".from"));
        VEX_ASSIGN(link.to, String(links[i]["to"], at + ".to"));
        VEX_ASSIGN(link.port, String(links[i]["port"], at + ".port"));
        if (graph.Find(link.from) == nullptr) return std::unexpected(Fail(at + ".from", "no node \"" + link.from + "\""));
        if (graph.Find(link.to) == nullptr) return std::unexpected(Fail(at + ".to", "no node \"" + link.to + "\""));
        if (graph.Source(link.to, link.port) != nullptr)
          return std::unexpected(Fail(at, "port " + link.port + " of \"" + link.to + "\" is connected twice"));
        graph.links.push_back(std::move(link));
      }
    }
    return graph;
  }

  vex::Result<std::shared_ptr<Shader>> ShaderLink(const Json& v, const MaterialStore& store, const std::string& where) const {
    VEX_TRY(Keys(v, {"shader", "parameters", "assets"}, where));
    if (!v.contains("shader")) return std::unexpected(Fail(where, "a link needs its \"shader\" type"));
    VEX_ASSIGN(auto type, Int32(v["shader"], where + ".shader"));
    auto shader = std::make_shared<Shader>(type);
    if (v.contains("parameters")) {
      VEX_ASSIGN(shader->MutableParameters(), Container(v["parameters"], where + ".parameters"));
    }
    if (v.contains("assets")) {
      const Json& assets = v["assets"];
      if (!assets.is_object()) return std::unexpected(Fail(where + ".assets", "expected an object"));
      for (const auto& [k, e] : assets.items()) {
        VEX_ASSIGN(auto id, IdKey(k, where + ".assets." + k));
        VEX_ASSIGN(std::string name, String(e, where + ".assets." + k));
        auto asset = store.FindAsset(name);
        if (!asset) return std::unexpected(Fail(where + ".assets." + k, "no Substance asset \"" + name + "\""));
        shader->SetAssetLink(id, std::move(asset));
      }
    }
    return shader;
  }

  vex::Result<std::shared_ptr<Material>> ReadMaterial(const Json& v, const MaterialStore& store,
                                                      const std::string& where) const {
    VEX_TRY(Keys(v, {"name", "type", "nodeBased", "parameters", "links", "graphs"}, where));
    if (!v.contains("name") || !v.contains("type"))
      return std::unexpected(Fail(where, "a material needs \"name\" and \"type\""));
    VEX_ASSIGN(std::string name, String(v["name"], where + ".name"));
    VEX_ASSIGN(auto type, Int32(v["type"], where + ".type"));
    auto material = MakeMaterial(type, std::move(name));
    if (v.contains("nodeBased")) {
      if (!v["nodeBased"].is_boolean()) return std::unexpected(Fail(where + ".nodeBased", "expected true or false"));
      material->SetNodeBased(v["nodeBased"].get<bool>());
    }
    if (v.contains("parameters")) {
      VEX_ASSIGN(material->MutableParameters(), Container(v["parameters"], where + ".parameters"));
    }
    if (v.contains("links")) {
      const Json& links = v["links"];
      if (!links.is_object()) return std::unexpected(Fail(where + ".links", "expected an object"));
      for (const auto& [k, e] : links.items()) {
        VEX_ASSIGN(auto id, IdKey(k, where + ".links." + k));
        VEX_ASSIGN(auto shader, ShaderLink(e, store, where + ".links." + k));
        material->SetLink(id, std::move(shader));
      }
    }
    if (v.contains("graphs")) {
      const Json& graphs = v["graphs"];
      if (!graphs.is_object()) return std::unexpected(Fail(where + ".graphs", "expected an object"));
      for (const auto& [space, g] : graphs.items()) {
        VEX_ASSIGN(auto graph, Graph(g, where + ".graphs." + space));
        material->SetGraph(space, std::move(graph));
      }
    }
    return material;
  }
};

// --- writing -----------------------------------------------------------------------------------

using json_codec::Numbers;
using json_codec::WriteError;

vex::Result<Json> ValueToJson(const vex::Data& data, const std::string& where) {
  if (auto scalar = json_codec::EncodeScalar(data, where)) return std::move(*scalar);
  const auto& v = data.value;
  if (const auto* a = std::get_if<vex::DataArray>(&v)) {
    Json out = Json::array();
    for (std::size_t i = 0; i < a->size(); ++i) {
      VEX_ASSIGN(Json e, ValueToJson((*a)[i], where + "[" + std::to_string(i) + "]"));
      out.push_back(std::move(e));
    }
    return out;
  }
  return std::unexpected(WriteError(where, "this value cannot be saved in a material"));
}

vex::Result<Json> ContainerToJson(const vex::ParamContainer& container, const std::string& where) {
  Json out = Json::object();
  for (const auto& [id, value] : container.Entries()) {
    VEX_ASSIGN(Json v, ValueToJson(value, where + "." + std::to_string(id)));
    out[std::to_string(id)] = std::move(v);
  }
  return out;
}

vex::Result<Json> GraphToJson(const vex::NodeGraph& graph, const std::string& where) {
  Json nodes = Json::array();
  for (const auto& node : graph.nodes) {
    Json ports = Json::object();
    for (std::size_t i = 0; i < node.ports.Size(); ++i) {
      VEX_ASSIGN(Json v, ValueToJson(node.ports.ValueAt(i), where + ".nodes." + node.id + "." + node.ports.KeyAt(i)));
      ports[node.ports.KeyAt(i)] = std::move(v);
    }
    nodes.push_back(Json{{"id", node.id}, {"asset", node.asset.Str()}, {"ports", std::move(ports)}});
  }
  Json links = Json::array();
  for (const auto& l : graph.links) links.push_back(Json{{"from", l.from}, {"to", l.to}, {"port", l.port}});
  return Json{{"endNode", graph.endNode}, {"nodes", std::move(nodes)}, {"links", std::move(links)}};
}

vex::Result<Json> MaterialToJson(const Material& material, const MaterialStore& store, const std::string& where) {
  Json out{{"name", material.GetName()}, {"type", material.GetType()}, {"nodeBased", material.IsNodeBased()}};
  if (!material.Parameters().IsEmpty()) {
    VEX_ASSIGN(out["parameters"], ContainerToJson(material.Parameters(), where + ".parameters"));
  }
  if (!material.Links().empty()) {
    Json links = Json::object();
    for (const auto& [id, shader] : material.Links()) {
      const std::string at = where + ".links." + std::to_string(id);
      Json link{{"shader", shader->GetType()}};
      if (!shader->Parameters().IsEmpty()) {
        VEX_ASSIGN(link["parameters"], ContainerToJson(shader->Parameters(), at + ".parameters"));
      }
      if (!shader->AssetLinks().empty()) {
        Json assets = Json::object();
        for (const auto& [assetId, asset] : shader->AssetLinks()) {
          if (store.FindAsset(asset->name) != asset)
            return std::unexpected(WriteError(at, "the linked Substance asset is not one of the document's"));
          assets[std::to_string(assetId)] = asset->name;
        }
        link["assets"] = std::move(assets);
      }
      links[std::to_string(id)] = std::move(link);
    }
    out["links"] = std::move(links);
  }
  if (!material.Graphs().empty()) {
    Json graphs = Json::object();
    for (const auto& [space, graph] : material.Graphs()) {
      VEX_ASSIGN(graphs[space], GraphToJson(graph, where + ".graphs." + space));
    }
    out["graphs"] = std::move(graphs);
  }
  return out;
}

}  // namespace

vex::Result<void> Read(std::string_view assetsJson, std::string_view materialsJson, const std::string& source,
                       Document& document) {
  const Reader reader{{source}};
  // Text that is not JSON reads as null, which the checks below refuse with the section's name.
  const Json assets = json_codec::Parse(assetsJson, source).value_or(Json());
  const Json materials = json_codec::Parse(materialsJson, source).value_or(Json());
  if (!assets.is_array()) return std::unexpected(reader.Fail("substanceAssets", "expected an array of assets"));
  if (!materials.is_array()) return std::unexpected(reader.Fail("materials", "expected an array of materials"));
  MaterialStore& store = document.Materials();
  for (std::size_t i = 0; i < assets.size(); ++i) {
    const std::string at = "substanceAssets[" + std::to_string(i) + "]";
    VEX_TRY(reader.Keys(assets[i], {"name", "file"}, at));
    if (!assets[i].contains("name") || !assets[i].contains("file"))
      return std::unexpected(reader.Fail(at, "an asset needs \"name\" and \"file\""));
    vex::SubstanceAsset asset;
    VEX_ASSIGN(asset.name, reader.String(assets[i]["name"], at + ".name"));
    VEX_ASSIGN(asset.file, reader.String(assets[i]["file"], at + ".file"));
    if (store.FindAsset(asset.name)) return std::unexpected(reader.Fail(at + ".name", "asset \"" + asset.name + "\" given twice"));
    store.AddAsset(std::move(asset));
  }
  for (std::size_t i = 0; i < materials.size(); ++i) {
    VEX_ASSIGN(auto material, reader.ReadMaterial(materials[i], store, "materials[" + std::to_string(i) + "]"));
    VEX_TRY(store.Insert(std::move(material)));
  }
  return {};
}

vex::Result<Sections> Write(const Document& document) {
  Json assets = Json::array();
  Json materials = Json::array();
  if (const MaterialStore* store = document.MaterialsIfAny()) {
    for (const auto& a : store->Assets()) assets.push_back(Json{{"name", a->name}, {"file", a->file}});
    for (std::size_t i = 0; i < store->All().size(); ++i) {
      VEX_ASSIGN(Json m, MaterialToJson(*store->All()[i], *store, "materials[" + std::to_string(i) + "]"));
      materials.push_back(std::move(m));
    }
  }
  return Sections{host::DumpJsonText(assets), host::DumpJsonText(materials)};
}

}  // namespace host::material_file
