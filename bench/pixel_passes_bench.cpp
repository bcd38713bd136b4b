// Throughput of the mappings' pixel passes on 4096 x 4096 RGBA float buffers,
// two worker threads. Every iteration also runs an in-place anchor on the
// pass's destination buffer, through the same parallel-for: every float
// rewritten as 1 - x, the simplest streaming pass there is. Counters:
//   GB/s         bytes read plus bytes written by the pass, per second
//   anchor_GB/s  the same for the anchor (32 bytes a pixel)
//   ratio        GB/s / anchor_GB/s (1.0: the pass streams as fast as the anchor)
// Only the pass's time is the benchmark's iteration time.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <iostream>

#include "frame/module.h"
#include "bench_host.h"
#include "host/reference_host.h"
#include "material/mapping/materialmapping.h"
#include "material/mapping/pixel_passes.h"

namespace {

namespace mapping = interop::mapping;

constexpr std::int64_t kSide = 4096;
constexpr double kPixelBytes = 16.0;

using bench::BenchHost;

void AnchorRange(float* pixels, std::int64_t begin, std::int64_t end) {
  float* f = pixels + 4 * begin;
  const std::int64_t n = 4 * (end - begin);
  for (std::int64_t i = 0; i < n; ++i) f[i] = 1.0f - f[i];
}

vex::Result<void> Anchor(vex::PixelArray& pixels) {
  float* data = pixels.Data();
  return mapping::ForEachPixel(pixels.GetCount(),
                               [data](std::int64_t begin, std::int64_t end) { AnchorRange(data, begin, end); });
}

/// A buffer of varied values in [0, 1], as a baked texture would hold.
vex::TextureBuffer MakeBuffer(float seed) {
  auto t = vex::TextureBuffer::Make(kSide, kSide);
  float* f = t._pixels->Data();
  const std::size_t n = t._pixels->GetCount() * 4;
  for (std::size_t i = 0; i < n; ++i) f[i] = static_cast<float>((i * 2654435761u) % 1000u) * 0.001f * seed;
  return t;
}

double Seconds(std::chrono::steady_clock::duration d) { return std::chrono::duration<double>(d).count(); }

/// Runs `pass` (on dst, reading src when the pass has two buffers) and the anchor on dst.
template <class Pass>
void Measure(benchmark::State& state, bool twoBuffers, Pass pass) {
  BenchHost();
  auto dst = MakeBuffer(1.0f);
  auto src = twoBuffers ? MakeBuffer(0.5f) : vex::TextureBuffer{};
  const double pixels = static_cast<double>(dst.GetCount());
  const double passBytes = pixels * kPixelBytes * (twoBuffers ? 3.0 : 2.0);
  const double anchorBytes = pixels * kPixelBytes * 2.0;
  double passTotal = 0.0;
  double anchorTotal = 0.0;
  for (auto _ : state) {
    const auto t0 = std::chrono::steady_clock::now();
    auto done = pass(*dst._pixels, src._pixels.get());
    const auto t1 = std::chrono::steady_clock::now();
    auto anchored = Anchor(*dst._pixels);
    const auto t2 = std::chrono::steady_clock::now();
    if (!done || !anchored) {
      state.SkipWithError("pixel pass failed");
      break;
    }
    benchmark::ClobberMemory();
    state.SetIterationTime(Seconds(t1 - t0));
    passTotal += Seconds(t1 - t0);
    anchorTotal += Seconds(t2 - t1);
  }
  const double iterations = static_cast<double>(state.iterations());
  if (iterations == 0 || passTotal <= 0.0 || anchorTotal <= 0.0) return;
  const double passRate = passBytes * iterations / passTotal / 1e9;
  const double anchorRate = anchorBytes * iterations / anchorTotal / 1e9;
  state.counters["GB/s"] = passRate;
  state.counters["anchor_GB/s"] = anchorRate;
  state.counters["ratio"] = passRate / anchorRate;
}

void BM_BaseColorOpacityMerge(benchmark::State& state) {
  Measure(state, true, [](vex::PixelArray& dst, const vex::PixelArray* src) {
    return mapping::OpacityIntoAlpha(dst, *src);
  });
}
void BM_OpacityAloneMerge(benchmark::State& state) {
  Measure(state, false, [](vex::PixelArray& dst, const vex::PixelArray*) { return mapping::WhiteWithMeanAlpha(dst); });
}
void BM_MetalRoughnessMerge(benchmark::State& state) {
  Measure(state, true, [](vex::PixelArray& dst, const vex::PixelArray* src) {
    return mapping::MetalRoughness(dst, *src);
  });
}
void BM_RoughnessOnlyMerge(benchmark::State& state) {
  Measure(state, false, [](vex::PixelArray& dst, const vex::PixelArray*) { return mapping::GreenAsRoughness(dst); });
}
void BM_OcclusionMerge(benchmark::State& state) {
  Measure(state, false, [](vex::PixelArray& dst, const vex::PixelArray*) { return mapping::Occlusion(dst); });
}
void BM_TransmissionInversion(benchmark::State& state) {
  Measure(state, false, [](vex::PixelArray& dst, const vex::PixelArray*) { return mapping::InvertRgb(dst); });
}
void BM_UsdOpacityPass(benchmark::State& state) {
  Measure(state, false, [](vex::PixelArray& dst, const vex::PixelArray*) { return mapping::GreyMean(dst); });
}

BENCHMARK(BM_BaseColorOpacityMerge)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpacityAloneMerge)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MetalRoughnessMerge)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RoughnessOnlyMerge)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OcclusionMerge)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TransmissionInversion)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_UsdOpacityPass)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
