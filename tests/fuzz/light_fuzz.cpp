// The neutral light description (a data dictionary in JSON).
#include "fuzz_support.h"
#include "host/scene_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  host::scene_file::ReadOptions options;
  options.units = &fuzz::HostUnits();
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  (void)host::scene_file::ParseDictionary(text, "light.json", options);
  return 0;
}
