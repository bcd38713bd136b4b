// glTF 2.0 through tinygltf: "<name>.gltf" with the preview sphere in
// "<name>.bin" and each texture as its own PNG. The set is one of the glTF
// bundle, whose ports are the format's own fields.
#include <algorithm>
#include <cstring>
#include <filesystem>

#include <tiny_gltf.h>

#include "host/formats/writers.h"

namespace fs = std::filesystem;

namespace host::formats::detail {
namespace {

constexpr int kArrayBuffer = 34962;
constexpr int kElementArrayBuffer = 34963;

/// Appends `bytes` to the buffer (4-byte aligned) and returns the new buffer view's index.
int AddView(tinygltf::Model& model, const void* bytes, std::size_t size, int target) {
  auto& data = model.buffers[0].data;
  while (data.size() % 4 != 0) data.push_back(0);
  tinygltf::BufferView view;
  view.buffer = 0;
  view.byteOffset = data.size();
  view.byteLength = size;
  view.target = target;
  const auto* p = static_cast<const unsigned char*>(bytes);
  data.insert(data.end(), p, p + size);
  model.bufferViews.push_back(view);
  return static_cast<int>(model.bufferViews.size() - 1);
}

int AddAccessor(tinygltf::Model& model, int view, int componentType, std::size_t count, int type,
                std::vector<double> min = {}, std::vector<double> max = {}) {
  tinygltf::Accessor accessor;
  accessor.bufferView = view;
  accessor.componentType = componentType;
  accessor.count = count;
  accessor.type = type;
  accessor.minValues = std::move(min);
  accessor.maxValues = std::move(max);
  model.accessors.push_back(accessor);
  return static_cast<int>(model.accessors.size() - 1);
}

void AddMesh(tinygltf::Model& model, const PreviewMesh& mesh, const std::string& name) {
  model.buffers.emplace_back();
  model.buffers[0].uri = name + ".bin";
  const std::size_t n = mesh.VertexCount();
  std::vector<double> min(3, 1e30), max(3, -1e30);
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t c = 0; c < 3; ++c) {
      min[c] = std::min<double>(min[c], mesh.positions[3 * i + c]);
      max[c] = std::max<double>(max[c], mesh.positions[3 * i + c]);
    }
  tinygltf::Primitive primitive;
  primitive.mode = TINYGLTF_MODE_TRIANGLES;
  primitive.material = 0;
  primitive.attributes["POSITION"] =
      AddAccessor(model, AddView(model, mesh.positions.data(), mesh.positions.size() * 4, kArrayBuffer),
                  TINYGLTF_COMPONENT_TYPE_FLOAT, n, TINYGLTF_TYPE_VEC3, min, max);
  primitive.attributes["NORMAL"] =
      AddAccessor(model, AddView(model, mesh.normals.data(), mesh.normals.size() * 4, kArrayBuffer),
                  TINYGLTF_COMPONENT_TYPE_FLOAT, n, TINYGLTF_TYPE_VEC3);
  primitive.attributes["TANGENT"] =
      AddAccessor(model, AddView(model, mesh.tangents.data(), mesh.tangents.size() * 4, kArrayBuffer),
                  TINYGLTF_COMPONENT_TYPE_FLOAT, n, TINYGLTF_TYPE_VEC4);
  primitive.attributes["TEXCOORD_0"] =
      AddAccessor(model, AddView(model, mesh.uvs.data(), mesh.uvs.size() * 4, kArrayBuffer),
                  TINYGLTF_COMPONENT_TYPE_FLOAT, n, TINYGLTF_TYPE_VEC2);
  primitive.indices =
      AddAccessor(model, AddView(model, mesh.indices.data(), mesh.indices.size() * 4, kElementArrayBuffer),
                  TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT, mesh.indices.size(), TINYGLTF_TYPE_SCALAR);
  tinygltf::Mesh m;
  m.name = name;
  m.primitives.push_back(primitive);
  model.meshes.push_back(m);
  tinygltf::Node node;
  node.name = name;
  node.mesh = 0;
  model.nodes.push_back(node);
  tinygltf::Scene scene;
  scene.name = name;
  scene.nodes.push_back(0);
  model.scenes.push_back(scene);
  model.defaultScene = 0;
}

struct TextureWriter {
  tinygltf::Model& model;
  const PortReader& material;
  const std::string& name;
  const std::string& directory;
  WrittenMaterial& written;

  /// The texture index of the port's texture (written as "<name>_<port>.png"), or -1.
  vex::Result<int> Add(std::string_view port) {
    const vex::TextureBuffer* texture = material.Texture(port);
    if (texture == nullptr) return -1;
    const std::string file = name + "_" + std::string(port) + ".png";
    VEX_TRY(WriteTexture(directory, file, *texture, material.IsColorPort(port)));
    written.files.push_back(file);
    written.textures.emplace_back(port, file);
    if (model.samplers.empty()) {
      tinygltf::Sampler sampler;
      sampler.magFilter = TINYGLTF_TEXTURE_FILTER_LINEAR;
      sampler.minFilter = TINYGLTF_TEXTURE_FILTER_LINEAR_MIPMAP_LINEAR;
      sampler.wrapS = TINYGLTF_TEXTURE_WRAP_REPEAT;
      sampler.wrapT = TINYGLTF_TEXTURE_WRAP_REPEAT;
      model.samplers.push_back(sampler);
    }
    tinygltf::Image image;
    image.name = std::string(port);
    image.uri = file;
    image.mimeType = "image/png";
    model.images.push_back(image);
    tinygltf::Texture t;
    t.sampler = 0;
    t.source = static_cast<int>(model.images.size() - 1);
    model.textures.push_back(t);
    return static_cast<int>(model.textures.size() - 1);
  }
};

/// Images were written by TextureWriter already: tinygltf keeps their URIs.
bool KeepImageUri(const std::string*, const std::string*, const tinygltf::Image*, bool, std::string*, void*) {
  return false;
}

double Clamp01(double v) { return std::clamp(v, 0.0, 1.0); }

}  // namespace

