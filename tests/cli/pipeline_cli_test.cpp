// The file pipeline through vexinterop: the catalogue's format list, output that is whole or
// absent (reports included), batches that keep what succeeded, USD without unasked
// displacement, scene materials that reach every format with their emission and colours, and
// import -> export -> import round trips through glTF, OBJ and FBX.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>

#include <nlohmann/json.hpp>

#include "files_support.h"
#include "host/images.h"
#include "run_tool.h"

namespace fs = std::filesystem;
using Json = nlohmann::json;
using cli_test::Tool;

namespace {

std::string Read(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

class Pipeline : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = fs::temp_directory_path() / ("vexinterop_pipeline_" + std::to_string(getpid()) + "_" +
                                       ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir);
    files_test::WriteCorvaneInputs(dir / "in");
    std::ofstream(dir / "in" / "missing.json") << R"({"bundle": "net.kelvo.material.portbundle.corvane",
      "parameters": {"diffuse_color": {"type": "Color", "value": [1, 1, 1], "texture": "nowhere.png"}}})";
  }
  void TearDown() override { fs::remove_all(dir); }
  std::string In(const char* name) const { return (dir / "in" / name).string(); }
  std::string Out(const std::string& name) const { return (dir / name).string(); }
  void ExpectNoScratch() const {
    for (const auto& entry : fs::recursive_directory_iterator(dir))
      EXPECT_EQ(entry.path().filename().string().find(".vexinterop-partial-"), std::string::npos) << entry.path();
  }
  fs::path dir;
};

TEST_F(Pipeline, TheFormatListIsTheCatalogues) {
  const auto listed = Tool("formats");
  ASSERT_EQ(listed.exit, 0) << listed.output;
  std::vector<std::string> names;
  std::istringstream lines(listed.output);
  for (std::string line; std::getline(lines, line);) names.push_back(line.substr(0, line.find('\t')));
  EXPECT_EQ(names, (std::vector<std::string>{"gltf", "glb", "usd", "obj", "fbx"}));
  const auto help = Tool("convert --help");
  EXPECT_NE(help.output.find("Format: gltf, glb, usd, obj, fbx"), std::string::npos) << help.output;
  const auto wrong = Tool("convert " + In("corvane_plain.json") + " --to ply -o " + Out("x"));
  EXPECT_NE(wrong.exit, 0);
  EXPECT_NE(wrong.output.find("--to ply: expected gltf, glb, usd, obj, fbx"), std::string::npos) << wrong.output;
  EXPECT_FALSE(fs::exists(Out("x")));
}

TEST_F(Pipeline, ABatchKeepsWhatSucceededAndAFailedRunLeavesNothingNotEvenItsReport) {
  // One bad input: the good one lands, the summary names it, the report (of a failed run) is not
  // written, and the exit code says a failure happened.
  auto o = Tool("convert " + In("corvane_plain.json") + " " + In("missing.json") + " --to obj --report " +
                Out("reports/deep/report.json") + " -o " + Out("batch/obj"));
  EXPECT_EQ(o.exit, 1) << o.output;
  EXPECT_NE(o.output.find("converted 1 of 2 to obj in " + Out("batch/obj") + ", 1 failed; kept: corvane_plain"),
            std::string::npos)
      << o.output;
  EXPECT_TRUE(fs::exists(Out("batch/obj/corvane_plain/corvane_plain.obj")));
  EXPECT_FALSE(fs::exists(Out("batch/obj/missing")));
  EXPECT_FALSE(fs::exists(Out("reports")));
  ExpectNoScratch();

  // Nothing succeeds: neither the output directory nor its parents that the run made remain.
  o = Tool("convert " + In("missing.json") + " --to gltf --report " + Out("r2/report.md") + " -o " +
           Out("made/for/nothing"));
  EXPECT_EQ(o.exit, 1) << o.output;
  EXPECT_FALSE(fs::exists(Out("made")));
  EXPECT_FALSE(fs::exists(Out("r2")));

  // Success: the report is written, in a directory the run made.
  o = Tool("convert " + In("corvane_plain.json") + " --to usd --report " + Out("r3/sub/report.json") + " -o " +
           Out("ok"));
  ASSERT_EQ(o.exit, 0) << o.output;
  const auto report = Json::parse(Read(Out("r3/sub/report.json")));
  EXPECT_EQ(report["materials"][0]["bundle"], "net.kelvo.material.portbundle.usdpreviewsurface");
  ExpectNoScratch();

  // Material import into a new folder: a set that cannot be imported leaves no folder behind.
  std::ofstream(dir / "in" / "wrong.json") << R"({"bundle": "com.example.nobundle", "parameters": {}})";
  const std::string scene = (fs::path(INTEROP_SOURCE_DIR) / "examples" / "materials_scene.vex").string();
  o = Tool("material import " + In("wrong.json") + " --scene " + scene + " -o " + Out("imported/deeper/s.vex"));
  EXPECT_EQ(o.exit, 1) << o.output;
  EXPECT_FALSE(fs::exists(Out("imported")));
}

