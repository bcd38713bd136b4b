#include "host/paramset_json.h"
#include "host/input_files.h"
#include "host/json_text.h"
#include "host/staged_output.h"

#include <array>
#include <bit>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <vector>


#include "host/images.h"
#include "host/json_codec.h"

namespace fs = std::filesystem;
using Json = host::json_codec::Json;

namespace host::json {
namespace {

template <class... Ts>
struct Overloaded : Ts... {
  using Ts::operator()...;
};
template <class... Ts>
Overloaded(Ts...) -> Overloaded<Ts...>;

Json PropertiesToJson(const vex::DataDictionary& props) {
  Json out = Json::object();
  for (std::size_t i = 0; i < props.Size(); ++i) {
    const vex::Data& d = props.ValueAt(i);
    // Properties hold plain values; others (vectors, colours, containers) are not written.
    const std::string_view tag = json_codec::TagOf(d);
    if (tag == "bool" || tag == "int32" || tag == "int64" || tag == "float64" || tag == "string" || tag == "id")
      out[props.KeyAt(i)] = *json_codec::Untagged(d);
  }
  return out;
}

// Base64 (RFC 4648, with padding) for the pixels of embedded textures.
constexpr char kBase64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string Base64Encode(const unsigned char* data, std::size_t size) {
  std::string out;
  out.reserve((size + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 2 < size; i += 3) {
    const std::uint32_t v = (std::uint32_t(data[i]) << 16) | (std::uint32_t(data[i + 1]) << 8) | data[i + 2];
    out += kBase64Alphabet[(v >> 18) & 63];
    out += kBase64Alphabet[(v >> 12) & 63];
    out += kBase64Alphabet[(v >> 6) & 63];
    out += kBase64Alphabet[v & 63];
  }
  if (i < size) {
    std::uint32_t v = std::uint32_t(data[i]) << 16;
    if (i + 1 < size) v |= std::uint32_t(data[i + 1]) << 8;
    out += kBase64Alphabet[(v >> 18) & 63];
    out += kBase64Alphabet[(v >> 12) & 63];
    out += i + 1 < size ? kBase64Alphabet[(v >> 6) & 63] : '=';
    out += '=';
  }
  return out;
}

/// Decodes into exactly `size` bytes; false on a malformed text or another length.
bool Base64Decode(std::string_view text, unsigned char* out, std::size_t size) {
  if (text.size() % 4 != 0 || text.size() / 4 * 3 < size || text.size() / 4 * 3 >= size + 3) return false;
  auto value = [](char c) -> int {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == '/') return 63;
    return -1;
  };
  std::size_t o = 0;
  for (std::size_t i = 0; i < text.size(); i += 4) {
    int v[4];
    for (int k = 0; k < 4; ++k) {
      const char c = text[i + static_cast<std::size_t>(k)];
      v[k] = (c == '=' && i + 4 == text.size() && k >= 2) ? 0 : value(c);
      if (v[k] < 0) return false;
    }
    const std::uint32_t bits = (std::uint32_t(v[0]) << 18) | (std::uint32_t(v[1]) << 12) |
                               (std::uint32_t(v[2]) << 6) | std::uint32_t(v[3]);
    for (int k = 0; k < 3 && o < size; ++k) out[o++] = static_cast<unsigned char>(bits >> (16 - 8 * k));
  }
  return o == size;
}

static_assert(std::endian::native == std::endian::little, "embedded pixels are little-endian floats");

Json EmbeddedTexture(const vex::TextureBuffer& t) {
  Json e = Json::object();
  e["width"] = t._dimensions.width;
  e["height"] = t._dimensions.height;
  if (!t.colorSpace.empty()) e["colorSpace"] = t.colorSpace;
  const std::size_t bytes = t.GetCount() * 4 * sizeof(float);
  e["pixels"] = t._pixels ? Base64Encode(reinterpret_cast<const unsigned char*>(t._pixels->Data()), bytes)
                          : std::string();
  return e;
}

/// An image file a parameter names, read after the whole set is parsed (several at a time).
struct PendingTexture {
  std::string port;
  std::string key;
  std::string path;
  bool color = false;
};

struct Reader : json_codec::Decoder {
  const std::string& baseDir;
  const ReadOptions& options;
  std::vector<PendingTexture>* pending = nullptr;

