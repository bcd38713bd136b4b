// glTF 2.0 and GLB scenes through tinygltf: every node, mesh, material, camera and punctual light
// of the file. Materials become sets of the glTF bundle with their textures decoded at the file's
// own size (or fitted when asked); a texture's sampler and KHR_texture_transform go onto its entry
// as properties. What a set cannot say is named in one warning line per material, and a texture
// that cannot be read is such a loss, not a failure: its port keeps the factor alone (unless the
// read requires the files the scene names: an image file that does not exist then fails it).
//
// Images are decoded by the host's image reader, not by tinygltf: files by their URI, embedded
// images (data URIs and GLB buffer views) through a scratch file. Texture coordinates come in as
// 1 - v (the scene counts v from the bottom of the image).
#include <tiny_gltf.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <optional>
#include <set>

#include "host/formats/gltf_bridge.h"
#include "host/formats/gltf_io.h"
#include "host/formats/gltf_vocabulary.h"
#include "host/formats/readers.h"
#include "host/images.h"
#include "host/input_checks.h"
#include "host/input_files.h"

namespace fs = std::filesystem;

namespace host::formats::detail {
namespace {

namespace vocab = host::formats::gltf;
namespace port = vex::ports::gltf;

std::string Quoted(const std::string& name) { return "'" + name + "'"; }

/// Keeps the bytes of embedded images (data URIs) undecoded; files and buffer views are read
/// where they are.
bool KeepEmbeddedBytes(tinygltf::Image* image, const int, std::string*, std::string*, int, int,
                       const unsigned char* bytes, int size, void*) {
  if (!image->uri.empty() || image->bufferView >= 0) return true;
  image->image.assign(bytes, bytes + size);
  image->as_is = true;
  return true;
}

std::string UriDecoded(const std::string& uri) {
  std::string out;
  for (std::size_t i = 0; i < uri.size(); ++i) {
    if (uri[i] == '%' && i + 2 < uri.size() && std::isxdigit(static_cast<unsigned char>(uri[i + 1])) &&
        std::isxdigit(static_cast<unsigned char>(uri[i + 2]))) {
      out.push_back(static_cast<char>(std::stoi(uri.substr(i + 1, 2), nullptr, 16)));
      i += 2;
    } else {
      out.push_back(uri[i]);
    }
  }
  return out;
}

Matrix4 Compose(const tinygltf::Node& node) {
  Matrix4 m;
  if (node.matrix.size() == 16) {
    std::copy(node.matrix.begin(), node.matrix.end(), m.m.begin());
    return m;
  }
  const double x = node.rotation.size() == 4 ? node.rotation[0] : 0.0;
  const double y = node.rotation.size() == 4 ? node.rotation[1] : 0.0;
  const double z = node.rotation.size() == 4 ? node.rotation[2] : 0.0;
  const double w = node.rotation.size() == 4 ? node.rotation[3] : 1.0;
  const double sx = node.scale.size() == 3 ? node.scale[0] : 1.0;
  const double sy = node.scale.size() == 3 ? node.scale[1] : 1.0;
  const double sz = node.scale.size() == 3 ? node.scale[2] : 1.0;
  // Columns of R * S.
  // clang-format off
  m.m = {(1 - 2 * (y * y + z * z)) * sx, 2 * (x * y + z * w) * sx,       2 * (x * z - y * w) * sx,       0,
         2 * (x * y - z * w) * sy,       (1 - 2 * (x * x + z * z)) * sy, 2 * (y * z + x * w) * sy,       0,
         2 * (x * z + y * w) * sz,       2 * (y * z - x * w) * sz,       (1 - 2 * (x * x + y * y)) * sz, 0,
         0,                              0,                              0,                              1};
  // clang-format on
  if (node.translation.size() == 3)
    m.m[12] = node.translation[0], m.m[13] = node.translation[1], m.m[14] = node.translation[2];
  return m;
}

/// A decoded image or why it could not be.
struct Decoded {
  std::optional<vex::TextureBuffer> texture;
  std::string problem;
  bool missing = false;  ///< the image's file does not exist
};

class Reader {
 public:
  Reader(const std::string& path, const vex::IPortBundles& bundles, const ReadOptions& options)
      : path_(path), bundles_(bundles), options_(options) {}

