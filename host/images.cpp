#include "host/images.h"

#include <dlfcn.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <system_error>
#include <vector>

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

// --- textures that pass through unchanged -----------------------------------------------------------
//
// A texture read from an 8-bit PNG and written again as PNG with the same colour handling, its
// pixels untouched in between, is the source file: it is copied byte for byte instead of being
// encoded again (no rounding through the float pixels, no second compression, and a fraction of
// the time). Untouched is checked, not assumed: a hash of the pixels taken when the file was read
// must still match when the buffer is written, and the file must not have changed on disk.

struct Source {
  std::weak_ptr<vex::PixelArray> pixels;
  const vex::PixelArray* identity = nullptr;
  std::filesystem::path file;
  bool colorData = false;
  std::uint64_t hash = 0;
  std::uintmax_t size = 0;
  std::filesystem::file_time_type modified;
};

std::mutex g_sourcesLock;
std::vector<Source> g_sources;

/// A hash of the pixels, in blocks on the worker threads.
std::uint64_t PixelHash(const vex::PixelArray& pixels) {
  const auto* words = reinterpret_cast<const unsigned char*>(pixels.Data());
  const std::size_t bytes = pixels.GetCount() * 4 * sizeof(float);
  constexpr std::size_t kBlock = std::size_t(1) << 20;
  const std::size_t blocks = (bytes + kBlock - 1) / kBlock;
  std::vector<std::uint64_t> partial(blocks);
  tbb::parallel_for(tbb::blocked_range<std::size_t>(0, blocks, 1), [&](const tbb::blocked_range<std::size_t>& r) {
    for (std::size_t b = r.begin(); b < r.end(); ++b) {
      std::uint64_t h = 0x9e3779b97f4a7c15ull ^ b;
      const std::size_t end = std::min(bytes, (b + 1) * kBlock);
      std::size_t at = b * kBlock;
      for (; at + 8 <= end; at += 8) {
        std::uint64_t w;
        std::memcpy(&w, words + at, 8);
        h = (h ^ w) * 0xff51afd7ed558ccdull;
        h ^= h >> 32;
      }
      for (; at < end; ++at) h = (h ^ words[at]) * 0x100000001b3ull;
      partial[b] = h;
    }
  });
  std::uint64_t h = bytes;
  for (const auto p : partial) h = (h ^ p) * 0xc4ceb9fe1a85ec53ull;
  return h;
}

/// True for an 8-bit PNG whose chunks say nothing about gamma or colour that a reader could apply
/// differently from us (gAMA, cHRM, iCCP, sBIT): its bytes mean what its pixels say.
bool PlainPng(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  unsigned char head[8 + 8 + 13];
  if (!in.read(reinterpret_cast<char*>(head), sizeof(head))) return false;
  if (std::memcmp(head, "\x89PNG\r\n\x1a\n", 8) != 0 || std::memcmp(head + 12, "IHDR", 4) != 0) return false;
  if (head[24] != 8) return false;  // bit depth
  in.seekg(8 + 8 + 13 + 4);         // past IHDR's data and CRC
  for (int chunks = 0; chunks < 64; ++chunks) {
    unsigned char header[8];
    if (!in.read(reinterpret_cast<char*>(header), 8)) return false;
    const std::uint32_t length = (std::uint32_t(header[0]) << 24) | (header[1] << 16) | (header[2] << 8) | header[3];
    const std::string type(reinterpret_cast<const char*>(header) + 4, 4);
    if (type == "IDAT") return true;
    if (type == "gAMA" || type == "cHRM" || type == "iCCP" || type == "sBIT") return false;
    in.seekg(static_cast<std::streamoff>(length) + 4, std::ios::cur);
  }
  return false;
}

bool IsPng(const std::filesystem::path& file) {
  std::string suffix = file.extension().string();
  std::transform(suffix.begin(), suffix.end(), suffix.begin(), [](unsigned char c) { return std::tolower(c); });
  return suffix == ".png";
}

void Remember(const std::string& native, bool colorData, const vex::TextureBuffer& buffer) {
  std::error_code ec;
  const auto file = std::filesystem::absolute(native, ec);
  if (ec || !IsPng(file) || buffer.IsEmpty() || !PlainPng(file)) return;
  Source source{buffer._pixels, buffer._pixels.get(), file, colorData, PixelHash(*buffer._pixels),
                std::filesystem::file_size(file, ec), std::filesystem::last_write_time(file, ec)};
  if (ec) return;
  const std::lock_guard lock(g_sourcesLock);
  std::erase_if(g_sources, [](const Source& s) { return s.pixels.expired(); });
  g_sources.push_back(std::move(source));
}

/// The file `buffer` was read from when writing `path` can copy it; empty otherwise.
std::filesystem::path Unchanged(const std::string& path, const vex::TextureBuffer& buffer, const ImageWriteOptions& options) {
  if (options.floatPixels || buffer.IsEmpty() || !IsPng(path)) return {};
  Source source;
  {
    const std::lock_guard lock(g_sourcesLock);
    const auto found = std::find_if(g_sources.begin(), g_sources.end(), [&](const Source& s) {
      return s.identity == buffer._pixels.get() && s.pixels.lock() == buffer._pixels;
    });
    if (found == g_sources.end()) return {};
    source = *found;
  }
  std::error_code ec;
  if (source.colorData != options.srgb) return {};
  if (std::filesystem::file_size(source.file, ec) != source.size || ec) return {};
  if (std::filesystem::last_write_time(source.file, ec) != source.modified || ec) return {};
  if (std::filesystem::equivalent(source.file, path, ec)) return {};
  if (PixelHash(*buffer._pixels) != source.hash) return {};
  return source.file;
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
  auto buffer = (*codec)->read(native, colorData, MaxImagePixels());
  if (buffer) Remember(native, colorData, *buffer);
  return buffer;
}

vex::Result<void> WriteImage(const std::string& path, const vex::TextureBuffer& buffer,
                             const ImageWriteOptions& options) {
  if (buffer.IsEmpty()) return VEX_FAIL(vex::ErrorKind::IllegalArgument, path + ": empty texture");
  if (const auto source = Unchanged(path, buffer, options); !source.empty()) {
    // The bytes, not the file: the copy gets the permissions a new file gets, as an encoded one would.
    std::ifstream in(source, std::ios::binary);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (in && out && (out << in.rdbuf()) && (out.close(), out)) return {};
    // Not copied (a race with the disk, a special file): encode as usual.
  }
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
