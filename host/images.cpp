#include "host/images.h"

#include <dlfcn.h>

#include <atomic>
#include <filesystem>
#include <system_error>

#include <oneapi/tbb/blocked_range.h>
#include <oneapi/tbb/parallel_for.h>

#include "host/image_codec.h"
#include "host/input_files.h"
#include "host/services.h"

// Present when the program links the codec in; otherwise it comes from the shared library.
extern "C" const host::ImageCodec* interop_image_codec() __attribute__((weak));

namespace host {
namespace {

std::atomic<std::uint64_t> g_maxPixels{kDefaultMaxImagePixels};

struct LoadedCodec {
  const ImageCodec* codec = nullptr;
  std::string why;  ///< why it could not be loaded
};

/// The codec library beside the running program, else wherever the loader finds it. Loaded once
/// and kept for the life of the process.
LoadedCodec Load() {
  if (interop_image_codec != nullptr) return {interop_image_codec(), {}};
  std::error_code ec;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", ec);
  std::string tried;
  void* library = nullptr;
  if (!ec) {
    const auto beside = (program.parent_path() / kImageCodecLibrary).string();
    library = ::dlopen(beside.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) tried = ::dlerror();
  }
  if (library == nullptr) library = ::dlopen(kImageCodecLibrary, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    const char* error = ::dlerror();
    return {nullptr, tried.empty() ? std::string(error ? error : kImageCodecLibrary) : tried};
  }
  using Entry = const ImageCodec* (*)();
  const auto entry = reinterpret_cast<Entry>(::dlsym(library, "interop_image_codec"));
  if (entry == nullptr) return {nullptr, std::string(kImageCodecLibrary) + " has no image codec"};
  return {entry(), {}};
}

vex::Result<const ImageCodec*> Codec() {
  static const LoadedCodec loaded = Load();
  if (loaded.codec == nullptr)
    return VEX_FAIL(vex::ErrorKind::FileIO, "the image library cannot be loaded: " + loaded.why);
  return loaded.codec;
}

}  // namespace

void ForEachImageJob(std::size_t count, const std::function<void(std::size_t)>& job) {
  tbb::parallel_for(tbb::blocked_range<std::size_t>(0, count, 1), [&](const tbb::blocked_range<std::size_t>& r) {
    for (std::size_t i = r.begin(); i < r.end(); ++i) job(i);
  });
}

std::uint64_t MaxImagePixels() { return g_maxPixels.load(std::memory_order_relaxed); }
void SetMaxImagePixels(std::uint64_t pixels) { g_maxPixels.store(pixels, std::memory_order_relaxed); }

vex::Result<vex::TextureBuffer> ReadImage(std::string_view path, bool colorData) {
  const std::string native = NativePath(path);
  VEX_TRY(CheckInputFile(native));
  auto codec = Codec();
  if (!codec) return VEX_FAIL(vex::ErrorKind::FileIO, native + ": cannot read image: " + codec.error().message);
  return (*codec)->read(native, colorData, MaxImagePixels());
}

vex::Result<void> WriteImage(const std::string& path, const vex::TextureBuffer& buffer,
                             const ImageWriteOptions& options) {
  if (buffer.IsEmpty()) return VEX_FAIL(vex::ErrorKind::IllegalArgument, path + ": empty texture");
  auto codec = Codec();
  if (!codec) return VEX_FAIL(vex::ErrorKind::FileIO, path + ": cannot write image: " + codec.error().message);
  return (*codec)->write(path, buffer, options);
}

vex::Result<vex::TextureBuffer> ResizeImage(const vex::TextureBuffer& buffer, std::int64_t width,
                                            std::int64_t height) {
  VEX_ASSIGN(const ImageCodec* codec, Codec());
  return codec->resize(buffer, width, height);
}

vex::Result<vex::TextureBuffer> Images::Read(std::string_view path, bool colorData) {
  return ReadImage(path, colorData);
}

}  // namespace host
