// Throughput of the node material baker, two worker threads: a 2048 x 2048 image
// baked to 1024 x 1024 (area-filtered minification), to 4096 x 4096 (bilinear
// magnification), and a checker fed by a gradient baked to 2048 x 2048. Every
// iteration also runs an in-place anchor on the baked buffer through the same
// parallel-for (every float rewritten as 1 - x). Counters:
//   Mpx/s         output pixels baked per second
//   anchor_Mpx/s  pixels the anchor rewrites per second
//   ratio         Mpx/s / anchor_Mpx/s
// Only the bake's time is the benchmark's iteration time.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "frame/module.h"
#include "host/images.h"
#include "bench_host.h"
#include "host/reference_host.h"
#include "material/mapping/materialmapping.h"
#include "material/nodematerialbaker.h"

namespace {

using bench::BenchHost;

const std::string& SourceImage() {
  static const std::string path = [] {
    const auto file = std::filesystem::temp_directory_path() / ("interop_bake_bench_" + std::to_string(getpid()) + ".exr");
    auto t = vex::TextureBuffer::Make(2048, 2048);
    float* f = t._pixels->Data();
    for (std::size_t i = 0; i < t.GetCount() * 4; ++i) f[i] = static_cast<float>((i * 2654435761u) % 1000u) * 0.001f;
    host::ImageWriteOptions options;
    options.floatPixels = true;
    if (!host::WriteImage(file.string(), t, options)) std::abort();
    return file.string();
  }();
  return path;
}

vex::NodeGraph ImageGraph() {
  vex::NodeGraph g;
  g.endNode = "material";
  g.nodes.push_back({"material", vex::Id(vex::node::kCorvaneMaterial), {}});
  vex::GraphNode image{"img", vex::Id(vex::node::kImage), {}};
  image.ports.Set("file", SourceImage());
  image.ports.Set("colorSpace", std::string("raw"));
  g.nodes.push_back(std::move(image));
  g.links.push_back({"img", "material", std::string(vex::ports::corvane::diffuse_color)});
  return g;
}

vex::NodeGraph CheckerGraph() {
  vex::NodeGraph g;
  g.endNode = "material";
  g.nodes.push_back({"material", vex::Id(vex::node::kCorvaneMaterial), {}});
  g.nodes.push_back({"check", vex::Id(vex::node::kChecker), {}});
  g.nodes.push_back({"ramp", vex::Id(vex::node::kLinearGradient), {}});
  g.links.push_back({"check", "material", std::string(vex::ports::corvane::diffuse_color)});
  g.links.push_back({"ramp", "check", "color1"});
  return g;
}

void Run(benchmark::State& state, const vex::NodeGraph& graph, std::int64_t size) {
  BenchHost();
  double anchorSeconds = 0;
  std::int64_t pixels = 0;
  for (auto _ : state) {
    auto baked = interop::material::BakeNodeInput(graph, *graph.EndNode(), vex::ports::corvane::diffuse_color,
                                                  {size, vex::TextureResize::Stretch}, nullptr, false);
    if (!baked) {
      state.SkipWithError(baked.error().Describe().c_str());
      return;
    }
    state.PauseTiming();
    float* data = baked->_pixels->Data();
    const auto start = std::chrono::steady_clock::now();
    (void)interop::mapping::ForEachPixel(baked->GetCount(), [data](std::int64_t b, std::int64_t e) {
      for (std::int64_t i = 4 * b; i < 4 * e; ++i) data[i] = 1.0f - data[i];
    });
    anchorSeconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    benchmark::DoNotOptimize(data);
    pixels += static_cast<std::int64_t>(baked->GetCount());
    state.ResumeTiming();
  }
  state.counters["Mpx/s"] = benchmark::Counter(static_cast<double>(pixels) * 1e-6, benchmark::Counter::kIsRate);
  const double anchorRate = static_cast<double>(pixels) * 1e-6 / anchorSeconds;
  state.counters["anchor_Mpx/s"] = anchorRate;
  // The rate counter is finished by the framework; the ratio is reported from the same figures.
  state.counters["ratio"] = benchmark::Counter(static_cast<double>(pixels) * 1e-6 / anchorRate,
                                               benchmark::Counter::kIsRate);
}

void BM_BakeImageMinify(benchmark::State& state) { Run(state, ImageGraph(), 1024); }
void BM_BakeImageMagnify(benchmark::State& state) { Run(state, ImageGraph(), 4096); }
void BM_BakeChecker(benchmark::State& state) { Run(state, CheckerGraph(), 2048); }

BENCHMARK(BM_BakeImageMinify)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_BakeImageMagnify)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_BakeChecker)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
