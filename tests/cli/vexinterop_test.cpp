// The command line end to end: the listing, mapping a set, and its errors.
#include <gtest/gtest.h>

#include "run_tool.h"
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

namespace fs = std::filesystem;

namespace {

using cli_test::Outcome;
using cli_test::Tool;

struct TempDir {
  fs::path path = fs::temp_directory_path() / ("vexinterop_test_" + std::to_string(getpid()));
  TempDir() { fs::create_directories(path); }
  ~TempDir() { fs::remove_all(path); }
};

TEST(Vexinterop, InfoListsThePluginsAndTheNineClassesInOrder) {
  const auto o = Tool("info");
  ASSERT_EQ(o.exit, 0) << o.output;
  EXPECT_NE(o.output.find("saver    1016440"), std::string::npos);
  EXPECT_NE(o.output.find("hook     465001602  UpdateMerge Hook"), std::string::npos);
  std::size_t at = 0;
  for (const char* id : {"net.kelvo.material.class.materialmapping.viewport.to.fbxphong",
                         "net.kelvo.material.class.materialmapping.viewport.to.standardsurface",
                         "net.kelvo.material.class.materialmapping.viewport.to.usdpreviewsurface",
                         "net.kelvo.material.class.materialmapping.corvane.to.usdpreviewsurface",
                         "net.kelvo.material.class.materialmapping.viewport.to.gltfpbr",
                         "net.kelvo.material.class.materialmapping.corvane.to.gltfpbr",
                         "net.kelvo.material.class.materialmapping.corvane.to.obj",
                         "net.kelvo.material.materialimport.nodematerial",
                         "net.kelvo.material.class.materialexport.mmaterial"}) {
    const auto next = o.output.find(std::string("class      ") + id + "\n", at);
    ASSERT_NE(next, std::string::npos) << id;
    at = next;
  }
}

TEST(Vexinterop, MapReportsMissingMappingsAndBadInputs) {
  TempDir dir;
  const auto in = (dir.path / "obj.json").string();
  std::ofstream(in) << R"({"bundle": "net.kelvo.material.portbundle.obj",
                          "parameters": {"metallic": {"type": "Float", "value": 1}}})";
  auto none = Tool("map " + in + " --to net.kelvo.material.portbundle.fbxsurfacephong -o " +
                  (dir.path / "out.json").string());
  EXPECT_EQ(none.exit, 2) << none.output;
  EXPECT_NE(none.output.find("No material mapping from net.kelvo.material.portbundle.obj to "
                             "net.kelvo.material.portbundle.fbxsurfacephong"),
            std::string::npos);
  EXPECT_FALSE(fs::exists(dir.path / "out.json"));

  const auto bad = (dir.path / "bad.json").string();
  std::ofstream(bad) << R"({"bundle": "net.kelvo.material.portbundle.corvane",
                           "parameters": {"metalness": {"type": "Float", "valeu": 1}}})";
  auto wrong = Tool("map " + bad + " --to net.kelvo.material.portbundle.obj -o " + (dir.path / "o.json").string());
  EXPECT_EQ(wrong.exit, 1);
  EXPECT_NE(wrong.output.find(bad + ": parameters.metalness: unknown key \"valeu\""), std::string::npos)
      << wrong.output;
  EXPECT_FALSE(fs::exists(dir.path / "o.json"));

  auto help = Tool("map --help");
  EXPECT_EQ(help.exit, 0);
  EXPECT_NE(help.output.find("--to"), std::string::npos);
}

}  // namespace