  vex::Result<SceneData> Read() {
    VEX_TRY(Load());
    scene_.name = fs::path(path_).stem().string();
    if (model_.defaultScene >= 0 && static_cast<std::size_t>(model_.defaultScene) < model_.scenes.size() &&
        !model_.scenes[static_cast<std::size_t>(model_.defaultScene)].name.empty())
      scene_.name = model_.scenes[static_cast<std::size_t>(model_.defaultScene)].name;
    scene_.metersPerUnit = 1.0;
    scene_.upAxis = 'Y';
    VEX_TRY(DecodeImages());
    for (std::size_t i = 0; i < model_.materials.size(); ++i) VEX_TRY(ReadMaterial(i));
    for (std::size_t i = 0; i < model_.meshes.size(); ++i) VEX_TRY(ReadMesh(i));
    for (const auto& camera : model_.cameras) ReadCamera(camera);
    for (const auto& light : model_.lights) ReadLight(light);
    VEX_TRY(ReadNodes());
    if (!model_.animations.empty() || !model_.skins.empty())
      scene_.warnings.push_back(Where() + std::to_string(model_.animations.size()) + " animations and " +
                                std::to_string(model_.skins.size()) + " skins not read");
    for (const auto& name : model_.extensionsUsed)
      if (name != vocab::kEmissiveStrengthExtension && name != vocab::kTextureTransformExtension &&
          name != vocab::kLightsExtension && !named_.contains(name))
        scene_.warnings.push_back(Where() + "extension " + name + " not read");
    return std::move(scene_);
  }

 private:
  std::string Where() const { return path_ + ": "; }
  auto Fail(const std::string& what) const { return VEX_FAIL(vex::ErrorKind::FileIO, Where() + what); }

  /// Whether the port's texels are colour (sRGB-encoded in the file), as the bundle declares it.
  bool IsColor(std::string_view name) const {
    if (auto bundle = bundles_.Find(port::kId))
      if (const auto* declared = (*bundle)->FindPort(name)) return declared->color;
    for (const auto& texturePort : vocab::kTexturePorts)
      if (texturePort.port == name) return texturePort.color;
    return false;
  }

  vex::Result<void> Load() {
    // Only regular files are read, the file itself and every buffer and image it names; the
    // structure is checked before the library sees it (nesting depth, sizes).
    VEX_ASSIGN(const std::string bytes, ReadInputFile(path_));
    const bool binary = bytes.size() >= 4 && std::memcmp(bytes.data(), "glTF", 4) == 0;
    VEX_TRY(CheckGltfBytes(bytes, path_, binary));
    tinygltf::TinyGLTF loader;
    loader.SetImageLoader(&KeepEmbeddedBytes, nullptr);
    loader.SetFsCallbacks({&tinygltf::FileExists, &tinygltf::ExpandFilePath, &ReadReferencedFile,
                           &tinygltf::WriteWholeFile, nullptr});
    std::string error, warning;
    const std::string baseDir = fs::path(path_).parent_path().string();
    const auto size = static_cast<unsigned>(bytes.size());
    const bool ok = binary ? loader.LoadBinaryFromMemory(&model_, &error, &warning,
                                                         reinterpret_cast<const unsigned char*>(bytes.data()), size, baseDir)
                           : loader.LoadASCIIFromString(&model_, &error, &warning, bytes.data(), size, baseDir);
    if (!ok) {
      std::replace(error.begin(), error.end(), '\n', ' ');
      while (!error.empty() && error.back() == ' ') error.pop_back();
      return Fail("not a readable glTF file: " + error);
    }
    return {};
  }

  /// Decodes, on the worker threads, every image a material texture uses, once per encoding.
  vex::Result<void> DecodeImages() {
    for (const auto& material : model_.materials) {
      const auto& pbr = material.pbrMetallicRoughness;
      for (const auto& [index, name] : {std::pair{pbr.baseColorTexture.index, port::baseColorTexture},
                                        std::pair{pbr.metallicRoughnessTexture.index, port::metallicRoughnessTexture},
                                        std::pair{material.emissiveTexture.index, port::emissiveTexture},
                                        std::pair{material.normalTexture.index, port::normalTexture},
                                        std::pair{material.occlusionTexture.index, port::occlusionTexture}}) {
        const int source = Source(index);
        if (source >= 0) decoded_.emplace(std::make_pair(source, IsColor(name)), Decoded{});
      }
    }
    std::vector<std::pair<std::pair<int, bool>, Decoded*>> jobs;
    for (auto& [key, value] : decoded_) jobs.emplace_back(key, &value);
    ForEachImageJob(jobs.size(),
                    [&](std::size_t i) { *jobs[i].second = Decode(jobs[i].first.first, jobs[i].first.second); });
    return {};
  }

  /// The image a texture index shows, or -1.
  int Source(int texture) const {
    if (texture < 0 || static_cast<std::size_t>(texture) >= model_.textures.size()) return -1;
    const int source = model_.textures[static_cast<std::size_t>(texture)].source;
    return source >= 0 && static_cast<std::size_t>(source) < model_.images.size() ? source : -1;
  }

