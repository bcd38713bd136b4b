// USD text (.usda) written by the project: the scene's node hierarchy as Xforms (each with its
// local transform), every mesh as a Mesh prim (points, normals, st, one GeomSubset per material
// part) and every material as a UsdPreviewSurface shader. A textured port is connected to a
// UsdUVTexture reader (file, st from a UsdPrimvarReader_float2, colour space by the bundle's
// colour marking, "rgb" for colour and vector ports, "r" for scalar ones); a normal map is
// expanded from [0, 1] to [-1, 1] by the reader's scale and bias.
#include <filesystem>
#include <set>
#include <sstream>
#include <string_view>

#include "host/formats/format_io.h"
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
  if (!scene.lights.empty())
    w.written.warnings.push_back(std::to_string(scene.lights.size()) + " light(s) left out: the USD writer writes meshes and materials");
  if (!scene.cameras.empty())
    w.written.warnings.push_back(std::to_string(scene.cameras.size()) + " camera(s) left out: the USD writer writes meshes and materials");
  VEX_TRY(WriteText(directory, stem + ".usda", out.str()));
  return std::move(w.written);
}

}  // namespace host::formats::detail
