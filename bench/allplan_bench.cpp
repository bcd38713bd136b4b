// The Allplan saver on one-million-triangle scenes (a terrain-like grid with
// fractional coordinates: /0 with shared points, /1 as a triangle soup with three
// points per triangle), against two baselines measured in the same run:
//   BM_AllplanSave        the saver, polygon copy to closed file     (MB/s of output)
//   BM_RawWrite           the same bytes written through the same file service to the same disk
//   BM_SnprintfDocument   the same document with every number formatted by snprintf("%.3f")
//                         and trimmed, written the same way
//   BM_FormatNumber / BM_SnprintfNumber   ns a coordinate for the two formatters alone
// Counters: MB/s, and on BM_AllplanSave ratio_raw / ratio_snprintf (wall clock) and
// cpu_ratio_raw / cpu_ratio_snprintf (process CPU time) against the baselines, which run before
// it (so run the three in one go). Peak memory: `allplan_bench --peak-memory=N` builds an
// N-triangle scene, saves it, and prints the resident memory before and the peak during the save.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <charconv>
#include <chrono>
#include <cmath>
#include <ctime>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include "exchange/allplan_format.h"
#include "exchange/allplan_main.h"
#include "frame/module.h"
#include "host/polygon_object.h"
#include "bench_host.h"
#include "host/reference_host.h"

