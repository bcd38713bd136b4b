// The files `vexinterop convert` writes, opened by the applications a user would open them with:
// Blender (its glTF, FBX and OBJ importers, run headless through tests/tools/blender_read.py),
// three.js (GLTFLoader and FBXLoader under Node, tests/tools/three_read.mjs) and Assimp
// (tests/tools/assimp_read.cpp), plus a parse of the .usda text. What each reader shows is compared
// with what the parameter set implies through the documented mappings, within 1e-3: colours,
// metalness, roughness, emission with its strength, opacity, normal strength, index of refraction
// where the format has one, which image feeds which input through which channel and colour space,
// and that the top of the preview sphere shows the top of the image.
//
// The inputs are the two example sets (examples/corvane_plain.json and
// examples/corvane_textured.json), the textured one with its diffuse image replaced by one whose
// upper half is warm and lower half cool. Each reader starts once for all the files of the run.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <numbers>
#include <numeric>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "files_support.h"
#include "host/formats/catalogue.h"
#include "host/images.h"
#include "host/port_bundles.h"
#include "host/staged_output.h"
#include "run_tool.h"

namespace fs = std::filesystem;
using Json = nlohmann::json;

namespace {

constexpr double kTolerance = 1e-3;
const fs::path kSource = INTEROP_SOURCE_DIR;

using cli_test::Outcome;
using cli_test::Shell;

/// A number from a reader's report; anything else is NaN, which fails every comparison.
double Num(const Json& value) { return value.is_number() ? value.get<double>() : std::nan(""); }

using cli_test::Quote;

using cli_test::OnPath;

Json ReadJson(const fs::path& path) {
  std::ifstream in(path);
  return Json::parse(in, nullptr, false);
}

std::string ReadText(const fs::path& path) {
  std::ifstream in(path);
  return {std::istreambuf_iterator<char>(in), {}};
}

using Rgb = std::array<double, 3>;

// ---------------------------------------------------------------------------------------------
// What a parameter set implies, through the documented mappings (docs/mappings-corvane.md,
// docs/file-formats.md), for one family of formats.

enum class Family { Gltf, Obj, Fbx };

/// A port as a reader should show it: a constant, or a texture with the constant factor beside it.
struct Port {
  bool textured = false;
  Rgb value{0, 0, 0};  // the constant, or the factor a textured input is multiplied by
  bool carried = true;
};

struct Implied {
  Port base, metal, rough, emission, normal;
  double alpha = 1;
  bool alphaTextured = false;
  bool transmissive = false;
  std::optional<double> ior;
};

/// The Corvane bundle's defaults, from the host's port-bundle data.
const Json& CorvaneDefaults() {
  static const Json defaults = [] {
    Json out = Json::object();
    const auto bundles = ReadJson(kSource / "host" / "data" / "port_bundles.json");
    for (const auto& port : bundles["net.kelvo.material.portbundle.corvane"]["ports"])
      if (port.contains("default")) out[port["name"].get<std::string>()] = port["default"];
    return out;
  }();
  return defaults;
}

struct SetView {
  Json parameters;
  bool Textured(const std::string& port) const {
    return parameters.contains(port) && parameters[port].contains("texture");
  }
  Json Value(const std::string& port) const {
    if (parameters.contains(port)) return parameters[port]["value"];
    return CorvaneDefaults().at(port);
  }
  double Number(const std::string& port) const { return Value(port).get<double>(); }
  Rgb Colour(const std::string& port) const {
    const auto v = Value(port);
    return {v[0].get<double>(), v[1].get<double>(), v[2].get<double>()};
  }
};

Rgb Scale(Rgb c, double s) { return {c[0] * s, c[1] * s, c[2] * s}; }

Implied ImpliedBy(const SetView& set, Family family) {
  Implied out;
  const bool gltf = family == Family::Gltf;
  // Base colour: the weight times the colour; beside a texture glTF keeps the weight as the factor,
  // the OBJ mapping (which FBX goes through) leaves a textured colour's weight out.
  const double diffuseWeight = set.Number("diffuse_weight");
  out.base.textured = set.Textured("diffuse_color");
  out.base.value = out.base.textured ? Scale({1, 1, 1}, gltf ? diffuseWeight : 1.0)
                                     : Scale(set.Colour("diffuse_color"), diffuseWeight);
  // Opacity: the mean of the opacity colour; a textured opacity or transmission becomes the alpha
  // of glTF's base colour image, and the OBJ model keeps only the opacity colour's mean.
  const Rgb opacity = set.Colour("opacity");
  out.alpha = (opacity[0] + opacity[1] + opacity[2]) / 3;
  out.alphaTextured = gltf && (set.Textured("opacity") || set.Textured("transmission_weight"));
  out.transmissive = set.Textured("transmission_weight") || set.Number("transmission_weight") > 0;
  // Metalness only in the metalness Fresnel mode for glTF; the OBJ mapping copies it whatever the
  // mode; FBX's Phong surface has none.
  const bool metalMode = set.Value("fresnel_type") == "metalness";
  out.metal.textured = set.Textured("metalness") && (metalMode || !gltf);
  out.metal.value = Scale({1, 1, 1}, out.metal.textured ? 1.0 : (metalMode || !gltf ? set.Number("metalness") : 0.0));
  out.metal.carried = family != Family::Fbx;
  out.rough.textured = set.Textured("reflection_roughness");
  out.rough.value = Scale({1, 1, 1}, out.rough.textured ? 1.0 : set.Number("reflection_roughness"));
  out.rough.carried = !(family == Family::Fbx && out.rough.textured);  // FBX: a constant, as a Phong exponent
  // Emission: weight times colour (glTF clamps the weight to [0, 1]); beside a texture glTF keeps the
  // weight as the factor, the OBJ mapping leaves it out.
  const double emissionWeight = set.Number("emission_weight");
  const double clamped = std::clamp(emissionWeight, 0.0, 1.0);
  out.emission.textured = set.Textured("emission_color");
  out.emission.value = out.emission.textured ? Scale({1, 1, 1}, gltf ? clamped : 1.0)
                                             : Scale(set.Colour("emission_color"), gltf ? clamped : emissionWeight);
  // Normal maps: tangent space only; the weight is the strength.
  out.normal.textured = set.Textured("overall_normal") && set.Value("normal_space") == "space_rgb_tangent";
  out.normal.value = Scale({1, 1, 1}, set.Number("overall_normal_weight"));
  if (family == Family::Obj) out.ior = set.Number("transmission_ior");  // MTL's Ni
  return out;
}

// ---------------------------------------------------------------------------------------------
// The run: inputs, conversions and one start of each reader, shared by every test.

class IndependentReaders : public ::testing::Test {
 public:
  static void SetUpTestSuite() {
    dir = fs::temp_directory_path() / ("vexinterop_independent_" + std::to_string(getpid()));
    fs::remove_all(dir);
    fs::create_directories(dir / "in" / "textures");
    fs::copy(kSource / "examples" / "textures", dir / "in" / "textures",
             fs::copy_options::recursive | fs::copy_options::overwrite_existing);
    for (const char* name : {"corvane_plain", "corvane_textured"}) {
      fs::copy_file(kSource / "examples" / (std::string(name) + ".json"), dir / "in" / (std::string(name) + ".json"));
      sets[name] = SetView{ReadJson(dir / "in" / (std::string(name) + ".json"))["parameters"]};
    }
    // The diffuse image: warm above, cool below, as large as the example's other images (the
    // glTF mapping packs opacity into the base colour image, which needs equal sizes).
    auto size = host::ReadImage((kSource / "examples" / "textures" / "diffuse.png").string(), false);
    const std::int64_t side = size ? size->_dimensions.width : 256;
    auto image = vex::TextureBuffer::Make(side, side);
    for (std::int64_t y = 0; y < side; ++y)
      for (std::int64_t x = 0; x < side; ++x) {
        float* p = image._pixels->Pixel(static_cast<std::size_t>(y * side + x));
        const bool upper = y < side / 2;
        p[0] = upper ? kWarm[0] : kCool[0], p[1] = upper ? kWarm[1] : kCool[1], p[2] = upper ? kWarm[2] : kCool[2];
        p[3] = 1;
      }
    written = host::WriteImage((dir / "in" / "textures" / "diffuse.png").string(), image, {.srgb = true}).has_value();

    const auto help = Shell(std::string(INTEROP_VEXINTEROP_PATH) + " convert --help");
    glb = help.output.find("--glb") != std::string::npos;
    const std::string inputs =
        Quote(dir / "in" / "corvane_plain.json") + " " + Quote(dir / "in" / "corvane_textured.json");
    for (const char* format : {"gltf", "glb", "fbx", "obj", "usd"}) {
      if (std::string(format) == "glb" && !glb) continue;
      const std::string to = std::string(format) == "glb" ? "gltf --glb" : format;
      conversions[format] = Shell(std::string(INTEROP_VEXINTEROP_PATH) + " convert " + inputs + " --to " + to + " -o " +
                                  Quote(dir / format));
    }
  }

