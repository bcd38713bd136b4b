// FBX files (binary or ASCII, ours or other tools') through Assimp into the interchange scene.
// Materials become sets of the generic diffuse/specular model: colours as Assimp reports them
// (the colour times its factor), the shininess exponent as a roughness, opacity as a grey colour,
// and every texture loaded at the file's resolution. What the generic model has no port for is
// named in one warning line per material; a texture that cannot be read is a warning too, and its
// port keeps its constant (unless the read requires the files the scene names: a texture file
// that does not exist then fails the read). Lights and cameras come from the file's own records (binary files: the
// NodeAttribute objects and their Properties70, exactly as written), else from what Assimp makes of
// them; either way their nodes are turned from FBX's light and camera axes onto the scene's -Z.
// A file (binary or ASCII) whose Model transform holds a NaN or an infinity fails naming the
// node (Assimp would read such a translation as none).
#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <numbers>
#include <optional>
#include <random>
#include <set>
#include <string_view>
#include <type_traits>
#include <variant>

#include <assimp/Importer.hpp>
#include <assimp/camera.h>
#include <assimp/light.h>
#include <assimp/config.h>
#include <assimp/material.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include "host/assimp_inputs.h"
#include "host/formats/assimp_lock.h"
#include "host/formats/fbx_binary.h"
#include "host/formats/light_units.h"
#include "host/input_checks.h"
#include "host/input_files.h"
#include "host/formats/fbx_io.h"
#include "host/formats/fbx_surface.h"
#include "host/formats/readers.h"
#include "host/images.h"
#include "vex/ports.h"

namespace fs = std::filesystem;

namespace host::formats::detail {
namespace {

namespace port = vex::ports::generic;

// Properties the surface reading below consumes, or that only repeat another one under an older
// name; any other property of the file's material is named as not carried.
const std::set<std::string, std::less<>> kKnownRaw = {
    "ShadingModel", "MultiLayer", "Diffuse", "Ambient", "Emissive", "Specular", "Shininess", "Opacity",
    "Reflectivity", "NormalMap", "BumpFactor", "TransparentColor", "TransparencyFactor", "DiffuseFactor",
    "DiffuseColor", "EmissiveColor", "EmissiveFactor", "SpecularColor", "SpecularFactor", "ShininessExponent",
    "ReflectionColor", "ReflectionFactor", "AmbientColor", "AmbientFactor", "Bump", "UseMaterial"};

// Texture properties read above (or named by their own loss line).
const std::set<std::string, std::less<>> kTextureProperties = {
    "DiffuseColor", "EmissiveColor", "SpecularColor", "TransparentColor", "ShininessExponent",
    "ReflectionFactor", "NormalMap", "Bump", "AmbientColor"};

struct MaterialReader {
  const std::string& path;
  const aiScene& scene;
  const aiMaterial& m;
  const vex::IPortBundles& bundles;
  const ReadOptions& options;
  const std::string& name;
  vex::ParameterSet& set;
  std::vector<std::string>& losses;

  std::optional<aiColor3D> Color(const char* key, unsigned type, unsigned index) const {
    aiColor3D c;
    if (m.Get(key, type, index, c) != aiReturn_SUCCESS) return std::nullopt;
    return c;
  }
  std::optional<double> Number(const char* key, unsigned type, unsigned index) const {
    ai_real f = 0;
    if (m.Get(key, type, index, f) != aiReturn_SUCCESS) return std::nullopt;
    return static_cast<double>(f);
  }

  /// The texture of `type` on `target`, whose constant must be set by then. A texture that cannot
  /// be found or decoded is a loss, not a failure, unless the read requires the scene's files.
  vex::Result<void> Texture(aiTextureType type, std::string_view target, const char* what) {
    aiString file;
    if (m.GetTextureCount(type) == 0 || m.GetTexture(type, 0, &file) != aiReturn_SUCCESS) return {};
    return Load(file, target, what);
  }
  /// A texture on a property that Assimp gives no texture type of its own (it keeps every
  /// connected texture's file under "$raw.<property>|file").
  vex::Result<void> RawTexture(const std::string& property, std::string_view target) {
    aiString file;
    if (m.Get(("$raw." + property + "|file").c_str(), aiTextureType_UNKNOWN, 0, file) != aiReturn_SUCCESS) return {};
    return Load(file, target, property.c_str());
  }
  /// Where a texture file the material names is read from: relative to the FBX file, or
  /// beside it when an absolute path no longer exists (files moved with their textures).
  std::string Located(const aiString& file) const {
    std::string named = file.C_Str();
    std::replace(named.begin(), named.end(), '\\', '/');
    const fs::path given(named);
    const fs::path folder = fs::path(path).parent_path();
    std::error_code ec;
    const fs::path located = given.is_absolute() ? given : folder / given;
    if (!fs::exists(located, ec) && given.has_filename()) return (folder / given.filename()).string();
    return located.string();
  }

