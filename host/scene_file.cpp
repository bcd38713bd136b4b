#include "host/input_files.h"
#include "host/json_text.h"
#include "host/scene_file.h"
#include "host/staged_output.h"

#include <charconv>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>

#include "host/json_codec.h"
#include "host/material_file.h"
#include "host/materials.h"
#include "host/polygon_object.h"
#include "vex/material.h"
#include "vex/polygon.h"

namespace fs = std::filesystem;
using Json = host::json_codec::Json;

namespace host::scene_file {
namespace {

// --- values ------------------------------------------------------------------------------------

using json_codec::Number;
using json_codec::Numbers;
using json_codec::WriteError;

vex::Result<Json> ValueToJson(const vex::Data& data, const std::string& where);

/// {"points": [[x, y, z], ..], "polygons": [[i, j, k, ..], ..]}
vex::Result<Json> PolygonMeshToJson(const vex::PolygonMesh& mesh, const std::string& where) {
  Json points = Json::array();
  for (const auto& p : mesh.points) {
    VEX_ASSIGN(Json n, Numbers({p.x, p.y, p.z}, where + ".points"));
    points.push_back(std::move(n));
  }
  Json polygons = Json::array();
  std::size_t corner = 0;
  for (const std::int32_t size : mesh.polygonSizes) {
    Json loop = Json::array();
    for (std::int32_t k = 0; k < size && corner < mesh.polygonPoints.size(); ++k) loop.push_back(mesh.polygonPoints[corner++]);
    polygons.push_back(std::move(loop));
  }
  return Json{{"points", std::move(points)}, {"polygons", std::move(polygons)}};
}

/// {"normals": [[x, y, z], ..], "uvs": [[u, v], ..], "materials": [i, ..], "materialNames": [..]},
/// each list only when the object has it.
vex::Result<Json> PolygonAttributesToJson(const PolygonAttributes& attributes, const std::string& where) {
  Json out = Json::object();
  if (!attributes.normals.empty()) {
    Json normals = Json::array();
    for (const auto& n : attributes.normals) {
      VEX_ASSIGN(Json e, Numbers({n.x, n.y, n.z}, where + ".normals"));
      normals.push_back(std::move(e));
    }
    out["normals"] = std::move(normals);
  }
  if (!attributes.uvs.empty()) {
    Json uvs = Json::array();
    for (const auto& uv : attributes.uvs) {
      VEX_ASSIGN(Json e, Numbers({uv.x, uv.y}, where + ".uvs"));
      uvs.push_back(std::move(e));
    }
    out["uvs"] = std::move(uvs);
  }
  if (!attributes.materials.empty()) out["materials"] = attributes.materials;
  if (!attributes.materialNames.empty()) out["materialNames"] = attributes.materialNames;
  return out;
}

vex::Result<Json> Tagged(std::string_view tag, vex::Result<Json> value) {
  if (!value) return value;
  Json out = Json::object();
  out[std::string(tag)] = std::move(*value);
  return out;
}

vex::Result<Json> ValueToJson(const vex::Data& data, const std::string& where) {
  if (auto scalar = json_codec::EncodeScalar(data, where)) return std::move(*scalar);
  const auto& v = data.value;
  if (const auto* a = std::get_if<vex::DataArray>(&v)) {
    Json out = Json::array();
    for (std::size_t i = 0; i < a->size(); ++i) {
      VEX_ASSIGN(Json e, ValueToJson((*a)[i], where + "[" + std::to_string(i) + "]"));
      out.push_back(std::move(e));
    }
    return Tagged("array", std::move(out));
  }
  if (const auto* d = std::get_if<vex::DataDictionary>(&v)) {
    Json out = Json::object();
    for (std::size_t i = 0; i < d->Size(); ++i) {
      VEX_ASSIGN(Json e, ValueToJson(d->ValueAt(i), where + "." + d->KeyAt(i)));
      out[d->KeyAt(i)] = std::move(e);
    }
    return Tagged("dictionary", std::move(out));
  }
  if (const auto* u = data.Get<vex::UnitScale>()) {
    VEX_ASSIGN(Json metres, Number(u->metresPerUnit, where));
    return Tagged("unitscale", Json{{"unit", u->unit}, {"metresPerUnit", std::move(metres)}});
  }
  if (const auto* image = data.Get<vex::ImageReference>()) {
    Json out{{"url", image->url.text}};
    if (!image->colorSpace.empty()) out["colorSpace"] = image->colorSpace;
    if (!image->bakePort.empty()) out["bakePort"] = image->bakePort;
    return Tagged("image", std::move(out));
  }
  if (const auto* mesh = data.Get<vex::PolygonMesh>()) return Tagged("polygonmesh", PolygonMeshToJson(*mesh, where));
  if (const auto* attributes = data.Get<PolygonAttributes>())
    return Tagged("polygonattributes", PolygonAttributesToJson(*attributes, where));
  if (!data.CustomTypeId().empty())
    return std::unexpected(WriteError(where, "custom data " + std::string(data.CustomTypeId()) + " cannot be saved"));
  if (data.IsEmpty()) return std::unexpected(WriteError(where, "an empty value cannot be saved"));
  return std::unexpected(WriteError(where, "an interned id cannot be saved"));
}

vex::Result<Json> ContainerToJson(const vex::ParamContainer& container, const std::string& where) {
  Json out = Json::object();
  for (const auto& [id, value] : container.Entries()) {
    const std::string key = std::to_string(id);
    VEX_ASSIGN(Json v, ValueToJson(value, where + "." + key));
    out[key] = std::move(v);
  }
  return out;
}

// --- reading -----------------------------------------------------------------------------------

struct Reader : json_codec::Decoder {
  const ReadOptions& options;
  bool loose = false;  ///< plain numbers and arrays allowed (descriptions), not in scene parameters

