// OBJ/MTL written and read by the project: a scene with a hierarchy and two materials written
// through the catalogue, read back by our reader and by Assimp (an independent reader); and MTL
// statements of other writers read, each carried or named.
#include <gtest/gtest.h>
#include <unistd.h>

#include <assimp/Importer.hpp>
#include <assimp/material.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "host/formats/catalogue.h"
#include "host/images.h"
#include "host/staged_output.h"
#include "test_host.h"
#include "vex/ports.h"

namespace fs = std::filesystem;
namespace formats = host::formats;
namespace obj = vex::ports::obj;

namespace {

std::string Read(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

class ObjFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = fs::temp_directory_path() / ("obj_files_test_" + std::to_string(getpid()) + "_" +
                                       ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir);
    fs::create_directories(dir);
  }
  void TearDown() override { fs::remove_all(dir); }
  fs::path dir;
};

/// Two quads (four triangles) in the unit square, the first half "Red", the second "Blue".
formats::SceneData TwoMaterialScene() {
  formats::SceneData scene;
  formats::MeshData mesh;
  mesh.name = "Quads";
  mesh.positions = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 0, 0, 1, 1, 0, 1, 1, 1, 1, 0, 1, 1};
  mesh.normals.assign(24, 0.0f);
  for (std::size_t i = 0; i < 8; ++i) mesh.normals[3 * i + 2] = 1.0f;
  mesh.uvs = {0, 0, 1, 0, 1, 1, 0, 1, 0, 0, 1, 0, 1, 1, 0, 1};
  mesh.indices = {0, 1, 2, 0, 2, 3, 4, 5, 6, 4, 6, 7};
  mesh.parts = {{0, 2, 0}, {2, 2, 1}};
  scene.meshes.push_back(mesh);
  formats::NodeData root;
  root.name = "Root";
  root.local.m[12] = 10.0;  // translation x
  formats::NodeData child;
  child.name = "Box";
  child.parent = 0;
  child.mesh = 0;
  child.local.m[0] = child.local.m[5] = child.local.m[10] = 2.0;  // scale 2
  scene.nodes = {root, child};

  auto red = std::make_shared<vex::ParameterSet>(vex::Id(obj::kId));
  red->SetConstant(obj::diffuse_color, vex::Color{0.8, 0.1, 0.1});
  red->SetConstant(obj::roughness, 0.5);
  red->SetConstant(obj::metallic, 0.3);
  auto normal = vex::TextureBuffer::Make(2, 2, {0.5f, 0.5f, 1.0f, 1.0f});
  auto entry = vex::Parameter::Textured(vex::PackedConstantParameter(vex::Color{0.5, 0.5, 1.0}), normal);
  entry.properties.Set("strength", 0.6);
  red->Set(obj::normal_map, std::move(entry));
  auto blue = std::make_shared<vex::ParameterSet>(vex::Id(obj::kId));
  blue->Set(obj::diffuse_color, vex::Parameter::Textured(vex::PackedConstantParameter(vex::Color{1, 1, 1}),
                                                         vex::TextureBuffer::Make(4, 2, {0.1f, 0.2f, 0.9f, 1.0f})));
  blue->SetConstant(obj::roughness, 0.0);
  scene.materials = {{"Red", red}, {"Blue", blue}};
  return scene;
}

