// USD text (.usda) written by the project: the scene's node hierarchy as Xforms (each with its
// local transform), every mesh as a Mesh prim (points, normals, st, one GeomSubset per material
// part) and every material as a UsdPreviewSurface shader. A textured port is connected to a
// UsdUVTexture reader (file, st from a UsdPrimvarReader_float2, colour space by the bundle's
// colour marking, "rgb" for colour and vector ports, "r" for scalar ones); a normal map is
// expanded from [0, 1] to [-1, 1] by the reader's scale and bias. Lights become UsdLux prims and
// cameras Camera prims under their node's Xform (conversions in light_units.h).
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <numbers>
#include <set>
#include <sstream>
#include <string_view>

#include "host/formats/format_io.h"
#include "host/formats/light_units.h"
#include "host/formats/writers.h"
#include "vex/ports.h"

namespace host::formats::detail {
namespace {

namespace usd = vex::ports::usdpreviewsurface;

enum class Kind { Color, Float, Normal };

struct Input {
  std::string_view port;  ///< the port of the USD Preview Surface bundle, also the input's name
  Kind kind;
};

// The shader's inputs in the schema's order ("workflow" becomes useSpecularWorkflow).
constexpr Input kInputs[] = {
    {usd::diffuseColor, Kind::Color},   {usd::emissiveColor, Kind::Color},
    {usd::specularColor, Kind::Color},  {usd::metallic, Kind::Float},
    {usd::roughness, Kind::Float},      {usd::clearcoat, Kind::Float},
    {usd::clearcoatRoughness, Kind::Float}, {usd::opacity, Kind::Float},
    {usd::opacityThreshold, Kind::Float}, {usd::ior, Kind::Float},
    {usd::normal, Kind::Normal},        {usd::displacement, Kind::Float},
    {usd::occlusion, Kind::Float},
};

std::string Tuple(std::initializer_list<double> values) {
  std::string out = "(";
  bool first = true;
  for (const double v : values) {
    if (!first) out += ", ";
    out += FormatNumber(v);
    first = false;
  }
  return out + ")";
}

template <class T, std::size_t N>
void WriteArray(std::ostringstream& out, const T* values, std::size_t count, std::string_view indent) {
  out << "[";
  for (std::size_t i = 0; i < count; i += N) {
    if (i != 0) out << ", ";
    if (i != 0 && (i / N) % 8 == 0) out << "\n" << indent;
    if constexpr (N == 1) {
      out << values[i];
    } else {
      out << "(";
      for (std::size_t c = 0; c < N; ++c) out << (c ? ", " : "") << FormatNumber(values[i + c]);
      out << ")";
    }
  }
  out << "]";
}

/// Prim names are identifiers: letters, digits and '_', not starting with a digit.
std::string Identifier(std::string_view name) {
  std::string out = SafeName(name);
  for (char& c : out)
    if (c == '-') c = '_';
  if (out.front() >= '0' && out.front() <= '9') out.insert(out.begin(), '_');
  return out;
}

/// Unique identifiers among siblings.
class Names {
 public:
  std::string Take(std::string_view name) {
    std::string base = Identifier(name), out = base;
    for (int k = 1; !used_.insert(out).second; ++k) out = base + "_" + std::to_string(k);
    return out;
  }

 private:
  std::set<std::string> used_;
};

std::string Indent(int depth) { return std::string(static_cast<std::size_t>(depth) * 4, ' '); }

struct Writer {
  const SceneData& scene;
  const std::string& directory;
  const std::string& stem;
  const vex::IPortBundles& bundles;
  const WriteOptions& options;
  std::string root;
  std::vector<std::string> materialPaths;
  WrittenFiles written;

  std::string TextureFile(std::size_t material, std::string_view port) const {
    const std::string prefix =
        scene.materials.size() == 1 ? stem : stem + "_" + SafeName(scene.materials[material].name);
    return prefix + "_" + std::string(port) + (options.floatTextures ? ".exr" : ".png");
  }