  Decoded Decode(int index, bool color) const {
    const tinygltf::Image& image = model_.images[static_cast<std::size_t>(index)];
    const std::string label = "image " + std::to_string(index) + (image.name.empty() ? "" : " " + Quoted(image.name));
    Decoded out;
    auto read = [&](const std::string& file) {
      auto texture = ReadImage(file, color);
      if (!texture) {
        out.problem = texture.error().message;
        return;
      }
      if (color) texture->colorSpace = "sRGB";
      if (options_.textureSize > 0) {
        const auto& d = texture->_dimensions;
        const double scale =
            static_cast<double>(options_.textureSize) / static_cast<double>(std::max(d.width, d.height));
        const auto w = std::max<std::int64_t>(1, std::llround(static_cast<double>(d.width) * scale));
        const auto h = std::max<std::int64_t>(1, std::llround(static_cast<double>(d.height) * scale));
        if (w != d.width || h != d.height) {
          auto resized = ResizeImage(*texture, w, h);
          if (!resized) {
            out.problem = resized.error().message;
            return;
          }
          resized->colorSpace = texture->colorSpace;
          texture = std::move(resized);
        }
      }
      out.texture = std::move(*texture);
    };
    if (!image.uri.empty() && image.image.empty()) {
      const fs::path file = fs::path(path_).parent_path() / UriDecoded(image.uri);
      if (auto readable = CheckInputFile(file.string()); !readable) {
        std::error_code ec;
        out.missing = !fs::exists(file, ec);
        out.problem = label + " " + readable.error().message;
        return out;
      }
      read(file.string());
      if (!out.texture) out.problem = label + ": " + out.problem;
      return out;
    }
    const unsigned char* bytes = image.image.data();
    std::size_t size = image.image.size();
    if (image.bufferView >= 0) {
      const auto& view = model_.bufferViews[static_cast<std::size_t>(image.bufferView)];
      const auto& buffer = model_.buffers[static_cast<std::size_t>(view.buffer)];
      if (view.byteOffset + view.byteLength > buffer.data.size()) {
        out.problem = label + " lies outside its buffer";
        return out;
      }
      bytes = buffer.data.data() + view.byteOffset;
      size = view.byteLength;
    }
    if (size == 0) {
      out.problem = label + " has no data";
      return out;
    }
    // The image reader takes files: the bytes go to a scratch file with their type's suffix.
    static std::atomic<unsigned> counter{0};
    const std::string suffix = image.mimeType == "image/jpeg" ? ".jpg" : ".png";
    const fs::path scratch = fs::temp_directory_path() /
                             ("vexinterop-gltf-" + std::to_string(getpid()) + "-" + std::to_string(counter++) + suffix);
    {
      std::ofstream file(scratch, std::ios::binary);
      file.write(reinterpret_cast<const char*>(bytes), static_cast<std::streamsize>(size));
      if (!file) out.problem = "cannot write a scratch file in " + scratch.parent_path().string();
    }
    if (out.problem.empty()) read(scratch.string());
    std::error_code ec;
    fs::remove(scratch, ec);
    if (!out.texture) out.problem = label + " (embedded): " + out.problem;
    return out;
  }

