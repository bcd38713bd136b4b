// The described registry with many values under one key, read and searched the way the ArchiCAD
// search reads it (open the key, enumerate every value, query each by name). The baseline, measured
// in the same iteration, is splitting the same file into lines. Counters:
//   ns_per_value   the registry's time per value (flat from 1,000 to 50,000 values: linear)
//   vs_line_split  the registry's time / the baseline's
#include <benchmark/benchmark.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <unistd.h>

#include "host/registry_file.h"

namespace {

namespace fs = std::filesystem;

std::string HivePath(int values) {
  const fs::path path = fs::temp_directory_path() / ("registry_bench_" + std::to_string(::getpid()) + "_" +
                                                     std::to_string(values) + ".reg");
  if (!fs::exists(path)) {
    std::ofstream out(path, std::ios::binary);
    out << "Windows Registry Editor Version 5.00\r\n\r\n[HKEY_CURRENT_USER\\Software\\Graphisoft\\ArchiCAD-64]\r\n";
    for (int i = 0; i < values; ++i) out << "\"Value " << i << "\"=\"27.0." << i << " INT FULL\"\r\n";
  }
  return path.string();
}

void BM_RegistryLocate(benchmark::State& state) {
  const int values = static_cast<int>(state.range(0));
  const std::string path = HivePath(values);
  double registrySeconds = 0, baselineSeconds = 0;
  for (auto _ : state) {
    const auto t0 = std::chrono::steady_clock::now();
    host::RegistryFile registry;
    if (!registry.LoadFile(path)) state.SkipWithError("cannot read the hive");
    auto key = registry.OpenCurrentUserKey("Software\\Graphisoft\\ArchiCAD-64");
    if (!key) state.SkipWithError("no key");
    char buffer[256];
    std::size_t found = 0;
    for (std::uint32_t i = 0;; ++i) {
      auto value = registry.EnumValue(*key, i);
      if (!value) break;
      found += registry.QueryValue(*key, value->name, buffer).has_value();
    }
    registry.CloseKey(*key);
    benchmark::DoNotOptimize(found);
    const auto t1 = std::chrono::steady_clock::now();
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    std::size_t lines = 0;
    for (std::string line; std::getline(text, line);) lines += line.size() > 0;
    benchmark::DoNotOptimize(lines);
    const auto t2 = std::chrono::steady_clock::now();
    registrySeconds += std::chrono::duration<double>(t1 - t0).count();
    baselineSeconds += std::chrono::duration<double>(t2 - t1).count();
  }
  const double iterations = static_cast<double>(state.iterations());
  state.counters["ns_per_value"] = registrySeconds / iterations / values * 1e9;
  state.counters["vs_line_split"] = registrySeconds / baselineSeconds;
  std::error_code ec;
  fs::remove(path, ec);
}
BENCHMARK(BM_RegistryLocate)->Arg(1000)->Arg(10000)->Arg(50000)->Arg(200000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
