// vexinterop convert and import end to end, checked by readers that are not ours: the Khronos
// glTF validator and the three.js OBJ/MTL and FBX loaders (npm packages in tools/, installed by
// scripts/setup.sh), and a parse of the .usda text.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <string>

#include <nlohmann/json.hpp>

#include "files_support.h"
#include "run_tool.h"

namespace fs = std::filesystem;
using Json = nlohmann::json;

namespace {

using Run = cli_test::Outcome;
using cli_test::Shell;
using cli_test::Tool;

const fs::path kTools = fs::path(INTEROP_SOURCE_DIR) / "tools";

/// The npm checkers are installed by scripts/setup.sh; CI must have them, a developer's tree may not.
bool CheckersMissing() {
  if (fs::exists(kTools / "node_modules" / "gltf-validator") && fs::exists(kTools / "node_modules" / "three"))
    return false;
  return std::getenv("CI") == nullptr;
}

Run Node(const std::string& script, const std::string& files) {
  return Shell("node " + (kTools / "checks" / script).string() + " " + files);
}

class Files : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = fs::temp_directory_path() / ("vexinterop_files_" + std::to_string(getpid()) + "_" +
                                       ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir);
    files_test::WriteCorvaneInputs(dir / "in");
  }
  void TearDown() override { fs::remove_all(dir); }
  std::string In(const char* name) const { return (dir / "in" / name).string(); }
  std::string Out(const std::string& name) const { return (dir / name).string(); }
  Json ReadJson(const fs::path& path) const {
    std::ifstream in(path);
    return Json::parse(in);
  }
  fs::path dir;
};

void ExpectColor(const Json& value, double r, double g, double b, double tolerance = 1e-5) {
  ASSERT_TRUE(value.is_array() && value.size() >= 3) << value.dump();
  EXPECT_NEAR(value[0].get<double>(), r, tolerance) << value.dump();
  EXPECT_NEAR(value[1].get<double>(), g, tolerance) << value.dump();
  EXPECT_NEAR(value[2].get<double>(), b, tolerance) << value.dump();
}

/// No scratch folder of a failed or finished run is left anywhere under `root`.
void ExpectNoScratch(const fs::path& root) {
  if (!fs::exists(root)) return;
  for (const auto& entry : fs::recursive_directory_iterator(root))
    EXPECT_EQ(entry.path().filename().string().find(".vexinterop-partial-"), std::string::npos) << entry.path();
}

TEST_F(Files, EveryWrittenGltfPassesTheKhronosValidator) {
  if (CheckersMissing()) GTEST_SKIP() << "run scripts/setup.sh to install the npm checkers";
  auto o = Tool("convert " + In("corvane_plain.json") + " " + In("corvane_textured.json") + " --to gltf -o " +
                Out("gltf"));
  ASSERT_EQ(o.exit, 0) << o.output;
  EXPECT_NE(o.output.find("converted 2 of 2 to gltf"), std::string::npos) << o.output;
  o = Tool("convert " + In("corvane_textured.json") + " --to gltf --emissive-strength -o " + Out("strength"));
  ASSERT_EQ(o.exit, 0) << o.output;
  const std::string files = Out("gltf/corvane_plain/corvane_plain.gltf") + " " +
                            Out("gltf/corvane_textured/corvane_textured.gltf") + " " +
                            Out("strength/corvane_textured/corvane_textured.gltf");
  const auto v = Node("validate-gltf.mjs", files);
  EXPECT_EQ(v.exit, 0) << v.output;
  std::istringstream lines(v.output);
  int reports = 0;
  for (std::string line; std::getline(lines, line);) {
    const auto report = Json::parse(line);
    EXPECT_EQ(report["errors"], 0) << line;
    ++reports;
  }
  EXPECT_EQ(reports, 3);

  // The emission of 3 x (0.2, 0.4, 0.1): clamped by default, kept with the extension on request.
  const auto clamped = ReadJson(Out("gltf/corvane_textured/corvane_textured.gltf"));
  ExpectColor(clamped["materials"][0]["emissiveFactor"], 0.2, 0.4, 0.1);
  EXPECT_FALSE(clamped.contains("extensionsUsed"));
  const auto kept = ReadJson(Out("strength/corvane_textured/corvane_textured.gltf"));
  const auto& m = kept["materials"][0];
  ExpectColor(m["emissiveFactor"], 0.5, 1.0, 0.25);
  EXPECT_NEAR(m["extensions"]["KHR_materials_emissive_strength"]["emissiveStrength"].get<double>(), 1.2, 1e-9);
  EXPECT_EQ(kept["extensionsUsed"][0], "KHR_materials_emissive_strength");
  EXPECT_NEAR(m["normalTexture"]["scale"].get<double>(), 0.7, 1e-9);
  for (const char* image : {"corvane_textured_baseColorTexture.png", "corvane_textured_metallicRoughnessTexture.png",
                            "corvane_textured_normalTexture.png"})
    EXPECT_TRUE(fs::exists(Out("strength/corvane_textured/") + image)) << image;
  ExpectNoScratch(dir);
}

