// The FBX writer: a scene as binary FBX 7.4 (or its ASCII form), built as a record tree and handed
// to fbx_binary for the bytes. Meshes become Geometry objects (positions as control points, normals
// and texture coordinates per vertex, the material per polygon), nodes Model objects with
// their local transform as Lcl Translation/Rotation/Scaling, materials Phong surfaces that carry
// both the current property names (DiffuseColor, EmissiveColor/EmissiveFactor, TransparencyFactor,
// Opacity, ...) and the legacy ones (Diffuse, Emissive, ...) that older readers look for. Lights
// and cameras are NodeAttribute objects on their node's Model, turned so that FBX's light axis
// (-Y) and camera axis (+X) fall on the interchange scene's -Z (conversions in light_units.h).
#include <algorithm>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <numbers>
#include <optional>
#include <set>
#include <sstream>

#include "host/formats/fbx_binary.h"
#include "host/formats/fbx_io.h"
#include "host/formats/fbx_surface.h"
#include "host/formats/light_units.h"
#include "host/images.h"

#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/parallel_invoke.h>

namespace fs = std::filesystem;

namespace host::formats::detail {
namespace {

using fbx::Node;
using fbx::Property;

// --- Properties70 ----------------------------------------------------------------------------------

void P(Node& props, std::string name, std::string type, std::string label, std::string flags,
       std::vector<Property> values) {
  std::vector<Property> all{std::move(name), std::move(type), std::move(label), std::move(flags)};
  for (auto& v : values) all.push_back(std::move(v));
  props.Add("P", std::move(all));
}
void PInt(Node& props, const std::string& name, std::int32_t v) { P(props, name, "int", "Integer", "", {v}); }
void PEnum(Node& props, const std::string& name, std::int32_t v) { P(props, name, "enum", "", "", {v}); }
void PDouble(Node& props, const std::string& name, double v) { P(props, name, "double", "Number", "", {v}); }
void PNumber(Node& props, const std::string& name, double v) { P(props, name, "Number", "", "A", {v}); }
void PColor(Node& props, const std::string& name, const vex::Color& c) {
  P(props, name, "Color", "", "A", {c.r, c.g, c.b});
}
void PVector(Node& props, const std::string& name, const vex::Color& c) {
  P(props, name, "Vector3D", "Vector", "", {c.r, c.g, c.b});
}
void PString(Node& props, const std::string& name, const std::string& v) {
  P(props, name, "KString", "", "", {v});
}
void PLcl(Node& props, const std::string& name, const std::array<double, 3>& v) {
  P(props, name, name, "", "A", {v[0], v[1], v[2]});
}
void PBool(Node& props, const std::string& name, bool v) { P(props, name, "bool", "", "", {std::int32_t{v ? 1 : 0}}); }
/// A property of the project's own (flag "U"): readers that do not know it keep it or skip it.
void PUser(Node& props, const std::string& name, double v) { P(props, name, "double", "Number", "U", {v}); }

// --- transforms --------------------------------------------------------------------------------------

namespace fbx_axes {
enum class Kind { None, Light, Camera };
}

struct Decomposed {
  std::array<double, 3> translation{}, rotation{}, scaling{1, 1, 1};  // rotation: degrees, XYZ order
  bool exact = true;  // false when the matrix holds a shear that T * R * S cannot say
};

/// T * Rz * Ry * Rx * S, the order of FBX's default rotation order (XYZ).
Decomposed Decompose(const Matrix4& matrix) {
  const auto& m = matrix.m;
  Decomposed d;
  d.translation = {m[12], m[13], m[14]};
  std::array<std::array<double, 3>, 3> r{};  // columns
  for (int c = 0; c < 3; ++c) {
    const double len = std::sqrt(m[c * 4] * m[c * 4] + m[c * 4 + 1] * m[c * 4 + 1] + m[c * 4 + 2] * m[c * 4 + 2]);
    d.scaling[static_cast<std::size_t>(c)] = len;
    for (int k = 0; k < 3; ++k)
      r[static_cast<std::size_t>(c)][static_cast<std::size_t>(k)] = len > 0 ? m[c * 4 + k] / len : (c == k ? 1.0 : 0.0);
  }
  const auto& x = r[0];
  const auto& y = r[1];
  const auto& z = r[2];
  const double det = x[0] * (y[1] * z[2] - y[2] * z[1]) - y[0] * (x[1] * z[2] - x[2] * z[1]) + z[0] * (x[1] * y[2] - x[2] * y[1]);
  if (det < 0) {
    d.scaling[0] = -d.scaling[0];
    for (auto& v : r[0]) v = -v;
  }
  // R(row, col) = r[col][row]
  auto R = [&](int row, int col) { return r[static_cast<std::size_t>(col)][static_cast<std::size_t>(row)]; };
  const double sb = std::clamp(-R(2, 0), -1.0, 1.0);
  double a, b, c;
  b = std::asin(sb);
  if (std::abs(sb) < 0.9999999) {
    a = std::atan2(R(2, 1), R(2, 2));
    c = std::atan2(R(1, 0), R(0, 0));
  } else {
    c = 0.0;
    a = std::atan2(sb * R(0, 1), R(1, 1));
  }
  const double toDegrees = 180.0 / std::numbers::pi;
  d.rotation = {a * toDegrees, b * toDegrees, c * toDegrees};
  // Recompose and compare: a difference is a shear (or a projective part) FBX cannot carry.
  const double ca = std::cos(a), sa = std::sin(a), cb = std::cos(b), sbb = std::sin(b), cc = std::cos(c), sc = std::sin(c);
  const double rot[3][3] = {{cb * cc, sa * sbb * cc - ca * sc, ca * sbb * cc + sa * sc},
                            {cb * sc, sa * sbb * sc + ca * cc, ca * sbb * sc - sa * cc},
                            {-sbb, sa * cb, ca * cb}};
  for (int col = 0; col < 3; ++col)
    for (int row = 0; row < 3; ++row) {
      const double expected = rot[row][col] * d.scaling[static_cast<std::size_t>(col)];
      if (std::abs(expected - m[col * 4 + row]) > 1e-6 * std::max(1.0, std::abs(expected))) d.exact = false;
    }
  if (m[3] != 0 || m[7] != 0 || m[11] != 0 || m[15] != 1) d.exact = false;
  return d;
}

/// The turn from FBX's own axis of a light (-Y, up -Z) or a camera (+X, up +Y) onto the scene's -Z
/// with +Y up: a Model's matrix is the node's times this turn. Rx(90) for lights, Ry(90) for
/// cameras; identity for anything else.
Matrix4 AxisTurn(fbx_axes::Kind kind) {
  Matrix4 m;
  if (kind == fbx_axes::Kind::Light) m.m = {1, 0, 0, 0, 0, 0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1};
  if (kind == fbx_axes::Kind::Camera) m.m = {0, 0, -1, 0, 0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 0, 1};
  return m;
}

// --- the document ------------------------------------------------------------------------------------

/// Letters, digits, '-' and '_' (others become '_'): texture files are named after materials.
std::string FileSafe(std::string_view name) {
  std::string out;
  for (const char c : name)
    out.push_back(std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_' ? c : '_');
  return out.empty() ? std::string("material") : out;
}

struct Writer {
  const SceneData& scene;
  const std::string& directory;
  const vex::IPortBundles& bundles;
  bool embed = false;
  bool ascii = false;
  FbxOutput& written;

  Node objects{"Objects", {}, {}};
  Node connections{"Connections", {}, {}};
  std::map<std::string, int> counts;  // object type -> count, for Definitions
  std::int64_t nextId = 1000000;
  std::set<std::string> textureFiles;
  /// A texture's image, encoded by WriteTextures: `video` is its Video record among the objects.
  struct PendingImage {
    std::size_t video = 0;
    std::string file, port;
    vex::TextureBuffer buffer;  // shares the set's pixels
    bool srgb = false;
  };
  std::vector<PendingImage> images;

  std::int64_t NewId() { return nextId++; }
  void Connect(std::int64_t child, std::int64_t parent) { connections.Add("C", {std::string("OO"), child, parent}); }
  void ConnectProperty(std::int64_t child, std::int64_t parent, const std::string& property) {
    connections.Add("C", {std::string("OP"), child, parent, property});
  }

  vex::Result<std::vector<std::int64_t>> AddGeometries(const std::vector<std::vector<int>>& slots);
  vex::Result<std::int64_t> AddMaterial(const MaterialData& material, std::size_t index);
  vex::Result<std::int64_t> AddTexture(const std::string& materialName, const SurfaceTexture& texture);
  /// Encodes the images of the textures added so far and embeds or lists them.
  vex::Result<void> WriteTextures();
  std::int64_t AddDefaultMaterial();
  std::int64_t AddLight(const LightData& light, const std::string& name);
  std::int64_t AddCamera(const CameraData& camera, const std::string& name);
  std::int64_t AddModel(const std::string& name, const std::string& type, const Matrix4& local, std::int64_t parent);
  vex::Result<void> AddNodes();
  std::vector<Node> Document();

  std::int64_t defaultMaterial = 0;
};

std::string MeshName(const MeshData& mesh, std::size_t index) {
  return mesh.name.empty() ? "mesh_" + std::to_string(index) : mesh.name;
}

/// A mesh's Geometry object. Pure, so that the meshes of a scene are built in parallel; in the
/// binary form its large arrays are packed (compressed) as they are made, so the tree holds them
/// only compressed.
vex::Result<Node> BuildGeometry(const MeshData& mesh, std::size_t index, const std::vector<int>& slots,
                                std::int64_t id, bool packed) {
  const std::string name = MeshName(mesh, index);
  const std::size_t vertices = mesh.VertexCount();
  if (mesh.positions.size() % 3 != 0 || mesh.indices.size() % 3 != 0)
    return VEX_FAIL(vex::ErrorKind::IllegalArgument, "mesh '" + name + "': positions or indices not in threes");
  for (const auto i : mesh.indices)
    if (i >= vertices)
      return VEX_FAIL(vex::ErrorKind::IllegalArgument,
                      "mesh '" + name + "': index " + std::to_string(i) + " out of range (" + std::to_string(vertices) +
                          " vertices)");
  const bool hasNormals = mesh.normals.size() == 3 * vertices && vertices > 0;
  const bool hasUvs = mesh.uvs.size() == 2 * vertices && vertices > 0;

  // Floats widened to the doubles FBX stores (in the binary form packed at once, so that only the
  // compressed bytes stay); the polygon index marks each triangle's last corner by its complement.
  const auto doubles = [&](const std::vector<float>& values) -> Property {
    std::vector<double> wide(values.begin(), values.end());
    if (packed) return fbx::PackDoubles(wide);
    return wide;
  };
  const auto ints = [&](std::vector<std::int32_t> values) -> Property {
    if (packed) return fbx::PackInts(values);
    return values;
  };
  // The slot of each triangle: the position of its material among the model's materials.
  std::vector<std::int32_t> perPolygon;
  if (!slots.empty()) {
    perPolygon.assign(mesh.TriangleCount(), 0);
    for (const auto& part : mesh.parts) {
      const auto slot = std::find(slots.begin(), slots.end(), part.material) - slots.begin();
      for (std::uint32_t t = part.firstTriangle; t < part.firstTriangle + part.triangleCount && t < perPolygon.size(); ++t)
        perPolygon[t] = static_cast<std::int32_t>(slot);
    }
    if (std::all_of(perPolygon.begin(), perPolygon.end(), [&](auto s) { return s == perPolygon.front(); }))
      perPolygon.resize(std::min<std::size_t>(perPolygon.size(), 1));
  }

  // The large arrays, each packed on its own core where there are several.
  Property vertexArray, cornerArray, normalArray, uvArray;
  const auto corners = [&] {
    std::vector<std::int32_t> values(mesh.indices.begin(), mesh.indices.end());
    for (std::size_t k = 2; k < values.size(); k += 3) values[k] = -values[k] - 1;
    cornerArray = ints(std::move(values));
  };
  tbb::parallel_invoke([&] { vertexArray = doubles(mesh.positions); }, corners,
                       [&] { if (hasNormals) normalArray = doubles(mesh.normals); },
                       [&] { if (hasUvs) uvArray = doubles(mesh.uvs); });

  Node g{"Geometry", {id, fbx::ObjectName(name, "Geometry"), std::string("Mesh")}, {}};
  g.Add("Properties70");
  g.Add("GeometryVersion", {std::int32_t{124}});
  g.Add("Vertices", {std::move(vertexArray)});
  g.Add("PolygonVertexIndex", {std::move(cornerArray)});

  // Normals and texture coordinates are the vertices' own, so they are stored per vertex.
  std::vector<std::string> layers;
  if (hasNormals) {
    Node& n = g.Add("LayerElementNormal", {std::int32_t{0}});
    n.Add("Version", {std::int32_t{101}});
    n.Add("Name", {std::string()});
    n.Add("MappingInformationType", {std::string("ByVertice")});
    n.Add("ReferenceInformationType", {std::string("Direct")});
    n.Add("Normals", {std::move(normalArray)});
    layers.push_back("LayerElementNormal");
  }
  if (hasUvs) {
    Node& uv = g.Add("LayerElementUV", {std::int32_t{0}});
    uv.Add("Version", {std::int32_t{101}});
    uv.Add("Name", {std::string("UVMap")});
    uv.Add("MappingInformationType", {std::string("ByVertice")});
    uv.Add("ReferenceInformationType", {std::string("Direct")});
    uv.Add("UV", {std::move(uvArray)});
    layers.push_back("LayerElementUV");
  }
  if (!slots.empty()) {
    Node& m = g.Add("LayerElementMaterial", {std::int32_t{0}});
    m.Add("Version", {std::int32_t{101}});
    m.Add("Name", {std::string()});
    m.Add("MappingInformationType", {std::string(perPolygon.size() == 1 ? "AllSame" : "ByPolygon")});
    m.Add("ReferenceInformationType", {std::string("IndexToDirect")});
    m.Add("Materials", {ints(std::move(perPolygon))});
    layers.push_back("LayerElementMaterial");
  }
  Node& layer = g.Add("Layer", {std::int32_t{0}});
  layer.Add("Version", {std::int32_t{100}});
  for (const auto& type : layers) {
    Node& element = layer.Add("LayerElement");
    element.Add("Type", {type});
    element.Add("TypedIndex", {std::int32_t{0}});
  }
  return g;
}

vex::Result<std::vector<std::int64_t>> Writer::AddGeometries(const std::vector<std::vector<int>>& slots) {
  std::vector<std::int64_t> ids;
  for (std::size_t i = 0; i < scene.meshes.size(); ++i) ids.push_back(NewId());
  // Compression is most of a large scene's cost: the meshes are built (and within each, its
  // arrays packed) on all cores, then added in order.
  std::vector<std::optional<vex::Result<Node>>> built(scene.meshes.size());
  tbb::parallel_for(std::size_t{0}, scene.meshes.size(), [&](std::size_t i) {
    built[i] = BuildGeometry(scene.meshes[i], i, slots[i], ids[i], !ascii);
  });
  for (auto& geometry : built) {
    if (!*geometry) return std::unexpected(std::move(geometry->error()));
    objects.children.push_back(std::move(**geometry));
    geometry.reset();
    ++counts["Geometry"];
  }
  return ids;
}

vex::Result<void> Writer::WriteTextures() {
  // Image codecs are single-threaded: the files are encoded side by side.
  std::vector<vex::Result<void>> results(images.size());
  ForEachImageJob(images.size(), [&](std::size_t i) {
    ImageWriteOptions options;
    options.srgb = images[i].srgb;
    results[i] = WriteImage((fs::path(directory) / images[i].file).string(), images[i].buffer, options);
  });
  for (auto& result : results) VEX_TRY(std::move(result));
  for (const auto& image : images) {
    if (!embed) {
      written.files.push_back(image.file);
      written.textures.emplace_back(image.port, image.file);
      continue;
    }
    const fs::path path = fs::path(directory) / image.file;
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    if (!in) return VEX_FAIL(vex::ErrorKind::FileIO, path.string() + ": cannot read back the texture to embed it");
    objects.children[image.video].Add("Content", {fbx::Raw{bytes.str()}});
    in.close();
    std::error_code ec;
    fs::remove(path, ec);
  }
  images.clear();
  return {};
}

vex::Result<std::int64_t> Writer::AddTexture(const std::string& materialName, const SurfaceTexture& texture) {
  std::string file = FileSafe(materialName) + "_" + texture.port + ".png";
  for (int n = 2; textureFiles.contains(file); ++n)
    file = FileSafe(materialName) + "_" + texture.port + "_" + std::to_string(n) + ".png";
  textureFiles.insert(file);
  const std::string label = materialName + "_" + texture.property;

  const std::int64_t videoId = NewId();
  // The image itself is encoded later with every other (WriteTextures).
  images.push_back(PendingImage{objects.children.size(), file, texture.port, *texture.buffer, texture.srgb});
  Node& video = objects.Add("Video", {videoId, fbx::ObjectName(label, "Video"), std::string("Clip")});
  video.Add("Type", {std::string("Clip")});
  Node& vprops = video.Add("Properties70");
  P(vprops, "Path", "KString", "XRefUrl", "", {file});
  video.Add("UseMipMap", {std::int32_t{0}});
  video.Add("Filename", {file});
  video.Add("RelativeFilename", {file});
  ++counts["Video"];

  const std::int64_t id = NewId();
  Node& t = objects.Add("Texture", {id, fbx::ObjectName(label, "Texture"), std::string()});
  t.Add("Type", {std::string("TextureVideoClip")});
  t.Add("Version", {std::int32_t{202}});
  t.Add("TextureName", {fbx::ObjectName(label, "Texture")});
  Node& props = t.Add("Properties70");
  P(props, "UseMaterial", "bool", "", "", {std::int32_t{1}});
  t.Add("Media", {fbx::ObjectName(label, "Video")});
  t.Add("FileName", {file});
  t.Add("RelativeFilename", {file});
  t.Add("ModelUVTranslation", {0.0, 0.0});
  t.Add("ModelUVScaling", {1.0, 1.0});
  t.Add("Texture_Alpha_Source", {std::string("None")});
  t.Add("Cropping", {std::int32_t{0}, std::int32_t{0}, std::int32_t{0}, std::int32_t{0}});
  ++counts["Texture"];
  Connect(videoId, id);
  return id;
}

void WriteSurface(Node& m, const Surface& s) {
  m.Add("Version", {std::int32_t{102}});
  m.Add("ShadingModel", {std::string("phong")});
  m.Add("MultiLayer", {std::int32_t{0}});
  Node& p = m.Add("Properties70");
  PString(p, "ShadingModel", "phong");
  PColor(p, "DiffuseColor", s.diffuse);
  PNumber(p, "DiffuseFactor", s.diffuseFactor);
  PColor(p, "AmbientColor", s.ambient);
  PNumber(p, "AmbientFactor", s.ambientFactor);
  PColor(p, "EmissiveColor", s.emissive);
  PNumber(p, "EmissiveFactor", s.emissiveFactor);
  PColor(p, "SpecularColor", s.specular);
  PNumber(p, "SpecularFactor", s.specularFactor);
  PNumber(p, "ShininessExponent", s.shininess);
  PColor(p, "TransparentColor", s.transparentColor);
  PNumber(p, "TransparencyFactor", s.transparencyFactor);
  PColor(p, "ReflectionColor", s.reflection);
  PNumber(p, "ReflectionFactor", s.reflectionFactor);
  // The normal map's slot only where a texture fills it: some readers make a normal-map node for
  // the slot alone.
  const bool normalMapped = std::any_of(s.textures.begin(), s.textures.end(),
                                        [](const SurfaceTexture& t) { return t.property == "NormalMap"; });
  if (normalMapped) {
    P(p, "NormalMap", "Vector3D", "Vector", "", {0.0, 0.0, 0.0});
    PNumber(p, "BumpFactor", s.bumpFactor);
  }
  // The legacy names, as the readers that prefer them take them: the diffuse, ambient and specular
  // colours times their factors, the emissive colour alone (those readers apply EmissiveFactor to
  // it as an intensity).
  auto times = [](const vex::Color& c, double f) { return vex::Color{c.r * f, c.g * f, c.b * f}; };
  PVector(p, "Emissive", s.emissive);
  PVector(p, "Ambient", times(s.ambient, s.ambientFactor));
  PVector(p, "Diffuse", times(s.diffuse, s.diffuseFactor));
  PVector(p, "Specular", times(s.specular, s.specularFactor));
  PDouble(p, "Shininess", s.shininess);
  PDouble(p, "Opacity", s.opacity);
  PDouble(p, "Reflectivity", s.reflectionFactor);
}

vex::Result<std::int64_t> Writer::AddMaterial(const MaterialData& material, std::size_t index) {
  const std::string name = material.name.empty() ? "material_" + std::to_string(index) : material.name;
  if (!material.set) return VEX_FAIL(vex::ErrorKind::IllegalArgument, "material '" + name + "': no parameter set");
  std::vector<std::string> losses;
  auto made = MakeSurface(*material.set, bundles, losses);
  if (!made) return VEX_FAIL(made.error().kind, "material '" + name + "': " + made.error().message);
  const Surface& surface = *made;
  for (const auto& loss : losses) written.warnings.push_back("material '" + name + "': " + loss);
  const std::int64_t id = NewId();
  Node& m = objects.Add("Material", {id, fbx::ObjectName(name, "Material"), std::string()});
  WriteSurface(m, surface);
  ++counts["Material"];
  for (const auto& texture : surface.textures) {
    VEX_ASSIGN(const auto textureId, AddTexture(name, texture));
    ConnectProperty(textureId, id, texture.property);
  }
  return id;
}

std::int64_t Writer::AddDefaultMaterial() {
  if (defaultMaterial != 0) return defaultMaterial;
  defaultMaterial = NewId();
  Node& m = objects.Add("Material", {defaultMaterial, fbx::ObjectName("default", "Material"), std::string()});
  WriteSurface(m, Surface{});
  ++counts["Material"];
  return defaultMaterial;
}

std::int64_t Writer::AddLight(const LightData& light, const std::string& name) {
  using Type = LightData::Type;
  namespace units = light_units;
  const std::int64_t id = NewId();
  Node& a = objects.Add("NodeAttribute", {id, fbx::ObjectName(name, "NodeAttribute"), std::string("Light")});
  a.Add("TypeFlags", {std::string("Light")});
  a.Add("GeometryVersion", {std::int32_t{124}});
  Node& p = a.Add("Properties70");
  const bool area = light.type != Type::Point && light.type != Type::Spot && light.type != Type::Directional;
  PEnum(p, "LightType", light.type == Type::Directional ? 1 : light.type == Type::Spot ? 2 : area ? 3 : 0);
  PBool(p, "CastLight", true);
  PColor(p, "Color", light.color);
  PNumber(p, "Intensity", units::BlenderWatts(light) * units::kFbxIntensityPerWatt);
  if (light.type == Type::Spot) {
    const double toDegrees = 180.0 / std::numbers::pi;
    PNumber(p, "InnerAngle", 2 * std::clamp(light.innerConeAngle, 0.0, light.outerConeAngle) * toDegrees);
    PNumber(p, "OuterAngle", 2 * light.outerConeAngle * toDegrees);
  }
  if (area) {
    const bool round = light.type == Type::Sphere || light.type == Type::Cylinder;
    PEnum(p, "AreaLightShape", round ? 1 : 0);
    // FBX gives an area light no size: ours, for our reader to turn the power back into nits.
    PUser(p, "InteropAreaType", static_cast<double>(light.type));
    PUser(p, "InteropWidth", light.width);
    PUser(p, "InteropHeight", light.height);
    PUser(p, "InteropRadius", light.radius);
    PUser(p, "InteropLength", light.length);
  }
  if (light.type != Type::Directional) {
    PEnum(p, "DecayType", 2);  // inverse square: the photometric units fall off so
    PDouble(p, "DecayStart", 1.0);
  } else {
    PEnum(p, "DecayType", 0);
  }
  const bool ranged = light.range && *light.range > 0 && light.type != Type::Directional;
  PBool(p, "EnableFarAttenuation", ranged);
  if (ranged) PDouble(p, "FarAttenuationEnd", *light.range);
  PBool(p, "CastShadows", true);
  if (light.temperature)
    written.warnings.push_back("light '" + light.name + "': FBX has no colour temperature; its colour carries it");
  ++counts["NodeAttribute"];
  return id;
}

std::int64_t Writer::AddCamera(const CameraData& camera, const std::string& name) {
  namespace units = light_units;
  const std::int64_t id = NewId();
  Node& a = objects.Add("NodeAttribute", {id, fbx::ObjectName(name, "NodeAttribute"), std::string("Camera")});
  a.Add("TypeFlags", {std::string("Camera")});
  a.Add("GeometryVersion", {std::int32_t{124}});
  Node& p = a.Add("Properties70");
  const double aspect = camera.aspectRatio > 0 ? camera.aspectRatio : 1.0;
  const units::Film film = units::FilmFor(aspect);
  const double focal = units::FocalLength(film.height, camera.yfov);
  const double toDegrees = 180.0 / std::numbers::pi;
  const double xfov = units::FieldOfView(film.width, focal);
  double zfar = camera.zfar;
  if (!std::isfinite(zfar)) {
    zfar = 1e9;
    written.warnings.push_back("camera '" + camera.name + "': infinite far plane written as 1e9");
  }
  PEnum(p, "CameraProjectionType", camera.orthographic ? 1 : 0);
  PDouble(p, "AspectHeight", 1000.0);
  PDouble(p, "AspectWidth", 1000.0 * aspect);
  PDouble(p, "FilmWidth", film.width / units::kMillimetresPerInch);
  PDouble(p, "FilmHeight", film.height / units::kMillimetresPerInch);
  PDouble(p, "FilmAspectRatio", film.width / film.height);
  PEnum(p, "ApertureMode", 3);  // the focal length decides; FieldOfView is the horizontal angle
  PEnum(p, "GateFit", 2);
  P(p, "FieldOfView", "FieldOfView", "", "A", {xfov * toDegrees});
  P(p, "FieldOfViewX", "FieldOfViewX", "", "A", {xfov * toDegrees});
  P(p, "FieldOfViewY", "FieldOfViewY", "", "A", {camera.yfov * toDegrees});
  PDouble(p, "FocalLength", focal);
  // The view's longer side, as Blender reads it.
  PDouble(p, "OrthoZoom", camera.orthoHeight * std::max(aspect, 1.0));
  PDouble(p, "NearPlane", camera.znear);
  PDouble(p, "FarPlane", zfar);
  ++counts["NodeAttribute"];
  return id;
}

std::int64_t Writer::AddModel(const std::string& name, const std::string& type, const Matrix4& local, std::int64_t parent) {
  const Decomposed d = Decompose(local);
  if (!d.exact)
    written.warnings.push_back("node '" + name + "': a shear in its transform cannot be carried by FBX; dropped");
  const std::int64_t id = NewId();
  Node& model = objects.Add("Model", {id, fbx::ObjectName(name, "Model"), type});
  model.Add("Version", {std::int32_t{232}});
  Node& p = model.Add("Properties70");
  PLcl(p, "Lcl Translation", d.translation);
  PLcl(p, "Lcl Rotation", d.rotation);
  PLcl(p, "Lcl Scaling", d.scaling);
  PInt(p, "DefaultAttributeIndex", 0);
  PEnum(p, "InheritType", 1);
  model.Add("Shading", {true});
  model.Add("Culling", {std::string("CullingOff")});
  ++counts["Model"];
  Connect(id, parent);
  return id;
}

vex::Result<void> Writer::AddNodes() {
  std::vector<std::int64_t> materialIds;
  for (std::size_t i = 0; i < scene.materials.size(); ++i) {
    VEX_ASSIGN(const auto id, AddMaterial(scene.materials[i], i));
    materialIds.push_back(id);
  }
  VEX_TRY(WriteTextures());
  // The materials each mesh uses, in the order of first use: the model's material slots.
  std::vector<std::vector<int>> slots(scene.meshes.size());
  for (std::size_t i = 0; i < scene.meshes.size(); ++i) {
    const auto& mesh = scene.meshes[i];
    for (const auto& part : mesh.parts) {
      if (part.material >= static_cast<int>(scene.materials.size()) || part.material < -1)
        return VEX_FAIL(vex::ErrorKind::IllegalArgument, "mesh '" + MeshName(mesh, i) + "': material index " +
                                                             std::to_string(part.material) + " out of range");
      if (std::find(slots[i].begin(), slots[i].end(), part.material) == slots[i].end()) slots[i].push_back(part.material);
    }
  }
  VEX_ASSIGN(const auto geometryIds, AddGeometries(slots));
  std::vector<std::int64_t> nodeIds;
  std::vector<Matrix4> turns;  // each node's AxisTurn: its children are written relative to it
  std::size_t lightsWritten = 0, camerasWritten = 0;
  for (std::size_t i = 0; i < scene.nodes.size(); ++i) {
    const auto& node = scene.nodes[i];
    const std::string name = node.name.empty() ? "node_" + std::to_string(i) : node.name;
    if (node.parent >= static_cast<int>(i) || node.parent < -1)
      return VEX_FAIL(vex::ErrorKind::IllegalArgument,
                      "node '" + name + "': parent " + std::to_string(node.parent) + " does not come before it");
    if (node.mesh >= static_cast<int>(scene.meshes.size()))
      return VEX_FAIL(vex::ErrorKind::IllegalArgument, "node '" + name + "': mesh " + std::to_string(node.mesh) + " out of range");
    if (node.light >= static_cast<int>(scene.lights.size()) || node.camera >= static_cast<int>(scene.cameras.size()))
      return VEX_FAIL(vex::ErrorKind::IllegalArgument, "node '" + name + "': light or camera out of range");
    if (!node.local.IsFinite())
      return VEX_FAIL(vex::ErrorKind::IllegalArgument, "node '" + name + "': transform is not finite");
    // What the node's own Model carries: its mesh, else its light, else its camera; a light or
    // camera beside a mesh (or a camera beside a light) gets a child Model of its own.
    const LightData* light = node.light >= 0 ? &scene.lights[static_cast<std::size_t>(node.light)] : nullptr;
    if (light != nullptr && light->type == LightData::Type::Dome) {
      written.warnings.push_back("light '" + light->name + "': a dome light has no FBX type; left out");
      light = nullptr;
    }
    const CameraData* camera = node.camera >= 0 ? &scene.cameras[static_cast<std::size_t>(node.camera)] : nullptr;
    using fbx_axes::Kind;
    const Kind kind = node.mesh >= 0 ? Kind::None : light != nullptr ? Kind::Light : camera != nullptr ? Kind::Camera : Kind::None;
    const std::string type = node.mesh >= 0 ? "Mesh" : kind == Kind::Light ? "Light" : kind == Kind::Camera ? "Camera" : "Null";
    const Matrix4 parentTurn = node.parent >= 0 ? turns[static_cast<std::size_t>(node.parent)] : Matrix4{};
    const Matrix4 local = parentTurn.Transposed() * node.local * AxisTurn(kind);
    const std::int64_t id = AddModel(name, type, local, node.parent >= 0 ? nodeIds[static_cast<std::size_t>(node.parent)] : 0);
    nodeIds.push_back(id);
    turns.push_back(AxisTurn(kind));
    auto attach = [&](Kind what, std::int64_t attribute, const std::string& attributeName) {
      if (what == kind) return Connect(attribute, id);
      const std::int64_t child = AddModel(attributeName, what == Kind::Light ? "Light" : "Camera", AxisTurn(what), id);
      Connect(attribute, child);
    };
    if (light != nullptr) {
      const std::string lightName = light->name.empty() ? name + "_light" : light->name;
      attach(Kind::Light, AddLight(*light, lightName), lightName);
      ++lightsWritten;
    }
    if (camera != nullptr) {
      const std::string cameraName = camera->name.empty() ? name + "_camera" : camera->name;
      attach(Kind::Camera, AddCamera(*camera, cameraName), cameraName);
      ++camerasWritten;
    }
    if (node.mesh >= 0) {
      const auto mesh = static_cast<std::size_t>(node.mesh);
      Connect(geometryIds[mesh], id);
      for (const int slot : slots[mesh])
        Connect(slot >= 0 ? materialIds[static_cast<std::size_t>(slot)] : AddDefaultMaterial(), id);
    }
  }
  std::size_t domes = 0;
  for (const auto& node : scene.nodes)
    if (node.light >= 0 && scene.lights[static_cast<std::size_t>(node.light)].type == LightData::Type::Dome) ++domes;
  if (lightsWritten + domes < scene.lights.size() || camerasWritten < scene.cameras.size())
    written.warnings.push_back(std::to_string(scene.lights.size() - lightsWritten - domes) + " light(s) and " +
                               std::to_string(scene.cameras.size() - camerasWritten) +
                               " camera(s) on no node; left out");
  return {};
}

Node PropertyTemplate(const std::string& type, const std::string& templateName, std::int32_t count,
                      void (*fill)(Node&)) {
  Node object{"ObjectType", {type}, {}};
  object.Add("Count", {count});
  if (fill != nullptr) {
    Node& t = object.Add("PropertyTemplate", {templateName});
    fill(t.Add("Properties70"));
  }
  return object;
}

std::vector<Node> Writer::Document() {
  std::vector<Node> top;
  Node& header = top.emplace_back(Node{"FBXHeaderExtension", {}, {}});
  header.Add("FBXHeaderVersion", {std::int32_t{1003}});
  header.Add("FBXVersion", {static_cast<std::int32_t>(fbx::kVersion)});
  header.Add("EncryptionType", {std::int32_t{0}});
  Node& stamp = header.Add("CreationTimeStamp");
  stamp.Add("Version", {std::int32_t{1000}});
  for (const auto& [field, value] : std::initializer_list<std::pair<const char*, std::int32_t>>{
           {"Year", 2000}, {"Month", 1}, {"Day", 1}, {"Hour", 0}, {"Minute", 0}, {"Second", 0}, {"Millisecond", 0}})
    stamp.Add(field, {value});
  header.Add("Creator", {std::string("vexinterop")});

  top.push_back(Node{"FileId", {fbx::Raw{std::string("vexinterop-fbx-1", 16)}}, {}});
  top.push_back(Node{"CreationTime", {std::string("2000-01-01 00:00:00:000")}, {}});
  top.push_back(Node{"Creator", {std::string("vexinterop")}, {}});

  Node& global = top.emplace_back(Node{"GlobalSettings", {}, {}});
  global.Add("Version", {std::int32_t{1000}});
  Node& g = global.Add("Properties70");
  const bool zUp = scene.upAxis == 'Z';
  PInt(g, "UpAxis", zUp ? 2 : 1);
  PInt(g, "UpAxisSign", 1);
  PInt(g, "FrontAxis", zUp ? 1 : 2);
  PInt(g, "FrontAxisSign", zUp ? -1 : 1);
  PInt(g, "CoordAxis", 0);
  PInt(g, "CoordAxisSign", 1);
  PInt(g, "OriginalUpAxis", zUp ? 2 : 1);
  PInt(g, "OriginalUpAxisSign", 1);
  // FBX counts its unit in centimetres.
  PDouble(g, "UnitScaleFactor", scene.metersPerUnit * 100.0);
  PDouble(g, "OriginalUnitScaleFactor", scene.metersPerUnit * 100.0);
  P(g, "AmbientColor", "ColorRGB", "Color", "", {0.0, 0.0, 0.0});
  PString(g, "DefaultCamera", "Producer Perspective");
  PEnum(g, "TimeMode", 11);
  P(g, "TimeSpanStart", "KTime", "Time", "", {std::int64_t{0}});
  P(g, "TimeSpanStop", "KTime", "Time", "", {std::int64_t{46186158000}});
  PDouble(g, "CustomFrameRate", -1.0);

  const std::int64_t documentId = NewId();
  Node& documents = top.emplace_back(Node{"Documents", {}, {}});
  documents.Add("Count", {std::int32_t{1}});
  Node& document = documents.Add("Document", {documentId, std::string(scene.name), std::string("Scene")});
  Node& dp = document.Add("Properties70");
  P(dp, "SourceObject", "object", "", "", {});
  PString(dp, "ActiveAnimStackName", "");
  document.Add("RootNode", {std::int64_t{0}});

  top.push_back(Node{"References", {}, {}});

  Node& definitions = top.emplace_back(Node{"Definitions", {}, {}});
  definitions.Add("Version", {std::int32_t{100}});
  std::int32_t total = 1;
  for (const auto& [type, count] : counts) total += count;
  definitions.Add("Count", {total});
  definitions.children.push_back(PropertyTemplate("GlobalSettings", "", 1, nullptr));
  auto count = [&](const char* type) { return counts.contains(type) ? counts.at(type) : 0; };
  if (count("Model") > 0)
    definitions.children.push_back(PropertyTemplate("Model", "FbxNode", count("Model"), [](Node& p) {
      PLcl(p, "Lcl Translation", {0, 0, 0});
      PLcl(p, "Lcl Rotation", {0, 0, 0});
      PLcl(p, "Lcl Scaling", {1, 1, 1});
      PEnum(p, "RotationOrder", 0);
      PEnum(p, "InheritType", 0);
    }));
  if (count("Geometry") > 0)
    definitions.children.push_back(PropertyTemplate("Geometry", "FbxMesh", count("Geometry"), [](Node& p) {
      P(p, "Color", "ColorRGB", "Color", "", {0.8, 0.8, 0.8});
    }));
  if (count("Material") > 0)
    definitions.children.push_back(PropertyTemplate("Material", "FbxSurfacePhong", count("Material"), [](Node& p) {
      PString(p, "ShadingModel", "Phong");
      PInt(p, "MultiLayer", 0);
    }));
  if (count("Texture") > 0)
    definitions.children.push_back(PropertyTemplate("Texture", "FbxFileTexture", count("Texture"), [](Node& p) {
      PEnum(p, "TextureTypeUse", 0);
      PEnum(p, "WrapModeU", 0);
      PEnum(p, "WrapModeV", 0);
    }));
  if (count("NodeAttribute") > 0)
    definitions.children.push_back(PropertyTemplate("NodeAttribute", "", count("NodeAttribute"), nullptr));
  if (count("Video") > 0)
    definitions.children.push_back(PropertyTemplate("Video", "FbxVideo", count("Video"), [](Node& p) {
      PString(p, "Path", "");
    }));

  top.push_back(std::move(objects));
  top.push_back(std::move(connections));
  Node& takes = top.emplace_back(Node{"Takes", {}, {}});
  takes.Add("Current", {std::string()});
  return top;
}

}  // namespace

vex::Result<FbxOutput> WriteFbxFile(const SceneData& scene, const std::string& directory, const std::string& stem,
                                    const vex::IPortBundles& bundles, bool ascii, bool embed) {
  FbxOutput written;
  const std::string file = stem + ".fbx";
  written.files.push_back(file);
  Writer writer{scene, directory, bundles, embed, ascii, written};
  VEX_TRY(writer.AddNodes());
  const auto tree = writer.Document();
  const fs::path path = fs::path(directory) / file;
  if (!ascii) {
    VEX_TRY(fbx::WriteBinary(tree, path.string()));
    return written;
  }
  const std::string bytes = fbx::EncodeAscii(tree);
  std::ofstream out(path, std::ios::binary);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  out.close();
  if (!out) return VEX_FAIL(vex::ErrorKind::FileIO, path.string() + ": cannot write");
  return written;
}

vex::Result<WrittenFiles> WriteFbx(const SceneData& scene, const std::string& directory, const std::string& stem,
                                   const vex::IPortBundles& bundles, const WriteOptions& options) {
  VEX_ASSIGN(auto output, WriteFbxFile(scene, directory, stem, bundles, options.fbxAscii, options.embedTextures));
  return WrittenFiles{std::move(output.files), std::move(output.warnings)};
}

}  // namespace host::formats::detail
