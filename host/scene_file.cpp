// Reading the scene file: its sections made into the document as they are read, the geometry
// arrays decoded straight into the meshes (docs/scene-file.md, "Large scenes"). Writing is in
// scene_file_write.cpp.
#include "host/scene_file.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <limits>
#include <optional>

#include "host/input_checks.h"
#include "host/input_files.h"
#include "host/json_codec.h"
#include "host/json_text.h"
#include "host/material_file.h"
#include "host/materials.h"
#include "host/polygon_object.h"
#include "vex/material.h"
#include "vex/polygon.h"

namespace fs = std::filesystem;
using Json = host::json_codec::Json;

namespace host::scene_file {
namespace {

// --- reading -----------------------------------------------------------------------------------

/// The geometry arrays of a part of the file, decoded as they are read. The part's small tree
/// holds a placeholder in each one's place: a binary value (JSON text has none) whose subtype is
/// the slot.
struct Geometry {
  enum class Kind { Vectors3, Vectors2, Loops, Indices };
  struct Slot {
    Kind kind;
    std::vector<vex::Vector3d> vectors3;  ///< points, normals
    std::vector<vex::Vector2d> vectors2;  ///< texture coordinates
    std::vector<std::int32_t> sizes;      ///< polygons: corners of each
    std::vector<std::int32_t> indices;    ///< polygons: their point indices; materials
  };
  std::vector<Slot> slots;

  static bool IsPlaceholder(const Json& v) { return v.is_binary(); }
  Slot* Find(const Json& v, Kind kind) {
    if (!v.is_binary()) return nullptr;
    const auto slot = static_cast<std::size_t>(v.get_binary().subtype());
    return slot < slots.size() && slots[slot].kind == kind ? &slots[slot] : nullptr;
  }
};


struct Reader : json_codec::Decoder {
  const ReadOptions& options;
  bool loose = false;  ///< plain numbers and arrays allowed (descriptions), not in scene parameters
  Geometry* geometry = nullptr;  ///< the arrays decoded while reading, for their placeholders