  vex::Result<vex::DataDictionary> Properties(const std::string& key, const Json& v) const {
    if (!v.is_object()) return std::unexpected(Fail(key, "\"properties\" must be an object"));
    vex::DataDictionary out;
    for (const auto& [name, value] : v.items()) {
      if (value.is_boolean()) out.Set(name, value.get<bool>());
      else if (value.is_number_integer()) out.Set(name, value.get<std::int32_t>());
      else if (value.is_number()) out.Set(name, value.get<double>());
      else if (value.is_string()) out.Set(name, value.get<std::string>());
      else return std::unexpected(Fail(key + ".properties." + name, "expected a boolean, number or string"));
    }
    return out;
  }

  /// A texture given only by its size (hand-written sets, older dumps): read back as a texture of
  /// that size filled with the constant beside it.
  vex::Result<vex::TextureBuffer> DescribedTexture(const std::string& key, const Json& description,
                                                   const vex::Parameter& p) const {
    constexpr std::int64_t kMaxSide = 1 << 15;
    const auto side = [&](const char* name) -> vex::Result<std::int64_t> {
      const auto it = description.find(name);
      if (it == description.end() || !it->is_number_integer() || it->get<std::int64_t>() < 1 ||
          it->get<std::int64_t>() > kMaxSide)
        return std::unexpected(Fail(key + ".texture", std::string("expected \"") + name + "\" between 1 and " +
                                                          std::to_string(kMaxSide)));
      return it->get<std::int64_t>();
    };
    if (description.size() != 2) return std::unexpected(Fail(key + ".texture", "expected {\"width\", \"height\"}"));
    VEX_ASSIGN(const std::int64_t width, side("width"));
    VEX_ASSIGN(const std::int64_t height, side("height"));
    std::array<float, 4> fill{0.0f, 0.0f, 0.0f, 1.0f};
    if (const auto* c = p.Constant()) {
      const auto f = [](double v) { return static_cast<float>(v); };
      std::visit(Overloaded{[&](double v) { fill = {f(v), f(v), f(v), 1.0f}; },
                            [&](const vex::Vector2d& v) { fill = {f(v.x), f(v.y), 0.0f, 1.0f}; },
                            [&](const vex::Vector3d& v) { fill = {f(v.x), f(v.y), f(v.z), 1.0f}; },
                            [&](const vex::Vector4d& v) { fill = {f(v.x), f(v.y), f(v.z), f(v.w)}; },
                            [&](const vex::Color& v) { fill = {f(v.r), f(v.g), f(v.b), 1.0f}; },
                            [&](const vex::ColorA& v) { fill = {f(v.r), f(v.g), f(v.b), f(v.a)}; },
                            [](const auto&) {}},
                 c->Value());
    }
    vex::TextureBuffer buffer = vex::TextureBuffer::Make(width, height, fill);
    if (buffer.IsEmpty()) return std::unexpected(Fail(key + ".texture", "out of memory"));
    return buffer;
  }

