// FBX as vexinterop writes it by default (binary 7.4), read by the tools a user would open it with:
// Assimp (library and `assimp info`), Blender's importer (headless, with a probe script that prints
// the Principled BSDF it built) and three.js's FBXLoader. Each reader is skipped only when it is not
// installed (outside CI).
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include <assimp/Importer.hpp>
#include <assimp/material.h>
#include <assimp/scene.h>
#include <nlohmann/json.hpp>

#include "files_support.h"
#include "host/formats/fbx_io.h"
#include "host/port_bundles.h"
#include "run_tool.h"
#include "../host/formats/fbx_scene_support.h"

namespace fs = std::filesystem;
using Json = nlohmann::json;

namespace {

const auto Sh = cli_test::Shell;

bool Missing(const char* program) {
  if (Sh(std::string("command -v ") + program).exit == 0) return false;
  return std::getenv("CI") == nullptr;  // CI installs every reader: there a missing one fails
}

/// Blender's view of an FBX file (tests/tools/fbx_blender_probe.py). Debian's Blender finds
/// Debian's Python modules with /usr/bin first on PATH.
Json BlenderProbe(const fs::path& file) {
  const auto o = Sh("PATH=/usr/bin:$PATH blender -b --factory-startup --python " +
                     (fs::path(INTEROP_SOURCE_DIR) / "tests/tools/fbx_blender_probe.py").string() + " -- " +
                     file.string());
  const auto at = o.output.find("PROBE ");
  EXPECT_NE(at, std::string::npos) << o.output;
  if (at == std::string::npos) return Json::object();
  return Json::parse(o.output.substr(at + 6, o.output.find('\n', at) - at - 6));
}

void ExpectNear(const Json& value, std::initializer_list<double> expected, double tolerance, const std::string& what) {
  ASSERT_TRUE(value.is_array() && value.size() >= expected.size()) << what << ": " << value.dump();
  std::size_t i = 0;
  for (const double e : expected) EXPECT_NEAR(value[i++].get<double>(), e, tolerance) << what << ": " << value.dump();
}

class FbxReaders : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = fs::temp_directory_path() / ("fbx_readers_" + std::to_string(getpid()) + "_" +
                                       ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir);
    files_test::WriteCorvaneInputs(dir / "in");
    const auto o = cli_test::Tool("convert " + (dir / "in/corvane_plain.json").string() + " " +
                                  (dir / "in/corvane_textured.json").string() + " --to fbx -o " + (dir / "fbx").string());
    ASSERT_EQ(o.exit, 0) << o.output;
  }
  void TearDown() override { fs::remove_all(dir); }
  fs::path Plain() const { return dir / "fbx/corvane_plain/corvane_plain.fbx"; }
  fs::path Textured() const { return dir / "fbx/corvane_textured/corvane_textured.fbx"; }
  fs::path dir;
};

// What the Corvane sets imply (through the Corvane-to-OBJ mapping that FBX takes): plain: base
// colour 0.9 x (0.8, 0.3, 0.2), metal 0.6, roughness 0.35, emission 0.5 x (1, 0.5, 0.25), opacity
// 0.7; textured: the checker as base colour, the ramp as roughness, the normal map, emission
// 3 x (0.2, 0.4, 0.1) = (0.6, 1.2, 0.3).

TEST_F(FbxReaders, DefaultOutputIsBinaryAndAssimpSeesEmissionDiffuseOpacityAndTextures) {
  std::ifstream in(Plain(), std::ios::binary);
  std::string head(23, '\0');
  in.read(head.data(), 23);
  EXPECT_EQ(head, std::string("Kaydara FBX Binary  \x00\x1a\x00", 23));

  Assimp::Importer importer;
  const aiScene* plain = importer.ReadFile(Plain().string(), 0);
  ASSERT_NE(plain, nullptr) << importer.GetErrorString();
  ASSERT_GE(plain->mNumMaterials, 1u);
  const aiMaterial& m = *plain->mMaterials[0];
  aiColor3D c;
  ASSERT_EQ(m.Get(AI_MATKEY_COLOR_DIFFUSE, c), aiReturn_SUCCESS);
  EXPECT_NEAR(c.r, 0.72, 1e-5);
  EXPECT_NEAR(c.g, 0.27, 1e-5);
  EXPECT_NEAR(c.b, 0.18, 1e-5);
  ASSERT_EQ(m.Get(AI_MATKEY_COLOR_EMISSIVE, c), aiReturn_SUCCESS);
  EXPECT_NEAR(c.r, 0.5, 1e-5);
  EXPECT_NEAR(c.g, 0.25, 1e-5);
  EXPECT_NEAR(c.b, 0.125, 1e-5);
  float opacity = 0;
  ASSERT_EQ(m.Get(AI_MATKEY_OPACITY, opacity), aiReturn_SUCCESS);
  EXPECT_NEAR(opacity, 0.7, 1e-5);
  EXPECT_GT(plain->mMeshes[0]->mNumFaces, 400u);

  const aiScene* textured = importer.ReadFile(Textured().string(), 0);
  ASSERT_NE(textured, nullptr) << importer.GetErrorString();
  const aiMaterial& t = *textured->mMaterials[0];
  aiString file;
  ASSERT_EQ(t.GetTexture(aiTextureType_DIFFUSE, 0, &file), aiReturn_SUCCESS);
  EXPECT_STREQ(file.C_Str(), "corvane_textured_diffuse_color.png");
  ASSERT_EQ(t.GetTexture(aiTextureType_NORMALS, 0, &file), aiReturn_SUCCESS);
  EXPECT_STREQ(file.C_Str(), "corvane_textured_normal_map.png");
  ASSERT_EQ(t.Get(AI_MATKEY_COLOR_EMISSIVE, c), aiReturn_SUCCESS);  // colour x factor
  EXPECT_NEAR(c.r, 0.6, 1e-5);
  EXPECT_NEAR(c.g, 1.2, 1e-5);
  EXPECT_NEAR(c.b, 0.3, 1e-5);

  if (Missing("assimp")) GTEST_SKIP() << "assimp-utils is not installed (scripts/setup.sh installs it)";
  const auto info = Sh("assimp info " + Textured().string());
  EXPECT_EQ(info.exit, 0) << info.output;
  EXPECT_NE(info.output.find("corvane_textured_diffuse_color.png"), std::string::npos) << info.output;
}

