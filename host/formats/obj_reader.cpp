// Wavefront OBJ + MTL read by the project: meshes (positions, normals, texture coordinates,
// one part per "usemtl" run, one node per "o"/"g") and every MTL statement, each either carried
// into a port of the OBJ bundle or named in the material's warning line. The parser is the
// project's own so that it knows every statement it meets (a library reader drops what it does
// not know without saying so). A texture or material library that is not there is a warning, or
// a failure when the read requires the files the scene names.
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "host/input_files.h"
#include "host/formats/format_io.h"
#include "host/formats/formats.h"
#include "host/formats/readers.h"
#include "host/images.h"
#include "vex/ports.h"

namespace fs = std::filesystem;

namespace host::formats::detail {
namespace {

namespace obj = vex::ports::obj;

/// The words of a line into `out` (cleared first; its storage is reused from line to line).
void Tokens(std::string_view line, std::vector<std::string_view>& out) {
  out.clear();
  std::size_t i = 0;
  while (i < line.size()) {
    while (i < line.size() && (line[i] == ' ' || line[i] == '\t' || line[i] == '\r')) ++i;
    const std::size_t start = i;
    while (i < line.size() && line[i] != ' ' && line[i] != '\t' && line[i] != '\r') ++i;
    if (i > start) out.push_back(line.substr(start, i - start));
  }
}

std::vector<std::string_view> Tokens(std::string_view line) {
  std::vector<std::string_view> out;
  Tokens(line, out);
  return out;
}

std::optional<double> Number(std::string_view text) {
  double v = 0;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
  if (ec != std::errc() || end != text.data() + text.size() || !std::isfinite(v)) return std::nullopt;
  return v;
}

vex::Result<std::string> ReadWhole(const std::string& path) {
  return ReadInputFile(path);
}

/// A texture statement's file and the options MTL allows before it.
struct TextureStatement {
  std::string file;
  std::optional<double> bumpMultiplier;  ///< -bm
  std::string channel;                   ///< -imfchan
  std::vector<std::string> ignored;      ///< options that change the look but are not carried
};

TextureStatement ParseTexture(const std::vector<std::string_view>& t) {
  TextureStatement s;
  std::size_t i = 1;
  while (i < t.size() && t[i].size() > 1 && t[i][0] == '-' && !Number(t[i])) {
    const std::string option(t[i++]);
    std::vector<double> args;
    std::size_t most = 1;
    if (option == "-o" || option == "-s" || option == "-t") most = 3;
    if (option == "-mm") most = 2;
    std::vector<std::string_view> words;
    while (i < t.size() && args.size() < most) {
      if (option == "-blendu" || option == "-blendv" || option == "-clamp" || option == "-imfchan" || option == "-type") {
        words.push_back(t[i++]);
        break;
      }
      const auto v = Number(t[i]);
      if (!v) break;
      args.push_back(*v);
      ++i;
    }
    if (option == "-bm" && !args.empty()) s.bumpMultiplier = args[0];
    else if (option == "-imfchan" && !words.empty()) s.channel = std::string(words[0]);
    else if ((option == "-o" && std::any_of(args.begin(), args.end(), [](double v) { return v != 0.0; })) ||
             (option == "-s" && std::any_of(args.begin(), args.end(), [](double v) { return v != 1.0; })) ||
             option == "-mm" || option == "-t" || option == "-boost" || (option == "-clamp" && !words.empty() && words[0] == "on"))
      s.ignored.push_back(option);
  }
  for (; i < t.size(); ++i) s.file += (s.file.empty() ? "" : " ") + std::string(t[i]);
  std::replace(s.file.begin(), s.file.end(), '\\', '/');
  return s;
}

/// The channel that "-imfchan" names, copied into every colour channel.
void SelectChannel(vex::TextureBuffer& texture, std::string_view channel) {
  int c = channel == "g" ? 1 : channel == "b" ? 2 : channel == "m" || channel == "l" ? -1 : 0;
  for (std::size_t i = 0; i < texture.GetCount(); ++i) {
    float* p = texture._pixels->Pixel(i);
    const float v = c >= 0 ? p[c] : (p[0] + p[1] + p[2]) / 3.0f;
    p[0] = p[1] = p[2] = v;
  }
}

struct MaterialReader {
  const std::string& objPath;  ///< the OBJ file whose library this is (messages name it)
  const std::string& mtlPath;
  const vex::IPortBundles& bundles;
  const ReadOptions& options;
  std::string name;
  vex::ParameterSet set{vex::Id(obj::kId)};
  std::vector<std::string> lost;
  std::map<std::string, TextureStatement> maps;  ///< statement -> texture
  std::map<std::string, std::vector<double>> values;