TEST_F(Pipeline, TheScratchOfAKilledRunIsRemovedByTheNextRunOfTheSameTarget) {
  // What a run killed while writing leaves: a scratch folder beside the target.
  const fs::path scratch = dir / "killed" / ".vexinterop-partial-corvane_plain";
  fs::create_directories(scratch);
  std::ofstream(scratch / "corvane_plain.obj") << "v 0 0";
  const auto o = Tool("convert " + In("corvane_plain.json") + " --to obj -o " + Out("killed"));
  ASSERT_EQ(o.exit, 0) << o.output;
  EXPECT_FALSE(fs::exists(scratch));
  EXPECT_TRUE(fs::exists(dir / "killed" / "corvane_plain" / "corvane_plain.mtl"));
}

TEST_F(Pipeline, UsdWritesNoUnaskedDisplacementAndNamesTheWeightsItLeavesOut) {
  std::ofstream(dir / "in" / "displaced.json") << R"({"bundle": "net.kelvo.material.portbundle.corvane",
    "parameters": {"displacement_scale": {"type": "Float", "value": 0.25},
                   "displacement_space": {"type": "String", "value": "space_heightfield"}}})";
  std::ofstream(dir / "in" / "flat.json") << R"({"bundle": "net.kelvo.material.portbundle.corvane",
    "parameters": {"displacement_scale": {"type": "Float", "value": 0.0}}})";
  const auto o = Tool("convert " + In("corvane_plain.json") + " " + In("displaced.json") + " " + In("flat.json") +
                      " --to usd -o " + Out("usd"));
  ASSERT_EQ(o.exit, 0) << o.output;
  const std::string plain = Read(Out("usd/corvane_plain/corvane_plain.usda"));
  const std::string flat = Read(Out("usd/flat/flat.usda"));
  EXPECT_EQ(flat.find("inputs:displacement"), std::string::npos) << flat;
  EXPECT_NE(Read(Out("usd/displaced/displaced.usda")).find("float inputs:displacement = 0.25"), std::string::npos);
  // The weights the mapping leaves out, one warning line each naming the input and the port.
  EXPECT_NE(o.output.find("corvane_plain.json: diffuseColor is written without diffuse_weight (0.9)"),
            std::string::npos)
      << o.output;
  EXPECT_NE(o.output.find("corvane_plain.json: emissiveColor is written without emission_weight (0.5)"),
            std::string::npos)
      << o.output;
  // The layer, hierarchy and mesh of the scene the writer was given.
  EXPECT_NE(plain.find("metersPerUnit = 1\n    upAxis = \"Y\""), std::string::npos);
  EXPECT_NE(plain.find("def Xform \"corvane_plain\""), std::string::npos);
  EXPECT_NE(plain.find("def Mesh \"PreviewSphere\""), std::string::npos);
  EXPECT_NE(plain.find("texCoord2f[] primvars:st"), std::string::npos);
  EXPECT_NE(plain.find("rel material:binding = </corvane_plain/Materials/corvane_plain>"), std::string::npos);
}

