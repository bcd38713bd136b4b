// glTF files as the field's tools read them: a scene written by the built library's host (loaded
// as the application loads it) as .gltf and .glb, checked by the Khronos validator and read by
// the three.js GLTFLoader (npm packages in tools/, installed by scripts/setup.sh); and the command
// line's preview files, whose textures must land the right way up.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <numbers>
#include <sstream>
#include <string>

#include "cli/files_support.h"
#include "cli/run_tool.h"
#include "host/formats/gltf_io.h"
#include "host/formats/gltf_scene_fixture.h"
#include "host/images.h"
#include "host/reference_host.h"

namespace fs = std::filesystem;
using Json = nlohmann::json;

namespace {

const fs::path kTools = fs::path(INTEROP_SOURCE_DIR) / "tools";

bool CheckersMissing() {
  if (fs::exists(kTools / "node_modules" / "gltf-validator") && fs::exists(kTools / "node_modules" / "three"))
    return false;
  return std::getenv("CI") == nullptr;
}

cli_test::Outcome Node(const std::string& script, const std::string& files) {
  return cli_test::Shell("node " + (kTools / "checks" / script).string() + " " + files);
}

std::vector<Json> Lines(const std::string& output) {
  std::vector<Json> out;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);)
    if (!line.empty() && line.front() == '{') out.push_back(Json::parse(line));
  return out;
}

class GltfFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = fs::temp_directory_path() / ("gltf_files_" + std::to_string(getpid()) + "_" +
                                       ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir);
    fs::create_directories(dir);
  }
  void TearDown() override { fs::remove_all(dir); }
  fs::path dir;
};

void ExpectNear(const Json& value, std::initializer_list<double> expected, double tolerance, const std::string& label) {
  ASSERT_TRUE(value.is_array() && value.size() == expected.size()) << label << ": " << value.dump();
  std::size_t i = 0;
  for (const double e : expected) EXPECT_NEAR(value[i++].get<double>(), e, tolerance) << label << ": " << value.dump();
}

const Json* Named(const Json& list, const std::string& name) {
  for (const auto& item : list)
    if (item["name"] == name) return &item;
  return nullptr;
}