TEST_F(Files, ObjAndFbxReadBackWithTheThreeJsLoaders) {
  if (CheckersMissing()) GTEST_SKIP() << "run scripts/setup.sh to install the npm checkers";
  for (const char* format : {"obj", "fbx"}) {
    const auto o = Tool("convert " + In("corvane_plain.json") + " " + In("corvane_textured.json") + " --to " + format +
                        " -o " + Out(format));
    ASSERT_EQ(o.exit, 0) << o.output;
    const std::string base = Out(format);
    const auto r = Node("read-three.mjs", base + "/corvane_plain/corvane_plain." + format + " " + base +
                                              "/corvane_textured/corvane_textured." + format);
    ASSERT_EQ(r.exit, 0) << r.output;
    // One JSON line per file; the loaders' own notes ("THREE.FBXLoader: ...") are skipped.
    std::istringstream lines(r.output);
    std::vector<std::string> json;
    for (std::string line; std::getline(lines, line);)
      if (line.rfind('{', 0) == 0) json.push_back(line);
    ASSERT_EQ(json.size(), 2u) << r.output;
    const std::string plainLine = json[0], texturedLine = json[1];
    const auto plain = Json::parse(plainLine)["materials"];
    ASSERT_EQ(plain.size(), 1u) << plainLine;
    // Base colour 0.9 x (0.8, 0.3, 0.2), emission 0.5 x (1, 0.5, 0.25), opacity 0.7.
    ExpectColor(plain[0]["color"], 0.72, 0.27, 0.18);
    ExpectColor(plain[0]["emissive"], 0.5, 0.25, 0.125);
    EXPECT_NEAR(plain[0]["opacity"].get<double>(), 0.7, 1e-5) << format;
    EXPECT_TRUE(plain[0]["transparent"].get<bool>()) << format;
    const auto textured = Json::parse(texturedLine)["materials"];
    ASSERT_EQ(textured.size(), 1u) << texturedLine;
    ExpectColor(textured[0]["color"], 1, 1, 1);
    EXPECT_EQ(textured[0]["maps"]["map"], "corvane_textured_diffuse_color.png") << format;
    EXPECT_EQ(textured[0]["maps"]["normalMap"], "corvane_textured_normal_map.png") << format;
  }
  // The PBR statements three.js does not read, from the MTL text itself.
  std::ifstream mtl(Out("obj/corvane_plain/corvane_plain.mtl"));
  const std::string text((std::istreambuf_iterator<char>(mtl)), {});
  EXPECT_NE(text.find("\nPm 0.6\n"), std::string::npos) << text;
  EXPECT_NE(text.find("\nPr 0.35\n"), std::string::npos) << text;
  std::ifstream texturedMtl(Out("obj/corvane_textured/corvane_textured.mtl"));
  const std::string texturedText((std::istreambuf_iterator<char>(texturedMtl)), {});
  EXPECT_NE(texturedText.find("\nmap_Pr corvane_textured_roughness.png\n"), std::string::npos) << texturedText;
}

