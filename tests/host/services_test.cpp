// The reference host's services: port bundles, resources, configuration, files.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "test_host.h"

namespace fs = std::filesystem;

namespace {

TEST(ReferenceHostServices, PortBundlesHoldVocabulariesAndDefaults) {
  const auto& bundles = testing_support::Host().bundles();
  EXPECT_EQ(bundles.Ids().size(), 9u);
  auto viewport = bundles.Find(vex::bundle::kViewport);
  ASSERT_TRUE(viewport);
  EXPECT_NE((*viewport)->FindPort("transmissivity "), nullptr);  // with its trailing blank
  EXPECT_EQ((*viewport)->FindPort("transmissivity"), nullptr);
  EXPECT_FALSE((*viewport)->defaults.Has("type"));
  auto corvane = bundles.Find(vex::bundle::kCorvane);
  ASSERT_TRUE(corvane);
  EXPECT_EQ(*(*corvane)->defaults.Find("opacity")->Constant()->Get<vex::Color>(), (vex::Color{1, 1, 1}));
  auto unknown = bundles.Find("net.kelvo.material.portbundle.nothing");
  ASSERT_FALSE(unknown);
  EXPECT_EQ(unknown.error().message, "Unknown port bundle: net.kelvo.material.portbundle.nothing");
}

TEST(ReferenceHostServices, ResourcesAndSettings) {
  const fs::path dir = fs::temp_directory_path() / "interop_res_test";
  fs::create_directories(dir);
  std::ofstream(dir / "mod.strings.json") << R"({"10000": "Saver", "20000": "Command"})";
  host::Resources resources;
  auto table = resources.LoadModuleStrings({(dir / "libmod.so").string(), dir.string()});
  ASSERT_TRUE(table);
  EXPECT_EQ(table->Get(10000), "Saver");
  EXPECT_EQ(table->Get(12345), "StrNotFound");
  EXPECT_FALSE(resources.LoadModuleStrings({"/nowhere/libmod.so", "/nowhere"}));
  fs::remove_all(dir);

  auto& config = testing_support::Host().config();
  EXPECT_EQ(config.GetString("g_viewportFBXMappingPath"), "");
  EXPECT_EQ(config.Values().at("g_corvaneUSDMappingPath").help,
            "Path to the export data of Corvane to USD Preview Surface mapping.");
  EXPECT_FALSE(config.SetString("g_noSuchSetting", "x"));
}

TEST(ReferenceHostServices, FilesTreatBothSeparatorsAlike) {
  auto& files = testing_support::Host().files();
  const fs::path dir = fs::temp_directory_path() / "interop_files_test";
  fs::remove_all(dir);
  ASSERT_TRUE(files.CreateDirectory(dir.string() + "\\sub"));
  EXPECT_TRUE(files.IsDirectory((dir / "sub").string()));
  auto file = files.OpenWrite(dir.string() + "\\sub\\one.bin", {2, "VEXC", "VEX1", false});
  ASSERT_TRUE(file);
  const unsigned char byte = 88;
  ASSERT_TRUE((*file)->Write(&byte, 1));
  ASSERT_TRUE((*file)->Close());
  EXPECT_EQ(fs::file_size(dir / "sub" / "one.bin"), 1u);
  EXPECT_FALSE(files.OpenWrite((dir / "missing" / "x").string(), {}));
  fs::remove_all(dir);
}

}  // namespace