  /// With ReadOptions::requireFiles, every texture file the material names exists, whether its
  /// port is carried or not (a scene read whole is not written without a file it names).
  vex::Result<void> RequireFiles() const {
    if (!options.requireFiles) return {};
    std::vector<aiString> files;
    for (int type = aiTextureType_NONE + 1; type <= AI_TEXTURE_TYPE_MAX; ++type)
      for (unsigned k = 0; k < m.GetTextureCount(static_cast<aiTextureType>(type)); ++k) {
        aiString file;
        if (m.GetTexture(static_cast<aiTextureType>(type), k, &file) == aiReturn_SUCCESS) files.push_back(file);
      }
    // Textures on properties that have no texture type of their own.
    for (unsigned i = 0; i < m.mNumProperties; ++i) {
      const aiMaterialProperty& property = *m.mProperties[i];
      const std::string key = property.mKey.C_Str();
      aiString file;
      if (key.rfind("$raw.", 0) == 0 && key.ends_with("|file") &&
          m.Get(key.c_str(), property.mSemantic, property.mIndex, file) == aiReturn_SUCCESS)
        files.push_back(file);
    }
    std::error_code ec;
    for (const auto& file : files)
      if (file.length > 0 && scene.GetEmbeddedTexture(file.C_Str()) == nullptr && !fs::is_regular_file(Located(file), ec))
        return std::unexpected(MissingFile(path, MissingTexture(name, file.C_Str())));
    return {};
  }

  vex::Result<void> Load(const aiString& file, std::string_view target, const char* what) {
    std::string texturePath;
    fs::path scratch;
    std::error_code ec;
    if (const aiTexture* embedded = scene.GetEmbeddedTexture(file.C_Str())) {
      if (embedded->mHeight != 0) {
        losses.push_back(std::string(what) + " texture: uncompressed embedded image not read");
        return {};
      }
      std::random_device random;
      scratch = fs::temp_directory_path() /
                ("vexinterop-fbx-" + std::to_string(random()) + "." + std::string(embedded->achFormatHint));
      std::ofstream stream(scratch, std::ios::binary);
      stream.write(reinterpret_cast<const char*>(embedded->pcData), static_cast<std::streamsize>(embedded->mWidth));
      texturePath = scratch.string();
    } else {
      texturePath = Located(file);
    }
    auto texture = ReadPortTexture(path, texturePath, bundles, port::kId, target);
    if (!scratch.empty()) fs::remove(scratch, ec);
    if (!texture) {
      losses.push_back(std::string(what) + " texture " + file.C_Str() + " cannot be read (" +
                       (fs::exists(texturePath, ec) ? Shortened(texture.error().message) : std::string("no such file")) +
                       "), so its constant is used");
      return {};
    }
    if (options.textureSize > 0) {
      const auto w = texture->_dimensions.width, h = texture->_dimensions.height;
      const double longer = static_cast<double>(std::max(w, h));
      if (longer > options.textureSize) {
        const double scale = options.textureSize / longer;
        auto resized = ResizeImage(*texture, std::max<std::int64_t>(1, std::llround(static_cast<double>(w) * scale)),
                                   std::max<std::int64_t>(1, std::llround(static_cast<double>(h) * scale)));
        if (resized) {
          resized->colorSpace = texture->colorSpace;
          *texture = std::move(*resized);
        }
      }
    }
    vex::Parameter* entry = set.Find(target);
    if (entry == nullptr) {
      set.SetConstant(target, vex::Color{1, 1, 1});
      entry = set.Find(target);
    }
    entry->texture = std::move(*texture);
    return {};
  }