/// Every example material goes to every format; the two that used to lose their emission and
/// colour keep them, read back from the written files by our readers (USD from its text).
TEST_F(Pipeline, SceneMaterialsKeepTheirEmissionAndColoursInEveryFormat) {
  const std::string scene = (fs::path(INTEROP_SOURCE_DIR) / "examples" / "materials_scene.vex").string();
  // What the exporter produces for them: Preview Glow's emission, Leather's channel colour under
  // its Substance asset (a file cannot carry the asset).
  auto o = Tool("material export " + scene + " --material \"Preview Glow\" -o " + Out("glow.json"));
  ASSERT_EQ(o.exit, 0) << o.output;
  const auto glow = Json::parse(Read(Out("glow.json")))["parameters"];
  const std::vector<double> emission = glow["emissiveColor"]["value"].get<std::vector<double>>();
  const std::vector<double> leather = {0.35, 0.2, 0.1};
  const auto near = [](const Json& value, const std::vector<double>& expected, const std::string& what) {
    ASSERT_TRUE(value.is_array() && value.size() >= 3) << what << ": " << value.dump();
    for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(value[i].get<double>(), expected[i], 1e-3) << what;
  };
  for (const std::string format : {"gltf", "usd", "obj", "fbx"}) {
    // Assimp, the FBX reader, reads the ASCII form back.
    o = Tool("export " + scene + " --to " + format + (format == "fbx" ? " --fbx-ascii" : "") + " --texture-size 16 -o " +
             Out(format));
    ASSERT_EQ(o.exit, 0) << format << ": " << o.output;
    EXPECT_NE(o.output.find("exported 7 of 7 materials"), std::string::npos) << o.output;
    EXPECT_NE(o.output.find("material 'Leather': base_color: the Substance asset"), std::string::npos) << o.output;
    if (format == "usd") {
      const std::string glowText = Read(Out("usd/Preview_Glow/Preview_Glow.usda"));
      EXPECT_NE(glowText.find("color3f inputs:emissiveColor = (0.1, 0.3, 0.1)"), std::string::npos) << glowText;
      const std::string leatherText = Read(Out("usd/Leather/Leather.usda"));
      std::smatch m;
      ASSERT_TRUE(std::regex_search(leatherText, m, std::regex(R"(diffuseColor = \(([^,]+), ([^,]+), ([^)]+)\))")));
      for (int i = 0; i < 3; ++i) EXPECT_GT(std::stod(m[i + 1].str()), 0.05) << leatherText;
      EXPECT_GT(std::stod(m[1].str()), std::stod(m[3].str()));  // brown, not grey
      continue;
    }
    const std::string suffix = format == "gltf" ? ".gltf" : "." + format;
    for (const std::string name : {"Preview_Glow", "Leather"}) {
      o = Tool("import " + Out(format + "/" + name + "/" + name + suffix) + " --native -o " + Out(format + "_back"));
      ASSERT_EQ(o.exit, 0) << o.output;
    }
    const auto glowBack = Json::parse(Read(Out(format + "_back/Preview_Glow.json")))["parameters"];
    const auto leatherBack = Json::parse(Read(Out(format + "_back/Leather.json")))["parameters"];
    if (format == "gltf") {
      near(glowBack["emissiveFactor"]["value"], emission, "glTF emission");
      near(leatherBack["baseColorFactor"]["value"], leather, "glTF base colour");
    } else if (format == "obj") {
      near(glowBack["emissive_color"]["value"], emission, "MTL Ke");
      near(leatherBack["diffuse_color"]["value"], leather, "MTL Kd");
    } else {
      near(glowBack["emissiveColor"]["value"], emission, "FBX emission");
      near(leatherBack["diffuseColor"]["value"], leather, "FBX diffuse");
    }
  }
  ExpectNoScratch();
}

/// Converts `input` to `format`, imports the file into a Corvane set (`import --json`) and
/// converts that set to `format` again. Returns the two main files.
struct RoundTrip {
  fs::path first, second, imported;
};

/// Within 1e-3: numbers, and arrays of numbers element by element.
void ExpectNear(const Json& x, const Json& y, const std::string& what) {
  ASSERT_EQ(x.is_array(), y.is_array()) << what << ": " << x.dump() << " vs " << y.dump();
  if (x.is_array()) {
    ASSERT_EQ(x.size(), y.size()) << what;
    for (std::size_t i = 0; i < x.size(); ++i) EXPECT_NEAR(x[i].get<double>(), y[i].get<double>(), 1e-3) << what;
  } else {
    EXPECT_NEAR(x.get<double>(), y.get<double>(), 1e-3) << what;
  }
}

/// The largest difference of two images, channel by channel (0 for two missing ones).
double ImageDifference(const fs::path& a, const fs::path& b) {
  auto ia = host::ReadImage(a.string(), false), ib = host::ReadImage(b.string(), false);
  EXPECT_TRUE(ia && ib) << a << " " << b;
  if (!ia || !ib) return 1e9;
  EXPECT_EQ(ia->_dimensions, ib->_dimensions) << a << " " << b;
  if (!(ia->_dimensions == ib->_dimensions)) return 1e9;
  double worst = 0;
  for (std::size_t i = 0; i < ia->GetCount(); ++i)
    for (int c = 0; c < 4; ++c)
      worst = std::max(worst, static_cast<double>(std::abs(ia->_pixels->Pixel(i)[c] - ib->_pixels->Pixel(i)[c])));
  return worst;
}

