// vexinterop material export|import end to end on the example scene: every
// export path from the command line, and a set imported back into a scene
// that loads and exports again.
#include <gtest/gtest.h>

#include "run_tool.h"
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace fs = std::filesystem;

namespace {

using cli_test::Outcome;
using cli_test::Tool;

std::string Read(const fs::path& path) {
  std::ifstream in(path);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

struct TempDir {
  fs::path path = fs::temp_directory_path() / ("vexinterop_material_" + std::to_string(getpid()));
  TempDir() { fs::create_directories(path); }
  ~TempDir() { fs::remove_all(path); }
};

const std::string kScene = std::string(INTEROP_SOURCE_DIR) + "/examples/materials_scene.vex";

TEST(VexinteropMaterial, ExportsEveryMaterialOfTheExampleScene) {
  TempDir dir;
  const struct {
    const char* material;
    const char* bundle;
    const char* texturedPort;  // a port written with a texture file, or empty
  } cases[] = {
      {"Brick", "net.kelvo.material.portbundle.standardsurface", ""},
      {"Plaster", "net.kelvo.material.portbundle.standardsurface", ""},
      {"Leather", "net.kelvo.material.portbundle.standardsurface", ""},
      {"Wood", "net.kelvo.material.portbundle.corvane", "reflection_roughness"},
      {"Tiles", "net.kelvo.material.portbundle.corvane", "diffuse_color"},
      {"Viewport Metal", "net.kelvo.nodespace.exchange.bundle.viewportmaterial", "specular.roughness"},
      {"Preview Glow", "net.kelvo.material.portbundle.generic", ""},
  };
  for (const auto& c : cases) {
    const fs::path out = dir.path / (std::string(c.material) + ".json");
    auto o = Tool("material export " + kScene + " --material \"" + c.material + "\" --texture-size 8 -o \"" +
                  out.string() + "\"");
    ASSERT_EQ(o.exit, 0) << c.material << ": " << o.output;
    const std::string json = Read(out);
    EXPECT_NE(json.find(c.bundle), std::string::npos) << c.material << json;
    if (*c.texturedPort != '\0') {
      const fs::path texture = dir.path / (std::string(c.material) + "." + c.texturedPort + ".png");
      EXPECT_TRUE(fs::exists(texture)) << texture;
    }
  }
  EXPECT_NE(Read(dir.path / "Leather.json").find("SubstanceReference"), std::string::npos);
  // A channel bitmap goes out as a reference to its file, which the export does not read.
  const std::string brick = Read(dir.path / "Brick.json");
  EXPECT_NE(brick.find("\"type\": \"ImageReference\""), std::string::npos) << brick;
  EXPECT_NE(brick.find("/examples/materials/brick.png\""), std::string::npos) << brick;
  EXPECT_FALSE(fs::exists(dir.path / "Brick.base_color.png"));
}

TEST(VexinteropMaterial, AcceptedBundlesSizeAndResizeChooseTheResult) {
  TempDir dir;
  const fs::path out = dir.path / "wood.json";
  auto o = Tool("material export " + kScene + " --material Wood --accept net.kelvo.material.portbundle.gltf=0 "
                "--accept net.kelvo.material.portbundle.corvane=1 --texture-size 6 --resize pad -o " + out.string());
  ASSERT_EQ(o.exit, 0) << o.output;
  EXPECT_NE(Read(out).find("\"bundle\": \"net.kelvo.material.portbundle.corvane\""), std::string::npos);
  EXPECT_NE(Read(out).find("\"texture\": \"wood.diffuse_color.png\""), std::string::npos);

  auto none = Tool("material export " + kScene + " --material Wood --accept net.kelvo.material.portbundle.gltf=0 -o " +
                   (dir.path / "none.json").string());
  EXPECT_EQ(none.exit, 1);
  EXPECT_NE(none.output.find("Illegal state: Condition targetMaterialTypeId.IsPopulated() == true not fulfilled. "),
            std::string::npos)
      << none.output;
  EXPECT_FALSE(fs::exists(dir.path / "none.json"));

  auto missing = Tool("material export " + kScene + " --material Nope -o " + (dir.path / "n.json").string());
  EXPECT_EQ(missing.exit, 1);
  EXPECT_NE(missing.output.find("no material named \"Nope\""), std::string::npos);
  auto badMode = Tool("material export " + kScene + " --material Wood --resize squash -o " + (dir.path / "n.json").string());
  EXPECT_EQ(badMode.exit, 1);
  EXPECT_NE(badMode.output.find("unknown mode \"squash\""), std::string::npos);
  auto badAccept = Tool("material export " + kScene + " --material Wood --accept corvane -o " + (dir.path / "n.json").string());
  EXPECT_EQ(badAccept.exit, 1);
  EXPECT_FALSE(fs::exists(dir.path / "n.json"));
}

TEST(VexinteropMaterial, ExportedSetImportsBackIntoASceneThatLoadsAgain) {
  TempDir dir;
  const fs::path set = dir.path / "wood_set.json";
  ASSERT_EQ(Tool("material export " + kScene + " --material Wood --texture-size 8 -o " + set.string()).exit, 0);
  const fs::path scene = dir.path / "scenes" / "imported.vex";
  auto imported = Tool("material import " + set.string() + " --scene " + kScene + " -o " + scene.string());
  ASSERT_EQ(imported.exit, 0) << imported.output;
  const std::string text = Read(scene);
  EXPECT_NE(text.find("\"name\": \"wood_set\""), std::string::npos);
  EXPECT_NE(text.find("com.corvane3d.corvane4vex.node.image"), std::string::npos);
  EXPECT_TRUE(fs::exists(dir.path / "scenes" / "imported_textures" / "diffuse_color.png"));

  // The new scene loads: the imported material and an original one (its paths rebased) export.
  auto again = Tool("material export " + scene.string() + " --material wood_set --texture-size 4 -o " +
                    (dir.path / "again.json").string());
  ASSERT_EQ(again.exit, 0) << again.output;
  EXPECT_TRUE(fs::exists(dir.path / "again.diffuse_color.png"));
  auto brick = Tool("material export " + scene.string() + " --material Brick -o " + (dir.path / "brick.json").string());
  EXPECT_EQ(brick.exit, 0) << brick.output;

  // Any other space is refused by the importer; nothing is written.
  const fs::path refused = dir.path / "refused.vex";
  auto other = Tool("material import " + set.string() + " --scene " + kScene +
                    " --space net.kelvo.nodes.nodespace.viewport -o " + refused.string());
  EXPECT_EQ(other.exit, 1);
  EXPECT_NE(other.output.find(
                "MapMaterialData (import) cannot handle nodespace for Corvane import: net.kelvo.nodes.nodespace.viewport"),
            std::string::npos)
      << other.output;
  EXPECT_FALSE(fs::exists(refused));
}

}  // namespace