  vex::Result<vex::UnitScale> Unit(const Json& v, const std::string& where) const {
    if (v.is_string()) {
      const auto name = v.get<std::string>();
      if (options.units == nullptr) return std::unexpected(Fail(where, "unit names need the host's unit list"));
      if (auto u = options.units->FindUnit(name)) return *u;
      return std::unexpected(Fail(where, "unknown unit \"" + name + "\""));
    }
    if (!v.is_object() || !v.contains("unit") || !v.contains("metresPerUnit"))
      return std::unexpected(Fail(where, "expected a unit name or {\"unit\": .., \"metresPerUnit\": ..}"));
    VEX_ASSIGN(std::string unit, String(v["unit"], where + ".unit"));
    VEX_ASSIGN(double metres, Float(v["metresPerUnit"], where + ".metresPerUnit"));
    if (!(metres > 0.0)) return std::unexpected(Fail(where, "metresPerUnit must be positive"));
    return vex::UnitScale{std::move(unit), metres};
  }

  vex::Result<vex::ImageReference> Image(const Json& v, const std::string& where) const {
    vex::ImageReference image;
    if (v.is_string()) {
      image.url.text = v.get<std::string>();
      return image;
    }
    if (!v.is_object() || !v.contains("url"))
      return std::unexpected(Fail(where, "expected a path or {\"url\": .., \"colorSpace\": ..}"));
    for (const auto& [k, e] : v.items()) {
      if (k == "url") {
        VEX_ASSIGN(image.url.text, String(e, where + ".url"));
      } else if (k == "colorSpace") {
        VEX_ASSIGN(image.colorSpace, String(e, where + ".colorSpace"));
      } else if (k == "bakePort") {
        VEX_ASSIGN(image.bakePort, String(e, where + ".bakePort"));
      } else {
        return std::unexpected(Fail(where + "." + k, "unknown key"));
      }
    }
    return image;
  }

