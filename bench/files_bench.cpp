// The file writers of `vexinterop convert`: four textured glTF sets (three 1024 x 1024 textures
// each) written one after another (the baseline) and in parallel on oneTBB, as convert runs its
// inputs. Every iteration measures both; the iteration time is the parallel run's. Counters:
//   serial_ms    the baseline's time
//   speedup      serial time / parallel time (at most the worker count)
#include <benchmark/benchmark.h>

#include <chrono>
#include <filesystem>

#include <oneapi/tbb/global_control.h>
#include <oneapi/tbb/parallel_for.h>

#include "host/formats/catalogue.h"
#include "host/formats/formats.h"
#include "host/staged_output.h"
#include "host/reference_host.h"

namespace {

namespace fs = std::filesystem;
namespace formats = host::formats;

constexpr int kSets = 4;
constexpr std::int64_t kSide = 1024;

vex::ParameterSet TexturedSet(int seed) {
  vex::ParameterSet set(vex::Id(vex::bundle::kGltf));
  namespace gltf = vex::ports::gltf;
  for (const std::string_view port : {gltf::baseColorTexture, gltf::metallicRoughnessTexture, gltf::normalTexture}) {
    auto texture = vex::TextureBuffer::Make(kSide, kSide);
    for (std::size_t i = 0; i < texture.GetCount(); ++i) {
      float* p = texture._pixels->Pixel(i);
      const auto x = static_cast<float>(i % kSide) / kSide, y = static_cast<float>(i / kSide) / kSide;
      p[0] = x, p[1] = y, p[2] = static_cast<float>((i * 7 + static_cast<std::size_t>(seed)) % 255) / 255.0f, p[3] = 1.0f;
    }
    set.Set(port, vex::Parameter::Textured(vex::PackedConstantParameter(vex::ColorA{1, 1, 1, 1}), texture));
  }
  set.SetConstant(vex::ports::gltf::baseColorFactor, vex::ColorA{0.8, 0.5, 0.2, 1.0});
  return set;
}

void WriteOne(const vex::ParameterSet& set, int i, const fs::path& dir, const vex::IPortBundles& bundles) {
  const fs::path out = dir / std::to_string(i);
  fs::create_directories(dir);
  host::StagedOutput staged;
  const auto written = formats::WriteFormatFile(*formats::FindFormat("gltf"),
                                                formats::PreviewScene("m", std::make_shared<vex::ParameterSet>(set)),
                                                out.string(), "m", bundles, {}, staged);
  if (!written || !staged.CommitAll()) std::abort();
}

void BM_WriteGltfSets(benchmark::State& state) {
  tbb::global_control threads(tbb::global_control::max_allowed_parallelism, 2);
  host::ReferenceHost reference;
  std::vector<vex::ParameterSet> sets;
  for (int i = 0; i < kSets; ++i) sets.push_back(TexturedSet(i));
  const fs::path dir = fs::temp_directory_path() / ("files_bench_" + std::to_string(getpid()));
  double serialSeconds = 0, parallelSeconds = 0;
  for (auto _ : state) {
    state.PauseTiming();
    const auto s0 = std::chrono::steady_clock::now();
    for (int i = 0; i < kSets; ++i) WriteOne(sets[static_cast<std::size_t>(i)], i, dir / "serial", reference.bundles());
    serialSeconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - s0).count();
    state.ResumeTiming();
    const auto p0 = std::chrono::steady_clock::now();
    tbb::parallel_for(0, kSets, [&](int i) {
      WriteOne(sets[static_cast<std::size_t>(i)], i, dir / "parallel", reference.bundles());
    });
    parallelSeconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - p0).count();
  }
  fs::remove_all(dir);
  const auto n = static_cast<double>(state.iterations());
  state.counters["serial_ms"] = 1000.0 * serialSeconds / n;
  state.counters["speedup"] = serialSeconds / parallelSeconds;
}
BENCHMARK(BM_WriteGltfSets)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
