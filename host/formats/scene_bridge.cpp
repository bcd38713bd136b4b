#include "host/formats/scene_bridge.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <numbers>
#include <sstream>
#include <unordered_map>

#include "host/formats/readers.h"
#include "host/input_checks.h"
#include "host/input_files.h"
#include "host/json_codec.h"
#include "host/material_exchange.h"
#include "host/materials.h"
#include "host/polygon_object.h"
#include "vex/objectdescription.h"
#include "vex/polygon.h"
#include "vex/units.h"

namespace fs = std::filesystem;

namespace host::formats {
namespace {

// The Corvane renderer's light object and the parameters of it that travel (the renderer's own
// ids; the module's light class writes them from a description).
namespace corvane {
constexpr std::int32_t kLightObject = 1036751;
constexpr std::int32_t kType = 10000;         // LightType: 0 infinite, 1 point, 2 spot, 3 area, 4 dome, 5 IES, 6 portal, 7 sun
constexpr std::int32_t kColor = 11000;
constexpr std::int32_t kColorMode = 11002;    // 0 colour, 1 temperature, 2 colour and temperature
constexpr std::int32_t kTemperature = 11003;
constexpr std::int32_t kIntensity = 11004;
constexpr std::int32_t kFalloffStop = 11009;
constexpr std::int32_t kAreaShape = 11010;    // 0 rectangle, 1 disc, 2 sphere, 3 cylinder, 4 mesh
constexpr std::int32_t kAreaSizeX = 11016, kAreaSizeY = 11017, kAreaSizeZ = 11018;
constexpr std::int32_t kConeAngle = 11019;    // degrees, outer cone from the axis
constexpr std::int32_t kConeFalloff = 11020;  // degrees, from the inner to the outer cone
constexpr std::int32_t kDomeTexture = 12000;
constexpr double kAreaSizeDefault = 200.0;
// The units the light intensities are exchanged in (LightUnits of the description).
constexpr std::int32_t kLuminousPower = 1;
constexpr std::int32_t kLuminance = 2;
}  // namespace corvane

// The description's enumeration strings and attribute names this bridge writes.
std::string LightKey(std::string_view name) { return std::string(vex::tessel::key::kLightPrefix) + std::string(name); }

constexpr double kWhite = 6500.0;  // the white point of colour temperatures
constexpr double kFourPi = 4.0 * std::numbers::pi;

std::string Quoted(const std::string& name) { return "'" + name + "'"; }

#define SCENE_ERROR(source, what) VEX_ERROR(vex::ErrorKind::IllegalArgument, (source) + ": " + (what))

double Degrees(double radians) { return radians * 180.0 / std::numbers::pi; }
double Radians(double degrees) { return degrees * std::numbers::pi / 180.0; }

// --- transforms ------------------------------------------------------------------------------------

Matrix4 ToMatrix(const Affine& a) {
  Matrix4 out;
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 4; ++c) out.m[static_cast<std::size_t>(c * 4 + r)] = a.m[r][c];
  return out;
}

double At(const Matrix4& m, int row, int column) { return m.m[static_cast<std::size_t>(column * 4 + row)]; }

/// A rotation of the frame about +X taking `from` up to `to` up.
Matrix4 UpTurn(char from, char to) {
  Matrix4 c;
  if (from == to) return c;
  const double s = from == 'Y' ? 1.0 : -1.0;  // Y up to Z up: y -> z, z -> -y
  c.m = {1, 0, 0, 0, 0, 0, s, 0, 0, -s, 0, 0, 0, 0, 0, 1};
  return c;
}

// --- document to scene -----------------------------------------------------------------------------

struct CornerKey {
  std::int32_t point;
  std::array<float, 5> attributes;  // normal, uv
  bool operator==(const CornerKey& o) const {
    return point == o.point && std::memcmp(attributes.data(), o.attributes.data(), sizeof(float) * 5) == 0;
  }
};
struct CornerHash {
  std::size_t operator()(const CornerKey& k) const {
    std::size_t h = std::hash<std::int32_t>()(k.point);
    for (const float f : k.attributes) {
      std::uint32_t bits;
      std::memcpy(&bits, &f, sizeof bits);
      h = h * 1099511628211ull ^ bits;
    }
    return h;
  }
};

class DocumentReader {
 public:
  DocumentReader(Document& document, const std::string& source, const DocumentExport& how)
      : document_(document), source_(source), how_(how) {}

  vex::Result<SceneData> Read() {
    scene_.name = document_.GetName();
    scene_.upAxis = 'Y';
    const vex::Data* unit = document_.Settings().Find(vex::kDocumentLengthUnit);
    if (const auto* u = unit != nullptr ? unit->Get<vex::UnitScale>() : nullptr) scene_.metersPerUnit = u->metresPerUnit;
    VEX_TRY(Materials());
    // The objects list is copied: light conversions insert and remove scratch objects at the top.
    const auto roots = document_.Objects();
    for (const auto& object : roots) VEX_TRY(Object(*object, -1));
    return std::move(scene_);
  }

 private:
  std::string Where(const SceneObject& object) const { return "object " + Quoted(object.GetName()); }

  vex::Result<void> Materials() {
    MaterialExportRequest request;
    if (how_.row != nullptr)
      for (const auto bundle : how_.row->bundles) request.accepted.Insert(vex::Id(bundle), 0);
    const vex::MaterialTypesMap fallbacks = DefaultAcceptedBundles();
    for (const auto& [bundle, value] : fallbacks.Entries()) {
      (void)value;
      if (!request.accepted.Find(bundle)) request.accepted.Insert(bundle, how_.row != nullptr ? 1 : 0);
    }
    request.textureSize = how_.textureSize;
    for (const auto& material : document_.Materials().All()) {
      const std::string name = material->GetName();
      auto set = ExportMaterial(material, request);
      if (!set) return std::unexpected(SCENE_ERROR(source_, "material " + Quoted(name) + ": " + set.error().message));
      for (const auto& line : ResolveSubstanceReferences(*material, *set))
        scene_.warnings.push_back("material " + Quoted(name) + ": " + line);
      vex::ParameterSetRef ref = std::make_shared<const vex::ParameterSet>(std::move(*set));
      if (how_.row != nullptr) {
        auto carried = ToWriterBundle(ref, *how_.row, how_.conversion);
        if (!carried) return std::unexpected(SCENE_ERROR(source_, "material " + Quoted(name) + ": " + carried.error().message));
        for (const auto& w : carried->warnings) scene_.warnings.push_back("material " + Quoted(name) + ": " + w);
        ref = carried->set;
      }
      materialIndex_.emplace(name, static_cast<int>(scene_.materials.size()));
      scene_.materials.push_back({name, std::move(ref)});
    }
    return {};
  }