TEST_F(ObjFiles, ScenesGoOutAndComeBackWithTheirMaterialsPartsAndWorldTransforms) {
  auto& h = testing_support::Host();
  const auto* row = formats::FindFormat("obj");
  ASSERT_NE(row, nullptr);
  host::StagedOutput staged;
  auto written = formats::WriteFormatFile(*row, TwoMaterialScene(), (dir / "out").string(), "scene", h.bundles(), {},
                                          staged);
  ASSERT_TRUE(written) << written.error().message;
  const std::string mtl = Read(dir / "out" / "scene.mtl");
  // Classic readers see the roughness as Ns (2/r^4 - 2, at most 1000); Pm only where the set has it.
  EXPECT_NE(mtl.find("newmtl Red\nillum 2\nKa 0 0 0\nKd 0.8 0.1 0.1\nKs 0 0 0\nKe 0 0 0\nPm 0.3\nPr 0.5\nNs 30\n"),
            std::string::npos)
      << mtl;
  EXPECT_NE(mtl.find("map_Bump -bm 0.6 scene_Red_normal_map.png\nnorm scene_Red_normal_map.png\n"), std::string::npos)
      << mtl;
  const std::string blue = mtl.substr(mtl.find("newmtl Blue"));
  EXPECT_EQ(blue.find("Pm"), std::string::npos) << blue;
  EXPECT_NE(blue.find("Pr 0\nNs 1000\n"), std::string::npos) << blue;
  const std::string text = Read(dir / "out" / "scene.obj");
  EXPECT_NE(text.find("o Box\ng Box\n"), std::string::npos) << text.substr(0, 300);
  EXPECT_NE(text.find("usemtl Red"), std::string::npos);
  EXPECT_NE(text.find("usemtl Blue"), std::string::npos);

  // Our reader: the parts, the baked transform, the materials and their textures' own sizes.
  auto back = formats::ReadFormatFile((dir / "out" / "scene.obj").string(), h.bundles());
  ASSERT_TRUE(back) << back.error().message;
  ASSERT_EQ(back->materials.size(), 2u);
  ASSERT_EQ(back->meshes.size(), 1u);
  const auto& mesh = back->meshes[0];
  ASSERT_EQ(mesh.parts.size(), 2u);
  EXPECT_EQ(mesh.parts[0].material, 0);
  EXPECT_EQ(mesh.parts[1].material, 1);
  EXPECT_EQ(mesh.parts[1].firstTriangle, 2u);
  EXPECT_EQ(mesh.TriangleCount(), 4u);
  float minX = 1e9f, maxX = -1e9f;
  for (std::size_t i = 0; i < mesh.VertexCount(); ++i) {
    minX = std::min(minX, mesh.positions[3 * i]);
    maxX = std::max(maxX, mesh.positions[3 * i]);
  }
  EXPECT_FLOAT_EQ(minX, 10.0f);
  EXPECT_FLOAT_EQ(maxX, 12.0f);
  const auto& red = *back->materials[0].set;
  EXPECT_NEAR(*red.Find(obj::roughness)->Constant()->Get<double>(), 0.5, 1e-12);
  EXPECT_NEAR(*red.Find(obj::metallic)->Constant()->Get<double>(), 0.3, 1e-12);
  const auto* normal = red.Find(obj::normal_map);
  ASSERT_TRUE(normal != nullptr && normal->texture.has_value());
  EXPECT_EQ(*normal->properties.Find("strength")->Get<double>(), 0.6);
  const auto* texture = back->materials[1].set->Find(obj::diffuse_color);
  ASSERT_TRUE(texture != nullptr && texture->texture.has_value());
  EXPECT_EQ(texture->texture->_dimensions, (vex::Dimensions{4, 2}));
  EXPECT_TRUE(back->warnings.empty()) << back->warnings.front();

  // Assimp, which knows nothing of our code: two materials with their exponents, the vertices
  // where the transforms put them.
  Assimp::Importer importer;
  const aiScene* scene = importer.ReadFile((dir / "out" / "scene.obj").string(), aiProcess_Triangulate);
  ASSERT_NE(scene, nullptr) << importer.GetErrorString();
  int found = 0;
  for (unsigned i = 0; i < scene->mNumMaterials; ++i) {
    aiString name;
    scene->mMaterials[i]->Get(AI_MATKEY_NAME, name);
    float shininess = -1;
    scene->mMaterials[i]->Get(AI_MATKEY_SHININESS, shininess);
    if (std::string(name.C_Str()) == "Red") {
      EXPECT_FLOAT_EQ(shininess, 30.0f);
      ++found;
    }
    if (std::string(name.C_Str()) == "Blue") {
      EXPECT_FLOAT_EQ(shininess, 1000.0f);
      ++found;
    }
  }
  EXPECT_EQ(found, 2);
  unsigned vertices = 0;
  for (unsigned m = 0; m < scene->mNumMeshes; ++m) {
    vertices += scene->mMeshes[m]->mNumVertices;
    for (unsigned v = 0; v < scene->mMeshes[m]->mNumVertices; ++v) {
      EXPECT_GE(scene->mMeshes[m]->mVertices[v].x, 10.0f - 1e-5f);
      EXPECT_LE(scene->mMeshes[m]->mVertices[v].x, 12.0f + 1e-5f);
    }
  }
  EXPECT_GE(vertices, 8u);
}

