// The described registry (.reg text). The first byte picks the encoding: odd bytes make a
// UTF-16LE file with its byte-order mark from the rest, even ones take the rest as it is.
#include "fuzz_support.h"
#include "host/registry_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  std::string bytes;
  if (data[0] & 1) {
    bytes = "\xFF\xFE";
    for (std::size_t i = 1; i < size; ++i) {
      bytes += static_cast<char>(data[i]);
      bytes += data[i] == 0xD8 ? '\xD8' : '\0';  // now and then a surrogate
    }
  } else {
    bytes.assign(reinterpret_cast<const char*>(data) + 1, size - 1);
  }
  host::RegistryFile registry;
  if (registry.LoadFile(fuzz::WriteScratch("input.reg", bytes))) {
    if (auto key = registry.OpenCurrentUserKey("Software")) {
      for (std::uint32_t i = 0; i < 64; ++i) {
        auto value = registry.EnumValue(*key, i);
        if (!value) break;
        char buffer[256];
        (void)registry.QueryValue(*key, value->name, buffer);
      }
      registry.CloseKey(*key);
    }
  }
  return 0;
}
