// Light operations against plain anchors measured in the same iterations:
//   ComputeColorTemperatureRGB   vs  one pass over the 90-row colour matching table (sum of x̄ȳz̄)
//   CVLightGetBaseIntensity      vs  a plain read of the intensity parameter (11004)
// Both go through the global utilities component as a host would call them. Counters:
//   calls/s          operation calls per second
//   anchor_calls/s   anchor calls per second
//   ratio            calls/s / anchor_calls/s (1.0: as fast as the anchor)
// Only the operation's time is the benchmark's iteration time.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <iostream>

#include "frame/module.h"
#include "bench_host.h"
#include "host/reference_host.h"
#include "lights/colour_matching.h"
#include "vex/interfaces.h"
#include "vex/lookup.h"

namespace {

constexpr int kBatch = 256;

host::ReferenceHost& Host() { return bench::BenchHost(); }

std::shared_ptr<vex::IGlobalUtils> Utils() {
  Host();
  auto utils = vex::CreateAs<vex::IGlobalUtils>("net.kelvo.exchange.globalutils");
  if (!utils) std::abort();
  return *utils;
}

double Seconds(std::chrono::steady_clock::duration d) { return std::chrono::duration<double>(d).count(); }

/// Runs `op` and `anchor` kBatch times each per iteration; reports the rates and their ratio.
template <class Op, class Anchor>
void Measure(benchmark::State& state, Op&& op, Anchor&& anchor) {
  double opTotal = 0, anchorTotal = 0;
  for (auto _ : state) {
    const auto t0 = std::chrono::steady_clock::now();
    for (int i = 0; i < kBatch; ++i) op(i);
    const auto t1 = std::chrono::steady_clock::now();
    for (int i = 0; i < kBatch; ++i) anchor(i);
    const auto t2 = std::chrono::steady_clock::now();
    opTotal += Seconds(t1 - t0);
    anchorTotal += Seconds(t2 - t1);
    state.SetIterationTime(Seconds(t1 - t0));
  }
  const double calls = static_cast<double>(state.iterations()) * kBatch;
  if (calls == 0 || opTotal <= 0 || anchorTotal <= 0) return;
  state.counters["calls/s"] = calls / opTotal;
  state.counters["anchor_calls/s"] = calls / anchorTotal;
  state.counters["ratio"] = (calls / opTotal) / (calls / anchorTotal);
}

void BM_ColorTemperatureRGB(benchmark::State& state) {
  auto utils = Utils();
  Measure(
      state,
      [&](int i) { benchmark::DoNotOptimize(utils->ComputeColorTemperatureRGB(2000.0 + 10.0 * i, true, 6500.0)); },
      [&](int i) {
        double sum = static_cast<double>(i);
        for (const auto& row : interop::lights::kColourMatching) sum += row.x + row.y + row.z;
        benchmark::DoNotOptimize(sum);
      });
}

void BM_BaseIntensity(benchmark::State& state) {
  auto utils = Utils();
  host::Document& document = Host().documents().NewDocument("bench");
  document.Settings().Set(vex::kDocumentLengthUnit, vex::Data::MakeCustom(vex::UnitScale{"cm", 0.01}));
  vex::RenderData render;
  vex::PostEffect corvane{1036219, {}};
  corvane.parameters.Set(1801, 100.0);
  corvane.parameters.Set(1802, 10000.0);
  corvane.parameters.Set(25002, vex::Data::MakeCustom(vex::UnitScale{"m", 1.0}));
  render.postEffects.push_back(std::move(corvane));
  document.AddRenderData(std::move(render));
  auto light = std::make_shared<host::SceneObject>(1036751);
  light->MutableParameters().Set(10000, std::int32_t{1});
  light->MutableParameters().Set(11005, std::int32_t{1});
  light->MutableParameters().Set(11004, 100.0);
  vex::ISceneObject* inserted = *document.InsertObject(light, nullptr);
  Measure(
      state, [&](int) { benchmark::DoNotOptimize(utils->CVLightGetBaseIntensity(inserted)); },
      [&](int) { benchmark::DoNotOptimize(inserted->Parameters().GetFloat(11004, 1.0)); });
  Host().documents().Close(&document);
}

}  // namespace

BENCHMARK(BM_ColorTemperatureRGB)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_BaseIntensity)->UseManualTime()->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