TEST_F(GltfFiles, ValidatorAndThreeJsReadTheSceneAsWritten) {
  if (CheckersMissing()) GTEST_SKIP() << "run scripts/setup.sh to install the npm checkers";
  host::ReferenceHost host{host::HostOptions{.quiet = true}};
  auto loaded = host.Load(INTEROP_MODULE_PATH);
  ASSERT_TRUE(loaded.has_value()) << loaded.error().message;
  const auto scene = gltf_fixture::Scene();
  host::formats::WriteOptions options{};
  options.emissiveStrength = true;
  ASSERT_TRUE(host::formats::detail::WriteGltf(scene, dir.string(), "scene", host.bundles(), options).has_value());
  options.glb = true;
  ASSERT_TRUE(host::formats::detail::WriteGltf(scene, dir.string(), "scene", host.bundles(), options).has_value());
  const std::string files = (dir / "scene.gltf").string() + " " + (dir / "scene.glb").string();

  const auto validated = Node("validate-gltf.mjs", files);
  const auto reports = Lines(validated.output);
  ASSERT_EQ(reports.size(), 2u) << validated.output;
  for (const auto& report : reports) EXPECT_EQ(report["errors"], 0) << report.dump();
  EXPECT_EQ(validated.exit, 0) << validated.output;

  const auto read = Node("read-three-gltf.mjs", files);
  ASSERT_EQ(read.exit, 0) << read.output;
  const auto results = Lines(read.output);
  ASSERT_EQ(results.size(), 2u) << read.output;
  for (const auto& result : results) {
    const bool glb = result["file"].get<std::string>().ends_with(".glb");
    SCOPED_TRACE(glb ? "glb" : "gltf");
    // Materials as three.js built them from the file.
    const Json* painted = Named(result["materials"], "Painted");
    ASSERT_NE(painted, nullptr) << result["materials"].dump();
    ExpectNear((*painted)["color"], {0.9, 0.8, 0.7}, 1e-6, "color");
    EXPECT_NEAR((*painted)["metalness"].get<double>(), 0.6, 1e-6);
    EXPECT_NEAR((*painted)["roughness"].get<double>(), 0.4, 1e-6);
    ExpectNear((*painted)["emissive"], {1, 0.5, 0.25}, 1e-6, "emissive");
    EXPECT_NEAR((*painted)["emissiveIntensity"].get<double>(), 2.5, 1e-6);
    ExpectNear((*painted)["normalScale"], {0.7, 0.7}, 1e-6, "normalScale");
    EXPECT_NEAR((*painted)["aoMapIntensity"].get<double>(), 0.8, 1e-6);
    const auto& map = (*painted)["maps"]["map"];
    EXPECT_EQ(map["file"], glb ? "embedded" : "scene_Painted_baseColorTexture.png");
    EXPECT_EQ(map["flipY"], false);
    EXPECT_EQ(map["wrapS"], "CLAMP_TO_EDGE");
    EXPECT_EQ(map["wrapT"], "MIRRORED_REPEAT");
    EXPECT_EQ(map["magFilter"], "NEAREST");
    EXPECT_EQ(map["minFilter"], "LINEAR_MIPMAP_NEAREST");
    ExpectNear(map["offset"], {0.25, 0.5}, 1e-6, "offset");
    ExpectNear(map["repeat"], {2, 3}, 1e-6, "repeat");
    EXPECT_NEAR(map["rotation"].get<double>(), 0.3, 1e-6);
    for (const char* slot : {"metalnessMap", "roughnessMap", "emissiveMap", "normalMap", "aoMap"})
      EXPECT_TRUE((*painted)["maps"].contains(slot)) << slot;
    const Json* glass = Named(result["materials"], "Glass");
    ASSERT_NE(glass, nullptr);
    EXPECT_NEAR((*glass)["opacity"].get<double>(), 0.5, 1e-6);
    EXPECT_TRUE((*glass)["transparent"].get<bool>());
    const Json* leaf = Named(result["materials"], "Leaf");
    ASSERT_NE(leaf, nullptr);
    EXPECT_NEAR((*leaf)["alphaTest"].get<double>(), 0.3, 1e-6);
    ExpectNear((*leaf)["color"], {0.1, 0.7, 0.2}, 1e-6, "leaf color");

    // The sphere's top samples v = 0: the top rows of the image, which are red.
    bool sphere = false;
    for (const auto& mesh : result["meshes"])
      if (mesh["material"] == "Painted") {
        sphere = true;
        EXPECT_NEAR(mesh["topV"].get<double>(), 0.0, 1e-6);
        EXPECT_TRUE(mesh["hasTangents"].get<bool>());
      }
    EXPECT_TRUE(sphere) << result["meshes"].dump();

    // World transforms of the hierarchy, the lights and the cameras.
    const auto& objects = result["objects"];
    for (const int node : {0, 1, 2, 7, 8}) {
      const auto& name = scene.nodes[static_cast<std::size_t>(node)].name;
      const Json* object = Named(objects, name);
      ASSERT_NE(object, nullptr) << name << " in " << objects.dump();
      const auto world = gltf_fixture::World(scene, node);
      for (std::size_t k = 0; k < 16; ++k)
        EXPECT_NEAR((*object)["world"][k].get<double>(), world.m[k], 1e-5) << name << " " << k;
    }
    EXPECT_EQ((*Named(objects, "Ball"))["parent"], "Root");
    // The rectangle light is a spot opened to the half space with its on-axis intensity (50 nits
    // over 1 x 1: 50 cd); the punctual ones are as written.
    std::map<std::string, Json> lights;
    for (const auto& light : result["lights"])
      lights[light["name"] == "WindowNode" ? "Window" : light["type"].get<std::string>()] = light;
    ASSERT_EQ(lights.size(), 4u) << result["lights"].dump();
    EXPECT_EQ(lights["Window"]["type"], "SpotLight");
    EXPECT_NEAR(lights["Window"]["intensity"].get<double>(), 50, 1e-9);
    EXPECT_NEAR(lights["Window"]["angle"].get<double>(), std::numbers::pi / 2, 1e-9);
    EXPECT_NEAR(lights["Window"]["penumbra"].get<double>(), 1, 1e-9);
    EXPECT_NEAR(lights["PointLight"]["intensity"].get<double>(), 120, 1e-9);
    EXPECT_NEAR(lights["PointLight"]["distance"].get<double>(), 7.5, 1e-9);
    ExpectNear(lights["PointLight"]["color"], {1, 0.9, 0.8}, 1e-6, "point colour");
    EXPECT_NEAR(lights["SpotLight"]["intensity"].get<double>(), 800, 1e-9);
    EXPECT_NEAR(lights["SpotLight"]["angle"].get<double>(), 0.5, 1e-9);
    EXPECT_NEAR(lights["SpotLight"]["penumbra"].get<double>(), 1 - 0.2 / 0.5, 1e-9);
    EXPECT_NEAR(lights["DirectionalLight"]["intensity"].get<double>(), 3.5, 1e-9);
    ASSERT_EQ(result["cameras"].size(), 2u);
    for (const auto& camera : result["cameras"]) {
      if (camera["type"] == "PerspectiveCamera") {
        EXPECT_NEAR(camera["fov"].get<double>(), 0.8 * 180 / std::numbers::pi, 1e-6);
        EXPECT_NEAR(camera["aspect"].get<double>(), 1.6, 1e-9);
        EXPECT_NEAR(camera["near"].get<double>(), 0.05, 1e-9);
        EXPECT_NEAR(camera["far"].get<double>(), 250, 1e-9);
      } else {
        EXPECT_NEAR(camera["top"].get<double>(), 3, 1e-9);
        EXPECT_NEAR(camera["right"].get<double>(), 6, 1e-9);
      }
    }
  }
}