  /// The port's texture entry from a texture reference; losses name what the entry cannot say.
  template <class Info>
  vex::Result<void> Texture(const std::string& material, vex::ParameterSet& set, std::string_view portName,
                            const Info& info, std::vector<std::string>& losses) {
    if (info.index < 0) return {};
    const bool color = IsColor(portName);
    const std::string name(portName);
    const int source = Source(info.index);
    if (source < 0) {
      losses.push_back(name + ": texture " + std::to_string(info.index) + " has no image it can read");
      return {};
    }
    const Decoded& decoded = decoded_.at({source, color});
    if (decoded.missing && options_.requireFiles)
      return std::unexpected(MissingFile(path_, MissingTexture(material, model_.images[static_cast<std::size_t>(source)].uri)));
    if (!decoded.texture) {
      losses.push_back(name + ": " + decoded.problem + "; the factor stands alone");
      return {};
    }
    // The entry's constant is the bundle's default for the port (what it reads where the texture
    // is not there).
    vex::Parameter entry(vex::PackedConstantParameter(vex::ColorA{1, 1, 1, 1}));
    if (auto bundle = bundles_.Find(port::kId))
      if (const auto* fallback = (*bundle)->defaults.Find(portName); fallback && fallback->Constant())
        entry.value = *fallback->Constant();
    entry.texture = *decoded.texture;
    auto& properties = entry.properties;
    const auto& texture = model_.textures[static_cast<std::size_t>(info.index)];
    if (texture.sampler >= 0 && static_cast<std::size_t>(texture.sampler) < model_.samplers.size()) {
      const auto& sampler = model_.samplers[static_cast<std::size_t>(texture.sampler)];
      auto carry = [&](std::string_view key, auto& codes, int value) {
        if (value < 0) return;
        if (const auto text = vocab::NameOf(codes, value))
          properties.Set(std::string(key), std::string(*text));
        else
          losses.push_back(name + " " + std::string(key) + " " + std::to_string(value) + " is no glTF value");
      };
      carry(vocab::kWrapS, vocab::kWrapModes, sampler.wrapS);
      carry(vocab::kWrapT, vocab::kWrapModes, sampler.wrapT);
      carry(vocab::kMagFilter, vocab::kFilters, sampler.magFilter);
      carry(vocab::kMinFilter, vocab::kFilters, sampler.minFilter);
    }
    int texCoord = info.texCoord;
    for (const auto& [extension, value] : info.extensions) {
      if (extension != vocab::kTextureTransformExtension) {
        named_.insert(extension);
        losses.push_back(name + " extension " + extension + " not carried");
        continue;
      }
      auto pair = [&](const char* key) -> std::optional<vex::Vector2d> {
        const auto& v = value.Get(key);
        if (!v.IsArray() || v.ArrayLen() != 2 || !v.Get(0).IsNumber() || !v.Get(1).IsNumber()) return std::nullopt;
        return vex::Vector2d{v.Get(0).GetNumberAsDouble(), v.Get(1).GetNumberAsDouble()};
      };
      if (const auto offset = pair("offset")) properties.Set(std::string(vocab::kUvOffset), *offset);
      if (value.Get("rotation").IsNumber())
        properties.Set(std::string(vocab::kUvRotation), value.Get("rotation").GetNumberAsDouble());
      if (const auto scale = pair("scale")) properties.Set(std::string(vocab::kUvScale), *scale);
      if (value.Get("texCoord").IsNumber()) texCoord = value.Get("texCoord").GetNumberAsInt();
    }
    if (texCoord != 0) {
      properties.Set(std::string(vocab::kTexCoord), static_cast<std::int32_t>(texCoord));
      losses.push_back(name + " uses texCoord " + std::to_string(texCoord) + " (only the first set is read)");
    }
    for (const auto& [extension, value] : texture.extensions) {
      named_.insert(extension);
      losses.push_back(name + " texture extension " + extension + " not carried");
    }
    set.Set(portName, std::move(entry));
    return {};
  }

  vex::Result<void> ReadMaterial(std::size_t i) {
    const tinygltf::Material& m = model_.materials[i];
    MaterialData material;
    material.name = m.name.empty() ? "material_" + std::to_string(i) : m.name;
    auto set = std::make_shared<vex::ParameterSet>(vex::Id(port::kId));
    std::vector<std::string> losses;
    const auto& pbr = m.pbrMetallicRoughness;
    if (pbr.baseColorFactor.size() == 4)
      set->SetConstant(port::baseColorFactor, vex::ColorA{pbr.baseColorFactor[0], pbr.baseColorFactor[1],
                                                          pbr.baseColorFactor[2], pbr.baseColorFactor[3]});
    VEX_TRY(Texture(material.name, *set, port::baseColorTexture, pbr.baseColorTexture, losses));
    set->SetConstant(port::alphaMode, m.alphaMode.empty() ? std::string("OPAQUE") : m.alphaMode);
    if (m.alphaMode == "MASK") set->SetConstant(port::alphaCutoff, m.alphaCutoff);
    set->SetConstant(port::metallicFactor, pbr.metallicFactor);
    set->SetConstant(port::roughnessFactor, pbr.roughnessFactor);
    VEX_TRY(Texture(material.name, *set, port::metallicRoughnessTexture, pbr.metallicRoughnessTexture, losses));
    if (m.emissiveFactor.size() == 3)
      set->SetConstant(port::emissiveFactor, vex::Color{m.emissiveFactor[0], m.emissiveFactor[1], m.emissiveFactor[2]});
    VEX_TRY(Texture(material.name, *set, port::emissiveTexture, m.emissiveTexture, losses));
    if (m.normalTexture.index >= 0) set->SetConstant(port::normalScale, m.normalTexture.scale);
    VEX_TRY(Texture(material.name, *set, port::normalTexture, m.normalTexture, losses));
    if (m.occlusionTexture.index >= 0) set->SetConstant(port::occlusionStrength, m.occlusionTexture.strength);
    VEX_TRY(Texture(material.name, *set, port::occlusionTexture, m.occlusionTexture, losses));
    for (const auto& [name, value] : m.extensions) {
      if (name == vocab::kEmissiveStrengthExtension) {
        if (value.Get(std::string(port::emissiveStrength)).IsNumber())
          set->SetConstant(port::emissiveStrength, value.Get(std::string(port::emissiveStrength)).GetNumberAsDouble());
        continue;
      }
      named_.insert(name);
      losses.push_back("extension " + name + " not carried");
    }
    if (m.doubleSided) losses.push_back("doubleSided not carried");
    for (const auto& [name, value] : pbr.extensions) {
      named_.insert(name);
      losses.push_back("metallic-roughness extension " + name + " not carried");
    }
    if (!losses.empty()) {
      std::string line = "material " + Quoted(material.name) + ": ";
      for (std::size_t k = 0; k < losses.size(); ++k) line += (k ? "; " : "") + losses[k];
      scene_.warnings.push_back(line);
    }
    material.set = std::move(set);
    scene_.materials.push_back(std::move(material));
    return {};
  }

