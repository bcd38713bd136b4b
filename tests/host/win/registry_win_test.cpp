// The Windows registry implementation and the locating routine against the
// system registry (run under Wine in a throwaway prefix: the cases rewrite
// HKEY_CURRENT_USER\Software\Graphisoft).
#include <windows.h>

#include "archicad_locate_cases.h"
#include "host/win/registry_win.h"

namespace {

class SystemFixture final : public locate_cases::Fixture {
 public:
  SystemFixture() : registry_(host::win::MakeWindowsRegistry()) {}
  ~SystemFixture() override { Clear(); }
  void Clear() override { RegDeleteTreeA(HKEY_CURRENT_USER, "Software\\Graphisoft"); }
  void SetString(const std::string& key, const std::string& name, const std::string& text) override {
    HKEY k = nullptr;
    ASSERT_EQ(RegCreateKeyA(HKEY_CURRENT_USER, key.c_str(), &k), ERROR_SUCCESS) << key;
    ASSERT_EQ(RegSetValueExA(k, name.empty() ? nullptr : name.c_str(), 0, REG_SZ,
                             reinterpret_cast<const BYTE*>(text.c_str()), static_cast<DWORD>(text.size() + 1)),
              ERROR_SUCCESS);
    RegCloseKey(k);
  }
  void CreateKey(const std::string& key) override {
    HKEY k = nullptr;
    ASSERT_EQ(RegCreateKeyA(HKEY_CURRENT_USER, key.c_str(), &k), ERROR_SUCCESS) << key;
    RegCloseKey(k);
  }
  vex::IRegistry& Registry() override { return *registry_; }

 private:
  std::unique_ptr<vex::IRegistry> registry_;
};

}  // namespace

LOCATE_CASES(ArchiCadLocateWindows, SystemFixture)

TEST(WindowsRegistry, EnumeratesGrowsDataAndReportsMissingValues) {
  SystemFixture f;
  f.Clear();
  const std::string key = "Software\\Graphisoft\\Probe";
  f.SetString(key, "short", "a");
  f.SetString(key, "long", std::string(3000, 'L'));  // more than the first data buffer
  auto registry = host::win::MakeWindowsRegistry();
  auto k = registry->OpenCurrentUserKey(key);
  ASSERT_TRUE(k);
  auto v0 = registry->EnumValue(*k, 0);
  auto v1 = registry->EnumValue(*k, 1);
  ASSERT_TRUE(v0);
  ASSERT_TRUE(v1);
  // The order is the registry's own (Wine keeps names sorted, Windows mostly keeps insertion order).
  if (v0->name != "short") std::swap(v0, v1);
  EXPECT_EQ(v0->name, "short");
  EXPECT_EQ(v0->data, std::string("a\0", 2));
  EXPECT_EQ(v1->name, "long");
  EXPECT_EQ(v1->data.size(), 3001u);
  EXPECT_EQ(registry->EnumValue(*k, 2).error().kind, vex::ErrorKind::NotFound);
  char small[8];
  EXPECT_EQ(registry->QueryValue(*k, "long", small).error().kind, vex::ErrorKind::IllegalArgument);
  EXPECT_EQ(registry->QueryValue(*k, "", small).error().kind, vex::ErrorKind::NotFound);
  EXPECT_EQ(*registry->QueryValue(*k, "short", small), 2u);
  registry->CloseKey(*k);
  EXPECT_EQ(registry->OpenCurrentUserKey(key + "\\Missing").error().kind, vex::ErrorKind::NotFound);
  f.Clear();
}