  vex::Result<void> Material(std::ostringstream& out, std::size_t index, const std::string& name) {
    const MaterialData& data = scene.materials[index];
    const std::string path = materialPaths[index];
    const std::string surface = path + "/PreviewSurface";
    out << "        def Material \"" << name << "\"\n        {\n"
        << "            token outputs:surface.connect = <" << surface << ".outputs:surface>\n\n"
        << "            def Shader \"PreviewSurface\"\n            {\n"
        << "                uniform token info:id = \"UsdPreviewSurface\"\n";
    if (!data.set || data.set->GetBundle() != usd::kId)
      return VEX_FAIL(vex::ErrorKind::IllegalArgument,
                      (std::filesystem::path(directory) / (stem + ".usda")).string() + ": material '" + data.name +
                          "' is not a set of the USD Preview Surface bundle");
    const PortReader material(*data.set, bundles);
    std::ostringstream readers;
    bool anyTexture = false;
    for (const Input& input : kInputs) {
      const std::string port(input.port);
      const vex::TextureBuffer* texture = material.Texture(port);
      // A material that does not ask for displacement writes none: a renderer that displaces
      // would move the surface by the value.
      if (input.port == usd::displacement && texture == nullptr && material.Number(port, 0.0) == 0.0) continue;
      const std::string type = input.kind == Kind::Color ? "color3f" : input.kind == Kind::Normal ? "normal3f" : "float";
      switch (input.kind) {
        case Kind::Color: {
          const vex::Color c = material.Rgb(port, {0, 0, 0});
          out << "                color3f inputs:" << port << " = " << Tuple({c.r, c.g, c.b}) << "\n";
          break;
        }
        case Kind::Normal: {
          const vex::Color n = material.Rgb(port, {0, 0, 1});
          out << "                normal3f inputs:" << port << " = " << Tuple({n.r, n.g, n.b}) << "\n";
          break;
        }
        case Kind::Float:
          out << "                float inputs:" << port << " = " << FormatNumber(material.Number(port, 0.0)) << "\n";
          break;
      }
      if (texture == nullptr) continue;
      anyTexture = true;
      const std::string file = TextureFile(index, port);
      const bool srgb = material.IsColorPort(port);
      VEX_TRY(WriteTexture(directory, file, *texture, srgb));
      written.files.push_back(file);
      written.textures.push_back({data.name, port, file});
      const std::string reader = port + "Texture";
      const bool rgb = input.kind != Kind::Float;
      const std::string output = rgb ? "rgb" : "r";
      out << "                " << type << " inputs:" << port << ".connect = <" << path << "/" << reader
          << ".outputs:" << output << ">\n";
      readers << "\n            def Shader \"" << reader << "\"\n            {\n"
              << "                uniform token info:id = \"UsdUVTexture\"\n"
              << "                asset inputs:file = @./" << file << "@\n"
              << "                token inputs:sourceColorSpace = \"" << (srgb ? "sRGB" : "raw") << "\"\n"
              << "                float2 inputs:st.connect = <" << path << "/stReader.outputs:result>\n"
              << "                token inputs:wrapS = \"repeat\"\n"
              << "                token inputs:wrapT = \"repeat\"\n";
      if (input.kind == Kind::Normal)
        readers << "                float4 inputs:scale = (2, 2, 2, 1)\n"
                << "                float4 inputs:bias = (-1, -1, -1, 0)\n";
      readers << "                " << (rgb ? "float3" : "float") << " outputs:" << output << "\n            }\n";
    }
    namespace workflows = usd::values::workflow;
    const std::string workflow = material.Text(std::string(usd::workflow), std::string(workflows::metalness));
    if (workflow != workflows::metalness && workflow != workflows::specular)
      written.warnings.push_back("material '" + data.name + "': workflow \"" + workflow +
                                 "\" is neither metalness nor specular; metalness written");
    out << "                int inputs:useSpecularWorkflow = " << (workflow == workflows::specular ? 1 : 0) << "\n"
        << "                token outputs:surface\n            }\n";
    if (anyTexture)
      out << "\n            def Shader \"stReader\"\n            {\n"
          << "                uniform token info:id = \"UsdPrimvarReader_float2\"\n"
          << "                string inputs:varname = \"st\"\n"
          << "                float2 outputs:result\n            }\n"
          << readers.str();
    out << "        }\n";
    return {};
  }