  /// An accessor's elements as floats (normalised integers scaled to [0, 1] or [-1, 1]).
  vex::Result<std::vector<float>> Floats(int index, int components, const std::string& what) const {
    VEX_ASSIGN(const auto* accessor, Accessor(index, what));
    if (tinygltf::GetNumComponentsInType(static_cast<std::uint32_t>(accessor->type)) != components)
      return Fail(what + ": accessor " + std::to_string(index) + " has " +
                  std::to_string(tinygltf::GetNumComponentsInType(static_cast<std::uint32_t>(accessor->type))) +
                  " components, not " + std::to_string(components));
    const std::size_t n = accessor->count * static_cast<std::size_t>(components);
    std::vector<float> out(n, 0.0f);
    if (accessor->bufferView < 0) return out;
    VEX_ASSIGN(const auto view, Elements(*accessor, index, what));
    for (std::size_t e = 0; e < accessor->count; ++e) {
      const unsigned char* p = view.first + e * view.second;
      for (std::size_t c = 0; c < static_cast<std::size_t>(components); ++c) {
        float v = 0;
        switch (accessor->componentType) {
          case TINYGLTF_COMPONENT_TYPE_FLOAT:
            std::memcpy(&v, p + 4 * c, 4);
            break;
          case TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE:
            v = p[c] / (accessor->normalized ? 255.0f : 1.0f);
            break;
          case TINYGLTF_COMPONENT_TYPE_BYTE: {
            const auto s = static_cast<std::int8_t>(p[c]);
            v = accessor->normalized ? std::max(s / 127.0f, -1.0f) : s;
            break;
          }
          case TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT: {
            std::uint16_t s;
            std::memcpy(&s, p + 2 * c, 2);
            v = s / (accessor->normalized ? 65535.0f : 1.0f);
            break;
          }
          case TINYGLTF_COMPONENT_TYPE_SHORT: {
            std::int16_t s;
            std::memcpy(&s, p + 2 * c, 2);
            v = accessor->normalized ? std::max(s / 32767.0f, -1.0f) : s;
            break;
          }
          default:
            return Fail(what + ": accessor " + std::to_string(index) + " has a component type floats cannot take");
        }
        out[e * static_cast<std::size_t>(components) + c] = v;
      }
    }
    return out;
  }

  vex::Result<std::vector<std::uint32_t>> Indices(int index, const std::string& what) const {
    VEX_ASSIGN(const auto* accessor, Accessor(index, what));
    if (accessor->type != TINYGLTF_TYPE_SCALAR || accessor->bufferView < 0)
      return Fail(what + ": index accessor " + std::to_string(index) + " is not a list of scalars");
    VEX_ASSIGN(const auto view, Elements(*accessor, index, what));
    std::vector<std::uint32_t> out(accessor->count);
    for (std::size_t e = 0; e < accessor->count; ++e) {
      const unsigned char* p = view.first + e * view.second;
      switch (accessor->componentType) {
        case TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE:
          out[e] = p[0];
          break;
        case TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT: {
          std::uint16_t s;
          std::memcpy(&s, p, 2);
          out[e] = s;
          break;
        }
        case TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT:
          std::memcpy(&out[e], p, 4);
          break;
        default:
          return Fail(what + ": index accessor " + std::to_string(index) + " is not of an unsigned type");
      }
    }
    return out;
  }

  vex::Result<const tinygltf::Accessor*> Accessor(int index, const std::string& what) const {
    if (index < 0 || static_cast<std::size_t>(index) >= model_.accessors.size())
      return Fail(what + ": accessor " + std::to_string(index) + " does not exist");
    const auto& accessor = model_.accessors[static_cast<std::size_t>(index)];
    if (accessor.sparse.isSparse)
      return Fail(what + ": accessor " + std::to_string(index) + " is sparse, which is not read");
    return &accessor;
  }