  vex::Result<void> Read() {
    VEX_TRY(RequireFiles());
    const auto diffuse = Color(AI_MATKEY_COLOR_DIFFUSE);
    set.SetConstant(port::diffuseColor, diffuse ? vex::Color{diffuse->r, diffuse->g, diffuse->b} : vex::Color{0.8, 0.8, 0.8});
    VEX_TRY(Texture(aiTextureType_DIFFUSE, port::diffuseColor, "DiffuseColor"));

    const auto emissive = Color(AI_MATKEY_COLOR_EMISSIVE).value_or(aiColor3D(0, 0, 0));
    set.SetConstant(port::emissiveColor, vex::Color{emissive.r, emissive.g, emissive.b});
    set.SetConstant(port::emissiveFactor, 1.0);
    VEX_TRY(Texture(aiTextureType_EMISSIVE, port::emissiveColor, "EmissiveColor"));

    const auto specular = Color(AI_MATKEY_COLOR_SPECULAR).value_or(aiColor3D(0, 0, 0));
    set.SetConstant(port::specularColor, vex::Color{specular.r, specular.g, specular.b});
    set.SetConstant(port::specularFactor, Number(AI_MATKEY_SHININESS_STRENGTH).value_or(1.0));
    VEX_TRY(Texture(aiTextureType_SPECULAR, port::specularColor, "SpecularColor"));

    const double opacity = std::clamp(Number(AI_MATKEY_OPACITY).value_or(1.0), 0.0, 1.0);
    set.SetConstant(port::opacityColor, vex::Color{opacity, opacity, opacity});
    VEX_TRY(Texture(aiTextureType_OPACITY, port::opacityColor, "TransparentColor"));

    if (const auto exponent = Number(AI_MATKEY_SHININESS))
      set.SetConstant(port::shininess, RoughnessFromShininess(*exponent));
    VEX_TRY(Texture(aiTextureType_SHININESS, port::shininess, "ShininessExponent"));

    // A reflection only counts with a colour: the factor alone is the exporters' default.
    const auto reflective = Color(AI_MATKEY_COLOR_REFLECTIVE).value_or(aiColor3D(0, 0, 0));
    const double reflectivity = Number(AI_MATKEY_REFLECTIVITY).value_or(0.0);
    const bool reflects = reflective.r > 0 || reflective.g > 0 || reflective.b > 0;
    if (reflectivity > 0.0 && reflects) set.SetConstant(port::reflectionFactor, reflectivity);
    aiString unused;
    if (m.Get("$raw.ReflectionFactor|file", aiTextureType_UNKNOWN, 0, unused) == aiReturn_SUCCESS) {
      if (!set.Has(port::reflectionFactor)) set.SetConstant(port::reflectionFactor, 1.0);
      VEX_TRY(RawTexture("ReflectionFactor", port::reflectionFactor));
    }
    if (reflectivity > 0.0 && reflects && reflective != specular)
      losses.push_back("ReflectionColor: the generic model reflects the specular colour; the reflection's own colour is left out");

    if (m.GetTextureCount(aiTextureType_NORMALS) > 0 || m.GetTextureCount(aiTextureType_HEIGHT) > 0) {
      const double strength = Number(AI_MATKEY_BUMPSCALING).value_or(1.0);
      std::array<char, 32> text{};
      const auto end = std::to_chars(text.data(), text.data() + text.size(), static_cast<float>(strength)).ptr;  // stored as float
      losses.push_back("NormalMap (strength " + std::string(text.data(), end) +
                       "): the generic model has no normal port; left out");
    }
    const auto ambient = Color(AI_MATKEY_COLOR_AMBIENT).value_or(aiColor3D(0, 0, 0));
    if (ambient.r > 0 || ambient.g > 0 || ambient.b > 0 || m.GetTextureCount(aiTextureType_AMBIENT) > 0)
      losses.push_back("AmbientColor: the generic model has no ambient colour; left out");
    for (const auto type : {aiTextureType_DISPLACEMENT, aiTextureType_LIGHTMAP, aiTextureType_UNKNOWN})
      if (m.GetTextureCount(type) > 0)
        losses.push_back(std::string(aiTextureTypeToString(type)) + " texture: no port in the generic model; left out");
    // Properties that Assimp hands over unread (the file's own extensions and any name it does
    // not interpret), and textures on properties that have no texture port here.
    std::vector<std::string> unread;
    for (unsigned i = 0; i < m.mNumProperties; ++i) {
      const std::string key = m.mProperties[i]->mKey.C_Str();
      if (key.rfind("$raw.", 0) != 0) continue;
      std::string name = key.substr(5);
      const auto bar = name.find('|');
      if (bar != std::string::npos) {
        if (name.compare(bar, std::string::npos, "|file") != 0) continue;  // a texture's own settings
        name = name.substr(0, bar);
        if (kTextureProperties.contains(name)) continue;
        name += " texture";
      } else if (kKnownRaw.contains(name)) {
        continue;
      }
      if (std::find(unread.begin(), unread.end(), name) == unread.end()) unread.push_back(name);
    }
    if (!unread.empty()) {
      std::string list;
      for (const auto& name : unread) list += (list.empty() ? "" : ", ") + name;
      losses.push_back("not carried: " + list);
    }
    return {};
  }
};

Matrix4 FromAssimp(const aiMatrix4x4& t) {
  Matrix4 out;
  const ai_real* rows[4] = {t[0], t[1], t[2], t[3]};
  for (int row = 0; row < 4; ++row)
    for (int col = 0; col < 4; ++col) out.m[static_cast<std::size_t>(col * 4 + row)] = rows[row][col];
  return out;
}

/// One mesh made of the Assimp meshes a node holds (Assimp splits an FBX geometry by material).
MeshData MergeMeshes(const aiScene& scene, const aiNode& node, const std::vector<int>& materialIndex) {
  MeshData out;
  out.name = node.mName.C_Str();
  bool normals = true, uvs = true;
  for (unsigned k = 0; k < node.mNumMeshes; ++k) {
    const aiMesh& m = *scene.mMeshes[node.mMeshes[k]];
    normals = normals && m.HasNormals();
    uvs = uvs && m.HasTextureCoords(0);
  }
  for (unsigned k = 0; k < node.mNumMeshes; ++k) {
    const aiMesh& m = *scene.mMeshes[node.mMeshes[k]];
    if (k == 0 && node.mNumMeshes == 1 && m.mName.length > 0) out.name = m.mName.C_Str();
    const auto base = static_cast<std::uint32_t>(out.VertexCount());
    for (unsigned v = 0; v < m.mNumVertices; ++v) {
      out.positions.insert(out.positions.end(), {m.mVertices[v].x, m.mVertices[v].y, m.mVertices[v].z});
      if (normals) out.normals.insert(out.normals.end(), {m.mNormals[v].x, m.mNormals[v].y, m.mNormals[v].z});
      if (uvs) out.uvs.insert(out.uvs.end(), {m.mTextureCoords[0][v].x, m.mTextureCoords[0][v].y});
    }
    MeshData::Part part;
    part.firstTriangle = static_cast<std::uint32_t>(out.TriangleCount());
    for (unsigned f = 0; f < m.mNumFaces; ++f) {
      const aiFace& face = m.mFaces[f];
      if (face.mNumIndices != 3) continue;  // points and lines
      for (unsigned c = 0; c < 3; ++c) out.indices.push_back(base + face.mIndices[c]);
    }
    part.triangleCount = static_cast<std::uint32_t>(out.TriangleCount()) - part.firstTriangle;
    part.material = m.mMaterialIndex < materialIndex.size() ? materialIndex[m.mMaterialIndex] : -1;
    if (!out.parts.empty() && out.parts.back().material == part.material)
      out.parts.back().triangleCount += part.triangleCount;
    else if (part.triangleCount > 0)
      out.parts.push_back(part);
  }
  return out;
}

double MetaNumber(const aiMetadata* meta, const char* key, double fallback) {
  if (meta == nullptr) return fallback;
  double d = 0;
  if (meta->Get(key, d)) return d;
  float f = 0;
  if (meta->Get(key, f)) return f;
  std::int32_t i = 0;
  if (meta->Get(key, i)) return i;
  return fallback;
}

// --- lights and cameras ----------------------------------------------------------------------------

/// A NodeAttribute's properties by name, from the file's records.
class Properties {
 public:
  explicit Properties(const fbx::Node* props) {
    if (props == nullptr) return;
    for (const auto& p : props->children)
      if (p.name == "P" && !p.properties.empty())
        if (const auto* name = std::get_if<std::string>(&p.properties[0])) byName_[*name] = &p;
  }
  std::optional<double> Number(const std::string& name, std::size_t component = 0) const {
    const auto it = byName_.find(name);
    if (it == byName_.end() || it->second->properties.size() <= 4 + component) return std::nullopt;
    return std::visit(
        [](const auto& v) -> std::optional<double> {
          using T = std::decay_t<decltype(v)>;
          if constexpr (std::is_arithmetic_v<T>) return static_cast<double>(v);
          return std::nullopt;
        },
        it->second->properties[4 + component]);
  }
  double Get(const std::string& name, double fallback) const { return Number(name).value_or(fallback); }
  std::optional<vex::Color> Color(const std::string& name) const {
    const auto r = Number(name, 0), g = Number(name, 1), b = Number(name, 2);
    if (!r || !g || !b) return std::nullopt;
    return vex::Color{*r, *g, *b};
  }

