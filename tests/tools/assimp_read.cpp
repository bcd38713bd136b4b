// Reads files with Assimp (Debian's libassimp) and prints, per file, one JSON line with the
// materials Assimp made of it: {"file", "materials": [{"name", "properties": {key: value},
// "textures": {type: [{"path", "uv", "blend"}]}}]} or {"file", "error"}. Properties are the
// material's untextured keys as Assimp names them ("$clr.diffuse", "$mat.opacity",
// "$mat.shininess", "$raw.EmissiveFactor", ...): numbers as arrays, strings as strings.
// The exit code is 1 when any file could not be read.
//
//   interop_assimp_read FILE...
#include <assimp/material.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <assimp/Importer.hpp>
#include <cstdio>
#include <cstring>
#include <string>

#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::ordered_json;

Json Property(const aiMaterial& material, const aiMaterialProperty& p) {
  switch (p.mType) {
    case aiPTI_Float: {
      Json values = Json::array();
      for (unsigned i = 0; i < p.mDataLength / sizeof(float); ++i) {
        float v = 0;
        std::memcpy(&v, p.mData + i * sizeof(float), sizeof v);
        values.push_back(v);
      }
      return values;
    }
    case aiPTI_Double: {
      Json values = Json::array();
      for (unsigned i = 0; i < p.mDataLength / sizeof(double); ++i) {
        double v = 0;
        std::memcpy(&v, p.mData + i * sizeof(double), sizeof v);
        values.push_back(v);
      }
      return values;
    }
    case aiPTI_Integer: {
      Json values = Json::array();
      for (unsigned i = 0; i < p.mDataLength / sizeof(int); ++i) {
        int v = 0;
        std::memcpy(&v, p.mData + i * sizeof(int), sizeof v);
        values.push_back(v);
      }
      return values;
    }
    case aiPTI_String: {
      aiString text;
      if (material.Get(p.mKey.C_Str(), p.mSemantic, p.mIndex, text) == AI_SUCCESS) return text.C_Str();
      return nullptr;
    }
    default:
      return "<" + std::to_string(p.mDataLength) + " bytes>";
  }
}

Json Material(const aiMaterial& material) {
  Json out;
  aiString name;
  material.Get(AI_MATKEY_NAME, name);
  out["name"] = name.C_Str();
  Json properties = Json::object();
  for (unsigned i = 0; i < material.mNumProperties; ++i) {
    const aiMaterialProperty& p = *material.mProperties[i];
    if (p.mSemantic != 0) continue;  // texture settings, listed with the textures below
    properties[p.mKey.C_Str()] = Property(material, p);
  }
  out["properties"] = properties;
  Json textures = Json::object();
  for (int type = aiTextureType_DIFFUSE; type < AI_TEXTURE_TYPE_MAX; ++type) {
    const auto t = static_cast<aiTextureType>(type);
    for (unsigned i = 0; i < material.GetTextureCount(t); ++i) {
      aiString path;
      unsigned uv = 0;
      ai_real blend = 1;
      if (material.GetTexture(t, i, &path, nullptr, &uv, &blend) != AI_SUCCESS) continue;
      textures[aiTextureTypeToString(t)].push_back({{"path", path.C_Str()}, {"uv", uv}, {"blend", blend}});
    }
  }
  out["textures"] = textures;
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  int status = 0;
  for (int a = 1; a < argc; ++a) {
    Json report;
    report["file"] = argv[a];
    Assimp::Importer importer;
    const aiScene* scene = importer.ReadFile(argv[a], aiProcess_ValidateDataStructure);
    if (scene == nullptr) {
      report["error"] = importer.GetErrorString();
      status = 1;
    } else {
      report["materials"] = Json::array();
      for (unsigned i = 0; i < scene->mNumMaterials; ++i)
        report["materials"].push_back(Material(*scene->mMaterials[i]));
      report["meshes"] = scene->mNumMeshes;
    }
    std::printf("%s\n", report.dump().c_str());
  }
  return status;
}