  /// The first element's bytes and the stride, checked against the view and the buffer.
  vex::Result<std::pair<const unsigned char*, std::size_t>> Elements(const tinygltf::Accessor& accessor, int index,
                                                                     const std::string& what) const {
    const std::string where = what + ": accessor " + std::to_string(index);
    if (static_cast<std::size_t>(accessor.bufferView) >= model_.bufferViews.size())
      return Fail(where + " names a buffer view that does not exist");
    const auto& view = model_.bufferViews[static_cast<std::size_t>(accessor.bufferView)];
    if (view.buffer < 0 || static_cast<std::size_t>(view.buffer) >= model_.buffers.size())
      return Fail(where + " names a buffer that does not exist");
    const auto& buffer = model_.buffers[static_cast<std::size_t>(view.buffer)];
    const int componentSize = tinygltf::GetComponentSizeInBytes(static_cast<std::uint32_t>(accessor.componentType));
    const int components = tinygltf::GetNumComponentsInType(static_cast<std::uint32_t>(accessor.type));
    if (componentSize <= 0 || components <= 0) return Fail(where + " has an unknown type");
    const std::size_t element = static_cast<std::size_t>(componentSize) * static_cast<std::size_t>(components);
    const std::size_t stride = view.byteStride != 0 ? view.byteStride : element;
    const std::size_t start = view.byteOffset + accessor.byteOffset;
    const std::size_t end = accessor.count == 0 ? start : start + stride * (accessor.count - 1) + element;
    if (end > view.byteOffset + view.byteLength || view.byteOffset + view.byteLength > buffer.data.size())
      return Fail(where + " reaches beyond its buffer");
    return std::make_pair(buffer.data.data() + start, stride);
  }