class RoundTrips : public Pipeline {
 protected:
  void SetUp() override {
    Pipeline::SetUp();
    // Opacity and roughness textured, metal constant: the packed texture's blue and the base
    // colour's alpha carry what the file says beside them.
    std::ofstream(dir / "in" / "corvane_layered.json") << R"({"bundle": "net.kelvo.material.portbundle.corvane",
      "parameters": {
        "diffuse_color": {"type": "Color", "value": [1, 1, 1], "texture": "checker.png"},
        "opacity": {"type": "Color", "value": [1, 1, 1], "texture": "ramp.png"},
        "fresnel_type": {"type": "String", "value": "metalness"},
        "metalness": {"type": "Float", "value": 0.5},
        "reflection_roughness": {"type": "Float", "value": 0.5, "texture": "ramp.png"}}})";
  }

  RoundTrip Run(const std::string& format, const std::string& input) {
    const std::string suffix = "." + format;
    const std::string stem = fs::path(input).stem().string();
    RoundTrip trip;
    auto o = Tool("convert " + In(input.c_str()) + " --to " + format + " -o " + Out(format + "_first"));
    EXPECT_EQ(o.exit, 0) << o.output;
    trip.first = Out(format + "_first/" + stem + "/" + stem + suffix);
    o = Tool("import " + trip.first.string() + " --json -o " + Out(format + "_imported_" + stem));
    EXPECT_EQ(o.exit, 0) << o.output;
    trip.imported = Out(format + "_imported_" + stem + "/" + stem + ".json");
    o = Tool("convert " + trip.imported.string() + " --to " + format + " -o " + Out(format + "_second"));
    EXPECT_EQ(o.exit, 0) << o.output;
    trip.second = Out(format + "_second/" + stem + "/" + stem + suffix);
    EXPECT_TRUE(fs::exists(trip.first) && fs::exists(trip.second)) << format << " " << input;
    return trip;
  }
};

// Import, export and import again through glTF: the import mapping's channel selections (occlusion
// in red, roughness in green, metal in blue) and value scales are resolved when the set's textures
// become pixels, so the second glTF says what the first one did, factor by factor and texel by
// texel: a metal that only the factor carried (0 and 0.5 beside a packed roughness) stays in the
// factor, and a textured opacity stays in the base colour's alpha.
TEST_F(RoundTrips, GltfImportExportImportKeepsValuesAndChannels) {
  for (const char* input : {"corvane_textured.json", "corvane_layered.json", "corvane_plain.json"}) {
    SCOPED_TRACE(input);
    const RoundTrip trip = Run("gltf", input);
    if (std::string(input) != "corvane_plain.json") {
      EXPECT_NE(Read(trip.imported).find("channelSelect"), std::string::npos) << "the import should select channels";
    }
    const Json a = Json::parse(Read(trip.first)), b = Json::parse(Read(trip.second));
    const Json& ma = a["materials"][0];
    const Json& mb = b["materials"][0];
    const Json& pa = ma["pbrMetallicRoughness"];
    const Json& pb = mb["pbrMetallicRoughness"];
    for (const char* key : {"metallicFactor", "roughnessFactor"})
      ExpectNear(pa.value(key, Json(1.0)), pb.value(key, Json(1.0)), key);
    ExpectNear(pa.value("baseColorFactor", Json::array({1, 1, 1, 1})), pb.value("baseColorFactor", Json::array({1, 1, 1, 1})),
               "baseColorFactor");
    ExpectNear(ma.value("emissiveFactor", Json::array({0, 0, 0})), mb.value("emissiveFactor", Json::array({0, 0, 0})),
               "emissiveFactor");
    EXPECT_EQ(ma.value("alphaMode", "OPAQUE"), mb.value("alphaMode", "OPAQUE"));
    ExpectNear(ma.value("normalTexture", Json::object()).value("scale", Json(1.0)),
               mb.value("normalTexture", Json::object()).value("scale", Json(1.0)), "normal scale");
    // Every texel of every texture, channel by channel.
    auto image = [](const Json& gltf, const fs::path& file, const Json& texture) {
      const auto uri = gltf["images"][gltf["textures"][texture["index"].get<int>()]["source"].get<int>()]["uri"];
      return file.parent_path() / uri.get<std::string>();
    };
    const std::pair<Json, Json> textures[] = {{pa.value("baseColorTexture", Json()), pb.value("baseColorTexture", Json())},
                                              {pa.value("metallicRoughnessTexture", Json()),
                                               pb.value("metallicRoughnessTexture", Json())},
                                              {ma.value("normalTexture", Json()), mb.value("normalTexture", Json())},
                                              {ma.value("emissiveTexture", Json()), mb.value("emissiveTexture", Json())}};
    for (const auto& [ta, tb] : textures) {
      ASSERT_EQ(ta.is_object(), tb.is_object()) << ta.dump() << " vs " << tb.dump();
      if (ta.is_object()) {
        EXPECT_LE(ImageDifference(image(a, trip.first, ta), image(b, trip.second, tb)), 1e-3) << ta.dump();
      }
    }
  }
}

