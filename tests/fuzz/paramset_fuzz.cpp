// Parameter-set JSON, with the bundles, textures (beside the set) and ids of the host.
#include "fuzz_support.h"
#include "host/json_text.h"
#include "host/paramset_json.h"
#include "host/services.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static host::Images images;
  static host::IdTable ids;
  host::json::ReadOptions options;
  options.bundles = &fuzz::Bundles();
  options.images = &images;
  options.ids = &ids;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  auto set = host::json::ParseParameterSet(text, "set.json", fuzz::Scratch().string(), options);
  if (set) (void)host::json::DumpParameterSet(*set, host::json::TextureMode::Describe);
  return 0;
}
