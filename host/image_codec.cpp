#include "host/image_codec.h"

#include <array>
#include <atomic>
#include <cmath>
#include <filesystem>
#include <memory>
#include <vector>

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>
#include <OpenImageIO/imageio.h>
#include <oneapi/tbb/blocked_range.h>
#include <oneapi/tbb/parallel_for.h>

namespace host {
namespace {

float SrgbToLinear(float c) { return c <= 0.04045f ? c / 12.92f : std::pow((c + 0.055f) / 1.055f, 2.4f); }
float LinearToSrgb(float c) {
  c = c < 0.f ? 0.f : (c > 1.f ? 1.f : c);
  return c <= 0.0031308f ? c * 12.92f : 1.055f * std::pow(c, 1.f / 2.4f) - 0.055f;
}

// Linear value -> sRGB byte, by a 4096-entry table: exact enough for 8-bit output, and fast.
const std::array<unsigned char, 4097>& EncodeTable() {
  static const auto table = [] {
    std::array<unsigned char, 4097> t{};
    for (int i = 0; i <= 4096; ++i) t[i] = static_cast<unsigned char>(std::lround(LinearToSrgb(i / 4096.f) * 255.f));
    return t;
  }();
  return table;
}

// Runs body(i) for every pixel index, in blocks on the worker threads.
template <class Body>
void ForEachIndex(std::size_t count, const Body& body) {
  tbb::parallel_for(tbb::blocked_range<std::size_t>(0, count, std::size_t(1) << 14),
                    [&](const tbb::blocked_range<std::size_t>& r) {
                      for (std::size_t i = r.begin(); i < r.end(); ++i) body(i);
                    });
}

/// 8-bit images, the usual textures: decoded from bytes through tables (sRGB for colour, /255 for
/// data and alpha) without a float copy of the file.
vex::Result<vex::TextureBuffer> Read8Bit(OIIO::ImageInput& in, const std::string& native, bool colorData) {
  const OIIO::ImageSpec& header = in.spec();
  const auto channels = static_cast<std::size_t>(header.nchannels);
  const std::size_t count = static_cast<std::size_t>(header.width) * static_cast<std::size_t>(header.height);
  std::vector<unsigned char> raw(count * channels);
  if (!in.read_image(0, 0, 0, header.nchannels, OIIO::TypeDesc::UINT8, raw.data()))
    return VEX_FAIL(vex::ErrorKind::FileIO, native + ": cannot decode image: " + in.geterror());
  in.close();
  vex::TextureBuffer buffer;
  buffer._dimensions = {header.width, header.height};
  buffer._pixels = vex::PixelArray::Allocate(count);
  if (!buffer._pixels) return VEX_FAIL(vex::ErrorKind::OutOfMemory, native + ": out of memory");
  buffer.colorSpace = colorData ? "sRGB" : "";
  float colour[256];
  float data[256];
  for (int i = 0; i < 256; ++i) {
    data[i] = static_cast<float>(i) / 255.f;
    colour[i] = colorData ? SrgbToLinear(data[i]) : data[i];
  }
  ForEachIndex(count, [&](std::size_t i) {
    const unsigned char* s = raw.data() + i * channels;
    float* d = buffer._pixels->Pixel(i);
    const unsigned char r = s[0];
    const unsigned char g = channels > 2 ? s[1] : r;
    const unsigned char b = channels > 2 ? s[2] : r;
    d[0] = colour[r];
    d[1] = colour[g];
    d[2] = colour[b];
    d[3] = channels == 4 ? data[s[3]] : (channels == 2 ? data[s[1]] : 1.f);
  });
  return buffer;
}

/// Deflate, the densest codec of the usual formats, packs at most 1032 bytes into one; a header
/// claiming more than this many decoded bytes per file byte lies about its data.
constexpr std::uint64_t kMaxDecodedPerFileByte = 1100;

/// The header's claims against the limits and the file's size, before any pixel is allocated.
vex::Result<void> CheckHeader(const OIIO::ImageSpec& header, const std::string& native, std::uint64_t maxPixels) {
  const auto fail = [&](const std::string& reason) {
    return VEX_FAIL(vex::ErrorKind::FileIO, native + ": cannot read image: " + reason);
  };
  if (header.width <= 0 || header.height <= 0 || header.depth <= 0)
    return fail("empty or negative size in the header");
  if (header.nchannels <= 0 || header.nchannels > 64) return fail(std::to_string(header.nchannels) + " channels");
  if (header.depth > 1) return fail("volume images are not textures");
  const std::uint64_t pixels = std::uint64_t(header.width) * std::uint64_t(header.height);
  const std::string size = std::to_string(header.width) + " x " + std::to_string(header.height);
  if (pixels > maxPixels)
    return fail(size + " pixels is more than the limit of " + std::to_string(maxPixels) +
                " (raise it with --max-pixels)");
  std::error_code ec;
  const std::uint64_t fileBytes = std::filesystem::file_size(native, ec);
  const std::uint64_t decoded = pixels * std::uint64_t(header.nchannels) * header.format.size();
  if (!ec && decoded / kMaxDecodedPerFileByte > fileBytes)
    return fail("the header claims " + size + " pixels (" + std::to_string(decoded) + " bytes) but the file holds only " +
                std::to_string(fileBytes) + " bytes");
  return {};
}

vex::Result<vex::TextureBuffer> Decode(const std::string& native, bool colorData, std::uint64_t maxPixels) {
  // Texels are straight (unassociated) alpha, as PNG, TIFF and glTF keep them: the reader must not
  // premultiply colour by alpha.
  OIIO::ImageSpec config;
  config.attribute("oiio:UnassociatedAlpha", 1);
  auto in = OIIO::ImageInput::open(native, &config);
  if (!in) return VEX_FAIL(vex::ErrorKind::FileIO, native + ": cannot read image: " + OIIO::geterror());
  const OIIO::ImageSpec& header = in->spec();
  VEX_TRY(CheckHeader(header, native, maxPixels));
  const int channels = header.nchannels;
  const std::size_t count = static_cast<std::size_t>(header.width) * static_cast<std::size_t>(header.height);
  if (header.format == OIIO::TypeDesc::UINT8) return Read8Bit(*in, native, colorData);
  std::vector<float> raw(count * static_cast<std::size_t>(channels));
  if (!in->read_image(0, 0, 0, channels, OIIO::TypeDesc::FLOAT, raw.data()))
    return VEX_FAIL(vex::ErrorKind::FileIO, native + ": cannot decode image: " + in->geterror());
  in->close();
  const bool decode = colorData && (header.format == OIIO::TypeDesc::UINT8 || header.format == OIIO::TypeDesc::UINT16);
  vex::TextureBuffer buffer;
  buffer._dimensions = {header.width, header.height};
  buffer._pixels = vex::PixelArray::Allocate(count);
  if (!buffer._pixels) return VEX_FAIL(vex::ErrorKind::OutOfMemory, native + ": out of memory");
  buffer.colorSpace = decode ? "sRGB" : "";
  float lut[256];
  if (decode)
    for (int i = 0; i < 256; ++i) lut[i] = SrgbToLinear(i / 255.f);
  const bool lutOk = header.format == OIIO::TypeDesc::UINT8;
  ForEachIndex(count, [&](std::size_t i) {
    const float* s = raw.data() + i * static_cast<std::size_t>(channels);
    float* d = buffer._pixels->Pixel(i);
    const float r = s[0];
    const float g = channels > 2 ? s[1] : r;
    const float b = channels > 2 ? s[2] : r;
    const float a = channels == 4 ? s[3] : (channels == 2 ? s[1] : 1.f);
    auto conv = [&](float v) {
      if (!decode) return v;
      return lutOk ? lut[static_cast<int>(std::lround(v * 255.f))] : SrgbToLinear(v);
    };
    d[0] = conv(r);
    d[1] = conv(g);
    d[2] = conv(b);
    d[3] = a;
  });
  return buffer;
}

vex::Result<void> Encode(const std::string& path, const vex::TextureBuffer& buffer, const ImageWriteOptions& options) {
  if (buffer.IsEmpty()) return VEX_FAIL(vex::ErrorKind::IllegalArgument, path + ": empty texture");
  auto out = OIIO::ImageOutput::create(path);
  if (!out) return VEX_FAIL(vex::ErrorKind::FileIO, path + ": no image writer for this suffix");
  const int w = static_cast<int>(buffer._dimensions.width);
  const int h = static_cast<int>(buffer._dimensions.height);
  const std::size_t count = buffer.GetCount();
  if (options.floatPixels) {
    OIIO::ImageSpec header(w, h, 4, OIIO::TypeDesc::FLOAT);
    header.attribute("compression", "zip");
    if (!out->open(path, header)) return VEX_FAIL(vex::ErrorKind::FileIO, path + ": " + out->geterror());
    if (!out->write_image(OIIO::TypeDesc::FLOAT, buffer._pixels->Data()))
      return VEX_FAIL(vex::ErrorKind::FileIO, path + ": " + out->geterror());
  } else {
    const auto& enc = EncodeTable();
    const float* src = buffer._pixels->Data();
    const bool srgb = options.srgb;
    const auto byte = [](float v) {
      v = v < 0.f ? 0.f : (v > 1.f ? 1.f : v);
      return static_cast<unsigned char>(v * 255.f + 0.5f);
    };
    const auto encoded = [&](float v) {
      v = v < 0.f ? 0.f : (v > 1.f ? 1.f : v);
      return enc[static_cast<std::size_t>(v * 4096.f + 0.5f)];
    };
    const auto colour = [&](float v) { return srgb ? encoded(v) : byte(v); };
    // First the channels the file needs: an alpha that is 255 everywhere is left out (a quarter
    // less to encode), and so are green and blue when they equal red everywhere (a grey image: two
    // thirds less); reading the file gives the same pixels back. Each block notes whether it saw
    // an alpha below 255 or a pixel that is not grey.
    std::atomic<bool> translucent{false}, colourful{false};
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, count, std::size_t(1) << 14),
                      [&](const tbb::blocked_range<std::size_t>& r) {
                        // Compared as floats: equal floats make equal bytes (a pixel whose
                        // floats differ by less than a byte's step counts as colour: one more
                        // channel, never a wrong one), and this pass stays cheap.
                        bool opaque = true, grey = true;
                        for (std::size_t i = r.begin(); i < r.end(); ++i) {
                          const float* p = src + 4 * i;
                          opaque = opaque && p[3] >= 254.5f / 255.f;
                          grey = grey && p[0] == p[1] && p[1] == p[2];
                        }
                        if (!opaque) translucent.store(true, std::memory_order_relaxed);
                        if (!grey) colourful.store(true, std::memory_order_relaxed);
                      });
    const int channels = translucent.load() ? 4 : (colourful.load() ? 3 : 1);
    // Then the bytes, packed as the file stores them (the encoder takes them without another copy).
    // Every byte is written: no zero-filling first (up to 16 MB for a 2048² texture).
    const auto n = static_cast<std::size_t>(channels);
    const auto bytes = std::make_unique_for_overwrite<unsigned char[]>(count * n);
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, count, std::size_t(1) << 14),
                      [&](const tbb::blocked_range<std::size_t>& r) {
                        unsigned char* b = bytes.get() + r.begin() * n;
                        const float* p = src + 4 * r.begin();
                        if (channels == 1) {
                          for (std::size_t i = r.begin(); i < r.end(); ++i, p += 4) *b++ = colour(p[0]);
                        } else {
                          for (std::size_t i = r.begin(); i < r.end(); ++i, p += 4) {
                            b[0] = colour(p[0]), b[1] = colour(p[1]), b[2] = colour(p[2]);
                            if (channels == 4) b[3] = byte(p[3]);
                            b += n;
                          }
                        }
                      });
    OIIO::ImageSpec header(w, h, channels, OIIO::TypeDesc::UINT8);
    header.attribute("png:compressionLevel", options.pngCompression);
    header.attribute("png:filter", options.pngFilter);
    // The bytes already hold straight alpha: without this the writer would divide colour by alpha.
    header.attribute("oiio:UnassociatedAlpha", 1);
    if (!out->open(path, header)) return VEX_FAIL(vex::ErrorKind::FileIO, path + ": " + out->geterror());
    if (!out->write_image(OIIO::TypeDesc::UINT8, bytes.get()))
      return VEX_FAIL(vex::ErrorKind::FileIO, path + ": " + out->geterror());
  }
  if (!out->close()) return VEX_FAIL(vex::ErrorKind::FileIO, path + ": " + out->geterror());
  return {};
}