  void Note(std::string what) {
    if (std::find(lost.begin(), lost.end(), what) == lost.end()) lost.push_back(std::move(what));
  }

  vex::Result<std::optional<vex::TextureBuffer>> Load(const TextureStatement& s, std::string_view port) {
    const fs::path image = fs::path(mtlPath).parent_path() / s.file;
    if (auto readable = CheckInputFile(image.string()); !readable) {
      Note(std::string(port) + ": texture " + readable.error().message + " (constant kept)");
      return std::optional<vex::TextureBuffer>();
    }
    auto texture = ReadPortTexture(mtlPath, image.string(), bundles, obj::kId, port);
    if (!texture) {
      Note(std::string(port) + ": texture " + Shortened(texture.error().message) + " (constant kept)");
      return std::optional<vex::TextureBuffer>();
    }
    if (!s.channel.empty()) SelectChannel(*texture, s.channel);
    if (options.textureSize > 0) {
      const auto [w, h] = FittedSize(texture->_dimensions.width, texture->_dimensions.height, options.textureSize, false);
      if (w != texture->_dimensions.width || h != texture->_dimensions.height) {
        VEX_ASSIGN(auto resized, ResizeImage(*texture, w, h));
        resized.colorSpace = texture->colorSpace;
        texture = std::move(resized);
      }
    }
    for (const auto& o : s.ignored) Note(std::string(port) + ": texture option " + o + " not carried");
    return std::optional<vex::TextureBuffer>(std::move(*texture));
  }

  std::optional<double> Scalar(const std::string& key) const {
    const auto it = values.find(key);
    if (it == values.end() || it->second.empty()) return std::nullopt;
    return it->second[0];
  }
  std::optional<vex::Color> Rgb(const std::string& key) const {
    const auto it = values.find(key);
    if (it == values.end() || it->second.empty()) return std::nullopt;
    const auto& v = it->second;
    return v.size() >= 3 ? vex::Color{v[0], v[1], v[2]} : vex::Color{v[0], v[0], v[0]};
  }

  /// A port from its constant statement and its map statement.
  vex::Result<void> Port(std::string_view port, const std::string& key, const std::string& map, bool color) {
    const std::string p(port);
    if (color) {
      if (const auto c = Rgb(key)) set.SetConstant(p, *c);
    } else if (const auto v = Scalar(key)) {
      set.SetConstant(p, *v);
    }
    const auto it = maps.find(map);
    if (it == maps.end()) return {};
    VEX_ASSIGN(auto texture, Load(it->second, port));
    if (!texture) return {};
    // MTL multiplies the map by the constant; a factor other than 1 is kept on the entry.
    if (set.Find(p) == nullptr) {
      if (auto b = bundles.Find(obj::kId))
        if (const auto* d = (*b)->defaults.Find(p); d && d->Constant()) set.Set(p, vex::Parameter(*d->Constant()));
    }
    vex::Parameter* entry = set.Find(p);
    if (entry == nullptr) {
      if (color) set.SetConstant(p, vex::Color{1, 1, 1});
      else set.SetConstant(p, 1.0);
      entry = set.Find(p);
    }
    entry->texture = std::move(*texture);
    return {};
  }

