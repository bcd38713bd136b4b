// glTF 2.0 and GLB materials through tinygltf, as sets of the glTF bundle.
// Images are not decoded by tinygltf: the host's image reader loads them
// (files by URI, GLB images from their buffer view through a scratch file).
#include <filesystem>
#include <fstream>
#include <random>

#include <tiny_gltf.h>

#include "host/formats/readers.h"
#include "host/input_checks.h"
#include "host/input_files.h"

namespace fs = std::filesystem;

namespace host::formats::detail {
namespace {

/// Leaves the image undecoded; its URI or buffer view is what the reader needs.
bool SkipImageDecoding(tinygltf::Image*, const int, std::string*, std::string*, int, int, const unsigned char*, int,
                       void*) {
  return true;
}

vex::ColorA ColorA(const std::vector<double>& v, vex::ColorA fallback) {
  if (v.size() < 4) return fallback;
  return {v[0], v[1], v[2], v[3]};
}

struct Reader {
  const std::string& path;
  const tinygltf::Model& model;
  const vex::IPortBundles& bundles;

  /// The image of a texture index as a TextureBuffer for `port`.
  vex::Result<std::optional<vex::TextureBuffer>> Texture(int index, std::string_view port) const {
    if (index < 0) return std::optional<vex::TextureBuffer>();
    if (static_cast<std::size_t>(index) >= model.textures.size())
      return VEX_FAIL(vex::ErrorKind::FileIO, path + ": texture " + std::to_string(index) + " does not exist");
    const int source = model.textures[static_cast<std::size_t>(index)].source;
    if (source < 0 || static_cast<std::size_t>(source) >= model.images.size())
      return VEX_FAIL(vex::ErrorKind::FileIO, path + ": texture " + std::to_string(index) + " has no image");
    const tinygltf::Image& image = model.images[static_cast<std::size_t>(source)];
    if (!image.uri.empty()) {
      if (image.uri.rfind("data:", 0) == 0)
        return VEX_FAIL(vex::ErrorKind::FileIO, path + ": image " + std::to_string(source) +
                                                    ": embedded data URIs are not read; use files or GLB");
      const std::string file = (fs::path(path).parent_path() / image.uri).string();
      VEX_ASSIGN(auto texture, ReadPortTexture(path, file, bundles, vex::bundle::kGltf, port));
      return std::optional<vex::TextureBuffer>(std::move(texture));
    }
    if (image.bufferView < 0 || static_cast<std::size_t>(image.bufferView) >= model.bufferViews.size())
      return VEX_FAIL(vex::ErrorKind::FileIO, path + ": image " + std::to_string(source) + " has no data");
    const auto& view = model.bufferViews[static_cast<std::size_t>(image.bufferView)];
    const auto& buffer = model.buffers[static_cast<std::size_t>(view.buffer)];
    if (view.byteOffset + view.byteLength > buffer.data.size())
      return VEX_FAIL(vex::ErrorKind::FileIO, path + ": image " + std::to_string(source) + " lies outside its buffer");
    // The image reader takes files: the bytes go to a scratch file with the suffix of their type.
    const std::string suffix = image.mimeType == "image/jpeg" ? ".jpg" : ".png";
    std::random_device random;
    const fs::path scratch = fs::temp_directory_path() / ("vexinterop-" + std::to_string(random()) + suffix);
    {
      std::ofstream out(scratch, std::ios::binary);
      out.write(reinterpret_cast<const char*>(buffer.data.data() + view.byteOffset),
                static_cast<std::streamsize>(view.byteLength));
    }
    auto texture = ReadPortTexture(path, scratch.string(), bundles, vex::bundle::kGltf, port);
    std::error_code ec;
    fs::remove(scratch, ec);
    if (!texture) return std::unexpected(std::move(texture).error());
    return std::optional<vex::TextureBuffer>(std::move(*texture));
  }

