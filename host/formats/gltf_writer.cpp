// glTF 2.0 through tinygltf: a whole scene as "<stem>.gltf" with its geometry in "<stem>.bin"
// and one PNG per texture beside it, or as one "<stem>.glb" holding the JSON, the geometry and
// the images. Materials are sets of the glTF bundle, whose ports are the format's own fields;
// a texture entry's sampler and texture transform come from its properties.
//
// Texture coordinates: the scene's v counts from the bottom of the image, glTF's from the top,
// so every v goes out as 1 - v. Tangents stay as they are: their bitangent points to the top of
// the image either way.
#include <tiny_gltf.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <numbers>
#include <optional>
#include <set>
#include <sstream>
#include <tuple>

#include "host/formats/format_io.h"
#include "host/formats/formats.h"
#include "host/formats/gltf_bridge.h"
#include "host/formats/formats.h"
#include "host/formats/gltf_io.h"
#include "host/formats/gltf_vocabulary.h"
#include "host/formats/light_units.h"
#include "host/images.h"
#include "host/json_codec.h"
#include "host/json_text.h"

namespace fs = std::filesystem;

namespace host::formats::detail {
namespace {

namespace vocab = host::formats::gltf;
namespace port = vex::ports::gltf;

constexpr int kArrayBuffer = 34962;
constexpr int kElementArrayBuffer = 34963;

std::string Quoted(const std::string& name) { return "'" + name + "'"; }

std::string Number(double value) {
  std::ostringstream out;
  out.imbue(std::locale::classic());
  out << value;
  return out.str();
}

/// Letters, digits, '-' and '_' only, so that a file name needs no escaping in a URI.
std::string FileSafe(const std::string& name) {
  std::string out;
  for (const char c : name) {
    const bool plain =
        (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
    out.push_back(plain ? c : '_');
  }
  return out.empty() ? std::string("material") : out;
}

std::optional<double> PropertyNumber(const vex::DataDictionary& properties, std::string_view key) {
  const auto* data = properties.Find(key);
  if (data == nullptr) return std::nullopt;
  if (const auto* d = std::get_if<double>(&data->value)) return *d;
  if (const auto* i = std::get_if<std::int32_t>(&data->value)) return *i;
  if (const auto* i = std::get_if<std::int64_t>(&data->value)) return static_cast<double>(*i);
  return std::nullopt;
}

std::optional<vex::Vector2d> PropertyVector(const vex::DataDictionary& properties, std::string_view key) {
  const auto* data = properties.Find(key);
  if (data == nullptr) return std::nullopt;
  if (const auto* v = std::get_if<vex::Vector2d>(&data->value)) return *v;
  if (const auto* d = std::get_if<double>(&data->value)) return vex::Vector2d{*d, *d};
  return std::nullopt;
}

std::optional<std::string> PropertyText(const vex::DataDictionary& properties, std::string_view key) {
  const auto* data = properties.Find(key);
  if (data == nullptr) return std::nullopt;
  if (const auto* s = std::get_if<std::string>(&data->value)) return *s;
  return std::nullopt;
}

double Clamp01(double v) { return std::clamp(v, 0.0, 1.0); }

/// Translation, rotation (x, y, z, w) and scale whose product is `m`, when `m` has no shear.
bool Decompose(const Matrix4& matrix, tinygltf::Node& node) {
  const auto& m = matrix.m;
  if (std::abs(m[3]) > 1e-12 || std::abs(m[7]) > 1e-12 || std::abs(m[11]) > 1e-12 || std::abs(m[15] - 1) > 1e-12)
    return false;
  std::array<std::array<double, 3>, 3> column{};
  std::array<double, 3> scale{};
  for (std::size_t c = 0; c < 3; ++c) {
    for (std::size_t r = 0; r < 3; ++r) column[c][r] = m[c * 4 + r];
    scale[c] = std::sqrt(column[c][0] * column[c][0] + column[c][1] * column[c][1] + column[c][2] * column[c][2]);
    if (scale[c] < 1e-12) return false;
  }
  const double det = column[0][0] * (column[1][1] * column[2][2] - column[1][2] * column[2][1]) -
                     column[1][0] * (column[0][1] * column[2][2] - column[0][2] * column[2][1]) +
                     column[2][0] * (column[0][1] * column[1][2] - column[0][2] * column[1][1]);
  if (det < 0) scale[0] = -scale[0];
  for (std::size_t c = 0; c < 3; ++c)
    for (std::size_t r = 0; r < 3; ++r) column[c][r] /= scale[c];
  for (std::size_t a = 0; a < 3; ++a)
    for (std::size_t b = 0; b < 3; ++b) {
      const double dot = column[a][0] * column[b][0] + column[a][1] * column[b][1] + column[a][2] * column[b][2];
      if (std::abs(dot - (a == b ? 1.0 : 0.0)) > 1e-6) return false;  // shear: only a matrix says it
    }
  auto R = [&](std::size_t row, std::size_t col) { return column[col][row]; };
  double x, y, z, w;
  const double trace = R(0, 0) + R(1, 1) + R(2, 2);
  if (trace > 0) {
    const double s = std::sqrt(trace + 1.0) * 2;
    w = 0.25 * s, x = (R(2, 1) - R(1, 2)) / s, y = (R(0, 2) - R(2, 0)) / s, z = (R(1, 0) - R(0, 1)) / s;
  } else if (R(0, 0) > R(1, 1) && R(0, 0) > R(2, 2)) {
    const double s = std::sqrt(1.0 + R(0, 0) - R(1, 1) - R(2, 2)) * 2;
    w = (R(2, 1) - R(1, 2)) / s, x = 0.25 * s, y = (R(0, 1) + R(1, 0)) / s, z = (R(0, 2) + R(2, 0)) / s;
  } else if (R(1, 1) > R(2, 2)) {
    const double s = std::sqrt(1.0 + R(1, 1) - R(0, 0) - R(2, 2)) * 2;
    w = (R(0, 2) - R(2, 0)) / s, x = (R(0, 1) + R(1, 0)) / s, y = 0.25 * s, z = (R(1, 2) + R(2, 1)) / s;
  } else {
    const double s = std::sqrt(1.0 + R(2, 2) - R(0, 0) - R(1, 1)) * 2;
    w = (R(1, 0) - R(0, 1)) / s, x = (R(0, 2) + R(2, 0)) / s, y = (R(1, 2) + R(2, 1)) / s, z = 0.25 * s;
  }
  const double length = std::sqrt(x * x + y * y + z * z + w * w);
  if (m[12] != 0 || m[13] != 0 || m[14] != 0) node.translation = {m[12], m[13], m[14]};
  if (std::abs(w / length) < 1 - 1e-15) node.rotation = {x / length, y / length, z / length, w / length};
  if (scale[0] != 1 || scale[1] != 1 || scale[2] != 1) node.scale = {scale[0], scale[1], scale[2]};
  return true;
}

/// One image to encode: the texture, its encoding and the file (or scratch file for .glb).
struct ImageJob {
  const vex::TextureBuffer* texture;
  bool srgb;
  std::string file;
};

class Writer {
 public:
  Writer(const SceneData& scene, const std::string& directory, const std::string& stem,
         const vex::IPortBundles& bundles, const WriteOptions& options)
      : scene_(scene), directory_(directory), stem_(stem), bundles_(bundles), options_(options) {
    main_ = stem + (options.glb ? ".glb" : ".gltf");
    model_.asset.version = "2.0";
    model_.asset.generator = "vexinterop";
    model_.buffers.emplace_back();
  }

  vex::Result<GltfPreviewFiles> Write() {
    out_.files.push_back(main_);
    if (scene_.metersPerUnit != 1.0 || scene_.upAxis != 'Y')
      out_.warnings.push_back("scene " + Quoted(scene_.name) + ": " + Number(scene_.metersPerUnit) +
                              " m per unit with " + std::string(1, scene_.upAxis) +
                              " up written as given (glTF reads metres with +Y up)");
    for (std::size_t i = 0; i < scene_.materials.size(); ++i) VEX_TRY(AddMaterial(i));
    for (std::size_t i = 0; i < scene_.meshes.size(); ++i) VEX_TRY(AddMesh(scene_.meshes[i]));
    for (const auto& camera : scene_.cameras) AddCamera(camera);
    lightIndex_.assign(scene_.lights.size(), -1);
    for (std::size_t i = 0; i < scene_.lights.size(); ++i) AddLight(i);
    VEX_TRY(AddNodes());
    VEX_TRY(WriteImages());
    return Save();
  }

 private:
  std::string Place(const std::string& what) const { return (fs::path(directory_) / main_).string() + ": " + what; }

  /// A view of the one buffer (4-byte aligned) whose `size` bytes `emit` writes when the buffer is
  /// written; returns the view's index. The buffer is never held whole: its bytes come from the
  /// scene (or are made from it a chunk at a time) as the file is written.
  int AddView(std::size_t size, int target, std::function<void(std::ostream&)> emit) {
    length_ = (length_ + 3) / 4 * 4;
    tinygltf::BufferView view;
    view.buffer = 0;
    view.byteOffset = length_;
    view.byteLength = size;
    view.target = target;
    pieces_.push_back(Piece{length_, size, std::move(emit)});
    length_ += size;
    model_.bufferViews.push_back(view);
    return static_cast<int>(model_.bufferViews.size() - 1);
  }
  /// A view of bytes that stay where they are (the scene's) until the buffer is written.
  int AddView(const void* bytes, std::size_t size, int target) {
    return AddView(size, target, [bytes, size](std::ostream& out) {
      out.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(size));
    });
  }
  /// A view of `count` items of `width` floats each, made from the scene's by `make` a block at a
  /// time when the buffer is written.
  int AddFloats(std::size_t count, std::size_t width, int target,
                std::function<void(std::size_t item, float* out)> make) {
    return AddView(count * width * 4, target, [count, width, make = std::move(make)](std::ostream& out) {
      constexpr std::size_t kItems = 4096;
      std::vector<float> block(kItems * width);
      for (std::size_t first = 0; first < count; first += kItems) {
        const std::size_t n = std::min(kItems, count - first);
        for (std::size_t i = 0; i < n; ++i) make(first + i, &block[i * width]);
        out.write(reinterpret_cast<const char*>(block.data()), static_cast<std::streamsize>(n * width * 4));
      }
    });
  }

  int AddAccessor(int view, std::size_t offset, int componentType, std::size_t count, int type,
                  std::vector<double> min = {}, std::vector<double> max = {}) {
    tinygltf::Accessor accessor;
    accessor.bufferView = view;
    accessor.byteOffset = offset;
    accessor.componentType = componentType;
    accessor.count = count;
    accessor.type = type;
    accessor.minValues = std::move(min);
    accessor.maxValues = std::move(max);
    model_.accessors.push_back(accessor);
    return static_cast<int>(model_.accessors.size() - 1);
  }

  vex::Result<void> AddMesh(const MeshData& mesh) {
    const std::string what = "mesh " + Quoted(mesh.name);
    const std::size_t n = mesh.VertexCount();
    if (mesh.positions.size() % 3 != 0 || n == 0 || mesh.indices.empty() || mesh.indices.size() % 3 != 0)
      return VEX_FAIL(vex::ErrorKind::FileIO, Place(what + " has no triangles"));
    if ((!mesh.normals.empty() && mesh.normals.size() != 3 * n) || (!mesh.uvs.empty() && mesh.uvs.size() != 2 * n) ||
        (!mesh.tangents.empty() && mesh.tangents.size() != 4 * n))
      return VEX_FAIL(vex::ErrorKind::FileIO,
                      Place(what + ": its attributes do not match its " + std::to_string(n) + " vertices"));
    for (const auto index : mesh.indices)
      if (index >= n)
        return VEX_FAIL(vex::ErrorKind::FileIO, Place(what + ": index " + std::to_string(index) + " beyond its " +
                                                      std::to_string(n) + " vertices"));
    std::vector<double> min(3, 0), max(3, 0);
    for (std::size_t c = 0; c < 3; ++c) min[c] = max[c] = mesh.positions[c];
    for (std::size_t i = 0; i < n; ++i)
      for (std::size_t c = 0; c < 3; ++c) {
        const float v = mesh.positions[3 * i + c];
        if (!std::isfinite(v))
          return VEX_FAIL(vex::ErrorKind::FileIO, Place(what + ": vertex " + std::to_string(i) + " is not finite"));
        min[c] = std::min<double>(min[c], v);
        max[c] = std::max<double>(max[c], v);
      }
    std::map<std::string, int> attributes;
    attributes["POSITION"] = AddAccessor(AddView(mesh.positions.data(), mesh.positions.size() * 4, kArrayBuffer), 0,
                                         TINYGLTF_COMPONENT_TYPE_FLOAT, n, TINYGLTF_TYPE_VEC3, min, max);
    // Readers expect unit normals and tangents; a zero one gets +Y (normals) or +X (tangents)
    // rather than an invalid file.
    const auto unit = [](const float* in, float* out, std::array<float, 3> fallback) {
      const float length = std::sqrt(in[0] * in[0] + in[1] * in[1] + in[2] * in[2]);
      const bool usable = length > 1e-20f && std::isfinite(length);
      for (std::size_t c = 0; c < 3; ++c) out[c] = usable ? in[c] / length : fallback[c];
    };
    if (!mesh.normals.empty()) {
      const float* normals = mesh.normals.data();
      attributes["NORMAL"] = AddAccessor(
          AddFloats(n, 3, kArrayBuffer, [normals, unit](std::size_t i, float* v) { unit(normals + 3 * i, v, {0, 1, 0}); }),
          0, TINYGLTF_COMPONENT_TYPE_FLOAT, n, TINYGLTF_TYPE_VEC3);
    }
    if (!mesh.tangents.empty() && !mesh.normals.empty()) {
      const float* tangents = mesh.tangents.data();
      attributes["TANGENT"] = AddAccessor(AddFloats(n, 4, kArrayBuffer,
                                                    [tangents, unit](std::size_t i, float* v) {
                                                      unit(tangents + 4 * i, v, {1, 0, 0});
                                                      v[3] = tangents[4 * i + 3] < 0 ? -1.0f : 1.0f;
                                                    }),
                                          0, TINYGLTF_COMPONENT_TYPE_FLOAT, n, TINYGLTF_TYPE_VEC4);
    }
    if (!mesh.uvs.empty()) {
      const float* uvs = mesh.uvs.data();
      attributes["TEXCOORD_0"] = AddAccessor(AddFloats(n, 2, kArrayBuffer, [uvs](std::size_t i, float* v) {
                                               v[0] = uvs[2 * i];
                                               v[1] = 1.0f - uvs[2 * i + 1];
                                             }),
                                             0, TINYGLTF_COMPONENT_TYPE_FLOAT, n, TINYGLTF_TYPE_VEC2);
    }
    const int indexView = AddView(mesh.indices.data(), mesh.indices.size() * 4, kElementArrayBuffer);
    std::vector<MeshData::Part> parts = mesh.parts;
    if (parts.empty()) parts.push_back({0, static_cast<std::uint32_t>(mesh.TriangleCount()), -1});
    tinygltf::Mesh m;
    m.name = mesh.name;
    for (const auto& part : parts) {
      if (part.triangleCount == 0) continue;
      if (static_cast<std::size_t>(part.firstTriangle) + part.triangleCount > mesh.TriangleCount())
        return VEX_FAIL(vex::ErrorKind::FileIO, Place(what + ": a material part reaches beyond its triangles"));
      if (part.material >= static_cast<int>(scene_.materials.size()))
        return VEX_FAIL(vex::ErrorKind::FileIO,
                        Place(what + ": material " + std::to_string(part.material) + " does not exist"));
      tinygltf::Primitive primitive;
      primitive.mode = TINYGLTF_MODE_TRIANGLES;
      primitive.material = part.material;
      primitive.attributes = attributes;
      primitive.indices =
          AddAccessor(indexView, std::size_t{part.firstTriangle} * 12, TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT,
                      std::size_t{part.triangleCount} * 3, TINYGLTF_TYPE_SCALAR);
      m.primitives.push_back(std::move(primitive));
    }
    model_.meshes.push_back(std::move(m));
    return {};
  }

  /// The sampler for a texture entry's properties (one per combination), or -1 when the entry
  /// has none (readers then repeat and filter as they choose).
  int Sampler(const vex::DataDictionary& properties, std::vector<std::string>& losses, std::string_view portName) {
    bool any = false;
    auto code = [&](std::string_view key, auto& codes, int fallback) {
      const auto text = PropertyText(properties, key);
      if (!text) return fallback;
      any = true;
      if (const auto value = vocab::ValueOf(codes, *text)) return *value;
      losses.push_back(std::string(portName) + " " + std::string(key) + " \"" + *text + "\" is not a glTF value");
      return fallback;
    };
    int mag = code(vocab::kMagFilter, vocab::kFilters, -1);
    const int min = code(vocab::kMinFilter, vocab::kFilters, -1);
    const int wrapS = code(vocab::kWrapS, vocab::kWrapModes, vocab::kDefaultWrap);
    const int wrapT = code(vocab::kWrapT, vocab::kWrapModes, vocab::kDefaultWrap);
    if (!any) return -1;
    if (mag != -1 && mag != vocab::kNearest && mag != vocab::kLinear) {
      losses.push_back(std::string(portName) + " magFilter takes no mipmaps; LINEAR written");
      mag = vocab::kLinear;
    }
    const auto key = std::make_tuple(mag, min, wrapS, wrapT);
    if (const auto found = samplers_.find(key); found != samplers_.end()) return found->second;
    tinygltf::Sampler sampler;
    sampler.magFilter = mag;
    sampler.minFilter = min;
    sampler.wrapS = wrapS;
    sampler.wrapT = wrapT;
    model_.samplers.push_back(sampler);
    return samplers_[key] = static_cast<int>(model_.samplers.size() - 1);
  }

  /// The image of a texture (one per distinct pixel array and encoding).
  int Image(const vex::TextureBuffer& texture, bool srgb, const std::string& material, std::string_view portName) {
    const auto key = std::make_pair(static_cast<const void*>(texture._pixels.get()), srgb);
    if (const auto found = images_.find(key); found != images_.end()) return found->second;
    std::string base = scene_.materials.size() <= 1 ? stem_ + "_" + std::string(portName)
                                                    : stem_ + "_" + FileSafe(material) + "_" + std::string(portName);
    std::string file = base + ".png";
    for (int n = 2; !fileNames_.insert(file).second; ++n) file = base + "_" + std::to_string(n) + ".png";
    tinygltf::Image image;
    image.name = std::string(portName);
    image.mimeType = "image/png";
    if (options_.glb) {
      jobs_.push_back({&texture, srgb, ".glb-image-" + std::to_string(jobs_.size()) + ".png"});
    } else {
      image.uri = file;
      jobs_.push_back({&texture, srgb, file});
      out_.files.push_back(file);
    }
    imageFiles_.push_back(image.uri);
    model_.images.push_back(image);
    return images_[key] = static_cast<int>(model_.images.size() - 1);
  }

  /// Fills a texture reference from the port's entry; -1 when the port has no texture.
  template <class Info>
  int Texture(const PortReader& ports, std::string_view portName, bool srgb, const std::string& material, Info& info,
              std::vector<std::string>& losses) {
    const vex::Parameter* entry = ports.Textured(portName);
    if (entry == nullptr) return -1;
    const int sampler = Sampler(entry->properties, losses, portName);
    const int image = Image(*entry->texture, srgb, material, portName);
    const auto key = std::make_pair(sampler, image);
    int index;
    if (const auto found = textures_.find(key); found != textures_.end()) {
      index = found->second;
    } else {
      tinygltf::Texture texture;
      texture.sampler = sampler;
      texture.source = image;
      model_.textures.push_back(texture);
      index = textures_[key] = static_cast<int>(model_.textures.size() - 1);
    }
    info.index = index;
    info.texCoord = 0;
    if (material_ == 0 && !imageFiles_[static_cast<std::size_t>(image)].empty())
      out_.textures.emplace_back(portName, imageFiles_[static_cast<std::size_t>(image)]);
    if (const auto set = PropertyNumber(entry->properties, vocab::kTexCoord); set && *set != 0)
      losses.push_back(std::string(portName) + " texCoord " + Number(*set) + " written as 0 (one set is written)");
    const auto offset = PropertyVector(entry->properties, vocab::kUvOffset);
    const auto rotation = PropertyNumber(entry->properties, vocab::kUvRotation);
    const auto scale = PropertyVector(entry->properties, vocab::kUvScale);
    const bool moved = (offset && (offset->x != 0 || offset->y != 0)) || (rotation && *rotation != 0) ||
                       (scale && (scale->x != 1 || scale->y != 1));
    if (moved) {
      tinygltf::Value::Object transform;
      if (offset)
        transform["offset"] =
            tinygltf::Value(tinygltf::Value::Array{tinygltf::Value(offset->x), tinygltf::Value(offset->y)});
      if (rotation) transform["rotation"] = tinygltf::Value(*rotation);
      if (scale)
        transform["scale"] =
            tinygltf::Value(tinygltf::Value::Array{tinygltf::Value(scale->x), tinygltf::Value(scale->y)});
      info.extensions[std::string(vocab::kTextureTransformExtension)] = tinygltf::Value(transform);
      UseExtension(vocab::kTextureTransformExtension);
    }
    return index;
  }

  void UseExtension(std::string_view name) {
    if (std::find(model_.extensionsUsed.begin(), model_.extensionsUsed.end(), name) == model_.extensionsUsed.end())
      model_.extensionsUsed.emplace_back(name);
  }

  vex::Result<void> AddMaterial(std::size_t i) {
    const MaterialData& material = scene_.materials[i];
    material_ = i;
    if (!material.set)
      return VEX_FAIL(vex::ErrorKind::IllegalArgument,
                      Place("material " + Quoted(material.name) + " has no parameters"));
    if (material.set->GetBundle() != port::kId)
      return VEX_FAIL(vex::ErrorKind::IllegalArgument,
                      Place("material " + Quoted(material.name) + ": the glTF writer takes sets of " +
                            std::string(port::kId) + ", not " + material.set->GetBundle().Str()));
    const PortReader ports(*material.set, bundles_);
    std::vector<std::string> losses;

    tinygltf::Material m;
    m.name = material.name;
    auto& pbr = m.pbrMetallicRoughness;
    const vex::ColorA base = ports.Rgba(port::baseColorFactor, {1, 1, 1, 1});
    double alpha = base.a;
    // "opacity" holds the mean of an opacity texture that went into the base colour's alpha; with
    // no such texture it is the material's opacity and multiplies the factor's alpha.
    if (ports.Textured(port::baseColorTexture) == nullptr) alpha *= ports.Number(port::opacity, 1.0);
    pbr.baseColorFactor = {Clamp01(base.r), Clamp01(base.g), Clamp01(base.b), Clamp01(alpha)};
    pbr.baseColorTexture.index =
        Texture(ports, port::baseColorTexture, true, material.name, pbr.baseColorTexture, losses);
    m.alphaMode = ports.Text(port::alphaMode, "OPAQUE");
    if (m.alphaMode != "OPAQUE" && m.alphaMode != "BLEND" && m.alphaMode != "MASK") {
      losses.push_back("alphaMode \"" + m.alphaMode + "\" is not a glTF alpha mode; OPAQUE written");
      m.alphaMode = "OPAQUE";
    }
    if (m.alphaMode == "MASK") m.alphaCutoff = std::max(0.0, ports.Number(port::alphaCutoff, 0.5));
    pbr.metallicFactor = Clamp01(ports.Number(port::metallicFactor, 1.0));
    pbr.roughnessFactor = Clamp01(ports.Number(port::roughnessFactor, 1.0));
    pbr.metallicRoughnessTexture.index =
        Texture(ports, port::metallicRoughnessTexture, false, material.name, pbr.metallicRoughnessTexture, losses);

    // Emission is factor times strength. The file's factor lies in [0, 1]; what lies above goes
    // into KHR_materials_emissive_strength when asked, else it is clamped.
    const vex::ColorA factor = ports.Rgba(port::emissiveFactor, {0, 0, 0, 1});
    const double strength = std::max(0.0, ports.Number(port::emissiveStrength, 1.0));
    const vex::Color emission{factor.r * strength, factor.g * strength, factor.b * strength};
    const double peak = std::max({emission.r, emission.g, emission.b});
    if (peak > 1.0 && options_.emissiveStrength) {
      m.emissiveFactor = {emission.r / peak, emission.g / peak, emission.b / peak};
      tinygltf::Value::Object extension;
      extension[std::string(port::emissiveStrength)] = tinygltf::Value(peak);
      m.extensions[std::string(vocab::kEmissiveStrengthExtension)] = tinygltf::Value(extension);
      UseExtension(vocab::kEmissiveStrengthExtension);
    } else if (peak > 1.0) {
      // Without the extension the factor is written as the set has it (the mapping's clamp), and
      // the strength that would take it above 1 is named as lost.
      losses.push_back("emission strength " + Number(strength) +
                       " left out, the factor written as the set has it (--emissive-strength keeps it)");
      m.emissiveFactor = {Clamp01(factor.r), Clamp01(factor.g), Clamp01(factor.b)};
    } else {
      m.emissiveFactor = {emission.r, emission.g, emission.b};
    }
    m.emissiveTexture.index = Texture(ports, port::emissiveTexture, true, material.name, m.emissiveTexture, losses);
    m.normalTexture.index = Texture(ports, port::normalTexture, false, material.name, m.normalTexture, losses);
    if (m.normalTexture.index >= 0) m.normalTexture.scale = ports.Number(port::normalScale, 1.0);
    m.occlusionTexture.index = Texture(ports, port::occlusionTexture, false, material.name, m.occlusionTexture, losses);
    if (m.occlusionTexture.index >= 0)
      m.occlusionTexture.strength = Clamp01(ports.Number(port::occlusionStrength, 1.0));
    if (!losses.empty()) {
      std::string line = "material " + Quoted(material.name) + ": ";
      for (std::size_t k = 0; k < losses.size(); ++k) line += (k ? "; " : "") + losses[k];
      out_.warnings.push_back(line);
    }
    model_.materials.push_back(std::move(m));
    return {};
  }

  void AddCamera(const CameraData& camera) {
    tinygltf::Camera c;
    c.name = camera.name;
    if (camera.orthographic) {
      c.type = "orthographic";
      c.orthographic.ymag = camera.orthoHeight / 2;
      c.orthographic.xmag = camera.orthoHeight / 2 * camera.aspectRatio;
      c.orthographic.znear = camera.znear;
      c.orthographic.zfar = camera.zfar;
    } else {
      c.type = "perspective";
      c.perspective.yfov = camera.yfov;
      c.perspective.aspectRatio = camera.aspectRatio;
      c.perspective.znear = camera.znear;
      c.perspective.zfar = camera.zfar;
      if (!std::isfinite(camera.zfar)) {
        // The format says "infinite" by leaving zfar out, which the file library cannot do.
        c.perspective.zfar = 1e9;
        out_.warnings.push_back("camera " + Quoted(camera.name) + ": infinite far plane written as 1e9");
      }
    }
    model_.cameras.push_back(std::move(c));
  }

  /// Punctual lights as they are. An area light has no glTF type: a one-sided one (rectangle,
  /// disk) becomes a spot of its on-axis intensity L A with the cone opened to the half space, a
  /// round one (sphere, cylinder) a point light of its luminous flux pi A L over 4 pi; a dome is
  /// left out. Each says so in a warning.
  void AddLight(std::size_t i) {
    using Type = LightData::Type;
    const LightData& light = scene_.lights[i];
    tinygltf::Light l;
    l.name = light.name;
    l.color = {light.color.r, light.color.g, light.color.b};
    l.intensity = light.intensity;
    const double area = light_units::EmittingArea(light);
    const char* shape = light.type == Type::Rect ? "rectangle" : light.type == Type::Disk ? "disk"
                        : light.type == Type::Sphere ? "sphere" : "cylinder";
    switch (light.type) {
      case Type::Point:
        l.type = "point";
        break;
      case Type::Spot:
        l.type = "spot";
        // The format wants the inner angle below the outer one: a hard-edged cone keeps a sliver.
        l.spot.innerConeAngle = std::clamp(light.innerConeAngle, 0.0, std::nextafter(light.outerConeAngle, 0.0));
        l.spot.outerConeAngle = light.outerConeAngle;
        break;
      case Type::Directional:
        l.type = "directional";
        break;
      case Type::Rect:
      case Type::Disk:
        l.type = "spot";
        l.intensity = light.intensity * area;
        l.spot.innerConeAngle = 0.0;
        l.spot.outerConeAngle = std::numbers::pi / 2;
        out_.warnings.push_back("light " + Quoted(light.name) + ": a " + shape +
                                " light has no glTF type; written as a spot light opened to the half space with its "
                                "on-axis intensity (" + FormatNumber(l.intensity) + " cd)");
        break;
      case Type::Sphere:
      case Type::Cylinder:
        l.type = "point";
        l.intensity = light.intensity * area / 4;
        out_.warnings.push_back("light " + Quoted(light.name) + ": a " + shape +
                                " light has no glTF type; written as a point light of the same luminous flux (" +
                                FormatNumber(l.intensity) + " cd)");
        break;
      case Type::Dome:
        out_.warnings.push_back("light " + Quoted(light.name) + ": a dome light has no glTF type; left out");
        return;
    }
    if (light.range && *light.range > 0 && light.type != LightData::Type::Directional) l.range = *light.range;
    model_.lights.push_back(std::move(l));
    lightIndex_[i] = static_cast<int>(model_.lights.size() - 1);
  }

  vex::Result<void> AddNodes() {
    const int count = static_cast<int>(scene_.nodes.size());
    tinygltf::Scene root;
    root.name = scene_.name;
    for (int i = 0; i < count; ++i) {
      const NodeData& node = scene_.nodes[static_cast<std::size_t>(i)];
      const std::string what = "node " + Quoted(node.name);
      if (node.parent >= i || node.parent < -1)
        return VEX_FAIL(vex::ErrorKind::FileIO,
                        Place(what + ": its parent " + std::to_string(node.parent) + " does not come before it"));
      if (!node.local.IsFinite())
        return VEX_FAIL(vex::ErrorKind::FileIO, Place(what + ": its transform is not finite"));
      auto outOfRange = [](int index, std::size_t size) { return index < -1 || index >= static_cast<int>(size); };
      if (outOfRange(node.mesh, scene_.meshes.size()) || outOfRange(node.light, scene_.lights.size()) ||
          outOfRange(node.camera, scene_.cameras.size()))
        return VEX_FAIL(vex::ErrorKind::FileIO, Place(what + " refers to a mesh, light or camera that does not exist"));
      tinygltf::Node n;
      n.name = node.name;
      if (!node.local.IsIdentity() && !Decompose(node.local, n))
        n.matrix.assign(node.local.m.begin(), node.local.m.end());
      n.mesh = node.mesh;
      n.camera = node.camera;
      if (node.light >= 0 && lightIndex_[static_cast<std::size_t>(node.light)] >= 0) {
        tinygltf::Value::Object reference;
        reference["light"] = tinygltf::Value(lightIndex_[static_cast<std::size_t>(node.light)]);
        n.extensions[std::string(vocab::kLightsExtension)] = tinygltf::Value(reference);
      }
      model_.nodes.push_back(std::move(n));
      if (node.parent < 0)
        root.nodes.push_back(i);
      else
        model_.nodes[static_cast<std::size_t>(node.parent)].children.push_back(i);
    }
    model_.scenes.push_back(std::move(root));
    model_.defaultScene = 0;
    return {};
  }

  /// Encodes every image on the worker threads: beside the file, or into the binary buffer.
  vex::Result<void> WriteImages() {
    std::vector<vex::Result<void>> results(jobs_.size());
    ForEachImageJob(jobs_.size(), [&](std::size_t i) {
      ImageWriteOptions write;
      write.srgb = jobs_[i].srgb;
      results[i] = WriteImage((fs::path(directory_) / jobs_[i].file).string(), *jobs_[i].texture, write);
    });
    for (std::size_t i = 0; i < results.size(); ++i)
      if (!results[i])
        return VEX_FAIL(vex::ErrorKind::FileIO, Place("image " + jobs_[i].file + ": " + results[i].error().message));
    if (!options_.glb) return {};
    for (std::size_t i = 0; i < jobs_.size(); ++i) {
      const fs::path scratch = fs::path(directory_) / jobs_[i].file;
      std::ifstream in(scratch, std::ios::binary);
      auto bytes = std::make_shared<const std::string>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
      in.close();
      std::error_code ec;
      fs::remove(scratch, ec);
      if (bytes->empty())
        return VEX_FAIL(vex::ErrorKind::FileIO, Place("image " + std::to_string(i) + " could not be encoded"));
      model_.images[i].bufferView = AddView(bytes->size(), 0, [bytes](std::ostream& out) {
        out.write(bytes->data(), static_cast<std::streamsize>(bytes->size()));
      });
      model_.bufferViews.back().target = 0;
    }
    return {};
  }

  /// The buffer's bytes, view by view with the zeros that align each, as `out` takes them.
  void WriteBuffer(std::ostream& out) const {
    std::size_t at = 0;
    for (const auto& piece : pieces_) {
      for (; at < piece.offset; ++at) out.put('\0');
      piece.emit(out);
      at += piece.size;
    }
  }

  /// The JSON, written by the glTF library from the model without the buffer's bytes (the model
  /// holds none), with the buffer entry set to what is written beside it or after it.
  vex::Result<std::string> Json(std::size_t byteLength) {
    tinygltf::TinyGLTF gltf;
    // The images are written already: their URIs (or buffer views) stand as they are.
    gltf.SetImageWriter(
        [](const std::string*, const std::string*, const tinygltf::Image*, bool, std::string*, void*) { return false; },
        nullptr);
    std::ostringstream text;
    if (!gltf.WriteGltfSceneToStream(&model_, text, !options_.glb, false))
      return VEX_FAIL(vex::ErrorKind::FileIO, Place("cannot write"));
    VEX_ASSIGN(auto root, json_codec::Parse(text.str(), Place("the written JSON")));
    if (byteLength > 0) {
      json_codec::Json buffer = json_codec::Json::object();
      buffer["byteLength"] = byteLength;
      if (!options_.glb) buffer["uri"] = stem_ + ".bin";
      root["buffers"] = json_codec::Json::array({std::move(buffer)});
    } else {
      root.erase("buffers");
    }
    return DumpJsonText(root, options_.glb ? -1 : 2);
  }

  vex::Result<GltfPreviewFiles> Save() {
    const std::size_t byteLength = length_;
    if (byteLength == 0) model_.buffers.clear();
    VEX_ASSIGN(std::string json, Json(byteLength));
    const std::string path = (fs::path(directory_) / main_).string();
    std::ofstream out(path, std::ios::binary);
    if (!options_.glb) {
      out << json;
      out.close();
      if (!out) return VEX_FAIL(vex::ErrorKind::FileIO, path + ": cannot write");
      if (byteLength == 0) return std::move(out_);
      const std::string bin = stem_ + ".bin";
      out_.files.insert(out_.files.begin() + 1, bin);
      std::ofstream binary(fs::path(directory_) / bin, std::ios::binary);
      WriteBuffer(binary);
      binary.close();
      if (!binary) return VEX_FAIL(vex::ErrorKind::FileIO, (fs::path(directory_) / bin).string() + ": cannot write");
      return std::move(out_);
    }
    // GLB: the 12-byte header, the JSON chunk padded with blanks, the binary chunk padded with
    // zeros, each chunk 4-byte aligned.
    while (json.size() % 4 != 0) json.push_back(' ');
    const std::size_t binLength = (byteLength + 3) / 4 * 4;
    const std::size_t total = 12 + 8 + json.size() + (byteLength > 0 ? 8 + binLength : 0);
    if (total > 0xffffffffu) return VEX_FAIL(vex::ErrorKind::FileIO, path + ": more than 4 GB, the most a GLB can hold");
    const auto u32 = [&](std::uint32_t v) { out.write(reinterpret_cast<const char*>(&v), 4); };
    u32(0x46546C67);  // "glTF"
    u32(2);
    u32(static_cast<std::uint32_t>(total));
    u32(static_cast<std::uint32_t>(json.size()));
    u32(0x4E4F534A);  // "JSON"
    out << json;
    if (byteLength > 0) {
      u32(static_cast<std::uint32_t>(binLength));
      u32(0x004E4942);  // "BIN\0"
      WriteBuffer(out);
      for (std::size_t k = byteLength; k < binLength; ++k) out.put('\0');
    }
    out.close();
    if (!out) return VEX_FAIL(vex::ErrorKind::FileIO, path + ": cannot write");
    return std::move(out_);
  }

  const SceneData& scene_;
  const std::string& directory_;
  const std::string& stem_;
  const vex::IPortBundles& bundles_;
  const WriteOptions& options_;
  std::string main_;
  tinygltf::Model model_;
  struct Piece {
    std::size_t offset = 0, size = 0;
    std::function<void(std::ostream&)> emit;
  };
  std::vector<Piece> pieces_;  ///< the buffer's views, written by Save
  std::size_t length_ = 0;     ///< the buffer's length so far
  GltfPreviewFiles out_;
  std::vector<ImageJob> jobs_;
  std::set<std::string> fileNames_;
  std::map<std::pair<const void*, bool>, int> images_;
  std::map<std::pair<int, int>, int> textures_;
  std::map<std::tuple<int, int, int, int>, int> samplers_;
  std::vector<int> lightIndex_;
  std::vector<std::string> imageFiles_;  ///< per image: its file, empty inside a .glb
  std::size_t material_ = 0;             ///< the material being added
};

}  // namespace

vex::Result<WrittenFiles> WriteGltf(const SceneData& scene, const std::string& directory, const std::string& stem,
                                    const vex::IPortBundles& bundles, const WriteOptions& options) {
  Writer writer(scene, directory, stem, bundles, options);
  VEX_ASSIGN(auto files, writer.Write());
  WrittenFiles written;
  written.files = std::move(files.files);
  written.warnings = std::move(files.warnings);
  const std::string material = scene.materials.empty() ? std::string() : scene.materials.front().name;
  for (auto& [port, file] : files.textures) written.textures.push_back({material, port, file});
  return written;
}

}  // namespace host::formats::detail