/// The .usda of the textured set, read back: every prim and its attributes.
TEST_F(Files, UsdaParsesBackWithTheSchemaNamesAndWiring) {
  auto o = Tool("convert " + In("corvane_plain.json") + " " + In("corvane_textured.json") + " --to usd -o " +
                Out("usd"));
  ASSERT_EQ(o.exit, 0) << o.output;
  const auto parse = files_test::ParseUsda;
  const auto plain = parse(Out("usd/corvane_plain/corvane_plain.usda"));
  const auto& surface = plain.at("/corvane_plain/Materials/corvane_plain/PreviewSurface");
  EXPECT_EQ(surface.at("info:id"), "\"UsdPreviewSurface\"");
  EXPECT_EQ(surface.at("inputs:diffuseColor"), "(0.8, 0.3, 0.2)");
  EXPECT_NEAR(std::stod(surface.at("inputs:metallic")), 0.6, 1e-9);
  EXPECT_NEAR(std::stod(surface.at("inputs:roughness")), 0.35, 1e-9);
  EXPECT_NEAR(std::stod(surface.at("inputs:opacity")), 0.7, 1e-9);
  EXPECT_EQ(surface.at("inputs:useSpecularWorkflow"), "0");
  EXPECT_EQ(plain.at("/corvane_plain/Materials/corvane_plain").at("outputs:surface.connect"),
            "</corvane_plain/Materials/corvane_plain/PreviewSurface.outputs:surface>");
  EXPECT_EQ(plain.at("/corvane_plain/corvane_plain/PreviewSphere").at("material:binding"),
            "</corvane_plain/Materials/corvane_plain>");

  const auto textured = parse(Out("usd/corvane_textured/corvane_textured.usda"));
  const std::string material = "/corvane_textured/Materials/corvane_textured";
  const auto& s = textured.at(material + "/PreviewSurface");
  EXPECT_EQ(s.at("inputs:diffuseColor.connect"), "<" + material + "/diffuseColorTexture.outputs:rgb>");
  EXPECT_EQ(s.at("inputs:roughness.connect"), "<" + material + "/roughnessTexture.outputs:r>");
  EXPECT_EQ(s.at("inputs:normal.connect"), "<" + material + "/normalTexture.outputs:rgb>");
  const auto& diffuse = textured.at(material + "/diffuseColorTexture");
  EXPECT_EQ(diffuse.at("info:id"), "\"UsdUVTexture\"");
  EXPECT_EQ(diffuse.at("inputs:file"), "@./corvane_textured_diffuseColor.png@");
  EXPECT_EQ(diffuse.at("inputs:sourceColorSpace"), "\"sRGB\"");
  EXPECT_EQ(diffuse.at("inputs:st.connect"), "<" + material + "/stReader.outputs:result>");
  EXPECT_EQ(textured.at(material + "/roughnessTexture").at("inputs:sourceColorSpace"), "\"raw\"");
  EXPECT_EQ(textured.at(material + "/normalTexture").at("inputs:scale"), "(2, 2, 2, 1)");
  EXPECT_EQ(textured.at(material + "/normalTexture").at("inputs:bias"), "(-1, -1, -1, 0)");
  EXPECT_EQ(textured.at(material + "/stReader").at("inputs:varname"), "\"st\"");
  for (const char* image : {"diffuseColor", "roughness", "normal"})
    EXPECT_TRUE(fs::exists(Out("usd/corvane_textured/corvane_textured_") + image + ".png")) << image;
}