  vex::Result<void> Object(SceneObject& object, int parent) {
    NodeData node;
    node.name = object.GetName();
    node.parent = parent;
    node.local = ToMatrix(LocalTransform(object));
    if (!node.local.IsFinite()) return std::unexpected(SCENE_ERROR(source_, Where(object) + ": its transform is not finite"));
    switch (object.GetType()) {
      case vex::kPolygonObjectType: {
        VEX_ASSIGN(node.mesh, Mesh(object));
        break;
      }
      case corvane::kLightObject: {
        VEX_ASSIGN(node.light, Light(object));
        break;
      }
      case kCameraObjectType:
        node.camera = Camera(object);
        break;
      case vex::kGroupObjectType:
        break;
      default:
        scene_.warnings.push_back(Where(object) + ": object type " + std::to_string(object.GetType()) +
                                  " is carried as an empty node");
    }
    const int index = static_cast<int>(scene_.nodes.size());
    scene_.nodes.push_back(std::move(node));
    for (const auto& child : object.Children()) VEX_TRY(Object(*child, index));
    return {};
  }

  vex::Result<int> Mesh(SceneObject& object) {
    const vex::Data* data = object.Parameters().Find(vex::kPolygonMeshParameter);
    const auto* polygons = data != nullptr ? data->Get<vex::PolygonMesh>() : nullptr;
    if (polygons == nullptr || polygons->PolygonCount() == 0)
      return std::unexpected(SCENE_ERROR(source_, Where(object) + ": the polygon object has no polygons"));
    PolygonAttributes none;
    const vex::Data* extra = object.Parameters().Find(kPolygonAttributesParameter);
    const PolygonAttributes& attributes =
        extra != nullptr && extra->Get<PolygonAttributes>() != nullptr ? *extra->Get<PolygonAttributes>() : none;
    if (auto problem = CheckPolygonAttributes(*polygons, attributes); !problem.empty())
      return std::unexpected(SCENE_ERROR(source_, Where(object) + ": " + problem));

    MeshData mesh;
    mesh.name = object.GetName();
    const bool normals = !attributes.normals.empty(), uvs = !attributes.uvs.empty();
    const std::size_t pointCount = polygons->points.size();
    for (const auto& p : polygons->points)
      if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z))
        return std::unexpected(SCENE_ERROR(source_, Where(object) + ": a point is not finite"));
    // Without corner attributes the points are the vertices; with them, each distinct corner is.
    std::unordered_map<CornerKey, std::uint32_t, CornerHash> corners;
    if (!normals && !uvs) {
      mesh.positions.reserve(pointCount * 3);
      for (const auto& p : polygons->points)
        for (const double v : {p.x, p.y, p.z}) mesh.positions.push_back(static_cast<float>(v));
    }
    const auto vertex = [&](std::size_t corner) -> std::uint32_t {
      const std::int32_t point = polygons->polygonPoints[corner];
      if (!normals && !uvs) return static_cast<std::uint32_t>(point);
      CornerKey key{point, {0, 0, 0, 0, 0}};
      if (normals) {
        const auto& n = attributes.normals[corner];
        key.attributes[0] = static_cast<float>(n.x), key.attributes[1] = static_cast<float>(n.y),
        key.attributes[2] = static_cast<float>(n.z);
      }
      if (uvs) key.attributes[3] = static_cast<float>(attributes.uvs[corner].x),
               key.attributes[4] = static_cast<float>(attributes.uvs[corner].y);
      auto [it, fresh] = corners.emplace(key, static_cast<std::uint32_t>(mesh.positions.size() / 3));
      if (fresh) {
        const auto& p = polygons->points[static_cast<std::size_t>(point)];
        for (const double v : {p.x, p.y, p.z}) mesh.positions.push_back(static_cast<float>(v));
        if (normals) mesh.normals.insert(mesh.normals.end(), key.attributes.begin(), key.attributes.begin() + 3);
        if (uvs) mesh.uvs.insert(mesh.uvs.end(), key.attributes.begin() + 3, key.attributes.end());
      }
      return it->second;
    };