  /// With ReadOptions::requireFiles, every texture file the material names exists, whether its
  /// port is carried or not.
  vex::Result<void> RequireFiles() const {
    if (!options.requireFiles) return {};
    std::error_code ec;
    for (const auto& [key, map] : maps)
      if (!map.file.empty() && !fs::is_regular_file(fs::path(mtlPath).parent_path() / map.file, ec))
        return std::unexpected(MissingFile(objPath, MissingTexture(name, map.file)));
    return {};
  }

  vex::Result<void> Build() {
    VEX_TRY(RequireFiles());
    VEX_TRY(Port(obj::diffuse_color, "Kd", "map_Kd", true));
    VEX_TRY(Port(obj::specular_color, "Ks", "map_Ks", true));
    VEX_TRY(Port(obj::emissive_color, "Ke", "map_Ke", true));
    VEX_TRY(Port(obj::metallic, "Pm", "map_Pm", false));
    VEX_TRY(Port(obj::roughness, "Pr", "map_Pr", false));
    // Classic files give the Phong exponent only (n = 2 / r^4 - 2).
    if (!values.contains("Pr") && !maps.contains("map_Pr")) {
      if (const auto ns = Scalar("Ns")) set.SetConstant(std::string(obj::roughness), RoughnessFromPhong(*ns));
      if (const auto it = maps.find("map_Ns"); it != maps.end()) {
        VEX_ASSIGN(auto texture, Load(it->second, obj::roughness));
        if (texture) {
          const double scale = Scalar("Ns").value_or(1000.0);
          for (std::size_t i = 0; i < texture->GetCount(); ++i) {
            float* px = texture->_pixels->Pixel(i);
            px[0] = px[1] = px[2] = static_cast<float>(RoughnessFromPhong(px[0] * scale));
          }
          set.SetConstant(std::string(obj::roughness), 1.0);
          set.Find(obj::roughness)->texture = std::move(*texture);
        }
      }
    } else if (maps.contains("map_Ns")) {
      Note("map_Ns: Pr/map_Pr give the roughness; the exponent map is not carried");
    }
    VEX_TRY(Port(obj::anisotropy, "aniso", "", false));
    VEX_TRY(Port(obj::anisotropy_rotation, "anisor", "", false));
    VEX_TRY(Port(obj::transmission_color, "Tf", "", true));
    VEX_TRY(Port(obj::transmission_ior, "Ni", "", false));
    if (!values.contains("d"))
      if (const auto tr = Scalar("Tr")) values["d"] = {1.0 - *tr};
    VEX_TRY(Port(obj::opacity, "d", "map_d", false));
    // A normal map: "norm" (the PBR extension), else "map_Bump"/"bump" as most writers use it.
    auto normal = maps.find("norm");
    if (normal == maps.end()) normal = maps.find("map_Bump");
    if (normal != maps.end()) {
      VEX_ASSIGN(auto texture, Load(normal->second, obj::normal_map));
      if (texture) {
        auto entry = vex::Parameter::Textured(vex::PackedConstantParameter(vex::Color{0.5, 0.5, 1.0}), std::move(*texture));
        double strength = normal->second.bumpMultiplier.value_or(1.0);
        if (const auto bump = maps.find("map_Bump"); bump != maps.end() && bump->second.bumpMultiplier)
          strength = *bump->second.bumpMultiplier;
        entry.properties.Set("strength", strength);
        set.Set(std::string(obj::normal_map), std::move(entry));
      }
    }
    for (const auto& [key, map] : maps) {
      static const std::set<std::string> kCarried = {"map_Kd", "map_Ks", "map_Ke", "map_Pm", "map_Pr", "map_d",
                                                     "norm",   "map_Bump", "map_Ns"};
      if (!kCarried.contains(key)) Note(key + " " + map.file + ": the OBJ bundle has no port for it");
    }
    if (const auto ka = Rgb("Ka"); ka && (ka->r != 0 || ka->g != 0 || ka->b != 0)) Note("Ka: ambient colour not carried");
    for (const auto& [key, v] : values) {
      static const std::set<std::string> kKnown = {"Kd", "Ks", "Ke", "Pm", "Pr", "Ns", "aniso", "anisor",
                                                   "Tf", "Ni", "d",  "Tr", "Ka", "illum"};
      if (!kKnown.contains(key)) Note(key + ": not carried");
    }
    return {};
  }
};

/// The materials of the library `library` that the OBJ file `objPath` names (`path` is where it
/// was looked for).
vex::Result<std::vector<MaterialReader>> ReadMtl(const std::string& objPath, const std::string& library,
                                                 const std::string& path, const vex::IPortBundles& bundles,
                                                 const ReadOptions& options, std::vector<std::string>& warnings) {
  std::vector<MaterialReader> out;
  std::error_code ec;
  if (options.requireFiles && !fs::is_regular_file(path, ec))
    return std::unexpected(MissingFile(objPath, "material library \"" + library + "\""));
  auto text = ReadWhole(path);
  if (!text) {
    warnings.push_back(path + ": material library cannot be read (" + text.error().message + ")");
    return out;
  }
  std::istringstream lines(*text);
  std::size_t number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    const auto hash = line.find('#');
    if (hash != std::string::npos) line.resize(hash);
    const auto t = Tokens(line);
    if (t.empty()) continue;
    const std::string key(t[0]);
    if (key == "newmtl") {
      MaterialReader m{objPath, path, bundles, options, {}, vex::ParameterSet(vex::Id(obj::kId)), {}, {}, {}};
      for (std::size_t i = 1; i < t.size(); ++i) m.name += (i > 1 ? " " : "") + std::string(t[i]);
      if (m.name.empty()) m.name = "material_" + std::to_string(out.size());
      out.push_back(std::move(m));
      continue;
    }
    if (out.empty()) {
      warnings.push_back(path + ":" + std::to_string(number) + ": " + key + " before any newmtl; ignored");
      continue;
    }
    MaterialReader& m = out.back();
    std::string mapKey = key;
    if (mapKey == "bump" || mapKey == "map_bump") mapKey = "map_Bump";
    if (mapKey == "refl") mapKey = "map_refl";
    if (mapKey.rfind("map_", 0) == 0 || mapKey == "norm" || mapKey == "disp" || mapKey == "decal") {
      auto s = ParseTexture(t);
      if (s.file.empty()) {
        m.Note(key + ": no file named");
        continue;
      }
      m.maps[mapKey] = std::move(s);
      continue;
    }
    std::vector<double> numbers;
    bool numeric = t.size() > 1;
    for (std::size_t i = 1; i < t.size(); ++i) {
      const auto v = Number(t[i]);
      if (!v) {
        numeric = false;
        break;
      }
      numbers.push_back(*v);
    }
    if (!numeric) {
      m.Note(key + ": not carried");
      continue;
    }
    m.values[key] = std::move(numbers);
  }
  for (auto& m : out) VEX_TRY(m.Build());
  return out;
}

struct ObjBuilder {
  SceneData& scene;
  std::vector<float> v, vt, vn;
  std::map<std::string, int> materialIndex;
  MeshData* mesh = nullptr;
  std::map<std::tuple<long, long, long>, std::uint32_t> vertexOf;
  int material = -1;
  bool hasUv = false, hasNormal = false;