  void Mesh(std::ostringstream& out, const MeshData& mesh, const std::string& name, int depth) {
    const std::string in = Indent(depth), in1 = Indent(depth + 1), in2 = Indent(depth + 2);
    int boundMaterial = -1;
    if (mesh.parts.size() == 1) boundMaterial = mesh.parts.front().material;
    out << in << "def Mesh \"" << name << "\"" << (boundMaterial >= 0 ? " (\n" + in1 + "prepend apiSchemas = [\"MaterialBindingAPI\"]\n" + in + ")" : std::string()) << "\n"
        << in << "{\n"
        << in1 << "uniform token subdivisionScheme = \"none\"\n"
        << in1 << "uniform token orientation = \"rightHanded\"\n"
        << in1 << "int[] faceVertexCounts = ";
    std::vector<int> counts(mesh.TriangleCount(), 3);
    WriteArray<int, 1>(out, counts.data(), counts.size(), in2);
    out << "\n" << in1 << "int[] faceVertexIndices = ";
    WriteArray<std::uint32_t, 1>(out, mesh.indices.data(), mesh.indices.size(), in2);
    out << "\n" << in1 << "point3f[] points = ";
    WriteArray<float, 3>(out, mesh.positions.data(), mesh.positions.size(), in2);
    out << "\n";
    if (!mesh.normals.empty()) {
      out << in1 << "normal3f[] normals = ";
      WriteArray<float, 3>(out, mesh.normals.data(), mesh.normals.size(), in2);
      out << " (\n" << in2 << "interpolation = \"vertex\"\n" << in1 << ")\n";
    }
    if (!mesh.uvs.empty()) {
      out << in1 << "texCoord2f[] primvars:st = ";
      WriteArray<float, 2>(out, mesh.uvs.data(), mesh.uvs.size(), in2);
      out << " (\n" << in2 << "interpolation = \"vertex\"\n" << in1 << ")\n";
    }
    if (boundMaterial >= 0 && static_cast<std::size_t>(boundMaterial) < materialPaths.size())
      out << in1 << "rel material:binding = <" << materialPaths[static_cast<std::size_t>(boundMaterial)] << ">\n";
    if (mesh.parts.size() > 1) {
      out << in1 << "uniform token subsetFamily:materialBind:familyType = \"partition\"\n";
      Names names;
      for (const auto& part : mesh.parts) {
        std::vector<std::uint32_t> faces;
        for (std::uint32_t t = 0; t < part.triangleCount; ++t) faces.push_back(part.firstTriangle + t);
        const bool bound = part.material >= 0 && static_cast<std::size_t>(part.material) < materialPaths.size();
        out << "\n" << in1 << "def GeomSubset \""
            << names.Take(bound ? scene.materials[static_cast<std::size_t>(part.material)].name : "unbound") << "\" (\n"
            << in2 << "prepend apiSchemas = [\"MaterialBindingAPI\"]\n" << in1 << ")\n" << in1 << "{\n"
            << in2 << "uniform token elementType = \"face\"\n"
            << in2 << "uniform token familyName = \"materialBind\"\n"
            << in2 << "int[] indices = ";
        WriteArray<std::uint32_t, 1>(out, faces.data(), faces.size(), Indent(depth + 3));
        out << "\n";
        if (bound) out << in2 << "rel material:binding = <" << materialPaths[static_cast<std::size_t>(part.material)] << ">\n";
        out << in1 << "}\n";
      }
    }
    out << in << "}\n";
  }

