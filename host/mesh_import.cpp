#include "host/mesh_import.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

#include <assimp/Importer.hpp>
#include <assimp/config.h>
#include <assimp/material.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include "host/assimp_inputs.h"
#include "host/formats/fbx_io.h"
#include "host/input_checks.h"
#include "host/input_files.h"
#include "host/polygon_object.h"
#include "vex/polygon.h"

namespace fs = std::filesystem;

namespace host::mesh_import {
namespace {

constexpr std::string_view kSuffixes[] = {"obj", "gltf", "glb", "fbx", "ply", "stl", "dae", "3ds", "off"};
/// Elements around a COLLADA node and inside it (the document, its library and visual scene, a
/// geometry instance's material binding) beyond the node levels themselves.
constexpr int kColladaFrame = 16;

std::string Lower(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return std::tolower(c); });
  return out;
}

std::optional<vex::Color> MaterialColour(const aiScene& scene, unsigned materialIndex) {
  if (materialIndex >= scene.mNumMaterials) return std::nullopt;
  const aiMaterial* material = scene.mMaterials[materialIndex];
  // Assimp stands in for missing materials with an unnamed one (glTF, PLY) or one named
  // "DefaultMaterial" (OBJ); their colour is not one the file asked for.
  aiString name;
  if (material->Get(AI_MATKEY_NAME, name) != AI_SUCCESS || name.length == 0 ||
      std::string_view(name.C_Str()) == AI_DEFAULT_MATERIAL_NAME)
    return std::nullopt;
  aiColor4D c;
  if (material->Get(AI_MATKEY_BASE_COLOR, c) == AI_SUCCESS || material->Get(AI_MATKEY_COLOR_DIFFUSE, c) == AI_SUCCESS)
    return vex::Color{c.r, c.g, c.b};
  return std::nullopt;
}

vex::PolygonMesh ToPolygonMesh(const aiMesh& mesh, const aiMatrix4x4& transform) {
  vex::PolygonMesh out;
  out.points.reserve(mesh.mNumVertices);
  for (unsigned i = 0; i < mesh.mNumVertices; ++i) {
    const aiVector3D p = transform * mesh.mVertices[i];
    out.points.push_back({p.x, p.y, p.z});
  }
  out.polygonSizes.reserve(mesh.mNumFaces);
  for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
    const aiFace& face = mesh.mFaces[f];
    if (face.mNumIndices < 3) continue;  // lines and points have no faces
    out.polygonSizes.push_back(static_cast<std::int32_t>(face.mNumIndices));
    for (unsigned k = 0; k < face.mNumIndices; ++k) out.polygonPoints.push_back(static_cast<std::int32_t>(face.mIndices[k]));
  }
  return out;
}

vex::Result<void> AddNode(Document& document, const aiScene& scene, const aiNode& node, const aiMatrix4x4& parent) {
  const aiMatrix4x4 global = parent * node.mTransformation;
  const std::string nodeName = node.mName.length > 0 ? node.mName.C_Str() : "mesh";
  for (unsigned i = 0; i < node.mNumMeshes; ++i) {
    const aiMesh& mesh = *scene.mMeshes[node.mMeshes[i]];
    vex::PolygonMesh polygons = ToPolygonMesh(mesh, global);
    if (polygons.polygonSizes.empty()) continue;
    std::string name = nodeName;
    if (node.mNumMeshes > 1) name += "/" + std::string(mesh.mName.length > 0 ? mesh.mName.C_Str() : std::to_string(i));
    VEX_TRY(document.InsertObject(MakePolygonObject(std::move(name), std::move(polygons),
                                                    MaterialColour(scene, mesh.mMaterialIndex)),
                                  nullptr));
  }
  for (unsigned c = 0; c < node.mNumChildren; ++c) VEX_TRY(AddNode(document, scene, *node.mChildren[c], global));
  return {};
}

}  // namespace

bool IsMeshFile(std::string_view path) {
  const std::string suffix = Lower(fs::path(path).extension().string());
  for (const auto s : kSuffixes)
    if (suffix.size() == s.size() + 1 && suffix.substr(1) == s) return true;
  return false;
}