 private:
  std::map<std::string, const fbx::Node*, std::less<>> byName_;
};

/// What the file's records say of the lights and cameras, by the name of the Model they hang on.
struct Attributes {
  std::map<std::string, LightData> lights;
  std::map<std::string, CameraData> cameras;
  /// The first Model whose transform holds a number that is not finite (Assimp reads a NaN
  /// translation as none at all, so it is looked for in the records).
  std::optional<std::string> nonFinite;
  /// Why the mesh library must not be handed the file: records or braces nested deeper than
  /// kMaxRecordDepth, Models parented deeper than kMaxNodeDepth or in a cycle. It recurses once
  /// per level of either.
  std::optional<std::string> refused;
};

/// Records nest a few levels in any real file; the binary decoder allows as many.
constexpr int kMaxRecordDepth = 64;

/// What the Connections say of Models parented to Models: the first one too deep or on a cycle.
std::optional<std::string> ModelChainProblem(const std::map<std::int64_t, std::string>& models,
                                             const std::vector<std::pair<std::int64_t, std::int64_t>>& links) {
  std::map<std::int64_t, std::size_t> index;
  std::vector<std::string> names;
  for (const auto& [id, name] : models) {
    index.emplace(id, names.size());
    names.push_back(name);
  }
  std::vector<std::int64_t> parent(names.size(), -1);
  for (const auto& [child, up] : links) {
    const auto c = index.find(child), p = index.find(up);
    if (c != index.end() && p != index.end() && parent[c->second] < 0)
      parent[c->second] = static_cast<std::int64_t>(p->second);
  }
  if (const auto misplaced = FindMisplacedNode(parent)) return DescribeMisplacedNode(*misplaced, names[misplaced->node]);
  return std::nullopt;
}

// The properties of a Model that make up its transform.
const std::set<std::string, std::less<>> kTransformProperties = {
    "Lcl Translation", "Lcl Rotation",  "Lcl Scaling",   "PreRotation",        "PostRotation",
    "RotationOffset",  "RotationPivot", "ScalingOffset", "ScalingPivot",       "GeometricTranslation",
    "GeometricRotation", "GeometricScaling"};

/// Whether a Model's Properties70 give a transform property a value that is not finite.
bool HasNonFiniteTransform(const fbx::Node& model) {
  const fbx::Node* props = model.Find("Properties70");
  if (props == nullptr) return false;
  for (const auto& p : props->children) {
    const auto* name = p.properties.empty() ? nullptr : std::get_if<std::string>(&p.properties[0]);
    if (p.name != "P" || name == nullptr || !kTransformProperties.contains(*name)) continue;
    for (std::size_t k = 4; k < p.properties.size(); ++k) {
      const bool finite = std::visit(
          [](const auto& v) {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_floating_point_v<T>) return std::isfinite(v);
            return true;
          },
          p.properties[k]);
      if (!finite) return true;
    }
  }
  return false;
}

std::string PlainName(const fbx::Property& property) {
  const auto* text = std::get_if<std::string>(&property);
  if (text == nullptr) return {};
  const auto cut = text->find(std::string_view("\x00\x01", 2));
  return cut == std::string::npos ? *text : text->substr(0, cut);
}

LightData LightFromRecords(const std::string& name, const Properties& p) {
  using Type = LightData::Type;
  LightData light;
  light.name = name;
  const int type = static_cast<int>(p.Get("LightType", 0));
  light.type = type == 1 ? Type::Directional : type == 2 ? Type::Spot : type == 3 ? Type::Rect : Type::Point;
  if (type == 3) {
    const int ours = static_cast<int>(p.Get("InteropAreaType", -1));
    if (ours >= static_cast<int>(Type::Rect) && ours <= static_cast<int>(Type::Cylinder))
      light.type = static_cast<Type>(ours);
    else if (p.Get("AreaLightShape", 0) == 1)
      light.type = Type::Sphere;
    light.width = p.Get("InteropWidth", light.width);
    light.height = p.Get("InteropHeight", light.height);
    light.radius = p.Get("InteropRadius", light.radius);
    light.length = p.Get("InteropLength", light.length);
  }
  light.color = p.Color("Color").value_or(vex::Color{1, 1, 1});
  light.intensity = light_units::IntensityFromBlenderWatts(light, p.Get("Intensity", 100.0) / light_units::kFbxIntensityPerWatt);
  if (light.type == Type::Spot) {
    const double toRadians = std::numbers::pi / 180.0;
    light.outerConeAngle = p.Get("OuterAngle", 45.0) * toRadians / 2;
    light.innerConeAngle = std::min(p.Get("InnerAngle", 0.0) * toRadians / 2, light.outerConeAngle);
  }
  if (p.Get("EnableFarAttenuation", 0) != 0 && p.Get("FarAttenuationEnd", 0) > 0) light.range = p.Get("FarAttenuationEnd", 0);
  return light;
}

CameraData CameraFromRecords(const std::string& name, const Properties& p) {
  namespace units = light_units;
  CameraData camera;
  camera.name = name;
  camera.orthographic = p.Get("CameraProjectionType", 0) == 1;
  const double width = p.Get("AspectWidth", 0), height = p.Get("AspectHeight", 0);
  if (width > 0 && height > 0) camera.aspectRatio = width / height;
  const double filmHeight = p.Get("FilmHeight", 0) * units::kMillimetresPerInch;
  const double focal = p.Get("FocalLength", 0);
  if (filmHeight > 0 && focal > 0) {
    camera.yfov = units::FieldOfView(filmHeight, focal);
  } else if (const auto xfov = p.Number("FieldOfView")) {
    camera.yfov = 2 * std::atan(std::tan(*xfov * std::numbers::pi / 360) / camera.aspectRatio);
  }
  camera.orthoHeight = p.Get("OrthoZoom", camera.orthoHeight * std::max(camera.aspectRatio, 1.0)) /
                       std::max(camera.aspectRatio, 1.0);
  camera.znear = p.Get("NearPlane", camera.znear);
  camera.zfar = p.Get("FarPlane", camera.zfar);
  return camera;
}

/// An ASCII file scanned line by line, as the binary records are read below: the first Model whose
/// transform properties hold a number that is not finite ("nan", "inf", or one beyond a double),
/// braces nested too deep, and the Models' parents from the "C:" records.
Attributes ScanAscii(const std::string& path, const std::string& text) {
  Attributes out;
  std::size_t start = 0, number = 0;
  std::string model;
  int depth = 0, modelDepth = 0;
  std::map<std::int64_t, std::string> models;
  std::vector<std::pair<std::int64_t, std::int64_t>> links;
  const auto integer = [](std::string_view field) -> std::optional<std::int64_t> {
    field.remove_prefix(std::min(field.find_first_not_of(' '), field.size()));
    std::int64_t v = 0;
    const auto [ptr, ec] = std::from_chars(field.data(), field.data() + field.size(), v);
    if (ec != std::errc() || ptr == field.data()) return std::nullopt;
    return v;
  };
  while (start < text.size()) {
    std::size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    std::string_view line(text.data() + start, end - start);
    start = end + 1;
    ++number;
    const std::size_t first = line.find_first_not_of(" \t");
    if (first == std::string_view::npos || line[first] == ';') continue;
    line.remove_prefix(first);
    // The fields of the line, split at commas outside quotes; braces outside quotes change depth.
    std::vector<std::string_view> fields;
    bool quoted = false;
    std::size_t from = 0;
    const int before = depth;
    for (std::size_t i = 0; i < line.size(); ++i) {
      if (line[i] == '"') quoted = !quoted;
      if (quoted) continue;
      if (line[i] == '{' && ++depth > kMaxRecordDepth && !out.refused)
        out.refused = path + ":" + std::to_string(number) + ": records nested too deep";
      if (line[i] == '}') --depth;
      if (line[i] == ',') {
        fields.push_back(line.substr(from, i - from));
        from = i + 1;
      }
    }
    fields.push_back(line.substr(from));
    if (out.refused) return out;
    if (line.starts_with("Model:") && fields.size() > 1) {
      const std::string_view name = fields[1].substr(std::min(fields[1].find_first_not_of(' '), fields[1].size()));
      constexpr std::string_view kPrefix = "\"Model::";
      model = name.starts_with(kPrefix) ? std::string(name.substr(kPrefix.size(), name.rfind('"') - kPrefix.size()))
                                        : std::string(name);
      modelDepth = before;
      if (const auto id = integer(fields[0].substr(6))) models.emplace(*id, model);
      continue;
    }
    if (line.starts_with("C:") && fields.size() >= 3 && fields[0].find("\"OO\"") != std::string_view::npos) {
      const auto child = integer(fields[1]), parent = integer(fields[2]);
      if (child && parent) links.emplace_back(*child, *parent);
      continue;
    }
    if (!model.empty() && depth <= modelDepth) model.clear();
    if (model.empty() || out.nonFinite || !line.starts_with("P:") || fields.size() < 5) continue;
    const std::string_view property = fields[0].substr(fields[0].find('"') + 1);
    if (!kTransformProperties.contains(property.substr(0, property.find('"')))) continue;
    for (std::size_t k = 4; k < fields.size(); ++k) {
      const std::string value(fields[k]);
      char* parsed = nullptr;
      const double v = std::strtod(value.c_str(), &parsed);
      if (parsed != value.c_str() && !std::isfinite(v)) out.nonFinite = model;
    }
  }
  if (const auto problem = ModelChainProblem(models, links)) out.refused = path + ": " + *problem;
  return out;
}

/// The records of a binary file (lights, cameras, and whether a Model's transform is not
/// finite); for the ASCII form only the transforms (Assimp's view of the rest is used then).
Attributes ReadAttributes(const std::string& path, const std::string& bytes, std::vector<std::string>& warnings) {
  Attributes out;
  if (bytes.rfind("Kaydara FBX Binary", 0) != 0) return ScanAscii(path, bytes);
  auto top = fbx::DecodeBinary(bytes, path);
  if (!top) {
    if (top.error().message.ends_with("records nested too deep")) {
      out.refused = top.error().message;
      return out;
    }
    warnings.push_back("lights and cameras: " + top.error().message + "; Assimp's reading used");
    return out;
  }
  const fbx::Node* objects = nullptr;
  const fbx::Node* connections = nullptr;
  for (const auto& node : *top) {
    if (node.name == "Objects") objects = &node;
    if (node.name == "Connections") connections = &node;
  }
  if (objects == nullptr || connections == nullptr) return out;
  std::map<std::int64_t, const fbx::Node*> attributes;
  std::map<std::int64_t, std::string> models;
  for (const auto& object : objects->children) {
    if (object.properties.size() < 3) continue;
    const auto* id = std::get_if<std::int64_t>(&object.properties[0]);
    if (id == nullptr) continue;
    if (object.name == "NodeAttribute") attributes[*id] = &object;
    if (object.name == "Model") {
      models[*id] = PlainName(object.properties[1]);
      if (!out.nonFinite && HasNonFiniteTransform(object)) out.nonFinite = models[*id];
    }
  }
  std::vector<std::pair<std::int64_t, std::int64_t>> links;
  for (const auto& c : connections->children) {
    if (c.properties.size() < 3) continue;
    const auto* child = std::get_if<std::int64_t>(&c.properties[1]);
    const auto* parent = std::get_if<std::int64_t>(&c.properties[2]);
    if (child == nullptr || parent == nullptr) continue;
    links.emplace_back(*child, *parent);
    const auto attribute = attributes.find(*child);
    const auto model = models.find(*parent);
    if (attribute == attributes.end() || model == models.end()) continue;
    const std::string kind = PlainName(attribute->second->properties[2]);
    const Properties props(attribute->second->Find("Properties70"));
    std::string name = PlainName(attribute->second->properties[1]);
    if (name.empty()) name = model->second;
    if (kind == "Light") out.lights.emplace(model->second, LightFromRecords(name, props));
    if (kind == "Camera") out.cameras.emplace(model->second, CameraFromRecords(name, props));
  }
  if (const auto problem = ModelChainProblem(models, links)) out.refused = path + ": " + *problem;
  return out;
}

/// Assimp's view of a light, for files whose records are not read: its colour is the file's
/// colour times Intensity / 100, split again at the largest component.
LightData LightFromAssimp(const aiLight& l) {
  LightData light;
  light.name = l.mName.C_Str();
  switch (l.mType) {
    case aiLightSource_DIRECTIONAL: light.type = LightData::Type::Directional; break;
    case aiLightSource_SPOT: light.type = LightData::Type::Spot; break;
    default: light.type = LightData::Type::Point; break;
  }
  const aiColor3D c = l.mColorDiffuse;
  const double watts = std::max({c.r, c.g, c.b});
  light.color = watts > 0 ? vex::Color{c.r / watts, c.g / watts, c.b / watts} : vex::Color{0, 0, 0};
  light.intensity = light_units::IntensityFromBlenderWatts(light, watts);
  if (light.type == LightData::Type::Spot) {
    light.outerConeAngle = l.mAngleOuterCone / 2;
    light.innerConeAngle = std::min<double>(l.mAngleInnerCone / 2, light.outerConeAngle);
  }
  return light;
}

CameraData CameraFromAssimp(const aiCamera& c) {
  CameraData camera;
  camera.name = c.mName.C_Str();
  if (c.mAspect > 0) camera.aspectRatio = c.mAspect;
  // Assimp documents a half angle, but its FBX importer (5.2) hands over FieldOfView whole.
  camera.yfov = 2 * std::atan(std::tan(static_cast<double>(c.mHorizontalFOV) / 2) / camera.aspectRatio);
  camera.znear = c.mClipPlaneNear;
  camera.zfar = c.mClipPlaneFar;
  return camera;
}

/// The inverse of the turn from the scene's axes to a light's or camera's axes in the file
/// (direction and up in the node's space, as Assimp gives them): columns -dir x ..., up, -dir.
Matrix4 FromAxes(const aiVector3D& dir, const aiVector3D& up) {
  const double z[3] = {-dir.x, -dir.y, -dir.z}, y[3] = {up.x, up.y, up.z};
  const double x[3] = {y[1] * z[2] - y[2] * z[1], y[2] * z[0] - y[0] * z[2], y[0] * z[1] - y[1] * z[0]};
  Matrix4 m;
  for (int k = 0; k < 3; ++k) {
    m.m[static_cast<std::size_t>(k)] = x[k];
    m.m[static_cast<std::size_t>(4 + k)] = y[k];
    m.m[static_cast<std::size_t>(8 + k)] = z[k];
  }
  return m;
}


}  // namespace