  /// An inline texture as the dumps write it (see TextureMode::Embed).
  vex::Result<vex::TextureBuffer> EmbeddedTexture(const std::string& key, const Json& tex) const {
    const std::string where = key + ".texture";
    for (const auto& [field, unused] : tex.items()) {
      (void)unused;
      if (field != "width" && field != "height" && field != "colorSpace" && field != "pixels")
        return std::unexpected(Fail(where, "unknown key \"" + field + "\""));
    }
    const auto w = tex.find("width");
    const auto h = tex.find("height");
    const auto px = tex.find("pixels");
    if (w == tex.end() || h == tex.end() || !w->is_number_unsigned() || !h->is_number_unsigned())
      return std::unexpected(Fail(where, "expected \"width\" and \"height\" as non-negative integers"));
    if (px == tex.end() || !px->is_string())
      return std::unexpected(Fail(where, "expected \"pixels\" (base64 of RGBA 32-bit floats)"));
    const auto width = w->get<std::int64_t>();
    const auto height = h->get<std::int64_t>();
    if (width > (1 << 16) || height > (1 << 16)) return std::unexpected(Fail(where, "texture too large"));
    vex::TextureBuffer t;
    t._dimensions = {width, height};
    t._pixels = vex::PixelArray::Allocate(static_cast<std::size_t>(width * height));
    if (!t._pixels) return std::unexpected(Fail(where, "out of memory"));
    if (auto cs = tex.find("colorSpace"); cs != tex.end() && cs->is_string()) t.colorSpace = cs->get<std::string>();
    const std::size_t bytes = t._pixels->GetCount() * 4 * sizeof(float);
    if (!Base64Decode(px->get_ref<const std::string&>(), reinterpret_cast<unsigned char*>(t._pixels->Data()), bytes))
      return std::unexpected(Fail(where, "\"pixels\" is not base64 of " + std::to_string(width) + " x " +
                                             std::to_string(height) + " RGBA floats"));
    return t;
  }