TEST_F(FbxReaders, BlenderReadsThePrincipledValuesTheSetImplies) {
  if (Missing("blender")) GTEST_SKIP() << "blender is not installed (scripts/setup.sh installs it)";
  const Json plain = BlenderProbe(Plain())["materials"]["corvane_plain"];
  ASSERT_TRUE(plain.is_object()) << plain.dump();
  const auto& in = plain["inputs"];
  ExpectNear(in["Base Color"], {0.72, 0.27, 0.18}, 1e-3, "Base Color");
  EXPECT_NEAR(in["Metallic"].get<double>(), 0.6, 1e-3);
  EXPECT_NEAR(in["Roughness"].get<double>(), 0.35, 1e-3);
  EXPECT_NEAR(in["Alpha"].get<double>(), 0.7, 1e-3);
  ExpectNear(in["Emission"], {0.5, 0.25, 0.125}, 1e-3, "Emission");
  EXPECT_NEAR(in["Emission Strength"].get<double>(), 1.0, 1e-3);

  const Json textured = BlenderProbe(Textured())["materials"]["corvane_textured"];
  ASSERT_TRUE(textured.is_object()) << textured.dump();
  const auto& links = textured["links"];
  EXPECT_EQ(links["Base Color"]["image"], "corvane_textured_diffuse_color.png") << links.dump();
  EXPECT_EQ(links["Base Color"]["colorspace"], "sRGB") << links.dump();
  EXPECT_EQ(links["Base Color"]["size"], Json::array({8, 8}));
  EXPECT_EQ(links["Roughness"]["image"], "corvane_textured_roughness.png") << links.dump();
  EXPECT_EQ(links["Normal"]["image"], "corvane_textured_normal_map.png") << links.dump();
  EXPECT_NEAR(links["Normal"]["normal_strength"].get<double>(), 0.7, 1e-3);  // the set's normal weight
  // Emission (0.6, 1.2, 0.3) as a colour within [0, 1] and a strength.
  const auto& e = textured["inputs"];
  const double strength = e["Emission Strength"].get<double>();
  EXPECT_NEAR(strength, 1.2, 1e-3);
  ExpectNear(e["Emission"], {0.6 / strength, 1.2 / strength, 0.3 / strength}, 1e-3, "Emission");
}