    std::size_t corner = 0;
    for (std::size_t f = 0; f < polygons->PolygonCount(); ++f) {
      const auto size = static_cast<std::size_t>(polygons->polygonSizes[f]);
      if (size < 3 || corner + size > polygons->polygonPoints.size())
        return std::unexpected(SCENE_ERROR(source_, Where(object) + ": polygon " + std::to_string(f) + " has " +
                                                 std::to_string(size) + " corners where it needs three or more"));
      for (std::size_t k = 0; k < size; ++k) {
        const std::int32_t p = polygons->polygonPoints[corner + k];
        if (p < 0 || static_cast<std::size_t>(p) >= pointCount)
          return std::unexpected(SCENE_ERROR(source_, Where(object) + ": polygon " + std::to_string(f) + " refers to point " +
                                                   std::to_string(p) + ", which does not exist"));
      }
      int material = -1;
      if (!attributes.materials.empty() && attributes.materials[f] >= 0) {
        const std::string& name = attributes.materialNames[static_cast<std::size_t>(attributes.materials[f])];
        const auto found = materialIndex_.find(name);
        if (found == materialIndex_.end())
          return std::unexpected(
              SCENE_ERROR(source_, Where(object) + ": material " + Quoted(name) + " is not a material of the document"));
        material = found->second;
      }
      const auto triangle = static_cast<std::uint32_t>(mesh.TriangleCount());
      if (mesh.parts.empty() || mesh.parts.back().material != material)
        mesh.parts.push_back({triangle, 0, material});
      const std::uint32_t first = vertex(corner);
      for (std::size_t k = 1; k + 1 < size; ++k) {
        mesh.indices.push_back(first);
        mesh.indices.push_back(vertex(corner + k));
        mesh.indices.push_back(vertex(corner + k + 1));
        ++mesh.parts.back().triangleCount;
      }
      corner += size;
    }
    if (mesh.parts.size() == 1 && mesh.parts.front().material == -1) mesh.parts.clear();
    // The object's polygons are not needed again: the geometry is held once, in the scene.
    object.MutableParameters().Erase(vex::kPolygonMeshParameter);
    object.MutableParameters().Erase(kPolygonAttributesParameter);
    scene_.meshes.push_back(std::move(mesh));
    return static_cast<int>(scene_.meshes.size() - 1);
  }

  int Camera(const SceneObject& object) {
    const auto& p = object.Parameters();
    CameraData camera;
    camera.name = object.GetName();
    camera.orthographic = p.GetInt32(kCameraProjection, 0) == 1;
    camera.yfov = p.GetFloat(kCameraFieldOfView, camera.yfov);
    camera.aspectRatio = p.GetFloat(kCameraAspect, camera.aspectRatio);
    camera.orthoHeight = p.GetFloat(kCameraOrthoHeight, camera.orthoHeight);
    camera.znear = p.GetFloat(kCameraNearClip, camera.znear);
    camera.zfar = p.GetFloat(kCameraFarClip, camera.zfar);
    scene_.cameras.push_back(std::move(camera));
    return static_cast<int>(scene_.cameras.size() - 1);
  }

  /// The light's intensity in `units`, through the module's conversion of a scratch copy that
  /// sits in the same document (the conversion reads the document's render settings and units).
  vex::Result<double> Converted(const SceneObject& light, std::int32_t units) {
    auto scratch = std::make_shared<SceneObject>(corvane::kLightObject);
    scratch->SetName(light.GetName());
    scratch->MutableParameters() = light.Parameters();
    VEX_ASSIGN(vex::ISceneObject * inserted, document_.InsertObject(scratch, nullptr));
    auto converted = how_.utils->CVLightConvertToUnit(inserted, units);
    const double value = scratch->Parameters().GetFloat(corvane::kIntensity, 1.0);
    VEX_TRY(document_.RemoveObject(inserted));
    if (!converted) return std::unexpected(converted.error());
    return value;
  }

  vex::Result<int> Light(SceneObject& object) {
    if (how_.utils == nullptr) {
      scene_.warnings.push_back(Where(object) + ": lights need the module's global utilities; left out");
      return -1;
    }
    const auto& p = object.Parameters();
    LightData light;
    light.name = object.GetName();
    const std::int32_t type = p.GetInt32(corvane::kType, 1);
    const auto fail = [&](const vex::Error& e) { return std::unexpected(SCENE_ERROR(source_, Where(object) + ": " + e.message)); };
    switch (type) {
      case 0:
      case 7: {
        light.type = LightData::Type::Directional;
        // Infinite lights are exchanged in luminous power, read as lux; the sun keeps its base
        // intensity, which is what the renderer shows.
        auto value = type == 0 ? Converted(object, corvane::kLuminousPower) : how_.utils->CVLightGetBaseIntensity(&object);
        if (!value) return fail(value.error());
        light.intensity = *value;
        if (type == 7) scene_.warnings.push_back(Where(object) + ": the sun is carried as a directional light");
        break;
      }
      case 1:
      case 2:
      case 5: {
        light.type = type == 2 ? LightData::Type::Spot : LightData::Type::Point;
        auto value = type == 5 ? how_.utils->CVLightGetBaseIntensity(&object) : Converted(object, corvane::kLuminousPower);
        if (!value) return fail(value.error());
        // Lumens spread over the whole sphere: candela = lumens / 4 pi.
        light.intensity = type == 5 ? *value : *value / kFourPi;
        if (type == 5) scene_.warnings.push_back(Where(object) + ": the IES profile is not carried (a point light)");
        break;
      }
      case 3: {
        auto value = Converted(object, corvane::kLuminance);
        if (!value) return fail(value.error());
        light.intensity = *value;
        const double sx = p.GetFloat(corvane::kAreaSizeX, corvane::kAreaSizeDefault);
        const double sy = p.GetFloat(corvane::kAreaSizeY, corvane::kAreaSizeDefault);
        const double sz = p.GetFloat(corvane::kAreaSizeZ, corvane::kAreaSizeDefault);
        switch (p.GetInt32(corvane::kAreaShape, 0)) {
          case 1: light.type = LightData::Type::Disk, light.radius = sx / 2; break;
          case 2: light.type = LightData::Type::Sphere, light.radius = sx / 2; break;
          case 3: light.type = LightData::Type::Cylinder, light.radius = sx / 2, light.length = sz; break;
          default: light.type = LightData::Type::Rect;
        }
        light.width = sx, light.height = sy;
        break;
      }
      case 4: {
        light.type = LightData::Type::Dome;
        auto value = how_.utils->CVLightGetBaseIntensity(&object);
        if (!value) return fail(value.error());
        light.intensity = *value;
        if (const vex::Data* d = p.Find(corvane::kDomeTexture); d != nullptr && d->Get<vex::ImageReference>() != nullptr) {
          const fs::path url(d->Get<vex::ImageReference>()->url.text);
          light.texture = url.is_absolute() || document_.GetPath().empty() ? url.string() : (fs::path(document_.GetPath()) / url).string();
        }
        break;
      }
      default:
        scene_.warnings.push_back(Where(object) + ": light type " + std::to_string(type) + " has no counterpart; left out");
        return -1;
    }
    if (type == 2) {
      const double outer = Radians(p.GetFloat(corvane::kConeAngle, Degrees(light.outerConeAngle)));
      light.outerConeAngle = outer;
      light.innerConeAngle = std::max(0.0, outer - Radians(p.GetFloat(corvane::kConeFalloff, Degrees(outer))));
    }
    if (const double stop = p.GetFloat(corvane::kFalloffStop, 0.0); stop > 0.0) light.range = stop;
    // Colour: the colour, the temperature's colour, or both multiplied.
    const std::int32_t mode = p.GetInt32(corvane::kColorMode, 0);
    if (const vex::Data* c = p.Find(corvane::kColor); c != nullptr && c->Get<vex::Color>() != nullptr && mode != 1)
      light.color = *c->Get<vex::Color>();
    if (mode == 1 || mode == 2) {
      const double t = p.GetFloat(corvane::kTemperature, kWhite);
      const vex::Color rgb = how_.utils->ComputeColorTemperatureRGB(t, true, kWhite);
      light.color = {light.color.r * rgb.r, light.color.g * rgb.g, light.color.b * rgb.b};
      light.temperature = t;
      light.temperatureRgb = rgb;
    }
    scene_.lights.push_back(std::move(light));
    return static_cast<int>(scene_.lights.size() - 1);
  }

  Document& document_;
  const std::string& source_;
  const DocumentExport& how_;
  SceneData scene_;
  std::map<std::string, int> materialIndex_;
};