  vex::Result<vex::Parameter> Parameter(const std::string& key, const Json& entry, const vex::PortDeclaration* declared) const {
    if (!entry.is_object()) return std::unexpected(Fail(key, "expected an object with \"type\" and \"value\""));
    for (const auto& [field, unused] : entry.items()) {
      (void)unused;
      static const char* known[] = {"type", "value", "texture", "properties", "url", "colorSpace", "asset", "name"};
      bool ok = false;
      for (const char* k : known) ok = ok || field == k;
      if (!ok) return std::unexpected(Fail(key, "unknown key \"" + field + "\""));
    }
    const auto typeIt = entry.find("type");
    if (typeIt == entry.end() || !typeIt->is_string()) return std::unexpected(Fail(key, "missing \"type\""));
    const std::string typeName = typeIt->get<std::string>();
    vex::Parameter p;
    if (typeName == "ImageReference") {
      const auto url = entry.find("url");
      if (url == entry.end() || !url->is_string()) return std::unexpected(Fail(key, "missing \"url\""));
      vex::ImageReference ref;
      ref.url.text = url->get<std::string>();
      if (auto cs = entry.find("colorSpace"); cs != entry.end() && cs->is_string()) ref.colorSpace = cs->get<std::string>();
      p.value = ref;
    } else if (typeName == "SubstanceReference") {
      const auto asset = entry.find("asset");
      if (asset == entry.end() || !asset->is_string()) return std::unexpected(Fail(key, "missing \"asset\""));
      vex::SubstanceReference ref;
      ref.assetFile.text = asset->get<std::string>();
      if (auto n = entry.find("name"); n != entry.end() && n->is_string()) ref.assetName = n->get<std::string>();
      p.value = ref;
    } else {
      const auto type = vex::ConstantTypeFromName(typeName);
      if (!type) return std::unexpected(Fail(key, "unknown type \"" + typeName + "\""));
      if (declared && declared->type != *type)
        return std::unexpected(Fail(key, "wrong type \"" + typeName + "\" (the bundle declares \"" +
                                             std::string(vex::ConstantTypeName(declared->type)) + "\")"));
      const auto value = entry.find("value");
      if (value == entry.end()) return std::unexpected(Fail(key, "missing \"value\""));
      VEX_ASSIGN(p.value, Constant(*type, *value, key, options.ids));
    }
    if (auto props = entry.find("properties"); props != entry.end()) {
      VEX_ASSIGN(p.properties, Properties(key, *props));
    }
    if (auto tex = entry.find("texture"); tex != entry.end() && tex->is_object()) {
      if (tex->contains("pixels")) {
        VEX_ASSIGN(p.texture, EmbeddedTexture(key, *tex));
      } else {
        VEX_ASSIGN(p.texture, DescribedTexture(key, *tex, p));
      }
      return p;
    }
    if (auto tex = entry.find("texture"); tex != entry.end()) {
      if (!tex->is_string()) return std::unexpected(Fail(key, "\"texture\" must be an image path"));
      if (options.images && pending) {
        const fs::path file = fs::path(baseDir) / tex->get<std::string>();
        pending->push_back({key.substr(std::string_view("parameters.").size()), key, file.string(),
                            declared ? declared->color : false});
      }
    }
    return p;
  }
};

}  // namespace

std::string DumpParameterSet(const vex::ParameterSet& set, TextureMode mode,
                             const std::function<std::string(const std::string&, const vex::TextureBuffer&)>&
                                 textureName) {
  Json root = Json::object();
  root["bundle"] = set.GetBundle().Str();
  Json params = Json::object();
  for (const auto& [port, p] : set.Entries()) {
    Json e = Json::object();
    if (const auto* c = p.Constant()) {
      e["type"] = std::string(vex::ConstantTypeName(c->Type()));
      e["value"] = json_codec::EncodeConstant(*c);
    } else if (const auto* img = std::get_if<vex::ImageReference>(&p.value)) {
      e["type"] = "ImageReference";
      e["url"] = img->url.text;
      if (!img->colorSpace.empty()) e["colorSpace"] = img->colorSpace;
    } else if (const auto* sub = std::get_if<vex::SubstanceReference>(&p.value)) {
      e["type"] = "SubstanceReference";
      e["asset"] = sub->assetFile.text;
      if (!sub->assetName.empty()) e["name"] = sub->assetName;
    }
    if (p.texture) {
      if (mode == TextureMode::Files && textureName) e["texture"] = textureName(port, *p.texture);
      else if (mode == TextureMode::Embed) e["texture"] = EmbeddedTexture(*p.texture);
      else e["texture"] = Json{{"width", p.texture->_dimensions.width}, {"height", p.texture->_dimensions.height}};
    }
    if (!p.properties.IsEmpty()) e["properties"] = PropertiesToJson(p.properties);
    params[port] = std::move(e);
  }
  root["parameters"] = std::move(params);
  return host::DumpJsonText(root, 2) + "\n";
}

vex::Result<vex::ParameterSet> ParseParameterSet(std::string_view text, const std::string& source,
                                                 const std::string& baseDir, const ReadOptions& options) {
  std::vector<PendingTexture> pending;
  Reader reader{{source}, baseDir, options, &pending};
  VEX_ASSIGN(Json root, json_codec::Parse(text, source));
  if (!root.is_object()) return VEX_FAIL(vex::ErrorKind::IllegalArgument, source + ": expected a JSON object");
  for (const auto& [key, unused] : root.items()) {
    (void)unused;
    if (key != "bundle" && key != "parameters")
      return std::unexpected(reader.Fail(key, "unknown key (expected \"bundle\" and \"parameters\")"));
  }
  const auto bundleIt = root.find("bundle");
  if (bundleIt == root.end() || !bundleIt->is_string())
    return std::unexpected(reader.Fail("bundle", "missing port bundle id"));
  const std::string bundleId = bundleIt->get<std::string>();
  const vex::PortBundle* bundle = nullptr;
  if (options.bundles) {
    auto found = options.bundles->Find(bundleId);
    if (!found) return std::unexpected(reader.Fail("bundle", found.error().message));
    bundle = *found;
  }
  vex::ParameterSet set{vex::Id(bundleId)};
  const auto paramsIt = root.find("parameters");
  if (paramsIt == root.end()) return set;
  if (!paramsIt->is_object()) return std::unexpected(reader.Fail("parameters", "expected an object"));
  for (const auto& [port, entry] : paramsIt->items()) {
    const std::string key = "parameters." + port;
    const vex::PortDeclaration* declared = bundle ? bundle->FindPort(port) : nullptr;
    if (bundle && !declared)
      return std::unexpected(reader.Fail(key, "unknown port of bundle " + bundleId));
    VEX_ASSIGN(vex::Parameter p, reader.Parameter(key, entry, declared));
    set.Set(port, std::move(p));
  }
  // The images, several at a time; the first failure in the file's order is reported.
  std::vector<vex::Result<vex::TextureBuffer>> images(pending.size(), vex::TextureBuffer{});
  ForEachImageJob(pending.size(), [&](std::size_t i) {
    images[i] = options.images->Read(pending[i].path, pending[i].color);
  });
  for (std::size_t i = 0; i < pending.size(); ++i) {
    if (!images[i]) return std::unexpected(reader.Fail(pending[i].key, images[i].error().message));
    set.Find(pending[i].port)->texture = std::move(*images[i]);
  }
  return set;
}

vex::Result<vex::ParameterSet> ReadParameterSetFile(const std::string& path, const ReadOptions& options) {
  VEX_ASSIGN(const std::string text, ReadInputFile(path));
  const std::string baseDir = fs::path(path).parent_path().string();
  return ParseParameterSet(text, path, baseDir, options);
}

vex::Result<void> WriteParameterSetFile(const std::string& path, const vex::ParameterSet& set,
                                        const WriteOptions& options, StagedOutput& staged) {
  const fs::path target(path);
  const fs::path dir = target.parent_path();
  const std::string stem = target.stem().string();
  const std::string suffix = options.floatTextures ? ".exr" : ".png";
  const vex::PortBundle* bundle = nullptr;
  if (options.bundles) {
    if (auto b = options.bundles->Find(set.GetBundle().View())) bundle = *b;
  }
  // The textures are encoded several at a time (each image codec is single-threaded).
  struct TextureJob {
    const vex::TextureBuffer* buffer;
    std::string target;
    bool srgb;
    std::string scratch;
  };
  std::vector<TextureJob> jobs;
  const std::string text = DumpParameterSet(set, TextureMode::Files, [&](const std::string& port,
                                                                          const vex::TextureBuffer& buffer) {
    const std::string name = stem + "." + port + suffix;
    // The port decides the encoding: colour ports are sRGB, data ports (packed channels, normals,
    // opacity, occlusion) linear. Only a port the bundle does not know goes by the texels' origin.
    const vex::PortDeclaration* declared = bundle ? bundle->FindPort(port) : nullptr;
    const bool srgb = declared ? declared->color : buffer.colorSpace == "sRGB";
    jobs.push_back({&buffer, (dir / name).string(), srgb, {}});
    return name;
  });
  // The scratch names keep the real suffix, so the image writer picks the right format.
  for (auto& job : jobs) {
    VEX_ASSIGN(const std::size_t id, staged.Stage(job.target, StagedOutput::Kind::File));
    job.scratch = staged.Scratch(id);
  }
  std::vector<std::optional<vex::Error>> failures(jobs.size());
  ForEachImageJob(jobs.size(), [&](std::size_t i) {
    ImageWriteOptions io;
    io.floatPixels = options.floatTextures;
    io.srgb = jobs[i].srgb;
    if (auto r = WriteImage(jobs[i].scratch, *jobs[i].buffer, io); !r) failures[i] = r.error();
  });
  for (const auto& failure : failures)
    if (failure) return std::unexpected(*failure);
  VEX_ASSIGN(const std::size_t id, staged.Stage(path, StagedOutput::Kind::File));
  std::ofstream out(staged.Scratch(id), std::ios::binary);
  out << text;
  out.close();
  if (!out) return VEX_FAIL(vex::ErrorKind::FileIO, path + ": cannot write: " + OsErrorText(errno));
  return {};
}

vex::Result<void> WriteParameterSetFile(const std::string& path, const vex::ParameterSet& set,
                                        const WriteOptions& options) {
  StagedOutput staged(/*createParents=*/false);
  VEX_TRY(WriteParameterSetFile(path, set, options, staged));
  return staged.CommitAll();
}

}  // namespace host::json