TEST_F(Files, CorvaneSetsSurviveTheRoundTripThroughGltf) {
  auto o = Tool("convert " + In("corvane_plain.json") + " " + In("corvane_textured.json") + " --to gltf -o " +
                Out("gltf"));
  ASSERT_EQ(o.exit, 0) << o.output;
  o = Tool("import " + Out("gltf/corvane_plain/corvane_plain.gltf") + " --json -o " + Out("back"));
  ASSERT_EQ(o.exit, 0) << o.output;
  o = Tool("import " + Out("gltf/corvane_textured/corvane_textured.gltf") + " --json -o " + Out("back"));
  ASSERT_EQ(o.exit, 0) << o.output;
  const auto plain = ReadJson(Out("back/corvane_plain.json"));
  ASSERT_EQ(plain["bundle"], "net.kelvo.material.portbundle.corvane");
  const auto& p = plain["parameters"];
  ExpectColor(p["diffuse_color"]["value"], 0.72, 0.27, 0.18);  // weight x colour
  EXPECT_NEAR(p["metalness"]["value"].get<double>(), 0.6, 1e-9);
  EXPECT_NEAR(p["reflection_roughness"]["value"].get<double>(), 0.35, 1e-9);
  ExpectColor(p["emission_color"]["value"], 0.5, 0.25, 0.125);  // with weight 1
  EXPECT_EQ(p["emission_weight"]["value"], 1.0);
  ExpectColor(p["opacity"]["value"], 0.7, 0.7, 0.7);
  const auto textured = ReadJson(Out("back/corvane_textured.json"))["parameters"];
  EXPECT_NEAR(textured["overall_normal_weight"]["value"].get<double>(), 0.7, 1e-9);
  EXPECT_TRUE(textured["overall_normal"].contains("texture"));
  EXPECT_TRUE(textured["diffuse_color"].contains("texture"));
  EXPECT_EQ(textured["reflection_roughness"]["properties"]["channelSelect"], "g");
  // Emission above 1 comes back whole from the emissive-strength extension: 3 x (0.2, 0.4, 0.1).
  o = Tool("convert " + In("corvane_textured.json") + " --to gltf --emissive-strength -o " + Out("strong"));
  ASSERT_EQ(o.exit, 0) << o.output;
  o = Tool("import " + Out("strong/corvane_textured/corvane_textured.gltf") + " --json -o " + Out("strong_back"));
  ASSERT_EQ(o.exit, 0) << o.output;
  ExpectColor(ReadJson(Out("strong_back/corvane_textured.json"))["parameters"]["emission_color"]["value"], 0.6, 1.2,
              0.3);
  ExpectNoScratch(dir);
}

TEST_F(Files, ObjAndFbxCarryTheirPortsBackIntoTheirBundles) {
  for (const char* format : {"obj", "fbx"}) {
    // Assimp, the FBX reader, reads the ASCII form back.
    const std::string ascii = std::string(format) == "fbx" ? " --fbx-ascii" : "";
    auto o = Tool("convert " + In("corvane_plain.json") + " --to " + std::string(format) + ascii + " -o " + Out(format));
    ASSERT_EQ(o.exit, 0) << o.output;
    o = Tool("import " + Out(format) + "/corvane_plain/corvane_plain." + format + " --native -o " +
             Out(std::string("back_") + format));
    ASSERT_EQ(o.exit, 0) << o.output;
  }
  const auto obj = ReadJson(Out("back_obj/corvane_plain.json"));
  EXPECT_EQ(obj["bundle"], "net.kelvo.material.portbundle.obj");
  ExpectColor(obj["parameters"]["diffuse_color"]["value"], 0.72, 0.27, 0.18);
  EXPECT_NEAR(obj["parameters"]["metallic"]["value"].get<double>(), 0.6, 1e-6);
  EXPECT_NEAR(obj["parameters"]["roughness"]["value"].get<double>(), 0.35, 1e-6);
  EXPECT_NEAR(obj["parameters"]["opacity"]["value"].get<double>(), 0.7, 1e-6);
  ExpectColor(obj["parameters"]["emissive_color"]["value"], 0.5, 0.25, 0.125);
  const auto fbx = ReadJson(Out("back_fbx/corvane_plain.json"));
  EXPECT_EQ(fbx["bundle"], "net.kelvo.material.portbundle.generic");
  ExpectColor(fbx["parameters"]["diffuseColor"]["value"], 0.72, 0.27, 0.18);
  ExpectColor(fbx["parameters"]["emissiveColor"]["value"], 0.5, 0.25, 0.125);
  ExpectColor(fbx["parameters"]["opacityColor"]["value"], 0.7, 0.7, 0.7);
  EXPECT_NEAR(fbx["parameters"]["shininess"]["value"].get<double>(), 0.35, 1e-5);  // the Phong exponent undone
}