  Geometry::Slot* Decoded(const Json& v, Geometry::Kind kind) const {
    return geometry != nullptr ? geometry->Find(v, kind) : nullptr;
  }

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
      if (auto* decoded = Decoded(v["points"], Geometry::Kind::Vectors3)) {
        mesh.points = std::move(decoded->vectors3);
      } else {
        if (!v["points"].is_array()) return std::unexpected(Fail(where + ".points", "expected an array of [x, y, z]"));
        for (std::size_t i = 0; i < v["points"].size(); ++i) {
          VEX_ASSIGN(auto p, Floats(v["points"][i], 3, where + ".points[" + std::to_string(i) + "]"));
          mesh.points.push_back({p[0], p[1], p[2]});
        }
      }
    }
    if (v.contains("polygons")) {
      if (auto* decoded = Decoded(v["polygons"], Geometry::Kind::Loops)) {
        const auto points = static_cast<std::int64_t>(mesh.points.size());
        std::size_t corner = 0;
        for (std::size_t f = 0; f < decoded->sizes.size(); ++f)
          for (std::int32_t k = 0; k < decoded->sizes[f]; ++k, ++corner)
            if (decoded->indices[corner] < 0 || decoded->indices[corner] >= points)
              return std::unexpected(Fail(where + ".polygons[" + std::to_string(f) + "]", "number out of range"));
        mesh.polygonSizes = std::move(decoded->sizes);
        mesh.polygonPoints = std::move(decoded->indices);
        return mesh;
      }
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
      if (!v[key].is_array() && !Geometry::IsPlaceholder(v[key]))
        return std::unexpected(Fail(where + "." + key, "expected an array"));
      return &v[key];
    };
    VEX_ASSIGN(const Json* normals, list("normals"));
    if (auto* decoded = normals != nullptr ? Decoded(*normals, Geometry::Kind::Vectors3) : nullptr) {
      out.normals = std::move(decoded->vectors3);
    } else {
      for (std::size_t i = 0; normals != nullptr && i < normals->size(); ++i) {
        VEX_ASSIGN(auto n, Floats((*normals)[i], 3, where + ".normals[" + std::to_string(i) + "]"));
        out.normals.push_back({n[0], n[1], n[2]});
      }
    }
    VEX_ASSIGN(const Json* uvs, list("uvs"));
    if (auto* decoded = uvs != nullptr ? Decoded(*uvs, Geometry::Kind::Vectors2) : nullptr) {
      out.uvs = std::move(decoded->vectors2);
    } else {
      for (std::size_t i = 0; uvs != nullptr && i < uvs->size(); ++i) {
        VEX_ASSIGN(auto uv, Floats((*uvs)[i], 2, where + ".uvs[" + std::to_string(i) + "]"));
        out.uvs.push_back({uv[0], uv[1]});
      }
    }
    VEX_ASSIGN(const Json* names, list("materialNames"));
    for (std::size_t i = 0; names != nullptr && i < names->size(); ++i) {
      VEX_ASSIGN(std::string name, String((*names)[i], where + ".materialNames[" + std::to_string(i) + "]"));
      out.materialNames.push_back(std::move(name));
    }
    VEX_ASSIGN(const Json* materials, list("materials"));
    const auto last = static_cast<std::int64_t>(out.materialNames.size()) - 1;
    if (auto* decoded = materials != nullptr ? Decoded(*materials, Geometry::Kind::Indices) : nullptr) {
      for (std::size_t i = 0; i < decoded->indices.size(); ++i)
        if (decoded->indices[i] < -1 || decoded->indices[i] > last)
          return std::unexpected(Fail(where + ".materials[" + std::to_string(i) + "]", "number out of range"));
      out.materials = std::move(decoded->indices);
    } else {
      for (std::size_t i = 0; materials != nullptr && i < materials->size(); ++i) {
        VEX_ASSIGN(auto m, Integer((*materials)[i], -1, last, where + ".materials[" + std::to_string(i) + "]"));
        out.materials.push_back(static_cast<std::int32_t>(m));
      }
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

  /// An object and its children, inserted through the document as a module would insert them.
  /// `level` counts the object's ancestors and itself.
  vex::Result<void> ObjectTree(const Json& v, Document& document, SceneObject* parent, const std::string& where,
                               int level) const {
    if (level > kMaxNodeDepth) {
      // Named by the top-level object and this one: the path between is a thousand steps long.
      const std::string name = v.is_object() && v.contains("name") && v["name"].is_string() ? v["name"].get<std::string>() : "";
      return std::unexpected(Fail(where.substr(0, where.find('.')), "its children nest deeper than " +
                                                                        std::to_string(kMaxNodeDepth) + " levels, at object " +
                                                                        Quoted(name)));
    }
    VEX_ASSIGN(auto object, Object(v, where));
    VEX_ASSIGN(vex::ISceneObject * inserted, document.InsertObject(object, parent));
    if (v.contains("children"))
      VEX_TRY(Objects(v["children"], document, static_cast<SceneObject*>(inserted), where + ".children", level));
    return {};
  }

  /// The objects under a parent at `level` (0 for the document's top).
  vex::Result<void> Objects(const Json& v, Document& document, SceneObject* parent, const std::string& where,
                            int level = 0) const {
    if (!v.is_array()) return std::unexpected(Fail(where, "expected an array of objects"));
    for (std::size_t i = 0; i < v.size(); ++i)
      VEX_TRY(ObjectTree(v[i], document, parent, where + "[" + std::to_string(i) + "]", level + 1));
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

// --- reading: the events of the file -------------------------------------------------------------

/// Builds the scene as the file is read. Each top-level section, and each element of "objects",
/// is read into a small tree (geometry arrays decoded beside it) and turned into the document as
/// soon as it ends, so that the text and a tree of the whole file are never held.
///
/// A file can hold more than one problem; the one reported is the one reading the whole text
/// first would find: a text that is not JSON before anything else, then an unknown or repeated
/// top-level key, then "format", "version", "name", "settings", "data", "renderData", the first
/// bad object, the materials. So a problem is kept and the reading goes on, making only the
/// sections that could still hold an earlier-ranked one.
class SceneEvents final : public JsonEventHandler {
 public:
  SceneEvents(const std::string& source, const ReadOptions& options, Document& document)
      : reader_{{source}, options}, document_(document) {
    reader_.geometry = &geometry_;
  }

  /// After a complete reading: the problem found, else the material sections read into the
  /// document.
  vex::Result<void> Finish() {
    if (root_ != RootKind::Object) return std::unexpected(reader_.Fail("(top)", "expected an object"));
    if (problem_) return std::unexpected(*problem_);
    if (!assets_.is_null() || !materials_.is_null())
      VEX_TRY(material_file::Read(DumpJsonText(assets_.is_null() ? Json::array() : assets_),
                                  DumpJsonText(materials_.is_null() ? Json::array() : materials_), reader_.source,
                                  document_));
    return {};
  }

  bool null() override {
    return Scalar([](Dom& d) { return d.null(); });
  }
  bool boolean(bool v) override {
    return Scalar([v](Dom& d) { return d.boolean(v); });
  }
  bool number_integer(number_integer_t v) override {
    if (decoding_ && Decoded(static_cast<double>(v), v)) return true;
    return Scalar([v](Dom& d) { return d.number_integer(v); });
  }
  bool number_unsigned(number_unsigned_t v) override {
    if (decoding_ && Decoded(static_cast<double>(v), v <= kMaxWhole ? static_cast<std::int64_t>(v) : kNotWhole))
      return true;
    return Scalar([v](Dom& d) { return d.number_unsigned(v); });
  }
  bool number_float(number_float_t v, const string_t& s) override {
    if (decoding_ && Decoded(v, kNotWhole)) return true;
    return Scalar([&](Dom& d) { return d.number_float(v, s); });
  }
  bool string(string_t& v) override {
    return Scalar([&](Dom& d) { return d.string(v); });
  }
  bool start_object(std::size_t n) override {
    if (decoding_) Undecode();
    if (depth_ == 0) return OpenRoot(RootKind::Object);
    if (!Start()) return true;
    frames_.push_back({true, {}});
    return dom_->start_object(n);
  }
  bool key(string_t& k) override {
    if (depth_ == 1 && !unit_) return TopKey(k);
    if (!unit_) return true;
    frames_.back().key = k;
    return dom_->key(k);
  }
  bool end_object() override {
    --depth_;
    if (!unit_) {
      if (depth_ == 0) ended_ = true;
      return true;
    }
    frames_.pop_back();
    return dom_->end_object() && Ended();
  }
  bool start_array(std::size_t n) override {
    if (decoding_) return DecodeStart();
    if (depth_ == 0) return OpenRoot(RootKind::Other);
    if (depth_ == 1 && !unit_ && !ended_ && section_ == Section::Objects) {
      ++depth_;
      objectsList_ = true;
      return true;
    }
    if (!Start()) return true;
    if (const auto kind = GeometryHere()) {
      Decode(*kind);
      return true;
    }
    frames_.push_back({false, {}});
    return dom_->start_array(n);
  }
  bool end_array() override {
    if (decoding_) return DecodeEnd();
    --depth_;
    if (!unit_) {
      if (depth_ == 1) objectsList_ = false;
      return true;
    }
    frames_.pop_back();
    return dom_->end_array() && Ended();
  }

 private:
  using Dom = nlohmann::detail::json_sax_dom_parser<Json>;
  static constexpr std::uint64_t kMaxWhole = std::numeric_limits<std::int64_t>::max();
  static constexpr std::int64_t kNotWhole = std::numeric_limits<std::int64_t>::min();

  enum class RootKind { None, Object, Other };
  /// Top-level sections in the order their problems rank.
  enum class Section { Keys, Format, Version, Name, Settings, Data, RenderData, Objects, Assets, Materials, Unknown };
  struct Frame {
    bool object;
    std::string key;  ///< the member being read
  };

  static Section SectionOf(std::string_view key) {
    constexpr std::pair<std::string_view, Section> kSections[] = {
        {"format", Section::Format},     {"version", Section::Version},       {"name", Section::Name},
        {"settings", Section::Settings}, {"data", Section::Data},             {"renderData", Section::RenderData},
        {"objects", Section::Objects},   {"substanceAssets", Section::Assets}, {"materials", Section::Materials}};
    for (const auto& [name, section] : kSections)
      if (key == name) return section;
    return Section::Unknown;
  }

  /// Keeps the problem that ranks first (the earlier one of equal rank).
  void Problem(Section rank, vex::Error error) {
    if (!problem_ || rank < problemRank_) {
      problem_ = std::move(error);
      problemRank_ = rank;
    }
  }
  /// Whether a section can still hold the problem to report.
  bool Worth(Section section) const { return !problem_ || section < problemRank_; }

  bool TopKey(const std::string& k) {
    section_ = SectionOf(k);
    if (section_ == Section::Unknown) {
      Problem(Section::Keys, reader_.Fail(k, "unknown key"));
    } else if (std::find(seen_.begin(), seen_.end(), section_) != seen_.end()) {
      Problem(Section::Keys, reader_.Fail(k, "given twice"));
      section_ = Section::Unknown;
    } else {
      seen_.push_back(section_);
    }
    return true;
  }

  /// A value starts outside the part being built: the root, a section or an element of
  /// "objects" begins a part (or is passed over). Returns whether a part is being built.
  bool Begin() {
    if (unit_) return true;
    if (depth_ == 0) {
      if (root_ == RootKind::None) root_ = RootKind::Other;
      return false;
    }
    if (root_ != RootKind::Object || ended_) return false;
    const bool element = depth_ == 2 && objectsList_;
    if (depth_ != 1 && !element) return false;
    const Section section = element ? Section::Objects : section_;
    if (section == Section::Unknown || !Worth(section) || (element && objectFailed_)) return false;
    unit_ = true;
    unitDepth_ = depth_;
    unitSection_ = section;
    tree_ = Json();
    dom_.emplace(tree_, false);
    frames_.clear();
    return true;
  }

  /// A scalar value: into the part being built, which it may complete.
  template <class F>
  bool Scalar(F&& f) {
    if (decoding_) Undecode();
    if (!Begin()) return true;
    return f(*dom_) && Ended();
  }

  /// The root opens: only an object makes a scene.
  bool OpenRoot(RootKind kind) {
    root_ = kind;
    ++depth_;
    return true;
  }

  /// An object or array opens inside the root: a container of the part being built, or the start
  /// of one. Returns whether a part is being built.
  bool Start() {
    const bool building = Begin();
    ++depth_;
    return building;
  }

  /// After a value of the part being built: when the part is complete, turns it into the
  /// document.
  bool Ended() {
    if (depth_ != unitDepth_) return true;
    unit_ = false;
    dom_.reset();
    if (auto done = Apply(); !done) Problem(unitSection_, std::move(done).error());
    tree_ = Json();
    geometry_.slots.clear();
    return true;
  }

  vex::Result<void> Apply() {
    const Json& v = tree_;
    switch (unitSection_) {
      case Section::Format:
        if (v != "vexon-scene") return std::unexpected(reader_.Fail("format", "expected \"vexon-scene\""));
        return {};
      case Section::Version: {
        VEX_ASSIGN(auto version, reader_.Integer(v, 1, kVersion, "version"));
        (void)version;
        return {};
      }
      case Section::Name: {
        VEX_ASSIGN(std::string name, reader_.String(v, "name"));
        document_.SetName(std::move(name));
        return {};
      }
      case Section::Settings: {
        VEX_ASSIGN(document_.Settings(), reader_.Container(v, "settings"));
        return {};
      }
      case Section::Data: {
        VEX_ASSIGN(vex::ParamContainer data, reader_.Container(v, "data"));
        document_.SetDataContainer(data);
        return {};
      }
      case Section::RenderData: return reader_.RenderSettings(v, document_, "renderData");
      case Section::Objects: {
        if (depth_ == 1) return reader_.Objects(v, document_, nullptr, "objects");  // not a list
        const std::string at = "objects[" + std::to_string(objectIndex_++) + "]";
        auto inserted = reader_.ObjectTree(v, document_, nullptr, at, 1);
        if (!inserted) objectFailed_ = true;
        return inserted;
      }
      case Section::Assets: assets_ = std::move(tree_); return {};
      case Section::Materials: materials_ = std::move(tree_); return {};
      case Section::Keys:
      case Section::Unknown: break;
    }
    return {};
  }

  // --- geometry arrays --------------------------------------------------------------------------

  /// The geometry array an array opening here is: "points" and "polygons" of a polygon mesh,
  /// "normals", "uvs" and "materials" of polygon attributes; not in the material sections.
  std::optional<Geometry::Kind> GeometryHere() const {
    if (unitSection_ == Section::Assets || unitSection_ == Section::Materials || frames_.size() < 2) return std::nullopt;
    const Frame& list = frames_.back();
    const Frame& value = frames_[frames_.size() - 2];
    if (!list.object || !value.object) return std::nullopt;
    if (value.key == "polygonmesh") {
      if (list.key == "points") return Geometry::Kind::Vectors3;
      if (list.key == "polygons") return Geometry::Kind::Loops;
    } else if (value.key == "polygonattributes") {
      if (list.key == "normals") return Geometry::Kind::Vectors3;
      if (list.key == "uvs") return Geometry::Kind::Vectors2;
      if (list.key == "materials") return Geometry::Kind::Indices;
    }
    return std::nullopt;
  }

  void Decode(Geometry::Kind kind) {
    Geometry::Slot slot{kind, {}, {}, {}, {}};
    // Attribute lists follow their mesh (as this unit writes them): one per corner or polygon of
    // the polygons read last, so their storage is sized once instead of growing by copies.
    if (frames_.back().key != "points") {
      const auto loops = std::find_if(geometry_.slots.rbegin(), geometry_.slots.rend(),
                                      [](const Geometry::Slot& s) { return s.kind == Geometry::Kind::Loops; });
      if (loops != geometry_.slots.rend()) {
        if (kind == Geometry::Kind::Vectors3) slot.vectors3.reserve(loops->indices.size());
        if (kind == Geometry::Kind::Vectors2) slot.vectors2.reserve(loops->indices.size());
        if (kind == Geometry::Kind::Indices) slot.indices.reserve(loops->sizes.size());
      }
    }
    geometry_.slots.push_back(std::move(slot));
    decoding_ = true;
    inRow_ = false;
    rowSize_ = 0;
  }

  std::size_t Width() const {
    return geometry_.slots.back().kind == Geometry::Kind::Vectors3 ? 3 : 2;
  }

  bool DecodeStart() {
    auto& slot = geometry_.slots.back();
    if (inRow_ || slot.kind == Geometry::Kind::Indices) {
      Undecode();
      return start_array(static_cast<std::size_t>(-1));
    }
    inRow_ = true;
    rowSize_ = 0;
    ++depth_;
    return true;
  }

  /// A number of the array being decoded; false (and the array back in the tree) when it does
  /// not fit there.
  bool Decoded(double v, std::int64_t whole) {
    auto& slot = geometry_.slots.back();
    const bool fits = whole >= std::numeric_limits<std::int32_t>::min() && whole <= std::numeric_limits<std::int32_t>::max();
    switch (slot.kind) {
      case Geometry::Kind::Vectors3:
      case Geometry::Kind::Vectors2:
        if (!inRow_ || rowSize_ == Width()) break;
        row_[rowSize_++] = v;
        return true;
      case Geometry::Kind::Loops:
        if (!inRow_ || !fits) break;
        slot.indices.push_back(static_cast<std::int32_t>(whole));
        ++rowSize_;
        return true;
      case Geometry::Kind::Indices:
        if (!fits) break;
        slot.indices.push_back(static_cast<std::int32_t>(whole));
        return true;
    }
    Undecode();
    return false;
  }

  bool DecodeEnd() {
    auto& slot = geometry_.slots.back();
    if (!inRow_) {  // the list is complete
      decoding_ = false;
      --depth_;
      const auto fit = [](auto& list) {
        if (list.capacity() > list.size() + list.size() / 4) list.shrink_to_fit();
      };
      fit(slot.vectors3), fit(slot.vectors2), fit(slot.sizes), fit(slot.indices);
      Json::binary_t placeholder(std::vector<std::uint8_t>{}, static_cast<std::uint64_t>(geometry_.slots.size() - 1));
      return dom_->binary(placeholder) && Ended();
    }
    switch (slot.kind) {
      case Geometry::Kind::Vectors3:
        if (rowSize_ != 3) break;
        slot.vectors3.push_back({row_[0], row_[1], row_[2]});
        inRow_ = false;
        --depth_;
        return true;
      case Geometry::Kind::Vectors2:
        if (rowSize_ != 2) break;
        slot.vectors2.push_back({row_[0], row_[1]});
        inRow_ = false;
        --depth_;
        return true;
      case Geometry::Kind::Loops:
        if (rowSize_ < 3) break;
        slot.sizes.push_back(static_cast<std::int32_t>(rowSize_));
        inRow_ = false;
        --depth_;
        return true;
      case Geometry::Kind::Indices: break;
    }
    Undecode();
    return end_array();
  }

  /// The array does not have the shape decoded here: what was decoded goes into the tree as
  /// it was read, and the rest follows it there, for the reader's own message.
  void Undecode() {
    Geometry::Slot slot = std::move(geometry_.slots.back());
    geometry_.slots.pop_back();
    decoding_ = false;
    const auto open = [&] {
      frames_.push_back({false, {}});
      dom_->start_array(static_cast<std::size_t>(-1));
    };
    const auto close = [&] {
      frames_.pop_back();
      dom_->end_array();
    };
    const auto number = [&](double v) { dom_->number_float(v, {}); };
    open();  // the list; depth_ already counts it
    switch (slot.kind) {
      case Geometry::Kind::Vectors3:
        for (const auto& p : slot.vectors3) {
          open();
          number(p.x), number(p.y), number(p.z);
          close();
        }
        break;
      case Geometry::Kind::Vectors2:
        for (const auto& p : slot.vectors2) {
          open();
          number(p.x), number(p.y);
          close();
        }
        break;
      case Geometry::Kind::Loops: {
        std::size_t corner = 0;
        for (const std::int32_t size : slot.sizes) {
          open();
          for (std::int32_t k = 0; k < size; ++k) dom_->number_integer(slot.indices[corner++]);
          close();
        }
        if (inRow_) {
          open();
          for (; corner < slot.indices.size(); ++corner) dom_->number_integer(slot.indices[corner]);
        }
        break;
      }
      case Geometry::Kind::Indices:
        for (const std::int32_t i : slot.indices) dom_->number_integer(i);
        break;
    }
    if (inRow_ && slot.kind != Geometry::Kind::Loops) {
      open();
      for (std::size_t k = 0; k < rowSize_; ++k) number(row_[k]);
    }
    inRow_ = false;
  }

  Reader reader_;
  Document& document_;
  Geometry geometry_;

  RootKind root_ = RootKind::None;
  int depth_ = 0;  ///< open objects and arrays
  bool ended_ = false;  ///< the root object closed
  Section section_ = Section::Unknown;  ///< of the last top-level key
  std::vector<Section> seen_;
  bool objectsList_ = false;  ///< inside the list of "objects"
  std::size_t objectIndex_ = 0;
  bool objectFailed_ = false;

  bool unit_ = false;  ///< a part is being built
  int unitDepth_ = 0;
  Section unitSection_ = Section::Unknown;
  Json tree_;
  std::optional<Dom> dom_;
  std::vector<Frame> frames_;

  bool decoding_ = false;
  bool inRow_ = false;
  std::size_t rowSize_ = 0;
  double row_[3] = {};

  std::optional<vex::Error> problem_;
  Section problemRank_ = Section::Unknown;
  Json assets_, materials_;
};

/// The nesting a scene file may reach: the limit for JSON, plus two levels (an object and its
/// "children") for each level of a hierarchy as deep as a scene may be, which ObjectTree checks.
int SceneDepthLimit() { return JsonDepthLimit() + 2 * kMaxNodeDepth; }

}  // namespace

vex::Result<void> Parse(std::string_view text, const std::string& source, Document& document,
                        const ReadOptions& options) {
  SceneEvents events(source, options, document);
  VEX_TRY(ReadJsonEvents(text, source, events, SceneDepthLimit()));
  VEX_TRY(events.Finish());
  document.SetChanged(false);
  return {};
}

vex::Result<void> ParseFile(const std::string& path, Document& document, const ReadOptions& options) {
  SceneEvents events(path, options, document);
  VEX_TRY(ReadJsonFileEvents(path, events, SceneDepthLimit()));
  VEX_TRY(events.Finish());
  document.SetChanged(false);
  return {};
}

vex::Result<Document*> Load(Documents& documents, const std::string& path, const ReadOptions& options) {
  VEX_TRY(CheckInputFile(path));
  const fs::path file(path);
  Document& document = documents.NewDocument(file.stem().string());
  document.SetPath(fs::absolute(file).parent_path().string());
  if (auto parsed = ParseFile(path, document, options); !parsed) {
    documents.Close(&document);
    return std::unexpected(std::move(parsed).error());
  }
  return &document;
}

vex::Result<vex::DataDictionary> ParseDictionary(std::string_view text, const std::string& source,
                                                 const ReadOptions& options) {
  VEX_ASSIGN(Json root, json_codec::Parse(text, source));
  Reader reader{{source}, options, true};
  if (!root.is_object()) return std::unexpected(reader.Fail("(top)", "expected an object"));
  return reader.Dictionary(root, "(top)");
}

vex::Result<vex::DataDictionary> ReadDictionaryFile(const std::string& path, const ReadOptions& options) {
  VEX_ASSIGN(std::string text, ReadInputFile(path));
  return ParseDictionary(text, path, options);
}

}  // namespace host::scene_file
