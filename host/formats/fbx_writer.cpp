// FBX through Assimp's FBX exporter (ASCII FBX 7.4 by default, binary on
// request: Debian's Assimp 5.2 cannot read back its own binary export, while
// both forms open in other tools): the preview sphere with
// one Phong surface. The set is either of the FBX Phong bundle (its colours are
// multiplied by their factors, as the exporter writes no factors) or of the
// OBJ bundle (the colours, opacity and normal map an FBX surface carries; the
// roughness as a Phong exponent).
#include <algorithm>
#include <cmath>
#include <memory>
#include <mutex>

#include <assimp/Exporter.hpp>
#include <assimp/material.h>
#include <assimp/scene.h>

#include "host/formats/assimp_lock.h"
#include "host/formats/writers.h"

namespace host::formats::detail {
namespace {

aiColor3D Scaled(const vex::Color& c, double f) {
  return aiColor3D(static_cast<float>(c.r * f), static_cast<float>(c.g * f), static_cast<float>(c.b * f));
}

aiMesh* MakeMesh(const PreviewMesh& preview, const std::string& name) {
  auto* mesh = new aiMesh();
  mesh->mName = aiString(name);
  mesh->mPrimitiveTypes = aiPrimitiveType_TRIANGLE;
  mesh->mMaterialIndex = 0;
  const auto n = static_cast<unsigned>(preview.VertexCount());
  mesh->mNumVertices = n;
  mesh->mVertices = new aiVector3D[n];
  mesh->mNormals = new aiVector3D[n];
  mesh->mTextureCoords[0] = new aiVector3D[n];
  mesh->mNumUVComponents[0] = 2;
  for (unsigned i = 0; i < n; ++i) {
    mesh->mVertices[i] = aiVector3D(preview.positions[3 * i], preview.positions[3 * i + 1], preview.positions[3 * i + 2]);
    mesh->mNormals[i] = aiVector3D(preview.normals[3 * i], preview.normals[3 * i + 1], preview.normals[3 * i + 2]);
    mesh->mTextureCoords[0][i] = aiVector3D(preview.uvs[2 * i], preview.uvs[2 * i + 1], 0.0f);
  }
  const auto faces = static_cast<unsigned>(preview.TriangleCount());
  mesh->mNumFaces = faces;
  mesh->mFaces = new aiFace[faces];
  for (unsigned f = 0; f < faces; ++f) {
    mesh->mFaces[f].mNumIndices = 3;
    mesh->mFaces[f].mIndices = new unsigned[3];
    for (unsigned k = 0; k < 3; ++k) mesh->mFaces[f].mIndices[k] = preview.indices[3 * f + k];
  }
  return mesh;
}

struct Surface {
  aiMaterial& m;
  const PortReader& material;
  const std::string& name;
  const std::string& directory;
  WrittenMaterial& written;