  /// A light as the UsdLux prim of its shape. Its luminance (lux for a distant light) is
  /// intensity x 2^exposure; a colour temperature is applied by the renderer, so the colour goes
  /// out without it.
  void Light(std::ostringstream& out, const LightData& light, const std::string& name, int depth) {
    using Type = LightData::Type;
    namespace units = light_units;
    const std::string in = Indent(depth), in1 = Indent(depth + 1);
    const std::string what = "light '" + light.name + "'";
    double value = light.intensity;
    std::string schema;
    switch (light.type) {
      case Type::Point:
      case Type::Spot:
      case Type::Sphere: schema = "SphereLight"; break;
      case Type::Directional: schema = "DistantLight"; break;
      case Type::Rect: schema = "RectLight"; break;
      case Type::Disk: schema = "DiskLight"; break;
      case Type::Cylinder: schema = "CylinderLight"; break;
      case Type::Dome: schema = "DomeLight"; break;
    }
    const bool punctual = light.type == Type::Point || light.type == Type::Spot;
    const double pointRadius = units::PointRadius(scene.metersPerUnit);
    if (punctual) value = units::SphereNitsFromCandela(light.intensity, pointRadius);
    out << in << "def " << schema << " \"" << name << "\"";
    if (light.type == Type::Spot) out << " (\n" << in1 << "prepend apiSchemas = [\"ShapingAPI\"]\n" << in << ")";
    out << "\n" << in << "{\n";
    const units::Exposed exposed = units::SplitExposure(value);
    vex::Color color = light.color;
    if (light.temperature) {
      const vex::Color& t = light.temperatureRgb;
      auto divide = [](double c, double by) { return by != 0 ? c / by : c; };
      color = {divide(color.r, t.r), divide(color.g, t.g), divide(color.b, t.b)};
    }
    out << in1 << "color3f inputs:color = " << Tuple({color.r, color.g, color.b}) << "\n";
    if (light.temperature)
      out << in1 << "float inputs:colorTemperature = " << FormatNumber(*light.temperature) << "\n"
          << in1 << "bool inputs:enableColorTemperature = 1\n";
    out << in1 << "float inputs:exposure = " << exposed.exposure << "\n"
        << in1 << "float inputs:intensity = " << FormatNumber(exposed.intensity) << "\n"
        // A distant light's intensity is illuminance only when normalised; a shape's stays the
        // luminance of its surface only when not.
        << in1 << "bool inputs:normalize = " << (light.type == Type::Directional ? 1 : 0) << "\n";
    switch (light.type) {
      case Type::Point:
      case Type::Spot:
        out << in1 << "float inputs:radius = " << FormatNumber(pointRadius) << "\n";
        break;
      case Type::Sphere:
      case Type::Disk:
        out << in1 << "float inputs:radius = " << FormatNumber(light.radius) << "\n";
        break;
      case Type::Cylinder:
        out << in1 << "float inputs:length = " << FormatNumber(light.length) << "\n"
            << in1 << "float inputs:radius = " << FormatNumber(light.radius) << "\n";
        break;
      case Type::Rect:
        out << in1 << "float inputs:height = " << FormatNumber(light.height) << "\n"
            << in1 << "float inputs:width = " << FormatNumber(light.width) << "\n";
        break;
      case Type::Dome:
        if (!light.texture.empty())
          out << in1 << "asset inputs:texture:file = @" << light.texture << "@\n"
              << in1 << "token inputs:texture:format = \"latlong\"\n";
        break;
      case Type::Directional: break;
    }
    if (light.type == Type::Spot) {
      const double outer = light.outerConeAngle, inner = std::clamp(light.innerConeAngle, 0.0, outer);
      out << in1 << "float inputs:shaping:cone:angle = " << FormatNumber(outer * 180 / std::numbers::pi) << "\n"
          << in1 << "float inputs:shaping:cone:softness = " << FormatNumber(outer > 0 ? (outer - inner) / outer : 0.0)
          << "\n";
    }
    if (punctual) out << in1 << "bool treatAsPoint = 1\n";
    out << in << "}\n";
    if (light.range)
      written.warnings.push_back(what + ": UsdLux has no falloff radius; range " + FormatNumber(*light.range) +
                                 " left out");
  }

  /// A camera: apertures and focal length in tenths of a scene unit (the film's longer side is
  /// the gauge for a perspective camera, the view volume itself for an orthographic one).
  void Camera(std::ostringstream& out, const CameraData& camera, const std::string& name, int depth) {
    namespace units = light_units;
    const std::string in = Indent(depth), in1 = Indent(depth + 1);
    double zfar = camera.zfar;
    if (!std::isfinite(zfar)) {
      zfar = 1e9;
      written.warnings.push_back("camera '" + camera.name + "': infinite far plane written as 1e9");
    }
    out << in << "def Camera \"" << name << "\"\n" << in << "{\n"
        << in1 << "float2 clippingRange = " << Tuple({camera.znear, zfar}) << "\n";
    if (camera.orthographic) {
      out << in1 << "float horizontalAperture = " << FormatNumber(10 * camera.orthoHeight * camera.aspectRatio) << "\n"
          << in1 << "token projection = \"orthographic\"\n"
          << in1 << "float verticalAperture = " << FormatNumber(10 * camera.orthoHeight) << "\n";
    } else {
      const units::Film film = units::FilmFor(camera.aspectRatio);
      out << in1 << "float focalLength = " << FormatNumber(units::FocalLength(film.height, camera.yfov)) << "\n"
          << in1 << "float horizontalAperture = " << FormatNumber(film.width) << "\n"
          << in1 << "token projection = \"perspective\"\n"
          << in1 << "float verticalAperture = " << FormatNumber(film.height) << "\n";
    }
    out << in << "}\n";
  }

