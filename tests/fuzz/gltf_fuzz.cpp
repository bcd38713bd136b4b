// glTF and GLB materials. The first byte picks the container; a second text after a NUL byte is
// written as "buffer.bin" beside the file for uris to name.
#include "fuzz_support.h"
#include "host/formats/catalogue.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const auto parts = fuzz::Split(data + 1, size - 1, 2);
  fuzz::WriteScratch("buffer.bin", parts[1]);
  std::filesystem::create_directories(fuzz::Scratch() / "folder");
  const std::string path = fuzz::WriteScratch((data[0] & 1) ? "model.glb" : "model.gltf", parts[0]);
  (void)host::formats::ReadFormatFile(path, fuzz::Bundles());
  return 0;
}