// --- scene to document -----------------------------------------------------------------------------

class DocumentWriter {
 public:
  DocumentWriter(SceneData& scene, Document& document, const std::string& source, const DocumentImport& how)
      : scene_(scene), document_(document), source_(source), how_(how) {}

  vex::Result<std::vector<std::string>> Write() {
    if (scene_.upAxis != 'Y') ConvertFrame(scene_, scene_.metersPerUnit, 'Y');
    document_.Settings().Set(vex::kDocumentLengthUnit, vex::Data::MakeCustom(DocumentUnit(scene_.metersPerUnit)));
    VEX_TRY(Materials());
    objects_.assign(scene_.nodes.size(), nullptr);
    for (std::size_t i = 0; i < scene_.nodes.size(); ++i) VEX_TRY(Node(i));
    return std::move(warnings_);
  }

 private:
  static vex::UnitScale DocumentUnit(double metersPerUnit) {
    constexpr std::pair<const char*, double> kUnits[] = {{"m", 1.0},     {"cm", 0.01},   {"mm", 0.001},
                                                         {"km", 1000.0}, {"in", 0.0254}, {"ft", 0.3048}};
    for (const auto& [name, metres] : kUnits)
      if (std::abs(metres - metersPerUnit) <= 1e-12 * metres) return {name, metres};
    return {"scene", metersPerUnit};
  }

  vex::Result<void> Materials() {
    for (const auto& m : scene_.materials) {
      if (!m.set) continue;
      auto resolved = std::make_shared<vex::ParameterSet>(*m.set);
      ResolveTextureProperties(*resolved);
      auto material = ImportMaterial(document_, *resolved, vex::nodespace::kCorvane);
      if (!material) return std::unexpected(SCENE_ERROR(source_, "material " + Quoted(m.name) + ": " + material.error().message));
      if (auto* imported = dynamic_cast<Material*>(material->get())) imported->SetName(m.name);
    }
    return {};
  }

  std::string Where(const NodeData& node) const { return "node " + Quoted(node.name); }

  vex::Result<void> Node(std::size_t i) {
    NodeData& node = scene_.nodes[i];
    SceneObject* parent = node.parent >= 0 ? objects_[static_cast<std::size_t>(node.parent)] : nullptr;
    const Decomposed d = Decompose(node.local);
    if (d.sheared) warnings_.push_back(Where(node) + ": the shear of its transform is lost");
    // The node's object: its mesh, else its light, else its camera, else a group. What a node
    // carries beyond the first becomes a child at the node's origin.
    std::vector<std::shared_ptr<SceneObject>> made;
    vex::ISceneObject* light = nullptr;
    if (node.mesh >= 0) made.push_back(PolygonObject(node, scene_.meshes[static_cast<std::size_t>(node.mesh)]));
    if (node.camera >= 0) made.push_back(Camera(node, scene_.cameras[static_cast<std::size_t>(node.camera)]));
    const bool lightFirst = node.light >= 0 && made.empty();
    if (lightFirst) {
      VEX_ASSIGN(light, Light(scene_.lights[static_cast<std::size_t>(node.light)], node.name, d, parent));
    }
    if (made.empty() && light == nullptr) {
      auto group = std::make_shared<SceneObject>(vex::kGroupObjectType);
      group->SetName(node.name);
      made.push_back(std::move(group));
    }
    SceneObject* own = static_cast<SceneObject*>(light);
    for (std::size_t k = 0; k < made.size(); ++k) {
      if (k == 0) SetTransform(*made[k], d);
      VEX_ASSIGN(vex::ISceneObject * inserted, document_.InsertObject(made[k], k == 0 ? parent : own));
      if (k == 0) own = static_cast<SceneObject*>(inserted);
    }
    if (node.light >= 0 && !lightFirst) {
      VEX_ASSIGN(light, Light(scene_.lights[static_cast<std::size_t>(node.light)], node.name, Decomposed{}, own));
    }
    objects_[i] = own;
    return {};
  }

  static void SetTransform(SceneObject& object, const Decomposed& d) {
    auto& p = object.MutableParameters();
    if (d.position != vex::Vector3d{}) p.Set(vex::kObjectRelativePosition, d.position);
    if (d.rotation != vex::Vector3d{}) p.Set(vex::kObjectRelativeRotation, d.rotation);
    if (d.scale != vex::Vector3d{1, 1, 1}) p.Set(vex::kObjectRelativeScale, d.scale);
  }

