// OBJ and FBX materials through Assimp. OBJ materials become sets of the OBJ
// bundle (the MTL statements and the PBR extension Assimp reads); FBX
// surfaces become sets of the generic diffuse/specular model, with the Phong
// exponent turned into a roughness (the generic "shininess" port is read as
// one on import).
#include <filesystem>
#include <fstream>
#include <mutex>
#include <random>

#include <assimp/Importer.hpp>
#include <assimp/material.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include "host/assimp_inputs.h"
#include "host/formats/assimp_lock.h"
#include "host/formats/readers.h"

namespace fs = std::filesystem;

namespace host::formats::detail {
namespace {

struct MaterialReader {
  const std::string& path;
  const aiScene& scene;
  const aiMaterial& m;
  const vex::IPortBundles& bundles;
  std::string_view bundle;
  ImportedMaterial& out;

  bool Color(const char* key, unsigned type, unsigned index, std::string_view port) {
    aiColor3D c;
    if (m.Get(key, type, index, c) != aiReturn_SUCCESS) return false;
    out.set.SetConstant(port, vex::Color{c.r, c.g, c.b});
    return true;
  }
  std::optional<double> Number(const char* key, unsigned type, unsigned index) {
    ai_real f = 0;
    if (m.Get(key, type, index, f) != aiReturn_SUCCESS) return std::nullopt;
    return static_cast<double>(f);
  }
  bool Number(const char* key, unsigned type, unsigned index, std::string_view port) {
    const auto v = Number(key, type, index);
    if (v) out.set.SetConstant(port, *v);
    return v.has_value();
  }