  static void TearDownTestSuite() {
    if (std::getenv("INTEROP_KEEP_INDEPENDENT") == nullptr) fs::remove_all(dir);
  }

 protected:
  static constexpr std::array<float, 3> kWarm{0.9f, 0.35f, 0.1f};
  static constexpr std::array<float, 3> kCool{0.1f, 0.3f, 0.85f};

  /// The file a format's conversion of a set wrote (empty when it is not there).
  static fs::path File(const std::string& format, const std::string& set) {
    const std::string suffix = format == "usd" ? ".usda" : "." + format;
    const fs::path folder = dir / format / set;
    const fs::path path = folder / (set + suffix);
    return fs::exists(path) ? path : fs::path{};
  }

  static ::testing::AssertionResult Converted(const std::string& format) {
    const auto it = conversions.find(format);
    if (it == conversions.end()) return ::testing::AssertionFailure() << format << " was not converted";
    if (it->second.exit != 0)
      return ::testing::AssertionFailure() << "convert --to " << format << ": " << it->second.output;
    return ::testing::AssertionSuccess();
  }

  /// Blender's report on every file of the run, from one start (keyed by format, then set).
  static const std::map<std::string, std::map<std::string, Json>>& Blender() {
    static const auto reports = [] {
      std::map<std::string, std::map<std::string, Json>> out;
      std::string pairs;
      for (const char* format : {"gltf", "glb", "fbx", "obj"})
        for (const char* set : {"corvane_plain", "corvane_textured"}) {
          const fs::path file = File(format, set);
          if (file.empty()) continue;
          pairs += " " + Quote(file) + " " + Quote(dir / "blender" / (std::string(format) + "_" + set + ".json"));
        }
      fs::create_directories(dir / "blender");
      if (pairs.empty()) return out;
      // Debian's Blender finds Debian's numpy only with /usr/bin first on the path.
      blenderRun = Shell("PATH=/usr/bin:$PATH blender -b --factory-startup --python " +
                         Quote(kSource / "tests" / "tools" / "blender_read.py") + " --" + pairs);
      for (const auto& entry : fs::directory_iterator(dir / "blender")) {
        const std::string stem = entry.path().stem().string();
        const auto cut = stem.find('_');
        out[stem.substr(0, cut)][stem.substr(cut + 1)] = ReadJson(entry.path());
      }
      return out;
    }();
    return reports;
  }

  /// One JSON line per file from a reader that prints them (three.js, Assimp).
  static std::map<std::string, std::map<std::string, Json>> Lines(const std::string& command,
                                                                  const std::vector<std::string>& formats,
                                                                  Outcome& run) {
    std::map<std::string, std::map<std::string, Json>> out;
    std::string files;
    std::map<std::string, std::pair<std::string, std::string>> which;
    for (const auto& format : formats)
      for (const char* set : {"corvane_plain", "corvane_textured"}) {
        const fs::path file = File(format, set);
        if (file.empty()) continue;
        files += " " + Quote(file);
        which[file.string()] = {format, set};
      }
    if (files.empty()) return out;
    run = Shell(command + files);
    std::istringstream lines(run.output);
    for (std::string line; std::getline(lines, line);) {
      const auto report = Json::parse(line, nullptr, false);
      if (report.is_discarded() || !report.contains("file")) continue;
      const auto it = which.find(report["file"].get<std::string>());
      if (it != which.end()) out[it->second.first][it->second.second] = report;
    }
    return out;
  }

  static const std::map<std::string, std::map<std::string, Json>>& Three() {
    static const auto reports =
        Lines("node " + Quote(kSource / "tests" / "tools" / "three_read.mjs"), {"gltf", "glb", "fbx"}, threeRun);
    return reports;
  }

  static const std::map<std::string, std::map<std::string, Json>>& Assimp() {
    static const auto reports = Lines(Quote(INTEROP_ASSIMP_READ_PATH), {"fbx", "obj"}, assimpRun);
    return reports;
  }

  static bool BlenderMissing() { return !OnPath("blender"); }
  static bool ThreeMissing() {
    return !OnPath("node") || !fs::exists(kSource / "tools" / "node_modules" / "three" / "package.json");
  }