  void Node(std::ostringstream& out, std::size_t index, const std::string& name, int depth) {
    const NodeData& node = scene.nodes[index];
    const std::string in = Indent(depth), in1 = Indent(depth + 1);
    out << in << "def Xform \"" << name << "\"\n" << in << "{\n";
    if (!node.local.IsIdentity()) {
      // USD's matrices are row vectors: each row is one of our columns.
      out << in1 << "matrix4d xformOp:transform = (";
      for (int c = 0; c < 4; ++c) {
        const auto* m = &node.local.m[static_cast<std::size_t>(c * 4)];
        out << (c ? ", " : "") << Tuple({m[0], m[1], m[2], m[3]});
      }
      out << ")\n" << in1 << "uniform token[] xformOpOrder = [\"xformOp:transform\"]\n";
    }
    Names names;
    if (node.mesh >= 0 && static_cast<std::size_t>(node.mesh) < scene.meshes.size()) {
      const MeshData& mesh = scene.meshes[static_cast<std::size_t>(node.mesh)];
      Mesh(out, mesh, names.Take(mesh.name.empty() ? "Mesh" : mesh.name), depth + 1);
    }
    if (node.light >= 0 && static_cast<std::size_t>(node.light) < scene.lights.size()) {
      const LightData& light = scene.lights[static_cast<std::size_t>(node.light)];
      Light(out, light, names.Take(light.name.empty() ? "Light" : light.name), depth + 1);
    }
    if (node.camera >= 0 && static_cast<std::size_t>(node.camera) < scene.cameras.size()) {
      const CameraData& camera = scene.cameras[static_cast<std::size_t>(node.camera)];
      Camera(out, camera, names.Take(camera.name.empty() ? "Camera" : camera.name), depth + 1);
    }
    for (std::size_t child = index + 1; child < scene.nodes.size(); ++child)
      if (scene.nodes[child].parent == static_cast<int>(index))
        Node(out, child, names.Take(scene.nodes[child].name.empty() ? "Node" : scene.nodes[child].name), depth + 1);
    out << in << "}\n";
  }
};

}  // namespace

vex::Result<WrittenFiles> WriteUsd(const SceneData& scene, const std::string& directory, const std::string& stem,
                                   const vex::IPortBundles& bundles, const WriteOptions& options) {
  Writer w{scene, directory, stem, bundles, options, Identifier(stem), {}, {}};
  w.written.files.push_back(stem + ".usda");
  Names materialNames;
  std::vector<std::string> materialPrims;
  for (const auto& m : scene.materials) {
    materialPrims.push_back(materialNames.Take(m.name.empty() ? "Material" : m.name));
    w.materialPaths.push_back("/" + w.root + "/Materials/" + materialPrims.back());
  }
  std::ostringstream out;
  out << "#usda 1.0\n(\n    defaultPrim = \"" << w.root << "\"\n    metersPerUnit = " << FormatNumber(scene.metersPerUnit)
      << "\n    upAxis = \"" << (scene.upAxis == 'Z' ? 'Z' : 'Y') << "\"\n)\n\n"
      << "def Xform \"" << w.root << "\" (\n    kind = \"component\"\n)\n{\n";
  Names top;
  top.Take("Materials");
  for (std::size_t i = 0; i < scene.nodes.size(); ++i)
    if (scene.nodes[i].parent < 0) w.Node(out, i, top.Take(scene.nodes[i].name.empty() ? "Node" : scene.nodes[i].name), 1);
  if (!scene.materials.empty()) {
    out << "\n    def Scope \"Materials\"\n    {\n";
    for (std::size_t i = 0; i < scene.materials.size(); ++i) {
      if (i != 0) out << "\n";
      VEX_TRY(w.Material(out, i, materialPrims[i]));
    }
    out << "    }\n";
  }
  out << "}\n";
  std::set<int> lightsOn, camerasOn;
  for (const auto& node : scene.nodes) {
    if (node.light >= 0 && static_cast<std::size_t>(node.light) < scene.lights.size()) lightsOn.insert(node.light);
    if (node.camera >= 0 && static_cast<std::size_t>(node.camera) < scene.cameras.size()) camerasOn.insert(node.camera);
  }
  if (lightsOn.size() < scene.lights.size() || camerasOn.size() < scene.cameras.size())
    w.written.warnings.push_back(std::to_string(scene.lights.size() - lightsOn.size()) + " light(s) and " +
                                 std::to_string(scene.cameras.size() - camerasOn.size()) +
                                 " camera(s) on no node; left out");
  VEX_TRY(WriteText(directory, stem + ".usda", out.str()));
  return std::move(w.written);
}

}  // namespace host::formats::detail
