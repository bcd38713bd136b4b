// Image files through the host's image reader. The first byte picks the suffix.
#include "fuzz_support.h"
#include "host/images.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  static const char* const kSuffixes[] = {"png", "jpg", "tga", "bmp", "exr", "tif", "hdr", "ppm"};
  const std::string name = std::string("image.") + kSuffixes[data[0] % std::size(kSuffixes)];
  const std::string path =
      fuzz::WriteScratch(name, std::string_view(reinterpret_cast<const char*>(data) + 1, size - 1));
  (void)host::ReadImage(path, (data[0] & 8) != 0);
  return 0;
}