  vex::Result<void> ReadMesh(std::size_t meshIndex) {
    const tinygltf::Mesh& mesh = model_.meshes[meshIndex];
    MeshData out;
    out.name = mesh.name.empty() ? "mesh_" + std::to_string(meshIndex) : mesh.name;
    const std::string what = "mesh " + Quoted(out.name);
    std::vector<std::string> losses;
    std::vector<const tinygltf::Primitive*> kept;
    for (std::size_t p = 0; p < mesh.primitives.size(); ++p) {
      const auto& primitive = mesh.primitives[p];
      const bool triangles = primitive.mode == TINYGLTF_MODE_TRIANGLES ||
                             primitive.mode == TINYGLTF_MODE_TRIANGLE_STRIP ||
                             primitive.mode == TINYGLTF_MODE_TRIANGLE_FAN || primitive.mode == -1;
      if (!triangles) {
        losses.push_back("primitive " + std::to_string(p) + " (points or lines) skipped");
      } else if (!primitive.attributes.contains("POSITION")) {
        losses.push_back("primitive " + std::to_string(p) + " has no positions; skipped");
      } else {
        kept.push_back(&primitive);
      }
    }
    // An attribute goes into the mesh when every primitive has it.
    auto everyone = [&](const char* name) {
      return !kept.empty() &&
             std::all_of(kept.begin(), kept.end(), [&](auto* p) { return p->attributes.contains(name); });
    };
    const bool normals = everyone("NORMAL"), uvs = everyone("TEXCOORD_0"), tangents = everyone("TANGENT");
    std::set<std::string> ignored;
    for (const auto* primitive : kept) {
      for (const auto& [name, accessor] : primitive->attributes)
        if (name != "POSITION" && name != "NORMAL" && name != "TEXCOORD_0" && name != "TANGENT") ignored.insert(name);
      if (!primitive->targets.empty()) ignored.insert("morph targets");
      for (const char* name : {"NORMAL", "TEXCOORD_0", "TANGENT"})
        if (primitive->attributes.contains(name) && !everyone(name))
          ignored.insert(std::string(name) + " of some primitives");
    }
    for (const auto& name : ignored) losses.push_back(name + " not read");

    // Primitives that share their vertices (as one mesh split by material does) share them here.
    std::map<std::vector<int>, std::uint32_t> firstVertex;
    for (const auto* primitive : kept) {
      const auto attribute = [&](const char* name) {
        const auto found = primitive->attributes.find(name);
        return found == primitive->attributes.end() ? -1 : found->second;
      };
      const std::vector<int> key = {attribute("POSITION"), normals ? attribute("NORMAL") : -1,
                                    uvs ? attribute("TEXCOORD_0") : -1, tangents ? attribute("TANGENT") : -1};
      std::uint32_t base;
      std::size_t count;
      if (const auto found = firstVertex.find(key); found != firstVertex.end()) {
        base = found->second;
        count = model_.accessors[static_cast<std::size_t>(key[0])].count;
      } else {
        base = static_cast<std::uint32_t>(out.VertexCount());
        VEX_ASSIGN(auto positions, Floats(key[0], 3, what));
        count = positions.size() / 3;
        for (const float v : positions)
          if (!std::isfinite(v)) return Fail(what + ": a position is not finite");
        out.positions.insert(out.positions.end(), positions.begin(), positions.end());
        if (normals) {
          VEX_ASSIGN(auto values, Floats(key[1], 3, what));
          if (values.size() != 3 * count) return Fail(what + ": NORMAL and POSITION differ in count");
          out.normals.insert(out.normals.end(), values.begin(), values.end());
        }
        if (uvs) {
          VEX_ASSIGN(auto values, Floats(key[2], 2, what));
          if (values.size() != 2 * count) return Fail(what + ": TEXCOORD_0 and POSITION differ in count");
          for (std::size_t v = 0; v < count; ++v) values[2 * v + 1] = 1.0f - values[2 * v + 1];
          out.uvs.insert(out.uvs.end(), values.begin(), values.end());
        }
        if (tangents) {
          VEX_ASSIGN(auto values, Floats(key[3], 4, what));
          if (values.size() != 4 * count) return Fail(what + ": TANGENT and POSITION differ in count");
          out.tangents.insert(out.tangents.end(), values.begin(), values.end());
        }
        firstVertex.emplace(key, base);
      }
      std::vector<std::uint32_t> indices;
      if (primitive->indices >= 0) {
        VEX_ASSIGN(indices, Indices(primitive->indices, what));
      } else {
        indices.resize(count);
        for (std::size_t v = 0; v < count; ++v) indices[v] = static_cast<std::uint32_t>(v);
      }
      for (const auto index : indices)
        if (index >= count)
          return Fail(what + ": index " + std::to_string(index) + " beyond its " + std::to_string(count) + " vertices");
      std::vector<std::uint32_t> triangles;
      if (primitive->mode == TINYGLTF_MODE_TRIANGLE_STRIP) {
        for (std::size_t k = 2; k < indices.size(); ++k)
          if (k % 2 == 0)
            triangles.insert(triangles.end(), {indices[k - 2], indices[k - 1], indices[k]});
          else
            triangles.insert(triangles.end(), {indices[k - 1], indices[k - 2], indices[k]});
      } else if (primitive->mode == TINYGLTF_MODE_TRIANGLE_FAN) {
        for (std::size_t k = 2; k < indices.size(); ++k)
          triangles.insert(triangles.end(), {indices[0], indices[k - 1], indices[k]});
      } else {
        triangles = std::move(indices);
        triangles.resize(triangles.size() - triangles.size() % 3);
      }
      if (primitive->material >= static_cast<int>(model_.materials.size()))
        return Fail(what + ": material " + std::to_string(primitive->material) + " does not exist");
      MeshData::Part part;
      part.firstTriangle = static_cast<std::uint32_t>(out.TriangleCount());
      part.triangleCount = static_cast<std::uint32_t>(triangles.size() / 3);
      part.material = primitive->material;
      for (auto& index : triangles) index += base;
      out.indices.insert(out.indices.end(), triangles.begin(), triangles.end());
      out.parts.push_back(part);
    }
    if (!losses.empty()) {
      std::string line = what + ": ";
      for (std::size_t k = 0; k < losses.size(); ++k) line += (k ? "; " : "") + losses[k];
      scene_.warnings.push_back(line);
    }
    scene_.meshes.push_back(std::move(out));
    return {};
  }

  void ReadCamera(const tinygltf::Camera& camera) {
    CameraData c;
    c.name = camera.name;
    if (camera.type == "orthographic") {
      c.orthographic = true;
      c.orthoHeight = 2 * camera.orthographic.ymag;
      if (camera.orthographic.ymag != 0) c.aspectRatio = camera.orthographic.xmag / camera.orthographic.ymag;
      c.znear = camera.orthographic.znear;
      c.zfar = camera.orthographic.zfar;
    } else {
      c.yfov = camera.perspective.yfov;
      if (camera.perspective.aspectRatio > 0) c.aspectRatio = camera.perspective.aspectRatio;
      c.znear = camera.perspective.znear;
      c.zfar = camera.perspective.zfar > 0 ? camera.perspective.zfar : std::numeric_limits<double>::infinity();
    }
    scene_.cameras.push_back(std::move(c));
  }