namespace {

namespace ap = interop::exchange::allplan;

using bench::BenchHost;

/// A grid of side x side quads, each split into two triangles, over a gently curved surface.
vex::PolygonMesh Grid(std::size_t triangles) {
  const auto side = static_cast<std::size_t>(std::sqrt(static_cast<double>(triangles) / 2.0));
  vex::PolygonMesh mesh;
  mesh.points.reserve((side + 1) * (side + 1));
  for (std::size_t j = 0; j <= side; ++j)
    for (std::size_t i = 0; i <= side; ++i) {
      const double x = static_cast<double>(i) * 0.0137;
      const double z = static_cast<double>(j) * 0.0211;
      mesh.points.push_back({x, 0.25 * std::sin(x * 3.1) * std::cos(z * 2.3), z});
    }
  mesh.polygonSizes.assign(2 * side * side, 3);
  mesh.polygonPoints.reserve(6 * side * side);
  for (std::size_t j = 0; j < side; ++j)
    for (std::size_t i = 0; i < side; ++i) {
      const auto a = static_cast<std::int32_t>(j * (side + 1) + i);
      const auto b = a + 1;
      const auto c = a + static_cast<std::int32_t>(side + 1);
      const auto d = c + 1;
      for (const std::int32_t p : {a, b, d, a, d, c}) mesh.polygonPoints.push_back(p);
    }
  return mesh;
}

/// The same triangles with three points of their own each, as STL files and many exporters give
/// them: three times the coordinates for the same number of edges and faces.
vex::PolygonMesh Soup(std::size_t triangles) {
  const vex::PolygonMesh grid = Grid(triangles);
  vex::PolygonMesh mesh;
  mesh.points.reserve(grid.polygonPoints.size());
  for (const std::int32_t p : grid.polygonPoints) mesh.points.push_back(grid.points[static_cast<std::size_t>(p)]);
  mesh.polygonSizes = grid.polygonSizes;
  mesh.polygonPoints.resize(grid.polygonPoints.size());
  for (std::size_t i = 0; i < mesh.polygonPoints.size(); ++i) mesh.polygonPoints[i] = static_cast<std::int32_t>(i);
  return mesh;
}

struct Scene {
  host::Document* document = nullptr;
  const vex::PolygonMesh* mesh = nullptr;
  std::string path;
  std::string bytes;  // what the saver wrote, for the raw baseline
};

Scene Make(int kind);

/// Scene 0: the grid with shared points; scene 1: the same triangles as a soup.
Scene& MillionTriangles(std::int64_t kind = 0) {
  static Scene scenes[2] = {Make(0), Make(1)};
  return scenes[kind];
}

Scene Make(int kind) {
  {
    Scene s;
    auto& host = BenchHost();
    s.document = &host.documents().NewDocument("bench");
    auto object = host::MakePolygonObject("terrain", kind == 0 ? Grid(1000000) : Soup(1000000));
    s.mesh = object->Parameters().Find(vex::kPolygonMeshParameter)->Get<vex::PolygonMesh>();
    (void)s.document->InsertObject(object, nullptr);
    s.path = (std::filesystem::temp_directory_path() /
              ("allplan_bench_" + std::to_string(getpid()) + "_" + std::to_string(kind) + ".xml"))
                 .string();
    // One save up front gives the raw baseline its bytes.
    vex::ParamContainer settings;
    if (interop::exchange::AllocateAllplanSaver()->Save(settings, s.path, *s.document) != 0) std::abort();
    std::ifstream in(s.path, std::ios::binary);
    s.bytes.assign(std::istreambuf_iterator<char>(in), {});
    return s;
  }
}

double g_rawMBs[2] = {}, g_snprintfMBs[2] = {}, g_rawCpuMBs[2] = {}, g_snprintfCpuMBs[2] = {};

/// MB/s over the benchmark's iterations, by the wall clock and by this process's CPU time (the
/// second is steadier on a machine shared with other work).
struct Rate {
  std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
  std::clock_t cpuStart = std::clock();
  double MBs(double bytes) const {
    return bytes / 1e6 / std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }
  double CpuMBs(double bytes) const {
    return bytes / 1e6 / (static_cast<double>(std::clock() - cpuStart) / CLOCKS_PER_SEC);
  }
};

void BM_AllplanSave(benchmark::State& state) {
  Scene& scene = MillionTriangles(state.range(0));
  auto saver = interop::exchange::AllocateAllplanSaver();
  vex::ParamContainer settings;
  std::size_t size = 0;
  const Rate rate;
  for (auto _ : state) {
    if (saver->Save(settings, scene.path, *scene.document) != 0) state.SkipWithError("save failed");
    size = std::filesystem::file_size(scene.path);
  }
  const double bytes = static_cast<double>(size) * static_cast<double>(state.iterations());
  const double mbs = rate.MBs(bytes);
  const double cpu = rate.CpuMBs(bytes);
  if (g_rawMBs[state.range(0)] > 0) state.counters["ratio_raw"] = mbs / g_rawMBs[state.range(0)];
  if (g_snprintfMBs[state.range(0)] > 0) state.counters["ratio_snprintf"] = mbs / g_snprintfMBs[state.range(0)];
  if (g_rawCpuMBs[state.range(0)] > 0) state.counters["cpu_ratio_raw"] = cpu / g_rawCpuMBs[state.range(0)];
  if (g_snprintfCpuMBs[state.range(0)] > 0) state.counters["cpu_ratio_snprintf"] = cpu / g_snprintfCpuMBs[state.range(0)];
  if (size != scene.bytes.size()) state.SkipWithError("the saver's output changed between runs");
  state.SetBytesProcessed(static_cast<std::int64_t>(size) * state.iterations());
  state.counters["MB/s"] = benchmark::Counter(static_cast<double>(size) * state.iterations() / 1e6,
                                              benchmark::Counter::kIsRate);
  state.counters["file_MB"] = static_cast<double>(size) / 1e6;
}

void BM_RawWrite(benchmark::State& state) {
  Scene& scene = MillionTriangles(state.range(0));
  auto& files = BenchHost().files();
  const Rate rate;
  for (auto _ : state) {
    auto file = files.OpenWrite(scene.path, {});
    if (!file) state.SkipWithError("open failed");
    for (std::size_t at = 0; at < scene.bytes.size(); at += 1 << 18)
      (void)(*file)->Write(scene.bytes.data() + at, std::min<std::size_t>(1 << 18, scene.bytes.size() - at));
    (void)(*file)->Close();
  }
  g_rawMBs[state.range(0)] = rate.MBs(static_cast<double>(scene.bytes.size()) * static_cast<double>(state.iterations()));
  g_rawCpuMBs[state.range(0)] = rate.CpuMBs(static_cast<double>(scene.bytes.size()) * static_cast<double>(state.iterations()));
  state.counters["MB/s"] = benchmark::Counter(static_cast<double>(scene.bytes.size()) * state.iterations() / 1e6,
                                              benchmark::Counter::kIsRate);
}

/// snprintf with three decimals, then the same trimming as the saver's formatter.
char* SnprintfNumber(double v, char* out) {
  int n = std::snprintf(out, 400, "%.3f", v);
  char* end = out + n;
  while (end[-1] == '0') --end;
  if (end[-1] == '.') --end;
  if (end - out == 2 && out[0] == '-' && out[1] == '0') {
    out[0] = '0';
    end = out + 1;
  }
  return end;
}

/// The saver's output for the benchmark scene, produced with snprintf for every number.
void WriteWithSnprintf(const vex::PolygonMesh& mesh, vex::IFile& file) {
  std::string buffer;
  buffer.reserve(1 << 19);
  char number[400];
  const auto flush = [&] {
    if (buffer.size() >= (1 << 18)) {
      (void)file.Write(buffer.data(), buffer.size());
      buffer.clear();
    }
  };
  buffer += R"(<?xml version="1.0" encoding="ISO-8859-1" ?><noi:DOCUMENT xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance" xmlns:noi="NOISchema.xsd"><noi:VERSION info_1="2004" info_2="2004.0" info_3="" /><noi:MODEL_SECTION>)";
  for (const auto& p : mesh.points) {
    buffer += "<noi:GEO_POINT x=\"";
    buffer.append(number, SnprintfNumber(p.x, number));
    buffer += "\" y=\"";
    buffer.append(number, SnprintfNumber(p.z, number));
    buffer += "\" z=\"";
    buffer.append(number, SnprintfNumber(p.y, number));
    buffer += "\" />\n";
    flush();
  }
  std::size_t corner = 0;
  for (const std::int32_t size : mesh.polygonSizes) {
    for (std::int32_t k = 0; k < size; ++k) {
      const int n = std::snprintf(number, sizeof number, "<noi:GEO_EDGE e1=\"%d\" e2=\"%d\" />\n",
                                  mesh.polygonPoints[corner + k], mesh.polygonPoints[corner + (k + 1) % size]);
      buffer.append(number, static_cast<std::size_t>(n));
    }
    corner += static_cast<std::size_t>(size);
    flush();
  }
  std::uint32_t edge = 0;
  for (const std::int32_t size : mesh.polygonSizes) {
    int n = std::snprintf(number, sizeof number, "<noi:GEO_FACE countOfEdges=\"%d\">", size);
    buffer.append(number, static_cast<std::size_t>(n));
    for (std::int32_t k = 0; k < size; ++k) {
      n = std::snprintf(number, sizeof number, "<noi:GEO_FACE_EDGE e=\"%u\" />\n", edge++);
      buffer.append(number, static_cast<std::size_t>(n));
    }
    buffer += "</noi:GEO_FACE>";
    flush();
  }
  buffer += "</noi:MODEL_SECTION></noi:DOCUMENT>";
  (void)file.Write(buffer.data(), buffer.size());
}