  /// Points are [x, y, z]; each polygon lists at least three point indices that exist.
  vex::Result<vex::PolygonMesh> PolygonMesh(const Json& v, const std::string& where) const {
    VEX_TRY(Keys(v, {"points", "polygons"}, where));
    vex::PolygonMesh mesh;
    if (v.contains("points")) {
      if (!v["points"].is_array()) return std::unexpected(Fail(where + ".points", "expected an array of [x, y, z]"));
      for (std::size_t i = 0; i < v["points"].size(); ++i) {
        VEX_ASSIGN(auto p, Floats(v["points"][i], 3, where + ".points[" + std::to_string(i) + "]"));
        mesh.points.push_back({p[0], p[1], p[2]});
      }
    }
    if (v.contains("polygons")) {
      if (!v["polygons"].is_array())
        return std::unexpected(Fail(where + ".polygons", "expected an array of point index lists"));
      for (std::size_t f = 0; f < v["polygons"].size(); ++f) {
        const std::string at = where + ".polygons[" + std::to_string(f) + "]";
        const Json& loop = v["polygons"][f];
        if (!loop.is_array() || loop.size() < 3)
          return std::unexpected(Fail(at, "expected a list of at least three point indices"));
        for (const auto& index : loop) {
          VEX_ASSIGN(auto p, Integer(index, 0, static_cast<std::int64_t>(mesh.points.size()) - 1, at));
          mesh.polygonPoints.push_back(static_cast<std::int32_t>(p));
        }
        mesh.polygonSizes.push_back(static_cast<std::int32_t>(loop.size()));
      }
    }
    return mesh;
  }

  /// The lists of a polygon object's attributes; their counts are checked against the mesh once
  /// the object's parameters are read.
  vex::Result<PolygonAttributes> Attributes(const Json& v, const std::string& where) const {
    VEX_TRY(Keys(v, {"normals", "uvs", "materials", "materialNames"}, where));
    PolygonAttributes out;
    const auto list = [&](const char* key) -> vex::Result<const Json*> {
      if (!v.contains(key)) return nullptr;
      if (!v[key].is_array()) return std::unexpected(Fail(where + "." + key, "expected an array"));
      return &v[key];
    };
    VEX_ASSIGN(const Json* normals, list("normals"));
    for (std::size_t i = 0; normals != nullptr && i < normals->size(); ++i) {
      VEX_ASSIGN(auto n, Floats((*normals)[i], 3, where + ".normals[" + std::to_string(i) + "]"));
      out.normals.push_back({n[0], n[1], n[2]});
    }
    VEX_ASSIGN(const Json* uvs, list("uvs"));
    for (std::size_t i = 0; uvs != nullptr && i < uvs->size(); ++i) {
      VEX_ASSIGN(auto uv, Floats((*uvs)[i], 2, where + ".uvs[" + std::to_string(i) + "]"));
      out.uvs.push_back({uv[0], uv[1]});
    }
    VEX_ASSIGN(const Json* names, list("materialNames"));
    for (std::size_t i = 0; names != nullptr && i < names->size(); ++i) {
      VEX_ASSIGN(std::string name, String((*names)[i], where + ".materialNames[" + std::to_string(i) + "]"));
      out.materialNames.push_back(std::move(name));
    }
    VEX_ASSIGN(const Json* materials, list("materials"));
    for (std::size_t i = 0; materials != nullptr && i < materials->size(); ++i) {
      VEX_ASSIGN(auto m, Integer((*materials)[i], -1, static_cast<std::int64_t>(out.materialNames.size()) - 1,
                                 where + ".materials[" + std::to_string(i) + "]"));
      out.materials.push_back(static_cast<std::int32_t>(m));
    }
    return out;
  }

  vex::Result<vex::Data> Typed(const std::string& tag, const Json& v, const std::string& where) const {
    if (auto scalar = Scalar(tag, v, where)) return std::move(*scalar);
    if (tag == "array") {
      if (!v.is_array()) return std::unexpected(Fail(where, "expected an array"));
      vex::DataArray out;
      for (std::size_t i = 0; i < v.size(); ++i) {
        VEX_ASSIGN(vex::Data e, Value(v[i], where + "[" + std::to_string(i) + "]"));
        out.push_back(std::move(e));
      }
      return vex::Data(std::move(out));
    }
    if (tag == "dictionary") {
      VEX_ASSIGN(vex::DataDictionary d, Dictionary(v, where));
      return vex::Data(std::move(d));
    }
    if (tag == "unitscale") {
      VEX_ASSIGN(vex::UnitScale u, Unit(v, where));
      return vex::Data::MakeCustom(std::move(u));
    }
    if (tag == "image") {
      VEX_ASSIGN(vex::ImageReference image, Image(v, where));
      return vex::Data::MakeCustom(std::move(image));
    }
    if (tag == "polygonmesh") {
      VEX_ASSIGN(vex::PolygonMesh mesh, PolygonMesh(v, where));
      return vex::Data::MakeCustom(std::move(mesh));
    }
    if (tag == "polygonattributes") {
      VEX_ASSIGN(PolygonAttributes attributes, Attributes(v, where));
      return vex::Data::MakeCustom(std::move(attributes));
    }
    return std::unexpected(Fail(where, "unknown value type \"" + tag + "\""));
  }