  void Color(const char* key, unsigned type, unsigned index, aiColor3D c) { m.AddProperty(&c, 1, key, type, index); }
  void Number(const char* key, unsigned type, unsigned index, double v) {
    const float f = static_cast<float>(v);
    m.AddProperty(&f, 1, key, type, index);
  }
  vex::Result<void> Texture(std::string_view port, aiTextureType type, bool srgb) {
    const vex::TextureBuffer* texture = material.Texture(port);
    if (texture == nullptr) return {};
    const std::string file = name + "_" + std::string(port) + ".png";
    VEX_TRY(WriteTexture(directory, file, *texture, srgb));
    written.files.push_back(file);
    written.textures.emplace_back(std::string(port), file);
    const aiString path(file);
    m.AddProperty(&path, AI_MATKEY_TEXTURE(type, 0));
    return {};
  }
};

/// A Phong exponent for a roughness in [0, 1] (Beckmann-like: n = 2 / r^4 - 2), at most 10000.
double PhongExponent(double roughness) {
  const double r = std::clamp(roughness, 0.0, 1.0);
  const double r4 = r * r * r * r;
  return r4 <= 2.0 / 10002.0 ? 10000.0 : 2.0 / r4 - 2.0;
}

vex::Result<void> FromFbxPhong(Surface& s) {
  const PortReader& p = s.material;
  s.Color(AI_MATKEY_COLOR_DIFFUSE, Scaled(p.Rgb("diffuse", {0.8, 0.8, 0.8}), p.Number("diffuseFactor", 1.0)));
  s.Color(AI_MATKEY_COLOR_AMBIENT, Scaled(p.Rgb("ambient", {0, 0, 0}), p.Number("ambientFactor", 1.0)));
  s.Color(AI_MATKEY_COLOR_EMISSIVE, Scaled(p.Rgb("emissive", {0, 0, 0}), p.Number("emissiveFactor", 1.0)));
  s.Color(AI_MATKEY_COLOR_SPECULAR, Scaled(p.Rgb("specular", {0.2, 0.2, 0.2}), 1.0));
  s.Number(AI_MATKEY_SHININESS_STRENGTH, p.Number("specularFactor", 1.0));
  s.Number(AI_MATKEY_SHININESS, std::max(p.Number("shininess", 20.0), 1e-3));
  s.Color(AI_MATKEY_COLOR_REFLECTIVE, Scaled(p.Rgb("reflection", {0, 0, 0}), 1.0));
  s.Number(AI_MATKEY_REFLECTIVITY, p.Number("reflectionFactor", 1.0));
  // FBX's own rule for opacity from the transparent colour and its factor.
  const vex::Color t = p.Rgb("transparentColor", {0, 0, 0});
  s.Number(AI_MATKEY_OPACITY, std::clamp(1.0 - p.Number("transparencyFactor", 0.0) * (t.r + t.g + t.b) / 3.0, 0.0, 1.0));
  VEX_TRY(s.Texture("diffuse", aiTextureType_DIFFUSE, true));
  VEX_TRY(s.Texture("ambient", aiTextureType_AMBIENT, true));
  VEX_TRY(s.Texture("emissive", aiTextureType_EMISSIVE, true));
  VEX_TRY(s.Texture("specular", aiTextureType_SPECULAR, true));
  VEX_TRY(s.Texture("shininess", aiTextureType_SHININESS, false));
  VEX_TRY(s.Texture("reflection", aiTextureType_REFLECTION, true));
  VEX_TRY(s.Texture("transparentColor", aiTextureType_OPACITY, false));
  VEX_TRY(s.Texture("normalMap", aiTextureType_NORMALS, false));
  for (const char* port : {"diffuseFactor", "ambientFactor", "emissiveFactor", "specularFactor", "transparencyFactor",
                           "reflectionFactor"})
    if (p.Texture(port) != nullptr)
      s.written.warnings.push_back(std::string(port) + ": FBX has no texture for a factor; its constant was written");
  return {};
}

vex::Result<void> FromObj(Surface& s) {
  const PortReader& p = s.material;
  const vex::Color white{1, 1, 1};
  auto colour = [&](std::string_view port, vex::Color fallback) {
    // A textured colour is the texture alone, as in the MTL file.
    return p.Texture(port) != nullptr ? white : p.Rgb(port, fallback);
  };
  s.Color(AI_MATKEY_COLOR_DIFFUSE, Scaled(colour("diffuse_color", {0.8, 0.8, 0.8}), 1.0));
  s.Color(AI_MATKEY_COLOR_SPECULAR, Scaled(colour("specular_color", {0, 0, 0}), 1.0));
  s.Color(AI_MATKEY_COLOR_EMISSIVE, Scaled(colour("emissive_color", {0, 0, 0}), 1.0));
  s.Number(AI_MATKEY_SHININESS_STRENGTH, 1.0);
  s.Number(AI_MATKEY_SHININESS, PhongExponent(p.Number("roughness", 0.5)));
  s.Number(AI_MATKEY_OPACITY, p.Texture("opacity") != nullptr ? 1.0 : std::clamp(p.Number("opacity", 1.0), 0.0, 1.0));
  VEX_TRY(s.Texture("diffuse_color", aiTextureType_DIFFUSE, true));
  VEX_TRY(s.Texture("specular_color", aiTextureType_SPECULAR, true));
  VEX_TRY(s.Texture("emissive_color", aiTextureType_EMISSIVE, true));
  VEX_TRY(s.Texture("opacity", aiTextureType_OPACITY, false));
  VEX_TRY(s.Texture("normal_map", aiTextureType_NORMALS, false));
  if (p.Number("metallic", 0.0) != 0.0 || p.Texture("metallic") != nullptr)
    s.written.warnings.push_back("metallic: an FBX Phong surface has no metalness; left out");
  if (p.Texture("roughness") != nullptr)
    s.written.warnings.push_back("roughness: a roughness texture has no place on an FBX Phong surface; left out");
  return {};
}

}  // namespace

vex::Result<WrittenMaterial> WriteFbx(const PortReader& material, const std::string& name,
                                      const std::string& directory, bool binary) {
  WrittenMaterial written;
  written.files.push_back(name + ".fbx");
  auto scene = std::make_unique<aiScene>();
  scene->mRootNode = new aiNode();
  scene->mRootNode->mName = aiString("root");
  auto* node = new aiNode();
  node->mName = aiString(name);
  node->mParent = scene->mRootNode;
  node->mNumMeshes = 1;
  node->mMeshes = new unsigned[1]{0};
  scene->mRootNode->mNumChildren = 1;
  scene->mRootNode->mChildren = new aiNode*[1]{node};
  scene->mNumMeshes = 1;
  scene->mMeshes = new aiMesh*[1]{MakeMesh(MakeUvSphere(), name)};
  auto* m = new aiMaterial();
  scene->mNumMaterials = 1;
  scene->mMaterials = new aiMaterial*[1]{m};
  const aiString materialName(name);
  m->AddProperty(&materialName, AI_MATKEY_NAME);

  Surface surface{*m, material, name, directory, written};
  if (material.Set().GetBundle() == vex::bundle::kFbxPhong) VEX_TRY(FromFbxPhong(surface));
  else VEX_TRY(FromObj(surface));

  const std::string path = directory + "/" + name + ".fbx";
  std::lock_guard lock(AssimpMutex());
  Assimp::Exporter exporter;
  if (exporter.Export(scene.get(), binary ? "fbx" : "fbxa", path) != aiReturn_SUCCESS)
    return VEX_FAIL(vex::ErrorKind::FileIO, path + ": cannot write: " + exporter.GetErrorString());
  return written;
}

}  // namespace host::formats::detail