  void Begin(std::string name) {
    if (mesh != nullptr && mesh->indices.empty()) {
      mesh->name = name;
      scene.nodes.back().name = std::move(name);
      return;
    }
    Finish();
    scene.meshes.emplace_back();
    mesh = &scene.meshes.back();
    mesh->name = name;
    NodeData node;
    node.name = std::move(name);
    node.mesh = static_cast<int>(scene.meshes.size() - 1);
    scene.nodes.push_back(std::move(node));
    vertexOf.clear();
    hasUv = hasNormal = false;
  }

  void Finish() {
    if (mesh == nullptr) return;
    if (!hasUv) mesh->uvs.clear();
    if (!hasNormal) mesh->normals.clear();
  }

  void Part() {
    const auto triangle = static_cast<std::uint32_t>(mesh->TriangleCount());
    if (!mesh->parts.empty() && mesh->parts.back().material == material) return;
    if (!mesh->parts.empty() && mesh->parts.back().triangleCount == 0) {
      mesh->parts.back().material = material;
      return;
    }
    mesh->parts.push_back({triangle, 0, material});
  }

  /// One corner "v", "v/vt", "v//vn" or "v/vt/vn" (negative: from the end).
  std::optional<std::uint32_t> Corner(std::string_view corner) {
    long idx[3] = {0, 0, 0};
    std::size_t start = 0;
    for (int k = 0; k < 3 && start <= corner.size(); ++k) {
      const std::size_t slash = corner.find('/', start);
      const std::string_view part = corner.substr(start, slash == std::string_view::npos ? std::string_view::npos : slash - start);
      if (!part.empty()) {
        long value = 0;
        const auto [end, ec] = std::from_chars(part.data(), part.data() + part.size(), value);
        if (ec != std::errc() || end != part.data() + part.size()) return std::nullopt;
        const long count = static_cast<long>((k == 0 ? v.size() / 3 : k == 1 ? vt.size() / 2 : vn.size() / 3));
        if (value < 0) value = count + value + 1;
        if (value < 1 || value > count) return std::nullopt;
        idx[k] = value;
      }
      if (slash == std::string_view::npos) break;
      start = slash + 1;
    }
    if (idx[0] == 0) return std::nullopt;
    const auto key = std::make_tuple(idx[0], idx[1], idx[2]);
    if (const auto it = vertexOf.find(key); it != vertexOf.end()) return it->second;
    const auto index = static_cast<std::uint32_t>(mesh->VertexCount());
    for (int c = 0; c < 3; ++c) mesh->positions.push_back(v[static_cast<std::size_t>((idx[0] - 1) * 3 + c)]);
    for (int c = 0; c < 2; ++c)
      mesh->uvs.push_back(idx[1] ? vt[static_cast<std::size_t>((idx[1] - 1) * 2 + c)] : 0.0f);
    for (int c = 0; c < 3; ++c)
      mesh->normals.push_back(idx[2] ? vn[static_cast<std::size_t>((idx[2] - 1) * 3 + c)] : 0.0f);
    hasUv = hasUv || idx[1] != 0;
    hasNormal = hasNormal || idx[2] != 0;
    vertexOf.emplace(key, index);
    return index;
  }
};

}  // namespace