/// The MTL statements of a file: keyword -> the rest of the line.
std::map<std::string, std::string> MtlStatements(const fs::path& file) {
  std::map<std::string, std::string> out;
  std::istringstream lines(Read(file));
  for (std::string line; std::getline(lines, line);) {
    const auto space = line.find(' ');
    if (space == std::string::npos || line.starts_with("#") || line.starts_with("newmtl")) continue;
    out[line.substr(0, space)] = line.substr(space + 1);
  }
  return out;
}

// Through OBJ the second MTL says what the first did: every statement with its numbers (Ns, the
// Phong exponent up to 1000, relatively), the normal map's bump multiplier, and the same texels
// in each map.
TEST_F(RoundTrips, ObjImportExportImportKeepsWhatMtlCarries) {
  for (const char* input : {"corvane_textured.json", "corvane_plain.json", "corvane_layered.json"}) {
    SCOPED_TRACE(input);
    const RoundTrip trip = Run("obj", input);
    const fs::path mtlA = fs::path(trip.first).replace_extension(".mtl");
    const fs::path mtlB = fs::path(trip.second).replace_extension(".mtl");
    const auto a = MtlStatements(mtlA), b = MtlStatements(mtlB);
    std::vector<std::string> keysA, keysB;
    for (const auto& [k, v] : a) keysA.push_back(k);
    for (const auto& [k, v] : b) keysB.push_back(k);
    EXPECT_EQ(keysA, keysB);
    for (const auto& [keyword, rest] : a) {
      if (!b.contains(keyword)) continue;
      std::istringstream wa(rest), wb(b.at(keyword));
      for (std::string x, y; wa >> x && wb >> y;) {
        char* end = nullptr;
        const double dx = std::strtod(x.c_str(), &end);
        if (*end != '\0') {
          if (!x.ends_with(".png")) EXPECT_EQ(x, y) << keyword;
          else EXPECT_LE(ImageDifference(mtlA.parent_path() / x, mtlB.parent_path() / y), 1e-3) << keyword;
          continue;
        }
        EXPECT_NEAR(dx, std::stod(y), 1e-3 * std::max(1.0, std::abs(dx))) << keyword << " " << rest;
      }
    }
  }
}

// Through FBX (read back as the generic model) the second file says what the first did: colours,
// emission, opacity, the shininess exponent and the texels of every texture. Not carried: the
// metal, which the generic model reads as a reflection weight of another Fresnel mode, and the
// normal map, for which it has no port (both named in docs/file-formats.md).
TEST_F(RoundTrips, FbxImportExportImportKeepsWhatTheGenericModelCarries) {
  for (const char* input : {"corvane_textured.json", "corvane_plain.json", "corvane_layered.json"}) {
    SCOPED_TRACE(input);
    const RoundTrip trip = Run("fbx", input);
    const std::string stem = fs::path(input).stem().string();
    for (const auto& [file, where] : {std::pair{trip.first, "native_first"}, std::pair{trip.second, "native_second"}}) {
      const auto o = Tool("import " + file.string() + " --native -o " + Out(std::string(where) + "_" + stem));
      ASSERT_EQ(o.exit, 0) << o.output;
    }
    const fs::path na = Out("native_first_" + stem + "/" + stem + ".json");
    const fs::path nb = Out("native_second_" + stem + "/" + stem + ".json");
    const Json a = Json::parse(Read(na))["parameters"], b = Json::parse(Read(nb))["parameters"];
    for (const std::string port : {"diffuseColor", "emissiveColor", "emissiveFactor", "opacityColor", "shininess"}) {
      ASSERT_EQ(a.contains(port), b.contains(port)) << port;
      if (!a.contains(port)) continue;
      ASSERT_EQ(a[port].contains("texture"), b[port].contains("texture")) << port;
      if (a[port].contains("texture"))
        EXPECT_LE(ImageDifference(na.parent_path() / a[port]["texture"].get<std::string>(),
                                  nb.parent_path() / b[port]["texture"].get<std::string>()),
                  1e-3)
            << port;
      else
        ExpectNear(a[port]["value"], b[port]["value"], port);
    }
  }
}

}  // namespace
