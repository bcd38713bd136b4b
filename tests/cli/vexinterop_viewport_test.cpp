// vexinterop maps a viewport material to FBX Phong and, with the mapping path
// set from the command line, leaves the run's input and output beside it.
#include <gtest/gtest.h>

#include "run_tool.h"
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

using cli_test::Outcome;
using cli_test::Tool;

std::string Text(const fs::path& path) {
  std::ifstream in(path);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::vector<std::string> Files(const fs::path& dir) {
  std::vector<std::string> names;
  for (const auto& e : fs::directory_iterator(dir)) names.push_back(e.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

struct TempDir {
  fs::path path = fs::temp_directory_path() / ("vexinterop_viewport_test_" + std::to_string(getpid()));
  TempDir() { fs::create_directories(path); }
  ~TempDir() { fs::remove_all(path); }
};

TEST(VexinteropViewport, MapsToFbxPhongAndDumpsOneInputOutputPair) {
  TempDir dir;
  const fs::path dump = dir.path / "dump";
  fs::create_directories(dump);
  const std::string example = std::string(INTEROP_SOURCE_DIR) + "/examples/viewport_metal.json";
  const fs::path out = dir.path / "fbx.json";
  const auto run = Tool("--set g_viewportFBXMappingPath=" + dump.string() + " map " + example +
                        " --to net.kelvo.material.portbundle.fbxsurfacephong -o " + out.string());
  ASSERT_EQ(run.exit, 0) << run.output;
  const std::string result = Text(out);
  EXPECT_NE(result.find("\"bundle\": \"net.kelvo.material.portbundle.fbxsurfacephong\""), std::string::npos);
  EXPECT_NE(result.find("\"shininess\""), std::string::npos);

  const auto names = Files(dump);
  ASSERT_EQ(names.size(), 2u);
  const std::string prefix = names[0].substr(0, names[0].find('_'));
  EXPECT_EQ(prefix.size(), 13u);  // milliseconds since the epoch, this century
  EXPECT_EQ(names[0], prefix + "_mapping_input");
  EXPECT_EQ(names[1], prefix + "_mapping_output");
  // The output dump is the result the command wrote; the input dump maps again to it.
  EXPECT_EQ(Text(dump / names[1]), result);
  const fs::path again = dir.path / "again.json";
  const auto rerun = Tool("map " + (dump / names[0]).string() +
                          " --to net.kelvo.material.portbundle.fbxsurfacephong -o " + again.string());
  ASSERT_EQ(rerun.exit, 0) << rerun.output;
  EXPECT_EQ(Text(again), result);
  EXPECT_EQ(Files(dump).size(), 2u);  // without --set nothing more is dumped

  // A dump directory that does not exist fails the command; no output is left behind.
  const fs::path failed = dir.path / "failed.json";
  const auto missing = Tool("--set g_viewportFBXMappingPath=" + (dir.path / "nowhere").string() + " map " + example +
                            " --to net.kelvo.material.portbundle.fbxsurfacephong -o " + failed.string());
  EXPECT_EQ(missing.exit, 1);
  EXPECT_NE(missing.output.find("nowhere: directory does not exist"), std::string::npos) << missing.output;
  EXPECT_FALSE(fs::exists(failed));
}

}  // namespace