TEST_F(ObjFiles, ClassicMtlStatementsAreReadAndEveryLossIsNamedOnce) {
  auto& h = testing_support::Host();
  (void)host::WriteImage((dir / "bump.png").string(), vex::TextureBuffer::Make(6, 3, {0.5f, 0.5f, 1.0f, 1.0f}), {});
  (void)host::WriteImage((dir / "gloss.png").string(), vex::TextureBuffer::Make(2, 2, {1.0f, 1.0f, 1.0f, 1.0f}), {});
  std::ofstream(dir / "classic.mtl") << "newmtl Shiny\nKa 0.2 0.2 0.2\nKd 0.5 0.5 0.5\nNs 30\n"
                                        "map_Bump -bm 0.4 bump.png\nmap_refl sky.png\nmap_Kd missing.png\n"
                                        "newmtl Glossy\nNs 1000\nmap_Ns gloss.png\n";
  std::ofstream(dir / "classic.obj") << "mtllib classic.mtl\nv 0 0 0\nv 1 0 0\nv 0 1 0\nv 1 1 0\n"
                                        "usemtl Shiny\nf 1 2 3\nusemtl Glossy\nf -3 -1 -2\n";
  auto read = formats::ReadFormatFile((dir / "classic.obj").string(), h.bundles());
  ASSERT_TRUE(read) << read.error().message;
  ASSERT_EQ(read->materials.size(), 2u);
  const auto& shiny = *read->materials[0].set;
  // Ns 30 is a roughness of 0.5; the bump map with its multiplier is the normal map.
  EXPECT_NEAR(*shiny.Find(obj::roughness)->Constant()->Get<double>(), 0.5, 1e-12);
  const auto* normal = shiny.Find(obj::normal_map);
  ASSERT_TRUE(normal != nullptr && normal->texture.has_value());
  EXPECT_EQ(normal->texture->_dimensions, (vex::Dimensions{6, 3}));
  EXPECT_EQ(*normal->properties.Find("strength")->Get<double>(), 0.4);
  // The missing texture: the port keeps its constant.
  const auto* diffuse = shiny.Find(obj::diffuse_color);
  ASSERT_NE(diffuse, nullptr);
  EXPECT_FALSE(diffuse->texture.has_value());
  EXPECT_NEAR(diffuse->Constant()->Get<vex::Color>()->r, 0.5, 1e-12);
  // One line for the first material naming each loss; none for the second, whose exponent map
  // became a roughness texture (white under Ns 1000: the exponent 1000).
  ASSERT_EQ(read->warnings.size(), 1u) << read->warnings.back();
  const std::string& line = read->warnings[0];
  EXPECT_EQ(line.rfind("material 'Shiny': not carried: ", 0), 0u) << line;
  EXPECT_NE(line.find("missing.png: cannot read: No such file or directory (constant kept)"), std::string::npos) << line;
  EXPECT_NE(line.find("map_refl sky.png"), std::string::npos) << line;
  EXPECT_NE(line.find("Ka"), std::string::npos) << line;
  const auto* gloss = read->materials[1].set->Find(obj::roughness);
  ASSERT_TRUE(gloss != nullptr && gloss->texture.has_value());
  EXPECT_NEAR(gloss->texture->_pixels->Pixel(0)[0], std::pow(2.0 / 1002.0, 0.25), 1e-6);

  // A size asked for is honoured, aspect kept.
  formats::ReadOptions options;
  options.textureSize = 2;
  auto small = formats::ReadFormatFile((dir / "classic.obj").string(), h.bundles(), options);
  ASSERT_TRUE(small);
  EXPECT_EQ(small->materials[0].set->Find(obj::normal_map)->texture->_dimensions, (vex::Dimensions{2, 1}));

  // A face naming a vertex that does not exist fails with the file and line.
  std::ofstream(dir / "broken.obj") << "v 0 0 0\nf 1 2 3\n";
  auto broken = formats::ReadFormatFile((dir / "broken.obj").string(), h.bundles());
  ASSERT_FALSE(broken);
  EXPECT_NE(broken.error().message.find("broken.obj:2:"), std::string::npos) << broken.error().message;
}

}  // namespace