  /// Attaches the texture of `type` to the port (whose constant must exist by then).
  vex::Result<void> Texture(aiTextureType type, std::string_view port) {
    aiString file;
    if (m.GetTextureCount(type) == 0 || m.GetTexture(type, 0, &file) != aiReturn_SUCCESS) return {};
    std::string texturePath;
    std::error_code ec;
    fs::path scratch;
    if (const aiTexture* embedded = scene.GetEmbeddedTexture(file.C_Str())) {
      if (embedded->mHeight != 0) {
        out.warnings.push_back(std::string(port) + ": uncompressed embedded texture not read");
        return {};
      }
      std::random_device random;
      scratch = fs::temp_directory_path() /
                ("vexinterop-" + std::to_string(random()) + "." + std::string(embedded->achFormatHint));
      std::ofstream stream(scratch, std::ios::binary);
      stream.write(reinterpret_cast<const char*>(embedded->pcData), static_cast<std::streamsize>(embedded->mWidth));
      texturePath = scratch.string();
    } else {
      std::string name = file.C_Str();
      std::replace(name.begin(), name.end(), '\\', '/');
      texturePath = (fs::path(path).parent_path() / name).string();
    }
    auto texture = ReadPortTexture(path, texturePath, bundles, bundle, port);
    if (!scratch.empty()) fs::remove(scratch, ec);
    if (!texture) return std::unexpected(std::move(texture).error());
    vex::Parameter* entry = out.set.Find(port);
    if (entry == nullptr) {
      out.set.SetConstant(port, vex::Color{1, 1, 1});
      entry = out.set.Find(port);
    }
    entry->texture = std::move(*texture);
    return {};
  }
};

vex::Result<void> ReadObjMaterial(MaterialReader& r) {
  r.Color(AI_MATKEY_COLOR_DIFFUSE, "diffuse_color");
  VEX_TRY(r.Texture(aiTextureType_DIFFUSE, "diffuse_color"));
  if (!r.Number(AI_MATKEY_METALLIC_FACTOR, "metallic") && r.m.GetTextureCount(aiTextureType_METALNESS) > 0)
    r.out.set.SetConstant("metallic", 1.0);
  VEX_TRY(r.Texture(aiTextureType_METALNESS, "metallic"));
  r.Color(AI_MATKEY_COLOR_SPECULAR, "specular_color");
  VEX_TRY(r.Texture(aiTextureType_SPECULAR, "specular_color"));
  if (!r.Number(AI_MATKEY_ROUGHNESS_FACTOR, "roughness") && r.m.GetTextureCount(aiTextureType_DIFFUSE_ROUGHNESS) > 0)
    r.out.set.SetConstant("roughness", 1.0);
  VEX_TRY(r.Texture(aiTextureType_DIFFUSE_ROUGHNESS, "roughness"));
  r.Number(AI_MATKEY_ANISOTROPY_FACTOR, "anisotropy");
  r.Color(AI_MATKEY_COLOR_TRANSPARENT, "transmission_color");
  r.Number(AI_MATKEY_REFRACTI, "transmission_ior");
  if (!r.Number(AI_MATKEY_OPACITY, "opacity")) r.out.set.SetConstant("opacity", 1.0);
  VEX_TRY(r.Texture(aiTextureType_OPACITY, "opacity"));
  if (r.m.GetTextureCount(aiTextureType_NORMALS) > 0) r.out.set.SetConstant("normal_map", vex::Color{0.5, 0.5, 1.0});
  VEX_TRY(r.Texture(aiTextureType_NORMALS, "normal_map"));
  r.Color(AI_MATKEY_COLOR_EMISSIVE, "emissive_color");
  VEX_TRY(r.Texture(aiTextureType_EMISSIVE, "emissive_color"));
  return {};
}

vex::Result<void> ReadFbxMaterial(MaterialReader& r) {
  // Assimp multiplies FBX colours by their factors: the factors read as 1.
  r.Color(AI_MATKEY_COLOR_DIFFUSE, "diffuseColor");
  VEX_TRY(r.Texture(aiTextureType_DIFFUSE, "diffuseColor"));
  if (r.Color(AI_MATKEY_COLOR_EMISSIVE, "emissiveColor")) r.out.set.SetConstant("emissiveFactor", 1.0);
  // Files that carry the emission only in the legacy "Emissive" property (Assimp's own exporter
  // among them) read as black above; the raw property holds it.
  aiColor3D legacy;
  if (const auto* e = r.out.set.Find("emissiveColor");
      e != nullptr && e->Constant()->Get<vex::Color>() != nullptr && *e->Constant()->Get<vex::Color>() == vex::Color{} &&
      r.m.Get("$raw.Emissive", 0, 0, legacy) == aiReturn_SUCCESS) {
    r.out.set.SetConstant("emissiveColor", vex::Color{legacy.r, legacy.g, legacy.b});
    r.out.set.SetConstant("emissiveFactor", 1.0);
  }
  VEX_TRY(r.Texture(aiTextureType_EMISSIVE, "emissiveColor"));
  r.Color(AI_MATKEY_COLOR_SPECULAR, "specularColor");
  VEX_TRY(r.Texture(aiTextureType_SPECULAR, "specularColor"));
  r.out.set.SetConstant("specularFactor", r.Number(AI_MATKEY_SHININESS_STRENGTH).value_or(1.0));
  const double opacity = r.Number(AI_MATKEY_OPACITY).value_or(1.0);
  r.out.set.SetConstant("opacityColor", vex::Color{opacity, opacity, opacity});
  VEX_TRY(r.Texture(aiTextureType_OPACITY, "opacityColor"));
  if (const auto exponent = r.Number(AI_MATKEY_SHININESS))
    r.out.set.SetConstant("shininess", RoughnessFromPhong(*exponent));
  // A reflection only counts with a colour: the factor alone is the exporters' default.
  aiColor3D reflective;
  const auto reflectivity = r.Number(AI_MATKEY_REFLECTIVITY);
  if (reflectivity && *reflectivity > 0.0 && r.m.Get(AI_MATKEY_COLOR_REFLECTIVE, reflective) == aiReturn_SUCCESS &&
      (reflective.r > 0 || reflective.g > 0 || reflective.b > 0))
    r.out.set.SetConstant("reflectionFactor", *reflectivity);
  if (r.m.GetTextureCount(aiTextureType_NORMALS) > 0)
    r.out.warnings.push_back("normal map: the generic material model has no normal port; left out");
  return {};
}

}  // namespace

vex::Result<std::vector<ImportedMaterial>> ReadAssimpMaterials(const std::string& path, bool obj,
                                                               const vex::IPortBundles& bundles) {
  std::lock_guard lock(AssimpMutex());
  Assimp::Importer importer;
  auto* io = new RegularFileIO;  // owned by the importer
  importer.SetIOHandler(io);
  const aiScene* scene = importer.ReadFile(path, aiProcess_ValidateDataStructure);
  if (!io->Refused().empty()) return VEX_FAIL(vex::ErrorKind::FileIO, io->Refused());
  if (scene == nullptr)
    return VEX_FAIL(vex::ErrorKind::FileIO, path + ": not a readable " + std::string(obj ? "OBJ" : "FBX") +
                                                " file: " + importer.GetErrorString());
  const std::string_view bundle = obj ? vex::bundle::kObj : vex::bundle::kGeneric;
  std::vector<ImportedMaterial> out;
  for (unsigned i = 0; i < scene->mNumMaterials; ++i) {
    const aiMaterial& m = *scene->mMaterials[i];
    ImportedMaterial imported;
    aiString name;
    if (m.Get(AI_MATKEY_NAME, name) == aiReturn_SUCCESS && name.length > 0) imported.name = name.C_Str();
    else imported.name = "material_" + std::to_string(i);
    // Assimp adds a default material when a file has none or when meshes lack one.
    if (imported.name == AI_DEFAULT_MATERIAL_NAME) continue;
    VEX_TRY(imported.set.Tag(vex::Id(bundle)));
    MaterialReader reader{path, *scene, m, bundles, bundle, imported};
    VEX_TRY(obj ? ReadObjMaterial(reader) : ReadFbxMaterial(reader));
    out.push_back(std::move(imported));
  }
  return out;
}

}  // namespace host::formats::detail