  vex::Result<void> SetTexture(vex::ParameterSet& set, std::string_view port, int index, vex::ColorA constant) const {
    VEX_ASSIGN(auto texture, Texture(index, port));
    if (!texture) return {};
    vex::Parameter p = vex::Parameter::Textured(vex::PackedConstantParameter(constant), std::move(*texture));
    set.Set(port, std::move(p));
    return {};
  }
};

}  // namespace

vex::Result<std::vector<ImportedMaterial>> ReadGltfMaterials(const std::string& path, const vex::IPortBundles& bundles) {
  tinygltf::TinyGLTF loader;
  loader.SetImageLoader(&SkipImageDecoding, nullptr);
  tinygltf::Model model;
  std::string error, warning;
  const bool binary = fs::path(path).extension() == ".glb" || fs::path(path).extension() == ".GLB";
  VEX_ASSIGN(const std::string bytes, ReadInputFile(path));
  VEX_TRY(CheckGltfBytes(bytes, path, binary));
  loader.SetFsCallbacks({&tinygltf::FileExists, &tinygltf::ExpandFilePath, &ReadReferencedFile, &tinygltf::WriteWholeFile, nullptr});
  const std::string baseDir = fs::path(path).parent_path().string();
  const auto size = static_cast<unsigned>(bytes.size());
  const bool ok = binary ? loader.LoadBinaryFromMemory(&model, &error, &warning,
                                                       reinterpret_cast<const unsigned char*>(bytes.data()), size, baseDir)
                         : loader.LoadASCIIFromString(&model, &error, &warning, bytes.data(), size, baseDir);
  if (!ok) {
    while (!error.empty() && (error.back() == '\n' || error.back() == '\r')) error.pop_back();
    for (std::size_t at = error.find('\n'); at != std::string::npos; at = error.find('\n', at)) error.replace(at, 1, "; ");
    return VEX_FAIL(vex::ErrorKind::FileIO, path + ": not a readable glTF file: " + error);
  }
  const Reader reader{path, model, bundles};
  std::vector<ImportedMaterial> out;
  for (std::size_t i = 0; i < model.materials.size(); ++i) {
    const tinygltf::Material& m = model.materials[i];
    ImportedMaterial imported;
    imported.name = m.name.empty() ? "material_" + std::to_string(i) : m.name;
    vex::ParameterSet& set = imported.set;
    VEX_TRY(set.Tag(vex::Id(vex::bundle::kGltf)));
    const auto& pbr = m.pbrMetallicRoughness;
    set.SetConstant("baseColorFactor", ColorA(pbr.baseColorFactor, {1, 1, 1, 1}));
    VEX_TRY(reader.SetTexture(set, "baseColorTexture", pbr.baseColorTexture.index, {1, 1, 1, 1}));
    set.SetConstant("alphaMode", m.alphaMode.empty() ? std::string("OPAQUE") : m.alphaMode);
    if (m.alphaMode == "MASK") set.SetConstant("alphaCutoff", m.alphaCutoff);
    set.SetConstant("metallicFactor", pbr.metallicFactor);
    set.SetConstant("roughnessFactor", pbr.roughnessFactor);
    VEX_TRY(reader.SetTexture(set, "metallicRoughnessTexture", pbr.metallicRoughnessTexture.index, {1, 1, 1, 1}));
    // The emissive strength is folded into the factor: the set carries the emission itself.
    double strength = 1.0;
    if (auto ext = m.extensions.find("KHR_materials_emissive_strength"); ext != m.extensions.end()) {
      const auto& value = ext->second.Get("emissiveStrength");
      if (value.IsNumber()) strength = value.GetNumberAsDouble();
    }
    vex::Color emissive{0, 0, 0};
    if (m.emissiveFactor.size() == 3) emissive = {m.emissiveFactor[0], m.emissiveFactor[1], m.emissiveFactor[2]};
    set.SetConstant("emissiveFactor", vex::Color{emissive.r * strength, emissive.g * strength, emissive.b * strength});
    VEX_TRY(reader.SetTexture(set, "emissiveTexture", m.emissiveTexture.index, {1, 1, 1, 1}));
    if (m.normalTexture.index >= 0) set.SetConstant("normalScale", m.normalTexture.scale);
    VEX_TRY(reader.SetTexture(set, "normalTexture", m.normalTexture.index, {0.5, 0.5, 1, 1}));
    if (m.occlusionTexture.index >= 0) set.SetConstant("occlusionStrength", m.occlusionTexture.strength);
    VEX_TRY(reader.SetTexture(set, "occlusionTexture", m.occlusionTexture.index, {1, 1, 1, 1}));
    for (const auto& [name, value] : m.extensions)
      if (name != "KHR_materials_emissive_strength") imported.warnings.push_back("extension " + name + " not read");
    out.push_back(std::move(imported));
  }
  return out;
}

}  // namespace host::formats::detail