  static bool IsTag(std::string_view key) {
    for (const std::string_view t : {"bool", "int32", "int64", "float64", "string", "id", "vector2", "vector",
                                     "vector4", "color", "colora", "array", "dictionary", "unitscale", "image"})
      if (key == t) return true;
    return false;
  }

  vex::Result<vex::Data> Value(const Json& v, const std::string& where) const {
    if (v.is_boolean()) return vex::Data(v.get<bool>());
    if (v.is_string()) return vex::Data(v.get<std::string>());
    if (v.is_object() && v.size() == 1 && (!loose || IsTag(v.begin().key())))
      return Typed(v.begin().key(), v.begin().value(), where);
    if (!loose) {
      if (v.is_number())
        return std::unexpected(Fail(where, "a bare number has no type: write {\"float64\": n} or {\"int32\": n}"));
      return std::unexpected(Fail(where, "expected true, false, a string or a typed value {\"<type>\": ..}"));
    }
    if (v.is_number_integer()) {
      const auto n = v.get<std::int64_t>();
      if (n >= std::numeric_limits<std::int32_t>::min() && n <= std::numeric_limits<std::int32_t>::max())
        return vex::Data(static_cast<std::int32_t>(n));
      return vex::Data(n);
    }
    if (v.is_number()) return vex::Data(v.get<double>());
    if (v.is_array()) return Typed("array", v, where);
    if (v.is_object()) return Typed("dictionary", v, where);
    return std::unexpected(Fail(where, "null is not a value"));
  }

  vex::Result<vex::DataDictionary> Dictionary(const Json& v, const std::string& where) const {
    if (!v.is_object()) return std::unexpected(Fail(where, "expected an object"));
    vex::DataDictionary out;
    for (const auto& [k, e] : v.items()) {
      VEX_ASSIGN(vex::Data d, Value(e, where + "." + k));
      out.Set(k, std::move(d));
    }
    return out;
  }

  vex::Result<vex::ParamContainer> Container(const Json& v, const std::string& where) const {
    if (!v.is_object()) return std::unexpected(Fail(where, "expected an object of parameters"));
    vex::ParamContainer out;
    for (const auto& [k, e] : v.items()) {
      std::int32_t id = 0;
      const auto [end, ec] = std::from_chars(k.data(), k.data() + k.size(), id);
      if (ec != std::errc() || end != k.data() + k.size())
        return std::unexpected(Fail(where + "." + k, "parameter ids are whole numbers"));
      if (out.Contains(id)) return std::unexpected(Fail(where + "." + k, "parameter given twice"));
      VEX_ASSIGN(vex::Data d, Value(e, where + "." + k));
      out.Set(id, std::move(d));
    }
    return out;
  }

  vex::Result<void> Tracks(const Json& v, SceneObject& object, const std::string& where) const {
    if (!v.is_array()) return std::unexpected(Fail(where, "expected an array of tracks"));
    for (std::size_t i = 0; i < v.size(); ++i) {
      const std::string at = where + "[" + std::to_string(i) + "]";
      const Json& t = v[i];
      VEX_TRY(Keys(t, {"parameter", "component", "keys"}, at));
      if (!t.contains("parameter") || !t.contains("keys"))
        return std::unexpected(Fail(at, "a track needs \"parameter\" and \"keys\""));
      vex::TrackId id;
      VEX_ASSIGN(auto parameter, Integer(t["parameter"], std::numeric_limits<std::int32_t>::min(),
                                         std::numeric_limits<std::int32_t>::max(), at + ".parameter"));
      id.parameter = static_cast<std::int32_t>(parameter);
      if (t.contains("component")) {
        VEX_ASSIGN(auto component, Integer(t["component"], -1, 3, at + ".component"));
        id.component = static_cast<std::int32_t>(component);
      }
      if (object.FindTrack(id) != nullptr) return std::unexpected(Fail(at, "track given twice"));
      const Json& keys = t["keys"];
      if (!keys.is_array()) return std::unexpected(Fail(at + ".keys", "expected an array of [time, value] pairs"));
      for (std::size_t k = 0; k < keys.size(); ++k) {
        VEX_ASSIGN(auto pair, Floats(keys[k], 2, at + ".keys[" + std::to_string(k) + "]"));
        VEX_TRY(object.SetKey(id, {pair[0], pair[1]}));
      }
    }
    return {};
  }