// --- resampling (OpenImageIO's filtered resize) --------------------------------------------------

vex::Result<vex::TextureBuffer> Resample(const vex::TextureBuffer& buffer, std::int64_t width, std::int64_t height) {
  if (buffer.IsEmpty() || width <= 0 || height <= 0)
    return VEX_FAIL(vex::ErrorKind::IllegalArgument, "cannot resize an empty image or to an empty size");
  const OIIO::ImageSpec sourceSpec(static_cast<int>(buffer._dimensions.width),
                                   static_cast<int>(buffer._dimensions.height), 4, OIIO::TypeDesc::FLOAT);
  const OIIO::ImageBuf source(sourceSpec, const_cast<float*>(buffer._pixels->Data()));
  vex::TextureBuffer out = vex::TextureBuffer::Make(width, height);
  if (out.IsEmpty()) return VEX_FAIL(vex::ErrorKind::OutOfMemory, "Out of memory");
  out.colorSpace = buffer.colorSpace;
  const OIIO::ImageSpec targetSpec(static_cast<int>(width), static_cast<int>(height), 4, OIIO::TypeDesc::FLOAT);
  OIIO::ImageBuf target(targetSpec, out._pixels->Data());
  if (!OIIO::ImageBufAlgo::resize(target, source, "lanczos3"))
    return VEX_FAIL(vex::ErrorKind::IllegalArgument, "resize failed: " + target.geterror());
  return out;
}

constexpr ImageCodec kCodec{Decode, Encode, Resample};

}  // namespace
}  // namespace host

extern "C" __attribute__((visibility("default"))) const host::ImageCodec* interop_image_codec() { return &host::kCodec; }