vex::Result<WrittenMaterial> WriteGltf(const PortReader& material, const std::string& name,
                                       const std::string& directory, const WriteOptions& options) {
  WrittenMaterial written;
  written.files.push_back(name + ".gltf");
  written.files.push_back(name + ".bin");
  tinygltf::Model model;
  model.asset.version = "2.0";
  model.asset.generator = "vexinterop";
  AddMesh(model, MakeUvSphere(), name);
  TextureWriter textures{model, material, name, directory, written};

  tinygltf::Material m;
  m.name = name;
  const bool baseTextured = material.Texture("baseColorTexture") != nullptr;
  const vex::Color base = material.Rgb("baseColorFactor", {1, 1, 1});
  double alpha = material.Alpha("baseColorFactor", 1.0);
  // "opacity" holds the mean of an opacity texture that went into the base colour's alpha; with no
  // such texture it is the material's opacity and multiplies the factor's alpha.
  if (!baseTextured) alpha *= material.Number("opacity", 1.0);
  m.pbrMetallicRoughness.baseColorFactor = {Clamp01(base.r), Clamp01(base.g), Clamp01(base.b), Clamp01(alpha)};
  VEX_ASSIGN(m.pbrMetallicRoughness.baseColorTexture.index, textures.Add("baseColorTexture"));
  m.alphaMode = material.Text("alphaMode", "OPAQUE");
  if (m.alphaMode != "OPAQUE" && m.alphaMode != "BLEND" && m.alphaMode != "MASK") {
    written.warnings.push_back("alphaMode \"" + m.alphaMode + "\" is not a glTF alpha mode; OPAQUE written");
    m.alphaMode = "OPAQUE";
  }
  if (m.alphaMode == "MASK") m.alphaCutoff = std::max(0.0, material.Number("alphaCutoff", 0.5));
  m.pbrMetallicRoughness.metallicFactor = Clamp01(material.Number("metallicFactor", 1.0));
  m.pbrMetallicRoughness.roughnessFactor = Clamp01(material.Number("roughnessFactor", 1.0));
  VEX_ASSIGN(m.pbrMetallicRoughness.metallicRoughnessTexture.index, textures.Add("metallicRoughnessTexture"));

  // Emission: factor times strength. The factor of the file is limited to [0, 1]; what lies
  // above goes into KHR_materials_emissive_strength when asked, else it is clamped.
  const vex::Color factor = material.Rgb("emissiveFactor", {0, 0, 0});
  const double strength = std::max(0.0, material.Number("emissiveStrength", 1.0));
  vex::Color emission{factor.r * strength, factor.g * strength, factor.b * strength};
  const double peak = std::max({emission.r, emission.g, emission.b});
  if (peak > 1.0 && options.emissiveStrength) {
    m.emissiveFactor = {emission.r / peak, emission.g / peak, emission.b / peak};
    tinygltf::Value::Object extension;
    extension["emissiveStrength"] = tinygltf::Value(peak);
    m.extensions["KHR_materials_emissive_strength"] = tinygltf::Value(extension);
    model.extensionsUsed.push_back("KHR_materials_emissive_strength");
  } else {
    if (peak > 1.0)
      written.warnings.push_back("emission " + FormatNumber(peak) +
                                 " exceeds 1 and was clamped (--emissive-strength keeps it)");
    m.emissiveFactor = {Clamp01(emission.r), Clamp01(emission.g), Clamp01(emission.b)};
  }
  VEX_ASSIGN(m.emissiveTexture.index, textures.Add("emissiveTexture"));

  VEX_ASSIGN(m.normalTexture.index, textures.Add("normalTexture"));
  if (m.normalTexture.index >= 0) m.normalTexture.scale = material.Number("normalScale", 1.0);
  VEX_ASSIGN(m.occlusionTexture.index, textures.Add("occlusionTexture"));
  if (m.occlusionTexture.index >= 0)
    m.occlusionTexture.strength = Clamp01(material.Number("occlusionStrength", 1.0));
  model.materials.push_back(m);

  tinygltf::TinyGLTF gltf;
  gltf.SetImageWriter(&KeepImageUri, nullptr);
  const std::string path = (fs::path(directory) / (name + ".gltf")).string();
  if (!gltf.WriteGltfSceneToFile(&model, path, false, false, true, false))
    return VEX_FAIL(vex::ErrorKind::FileIO, path + ": cannot write");
  return written;
}

}  // namespace host::formats::detail