  vex::Result<std::shared_ptr<SceneObject>> Object(const Json& v, const std::string& where) const {
    VEX_TRY(Keys(v, {"type", "name", "parameters", "tracks", "children"}, where));
    if (!v.contains("type")) return std::unexpected(Fail(where, "an object needs its \"type\""));
    VEX_ASSIGN(auto type, Integer(v["type"], std::numeric_limits<std::int32_t>::min(),
                                  std::numeric_limits<std::int32_t>::max(), where + ".type"));
    auto object = std::make_shared<SceneObject>(static_cast<std::int32_t>(type));
    if (v.contains("name")) {
      VEX_ASSIGN(std::string name, String(v["name"], where + ".name"));
      object->SetName(std::move(name));
    }
    if (v.contains("parameters")) {
      VEX_ASSIGN(object->MutableParameters(), Container(v["parameters"], where + ".parameters"));
      const vex::Data* attributes = object->Parameters().Find(kPolygonAttributesParameter);
      if (attributes != nullptr && attributes->Get<PolygonAttributes>() != nullptr) {
        const vex::Data* mesh = object->Parameters().Find(vex::kPolygonMeshParameter);
        const std::string problem = CheckPolygonAttributes(
            mesh != nullptr && mesh->Get<vex::PolygonMesh>() != nullptr ? *mesh->Get<vex::PolygonMesh>() : vex::PolygonMesh{},
            *attributes->Get<PolygonAttributes>());
        if (!problem.empty())
          return std::unexpected(
              Fail(where + ".parameters." + std::to_string(kPolygonAttributesParameter) + "." + problem.substr(0, problem.find(':')),
                   problem.substr(problem.find(':') + 2)));
      }
    }
    if (v.contains("tracks")) VEX_TRY(Tracks(v["tracks"], *object, where + ".tracks"));
    return object;
  }

  /// Objects and their children, inserted through the document as a module would insert them.
  vex::Result<void> Objects(const Json& v, Document& document, SceneObject* parent, const std::string& where) const {
    if (!v.is_array()) return std::unexpected(Fail(where, "expected an array of objects"));
    for (std::size_t i = 0; i < v.size(); ++i) {
      const std::string at = where + "[" + std::to_string(i) + "]";
      VEX_ASSIGN(auto object, Object(v[i], at));
      VEX_ASSIGN(vex::ISceneObject * inserted, document.InsertObject(object, parent));
      if (v[i].contains("children"))
        VEX_TRY(Objects(v[i]["children"], document, static_cast<SceneObject*>(inserted), at + ".children"));
    }
    return {};
  }