void BM_SnprintfDocument(benchmark::State& state) {
  Scene& scene = MillionTriangles(state.range(0));
  auto& files = BenchHost().files();
  std::size_t size = 0;
  const Rate rate;
  for (auto _ : state) {
    auto file = files.OpenWrite(scene.path, {});
    if (!file) state.SkipWithError("open failed");
    WriteWithSnprintf(*scene.mesh, **file);
    (void)(*file)->Close();
    size = std::filesystem::file_size(scene.path);
  }
  g_snprintfMBs[state.range(0)] = rate.MBs(static_cast<double>(size) * static_cast<double>(state.iterations()));
  g_snprintfCpuMBs[state.range(0)] = rate.CpuMBs(static_cast<double>(size) * static_cast<double>(state.iterations()));
  state.counters["MB/s"] =
      benchmark::Counter(static_cast<double>(size) * state.iterations() / 1e6, benchmark::Counter::kIsRate);
}

void BM_FormatNumber(benchmark::State& state) {
  const auto& points = MillionTriangles().mesh->points;
  char out[ap::kMaxNumberChars];
  std::size_t i = 0;
  for (auto _ : state) {
    const auto& p = points[i++ % points.size()];
    benchmark::DoNotOptimize(ap::FormatNumber(p.x + p.y, out));
    benchmark::ClobberMemory();
  }
  state.counters["ns/number"] = benchmark::Counter(static_cast<double>(state.iterations()),
                                                   benchmark::Counter::kIsRate | benchmark::Counter::kInvert) ;
}

void BM_SnprintfNumber(benchmark::State& state) {
  const auto& points = MillionTriangles().mesh->points;
  char out[400];
  std::size_t i = 0;
  for (auto _ : state) {
    const auto& p = points[i++ % points.size()];
    benchmark::DoNotOptimize(SnprintfNumber(p.x + p.y, out));
    benchmark::ClobberMemory();
  }
  state.counters["ns/number"] = benchmark::Counter(static_cast<double>(state.iterations()),
                                                   benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// The baselines first: the saver's entry reports its ratios against them.
// Argument 0: shared points (the grid); 1: three points per triangle (the soup).
BENCHMARK(BM_RawWrite)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();
BENCHMARK(BM_SnprintfDocument)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MinTime(5.0)->UseRealTime();
BENCHMARK(BM_AllplanSave)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();
BENCHMARK(BM_FormatNumber);
BENCHMARK(BM_SnprintfNumber);

/// VmRSS or VmHWM of this process in MB.
double StatusMB(const char* key) {
  std::ifstream in("/proc/self/status");
  std::string line;
  while (std::getline(in, line))
    if (line.rfind(key, 0) == 0) return std::stod(line.substr(std::strlen(key))) / 1024.0;
  return -1;
}

int PeakMemory(std::size_t triangles) {
  auto& host = BenchHost();
  auto& document = host.documents().NewDocument("memory");
  (void)document.InsertObject(host::MakePolygonObject("terrain", Grid(triangles)), nullptr);
  const std::string path =
      (std::filesystem::temp_directory_path() / ("allplan_memory_" + std::to_string(getpid()) + ".xml")).string();
  const double before = StatusMB("VmRSS:");
  std::ofstream("/proc/self/clear_refs") << "5";  // restarts the peak at the current size
  vex::ParamContainer settings;
  const auto result = interop::exchange::AllocateAllplanSaver()->Save(settings, path, document);
  const double peak = StatusMB("VmHWM:");
  const auto size = std::filesystem::file_size(path);
  std::filesystem::remove(path);
  std::printf("triangles %zu: scene resident %.1f MB, peak during save %.1f MB (+%.1f MB), file %.1f MB, result %d\n",
              triangles, before, peak, peak - before, static_cast<double>(size) / 1e6, result);
  return result == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i)
    if (std::strncmp(argv[i], "--peak-memory=", 14) == 0) return PeakMemory(std::stoul(argv[i] + 14));
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::error_code ec;
  std::filesystem::remove(MillionTriangles(0).path, ec);
  std::filesystem::remove(MillionTriangles(1).path, ec);
  return 0;
}
