// Lights end to end: the built library loaded by the reference host builds and
// measures lights, and `vexinterop light ...` works on scene files.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "host/reference_host.h"
#include "host/scene_file.h"
#include "vex/interfaces.h"
#include "vex/lookup.h"

namespace fs = std::filesystem;

namespace {

struct Outcome {
  int exit = -1;
  std::string out;  ///< stdout and stderr
};

Outcome Tool(const std::string& arguments) {
  Outcome o;
  const std::string command = std::string(INTEROP_VEXINTEROP_PATH) + " " + arguments + " 2>&1";
  FILE* pipe = popen(command.c_str(), "r");
  char buffer[4096];
  while (pipe && fgets(buffer, sizeof buffer, pipe)) o.out += buffer;
  const int status = pipe ? pclose(pipe) : -1;
  o.exit = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return o;
}

struct TempDir {
  fs::path path = fs::temp_directory_path() / ("light_cli_test_" + std::to_string(getpid()));
  TempDir() { fs::create_directories(path); }
  ~TempDir() { fs::remove_all(path); }
  std::string operator/(const std::string& name) const { return (path / name).string(); }
};

const std::string kExamples = std::string(INTEROP_SOURCE_DIR) + "/examples/";

std::vector<double> Numbers(const std::string& text) {
  std::istringstream in(text);
  std::vector<double> out;
  for (double v; in >> v;) out.push_back(v);
  return out;
}

TEST(LightsThroughTheLoadedModule, FactoryBuildsACorvaneLightThatTheUtilitiesMeasure) {
  host::HostOptions options;
  options.quiet = true;
  host::ReferenceHost h(options);
  auto report = h.Load(INTEROP_MODULE_PATH);
  ASSERT_TRUE(report) << report.error().Describe();
  auto importer = vex::CreateAs<vex::IGlobalImport>("net.kelvo.exchange.globalimport");
  auto utils = vex::CreateAs<vex::IGlobalUtils>("net.kelvo.exchange.globalutils");
  ASSERT_TRUE(importer && utils);
  EXPECT_EQ((*importer)->FillDropdown(), std::vector<std::string>{"light"});

  // Declaration order: the lights units after the frame's, the base class before the light class
  // before the Corvane class, then the global import and utilities.
  std::vector<std::string> classes;
  for (const auto& decl : h.components().Declarations(host::ReferenceHost::kModuleName))
    if (decl.kind == vex::DeclarationKind::Component &&
        (decl.id.starts_with("net.kelvo.tessel.") || decl.id.starts_with("net.kelvo.exchange.")))
      classes.push_back(decl.id);
  EXPECT_EQ(classes,
            (std::vector<std::string>{
                "net.kelvo.tessel.vexobjectclasses.base", "net.kelvo.tessel.vexobjectclasses.light",
                "net.kelvo.tessel.factory.vexobjectfromfactory", "net.kelvo.tessel.vexobjectclasses.corvanearealight",
                "net.kelvo.exchange.globalimport", "net.kelvo.exchange.globalutils"}));

  vex::tessel::VEXObjectDescription d;
  d.data.Set(std::string(vex::tessel::key::kObjectType), std::string("light"));
  d.data.Set(std::string(vex::tessel::key::kName), std::string("Bulb"));
  d.data.Set("net.kelvo.tessel.presenterdata.light.type", std::string("point"));
  d.data.Set("net.kelvo.tessel.presenterdata.light.unitstype", std::string("luminous_power"));
  d.data.Set("net.kelvo.tessel.presenterdata.light.intensity", std::int32_t{100});
  ASSERT_TRUE((*utils)->ConformDescription(d));
  host::Document& document = h.documents().NewDocument("scene");
  auto objects = (*importer)->ImportObjects(document, "org.example.nodespace", {d}, nullptr);
  ASSERT_TRUE(objects) << objects.error().Describe();
  ASSERT_EQ(objects->size(), 1u);
  EXPECT_EQ((*objects)[0]->GetType(), 1036751);
  EXPECT_NEAR(*(*utils)->CVLightGetBaseIntensity((*objects)[0]), 31.830988618379067, 1e-12);

  d.data.Erase(vex::tessel::key::kObjectType);
  h.console().Clear();
  EXPECT_FALSE((*importer)->ImportObjects(document, "org.example.nodespace", {d}, nullptr));
  const auto lines = h.console().Lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_NE(lines[0].find("did you defined the object type in the datadictionary?"), std::string::npos);
  EXPECT_EQ(document.Objects().size(), 1u);
}

TEST(LightCommands, ColourTemperaturePrintsSeventeenDigits) {
  const auto white = Tool("light colortemp 6500 --white 6500 --normalize");
  ASSERT_EQ(white.exit, 0) << white.out;
  const auto rgb = Numbers(white.out);
  ASSERT_EQ(rgb.size(), 3u) << white.out;
  for (const double c : rgb) EXPECT_NEAR(c, 1.0, 1e-4);

  const auto warm = Tool("light colortemp 2700");
  ASSERT_EQ(warm.exit, 0) << warm.out;
  const auto first = warm.out.substr(0, warm.out.find(' '));
  EXPECT_GE(first.size(), 17u) << warm.out;  // 1.xxxxxxxxxxxxxxxx
  EXPECT_GT(Numbers(warm.out)[0], Numbers(warm.out)[2]);

  // The colour matching table holds six decimals: it moves the low end of the range.
  const auto low = Tool("light colortemp 1000 --white 6500 --normalize");
  ASSERT_EQ(low.exit, 0) << low.out;
  ASSERT_EQ(Numbers(low.out).size(), 3u) << low.out;
  EXPECT_NEAR(Numbers(low.out)[1], 0.0158723, 5e-8) << low.out;

  const auto zero = Tool("light colortemp 0");
  EXPECT_EQ(zero.exit, 1);
  EXPECT_NE(zero.out.find("the temperature must be a positive number of kelvin"), std::string::npos) << zero.out;
}

TEST(LightCommands, BaseIntensityAndConvertOnTheExampleScene) {
  TempDir dir;
  const std::string scene = kExamples + "lights_scene.vex";
  const auto base = Tool("light base-intensity " + scene + " --object Key");
  ASSERT_EQ(base.exit, 0) << base.out;
  EXPECT_EQ(base.out, "31.830988618379067\n");

  const auto out = dir / "converted.vex";
  const auto converted = Tool("light convert " + scene + " --object Key --units 3 -o " + out);
  ASSERT_EQ(converted.exit, 0) << converted.out;
  host::Documents documents;
  host::Units units;
  auto saved = host::scene_file::Load(documents, out, {&units});
  ASSERT_TRUE(saved) << saved.error().Describe();
  const auto* key = (*saved)->FindObject("Key");
  EXPECT_NEAR(key->Parameters().GetFloat(11004), 100.0 / 17.0, 1e-12);
  EXPECT_EQ(key->Parameters().GetInt32(11005), 3);  // the command stores the target units
  // The converted light measures the same.
  const auto again = Tool("light base-intensity " + out + " --object Key");
  EXPECT_NEAR(Numbers(again.out).at(0), 31.830988618379067, 1e-12);

  // Failures: exit 1, the file and the problem named, no output written.
  const auto badUnits = Tool("light convert " + scene + " --object Key --units 7 -o " + (dir / "u.vex"));
  EXPECT_EQ(badUnits.exit, 1);
  EXPECT_NE(badUnits.out.find(scene + ": Illegal state: Unknown target light units! (lights_impl:"), std::string::npos)
      << badUnits.out;
  EXPECT_FALSE(fs::exists(dir / "u.vex"));
  const auto missing = Tool("light base-intensity " + scene + " --object Fill");
  EXPECT_EQ(missing.exit, 1);
  EXPECT_NE(missing.out.find("no object named \"Fill\""), std::string::npos) << missing.out;
  std::ofstream(dir / "cube.vex") << R"({"objects": [{"type": 5159, "name": "Cube"}]})";
  const auto cube = Tool("light base-intensity " + (dir / "cube.vex") + " --object Cube");
  EXPECT_EQ(cube.exit, 1);
  EXPECT_NE(cube.out.find("Illegal argument: Passed object is not an CV light!"), std::string::npos) << cube.out;
}

TEST(LightCommands, BuildFromADescription) {
  TempDir dir;
  const auto out = dir / "built.vex";
  const auto built = Tool("light build " + kExamples + "light_description.json -o " + out);
  ASSERT_EQ(built.exit, 0) << built.out;
  host::Documents documents;
  auto scene = host::scene_file::Load(documents, out);
  ASSERT_TRUE(scene) << scene.error().Describe();
  const auto* fill = (*scene)->FindObject("Window Fill");
  ASSERT_NE(fill, nullptr);
  EXPECT_EQ(fill->GetType(), 1036751);
  EXPECT_EQ(fill->Parameters().GetInt32(10000), 3);
  EXPECT_EQ(fill->Parameters().GetInt32(11010), 1);
  EXPECT_EQ(fill->Parameters().GetFloat(11004), 1200.0);
  ASSERT_EQ(fill->GetTracks().size(), 1u);
  EXPECT_EQ(fill->GetTracks()[0].id, (vex::TrackId{903, 1}));

  // Into an existing scene, for another renderer (Corvane's class serves it).
  const auto into = dir / "into.vex";
  const auto added = Tool("light build " + kExamples + "light_description.json --space org.example.nodespace --into " +
                          kExamples + "lights_scene.vex -o " + into);
  ASSERT_EQ(added.exit, 0) << added.out;
  host::Units units;
  auto merged = host::scene_file::Load(documents, into, {&units});
  ASSERT_TRUE(merged);
  EXPECT_EQ((*merged)->Objects().size(), 4u);

  const std::string untyped = dir / "untyped.json";
  std::ofstream(untyped) << R"({"net.kelvo.tessel.presenterdata.light.type": "spot"})";
  const auto failed = Tool("light build " + untyped + " -o " + (dir / "none.vex"));
  EXPECT_EQ(failed.exit, 1);
  EXPECT_NE(failed.out.find(untyped + ": Key not found: net.kelvo.tessel.presenterdata.basic.objecttype"),
            std::string::npos)
      << failed.out;
  EXPECT_FALSE(fs::exists(dir / "none.vex"));
  const std::string wrong = dir / "wrong.json";
  std::ofstream(wrong) << R"({"net.kelvo.tessel.presenterdata.basic.objecttype": "light",
                             "net.kelvo.tessel.presenterdata.light.shadow": "yes"})";
  const auto typed = Tool("light build " + wrong + " -o " + (dir / "none.vex"));
  EXPECT_EQ(typed.exit, 1);
  EXPECT_NE(typed.out.find(wrong + ": net.kelvo.tessel.presenterdata.light.shadow: cannot be read as bool"),
            std::string::npos)
      << typed.out;
}

}  // namespace