  static inline fs::path dir;
  static inline std::map<std::string, SetView> sets;
  static inline std::map<std::string, Outcome> conversions;
  static inline bool glb = false;
  static inline bool written = false;
  static inline Outcome blenderRun, threeRun, assimpRun;
};

// ---------------------------------------------------------------------------------------------
// Comparisons.

::testing::AssertionResult Near(const Json& value, const Rgb& expected, const std::string& what) {
  if (!value.is_array() || value.size() < 3)
    return ::testing::AssertionFailure() << what << ": no colour in " << value.dump();
  for (int i = 0; i < 3; ++i)
    if (!value[i].is_number() || std::abs(value[i].get<double>() - expected[i]) > kTolerance)
      return ::testing::AssertionFailure() << what << ": " << value.dump() << ", expected (" << expected[0] << ", "
                                           << expected[1] << ", " << expected[2] << ")";
  return ::testing::AssertionSuccess();
}

::testing::AssertionResult Near(const Json& value, double expected, const std::string& what) {
  if (!value.is_number()) return ::testing::AssertionFailure() << what << ": no number in " << value.dump();
  if (std::abs(value.get<double>() - expected) > kTolerance)
    return ::testing::AssertionFailure() << what << ": " << value.get<double>() << ", expected " << expected;
  return ::testing::AssertionSuccess();
}

/// A colour as a reader shows it times a strength; anything that is not three numbers stays as it is,
/// so that the comparison reports it.
Json Times(const Json& colour, const Json& strength) {
  if (!colour.is_array() || colour.size() < 3 || !strength.is_number()) return colour;
  Json out = Json::array();
  for (int i = 0; i < 3; ++i) {
    if (!colour[i].is_number()) return colour;
    out.push_back(colour[i].get<double>() * strength.get<double>());
  }
  return out;
}

/// The product of the constant factors Blender put between an image and an input (per channel).
Rgb BlenderFactor(const Json& input) {
  Rgb f{1, 1, 1};
  for (const auto& factor : input.value("factors", Json::array())) {
    if (factor.is_number())
      f = Scale(f, factor.get<double>());
    else if (factor.is_array() && factor.size() >= 3)
      for (int i = 0; i < 3; ++i) f[i] *= factor[i].get<double>();
  }
  return f;
}

/// One Blender material against what the set implies for the file's family.
void ExpectBlenderMaterial(const Json& report, const std::string& name, const Implied& implied, Family family,
                           const std::string& where) {
  ASSERT_FALSE(report.contains("error")) << where << ": " << report.value("error", "");
  ASSERT_TRUE(report["materials"].contains(name))
      << where << ": no material " << name << " in " << report["materials"].dump().substr(0, 300);
  Json m = report["materials"][name];  // copies: an input a Blender version lacks reads as null
  Json in = m["inputs"];
  const bool gltf = family == Family::Gltf;
  auto linked = [&](const char* input) { return in.contains(input) && in[input].contains("link"); };

  // Base colour.
  if (implied.base.textured) {
    ASSERT_TRUE(linked("Base Color")) << where << ": Base Color has no image";
    EXPECT_EQ(in["Base Color"].value("colorspace", ""), "sRGB") << where;
    EXPECT_EQ(in["Base Color"].value("image_output", ""), "Color") << where;
    EXPECT_FALSE(in["Base Color"].contains("channel")) << where << ": " << in["Base Color"].dump();
    const Rgb f = BlenderFactor(in["Base Color"]);
    EXPECT_TRUE(Near(Json(f), implied.base.value, where + " Base Color factor"));
  } else {
    EXPECT_FALSE(linked("Base Color")) << where;
    EXPECT_TRUE(Near(in["Base Color"]["value"], implied.base.value, where + " Base Color"));
  }
  // Opacity.
  if (implied.alphaTextured) {
    ASSERT_TRUE(linked("Alpha")) << where << ": Alpha has no image";
    EXPECT_EQ(in["Alpha"].value("channel", ""), "a") << where;
    EXPECT_EQ(in["Alpha"].value("image", "?"), in["Base Color"].value("image", "")) << where;
    EXPECT_NE(m["blend_method"], "OPAQUE") << where;
  } else {
    EXPECT_FALSE(linked("Alpha")) << where;
    EXPECT_TRUE(Near(in["Alpha"]["value"], implied.alpha, where + " Alpha"));
    // Blender's FBX importer turns on blending for an alpha texture only; a constant alpha keeps
    // its value with the blend mode left opaque (docs/file-formats.md).
    if (implied.alpha < 1 - kTolerance && family != Family::Fbx) {
      EXPECT_NE(m["blend_method"], "OPAQUE") << where;
    }
  }
  // Metalness and roughness: glTF packs them into one linear image, blue and green.
  struct Scalar {
    const char* input;
    const Port& port;
    const char* channel;
  };
  for (const Scalar& s : {Scalar{"Metallic", implied.metal, "b"}, Scalar{"Roughness", implied.rough, "g"}}) {
    // Blender turns FBX's shininess into roughness by a rule of its own; Assimp checks the exponent.
    if (!s.port.carried || family == Family::Fbx) continue;
    if (s.port.textured) {
      ASSERT_TRUE(linked(s.input)) << where << ": " << s.input << " has no image";
      if (gltf) {
        EXPECT_EQ(in[s.input].value("channel", ""), s.channel) << where << " " << s.input;
        EXPECT_EQ(in[s.input].value("colorspace", ""), "Non-Color") << where << " " << s.input;
      }
      EXPECT_TRUE(Near(BlenderFactor(in[s.input])[0], s.port.value[0], where + " " + s.input + " factor"));
    } else {
      EXPECT_FALSE(linked(s.input)) << where << " " << s.input;
      EXPECT_TRUE(Near(in[s.input]["value"], s.port.value[0], where + " " + s.input));
    }
  }
  // Emission: colour (or the factor beside the image) times the strength.
  const Json& strength = in["Emission Strength"]["value"];
  if (implied.emission.textured) {
    ASSERT_TRUE(linked("Emission")) << where << ": Emission has no image";
    EXPECT_EQ(in["Emission"].value("colorspace", ""), "sRGB") << where;
    EXPECT_TRUE(Near(Times(Json(BlenderFactor(in["Emission"])), strength), implied.emission.value,
                     where + " Emission factor x strength"));
  } else {
    EXPECT_FALSE(linked("Emission")) << where;
    EXPECT_TRUE(Near(Times(in["Emission"]["value"], strength), implied.emission.value, where + " Emission x strength"));
  }
  // Normal map.
  if (implied.normal.textured) {
    ASSERT_TRUE(linked("Normal")) << where << ": Normal has no normal map";
    EXPECT_TRUE(in["Normal"].contains("image")) << where << ": " << in["Normal"].dump();
    EXPECT_TRUE(
        Near(in["Normal"].value("normal_strength", Json()), implied.normal.value[0], where + " normal strength"));
    if (family != Family::Obj) {
      EXPECT_EQ(in["Normal"].value("colorspace", ""), "Non-Color") << where;
    }
  } else {
    // No image behind the normal (Blender's FBX importer puts an empty Normal Map node there).
    EXPECT_FALSE(in.contains("Normal") && in["Normal"].contains("image")) << where << ": " << in["Normal"].dump();
  }
  if (!implied.transmissive) {
    EXPECT_TRUE(Near(in["Transmission"]["value"], 0.0, where + " Transmission"));
  }
  if (implied.ior) {
    EXPECT_TRUE(Near(in["IOR"]["value"], *implied.ior, where + " IOR"));
  }
  // Every linked image is a file beside the written one, or carried inside it.
  for (const auto& [input, entry] : in.items())
    if (entry.contains("image") && !entry.value("packed", false) && !entry.value("path", "").empty()) {
      EXPECT_TRUE(fs::exists(entry["path"].get<std::string>())) << where << " " << input << ": " << entry["path"];
    }

  // One mesh object; every polygon of the sphere carries the material.
  ASSERT_FALSE(report["meshes"].empty()) << where;
  for (const auto& [mesh, entry] : report["meshes"].items()) {
    EXPECT_GT(entry["polygons"].get<int>(), 0) << where;
    for (const auto& material : entry["polygon_materials"]) EXPECT_EQ(material, name) << where << " mesh " << mesh;
  }
}

// ---------------------------------------------------------------------------------------------

TEST_F(IndependentReaders, BlenderReadsWhatTheSetsImplyFromGltfFbxAndObj) {
  if (BlenderMissing()) GTEST_SKIP() << "blender is not installed (scripts/setup.sh installs it)";
  const auto& reports = Blender();
  for (const auto& [format, family] : std::vector<std::pair<std::string, Family>>{
           {"gltf", Family::Gltf}, {"fbx", Family::Fbx}, {"obj", Family::Obj}}) {
    SCOPED_TRACE(format);
    EXPECT_TRUE(Converted(format));
    for (const char* set : {"corvane_plain", "corvane_textured"}) {
      const std::string where = "Blender, " + format + ", " + set;
      if (!reports.contains(format) || !reports.at(format).contains(set)) {
        ADD_FAILURE() << where << ": no report\n" << blenderRun.output.substr(0, 2000);
        continue;
      }
      ExpectBlenderMaterial(reports.at(format).at(set), set, ImpliedBy(sets.at(set), family), family, where);
    }
  }
}

TEST_F(IndependentReaders, TheTopOfTheSphereShowsTheTopOfTheImage) {
  ASSERT_TRUE(written) << "the test image was not written";
  // Blender samples the base colour image at the UV of the sphere's highest and lowest vertex.
  if (!BlenderMissing()) {
    const auto& reports = Blender();
    for (const char* format : {"gltf", "glb", "fbx", "obj"}) {
      if (std::string(format) == "glb" && !glb) continue;
      const std::string where = std::string("Blender, ") + format;
      [&] {
        ASSERT_TRUE(reports.contains(format) && reports.at(format).contains("corvane_textured"))
            << where << ": no report";
        const Json& report = reports.at(format).at("corvane_textured");
        ASSERT_FALSE(report.contains("error")) << where << ": " << report.value("error", "");
        ASSERT_EQ(report["poles"].size(), 1u) << where;
        Json ends = report["poles"].begin().value();
        ASSERT_TRUE(ends.contains("top") && ends["top"]["samples"].contains("Base Color"))
            << where << ": " << ends.dump();
        const Json top = ends["top"]["samples"]["Base Color"];
        const Json bottom = ends["bottom"]["samples"]["Base Color"];
        EXPECT_LT(Num(top["row_from_top"]), 0.5) << where << ": the top of the sphere samples " << top.dump();
        EXPECT_GT(Num(bottom["row_from_top"]), 0.5) << where << ": the bottom of the sphere samples " << bottom.dump();
        // The pixel there is the warm upper half of the source image (red above blue).
        EXPECT_GT(Num(top["pixel"][0]), Num(top["pixel"][2])) << where << ": " << top.dump();
        EXPECT_LT(Num(bottom["pixel"][0]), Num(bottom["pixel"][2])) << where << ": " << bottom.dump();
      }();
    }
  }
  // three.js: the UV at the highest vertex through the texture's flipY convention.
  if (!ThreeMissing()) {
    const auto& reports = Three();
    for (const char* format : {"gltf", "glb", "fbx"}) {
      if (std::string(format) == "glb" && !glb) continue;
      const std::string where = std::string("three.js, ") + format;
      [&] {
        ASSERT_TRUE(reports.contains(format) && reports.at(format).contains("corvane_textured"))
            << where << ": no report\n"
            << threeRun.output.substr(0, 2000);
        const Json& report = reports.at(format).at("corvane_textured");
        ASSERT_FALSE(report.contains("error")) << where << ": " << report.value("error", "");
        ASSERT_EQ(report["poles"].size(), 1u) << where;
        Json ends = report["poles"][0];
        ASSERT_TRUE(ends["top"].contains("map")) << where << ": " << ends.dump();
        EXPECT_LT(Num(ends["top"]["map"]["rowFromTop"]), 0.5) << where << ": " << ends.dump();
        EXPECT_GT(Num(ends["bottom"]["map"]["rowFromTop"]), 0.5) << where << ": " << ends.dump();
      }();
    }
  }
  if (BlenderMissing() && ThreeMissing())
    GTEST_SKIP() << "neither blender nor three.js is installed (scripts/setup.sh)";
}

/// One three.js material against what the set implies.
void ExpectThreeMaterial(const Json& report, const std::string& name, const Implied& implied, Family family,
                         const std::string& where) {
  ASSERT_FALSE(report.contains("error")) << where << ": " << report.value("error", "");
  ASSERT_EQ(report["materials"].size(), 1u) << where << ": " << report.dump().substr(0, 400);
  const Json m = report["materials"][0];  // a copy: a slot it lacks reads as null
  EXPECT_EQ(m["name"], name) << where;
  const Json maps = m["maps"];
  const bool gltf = family == Family::Gltf;
  EXPECT_EQ(m["type"], gltf ? "MeshStandardMaterial" : "MeshPhongMaterial") << where;
  EXPECT_TRUE(Near(m["color"], implied.base.value, where + " color"));
  EXPECT_EQ(maps.contains("map"), implied.base.textured) << where << ": " << maps.dump();
  if (maps.contains("map")) {
    EXPECT_EQ(maps["map"]["colorSpace"], "srgb") << where;
    EXPECT_EQ(maps["map"]["channel"], 0) << where;
    EXPECT_EQ(maps["map"]["flipY"], !gltf) << where;  // glTF counts v from the top of the image
  }
  // Opacity (three.js multiplies the map's alpha in when the material is transparent).
  EXPECT_TRUE(Near(m["opacity"], implied.alphaTextured ? 1.0 : implied.alpha, where + " opacity"));
  EXPECT_EQ(m["transparent"].get<bool>(), implied.alphaTextured || implied.alpha < 1 - kTolerance) << where;
  if (gltf) {
    for (const auto& [slot, port] : {std::pair<const char*, const Port&>{"metalness", implied.metal},
                                     std::pair<const char*, const Port&>{"roughness", implied.rough}}) {
      EXPECT_TRUE(Near(m[slot], port.value[0], where + " " + slot));
      EXPECT_EQ(maps.contains(std::string(slot) + "Map"), port.textured) << where << " " << slot;
    }
    if (maps.contains("metalnessMap") && maps.contains("roughnessMap")) {
      EXPECT_EQ(maps["metalnessMap"]["file"], maps["roughnessMap"]["file"]) << where;
    }
  }
  EXPECT_TRUE(Near(Times(m["emissive"], m["emissiveIntensity"]), implied.emission.value,
                   where + " emissive x emissiveIntensity"));
  EXPECT_EQ(maps.contains("emissiveMap"), implied.emission.textured) << where;
  if (maps.contains("emissiveMap")) {
    EXPECT_EQ(maps["emissiveMap"]["colorSpace"], "srgb") << where;
  }
  EXPECT_EQ(maps.contains("normalMap"), implied.normal.textured) << where;
  if (implied.normal.textured && gltf) {
    EXPECT_TRUE(Near(m["normalScale"][0], implied.normal.value[0], where + " normalScale x"));
    const Json& y = m["normalScale"][1];  // negative where three.js derives the tangents itself
    EXPECT_TRUE(
        Near(y.is_number() ? Json(std::abs(y.get<double>())) : y, implied.normal.value[0], where + " normalScale y"));
  }
}

TEST_F(IndependentReaders, ThreeJsReadsWhatTheSetsImplyFromGltfAndFbx) {
  if (ThreeMissing()) GTEST_SKIP() << "node or tools/node_modules/three is missing (scripts/setup.sh installs them)";
  const auto& reports = Three();
  for (const auto& [format, family] :
       std::vector<std::pair<std::string, Family>>{{"gltf", Family::Gltf}, {"fbx", Family::Fbx}}) {
    SCOPED_TRACE(format);
    EXPECT_TRUE(Converted(format));
    for (const char* set : {"corvane_plain", "corvane_textured"}) {
      const std::string where = "three.js, " + format + ", " + set;
      if (!reports.contains(format) || !reports.at(format).contains(set)) {
        ADD_FAILURE() << where << ": no report\n" << threeRun.output.substr(0, 2000);
        continue;
      }
      ExpectThreeMaterial(reports.at(format).at(set), set, ImpliedBy(sets.at(set), family), family, where);
    }
  }
}

TEST_F(IndependentReaders, GlbReadsBackLikeTheGltf) {
  if (!glb) GTEST_SKIP() << "vexinterop convert has no --glb";
  ASSERT_TRUE(Converted("glb"));
  for (const char* set : {"corvane_plain", "corvane_textured"}) {
    const Implied implied = ImpliedBy(sets.at(set), Family::Gltf);
    if (!BlenderMissing()) {
      const auto& reports = Blender();
      ASSERT_TRUE(reports.contains("glb") && reports.at("glb").contains(set)) << set << "\n" << blenderRun.output;
      ExpectBlenderMaterial(reports.at("glb").at(set), set, implied, Family::Gltf, std::string("Blender, glb, ") + set);
    }
    if (!ThreeMissing()) {
      const auto& reports = Three();
      ASSERT_TRUE(reports.contains("glb") && reports.at("glb").contains(set)) << set << "\n" << threeRun.output;
      ExpectThreeMaterial(reports.at("glb").at(set), set, implied, Family::Gltf, std::string("three.js, glb, ") + set);
    }
  }
}

Json Property(const Json& material, const std::string& key) {
  return material["properties"].contains(key) ? material["properties"][key] : Json();
}

TEST_F(IndependentReaders, AssimpReadsWhatTheSetsImplyFromFbxAndObj) {
  for (const auto& [format, family] :
       std::vector<std::pair<std::string, Family>>{{"fbx", Family::Fbx}, {"obj", Family::Obj}}) {
    SCOPED_TRACE(format);
    EXPECT_TRUE(Converted(format));
    const auto& reports = Assimp();
    for (const char* set : {"corvane_plain", "corvane_textured"}) {
      const std::string where = "Assimp, " + format + ", " + set;
      const Family kind = family;
      const std::string suffix = format;
      [&] {
        ASSERT_TRUE(reports.contains(suffix) && reports.at(suffix).contains(set)) << where << ": no report\n"
                                                                                  << assimpRun.output.substr(0, 2000);
        const Json& report = reports.at(suffix).at(set);
        ASSERT_FALSE(report.contains("error")) << where << ": " << report.value("error", "");
        const Json* found = nullptr;
        for (const auto& m : report["materials"])
          if (m["name"] == set) found = &m;
        ASSERT_NE(found, nullptr) << where << ": " << report.dump().substr(0, 400);
        const Json& m = *found;
        const Implied implied = ImpliedBy(sets.at(set), kind);
        const Json& textures = m["textures"];
        // Assimp multiplies the colour by its factor; a texture's colour is the factor beside it.
        const auto first = [&](const Json& v) { return v.is_array() && !v.empty() ? v[0] : Json(); };
        EXPECT_TRUE(Near(Property(m, "$clr.diffuse"), implied.base.value, where + " diffuse"));
        EXPECT_EQ(textures.contains("Diffuse"), implied.base.textured) << where << ": " << textures.dump();
        EXPECT_TRUE(Near(Property(m, "$clr.emissive"), implied.emission.value, where + " emissive"));
        EXPECT_EQ(textures.contains("Emissive"), implied.emission.textured) << where;
        EXPECT_TRUE(Near(first(Property(m, "$mat.opacity")), implied.alpha, where + " opacity"));
        // The normal map: `map_Bump` (Assimp's height slot) and `norm` in MTL, the normal slot in FBX.
        if (kind == Family::Obj) {
          EXPECT_EQ(textures.contains("Height"), implied.normal.textured) << where;
          EXPECT_TRUE(Near(first(Property(m, "$mat.metallicFactor")), implied.metal.value[0], where + " Pm"));
          EXPECT_TRUE(Near(first(Property(m, "$mat.roughnessFactor")), implied.rough.value[0], where + " Pr"));
          EXPECT_EQ(textures.contains("Metalness"), implied.metal.textured) << where;
          EXPECT_EQ(textures.contains("DiffuseRoughness"), implied.rough.textured) << where;
        }
        EXPECT_EQ(textures.contains("Normals"), implied.normal.textured) << where;
        // Roughness through the Phong exponent: MTL's Ns as n = 2/r^4 - 2, FBX's ShininessExponent
        // as n = 100 (1 - r)^2 (the rule the FBX readers of the field use).
        if (!implied.rough.textured) {
          const Json n = first(Property(m, "$mat.shininess"));
          ASSERT_TRUE(n.is_number()) << where << ": no shininess";
          const double exponent = n.get<double>();
          const double r = format == std::string("fbx") ? 1.0 - std::sqrt(exponent) / 10.0
                                                        : std::pow(2.0 / (exponent + 2.0), 0.25);
          EXPECT_TRUE(Near(Json(r), implied.rough.value[0], where + " roughness from the exponent " + n.dump()));
        }
        // Texture paths name files that are there (or images carried inside the file, "*<n>").
        for (const auto& [type, list] : textures.items())
          for (const auto& t : list) {
            const std::string path = t["path"];
            if (!path.starts_with("*")) {
              EXPECT_TRUE(fs::exists(File(suffix, set).parent_path() / path)) << where << " " << type << ": " << path;
            }
          }
      }();
    }
  }
}

// ---------------------------------------------------------------------------------------------
// The .usda text: prim path -> attribute -> value text.

using files_test::ParseUsda;

std::vector<double> Numbers(const std::string& text) {
  std::vector<double> out;
  const std::regex number(R"([-+]?(?:\d+\.?\d*|\.\d+)(?:[eE][-+]?\d+)?)");
  for (auto it = std::sregex_iterator(text.begin(), text.end(), number); it != std::sregex_iterator(); ++it)
    out.push_back(std::stod(it->str()));
  return out;
}

TEST_F(IndependentReaders, UsdTextCarriesTheValuesAndNoDisplacementUnlessAsked) {
  ASSERT_TRUE(Converted("usd"));
  for (const char* name : {"corvane_plain", "corvane_textured"}) {
    SCOPED_TRACE(name);
    const SetView& set = sets.at(name);
    const fs::path file = File("usd", name);
    ASSERT_FALSE(file.empty());
    const auto prims = ParseUsda(file);
    const std::string material = std::string("/") + name + "/Materials/" + name;
    const std::string surfacePath = material + "/PreviewSurface";
    ASSERT_TRUE(prims.contains(surfacePath)) << ReadText(file).substr(0, 600);
    const auto& surface = prims.at(surfacePath);
    auto input = [&](const std::string& port) -> std::string {
      const auto it = surface.find("inputs:" + port);
      return it == surface.end() ? std::string() : it->second;
    };
    auto expectNumber = [&](const std::string& port, double expected) {
      const auto values = Numbers(input(port));
      ASSERT_EQ(values.size(), 1u) << port << " = " << input(port);
      EXPECT_NEAR(values[0], expected, kTolerance) << port;
    };
    auto expectColour = [&](const std::string& port, Rgb expected) {
      const auto values = Numbers(input(port));
      ASSERT_EQ(values.size(), 3u) << port << " = " << input(port);
      for (int i = 0; i < 3; ++i) EXPECT_NEAR(values[i], expected[i], kTolerance) << port;
    };
    /// A textured input reads a UsdUVTexture whose file is there, in the colour space and output given.
    auto expectTexture = [&](const std::string& port, const std::string& colourSpace, const std::string& output) {
      const auto it = surface.find("inputs:" + port + ".connect");
      ASSERT_NE(it, surface.end()) << port << " is not connected";
      const std::regex target(R"re(^<(.+)\.outputs:(\w+)>$)re");
      std::smatch m;
      ASSERT_TRUE(std::regex_match(it->second, m, target)) << it->second;
      EXPECT_EQ(m[2].str(), output) << port;
      ASSERT_TRUE(prims.contains(m[1].str())) << m[1];
      const auto& reader = prims.at(m[1].str());
      EXPECT_EQ(reader.at("info:id"), "\"UsdUVTexture\"") << port;
      EXPECT_EQ(reader.at("inputs:sourceColorSpace"), "\"" + colourSpace + "\"") << port;
      const std::string asset = reader.at("inputs:file");
      ASSERT_GE(asset.size(), 2u);
      EXPECT_TRUE(fs::exists(file.parent_path() / asset.substr(1, asset.size() - 2))) << asset;
    };
    EXPECT_EQ(surface.at("info:id"), "\"UsdPreviewSurface\"");
    // The USD mapping takes the colours unweighted (the host names that in a warning).
    const Rgb diffuse = set.Number("diffuse_weight") <= 0 ? Rgb{0, 0, 0} : set.Colour("diffuse_color");
    if (set.Textured("diffuse_color"))
      expectTexture("diffuseColor", "sRGB", "rgb");
    else
      expectColour("diffuseColor", diffuse);
    if (set.Textured("emission_color"))
      expectTexture("emissiveColor", "sRGB", "rgb");
    else
      expectColour("emissiveColor", set.Number("emission_weight") <= 0 ? Rgb{0, 0, 0} : set.Colour("emission_color"));
    if (set.Textured("reflection_roughness"))
      expectTexture("roughness", "raw", "r");
    else
      expectNumber("roughness", set.Number("reflection_roughness"));
    if (set.Textured("metalness"))
      expectTexture("metallic", "raw", "r");
    else
      expectNumber("metallic", set.Number("metalness"));
    expectNumber("ior", set.Number("reflection_ior"));
    expectNumber("clearcoat", set.Number("coat_weight"));
    expectNumber("clearcoatRoughness", set.Number("coat_roughness"));
    if (set.Textured("opacity") || set.Textured("transmission_weight"))
      expectTexture("opacity", "raw", "r");
    else {
      const Rgb o = set.Colour("opacity");
      expectNumber("opacity", (o[0] + o[1] + o[2]) / 3);
    }
    if (set.Textured("overall_normal")) expectTexture("normal", "raw", "rgb");
    // Displacement only where the set itself asks for a heightfield.
    const bool asked = set.parameters.contains("displacement_scale") &&
                       set.Value("displacement_space") == "space_heightfield" && set.Number("displacement_scale") != 0;
    if (asked)
      expectNumber("displacement", set.Number("displacement_scale"));
    else
      EXPECT_TRUE(input("displacement").empty() && !surface.contains("inputs:displacement.connect"))
          << "inputs:displacement = " << input("displacement");
  }
  // The unweighted diffuse colour is named in a warning.
  EXPECT_NE(conversions.at("usd").output.find("corvane_plain"), std::string::npos) << conversions.at("usd").output;
  EXPECT_TRUE(std::regex_search(conversions.at("usd").output, std::regex("warning.*corvane_plain.*diffuse")))
      << conversions.at("usd").output;
}

// ---------------------------------------------------------------------------------------------
// Lights and cameras: a scene with a point, a spot, a directional and a rectangle light (the last
// with a colour temperature) and a perspective camera, written to glTF, FBX and OBJ and opened by
// Blender and three.js. What each shows is worked out by hand from the conversions of
// docs/lights.md ("Lights in files").

class IndependentLights : public ::testing::Test {
 public:
  static constexpr double kPi = std::numbers::pi;
  static constexpr double kYfov = 0.6911112070083618;

