#include "host/win/registry_win.h"

#include <windows.h>

#include <string>

namespace host::win {
namespace {

HKEY Handle(vex::RegistryKey key) { return reinterpret_cast<HKEY>(key); }

std::string Describe(LONG code) { return "registry error " + std::to_string(code); }

class WindowsRegistry final : public vex::IRegistry {
 public:
  vex::Result<vex::RegistryKey> OpenCurrentUserKey(std::string_view path) override {
    const std::string text(path);
    HKEY key = nullptr;
    const LONG r = RegOpenKeyA(HKEY_CURRENT_USER, text.c_str(), &key);
    if (r == ERROR_FILE_NOT_FOUND) return VEX_FAIL(vex::ErrorKind::NotFound, "registry key not found: " + text);
    if (r != ERROR_SUCCESS) return VEX_FAIL(vex::ErrorKind::FileIO, text + ": " + Describe(r));
    return reinterpret_cast<vex::RegistryKey>(key);
  }

  vex::Result<vex::RegistryValue> EnumValue(vex::RegistryKey key, std::uint32_t index) override {
    // Value names are at most 16383 characters; data grows until it fits.
    std::string name(16384, '\0');
    std::string data(256, '\0');
    for (;;) {
      DWORD nameLength = static_cast<DWORD>(name.size());
      DWORD dataLength = static_cast<DWORD>(data.size());
      DWORD type = 0;
      const LONG r = RegEnumValueA(Handle(key), index, name.data(), &nameLength, nullptr, &type,
                                   reinterpret_cast<BYTE*>(data.data()), &dataLength);
      if (r == ERROR_MORE_DATA && dataLength > data.size()) {
        data.resize(dataLength);
        continue;
      }
      if (r == ERROR_NO_MORE_ITEMS) return VEX_FAIL(vex::ErrorKind::NotFound, "no more registry values");
      if (r != ERROR_SUCCESS) return VEX_FAIL(vex::ErrorKind::FileIO, Describe(r));
      name.resize(nameLength);
      data.resize(dataLength);
      return vex::RegistryValue{std::move(name), std::move(data)};
    }
  }

  vex::Result<std::size_t> QueryValue(vex::RegistryKey key, std::string_view name, std::span<char> buffer) override {
    const std::string text(name);
    DWORD size = static_cast<DWORD>(buffer.size());
    DWORD type = 0;
    const LONG r = RegQueryValueExA(Handle(key), text.empty() ? nullptr : text.c_str(), nullptr, &type,
                                    reinterpret_cast<BYTE*>(buffer.data()), &size);
    if (r == ERROR_MORE_DATA)
      return VEX_FAIL(vex::ErrorKind::IllegalArgument, "more data: the value holds " + std::to_string(size) + " bytes");
    if (r == ERROR_FILE_NOT_FOUND) return VEX_FAIL(vex::ErrorKind::NotFound, "registry value not found");
    if (r != ERROR_SUCCESS) return VEX_FAIL(vex::ErrorKind::FileIO, Describe(r));
    return static_cast<std::size_t>(size);
  }

  void CloseKey(vex::RegistryKey key) override { RegCloseKey(Handle(key)); }
};

}  // namespace

std::unique_ptr<vex::IRegistry> MakeWindowsRegistry() { return std::make_unique<WindowsRegistry>(); }

}  // namespace host::win