TEST_F(Files, TexturesFitTheLimitAndTheReportSaysWhatEachPortBecame) {
  auto o = Tool("convert " + In("corvane_textured.json") + " " + In("corvane_plain.json") +
                " --to gltf --max-texture-size 5 --pot --report " + Out("report.json") + " -o " + Out("small"));
  ASSERT_EQ(o.exit, 0) << o.output;
  // 8x8 sources: at most 5 gives 5x5, the nearest power of two 4x4.
  auto image = host::ReadImage(Out("small/corvane_textured/corvane_textured_baseColorTexture.png"), true);
  ASSERT_TRUE(image.has_value());
  EXPECT_EQ(image->_dimensions, (vex::Dimensions{4, 4}));
  const auto report = ReadJson(Out("report.json"));
  EXPECT_EQ(report["format"], "gltf");
  ASSERT_EQ(report["materials"].size(), 2u);
  const auto& textured = report["materials"][0];
  EXPECT_EQ(textured["input"], In("corvane_textured.json"));
  EXPECT_TRUE(textured["mapped"].get<bool>());
  EXPECT_EQ(textured["ports"]["baseColorTexture"]["file"], "corvane_textured_baseColorTexture.png");
  EXPECT_EQ(textured["ports"]["baseColorTexture"]["texture"]["width"], 4);
  EXPECT_NEAR(textured["ports"]["normalScale"]["value"].get<double>(), 0.7, 1e-12);
  EXPECT_EQ(textured["resized"].size(), 3u);
  ASSERT_EQ(textured["warnings"].size(), 1u) << textured.dump();
  EXPECT_EQ(textured["warnings"][0], "material 'corvane_textured': emission strength 3 left out, the factor written as the set "
                                    "has it (--emissive-strength keeps it)");
  EXPECT_EQ(report["materials"][1]["ports"]["metallicFactor"]["value"], 0.6);

  o = Tool("convert " + In("corvane_plain.json") + " --to usd --report " + Out("report.md") + " -o " + Out("md"));
  ASSERT_EQ(o.exit, 0) << o.output;
  std::ifstream md(Out("report.md"));
  const std::string text((std::istreambuf_iterator<char>(md)), {});
  EXPECT_NE(text.find("| metallic | 0.6 |  |"), std::string::npos) << text;
}

TEST_F(Files, BrokenInputsFailClearlyAndLeaveNoOutput) {
  // A missing texture: the one bad input fails, the good one lands, the summary says so.
  std::ofstream(dir / "in" / "missing.json") << R"({"bundle": "net.kelvo.material.portbundle.corvane",
    "parameters": {"diffuse_color": {"type": "Color", "value": [1, 1, 1], "texture": "nowhere.png"}}})";
  std::ofstream(dir / "in" / "unknown.json") << R"({"bundle": "com.example.nobundle", "parameters": {}})";
  auto o = Tool("convert " + In("corvane_plain.json") + " " + In("missing.json") + " --to gltf -o " + Out("mixed"));
  EXPECT_EQ(o.exit, 1) << o.output;
  EXPECT_NE(o.output.find("converted 1 of 2 to gltf"), std::string::npos) << o.output;
  EXPECT_NE(o.output.find("missing.json"), std::string::npos) << o.output;
  EXPECT_TRUE(fs::exists(Out("mixed/corvane_plain/corvane_plain.gltf")));
  EXPECT_FALSE(fs::exists(Out("mixed/missing")));
  ExpectNoScratch(dir);

  // Nothing converts: the output directory this run created is gone again.
  o = Tool("convert " + In("missing.json") + " " + In("unknown.json") + " --to obj -o " + Out("none"));
  EXPECT_EQ(o.exit, 1) << o.output;
  EXPECT_NE(o.output.find("com.example.nobundle"), std::string::npos) << o.output;
  EXPECT_FALSE(fs::exists(Out("none")));
  o = Tool("convert " + In("corvane_plain.json") + " --to stl -o " + Out("stl"));
  EXPECT_EQ(o.exit, 1) << o.output;
  EXPECT_NE(o.output.find("expected gltf, glb, usd, obj, fbx"), std::string::npos) << o.output;

  // An unreadable file to import, and an import into a scene, which needs the material importer.
  std::ofstream(dir / "in" / "broken.gltf") << "{\"asset\": ";
  o = Tool("import " + In("broken.gltf") + " --json -o " + Out("imported"));
  EXPECT_EQ(o.exit, 1) << o.output;
  EXPECT_NE(o.output.find("broken.gltf:1:11: not valid JSON: unexpected end of text"), std::string::npos) << o.output;
  EXPECT_FALSE(fs::exists(Out("imported")));
  o = Tool("convert " + In("corvane_plain.json") + " --to obj -o " + Out("obj"));
  ASSERT_EQ(o.exit, 0) << o.output;
  // A scene that cannot be written (its folder would be a file) fails and leaves nothing.
  const std::string blocked = Out("obj/corvane_plain/corvane_plain.mtl") + "/scene.vex";
  o = Tool("import " + Out("obj/corvane_plain/corvane_plain.obj") + " -o " + blocked);
  EXPECT_EQ(o.exit, 1) << o.output;
  EXPECT_NE(o.output.find("scene.vex"), std::string::npos) << o.output;
  EXPECT_FALSE(fs::exists(blocked));
  ExpectNoScratch(dir);
}

}  // namespace

