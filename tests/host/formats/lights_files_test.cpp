// Lights and cameras in the files the host writes: USD text, FBX records (read back through our
// reader, and written again), glTF's approximations of area lights and OBJ's one warning line. The
// expected numbers are worked out by hand from the conversions in docs/lights.md ("Lights in
// files"), not from the code's helpers.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <numbers>
#include <regex>
#include <sstream>

#include "fbx_scene_support.h"
#include "host/formats/catalogue.h"
#include "host/formats/fbx_binary.h"
#include "host/formats/fbx_io.h"
#include "host/formats/formats.h"
#include "host/formats/gltf_io.h"
#include "test_host.h"

namespace fs = std::filesystem;
namespace formats = host::formats;
namespace fbx = host::formats::fbx;
using Type = formats::LightData::Type;
using fbx_test::Trs;

namespace {

constexpr double kPi = std::numbers::pi;

/// Every kind of light and both kinds of camera, some nodes nested under lights and cameras.
formats::SceneData LightScene() {
  formats::SceneData s;
  s.name = "lights";
  auto light = [&](formats::LightData l) {
    s.lights.push_back(std::move(l));
    return static_cast<int>(s.lights.size() - 1);
  };
  const int key = light({.name = "Key", .type = Type::Point, .color = {1, 0.9, 0.8}, .intensity = 100, .range = 12});
  const int spot = light({.name = "Spot", .type = Type::Spot, .intensity = 250, .innerConeAngle = 0.3, .outerConeAngle = 0.5});
  const int sun = light({.name = "Sun", .type = Type::Directional, .color = {1, 1, 0.9}, .intensity = 5000});
  // 3200 K: the colour (0.9, 1, 1) times the temperature's RGB (1, 0.7, 0.4).
  const int window = light({.name = "Window", .type = Type::Rect, .color = {0.9, 0.7, 0.4}, .temperature = 3200,
                            .temperatureRgb = {1, 0.7, 0.4}, .intensity = 800, .width = 2, .height = 1.5});
  const int bulb = light({.name = "Bulb", .type = Type::Sphere, .intensity = 2000, .radius = 0.1});
  const int tube = light({.name = "Tube", .type = Type::Cylinder, .intensity = 1500, .radius = 0.05, .length = 1.2});
  const int disk = light({.name = "Disk", .type = Type::Disk, .intensity = 400, .radius = 0.3});
  const int sky = light({.name = "Sky", .type = Type::Dome, .intensity = 1, .texture = "sky.hdr"});
  s.cameras.push_back({.name = "Lens", .yfov = 0.6911112070083618, .aspectRatio = 1.5, .znear = 0.1, .zfar = 500});
  s.cameras.push_back({.name = "Plan", .orthographic = true, .aspectRatio = 2, .orthoHeight = 4, .znear = 0.5, .zfar = 90});
  using N = formats::NodeData;
  s.nodes = {
      N{.name = "KeyNode", .local = Trs({1, 2, 3}, {-30, 20, 0}, {1, 1, 1}), .light = key},
      N{.name = "SpotNode", .parent = 0, .local = Trs({0, 1, 0}, {0, 0, 45}, {2, 1, 1}), .light = spot},
      N{.name = "CamNode", .parent = 1, .local = Trs({0, 0, 5}, {10, 0, 0}, {1, 1, 1}), .camera = 0},
      N{.name = "Child", .parent = 2, .local = Trs({0, 3, 0}, {0, 45, 0}, {1, 1, 1})},
      N{.name = "SunNode", .local = Trs({0, 10, 0}, {-90, 0, 0}, {1, 1, 1}), .light = sun},
      N{.name = "WindowNode", .local = Trs({0, 2, -4}, {0, 0, 0}, {1, 1, 1}), .light = window},
      N{.name = "BulbNode", .local = Trs({2, 1, 0}, {0, 0, 0}, {1, 1, 1}), .light = bulb},
      N{.name = "TubeNode", .local = Trs({-2, 1, 0}, {0, 0, 90}, {1, 1, 1}), .light = tube},
      N{.name = "DiskNode", .local = Trs({0, 4, 0}, {-90, 0, 0}, {1, 1, 1}), .light = disk},
      N{.name = "SkyNode", .light = sky},
      N{.name = "PlanNode", .local = Trs({0, 20, 0}, {-90, 0, 0}, {1, 1, 1}), .camera = 1},
  };
  return s;
}

class LightFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = fs::temp_directory_path() / ("lights_files_test_" + std::to_string(getpid()) + "_" +
                                       ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir);
    fs::create_directories(dir);
  }
  void TearDown() override { fs::remove_all(dir); }

  formats::WrittenFiles Write(formats::WriterFn writer, const formats::SceneData& scene, const std::string& stem,
                              formats::WriteOptions options = {}) {
    auto written = writer(scene, dir.string(), stem, testing_support::Host().bundles(), options);
    EXPECT_TRUE(written.has_value()) << written.error().message;
    return written.value_or(formats::WrittenFiles{});
  }
  std::string Text(const std::string& file) const {
    std::ifstream in(dir / file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  fs::path dir;
};

/// The body of `def <schema> "<name>"` in USD text, up to its closing brace.
std::string Prim(const std::string& text, const std::string& schema, const std::string& name) {
  const std::string head = "def " + schema + " \"" + name + "\"";
  const auto at = text.find(head);
  if (at == std::string::npos) return {};
  const auto open = text.find('{', at);
  int depth = 0;
  for (auto i = open; i < text.size(); ++i) {
    if (text[i] == '{') ++depth;
    if (text[i] == '}' && --depth == 0) return text.substr(at, i - at + 1);
  }
  return {};
}

/// The numbers of attribute `name` in a prim body ("float inputs:intensity = 1.5" -> {1.5}).
std::vector<double> Attr(const std::string& prim, const std::string& name) {
  const std::regex line("\\s" + std::regex_replace(name, std::regex(":"), ":") + " = ([^\\n]*)");
  std::smatch m;
  if (!std::regex_search(prim, m, line)) return {};
  std::vector<double> out;
  const std::regex number("-?[0-9.]+(e-?[0-9]+)?");
  const std::string value = m[1];
  for (auto it = std::sregex_iterator(value.begin(), value.end(), number); it != std::sregex_iterator(); ++it)
    out.push_back(std::stod(it->str()));
  return out;
}

double One(const std::string& prim, const std::string& name) {
  const auto v = Attr(prim, name);
  return v.size() == 1 ? v[0] : std::nan("");
}

/// intensity x 2^exposure, and the exposure is the whole part of log2 of that.
double Emission(const std::string& prim) {
  const double intensity = One(prim, "inputs:intensity"), exposure = One(prim, "inputs:exposure");
  EXPECT_GE(intensity, 1.0) << prim;
  EXPECT_LT(intensity, 2.0) << prim;
  return intensity * std::pow(2.0, exposure);
}

TEST_F(LightFiles, UsdWritesEveryLightAsItsUsdLuxPrimAndCamerasWithApertures) {
  const auto scene = LightScene();
  const auto written = Write(formats::FindFormat("usd")->write, scene, "scene");
  // The key light's falloff radius has no UsdLux attribute.
  EXPECT_EQ(written.warnings, std::vector<std::string>{"light 'Key': UsdLux has no falloff radius; range 12 left out"});
  const std::string text = Text("scene.usda");

  // Candela over a 1 cm sphere: 100 cd / (pi 0.01^2 m^2) = 318309.886 nits = 1.2142 x 2^18.
  const std::string key = Prim(text, "SphereLight", "Key");
  ASSERT_FALSE(key.empty()) << text;
  EXPECT_NEAR(Emission(key), 100 / (kPi * 1e-4), 1e-6 * 318309.886);
  EXPECT_EQ(One(key, "inputs:exposure"), 18);
  EXPECT_EQ(One(key, "inputs:radius"), 0.01);
  EXPECT_EQ(One(key, "treatAsPoint"), 1);
  EXPECT_EQ(One(key, "inputs:normalize"), 0);
  EXPECT_EQ(Attr(key, "inputs:color"), (std::vector<double>{1, 0.9, 0.8}));
  EXPECT_EQ(key.find("Temperature"), std::string::npos);
  // The key light sits under its node's transform.
  EXPECT_LT(text.find("def Xform \"KeyNode\""), text.find("def SphereLight \"Key\""));

  // The spot: a shaped sphere, cone 0.5 rad = 28.6479 degrees, softness (0.5 - 0.3) / 0.5.
  const std::string spot = Prim(text, "SphereLight", "Spot");
  EXPECT_NE(spot.find("prepend apiSchemas = [\"ShapingAPI\"]"), std::string::npos) << spot;
  EXPECT_NEAR(Emission(spot), 250 / (kPi * 1e-4), 1e-6 * 795774.7);
  EXPECT_NEAR(One(spot, "inputs:shaping:cone:angle"), 28.64788975654116, 1e-9);
  EXPECT_NEAR(One(spot, "inputs:shaping:cone:softness"), 0.4, 1e-12);

  // The sun in lux: a normalised distant light, 5000 = 1.2207 x 2^12.
  const std::string sun = Prim(text, "DistantLight", "Sun");
  EXPECT_EQ(Emission(sun), 5000);
  EXPECT_EQ(One(sun, "inputs:exposure"), 12);
  EXPECT_EQ(One(sun, "inputs:normalize"), 1);

  // Area lights in nits over their own surface, never normalised; the temperature's RGB is taken
  // out of the colour so that the renderer applies it once.
  const std::string window = Prim(text, "RectLight", "Window");
  EXPECT_EQ(Emission(window), 800);
  EXPECT_EQ(One(window, "inputs:width"), 2);
  EXPECT_EQ(One(window, "inputs:height"), 1.5);
  EXPECT_EQ(One(window, "inputs:normalize"), 0);
  EXPECT_EQ(One(window, "inputs:enableColorTemperature"), 1);
  EXPECT_EQ(One(window, "inputs:colorTemperature"), 3200);
  const auto color = Attr(window, "inputs:color");
  ASSERT_EQ(color.size(), 3u);
  EXPECT_NEAR(color[0], 0.9, 1e-12);
  EXPECT_NEAR(color[1], 1.0, 1e-12);
  EXPECT_NEAR(color[2], 1.0, 1e-12);
  EXPECT_EQ(One(Prim(text, "SphereLight", "Bulb"), "inputs:radius"), 0.1);
  EXPECT_EQ(Prim(text, "SphereLight", "Bulb").find("treatAsPoint"), std::string::npos);
  const std::string tube = Prim(text, "CylinderLight", "Tube");
  EXPECT_EQ(One(tube, "inputs:length"), 1.2);
  EXPECT_EQ(One(tube, "inputs:radius"), 0.05);
  EXPECT_EQ(Emission(tube), 1500);
  EXPECT_EQ(One(Prim(text, "DiskLight", "Disk"), "inputs:radius"), 0.3);
  const std::string sky = Prim(text, "DomeLight", "Sky");
  EXPECT_NE(sky.find("asset inputs:texture:file = @sky.hdr@"), std::string::npos) << sky;
  EXPECT_NE(sky.find("token inputs:texture:format = \"latlong\""), std::string::npos) << sky;
  EXPECT_EQ(Emission(sky), 1);

  // Cameras: a 35-unit film (tenths of a scene unit) on the longer side, 35 x 23.333 for 3:2; the
  // focal length gives the vertical field of view back: 2 atan(23.333 / 2 / f) = 0.6911.
  const std::string lens = Prim(text, "Camera", "Lens");
  EXPECT_NE(lens.find("token projection = \"perspective\""), std::string::npos) << lens;
  EXPECT_EQ(One(lens, "horizontalAperture"), 35);
  EXPECT_NEAR(One(lens, "verticalAperture"), 35 / 1.5, 1e-12);
  EXPECT_NEAR(2 * std::atan(35 / 1.5 / 2 / One(lens, "focalLength")), 0.6911112070083618, 1e-12);
  EXPECT_EQ(Attr(lens, "clippingRange"), (std::vector<double>{0.1, 500}));
  // Orthographic: the view volume in tenths of a unit, 4 high and 8 wide.
  const std::string plan = Prim(text, "Camera", "Plan");
  EXPECT_NE(plan.find("token projection = \"orthographic\""), std::string::npos) << plan;
  EXPECT_EQ(One(plan, "verticalAperture"), 40);
  EXPECT_EQ(One(plan, "horizontalAperture"), 80);
  // A centimetre scene: the point light's sphere is still 1 cm (1 unit), so 100 cd give 100 / pi
  // nits per square centimetre... in the scene's units: 100 / (pi 1^2).
  auto centimetres = scene;
  centimetres.metersPerUnit = 0.01;
  Write(formats::FindFormat("usd")->write, centimetres, "cm");
  const std::string cm = Prim(Text("cm.usda"), "SphereLight", "Key");
  EXPECT_EQ(One(cm, "inputs:radius"), 1);
  EXPECT_NEAR(Emission(cm), 100 / kPi, 1e-12);
  // A light and a camera no node carries cannot be placed: both writers say so.
  auto loose = scene;
  loose.lights.push_back({.name = "Loose"});
  loose.cameras.push_back({.name = "Loose"});
  for (const char* format : {"usd", "fbx"}) {
    const auto warnings = Write(formats::FindFormat(format)->write, loose, std::string("loose_") + format).warnings;
    EXPECT_EQ(warnings.back(), "1 light(s) and 1 camera(s) on no node; left out") << format;
  }
}

// --- FBX -----------------------------------------------------------------------------------------

/// Properties70 of every NodeAttribute, by its name.
std::map<std::string, std::map<std::string, std::vector<double>>> FbxAttributes(const std::string& bytes) {
  std::map<std::string, std::map<std::string, std::vector<double>>> out;
  auto top = fbx::DecodeBinary(bytes, "scene.fbx");
  EXPECT_TRUE(top.has_value());
  if (!top) return out;
  for (const auto& node : *top) {
    if (node.name != "Objects") continue;
    for (const auto& object : node.children) {
      if (object.name != "NodeAttribute") continue;
      std::string name = std::get<std::string>(object.properties[1]);
      name = name.substr(0, name.find('\0'));
      auto& props = out[name];
      for (const auto& p : object.Find("Properties70")->children) {
        std::vector<double> values;
        for (std::size_t k = 4; k < p.properties.size(); ++k) {
          if (const auto* d = std::get_if<double>(&p.properties[k])) values.push_back(*d);
          if (const auto* i = std::get_if<std::int32_t>(&p.properties[k])) values.push_back(*i);
        }
        props[std::get<std::string>(p.properties[0])] = values;
      }
    }
  }
  return out;
}

/// Lcl Rotation of a Model, by its name.
std::vector<double> ModelRotation(const std::string& bytes, const std::string& model) {
  auto top = fbx::DecodeBinary(bytes, "scene.fbx");
  if (!top) return {};
  for (const auto& node : *top) {
    if (node.name != "Objects") continue;
    for (const auto& object : node.children)
      if (object.name == "Model" && std::get<std::string>(object.properties[1]) == fbx::ObjectName(model, "Model"))
        for (const auto& p : object.Find("Properties70")->children)
          if (std::get<std::string>(p.properties[0]) == "Lcl Rotation")
            return {std::get<double>(p.properties[4]), std::get<double>(p.properties[5]), std::get<double>(p.properties[6])};
  }
  return {};
}

TEST_F(LightFiles, FbxCarriesLightsAndCamerasInTheReadersUnitsAndReadsThemBack) {
  const auto scene = LightScene();
  const auto written = Write(formats::FindFormat("fbx")->write, scene, "scene");
  EXPECT_EQ(written.warnings, (std::vector<std::string>{
                                  "light 'Window': FBX has no colour temperature; its colour carries it",
                                  "light 'Sky': a dome light has no FBX type; left out"}));
  const std::string bytes = Text("scene.fbx");
  const auto attributes = FbxAttributes(bytes);
  // Intensity is 100 x Blender's watts: 100 cd x 4 pi / 683 = 1.83985 W for the point light.
  const auto& key = attributes.at("Key");
  EXPECT_EQ(key.at("LightType"), std::vector<double>{0});
  EXPECT_NEAR(key.at("Intensity")[0], 100 * 100 * 4 * kPi / 683, 1e-9);
  EXPECT_EQ(key.at("Color"), (std::vector<double>{1, 0.9, 0.8}));
  EXPECT_EQ(key.at("EnableFarAttenuation"), std::vector<double>{1});
  EXPECT_EQ(key.at("FarAttenuationEnd"), std::vector<double>{12});
  EXPECT_EQ(key.at("DecayType"), std::vector<double>{2});
  // Spot cones as full angles in degrees: 2 x 0.5 rad = 57.2958, 2 x 0.3 rad = 34.3775.
  const auto& spot = attributes.at("Spot");
  EXPECT_EQ(spot.at("LightType"), std::vector<double>{2});
  EXPECT_NEAR(spot.at("OuterAngle")[0], 57.29577951308232, 1e-9);
  EXPECT_NEAR(spot.at("InnerAngle")[0], 34.37746770784939, 1e-9);
  // The sun: 5000 lux / 683 = 7.3206 W/m^2.
  EXPECT_EQ(attributes.at("Sun").at("LightType"), std::vector<double>{1});
  EXPECT_NEAR(attributes.at("Sun").at("Intensity")[0], 100 * 5000 / 683.0, 1e-9);
  // Area lights: pi A L / 683 W; the window is 2 x 1.5 at 800 nits = 11.039 W, the bulb's sphere of
  // radius 0.1 has 4 pi 0.01 m^2.
  const auto& window = attributes.at("Window");
  EXPECT_EQ(window.at("LightType"), std::vector<double>{3});
  EXPECT_EQ(window.at("AreaLightShape"), std::vector<double>{0});
  EXPECT_NEAR(window.at("Intensity")[0], 100 * kPi * 3 * 800 / 683, 1e-9);
  EXPECT_EQ(window.at("Color"), (std::vector<double>{0.9, 0.7, 0.4}));
  EXPECT_EQ(attributes.at("Bulb").at("AreaLightShape"), std::vector<double>{1});
  EXPECT_NEAR(attributes.at("Bulb").at("Intensity")[0], 100 * kPi * 4 * kPi * 0.01 * 2000 / 683, 1e-9);
  EXPECT_FALSE(attributes.contains("Sky"));
  // The camera: a 35 mm x 23.333 mm film (in inches) and the focal length of the field of view.
  const auto& lens = attributes.at("Lens");
  EXPECT_EQ(lens.at("CameraProjectionType"), std::vector<double>{0});
  EXPECT_NEAR(lens.at("FilmWidth")[0], 35 / 25.4, 1e-12);
  EXPECT_NEAR(lens.at("FilmHeight")[0], 35 / 1.5 / 25.4, 1e-12);
  EXPECT_NEAR(lens.at("FocalLength")[0], 35 / 1.5 / 2 / std::tan(0.6911112070083618 / 2), 1e-9);
  EXPECT_NEAR(lens.at("FieldOfViewY")[0], 0.6911112070083618 * 180 / kPi, 1e-9);
  EXPECT_NEAR(lens.at("AspectWidth")[0] / lens.at("AspectHeight")[0], 1.5, 1e-12);
  EXPECT_EQ(lens.at("NearPlane"), std::vector<double>{0.1});
  EXPECT_EQ(lens.at("FarPlane"), std::vector<double>{500});
  EXPECT_EQ(attributes.at("Plan").at("CameraProjectionType"), std::vector<double>{1});
  EXPECT_EQ(attributes.at("Plan").at("OrthoZoom"), std::vector<double>{8});  // the wider side
  // FBX lights shine down -Y and cameras look down +X: a node that looks straight down -Z is
  // turned by 90 degrees about X (lights) or Y (cameras).
  EXPECT_EQ(ModelRotation(bytes, "SkyNode"), (std::vector<double>{0, 0, 0}));  // its dome was left out
  EXPECT_EQ(ModelRotation(bytes, "WindowNode"), (std::vector<double>{90, 0, 0}));
  const auto planRotation = ModelRotation(bytes, "PlanNode");  // -90 about X, then 90 about Y

  // Read back through our reader: every light but the dome, every camera, and every node where
  // it was, within float precision.
  auto back = formats::detail::ReadFbx((dir / "scene.fbx").string(), testing_support::Host().bundles(), {});
  ASSERT_TRUE(back) << back.error().message;
  // (The reader lists nodes breadth first, so lights, cameras and nodes are matched by name.)
  ASSERT_EQ(back->lights.size(), scene.lights.size() - 1);
  for (std::size_t i = 0; i + 1 < scene.lights.size(); ++i) {
    const auto& a = scene.lights[i];
    SCOPED_TRACE(a.name);
    const auto found = std::find_if(back->lights.begin(), back->lights.end(), [&](const auto& l) { return l.name == a.name; });
    ASSERT_NE(found, back->lights.end());
    const auto& b = *found;
    EXPECT_EQ(a.type, b.type);
    EXPECT_NEAR(b.intensity, a.intensity, 1e-6 * a.intensity);
    EXPECT_NEAR(b.color.g, a.color.g, 1e-9);
    EXPECT_NEAR(b.color.b, a.color.b, 1e-9);
    EXPECT_EQ(b.range.has_value(), a.range.has_value());
    if (a.type == Type::Spot) {
      EXPECT_NEAR(b.outerConeAngle, a.outerConeAngle, 1e-12);
      EXPECT_NEAR(b.innerConeAngle, a.innerConeAngle, 1e-12);
    }
    EXPECT_EQ(b.width, a.width);
    EXPECT_EQ(b.radius, a.radius);
    EXPECT_EQ(b.length, a.length);
  }
  ASSERT_EQ(back->cameras.size(), 2u);
  if (back->cameras[0].name != "Lens") std::swap(back->cameras[0], back->cameras[1]);
  EXPECT_NEAR(back->cameras[0].yfov, scene.cameras[0].yfov, 1e-12);
  EXPECT_NEAR(back->cameras[0].aspectRatio, 1.5, 1e-12);
  EXPECT_EQ(back->cameras[0].zfar, 500);
  EXPECT_TRUE(back->cameras[1].orthographic);
  EXPECT_NEAR(back->cameras[1].orthoHeight, 4, 1e-12);
  ASSERT_EQ(back->nodes.size(), scene.nodes.size());
  auto parentName = [](const formats::SceneData& s, const formats::NodeData& n) {
    return n.parent >= 0 ? s.nodes[static_cast<std::size_t>(n.parent)].name : std::string();
  };
  for (const auto& a : scene.nodes) {
    SCOPED_TRACE(a.name);
    const auto found = std::find_if(back->nodes.begin(), back->nodes.end(), [&](const auto& n) { return n.name == a.name; });
    ASSERT_NE(found, back->nodes.end());
    const auto& b = *found;
    EXPECT_EQ(parentName(scene, a), parentName(*back, b));
    EXPECT_EQ(a.camera >= 0, b.camera >= 0);
    EXPECT_EQ(a.light >= 0 && scene.lights[static_cast<std::size_t>(a.light)].type != Type::Dome, b.light >= 0);
    for (std::size_t k = 0; k < 16; ++k) EXPECT_NEAR(b.local.m[k], a.local.m[k], 1e-5) << k;
  }
  EXPECT_TRUE(back->warnings.empty()) << ::testing::PrintToString(back->warnings);

  // FBX -> read -> FBX: the same properties, within 1e-4.
  Write(formats::FindFormat("fbx")->write, *back, "again");
  const auto again = FbxAttributes(Text("again.fbx"));
  ASSERT_EQ(again.size(), attributes.size());
  for (const auto& [name, props] : attributes)
    for (const auto& [prop, values] : props) {
      ASSERT_TRUE(again.at(name).contains(prop)) << name << " " << prop;
      const auto& other = again.at(name).at(prop);
      ASSERT_EQ(other.size(), values.size()) << name << " " << prop;
      for (std::size_t k = 0; k < values.size(); ++k)
        EXPECT_NEAR(other[k], values[k], 1e-4 * std::max(1.0, std::abs(values[k]))) << name << " " << prop;
    }
  const auto againRotation = ModelRotation(Text("again.fbx"), "PlanNode");
  ASSERT_EQ(againRotation.size(), 3u);
  for (std::size_t k = 0; k < 3; ++k) EXPECT_NEAR(againRotation[k], planRotation[k], 1e-4);
}

TEST_F(LightFiles, FbxAsciiLightsComeBackThroughAssimpsView) {
  // The ASCII form is read through Assimp alone: it gives colour x Intensity / 100, split again at
  // the largest component, and cone angles as the file's full angles.
  formats::SceneData scene;
  scene.lights.push_back({.name = "Spot", .type = Type::Spot, .color = {0.5, 1, 0.25}, .intensity = 300,
                          .innerConeAngle = 0.2, .outerConeAngle = 0.6});
  scene.cameras.push_back({.name = "Lens", .yfov = 0.5, .aspectRatio = 1.25, .znear = 0.2, .zfar = 40});
  scene.nodes = {{.name = "SpotNode", .local = Trs({0, 3, 0}, {-60, 0, 0}, {1, 1, 1}), .light = 0},
                 {.name = "Lens", .local = Trs({0, 0, 9}, {0, 20, 0}, {1, 1, 1}), .camera = 0}};
  Write(formats::FindFormat("fbx")->write, scene, "scene", {.fbxAscii = true});
  auto back = formats::detail::ReadFbx((dir / "scene.fbx").string(), testing_support::Host().bundles(), {});
  ASSERT_TRUE(back) << back.error().message;
  ASSERT_EQ(back->lights.size(), 1u);
  EXPECT_EQ(back->lights[0].type, Type::Spot);
  EXPECT_NEAR(back->lights[0].intensity, 300, 1e-3);
  EXPECT_NEAR(back->lights[0].color.r, 0.5, 1e-6);
  EXPECT_NEAR(back->lights[0].color.b, 0.25, 1e-6);
  EXPECT_NEAR(back->lights[0].outerConeAngle, 0.6, 1e-6);
  EXPECT_NEAR(back->lights[0].innerConeAngle, 0.2, 1e-6);
  ASSERT_EQ(back->cameras.size(), 1u);
  EXPECT_NEAR(back->cameras[0].yfov, 0.5, 1e-6);
  EXPECT_NEAR(back->cameras[0].aspectRatio, 1.25, 1e-6);
  EXPECT_NEAR(back->cameras[0].znear, 0.2, 1e-6);
  ASSERT_EQ(back->nodes.size(), 2u);
  for (std::size_t n = 0; n < 2; ++n)
    for (std::size_t k = 0; k < 16; ++k) EXPECT_NEAR(back->nodes[n].local.m[k], scene.nodes[n].local.m[k], 1e-5);
}

TEST_F(LightFiles, GltfApproximatesAreaLightsAndObjCountsWhatItLeavesOut) {
  const auto scene = LightScene();
  const auto gltf = Write(formats::FindFormat("gltf")->write, scene, "scene");
  // Round area lights keep their flux as a point light: pi A L / (4 pi) = A L / 4 candela; the
  // bulb is 4 pi 0.01 m^2 at 2000 nits = 62.83 cd, the tube 2 pi 0.05 1.2 m^2 at 1500 = 141.37 cd.
  // One-sided ones become a spot opened to the half space with their on-axis intensity A L.
  EXPECT_EQ(gltf.warnings,
            (std::vector<std::string>{
                "light 'Window': a rectangle light has no glTF type; written as a spot light opened to the half "
                "space with its on-axis intensity (2400 cd)",
                "light 'Bulb': a sphere light has no glTF type; written as a point light of the same luminous flux "
                "(62.83185307179587 cd)",
                "light 'Tube': a cylinder light has no glTF type; written as a point light of the same luminous "
                "flux (141.3716694115407 cd)",
                "light 'Disk': a disk light has no glTF type; written as a spot light opened to the half space with "
                "its on-axis intensity (113.09733552923255 cd)",
                "light 'Sky': a dome light has no glTF type; left out"}));
  EXPECT_NEAR(2000 * 4 * kPi * 0.01 / 4, 62.83185307179587, 1e-9);
  EXPECT_NEAR(1500 * 2 * kPi * 0.05 * 1.2 / 4, 141.3716694115407, 1e-9);
  EXPECT_NEAR(400 * kPi * 0.09, 113.09733552923255, 1e-9);

  // A hard-edged spot (inner = outer) keeps its inner angle just below the outer one, as glTF wants.
  formats::SceneData hard;
  hard.lights.push_back({.name = "Hard", .type = Type::Spot, .innerConeAngle = 0.4, .outerConeAngle = 0.4});
  hard.nodes.push_back({.name = "HardNode", .light = 0});
  Write(formats::FindFormat("gltf")->write, hard, "hard");
  auto hardBack = formats::detail::ReadGltf((dir / "hard.gltf").string(), testing_support::Host().bundles(), {});
  ASSERT_TRUE(hardBack) << hardBack.error().message;
  ASSERT_EQ(hardBack->lights.size(), 1u);
  EXPECT_LT(hardBack->lights[0].innerConeAngle, 0.4);
  EXPECT_NEAR(hardBack->lights[0].innerConeAngle, 0.4, 1e-12);

  const auto obj = Write(formats::FindFormat("obj")->write, scene, "scene");
  EXPECT_EQ(obj.warnings, std::vector<std::string>{"OBJ has no lights or cameras: 8 light(s) and 2 camera(s) left out"});
}

}  // namespace
