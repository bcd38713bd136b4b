// The scene file's material sections: assets and materials, two texts split at a NUL byte.
#include "fuzz_support.h"
#include "host/material_file.h"
#include "host/scene.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto parts = fuzz::Split(data, size, 2);
  host::Document document("fuzz");
  if (host::material_file::Read(parts[0], parts[1], "scene.vex", document)) (void)host::material_file::Write(document);
  return 0;
}