  void ReadLight(const tinygltf::Light& light) {
    LightData l;
    l.name = light.name;
    if (light.type == "spot") {
      l.type = LightData::Type::Spot;
      l.innerConeAngle = light.spot.innerConeAngle;
      l.outerConeAngle = light.spot.outerConeAngle;
    } else if (light.type == "directional") {
      l.type = LightData::Type::Directional;
    } else {
      l.type = LightData::Type::Point;
    }
    if (light.color.size() == 3) l.color = {light.color[0], light.color[1], light.color[2]};
    l.intensity = light.intensity;
    if (light.range > 0) l.range = light.range;
    scene_.lights.push_back(std::move(l));
  }

  /// Nodes in an order where parents come before their children: the default scene's trees first,
  /// then any other trees of the file.
  vex::Result<void> ReadNodes() {
    const std::size_t count = model_.nodes.size();
    std::vector<int> parent(count, -1);
    for (std::size_t i = 0; i < count; ++i)
      for (const int child : model_.nodes[i].children) {
        if (child < 0 || static_cast<std::size_t>(child) >= count)
          return Fail("node " + Quoted(NodeName(i)) + ": child " + std::to_string(child) + " does not exist");
        if (parent[static_cast<std::size_t>(child)] >= 0 || static_cast<std::size_t>(child) == i)
          return Fail("node " + Quoted(NodeName(static_cast<std::size_t>(child))) + " has more than one parent");
        parent[static_cast<std::size_t>(child)] = static_cast<int>(i);
      }
    std::vector<int> roots;
    auto addRoot = [&](int node) {
      if (node >= 0 && static_cast<std::size_t>(node) < count && parent[static_cast<std::size_t>(node)] < 0 &&
          std::find(roots.begin(), roots.end(), node) == roots.end())
        roots.push_back(node);
    };
    if (model_.defaultScene >= 0 && static_cast<std::size_t>(model_.defaultScene) < model_.scenes.size())
      for (const int node : model_.scenes[static_cast<std::size_t>(model_.defaultScene)].nodes) addRoot(node);
    for (const auto& scene : model_.scenes)
      for (const int node : scene.nodes) addRoot(node);
    for (std::size_t i = 0; i < count; ++i) addRoot(static_cast<int>(i));
    std::vector<int> placed(count, -1);
    std::vector<std::pair<int, int>> stack;  // node, its parent's place
    for (auto it = roots.rbegin(); it != roots.rend(); ++it) stack.emplace_back(*it, -1);
    while (!stack.empty()) {
      const auto [node, parentPlace] = stack.back();
      stack.pop_back();
      const auto& source = model_.nodes[static_cast<std::size_t>(node)];
      NodeData n;
      n.name = NodeName(static_cast<std::size_t>(node));
      n.parent = parentPlace;
      n.local = Compose(source);
      if (!n.local.IsFinite()) return Fail("node " + Quoted(n.name) + ": its transform is not finite");
      const std::string what = "node " + Quoted(n.name);
      if (source.mesh >= static_cast<int>(model_.meshes.size()) ||
          source.camera >= static_cast<int>(model_.cameras.size()))
        return Fail(what + " refers to a mesh or camera that does not exist");
      n.mesh = source.mesh;
      n.camera = source.camera;
      if (const auto ext = source.extensions.find(std::string(vocab::kLightsExtension));
          ext != source.extensions.end()) {
        const auto& light = ext->second.Get("light");
        if (light.IsInt()) n.light = light.GetNumberAsInt();
        if (n.light >= static_cast<int>(scene_.lights.size()) || n.light < -1)
          return Fail(what + " refers to a light that does not exist");
      }
      if (source.skin >= 0) scene_.warnings.push_back(what + ": its skin is not read");
      placed[static_cast<std::size_t>(node)] = static_cast<int>(scene_.nodes.size());
      scene_.nodes.push_back(std::move(n));
      const int place = placed[static_cast<std::size_t>(node)];
      for (auto child = source.children.rbegin(); child != source.children.rend(); ++child)
        stack.emplace_back(*child, place);
    }
    for (std::size_t i = 0; i < count; ++i)
      if (placed[i] < 0) return Fail("node " + Quoted(NodeName(i)) + " lies on a cycle of parents");
    return {};
  }

  std::string NodeName(std::size_t i) const {
    const auto& name = model_.nodes[i].name;
    return name.empty() ? "node_" + std::to_string(i) : name;
  }

  const std::string& path_;
  const vex::IPortBundles& bundles_;
  const ReadOptions& options_;
  tinygltf::Model model_;
  SceneData scene_;
  std::map<std::pair<int, bool>, Decoded> decoded_;
  std::set<std::string> named_;  ///< extensions a material's warning names already
};

}  // namespace

vex::Result<SceneData> ReadGltf(const std::string& path, const vex::IPortBundles& bundles, const ReadOptions& options) {
  Reader reader(path, bundles, options);
  return reader.Read();
}

}  // namespace host::formats::detail