/// The command line's preview sphere: three.js samples the top rows of the image at the sphere's
/// north pole, and those rows hold the top of the source texture. A .glb with embedded images
/// imports through the command line.
TEST_F(GltfFiles, PreviewTexturesLandTheRightWayUpAndEmbeddedImagesImport) {
  files_test::WriteCorvaneInputs(dir / "in");
  // The checker's top row made distinct: pure red across.
  auto checker = host::ReadImage((dir / "in" / "checker.png").string(), true);
  ASSERT_TRUE(checker.has_value());
  for (int x = 0; x < 8; ++x) {
    float* p = checker->_pixels->Pixel(static_cast<std::size_t>(x));
    p[0] = 1, p[1] = 0, p[2] = 0;
  }
  ASSERT_TRUE(host::WriteImage((dir / "in" / "checker.png").string(), *checker, {.srgb = true}).has_value());
  auto o = cli_test::Tool("convert " + (dir / "in" / "corvane_textured.json").string() + " --to gltf -o " +
                          (dir / "out").string());
  ASSERT_EQ(o.exit, 0) << o.output;
  const fs::path gltf = dir / "out" / "corvane_textured" / "corvane_textured.gltf";
  auto image = host::ReadImage((gltf.parent_path() / "corvane_textured_baseColorTexture.png").string(), true);
  ASSERT_TRUE(image.has_value());
  for (int x = 0; x < 8; ++x) {
    EXPECT_NEAR(image->_pixels->Pixel(static_cast<std::size_t>(x))[0], 1.0, 2e-3);
    EXPECT_NEAR(image->_pixels->Pixel(static_cast<std::size_t>(x))[1], 0.0, 2e-3);
  }
  if (!CheckersMissing()) {
    const auto read = Node("read-three-gltf.mjs", gltf.string());
    ASSERT_EQ(read.exit, 0) << read.output;
    const auto result = Lines(read.output);
    ASSERT_EQ(result.size(), 1u);
    ASSERT_EQ(result[0]["meshes"].size(), 1u);
    EXPECT_NEAR(result[0]["meshes"][0]["topV"].get<double>(), 0.0, 1e-6);
    const auto validated = Node("validate-gltf.mjs", gltf.string());
    EXPECT_EQ(validated.exit, 0) << validated.output;
  }

  host::ReferenceHost host{host::HostOptions{.quiet = true}};
  ASSERT_TRUE(host.Load(INTEROP_MODULE_PATH).has_value());
  host::formats::WriteOptions options{};
  options.glb = true;
  ASSERT_TRUE(host::formats::detail::WriteGltf(gltf_fixture::Scene(), dir.string(), "scene", host.bundles(), options));
  o = cli_test::Tool("import " + (dir / "scene.glb").string() + " --json -o " + (dir / "imported").string());
  ASSERT_EQ(o.exit, 0) << o.output;
  for (const char* name : {"Painted", "Glass", "Leaf"})
    EXPECT_TRUE(fs::exists(dir / "imported" / (std::string(name) + ".json"))) << o.output;
}

}  // namespace