vex::Result<SceneData> ReadObj(const std::string& path, const vex::IPortBundles& bundles, const ReadOptions& options) {
  // Read line by line: a scene's OBJ text can be far larger than the meshes it describes.
  VEX_TRY(CheckInputFile(path));
  std::ifstream lines(path, std::ios::binary);
  if (!lines) return VEX_FAIL(vex::ErrorKind::FileIO, path + ": cannot open: " + OsErrorText(errno));
  SceneData scene;
  scene.name = fs::path(path).stem().string();
  ObjBuilder b{scene, {}, {}, {}, {}, nullptr, {}, -1, false, false};
  std::vector<std::string> pendingUnknown;
  bool sawObject = false;
  std::size_t number = 0;
  const auto where = [&] { return path + ":" + std::to_string(number) + ": "; };
  std::vector<std::string_view> t;
  std::vector<std::uint32_t> corners;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    const auto hash = line.find('#');
    if (hash != std::string::npos) line.resize(hash);
    Tokens(line, t);
    if (t.empty()) continue;
    const std::string_view key = t[0];
    if (key == "v" || key == "vt" || key == "vn") {
      const std::size_t n = key == "vt" ? 2 : 3;
      auto& target = key == "v" ? b.v : key == "vt" ? b.vt : b.vn;
      if (t.size() < n + 1 && !(key == "vt" && t.size() >= 2))
        return VEX_FAIL(vex::ErrorKind::FileIO, where() + "expected " + std::to_string(n) + " numbers after " + std::string(key));
      for (std::size_t i = 0; i < n; ++i) {
        const auto value = i + 1 < t.size() ? Number(t[i + 1]) : std::optional<double>(0.0);
        if (!value) return VEX_FAIL(vex::ErrorKind::FileIO, where() + "\"" + std::string(t[i + 1]).substr(0, 200) + "\" is not a number");
        target.push_back(static_cast<float>(*value));
      }
    } else if (key == "f") {
      if (b.mesh == nullptr) b.Begin(scene.name);
      b.Part();
      corners.clear();
      for (std::size_t i = 1; i < t.size(); ++i) {
        const auto c = b.Corner(t[i]);
        if (!c) return VEX_FAIL(vex::ErrorKind::FileIO, where() + "face corner \"" + std::string(t[i]).substr(0, 200) + "\" names no vertex");
        corners.push_back(*c);
      }
      if (corners.size() < 3) return VEX_FAIL(vex::ErrorKind::FileIO, where() + "a face needs three corners");
      for (std::size_t i = 1; i + 1 < corners.size(); ++i)
        b.mesh->indices.insert(b.mesh->indices.end(), {corners[0], corners[i], corners[i + 1]});
      b.mesh->parts.back().triangleCount += static_cast<std::uint32_t>(corners.size() - 2);
    } else if (key == "o" || key == "g") {
      std::string name;
      for (std::size_t i = 1; i < t.size(); ++i) name += (i > 1 ? " " : "") + std::string(t[i]);
      // An object is a node; groups inside an object belong to it. Files without objects use
      // groups as objects.
      if (key == "o") sawObject = true;
      if (key == "o" || !sawObject) b.Begin(name.empty() ? scene.name : name);
    } else if (key == "usemtl") {
      std::string name;
      for (std::size_t i = 1; i < t.size(); ++i) name += (i > 1 ? " " : "") + std::string(t[i]);
      const auto it = b.materialIndex.find(name);
      if (it == b.materialIndex.end()) {
        scene.warnings.push_back(where() + "usemtl " + name.substr(0, 200) + ": no such material; faces left without one");
        b.material = -1;
      } else {
        b.material = it->second;
      }
    } else if (key == "mtllib") {
      std::string file;
      for (std::size_t i = 1; i < t.size(); ++i) file += (i > 1 ? " " : "") + std::string(t[i]);
      std::replace(file.begin(), file.end(), '\\', '/');
      const std::string mtl = (fs::path(path).parent_path() / file).string();
      VEX_ASSIGN(auto materials, ReadMtl(path, file, mtl, bundles, options, scene.warnings));
      for (auto& m : materials) {
        if (b.materialIndex.contains(m.name)) continue;
        b.materialIndex[m.name] = static_cast<int>(scene.materials.size());
        if (!m.lost.empty()) {
          std::string line = "material '" + m.name + "': not carried: ";
          for (std::size_t i = 0; i < m.lost.size(); ++i) line += (i ? "; " : "") + m.lost[i];
          scene.warnings.push_back(std::move(line));
        }
        scene.materials.push_back({m.name, std::make_shared<const vex::ParameterSet>(std::move(m.set))});
      }
    } else if (key == "s" || key == "l" || key == "p") {
      // Smoothing groups need no carrying (normals are per vertex); points and lines are not
      // surfaces.
      if (key != "s") pendingUnknown.push_back(std::string(key));
    } else {
      pendingUnknown.push_back(std::string(key));
    }
  }
  if (lines.bad()) return VEX_FAIL(vex::ErrorKind::FileIO, path + ":" + std::to_string(number) + ": read error");
  b.Finish();
  std::sort(pendingUnknown.begin(), pendingUnknown.end());
  pendingUnknown.erase(std::unique(pendingUnknown.begin(), pendingUnknown.end()), pendingUnknown.end());
  for (const auto& k : pendingUnknown) scene.warnings.push_back(path + ": statement \"" + k.substr(0, 200) + "\" not carried");
  return scene;
}

}  // namespace host::formats::detail