  std::shared_ptr<SceneObject> PolygonObject(const NodeData& node, MeshData& data) {
    // The mesh is moved out of the scene as it becomes the object's: one copy at a time.
    MeshData mesh = std::move(data);
    data = MeshData{};
    const std::size_t vertices = mesh.VertexCount();
    const bool normals = mesh.normals.size() == vertices * 3 && !mesh.normals.empty();
    const bool uvs = mesh.uvs.size() == vertices * 2 && !mesh.uvs.empty();
    vex::PolygonMesh polygons;
    polygons.points.reserve(vertices);
    for (std::size_t v = 0; v < vertices; ++v)
      polygons.points.push_back({mesh.positions[v * 3], mesh.positions[v * 3 + 1], mesh.positions[v * 3 + 2]});
    std::vector<float>().swap(mesh.positions);
    polygons.polygonSizes.assign(mesh.TriangleCount(), 3);
    polygons.polygonPoints.reserve(mesh.indices.size());
    PolygonAttributes attributes;
    if (normals) attributes.normals.reserve(mesh.indices.size());
    if (uvs) attributes.uvs.reserve(mesh.indices.size());
    for (const std::uint32_t index : mesh.indices) {
      polygons.polygonPoints.push_back(static_cast<std::int32_t>(index));
      if (normals)
        attributes.normals.push_back({mesh.normals[index * 3], mesh.normals[index * 3 + 1], mesh.normals[index * 3 + 2]});
      if (uvs) attributes.uvs.push_back({mesh.uvs[index * 2], mesh.uvs[index * 2 + 1]});
    }
    if (!mesh.parts.empty()) {
      attributes.materials.assign(mesh.TriangleCount(), -1);
      std::map<int, std::int32_t> local;
      for (const auto& part : mesh.parts) {
        std::int32_t index = -1;
        if (part.material >= 0) {
          auto [it, fresh] = local.emplace(part.material, static_cast<std::int32_t>(attributes.materialNames.size()));
          if (fresh) attributes.materialNames.push_back(scene_.materials[static_cast<std::size_t>(part.material)].name);
          index = it->second;
        }
        for (std::uint32_t t = 0; t < part.triangleCount; ++t) attributes.materials[part.firstTriangle + t] = index;
      }
      if (attributes.materialNames.empty()) attributes.materials.clear();
    }
    auto object = MakePolygonObject(node.name, std::move(polygons));
    if (!attributes.normals.empty() || !attributes.uvs.empty() || !attributes.materials.empty())
      object->MutableParameters().Set(kPolygonAttributesParameter, vex::Data::MakeCustom(std::move(attributes)));
    return object;
  }

  static std::shared_ptr<SceneObject> Camera(const NodeData& node, const CameraData& camera) {
    auto object = std::make_shared<SceneObject>(kCameraObjectType);
    object->SetName(node.name);
    auto& p = object->MutableParameters();
    p.Set(kCameraProjection, std::int32_t{camera.orthographic ? 1 : 0});
    if (camera.orthographic) p.Set(kCameraOrthoHeight, camera.orthoHeight);
    else p.Set(kCameraFieldOfView, camera.yfov);
    p.Set(kCameraAspect, camera.aspectRatio);
    p.Set(kCameraNearClip, camera.znear);
    p.Set(kCameraFarClip, camera.zfar);
    return object;
  }

  /// The light as a neutral description, built and inserted by the global import.
  vex::Result<vex::ISceneObject*> Light(const LightData& light, const std::string& name, const Decomposed& d,
                                        SceneObject* parent) {
    if (how_.importer == nullptr || how_.utils == nullptr) {
      warnings_.push_back("light " + Quoted(light.name) + ": lights need the module's global import; left out");
      return nullptr;
    }
    namespace key = vex::tessel::key;
    vex::DataDictionary a;
    a.Set(std::string(key::kObjectType), vex::Id(vex::tessel::kObjectTypeLight));
    a.Set(std::string(key::kName), name);
    a.Set(std::string(key::kPosition), d.position);
    a.Set(std::string(key::kRotation), d.rotation);
    a.Set(std::string(key::kScale), d.scale);
    const auto set = [&](std::string_view attribute, vex::Data value) { a.Set(LightKey(attribute), std::move(value)); };
    const auto id = [](std::string_view text) { return vex::Data(vex::Id(text)); };
    double intensity = light.intensity;
    switch (light.type) {
      case LightData::Type::Point:
      case LightData::Type::Spot:
        set("type", id(light.type == LightData::Type::Spot ? "spot" : "point"));
        set("unitstype", id("luminous_power"));
        intensity = light.intensity * kFourPi;
        break;
      case LightData::Type::Directional:
        set("type", id("infinite"));
        set("unitstype", id("luminous_power"));
        break;
      case LightData::Type::Rect:
      case LightData::Type::Disk:
      case LightData::Type::Sphere:
      case LightData::Type::Cylinder: {
        set("type", id("area"));
        set("unitstype", id("luminance"));
        const char* shape = light.type == LightData::Type::Rect   ? "rectangle"
                            : light.type == LightData::Type::Disk ? "disc"
                            : light.type == LightData::Type::Sphere ? "sphere"
                                                                    : "cylinder";
        set("area_geometry", id(shape));
        if (light.type == LightData::Type::Rect) {
          set("area_sizex", light.width);
          set("area_sizey", light.height);
        } else {
          set("area_sizex", light.radius * 2);
          set("area_sizey", light.radius * 2);
          set("area_sizez", light.type == LightData::Type::Cylinder ? light.length : light.radius * 2);
        }
        break;
      }
      case LightData::Type::Dome:
        set("type", id("dome"));
        if (!light.texture.empty()) {
          vex::ImageReference image;
          image.url.text = light.texture;
          set("dome_tex", vex::Data::MakeCustom(std::move(image)));
        }
        break;
    }
    if (light.type == LightData::Type::Spot) {
      set("spot_cone_angle", Degrees(light.outerConeAngle));
      set("spot_cone_falloff_angle", Degrees(light.outerConeAngle - light.innerConeAngle));
    }
    if (light.range && *light.range > 0) set("falloffstop", *light.range);
    vex::Color colour = light.color;
    if (light.temperature && *light.temperature > 0) {
      // The colour holds the temperature's colour already: the description keeps them apart.
      const vex::Color rgb = how_.utils->ComputeColorTemperatureRGB(*light.temperature, true, kWhite);
      const auto divide = [](double c, double by) { return std::abs(by) > 1e-12 ? c / by : c; };
      colour = {divide(colour.r, rgb.r), divide(colour.g, rgb.g), divide(colour.b, rgb.b)};
      set("colormode", id("color_and_temperature"));
      set("temperature", *light.temperature);
    } else {
      set("colormode", id("color"));
    }
    set("color", colour);
    set("intensity", intensity);
    vex::tessel::VEXObjectDescription description{std::move(a)};
    const auto fail = [&](const vex::Error& e) {
      return std::unexpected(SCENE_ERROR(source_, "light " + Quoted(light.name) + ": " + e.message));
    };
    if (auto conformed = how_.utils->ConformDescription(description); !conformed) return fail(conformed.error());
    const std::string space = how_.nodeSpace.empty() ? std::string(vex::tessel::kCorvaneNodeSpace) : how_.nodeSpace;
    auto objects = how_.importer->ImportObjects(document_, space, {description}, parent);
    if (!objects) return fail(objects.error());
    if (objects->size() != 1) return fail(VEX_ERROR(vex::ErrorKind::IllegalState, "the global import built no object"));
    return objects->front();
  }