namespace {

TEST_F(Files, ObjReachesCorvaneThroughTheImporterAndFilesImportIntoScenes) {
  auto o = Tool("convert " + In("corvane_plain.json") + " --to obj -o " + Out("obj"));
  ASSERT_EQ(o.exit, 0) << o.output;
  o = Tool("import " + Out("obj/corvane_plain/corvane_plain.obj") + " --json -o " + Out("back"));
  ASSERT_EQ(o.exit, 0) << o.output;
  const auto back = ReadJson(Out("back/corvane_plain.json"));
  ASSERT_EQ(back["bundle"], "net.kelvo.material.portbundle.corvane");
  ExpectColor(back["parameters"]["diffuse_color"]["value"], 0.72, 0.27, 0.18);
  EXPECT_NEAR(back["parameters"]["metalness"]["value"].get<double>(), 0.6, 1e-6);
  EXPECT_NEAR(back["parameters"]["reflection_roughness"]["value"].get<double>(), 0.35, 1e-6);

  // Without --json the materials become Corvane node materials of a new scene, which exports again.
  o = Tool("convert " + In("corvane_textured.json") + " --to gltf -o " + Out("gltf"));
  ASSERT_EQ(o.exit, 0) << o.output;
  o = Tool("import " + Out("gltf/corvane_textured/corvane_textured.gltf") + " -o " + Out("scene/imported.vex"));
  ASSERT_EQ(o.exit, 0) << o.output;
  ASSERT_TRUE(fs::exists(Out("scene/imported.vex")));
  const auto scene = ReadJson(Out("scene/imported.vex"));
  ASSERT_TRUE(scene.contains("materials")) << scene.dump().substr(0, 400);
  o = Tool("export " + Out("scene/imported.vex") + " --to usd --texture-size 64 -o " + Out("usd"));
  ASSERT_EQ(o.exit, 0) << o.output;
  EXPECT_NE(o.output.find("exported 1 of 1 materials"), std::string::npos) << o.output;

  // A file with no such material and an unreadable file fail without leaving a scene behind.
  o = Tool("import " + Out("missing.gltf") + " -o " + Out("none/none.vex"));
  EXPECT_NE(o.exit, 0);
  EXPECT_FALSE(fs::exists(Out("none/none.vex")));
  ExpectNoScratch(dir);
}

TEST_F(Files, SceneMaterialsExportToEveryFormat) {
  const std::string scene = (fs::path(INTEROP_SOURCE_DIR) / "examples" / "materials_scene.vex").string();
  for (const char* format : {"gltf", "usd", "obj", "fbx"}) {
    const auto o = Tool("export " + scene + " --to " + format + " --texture-size 32 -o " + Out(format));
    ASSERT_EQ(o.exit, 0) << format << ": " << o.output;
    EXPECT_NE(o.output.find("exported 7 of 7 materials"), std::string::npos) << o.output;
  }
  EXPECT_TRUE(fs::exists(Out("gltf/Wood/Wood.gltf")));
  EXPECT_TRUE(fs::exists(Out("obj/Viewport_Metal/Viewport_Metal.mtl")));
  const auto o = Tool("export " + scene + " --to gltf --material Nope -o " + Out("nope"));
  EXPECT_EQ(o.exit, 1);
  EXPECT_NE(o.output.find("no material named \"Nope\""), std::string::npos) << o.output;
  EXPECT_FALSE(fs::exists(Out("nope")));
  if (CheckersMissing()) return;
  const auto checked = Node("validate-gltf.mjs", Out("gltf") + "/*/*.gltf");
  EXPECT_EQ(checked.exit, 0) << checked.output;
  EXPECT_EQ(checked.output.find("\"errors\":1"), std::string::npos) << checked.output;
}

}  // namespace
