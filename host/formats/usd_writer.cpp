// USD text (.usda) written by the project: the preview sphere bound to a
// material whose surface is a UsdPreviewSurface shader. A textured port is
// connected to a UsdUVTexture reader (file, st from a UsdPrimvarReader_float2,
// colour space by the bundle's colour marking, "rgb" for colour and vector
// ports, "r" for scalar ones); a normal map is expanded from [0, 1] to [-1, 1]
// by the reader's scale and bias. Names and types follow the schema.
#include <sstream>
#include <string_view>

#include "host/formats/writers.h"

namespace host::formats::detail {
namespace {

enum class Kind { Color, Float, Normal, Int, Token };

struct Input {
  std::string_view port;  ///< the port of the USD Preview Surface bundle, also the input's name
  Kind kind;
};

// The shader's inputs in the schema's order ("workflow" becomes useSpecularWorkflow).
constexpr Input kInputs[] = {
    {"diffuseColor", Kind::Color},    {"emissiveColor", Kind::Color}, {"specularColor", Kind::Color},
    {"metallic", Kind::Float},        {"roughness", Kind::Float},     {"clearcoat", Kind::Float},
    {"clearcoatRoughness", Kind::Float}, {"opacity", Kind::Float},    {"opacityThreshold", Kind::Float},
    {"ior", Kind::Float},             {"normal", Kind::Normal},       {"displacement", Kind::Float},
    {"occlusion", Kind::Float},
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
void WriteArray(std::ostringstream& out, const std::vector<T>& values, std::string_view indent) {
  out << "[";
  for (std::size_t i = 0; i < values.size(); i += N) {
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

}  // namespace

vex::Result<WrittenMaterial> WriteUsd(const PortReader& material, const std::string& fileName,
                                      const std::string& directory) {
  WrittenMaterial written;
  written.files.push_back(fileName + ".usda");
  // Prim names are identifiers: no '-', no leading digit.
  std::string name = fileName;
  for (char& c : name)
    if (c == '-') c = '_';
  if (name.front() >= '0' && name.front() <= '9') name.insert(name.begin(), '_');
  const std::string materialPath = "/" + name + "/Materials/" + name;
  const std::string surfacePath = materialPath + "/PreviewSurface";

  std::ostringstream shader;   // the surface's inputs
  std::ostringstream readers;  // the texture readers
  bool anyTexture = false;
  for (const Input& input : kInputs) {
    const std::string port(input.port);
    const vex::TextureBuffer* texture = material.Texture(port);
    switch (input.kind) {
      case Kind::Color: {
        const vex::Color c = material.Rgb(port, {0, 0, 0});
        shader << "            color3f inputs:" << port << " = " << Tuple({c.r, c.g, c.b}) << "\n";
        break;
      }
      case Kind::Normal: {
        const vex::Color n = material.Rgb(port, {0, 0, 1});
        shader << "            normal3f inputs:" << port << " = " << Tuple({n.r, n.g, n.b}) << "\n";
        break;
      }
      default:
        shader << "            float inputs:" << port << " = " << FormatNumber(material.Number(port, 0.0)) << "\n";
        break;
    }
    if (texture == nullptr) continue;
    anyTexture = true;
    const std::string file = fileName + "_" + port + ".png";
    const bool srgb = material.IsColorPort(port);
    VEX_TRY(WriteTexture(directory, file, *texture, srgb));
    written.files.push_back(file);
    written.textures.emplace_back(port, file);
    const std::string reader = port + "Texture";
    const bool rgb = input.kind == Kind::Color || input.kind == Kind::Normal;
    const std::string output = rgb ? "rgb" : "r";
    shader << "            " << (input.kind == Kind::Color    ? "color3f"
                                 : input.kind == Kind::Normal ? "normal3f"
                                                              : "float")
           << " inputs:" << port << ".connect = <" << materialPath << "/" << reader << ".outputs:" << output << ">\n";
    readers << "\n        def Shader \"" << reader << "\"\n        {\n"
            << "            uniform token info:id = \"UsdUVTexture\"\n"
            << "            asset inputs:file = @./" << file << "@\n"
            << "            token inputs:sourceColorSpace = \"" << (srgb ? "sRGB" : "raw") << "\"\n"
            << "            float2 inputs:st.connect = <" << materialPath << "/stReader.outputs:result>\n"
            << "            token inputs:wrapS = \"repeat\"\n"
            << "            token inputs:wrapT = \"repeat\"\n";
    if (input.kind == Kind::Normal)
      readers << "            float4 inputs:scale = (2, 2, 2, 1)\n"
              << "            float4 inputs:bias = (-1, -1, -1, 0)\n";
    readers << "            " << (rgb ? "float3" : "float") << " outputs:" << output << "\n        }\n";
  }
  const std::string workflow = material.Text("workflow", "metalness");
  if (workflow != "metalness" && workflow != "specular")
    written.warnings.push_back("workflow \"" + workflow + "\" is neither metalness nor specular; metalness written");
  shader << "            int inputs:useSpecularWorkflow = " << (workflow == "specular" ? 1 : 0) << "\n";

  const PreviewMesh mesh = MakeUvSphere();
  std::vector<int> counts(mesh.TriangleCount(), 3);
  std::ostringstream out;
  out << "#usda 1.0\n(\n    defaultPrim = \"" << name << "\"\n    metersPerUnit = 1\n    upAxis = \"Y\"\n)\n\n"
      << "def Xform \"" << name << "\" (\n    kind = \"component\"\n)\n{\n"
      << "    def Mesh \"PreviewSphere\" (\n        prepend apiSchemas = [\"MaterialBindingAPI\"]\n    )\n    {\n"
      << "        uniform token subdivisionScheme = \"none\"\n"
      << "        uniform token orientation = \"rightHanded\"\n"
      << "        int[] faceVertexCounts = ";
  WriteArray<int, 1>(out, counts, "            ");
  out << "\n        int[] faceVertexIndices = ";
  WriteArray<std::uint32_t, 1>(out, mesh.indices, "            ");
  out << "\n        point3f[] points = ";
  WriteArray<float, 3>(out, mesh.positions, "            ");
  out << "\n        normal3f[] normals = ";
  WriteArray<float, 3>(out, mesh.normals, "            ");
  out << " (\n            interpolation = \"vertex\"\n        )\n        texCoord2f[] primvars:st = ";
  WriteArray<float, 2>(out, mesh.uvs, "            ");
  out << " (\n            interpolation = \"vertex\"\n        )\n"
      << "        rel material:binding = <" << materialPath << ">\n    }\n\n"
      << "    def Scope \"Materials\"\n    {\n"
      << "        def Material \"" << name << "\"\n        {\n"
      << "            token outputs:surface.connect = <" << surfacePath << ".outputs:surface>\n\n"
      << "            def Shader \"PreviewSurface\"\n            {\n"
      << "                uniform token info:id = \"UsdPreviewSurface\"\n";
  // The inputs were gathered at shader depth 12; the material's children sit at 12 as well.
  std::istringstream lines(shader.str());
  for (std::string line; std::getline(lines, line);) out << "    " << line << "\n";
  out << "                token outputs:surface\n            }\n";
  if (anyTexture) {
    out << "\n            def Shader \"stReader\"\n            {\n"
        << "                uniform token info:id = \"UsdPrimvarReader_float2\"\n"
        << "                string inputs:varname = \"st\"\n"
        << "                float2 outputs:result\n            }\n";
    std::istringstream readerLines(readers.str());
    for (std::string line; std::getline(readerLines, line);) out << (line.empty() ? "" : "    ") << line << "\n";
  }
  out << "        }\n    }\n}\n";
  VEX_TRY(WriteText(directory, fileName + ".usda", out.str()));
  return written;
}

}  // namespace host::formats::detail