  SceneData& scene_;
  Document& document_;
  const std::string& source_;
  const DocumentImport& how_;
  std::vector<SceneObject*> objects_;
  std::vector<std::string> warnings_;
};

// --- files a scene names -----------------------------------------------------------------------------

std::string UriDecoded(const std::string& uri) {
  std::string out;
  for (std::size_t i = 0; i < uri.size(); ++i) {
    if (uri[i] == '%' && i + 2 < uri.size() && std::isxdigit(static_cast<unsigned char>(uri[i + 1])) &&
        std::isxdigit(static_cast<unsigned char>(uri[i + 2]))) {
      out += static_cast<char>(std::stoi(uri.substr(i + 1, 2), nullptr, 16));
      i += 2;
    } else {
      out += uri[i];
    }
  }
  return out;
}

bool Present(const fs::path& file) {
  std::error_code ec;
  return fs::is_regular_file(file, ec);
}

/// The buffers and images of a glTF's JSON (the whole .gltf, or a GLB's JSON chunk).
vex::Result<void> CheckGltfFiles(const std::string& path, const std::string& text) {
  VEX_ASSIGN(const json_codec::Json root, json_codec::Parse(text, path));
  if (!root.is_object()) return {};  // the reader says what is wrong with it
  const fs::path folder = fs::path(path).parent_path();
  const auto list = [&](const char* key) { return root.contains(key) && root[key].is_array() ? root[key] : json_codec::Json::array(); };
  const auto uri = [](const json_codec::Json& item) -> std::string {
    if (!item.is_object() || !item.contains("uri") || !item["uri"].is_string()) return {};
    const auto u = item["uri"].get<std::string>();
    return u.rfind("data:", 0) == 0 ? std::string() : u;
  };
  const auto name = [](const json_codec::Json& item, const std::string& fallback) {
    return item.is_object() && item.contains("name") && item["name"].is_string() ? item["name"].get<std::string>() : fallback;
  };
  const auto index = [](const json_codec::Json& item, const char* key) -> long long {
    return item.is_object() && item.contains(key) && item[key].is_number_integer() ? item[key].get<long long>() : -1;
  };
  const auto buffers = list("buffers"), views = list("bufferViews"), accessors = list("accessors"), meshes = list("meshes");
  for (std::size_t b = 0; b < buffers.size(); ++b) {
    const std::string u = uri(buffers[b]);
    if (u.empty() || Present(folder / UriDecoded(u))) continue;
    // The mesh whose vertices or indices lie in the buffer names the loss.
    std::string user;
    for (std::size_t m = 0; m < meshes.size() && user.empty(); ++m) {
      const auto primitives = meshes[m].is_object() && meshes[m].contains("primitives") ? meshes[m]["primitives"] : json_codec::Json::array();
      for (const auto& primitive : primitives) {
        std::vector<long long> used;
        if (primitive.is_object() && primitive.contains("attributes") && primitive["attributes"].is_object())
          for (const auto& [k, v] : primitive["attributes"].items())
            if (v.is_number_integer()) used.push_back(v.get<long long>());
        used.push_back(index(primitive, "indices"));
        for (const long long a : used) {
          if (a < 0 || static_cast<std::size_t>(a) >= accessors.size()) continue;
          const long long view = index(accessors[static_cast<std::size_t>(a)], "bufferView");
          if (view >= 0 && static_cast<std::size_t>(view) < views.size() &&
              index(views[static_cast<std::size_t>(view)], "buffer") == static_cast<long long>(b))
            user = "mesh " + Quoted(name(meshes[m], "mesh " + std::to_string(m))) + ": ";
        }
      }
    }
    return std::unexpected(detail::MissingFile(path, user + "buffer " + std::to_string(b) + " \"" + u + "\""));
  }
  const auto images = list("images"), textures = list("textures"), materials = list("materials");
  for (std::size_t i = 0; i < images.size(); ++i) {
    const std::string u = uri(images[i]);
    if (u.empty() || Present(folder / UriDecoded(u))) continue;
    std::string user;
    for (std::size_t m = 0; m < materials.size() && user.empty(); ++m) {
      // Any texture reference of the material ({"index": n} anywhere below it).
      std::vector<const json_codec::Json*> stack{&materials[m]};
      while (!stack.empty() && user.empty()) {
        const json_codec::Json* j = stack.back();
        stack.pop_back();
        if (!j->is_object()) continue;
        const long long t = index(*j, "index");
        if (t >= 0 && static_cast<std::size_t>(t) < textures.size() &&
            index(textures[static_cast<std::size_t>(t)], "source") == static_cast<long long>(i))
          user = "material " + Quoted(name(materials[m], "material " + std::to_string(m))) + ": ";
        for (const auto& [k, v] : j->items()) stack.push_back(&v);
      }
    }
    return std::unexpected(detail::MissingFile(path, user + "texture \"" + u + "\""));
  }
  return {};
}

/// A GLB's JSON chunk, read without the binary chunk after it; empty when the file is not a GLB
/// the reader could take (the reader says why).
vex::Result<std::string> GlbJson(const std::string& path) {
  VEX_TRY(CheckInputFile(path));
  std::ifstream in(path, std::ios::binary);
  if (!in) return VEX_FAIL(vex::ErrorKind::FileIO, path + ": cannot open: " + OsErrorText(errno));
  std::array<unsigned char, 20> header{};
  if (!in.read(reinterpret_cast<char*>(header.data()), header.size())) return std::string();
  const auto word = [&](std::size_t at) {
    std::uint32_t v = 0;
    for (std::size_t k = 0; k < 4; ++k) v |= static_cast<std::uint32_t>(header[at + k]) << (8 * k);
    return v;
  };
  if (std::memcmp(header.data(), "glTF", 4) != 0 || word(16) != 0x4E4F534Au) return std::string();
  const std::uint32_t length = word(12);
  std::error_code ec;
  if (length > fs::file_size(path, ec) - header.size() || ec) return std::string();  // longer than the file
  std::string json(length, '\0');
  if (!in.read(json.data(), static_cast<std::streamsize>(length))) return std::string();
  return json;
}

