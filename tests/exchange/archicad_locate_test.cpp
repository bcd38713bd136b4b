// Locating ArchiCAD over the reference host's described registry, and reading
// regedit files into it.
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "archicad_locate_cases.h"
#include "host/registry_file.h"

namespace {

class FileFixture final : public locate_cases::Fixture {
 public:
  void Clear() override { registry_.DeleteKey("HKEY_CURRENT_USER\\Software\\Graphisoft"); }
  void SetString(const std::string& key, const std::string& name, const std::string& text) override {
    registry_.SetString("HKEY_CURRENT_USER\\" + key, name, text);
  }
  void CreateKey(const std::string& key) override {
    ASSERT_TRUE(registry_.Parse("REGEDIT4\n[HKEY_CURRENT_USER\\" + key + "]\n", "key.reg"));
  }
  vex::IRegistry& Registry() override { return registry_; }

 private:
  host::RegistryFile registry_;
};

}  // namespace

LOCATE_CASES(ArchiCadLocateDescribed, FileFixture)

TEST(RegistryFile, ReadsRegeditFilesAsWindowsStoresThem) {
  host::RegistryFile r;
  const char* text =
      "Windows Registry Editor Version 5.00\r\n"
      "\r\n"
      "; comment\r\n"
      "[HKEY_CURRENT_USER\\Software\\Graphisoft\\ArchiCAD-64]\r\n"
      "\"Last Started Version\"=\"27.0.0 INT FULL\"\r\n"
      "\"Build\"=dword:00001b58\r\n"
      "\"Raw\"=hex:01,02,\\\r\n"
      "  03\r\n"
      "[HKCU\\Software\\Graphisoft\\ArchiCAD-64\\27.0.0 INT FULL]\r\n"
      "@=\"C:\\\\AC\\\\\\\"q\\\".exe\"\r\n";
  ASSERT_TRUE(r.Parse(text, "x.reg"));
  auto key = r.OpenCurrentUserKey("software\\graphisoft\\archicad-64");  // names compare without case
  ASSERT_TRUE(key);
  auto v0 = r.EnumValue(*key, 0);
  ASSERT_TRUE(v0);
  EXPECT_EQ(v0->name, "Last Started Version");
  EXPECT_EQ(v0->data, std::string("27.0.0 INT FULL\0", 16));  // with its terminator
  EXPECT_EQ(r.EnumValue(*key, 1)->data, std::string("\x58\x1b\0\0", 4));
  EXPECT_EQ(r.EnumValue(*key, 2)->data, std::string("\x01\x02\x03", 3));
  EXPECT_EQ(r.EnumValue(*key, 3).error().kind, vex::ErrorKind::NotFound);
  r.CloseKey(*key);
  auto sub = r.OpenCurrentUserKey("Software\\Graphisoft\\ArchiCAD-64\\27.0.0 INT FULL");
  ASSERT_TRUE(sub);
  std::array<char, 4> small{};
  EXPECT_EQ(r.QueryValue(*sub, "", small).error().kind, vex::ErrorKind::IllegalArgument);
  std::array<char, 64> big{};
  ASSERT_TRUE(r.QueryValue(*sub, "", big));
  EXPECT_STREQ(big.data(), "C:\\AC\\\"q\".exe");
  r.CloseKey(*sub);
  EXPECT_EQ(r.OpenKeyCount(), 0u);
  EXPECT_TRUE(r.OpenCurrentUserKey("Software"));  // parents exist with their children
}

TEST(RegistryFile, MalformedFilesNameFileAndLine) {
  host::RegistryFile r;
  EXPECT_EQ(r.Parse("hello\n", "a.reg").error().message,
            "a.reg:1: not a registry file (expected \"Windows Registry Editor Version 5.00\" or \"REGEDIT4\")");
  EXPECT_EQ(r.Parse("REGEDIT4\n\"a\"=\"b\"\n", "b.reg").error().message, "b.reg:2: a value before the first key");
  EXPECT_EQ(r.Parse("REGEDIT4\n[HKCU\\A]\n\"a\"=dword:12\n", "c.reg").error().message,
            "c.reg:3: a dword value needs eight hexadecimal digits");
  EXPECT_EQ(r.Parse("REGEDIT4\n[HKCU\\A\n", "d.reg").error().message, "d.reg:2: a key line must end with \"]\"");
  EXPECT_EQ(r.Parse("REGEDIT4\n[HKCU\\A]\n\"a\"=\"b\n", "e.reg").error().message, "e.reg:3: unterminated string value");
  EXPECT_EQ(r.LoadFile("/nonexistent/x.reg").error().message, "/nonexistent/x.reg: cannot read: No such file or directory");
  // Deletions as regedit writes them.
  ASSERT_TRUE(r.Parse("REGEDIT4\n[HKCU\\A\\B]\n\"v\"=\"1\"\n[-HKCU\\A]\n", "f.reg"));
  EXPECT_FALSE(r.OpenCurrentUserKey("A\\B"));
}

TEST(RegistryFile, ReadsUtf16FilesAsRegeditExportsThem) {
  const std::string text = "Windows Registry Editor Version 5.00\r\n[HKEY_CURRENT_USER\\K]\r\n@=\"v\"\r\n";
  std::string utf16 = "\xFF\xFE";
  for (const char c : text) utf16 += std::string{c, '\0'};
  const auto path = std::filesystem::temp_directory_path() / ("registry_file_utf16_test_" + std::to_string(::getpid()) + ".reg");
  std::ofstream(path, std::ios::binary) << utf16;
  host::RegistryFile r;
  ASSERT_TRUE(r.LoadFile(path.string()));
  std::filesystem::remove(path);
  auto key = r.OpenCurrentUserKey("K");
  ASSERT_TRUE(key);
  std::array<char, 8> buffer{};
  EXPECT_EQ(*r.QueryValue(*key, "", buffer), 2u);
  EXPECT_STREQ(buffer.data(), "v");
}
