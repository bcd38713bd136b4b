// The kernels are written as one loop over pixels that reads a pixel into
// locals and then writes all four of its floats. A full four-float store per
// pixel lets the vectoriser treat the loop as one interleaved group (one pass
// over the buffer); storing fewer channels, or assigning a pixel struct, gives
// stores with gaps that end up as scalar code or as separate loops. Sums keep
// their left-to-right order so the results are the same bits in every build.
// This unit is compiled with the dynamic vectoriser cost model (see the
// folder's CMakeLists.txt): the default cost model of -O2 refuses loops whose
// trip count is not known to be a multiple of the vector width.
#include "material/mapping/pixel_passes.h"

#include "material/mapping/materialmapping.h"

namespace interop::mapping {

namespace kernel {

void InvertRgb(float* pixels, std::int64_t begin, std::int64_t end) {
  // One formula for all four channels, k - s * x, so the pixel is one vector operation: colour
  // 1 - 1 * x = 1 - x, alpha 0 - (-1 * x) = x (the same value; only a -0 alpha comes back +0).
  // Written as "a = a" the alpha store is dropped as a no-op, and the pixel's stores get a gap
  // that turns the loop into deinterleaving shuffles and scalar stores.
  constexpr float k[4] = {1.0f, 1.0f, 1.0f, 0.0f};
  constexpr float s[4] = {1.0f, 1.0f, 1.0f, -1.0f};
  for (std::int64_t i = begin; i < end; ++i) {
    float* p = pixels + 4 * i;
    for (int c = 0; c < 4; ++c) p[c] = k[c] - s[c] * p[c];
  }
}

void WhiteWithMeanAlpha(float* pixels, std::int64_t begin, std::int64_t end) {
  for (std::int64_t i = begin; i < end; ++i) {
    float* p = pixels + 4 * i;
    const float mean = (p[0] + p[1] + p[2]) * 0.33333334f;
    p[0] = 1.0f;
    p[1] = 1.0f;
    p[2] = 1.0f;
    p[3] = mean;
  }
}

void OpacityIntoAlpha(float* baseColor, const float* opacity, std::int64_t begin,
                      std::int64_t end) {
  for (std::int64_t i = begin; i < end; ++i) {
    const float* o = opacity + 4 * i;
    float* p = baseColor + 4 * i;
    const float alpha = (o[0] + o[1] + o[2] + o[3]) * 0.25f;
    const float r = p[0], g = p[1], b = p[2];
    p[0] = r;
    p[1] = g;
    p[2] = b;
    p[3] = alpha;
  }
}

void MetalRoughness(float* metal, const float* roughness, std::int64_t begin,
                    std::int64_t end) {
  for (std::int64_t i = begin; i < end; ++i) {
    float* p = metal + 4 * i;
    const float rough = roughness[4 * i + 1];
    const float met = p[1];
    p[0] = 0.0f;
    p[1] = rough;
    p[2] = met;
    p[3] = 1.0f;
  }
}

void GreenAsRoughness(float* pixels, std::int64_t begin, std::int64_t end) {
  for (std::int64_t i = begin; i < end; ++i) {
    float* p = pixels + 4 * i;
    const float g = p[1];
    p[0] = 0.0f;
    p[1] = g;
    p[2] = 1.0f;
    p[3] = 1.0f;
  }
}

void Occlusion(float* pixels, std::int64_t begin, std::int64_t end) {
  for (std::int64_t i = begin; i < end; ++i) {
    float* p = pixels + 4 * i;
    const float mean = (p[0] + p[1] + p[2] + p[3]) * 0.25f;
    p[0] = mean;
    p[1] = 0.0f;
    p[2] = 0.0f;
    p[3] = 1.0f;
  }
}

void GreyMean(float* pixels, std::int64_t begin, std::int64_t end) {
  for (std::int64_t i = begin; i < end; ++i) {
    float* p = pixels + 4 * i;
    const float mean = (p[0] + p[1] + p[2]) * 0.33333334f;
    const float a = p[3];
    p[0] = mean;
    p[1] = mean;
    p[2] = mean;
    p[3] = a;
  }
}

}  // namespace kernel

namespace {

using Kernel1 = void (*)(float*, std::int64_t, std::int64_t);
using Kernel2 = void (*)(float*, const float*, std::int64_t, std::int64_t);

vex::Result<void> Run(vex::PixelArray& pixels, Kernel1 k) {
  float* data = pixels.Data();
  return ForEachPixel(pixels.GetCount(), [data, k](std::int64_t begin, std::int64_t end) { k(data, begin, end); });
}

vex::Result<void> Run(vex::PixelArray& target, const vex::PixelArray& source, Kernel2 k) {
  float* data = target.Data();
  const float* src = source.Data();
  return ForEachPixel(target.GetCount(),
                      [data, src, k](std::int64_t begin, std::int64_t end) { k(data, src, begin, end); });
}

}  // namespace

vex::Result<void> InvertRgb(vex::PixelArray& pixels) { return Run(pixels, &kernel::InvertRgb); }
vex::Result<void> WhiteWithMeanAlpha(vex::PixelArray& pixels) { return Run(pixels, &kernel::WhiteWithMeanAlpha); }
vex::Result<void> OpacityIntoAlpha(vex::PixelArray& baseColor, const vex::PixelArray& opacity) {
  return Run(baseColor, opacity, &kernel::OpacityIntoAlpha);
}
vex::Result<void> MetalRoughness(vex::PixelArray& metal, const vex::PixelArray& roughness) {
  return Run(metal, roughness, &kernel::MetalRoughness);
}
vex::Result<void> GreenAsRoughness(vex::PixelArray& pixels) { return Run(pixels, &kernel::GreenAsRoughness); }
vex::Result<void> Occlusion(vex::PixelArray& pixels) { return Run(pixels, &kernel::Occlusion); }
vex::Result<void> GreyMean(vex::PixelArray& pixels) { return Run(pixels, &kernel::GreyMean); }

}  // namespace interop::mapping
