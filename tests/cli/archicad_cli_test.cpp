// vexinterop archicad ..., menus and merge, end to end on files.
#include <gtest/gtest.h>

#include "run_tool.h"
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace {

using cli_test::Outcome;
using cli_test::Tool;

const std::string kExamples = std::string(INTEROP_SOURCE_DIR) + "/examples/archicad/";

struct TempDir {
  fs::path path = fs::temp_directory_path() / ("archicad_cli_test_" + std::to_string(getpid()));
  TempDir() { fs::create_directories(path); }
  ~TempDir() { fs::remove_all(path); }
};

bool Has(const Outcome& o, const std::string& text) { return o.output.find(text) != std::string::npos; }

TEST(VexinteropArchicad, LocateAndMenusFollowTheDescribedRegistry) {
  auto o = Tool("archicad locate --registry " + kExamples + "installed.reg");
  EXPECT_EQ(o.exit, 0) << o.output;
  EXPECT_TRUE(Has(o, "check-only: found (menu entry PLUGIN_CMD_200000215 inserted)")) << o.output;
  EXPECT_TRUE(Has(o, "program: C:\\Program Files\\Graphisoft\\ArchiCAD 27\\ArchiCAD.exe\n")) << o.output;
  EXPECT_TRUE(Has(o, "check-only search: HKEY_CURRENT_USER\\Software\\Graphisoft\\ArchiCAD-64 (opened)\n"
                    "full search: HKEY_CURRENT_USER\\Software\\Graphisoft\\ArchiCAD-64 (opened)\n"))
      << o.output;
  EXPECT_FALSE(Has(o, "Software\\Graphisoft\\ArchiCAD (")) << o.output;  // the 32-bit key is never asked for
  o = Tool("archicad locate");
  EXPECT_EQ(o.exit, 1);
  EXPECT_TRUE(Has(o, "check-only: not found (no menu entry)")) << o.output;
  EXPECT_TRUE(Has(o, "program: not found")) << o.output;
  o = Tool("menus --registry " + kExamples + "installed.reg");
  EXPECT_TRUE(Has(o, "    IDM_MAKEPROJECT\n    PLUGIN_CMD_200000215\n")) << o.output;
  TempDir dir;
  std::ofstream(dir.path / "bad.reg") << "REGEDIT4\n[HKCU\\A]\nnonsense\n";
  o = Tool("menus --registry " + (dir.path / "bad.reg").string());
  EXPECT_EQ(o.exit, 1);
  EXPECT_TRUE(Has(o, "bad.reg:3: expected a value")) << o.output;
}

TEST(VexinteropArchicad, SendSavesTheExchangeFileAndReportsTheStart) {
  TempDir dir;
  const std::string user = (dir.path / "user").string();
  auto o = Tool("archicad send " + kExamples + "house.vex --user-dir " + user + " --registry " + kExamples +
                "installed.reg");
  EXPECT_EQ(o.exit, 0) << o.output;
  const std::string exchange = user + "/temp/archicadexchange.vex";
  EXPECT_TRUE(fs::exists(exchange));
  EXPECT_TRUE(Has(o, "scene saved: " + exchange + " (format 1001026, flags 20)")) << o.output;
  EXPECT_TRUE(Has(o, "would start: C:\\Program Files\\Graphisoft\\ArchiCAD 27\\ArchiCAD.exe \"" + exchange + "\""))
      << o.output;
  o = Tool("archicad send " + kExamples + "house.vex --user-dir " + user);
  EXPECT_TRUE(Has(o, "dialog: ArchiCAD could not be found or started.\n")) << o.output;
}

TEST(VexinteropArchicad, OpenAndCloseWriteTheAnswer) {
  TempDir dir;
  fs::copy_file(kExamples + "house.vex", dir.path / "house.vex");
  const std::string scene = (dir.path / "house.vex").string();
  std::string back = scene;
  for (char& c : back)
    if (c == '/') c = '\\';
  auto o = Tool("archicad open " + scene);
  EXPECT_EQ(o.exit, 0) << o.output;
  EXPECT_TRUE(Has(o, "console: Opened scene from ArchiCAD: \"" + back + "\"")) << o.output;
  EXPECT_TRUE(Has(o, "(active, mark 200000215)")) << o.output;
  o = Tool("archicad open " + (dir.path / "house.txt").string());
  EXPECT_EQ(o.exit, 1);
  EXPECT_TRUE(Has(o, "Error: Could not open file  \"")) << o.output;
  const std::string before = [&] {
    std::ifstream in(scene);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
  }();
  o = Tool("archicad close " + scene + " --answer no");
  EXPECT_EQ(o.exit, 0) << o.output;
  EXPECT_TRUE(Has(o, "question: Send the changes back to ArchiCAD? -> no")) << o.output;
  EXPECT_TRUE(Has(o, "ac_vexon_comm_file.end (byte 89, big-endian, type VEXC, creator VEX1)")) << o.output;
  std::ifstream in(scene);
  std::stringstream after;
  after << in.rdbuf();
  EXPECT_EQ(after.str(), before);
  o = Tool("archicad close " + scene + " --answer yes");
  EXPECT_TRUE(Has(o, "(byte 88, big-endian")) << o.output;
  EXPECT_TRUE(Has(o, "scene saved: " + scene + " (format 1001026, flags 20)")) << o.output;
}

TEST(VexinteropMerge, ShowsTheDialogAndAppliesTheTickedBoxes) {
  TempDir dir;
  const std::string out = (dir.path / "merged.vex").string();
  auto o = Tool("merge " + kExamples + "house.vex " + kExamples + "house_updated.vex --source model.ifc -o " + out);
  EXPECT_EQ(o.exit, 0) << o.output;
  EXPECT_TRUE(Has(o, "added: Garage\nupdated: Roof\nkept: Garden\n")) << o.output;
  EXPECT_TRUE(Has(o, "[ ] Remove the objects that are no longer in the file (1)")) << o.output;
  EXPECT_TRUE(fs::exists(out));
  o = Tool("merge " + kExamples + "house.vex " + kExamples + "house_updated.vex --source model.ifc --take remove");
  EXPECT_TRUE(Has(o, "removed: Garden\nkept: Roof\n")) << o.output;
  o = Tool("merge " + kExamples + "house.vex " + kExamples + "house_updated.vex --source model.ifc --cancel");
  EXPECT_TRUE(Has(o, "merge cancelled")) << o.output;
  o = Tool("merge " + kExamples + "house.vex " + kExamples + "house_updated.vex --take everything");
  EXPECT_EQ(o.exit, 1);
}

}  // namespace