  vex::Result<void> RenderSettings(const Json& v, Document& document, const std::string& where) const {
    if (!v.is_array()) return std::unexpected(Fail(where, "expected an array of render settings"));
    int active = -1;
    for (std::size_t i = 0; i < v.size(); ++i) {
      const std::string at = where + "[" + std::to_string(i) + "]";
      const Json& r = v[i];
      VEX_TRY(Keys(r, {"name", "active", "settings", "postEffects"}, at));
      vex::RenderData data;
      if (r.contains("name")) {
        VEX_ASSIGN(data.name, String(r["name"], at + ".name"));
      }
      if (r.contains("settings")) {
        VEX_ASSIGN(data.settings, Container(r["settings"], at + ".settings"));
      }
      if (r.contains("active")) {
        if (!r["active"].is_boolean()) return std::unexpected(Fail(at + ".active", "expected true or false"));
        if (r["active"].get<bool>()) {
          if (active >= 0) return std::unexpected(Fail(at + ".active", "only one render setting can be active"));
          active = static_cast<int>(i);
        }
      }
      if (r.contains("postEffects")) {
        const Json& effects = r["postEffects"];
        if (!effects.is_array()) return std::unexpected(Fail(at + ".postEffects", "expected an array"));
        for (std::size_t e = 0; e < effects.size(); ++e) {
          const std::string eat = at + ".postEffects[" + std::to_string(e) + "]";
          VEX_TRY(Keys(effects[e], {"type", "parameters"}, eat));
          if (!effects[e].contains("type")) return std::unexpected(Fail(eat, "a post effect needs its \"type\""));
          vex::PostEffect effect;
          VEX_ASSIGN(auto type, Integer(effects[e]["type"], std::numeric_limits<std::int32_t>::min(),
                                        std::numeric_limits<std::int32_t>::max(), eat + ".type"));
          effect.type = static_cast<std::int32_t>(type);
          if (effects[e].contains("parameters")) {
            VEX_ASSIGN(effect.parameters, Container(effects[e]["parameters"], eat + ".parameters"));
          }
          data.postEffects.push_back(std::move(effect));
        }
      }
      document.AddRenderData(std::move(data));
    }
    if (active >= 0) VEX_TRY(document.SetActiveRenderIndex(active));
    return {};
  }
};

vex::Result<Json> ParseJson(std::string_view text, const std::string& source) {
  return json_codec::Parse(text, source);
}

vex::Result<std::string> ReadText(const std::string& path) {
  return ReadInputFile(path);
}

vex::Result<Json> ObjectToJson(const SceneObject& object, const std::string& where) {
  Json out = Json::object();
  out["type"] = object.GetType();
  out["name"] = object.GetName();
  VEX_ASSIGN(out["parameters"], ContainerToJson(object.Parameters(), where + ".parameters"));
  const auto tracks = object.GetTracks();
  if (!tracks.empty()) {
    Json list = Json::array();
    for (const auto& t : tracks) {
      Json keys = Json::array();
      for (const auto& k : t.keys) {
        VEX_ASSIGN(Json pair, Numbers({k.time, k.value}, where + ".tracks"));
        keys.push_back(std::move(pair));
      }
      list.push_back(Json{{"parameter", t.id.parameter}, {"component", t.id.component}, {"keys", std::move(keys)}});
    }
    out["tracks"] = std::move(list);
  }
  if (!object.Children().empty()) {
    Json children = Json::array();
    for (std::size_t i = 0; i < object.Children().size(); ++i) {
      VEX_ASSIGN(Json c, ObjectToJson(*object.Children()[i], where + ".children[" + std::to_string(i) + "]"));
      children.push_back(std::move(c));
    }
    out["children"] = std::move(children);
  }
  return out;
}

}  // namespace

vex::Result<void> Parse(std::string_view text, const std::string& source, Document& document,
                        const ReadOptions& options) {
  VEX_ASSIGN(Json root, ParseJson(text, source));
  const Reader reader{{source}, options};
  if (!root.is_object()) return std::unexpected(reader.Fail("(top)", "expected an object"));
  // The material sections are read by their own unit (host/material_file.h), after the objects.
  Json materialSections = Json::object();
  for (const char* key : {"substanceAssets", "materials"})
    if (root.is_object() && root.contains(key)) {
      materialSections[key] = std::move(root[key]);
      root.erase(key);
    }
  VEX_TRY(reader.Keys(root, {"format", "version", "name", "settings", "data", "renderData", "objects"}, ""));
  if (root.contains("format") && root["format"] != "vexon-scene")
    return std::unexpected(reader.Fail("format", "expected \"vexon-scene\""));
  if (root.contains("version")) {
    VEX_ASSIGN(auto version, reader.Integer(root["version"], 1, kVersion, "version"));
    (void)version;
  }
  if (root.contains("name")) {
    VEX_ASSIGN(std::string name, reader.String(root["name"], "name"));
    document.SetName(std::move(name));
  }
  if (root.contains("settings")) {
    VEX_ASSIGN(document.Settings(), reader.Container(root["settings"], "settings"));
  }
  if (root.contains("data")) {
    VEX_ASSIGN(vex::ParamContainer data, reader.Container(root["data"], "data"));
    document.SetDataContainer(data);
  }
  if (root.contains("renderData")) VEX_TRY(reader.RenderSettings(root["renderData"], document, "renderData"));
  if (root.contains("objects")) VEX_TRY(reader.Objects(root["objects"], document, nullptr, "objects"));
  if (!materialSections.empty())
    VEX_TRY(material_file::Read(host::DumpJsonText(materialSections.value("substanceAssets", Json::array())),
                                host::DumpJsonText(materialSections.value("materials", Json::array())), source, document));
  document.SetChanged(false);
  return {};
}

vex::Result<std::string> Dump(const Document& document) {
  Json root = Json::object();
  root["format"] = "vexon-scene";
  root["version"] = kVersion;
  root["name"] = document.GetName();
  VEX_ASSIGN(root["settings"], ContainerToJson(document.Settings(), "settings"));
  VEX_ASSIGN(root["data"], ContainerToJson(document.GetDataContainer(), "data"));
  Json render = Json::array();
  for (std::size_t i = 0; i < document.RenderSettings().size(); ++i) {
    const auto& r = document.RenderSettings()[i];
    const std::string at = "renderData[" + std::to_string(i) + "]";
    Json entry{{"name", r.name}, {"active", static_cast<int>(i) == document.ActiveRenderIndex()}};
    VEX_ASSIGN(entry["settings"], ContainerToJson(r.settings, at + ".settings"));
    Json effects = Json::array();
    for (std::size_t e = 0; e < r.postEffects.size(); ++e) {
      Json effect{{"type", r.postEffects[e].type}};
      VEX_ASSIGN(effect["parameters"], ContainerToJson(r.postEffects[e].parameters,
                                                       at + ".postEffects[" + std::to_string(e) + "].parameters"));
      effects.push_back(std::move(effect));
    }
    entry["postEffects"] = std::move(effects);
    render.push_back(std::move(entry));
  }
  root["renderData"] = std::move(render);
  Json objects = Json::array();
  for (std::size_t i = 0; i < document.Objects().size(); ++i) {
    VEX_ASSIGN(Json o, ObjectToJson(*document.Objects()[i], "objects[" + std::to_string(i) + "]"));
    objects.push_back(std::move(o));
  }
  root["objects"] = std::move(objects);
  if (const auto* materials = document.MaterialsIfAny(); materials != nullptr && !materials->IsEmpty()) {
    VEX_ASSIGN(auto sections, material_file::Write(document));
    VEX_ASSIGN(root["substanceAssets"], json_codec::Parse(sections.assets, document.GetName()));
    VEX_ASSIGN(root["materials"], json_codec::Parse(sections.materials, document.GetName()));
  }
  return host::DumpJsonText(root, 2) + "\n";
}

vex::Result<Document*> Load(Documents& documents, const std::string& path, const ReadOptions& options) {
  VEX_ASSIGN(std::string text, ReadText(path));
  const fs::path file(path);
  Document& document = documents.NewDocument(file.stem().string());
  document.SetPath(fs::absolute(file).parent_path().string());
  if (auto parsed = Parse(text, path, document, options); !parsed) {
    documents.Close(&document);
    return std::unexpected(std::move(parsed).error());
  }
  return &document;
}

vex::Result<void> Save(const Document& document, const std::string& path) {
  VEX_ASSIGN(std::string text, Dump(document));
  return WriteFileStaged(path, text, /*createParents=*/false);
}

vex::Result<vex::DataDictionary> ParseDictionary(std::string_view text, const std::string& source,
                                                 const ReadOptions& options) {
  VEX_ASSIGN(Json root, ParseJson(text, source));
  Reader reader{{source}, options, true};
  if (!root.is_object()) return std::unexpected(reader.Fail("(top)", "expected an object"));
  return reader.Dictionary(root, "(top)");
}

vex::Result<vex::DataDictionary> ReadDictionaryFile(const std::string& path, const ReadOptions& options) {
  VEX_ASSIGN(std::string text, ReadText(path));
  return ParseDictionary(text, path, options);
}

}  // namespace host::scene_file