  static host::formats::Matrix4 At(double x, double y, double z, double degreesAboutX = 0, double degreesAboutY = 0) {
    // R = Ry * Rx, then the translation.
    const double a = degreesAboutX * kPi / 180, b = degreesAboutY * kPi / 180;
    host::formats::Matrix4 m;
    m.m = {std::cos(b), 0, -std::sin(b), 0,
           std::sin(a) * std::sin(b), std::cos(a), std::sin(a) * std::cos(b), 0,
           std::cos(a) * std::sin(b), -std::sin(a), std::cos(a) * std::cos(b), 0,
           x, y, z, 1};
    return m;
  }

  static void SetUpTestSuite() {
    dir = fs::temp_directory_path() / ("vexinterop_independent_lights_" + std::to_string(getpid()));
    fs::remove_all(dir);
    fs::create_directories(dir);
    // The temperature's RGB as the module computes it.
    const auto rgb = Shell(std::string(INTEROP_VEXINTEROP_PATH) + " light colortemp 3200 --white 6500 --normalize");
    std::istringstream in(rgb.output);
    in >> temperature[0] >> temperature[1] >> temperature[2];
    using Type = host::formats::LightData::Type;
    using host::formats::LightData;
    scene.name = "lights";
    scene.lights = {
        LightData{.name = "Key", .type = Type::Point, .color = {1, 0.9, 0.8}, .intensity = 100, .range = 12},
        LightData{.name = "Spot", .type = Type::Spot, .color = {0.8, 0.9, 1}, .intensity = 250, .innerConeAngle = 0.3,
                  .outerConeAngle = 0.5},
        LightData{.name = "Sun", .type = Type::Directional, .color = {1, 1, 0.9}, .intensity = 5000},
        LightData{.name = "Window", .type = Type::Rect,
                  .color = {0.9 * temperature[0], temperature[1], temperature[2]}, .temperature = 3200,
                  .temperatureRgb = {temperature[0], temperature[1], temperature[2]}, .intensity = 800, .width = 2,
                  .height = 1.5},
    };
    scene.cameras = {host::formats::CameraData{.name = "Lens", .yfov = kYfov, .aspectRatio = 1.5, .znear = 0.1, .zfar = 500}};
    scene.nodes = {
        {.name = "KeyNode", .local = At(1, 2, 3), .light = 0},
        {.name = "SpotNode", .local = At(0, 3, 1, -60, 30), .light = 1},
        {.name = "SunNode", .local = At(0, 10, 0, -90), .light = 2},
        {.name = "WindowNode", .local = At(0, 2, -4, 0, 90), .light = 3},
        {.name = "CamNode", .local = At(0, 1.5, 8, -10, 20), .camera = 0},
    };
    auto bundles = host::PortBundles::Builtin();
    if (!bundles) return;
    host::StagedOutput staged;
    for (const char* format : {"gltf", "fbx", "obj"}) {
      auto result = host::formats::WriteFormatFile(*host::formats::FindFormat(format), scene, (dir / format).string(),
                                                   "lights", *bundles, {}, staged);
      if (result) written[format] = *result;
    }
  }
  static void TearDownTestSuite() {
    if (std::getenv("INTEROP_KEEP_INDEPENDENT") == nullptr) fs::remove_all(dir);
  }