vex::Result<void> CheckFbxNesting(const std::string& bytes, const std::string& path) {
  std::vector<std::string> warnings;
  if (const Attributes records = ReadAttributes(path, bytes, warnings); records.refused)
    return VEX_FAIL(vex::ErrorKind::IllegalArgument, *records.refused);
  return {};
}

vex::Result<SceneData> ReadFbx(const std::string& path, const vex::IPortBundles& bundles, const ReadOptions& options) {
  std::vector<std::string> recordWarnings;
  Attributes records;
  {
    // The file's bytes are let go before the mesh library reads it again.
    VEX_ASSIGN(const std::string bytes, ReadInputFile(path));
    records = ReadAttributes(path, bytes, recordWarnings);
  }
  if (records.refused) return VEX_FAIL(vex::ErrorKind::IllegalArgument, *records.refused);
  std::lock_guard lock(AssimpMutex());
  Assimp::Importer importer;
  auto* io = new RegularFileIO;  // owned by the importer: only regular files are opened
  importer.SetIOHandler(io);
  importer.SetPropertyBool(AI_CONFIG_IMPORT_FBX_PRESERVE_PIVOTS, false);
  const aiScene* scene =
      importer.ReadFile(path, aiProcess_Triangulate | aiProcess_JoinIdenticalVertices | aiProcess_ValidateDataStructure);
  if (!io->Refused().empty()) return VEX_FAIL(vex::ErrorKind::FileIO, io->Refused());
  if (scene == nullptr)
    return VEX_FAIL(vex::ErrorKind::FileIO, path + ": not a readable FBX file: " + importer.GetErrorString());

  SceneData out;
  out.name = fs::path(path).stem().string();
  out.metersPerUnit = MetaNumber(scene->mMetaData, "UnitScaleFactor", 100.0) / 100.0;
  out.upAxis = static_cast<int>(MetaNumber(scene->mMetaData, "UpAxis", 1)) == 2 ? 'Z' : 'Y';

  // Materials, without the one Assimp adds for meshes that have none.
  std::vector<int> materialIndex(scene->mNumMaterials, -1);
  for (unsigned i = 0; i < scene->mNumMaterials; ++i) {
    const aiMaterial& m = *scene->mMaterials[i];
    aiString name;
    std::string materialName =
        m.Get(AI_MATKEY_NAME, name) == aiReturn_SUCCESS && name.length > 0 ? name.C_Str() : "material_" + std::to_string(i);
    if (materialName == AI_DEFAULT_MATERIAL_NAME) continue;
    vex::ParameterSet set;
    VEX_TRY(set.Tag(vex::Id(port::kId)));
    std::vector<std::string> losses;
    MaterialReader reader{path, *scene, m, bundles, options, materialName, set, losses};
    VEX_TRY(reader.Read());
    if (!losses.empty()) {
      std::string line = "material '" + materialName + "': ";
      for (std::size_t k = 0; k < losses.size(); ++k) line += (k > 0 ? "; " : "") + losses[k];
      out.warnings.push_back(std::move(line));
    }
    materialIndex[i] = static_cast<int>(out.materials.size());
    out.materials.push_back({std::move(materialName), std::make_shared<const vex::ParameterSet>(std::move(set))});
  }

  // Nodes, parents first; Assimp's own root (identity, no meshes) is left out.
  struct Pending {
    const aiNode* node;
    int parent;
  };
  std::vector<Pending> queue;
  const aiNode* root = scene->mRootNode;
  if (root != nullptr) {
    if (root->mNumMeshes == 0 && root->mTransformation.IsIdentity())
      for (unsigned c = 0; c < root->mNumChildren; ++c) queue.push_back({root->mChildren[c], -1});
    else
      queue.push_back({root, -1});
  }
  // Lights and cameras by the name of their node (Assimp names both after the Model).
  for (auto& line : recordWarnings) out.warnings.push_back(std::move(line));
  if (records.nonFinite)
    return VEX_FAIL(vex::ErrorKind::IllegalArgument, path + ": node '" + *records.nonFinite + "': its transform is not finite");
  std::map<std::string, const aiLight*, std::less<>> lightOf;
  std::map<std::string, const aiCamera*, std::less<>> cameraOf;
  for (unsigned i = 0; i < scene->mNumLights; ++i) lightOf.emplace(scene->mLights[i]->mName.C_Str(), scene->mLights[i]);
  for (unsigned i = 0; i < scene->mNumCameras; ++i) cameraOf.emplace(scene->mCameras[i]->mName.C_Str(), scene->mCameras[i]);
  std::vector<Matrix4> turns;  // per node read: the turn of its light's or camera's axes (identity otherwise)

  std::map<std::vector<unsigned>, int> meshOf;
  for (std::size_t q = 0; q < queue.size(); ++q) {
    const auto [node, parent] = queue[q];
    NodeData data;
    data.name = node->mName.C_Str();
    data.parent = parent;
    data.local = FromAssimp(node->mTransformation);
    Matrix4 turn;
    if (const auto light = lightOf.find(data.name); light != lightOf.end()) {
      const auto found = records.lights.find(data.name);
      data.light = static_cast<int>(out.lights.size());
      out.lights.push_back(found != records.lights.end() ? found->second : LightFromAssimp(*light->second));
      turn = FromAxes(light->second->mDirection, light->second->mUp);
    } else if (const auto camera = cameraOf.find(data.name); camera != cameraOf.end()) {
      const auto found = records.cameras.find(data.name);
      data.camera = static_cast<int>(out.cameras.size());
      out.cameras.push_back(found != records.cameras.end() ? found->second : CameraFromAssimp(*camera->second));
      const aiCamera& c = *camera->second;
      turn = FromAxes(c.mLookAt - c.mPosition, c.mUp);
    }
    // The file's matrix is the scene's times the turn onto the file's axes, and a child's is
    // relative to its turned parent.
    if (parent >= 0) data.local = turns[static_cast<std::size_t>(parent)].Transposed() * data.local;
    data.local = data.local * turn;
    turns.push_back(turn);
    if (node->mNumMeshes > 0) {
      std::vector<unsigned> key(node->mMeshes, node->mMeshes + node->mNumMeshes);
      auto found = meshOf.find(key);
      if (found == meshOf.end()) {
        found = meshOf.emplace(key, static_cast<int>(out.meshes.size())).first;
        out.meshes.push_back(MergeMeshes(*scene, *node, materialIndex));
      }
      data.mesh = found->second;
    }
    const int self = static_cast<int>(out.nodes.size());
    out.nodes.push_back(std::move(data));
    for (unsigned c = 0; c < node->mNumChildren; ++c) queue.push_back({node->mChildren[c], self});
  }
  return out;
}

}  // namespace host::formats::detail