namespace {

/// A new document for the mesh file at `path`, in `unit`; the objects are the caller's to add.
Document& NewMeshDocument(Documents& documents, const std::string& path, const vex::UnitScale& unit) {
  const fs::path file(path);
  Document& document = documents.NewDocument(file.stem().string());
  document.SetPath(fs::absolute(file).parent_path().string());
  document.Settings().Set(vex::kDocumentLengthUnit, vex::Data::MakeCustom(unit));
  return document;
}

/// PLY is read by the host itself (ReadPlyMesh): one polygon object, in metres.
vex::Result<Document*> LoadPly(Documents& documents, const std::string& path, std::string_view bytes,
                               const vex::IUnits& units) {
  VEX_ASSIGN(vex::PolygonMesh mesh, ReadPlyMesh(bytes, path));
  if (mesh.polygonSizes.empty()) return VEX_FAIL(vex::ErrorKind::IllegalArgument, path + ": the PLY file has no faces");
  Document& document = NewMeshDocument(documents, path, units.FindUnit("m").value_or(vex::UnitScale{"m", 1.0}));
  if (auto added = document.InsertObject(MakePolygonObject("mesh", std::move(mesh), std::nullopt), nullptr); !added) {
    documents.Close(&document);
    return std::unexpected(std::move(added).error());
  }
  document.SetChanged(false);
  return &document;
}

}  // namespace

vex::Result<Document*> Load(Documents& documents, const std::string& path, const vex::IUnits& units) {
  VEX_ASSIGN(const std::string bytes, ReadInputFile(path));
  const std::string suffix = Lower(fs::path(path).extension().string());
  if (suffix == ".ply") return LoadPly(documents, path, bytes, units);
  // What the library would loop on, or recurse through once per level, is refused first.
  if (suffix == ".gltf" || suffix == ".glb") VEX_TRY(CheckGltfNodeTree(bytes, path, suffix == ".glb"));
  if (suffix == ".fbx") VEX_TRY(formats::detail::CheckFbxNesting(bytes, path));
  if (suffix == ".dae") VEX_TRY(CheckMarkupDepth(bytes, path, kMaxNodeDepth + kColladaFrame));
  Assimp::Importer importer;
  auto* io = suffix == ".obj" ? new RegularFileIO(path) : new RegularFileIO;  // owned by the importer
  importer.SetIOHandler(io);
  // Only positions matter: without normals and texture coordinates, corners at the same place
  // become one point.
  importer.SetPropertyInteger(AI_CONFIG_PP_RVC_FLAGS, aiComponent_NORMALS | aiComponent_TANGENTS_AND_BITANGENTS |
                                                         aiComponent_COLORS | aiComponent_TEXCOORDS |
                                                         aiComponent_BONEWEIGHTS | aiComponent_ANIMATIONS |
                                                         aiComponent_CAMERAS | aiComponent_LIGHTS);
  const aiScene* scene =
      importer.ReadFile(path, aiProcess_RemoveComponent | aiProcess_JoinIdenticalVertices | aiProcess_ValidateDataStructure);
  if (!io->Refused().empty()) return VEX_FAIL(vex::ErrorKind::FileIO, io->Refused());
  if (scene == nullptr || scene->mRootNode == nullptr || (scene->mFlags & AI_SCENE_FLAGS_INCOMPLETE) != 0)
    return VEX_FAIL(vex::ErrorKind::IllegalArgument,
                    path + ": cannot read as a mesh: " + std::string(importer.GetErrorString()));

  vex::UnitScale unit = units.FindUnit("m").value_or(vex::UnitScale{"m", 1.0});
  double centimetres = 0;
  if (scene->mMetaData != nullptr && scene->mMetaData->Get("UnitScaleFactor", centimetres) && centimetres > 0 &&
      Lower(fs::path(path).extension().string()) == ".fbx") {
    unit = centimetres == 1.0 ? units.FindUnit("cm").value_or(vex::UnitScale{"cm", 0.01})
                              : vex::UnitScale{"fbx", centimetres * 0.01};
  }

  Document& document = NewMeshDocument(documents, path, unit);
  if (auto added = AddNode(document, *scene, *scene->mRootNode, aiMatrix4x4()); !added) {
    documents.Close(&document);
    return std::unexpected(std::move(added).error());
  }
  document.SetChanged(false);
  return &document;
}

}  // namespace host::mesh_import