 protected:
  static fs::path File(const std::string& format) { return dir / format / ("lights." + format); }
  static bool BlenderMissing() { return !OnPath("blender"); }
  static bool ThreeMissing() {
    return !OnPath("node") || !fs::exists(kSource / "tools" / "node_modules" / "three" / "package.json");
  }

  static const std::map<std::string, Json>& Blender() {
    static const auto reports = [] {
      std::map<std::string, Json> out;
      std::string pairs;
      for (const char* format : {"gltf", "fbx", "obj"})
        if (fs::exists(File(format))) pairs += " " + Quote(File(format)) + " " + Quote(dir / (std::string(format) + ".json"));
      if (pairs.empty()) return out;
      blenderRun = Shell("PATH=/usr/bin:$PATH blender -b --factory-startup --python " +
                         Quote(kSource / "tests" / "tools" / "blender_read.py") + " --" + pairs);
      for (const char* format : {"gltf", "fbx", "obj"})
        if (fs::exists(dir / (std::string(format) + ".json"))) out[format] = ReadJson(dir / (std::string(format) + ".json"));
      return out;
    }();
    return reports;
  }

  static const std::map<std::string, Json>& Three() {
    static const auto reports = [] {
      std::map<std::string, Json> out;
      threeRun = Shell("node " + Quote(kSource / "tests" / "tools" / "three_read.mjs") + " " + Quote(File("gltf")) + " " +
                       Quote(File("fbx")));
      std::istringstream lines(threeRun.output);
      for (std::string line; std::getline(lines, line);) {
        const auto report = Json::parse(line, nullptr, false);
        if (report.is_discarded() || !report.contains("file")) continue;
        out[fs::path(report["file"].get<std::string>()).extension().string().substr(1)] = report;
      }
      return out;
    }();
    return reports;
  }