TEST_F(FbxReaders, WholeSceneReadsBackInBlenderAndThreeJs) {
  const auto bundles = host::PortBundles::Builtin();
  ASSERT_TRUE(bundles.has_value());
  const auto scene = fbx_test::MakeScene();
  fs::create_directories(dir / "scene");
  auto written = host::formats::detail::WriteFbx(scene, (dir / "scene").string(), "scene", *bundles, {});
  ASSERT_TRUE(written.has_value()) << written.error().message;
  const fs::path file = dir / "scene/scene.fbx";

  const fs::path tools = fs::path(INTEROP_SOURCE_DIR) / "tools";
  if (fs::exists(tools / "node_modules/three") || std::getenv("CI") != nullptr) {
    const auto r = Sh("node " + (tools / "checks/read-three.mjs").string() + " " + file.string());
    ASSERT_EQ(r.exit, 0) << r.output;
    const auto at = r.output.find("{\"file\"");
    ASSERT_NE(at, std::string::npos) << r.output;
    const auto line = r.output.substr(at);
    const auto materials = Json::parse(line.substr(0, line.find('\n')))["materials"];
    std::set<std::string> names;
    for (const auto& m : materials) names.insert(m["name"].get<std::string>());
    EXPECT_EQ(names, (std::set<std::string>{"Brass", "Glass", "Paint"})) << r.output;
    for (const auto& m : materials) {
      if (m["name"] == "Glass") {
        ExpectNear(m["emissive"], {1.0, 0.5, 0.25}, 1e-5, "Glass emissive");  // x the intensity: (2, 1, 0.5)
        EXPECT_NEAR(m["emissiveIntensity"].get<double>(), 2.0, 1e-5);
        EXPECT_NEAR(m["opacity"].get<double>(), 0.6, 1e-5);
      }
      if (m["name"] == "Brass") {
        EXPECT_EQ(m["maps"]["map"], "Brass_diffuse_color.png") << m.dump();
      }
    }
  }

  if (Missing("blender")) GTEST_SKIP() << "blender is not installed (scripts/setup.sh installs it)";
  const Json probe = BlenderProbe(file);
  const auto& objects = probe["objects"];
  ASSERT_TRUE(objects.contains("Root") && objects.contains("Body") && objects.contains("Fin")) << objects.dump();
  EXPECT_TRUE(objects["Root"]["parent"].is_null());
  EXPECT_EQ(objects["Body"]["parent"], "Root");
  EXPECT_EQ(objects["Fin"]["parent"], "Body");
  // World transforms: the chain of local transforms, in metres (the file counts centimetres);
  // the file is Z up like Blender, so no axis turns.
  host::formats::Matrix4 world;
  for (std::size_t i = 0; i < 3; ++i) {
    world = world * scene.nodes[i].local;
    const auto& got = objects[scene.nodes[i].name]["world"];
    for (int row = 0; row < 3; ++row)
      for (int col = 0; col < 4; ++col)
        EXPECT_NEAR(got[row][col].get<double>(), 0.01 * world.m[static_cast<std::size_t>(col * 4 + row)], 1e-4)
            << scene.nodes[i].name << " row " << row << " col " << col;
  }
  // The material on each polygon: the strip's first square Brass, the second Glass.
  const auto polygons = objects["Body"]["polygon_materials"];
  ASSERT_EQ(polygons.size(), 4u) << objects["Body"].dump();
  EXPECT_EQ(polygons, Json::array({"Brass", "Brass", "Glass", "Glass"}));
  EXPECT_EQ(objects["Fin"]["polygon_materials"], Json::array({"Paint"}));
  const auto& glass = probe["materials"]["Glass"]["inputs"];
  ExpectNear(glass["Base Color"], {0.1, 0.15, 0.2}, 1e-3, "Glass base colour");
  EXPECT_NEAR(glass["Alpha"].get<double>(), 0.6, 1e-3);
  EXPECT_NEAR(glass["Roughness"].get<double>(), 0.3, 1e-3);
  ExpectNear(glass["Emission"], {1.0, 0.5, 0.25}, 1e-3, "Glass emission");
  EXPECT_NEAR(glass["Emission Strength"].get<double>(), 2.0, 1e-3);
  EXPECT_NEAR(probe["materials"]["Brass"]["inputs"]["Metallic"].get<double>(), 0.8, 1e-3);
  EXPECT_EQ(probe["materials"]["Brass"]["links"]["Base Color"]["size"], Json::array({4, 2}));
}

TEST_F(FbxReaders, AsciiOnRequestAndAMissingTextureImportsWithAWarning) {
  auto o = cli_test::Tool("convert " + (dir / "in/corvane_plain.json").string() + " --to fbx --fbx-ascii -o " +
                          (dir / "ascii").string());
  ASSERT_EQ(o.exit, 0) << o.output;
  std::ifstream in(dir / "ascii/corvane_plain/corvane_plain.fbx");
  std::string first;
  std::getline(in, first);
  EXPECT_EQ(first, "; FBX 7.4.0 project file");
  o = cli_test::Tool("import " + (dir / "ascii/corvane_plain/corvane_plain.fbx").string() + " --native -o " +
                     (dir / "ascii_back").string());
  ASSERT_EQ(o.exit, 0) << o.output;
  std::ifstream plain(dir / "ascii_back/corvane_plain.json");
  const Json back = Json::parse(plain);
  ExpectNear(back["parameters"]["emissiveColor"]["value"], {0.5, 0.25, 0.125}, 1e-5, "emission through ASCII");

  // The checker image is gone: the import goes on with the constant and says which texture.
  fs::remove(Textured().parent_path() / "corvane_textured_diffuse_color.png");
  o = cli_test::Tool("import " + Textured().string() + " --native -o " + (dir / "textured_back").string());
  ASSERT_EQ(o.exit, 0) << o.output;
  EXPECT_NE(o.output.find("DiffuseColor texture corvane_textured_diffuse_color.png cannot be read (no such file), "
                          "so its constant is used; NormalMap (strength 0.7): the generic model has no normal port"),
            std::string::npos)
      << o.output;
  std::ifstream textured(dir / "textured_back/corvane_textured.json");
  const Json t = Json::parse(textured);
  EXPECT_FALSE(t["parameters"]["diffuseColor"].contains("texture")) << t.dump();
  EXPECT_TRUE(t["parameters"]["shininess"].contains("texture")) << t.dump();  // the roughness ramp
}

}  // namespace
