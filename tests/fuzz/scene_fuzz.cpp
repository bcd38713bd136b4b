// The native scene file: read, and written again when it reads.
#include "fuzz_support.h"
#include "host/scene.h"
#include "host/scene_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  host::Document document("fuzz");
  host::scene_file::ReadOptions options;
  options.units = &fuzz::HostUnits();
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (host::scene_file::Parse(text, "scene.vex", document, options)) (void)host::scene_file::Dump(document);
  return 0;
}