std::string Lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return s;
}

}  // namespace

// --- public ----------------------------------------------------------------------------------------

Decomposed Decompose(const Matrix4& m) {
  Decomposed d;
  d.position = {At(m, 0, 3), At(m, 1, 3), At(m, 2, 3)};
  double col[3][3];
  double scale[3];
  for (int c = 0; c < 3; ++c) {
    for (int r = 0; r < 3; ++r) col[c][r] = At(m, r, c);
    scale[c] = std::sqrt(col[c][0] * col[c][0] + col[c][1] * col[c][1] + col[c][2] * col[c][2]);
  }
  const double det = col[0][0] * (col[1][1] * col[2][2] - col[2][1] * col[1][2]) -
                     col[1][0] * (col[0][1] * col[2][2] - col[2][1] * col[0][2]) +
                     col[2][0] * (col[0][1] * col[1][2] - col[1][1] * col[0][2]);
  if (det < 0) scale[0] = -scale[0];
  double r[3][3];  // r[row][column]
  for (int c = 0; c < 3; ++c)
    for (int row = 0; row < 3; ++row) r[row][c] = scale[c] != 0 ? col[c][row] / scale[c] : (row == c ? 1.0 : 0.0);
  // r = Rz * Ry * Rx.
  const double sy = std::clamp(-r[2][0], -1.0, 1.0);
  double x, y = std::asin(sy), z;
  if (std::abs(sy) < 1.0 - 1e-12) {
    x = std::atan2(r[2][1], r[2][2]);
    z = std::atan2(r[1][0], r[0][0]);
  } else {
    z = 0;
    x = std::atan2(-r[1][2], r[1][1]);
  }
  d.rotation = {x, y, z};
  d.scale = {scale[0], scale[1], scale[2]};
  // What the three give back; a difference is a shear they cannot hold.
  auto object = SceneObject(vex::kGroupObjectType);
  object.MutableParameters().Set(vex::kObjectRelativePosition, d.position);
  object.MutableParameters().Set(vex::kObjectRelativeRotation, d.rotation);
  object.MutableParameters().Set(vex::kObjectRelativeScale, d.scale);
  const Matrix4 back = ToMatrix(LocalTransform(object));
  double size = 1.0;
  for (const double v : m.m) size = std::max(size, std::abs(v));
  for (std::size_t i = 0; i < 16; ++i)
    if (std::abs(back.m[i] - m.m[i]) > 1e-9 * size) d.sheared = true;
  return d;
}

vex::Result<SceneData> SceneFromDocument(Document& document, const std::string& source, const DocumentExport& how) {
  return DocumentReader(document, source, how).Read();
}

vex::Result<std::vector<std::string>> SceneIntoDocument(SceneData&& scene, Document& document, const std::string& source,
                                                        const DocumentImport& how) {
  return DocumentWriter(scene, document, source, how).Write();
}

vex::Result<void> ValidateScene(const SceneData& scene, const std::string& source) {
  const auto count = [](std::size_t n) { return static_cast<int>(n); };
  std::vector<std::string> meshUser(scene.meshes.size());
  std::vector<int> level(scene.nodes.size(), 1);
  for (std::size_t i = 0; i < scene.nodes.size(); ++i) {
    const NodeData& node = scene.nodes[i];
    const std::string where = "node " + Quoted(node.name);
    if (node.parent < -1 || node.parent >= count(scene.nodes.size()))
      return std::unexpected(SCENE_ERROR(source, where + ": parent " + std::to_string(node.parent) + " does not exist"));
    if (node.parent >= count(i)) {
      // Walking up from a parent that comes later either loops back or reaches a root.
      int at = node.parent;
      for (std::size_t steps = 0; at >= 0 && steps <= scene.nodes.size(); ++steps) {
        if (at == count(i)) return std::unexpected(SCENE_ERROR(source, where + ": its parents form a cycle"));
        at = scene.nodes[static_cast<std::size_t>(at)].parent;
        if (at < -1 || at >= count(scene.nodes.size())) break;
      }
      return std::unexpected(SCENE_ERROR(source, where + ": its parent " + Quoted(scene.nodes[static_cast<std::size_t>(node.parent)].name) +
                                              " comes after it"));
    }
    if (node.parent >= 0) level[i] = level[static_cast<std::size_t>(node.parent)] + 1;
    if (level[i] > kMaxNodeDepth)
      return std::unexpected(SCENE_ERROR(source, where + ": the hierarchy is deeper than " +
                                                     std::to_string(kMaxNodeDepth) + " levels"));
    if (node.mesh < -1 || node.mesh >= count(scene.meshes.size()))
      return std::unexpected(SCENE_ERROR(source, where + ": mesh " + std::to_string(node.mesh) + " does not exist"));
    if (node.light < -1 || node.light >= count(scene.lights.size()))
      return std::unexpected(SCENE_ERROR(source, where + ": light " + std::to_string(node.light) + " does not exist"));
    if (node.camera < -1 || node.camera >= count(scene.cameras.size()))
      return std::unexpected(SCENE_ERROR(source, where + ": camera " + std::to_string(node.camera) + " does not exist"));
    if (!node.local.IsFinite()) return std::unexpected(SCENE_ERROR(source, where + ": its transform is not finite"));
    if (node.mesh >= 0 && meshUser[static_cast<std::size_t>(node.mesh)].empty())
      meshUser[static_cast<std::size_t>(node.mesh)] = " (node " + Quoted(node.name) + ")";
  }
  for (std::size_t m = 0; m < scene.meshes.size(); ++m) {
    const MeshData& mesh = scene.meshes[m];
    const std::string where = "mesh " + Quoted(mesh.name.empty() ? std::to_string(m) : mesh.name) + meshUser[m];
    const auto fail = [&](const std::string& problem) { return std::unexpected(SCENE_ERROR(source, where + ": " + problem)); };
    const std::size_t vertices = mesh.VertexCount();
    if (mesh.positions.size() % 3 != 0) return fail("the positions are not x, y, z triples");
    if (mesh.indices.size() % 3 != 0) return fail("the index count is not a multiple of three");
    if (mesh.TriangleCount() == 0) return fail("no triangles");
    if (!mesh.normals.empty() && mesh.normals.size() != vertices * 3) return fail("the normals do not match the vertices");
    if (!mesh.uvs.empty() && mesh.uvs.size() != vertices * 2) return fail("the texture coordinates do not match the vertices");
    if (!mesh.tangents.empty() && mesh.tangents.size() != vertices * 4) return fail("the tangents do not match the vertices");
    for (std::size_t v = 0; v < mesh.positions.size(); ++v)
      if (!std::isfinite(mesh.positions[v])) return fail("vertex " + std::to_string(v / 3) + " is not finite");
    for (std::size_t k = 0; k < mesh.indices.size(); ++k)
      if (mesh.indices[k] >= vertices)
        return fail("triangle " + std::to_string(k / 3) + " refers to vertex " + std::to_string(mesh.indices[k]) + " of " +
                    std::to_string(vertices));
    for (const auto& part : mesh.parts) {
      if (static_cast<std::size_t>(part.firstTriangle) + part.triangleCount > mesh.TriangleCount())
        return fail("a part lies beyond the triangles");
      if (part.material < -1 || part.material >= count(scene.materials.size()))
        return fail("material " + std::to_string(part.material) + " does not exist");
    }
  }
  for (const auto& light : scene.lights)
    if (!std::isfinite(light.intensity) || !std::isfinite(light.color.r) || !std::isfinite(light.color.g) ||
        !std::isfinite(light.color.b))
      return std::unexpected(SCENE_ERROR(source, "light " + Quoted(light.name) + ": its intensity or colour is not finite"));
  return {};
}