  /// The direction a node's -Z points to in the world, in Blender's axes (+Z up: y becomes z,
  /// z becomes -y), as Blender's importers convert a +Y-up file.
  static Rgb BlenderDirection(std::size_t node) {
    const auto& m = scene.nodes[node].local.m;
    const Rgb d{-m[8], -m[9], -m[10]};
    return {d[0], -d[2], d[1]};
  }

  static inline fs::path dir;
  static inline host::formats::SceneData scene;
  static inline std::array<double, 3> temperature{1, 1, 1};
  static inline std::map<std::string, host::formats::WrittenFiles> written;
  static inline Outcome blenderRun, threeRun;
};

/// What Blender should show for one light: type, colour, watts, spot size and blend.
struct BlenderLight {
  std::string object, type;
  Rgb color;
  double energy;
  double spotSize = 0, spotBlend = 0;
  std::size_t node;
};

TEST_F(IndependentLights, BlenderShowsTheDocumentedWattsConesAndCameraFromGltfFbxAndObj) {
  if (BlenderMissing()) GTEST_SKIP() << "blender is not installed (scripts/setup.sh installs it)";
  ASSERT_EQ(written.size(), 3u) << "a format was not written";
  // OBJ leaves both out in one warning line.
  EXPECT_EQ(written.at("obj").warnings,
            std::vector<std::string>{"OBJ has no lights or cameras: 4 light(s) and 1 camera(s) left out"});
  const auto& reports = Blender();
  const auto& l = scene.lights;
  const Rgb window{l[3].color.r, l[3].color.g, l[3].color.b};
  // Blender's glTF importer: W = cd 4 pi / 683 for point and spot lights, lux / 683 for a sun, spot
  // size twice the outer cone angle, blend 1 - inner / outer. The rectangle is a spot opened to
  // the half space (size pi, blend 1) of its on-axis intensity L A = 800 x 3 cd.
  const double pointW = 100 * 4 * kPi / 683, spotW = 250 * 4 * kPi / 683, sunW = 5000 / 683.0;
  const std::vector<BlenderLight> gltf = {
      {"KeyNode", "POINT", {1, 0.9, 0.8}, pointW, 0, 0, 0},
      {"SpotNode", "SPOT", {0.8, 0.9, 1}, spotW, 1.0, 0.4, 1},
      {"SunNode", "SUN", {1, 1, 0.9}, sunW, 0, 0, 2},
      {"WindowNode", "SPOT", window, 2400 * 4 * kPi / 683, kPi, 1.0, 3},
  };
  // Blender's FBX importer: W = Intensity / 100, and we write 100 x the glTF importer's watts; the
  // cone angles are FBX's full angles. An area light is a point light to Blender 3.4, with the
  // power of the rectangle: pi A L / 683 = pi 3 800 / 683 W.
  std::vector<BlenderLight> fbx = gltf;
  fbx[3] = {"WindowNode", "POINT", window, kPi * 3 * 800 / 683, 0, 0, 3};
  for (const auto& [format, expected] : {std::pair{std::string("gltf"), gltf}, std::pair{std::string("fbx"), fbx}}) {
    SCOPED_TRACE(format);
    ASSERT_TRUE(reports.contains(format)) << blenderRun.output.substr(0, 2000);
    const Json& report = reports.at(format);
    ASSERT_FALSE(report.contains("error")) << report.value("error", "");
    ASSERT_EQ(report["lights"].size(), 4u) << report["lights"].dump();
    for (const auto& e : expected) {
      SCOPED_TRACE(e.object);
      ASSERT_TRUE(report["lights"].contains(e.object)) << report["lights"].dump();
      const Json& light = report["lights"][e.object];
      EXPECT_EQ(light["data"], scene.lights[e.node].name);
      EXPECT_EQ(light["type"], e.type);
      EXPECT_TRUE(Near(light["color"], e.color, "colour"));
      EXPECT_TRUE(Near(light["energy"], e.energy, "energy"));
      if (e.type == "SPOT") {
        EXPECT_TRUE(Near(light["spot_size"], e.spotSize, "spot size"));
        EXPECT_TRUE(Near(light["spot_blend"], e.spotBlend, "spot blend"));
      }
      // It shines where its node's -Z points.
      const Json& m = light["matrix_world"];
      const Json shines = Json::array({-Num(m[0][2]), -Num(m[1][2]), -Num(m[2][2])});
      EXPECT_TRUE(Near(shines, BlenderDirection(e.node), "direction"));
    }
    // The camera: the vertical angle, its clip range, looking where its node looks.
    ASSERT_EQ(report["cameras"].size(), 1u) << report["cameras"].dump();
    ASSERT_TRUE(report["cameras"].contains("CamNode")) << report["cameras"].dump();
    const Json& camera = report["cameras"]["CamNode"];
    EXPECT_EQ(camera["type"], "PERSP");
    EXPECT_TRUE(Near(camera["angle_y"], kYfov, "vertical angle"));
    EXPECT_TRUE(Near(camera["clip_start"], 0.1, "clip start"));
    EXPECT_TRUE(Near(camera["clip_end"], 500.0, "clip end"));
    const Json& m = camera["matrix_world"];
    EXPECT_TRUE(Near(Json::array({-Num(m[0][2]), -Num(m[1][2]), -Num(m[2][2])}), BlenderDirection(4), "camera direction"));
    EXPECT_TRUE(Near(Json::array({Num(m[0][1]), Num(m[1][1]), Num(m[2][1])}),
                     Rgb{scene.nodes[4].local.m[4], -scene.nodes[4].local.m[6], scene.nodes[4].local.m[5]}, "camera up"));
    if (format == "fbx") {
      // A 35 mm film on the longer side: 23.333 mm high for 3:2.
      EXPECT_TRUE(Near(camera["sensor_height"], 35 / 1.5, "sensor height"));
      EXPECT_TRUE(Near(camera["lens"], 35 / 1.5 / 2 / std::tan(kYfov / 2), "lens"));
    }
  }
  ASSERT_TRUE(reports.contains("obj"));
  EXPECT_TRUE(reports.at("obj")["lights"].empty()) << reports.at("obj").dump().substr(0, 500);
  EXPECT_TRUE(reports.at("obj")["cameras"].empty());
}

TEST_F(IndependentLights, ThreeJsShowsTheDocumentedIntensitiesAndConesFromGltfAndFbx) {
  if (ThreeMissing()) GTEST_SKIP() << "three.js is not installed (scripts/setup.sh installs it)";
  ASSERT_EQ(written.size(), 3u) << "a format was not written";
  const auto& reports = Three();
  auto find = [](const Json& list, const std::string& name) {
    for (const auto& entry : list)
      if (entry["name"] == name || entry["parent"] == name) return entry;
    return Json();
  };
  const auto& l = scene.lights;
  const Rgb window{l[3].color.r, l[3].color.g, l[3].color.b};
  // glTF: three.js takes candela and lux as they are; the cone's half angle and penumbra
  // 1 - inner / outer; the range as the distance. The rectangle is a spot of 2400 cd opened to pi/2.
  {
    SCOPED_TRACE("gltf");
    ASSERT_TRUE(reports.contains("gltf")) << threeRun.output.substr(0, 2000);
    const Json& lights = reports.at("gltf")["lights"];
    ASSERT_EQ(lights.size(), 4u) << lights.dump();
    const Json key = find(lights, "KeyNode"), spot = find(lights, "SpotNode"), sun = find(lights, "SunNode"),
               area = find(lights, "WindowNode");
    EXPECT_EQ(key["type"], "PointLight");
    EXPECT_TRUE(Near(key["intensity"], 100.0, "key intensity"));
    EXPECT_TRUE(Near(key["color"], Rgb{1, 0.9, 0.8}, "key colour"));
    EXPECT_TRUE(Near(key["distance"], 12.0, "key distance"));
    EXPECT_EQ(spot["type"], "SpotLight");
    EXPECT_TRUE(Near(spot["intensity"], 250.0, "spot intensity"));
    EXPECT_TRUE(Near(spot["angle"], 0.5, "spot angle"));
    EXPECT_TRUE(Near(spot["penumbra"], 0.4, "spot penumbra"));
    EXPECT_EQ(sun["type"], "DirectionalLight");
    EXPECT_TRUE(Near(sun["intensity"], 5000.0, "sun intensity"));
    EXPECT_EQ(area["type"], "SpotLight");
    EXPECT_TRUE(Near(area["intensity"], 2400.0, "window intensity"));
    EXPECT_TRUE(Near(area["angle"], kPi / 2, "window angle"));
    EXPECT_TRUE(Near(area["penumbra"], 1.0, "window penumbra"));
    EXPECT_TRUE(Near(area["color"], window, "window colour"));
    const Json cameras = reports.at("gltf")["cameras"];
    ASSERT_EQ(cameras.size(), 1u) << cameras.dump();
    EXPECT_TRUE(Near(cameras[0]["fov"], kYfov * 180 / kPi, "fov"));
    EXPECT_TRUE(Near(cameras[0]["aspect"], 1.5, "aspect"));
    EXPECT_TRUE(Near(cameras[0]["near"], 0.1, "near"));
    EXPECT_TRUE(Near(cameras[0]["far"], 500.0, "far"));
  }
  // FBX: three.js divides Intensity by 100 (Blender's watts, as written); it reads OuterAngle as
  // the half angle, so its spot angle is the full cone, 1.0 rad; the area light is a point light
  // to it; NearPlane and FarPlane are divided by 1000; the field of view comes from the focal
  // length on its own 35 mm gauge, the vertical angle again.
  {
    SCOPED_TRACE("fbx");
    ASSERT_TRUE(reports.contains("fbx")) << threeRun.output.substr(0, 2000);
    const Json& lights = reports.at("fbx")["lights"];
    ASSERT_EQ(lights.size(), 4u) << lights.dump();
    const Json key = find(lights, "KeyNode"), spot = find(lights, "SpotNode"), sun = find(lights, "SunNode"),
               area = find(lights, "WindowNode");
    EXPECT_EQ(key["type"], "PointLight");
    EXPECT_TRUE(Near(key["intensity"], 100 * 4 * kPi / 683, "key intensity"));
    EXPECT_TRUE(Near(key["color"], Rgb{1, 0.9, 0.8}, "key colour"));
    EXPECT_TRUE(Near(key["distance"], 12.0, "key distance"));
    EXPECT_EQ(spot["type"], "SpotLight");
    EXPECT_TRUE(Near(spot["intensity"], 250 * 4 * kPi / 683, "spot intensity"));
    EXPECT_TRUE(Near(spot["angle"], 1.0, "spot angle"));
    EXPECT_TRUE(Near(spot["penumbra"], 0.4, "spot penumbra"));
    EXPECT_EQ(sun["type"], "DirectionalLight");
    EXPECT_TRUE(Near(sun["intensity"], 5000 / 683.0, "sun intensity"));
    EXPECT_EQ(area["type"], "PointLight");
    EXPECT_TRUE(Near(area["intensity"], kPi * 3 * 800 / 683, "window intensity"));
    EXPECT_TRUE(Near(area["color"], window, "window colour"));
    const Json cameras = reports.at("fbx")["cameras"];
    ASSERT_EQ(cameras.size(), 1u) << cameras.dump();
    EXPECT_TRUE(Near(cameras[0]["fov"], kYfov * 180 / kPi, "fov"));
    EXPECT_TRUE(Near(cameras[0]["aspect"], 1.5, "aspect"));
    EXPECT_TRUE(Near(cameras[0]["near"], 0.1 / 1000, "near"));
    EXPECT_TRUE(Near(cameras[0]["far"], 500.0 / 1000, "far"));
  }
}

TEST_F(IndependentLights, TheKhronosValidatorFindsNoErrorInTheGltf) {
  if (!OnPath("node") || !fs::exists(kSource / "tools" / "node_modules" / "gltf-validator"))
    GTEST_SKIP() << "the validator is not installed (scripts/setup.sh installs it)";
  ASSERT_TRUE(fs::exists(File("gltf")));
  const auto run = Shell("node " + Quote(kSource / "tools" / "checks" / "validate-gltf.mjs") + " " + Quote(File("gltf")));
  EXPECT_EQ(run.exit, 0) << run.output;
  EXPECT_NE(run.output.find("\"errors\":0"), std::string::npos) << run.output;
}

}  // namespace