void ConvertFrame(SceneData& scene, double metersPerUnit, char upAxis) {
  const double s = scene.metersPerUnit / metersPerUnit;
  if (s != 1.0) {
    for (auto& mesh : scene.meshes)
      for (auto& v : mesh.positions) v = static_cast<float>(v * s);
    for (auto& node : scene.nodes)
      for (std::size_t k = 12; k < 15; ++k) node.local.m[k] *= s;
    for (auto& light : scene.lights) {
      if (light.range) *light.range *= s;
      light.width *= s, light.height *= s, light.radius *= s, light.length *= s;
    }
    for (auto& camera : scene.cameras) {
      camera.orthoHeight *= s;
      camera.znear *= s;
      camera.zfar *= s;
    }
    scene.metersPerUnit = metersPerUnit;
  }
  if (scene.upAxis != upAxis) {
    const Matrix4 turn = UpTurn(scene.upAxis, upAxis);
    for (auto& node : scene.nodes)
      if (node.parent < 0) node.local = turn * node.local;
    scene.upAxis = upAxis;
  }
}

void ConvertFrameFor(SceneData& scene, const FormatRow& row) {
  // glTF reads metres with +Y up; OBJ says nothing, and readers take metres with +Y up.
  if (row.name == "gltf" || row.name == "glb" || row.name == "obj") ConvertFrame(scene, 1.0, 'Y');
}

vex::Result<void> CheckReferencedFiles(const std::string& path) {
  const std::string suffix = Lower(fs::path(path).extension().string());
  if (suffix == ".gltf") {
    VEX_ASSIGN(const std::string text, ReadInputFile(path));
    return CheckGltfFiles(path, text);
  }
  if (suffix == ".glb") {
    VEX_ASSIGN(const std::string json, GlbJson(path));
    return json.empty() ? vex::Result<void>{} : CheckGltfFiles(path, json);
  }
  return {};
}

vex::Result<void> CheckDocumentFiles(Document& document, const std::string& source) {
  const fs::path folder = document.GetPath();
  const auto check = [&](const Material& material, const std::string& file) -> vex::Result<void> {
    if (file.empty() || Present(fs::path(file).is_absolute() ? fs::path(file) : folder / file)) return {};
    return std::unexpected(detail::MissingFile(source, detail::MissingTexture(material.GetName(), file)));
  };
  for (const auto& material : document.Materials().All()) {
    for (const auto& [id, shader] : material->Links())
      if (const vex::Data* file = shader->Parameters().Find(vex::kBitmapShaderFile))
        if (const auto* s = file->Get<std::string>()) VEX_TRY(check(*material, *s));
    for (const auto& [space, graph] : material->Graphs())
      for (const auto& node : graph.nodes)
        if (const vex::Data* file = node.ports.Find("file"))
          if (const auto* s = file->Get<std::string>()) VEX_TRY(check(*material, *s));
  }
  // A dome light's image: the writers pass it on by name, so a missing one would leave the file
  // pointing at nothing.
  for (const SceneObject* object : document.AllObjects()) {
    if (object->GetType() != corvane::kLightObject) continue;
    const vex::Data* d = object->Parameters().Find(corvane::kDomeTexture);
    const auto* image = d != nullptr ? d->Get<vex::ImageReference>() : nullptr;
    if (image == nullptr || image->url.text.empty()) continue;
    const fs::path url(image->url.text);
    if (!Present(url.is_absolute() ? url : folder / url))
      return std::unexpected(detail::MissingFile(source, "light " + Quoted(object->GetName()) + ": texture \"" +
                                                             image->url.text + "\""));
  }
  return {};
}

vex::Result<std::vector<std::string>> MaterialsToWriter(SceneData& scene, const FormatRow& row,
                                                        const ConversionContext& conversion) {
  std::vector<std::string> warnings;
  for (auto& m : scene.materials) {
    if (!m.set) continue;
    auto resolved = std::make_shared<vex::ParameterSet>(*m.set);
    ResolveTextureProperties(*resolved);
    auto carried = ToWriterBundle(resolved, row, conversion);
    if (!carried) {
      vex::Error e = carried.error();
      e.message = "material " + Quoted(m.name) + ": " + e.message;
      return std::unexpected(std::move(e));
    }
    for (const auto& w : carried->warnings) warnings.push_back("material " + Quoted(m.name) + ": " + w);
    m.set = carried->set;
  }
  return warnings;
}

}  // namespace host::formats
