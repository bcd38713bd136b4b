// `vexinterop map` end to end on a 4096 x 4096 textured Corvane material to
// glTF (read six PNGs, linearise the colour ones, pack base colour + alpha and
// metal/roughness, write four PNGs), beside `oiiotool` doing the same channel
// packing on the same files in one invocation, timed in the same iteration.
// Both run as child processes with 2 threads. Counters:
//   vexinterop_s  wall time of one `vexinterop map` run
//   oiiotool_s    wall time of one `oiiotool` run with its default settings
//   speedup       oiiotool_s / vexinterop_s (above 1: vexinterop is faster)
//   out_MB        size of the images vexinterop wrote
// The iteration time is vexinterop's.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <OpenImageIO/imageio.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

extern char** environ;

namespace fs = std::filesystem;

namespace {

constexpr int kSide = 4096;

/// Runs a program with its arguments; its output goes to /dev/null. Returns the exit status.
int Run(const std::vector<std::string>& argv) {
  std::vector<char*> args;
  for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  pid_t pid = 0;
  const int spawned = posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) return -1;
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// A texture with smooth structure and fine detail, as baked textures have: neither a flat fill
/// (which would compress to nothing) nor noise (which would not compress at all).
bool WriteTexture(const fs::path& file, int channels, int seed) {
  std::vector<unsigned char> pixels(static_cast<std::size_t>(kSide) * kSide * static_cast<std::size_t>(channels));
  for (int y = 0; y < kSide; ++y) {
    for (int x = 0; x < kSide; ++x) {
      for (int c = 0; c < channels; ++c) {
        const double wave = std::sin((x + 37 * c + seed * 101) * 0.011) * std::cos((y - 53 * c + seed * 29) * 0.007);
        const unsigned grain = (static_cast<unsigned>(x * 73856093u) ^ static_cast<unsigned>(y * 19349663u) ^
                                static_cast<unsigned>(seed * 83492791u + c)) %
                               9u;
        const double v = 128.0 + 100.0 * wave + static_cast<double>(grain) - 4.0;
        pixels[(static_cast<std::size_t>(y) * kSide + static_cast<std::size_t>(x)) * static_cast<std::size_t>(channels) +
               static_cast<std::size_t>(c)] = static_cast<unsigned char>(v < 0 ? 0 : (v > 255 ? 255 : v));
      }
    }
  }
  auto out = OIIO::ImageOutput::create(file.string());
  if (!out) return false;
  OIIO::ImageSpec header(kSide, kSide, channels, OIIO::TypeDesc::UINT8);
  return out->open(file.string(), header) && out->write_image(OIIO::TypeDesc::UINT8, pixels.data()) && out->close();
}

struct Inputs {
  fs::path dir;
  fs::path json;
  bool ok = false;
};

const Inputs& MakeInputs() {
  static const Inputs inputs = [] {
    Inputs in;
    in.dir = fs::temp_directory_path() / ("interop_map_e2e_" + std::to_string(getpid()));
    fs::create_directories(in.dir / "out_vexinterop");
    fs::create_directories(in.dir / "out_oiiotool");
    const struct {
      const char* name;
      int channels;
    } textures[] = {{"diffuse.png", 3},   {"transmission.png", 1}, {"metalness.png", 1},
                    {"roughness.png", 1}, {"normal.png", 3},       {"emission.png", 3}};
    int seed = 1;
    for (const auto& t : textures) {
      if (!WriteTexture(in.dir / t.name, t.channels, seed++)) {
        std::cerr << "cannot write " << (in.dir / t.name) << '\n';
        return in;
      }
    }
    in.json = in.dir / "textured.json";
    std::ofstream(in.json) << R"({
  "bundle": "net.kelvo.material.portbundle.corvane",
  "parameters": {
    "diffuse_color": {"type": "Color", "value": [1, 1, 1], "texture": "diffuse.png"},
    "transmission_weight": {"type": "Float", "value": 0.5, "texture": "transmission.png"},
    "fresnel_type": {"type": "String", "value": "metalness"},
    "metalness": {"type": "Float", "value": 1, "texture": "metalness.png"},
    "reflection_roughness": {"type": "Float", "value": 0.5, "texture": "roughness.png"},
    "overall_normal": {"type": "Color", "value": [0.5, 0.5, 1], "texture": "normal.png"},
    "emission_weight": {"type": "Float", "value": 1},
    "emission_color": {"type": "Color", "value": [1, 1, 1], "texture": "emission.png"}
  }
})";
    in.ok = true;
    return in;
  }();
  return inputs;
}

/// The same packing with oiiotool: base colour RGB + inverted transmission as alpha,
/// (0, roughness, metal, 1), and the emission and normal images read and written again.
std::vector<std::string> OiiotoolCommand(const fs::path& dir) {
  const std::string in = dir.string() + "/";
  const std::string out = (dir / "out_oiiotool").string() + "/";
  const std::string size = std::to_string(kSide) + "x" + std::to_string(kSide);
  return {"oiiotool", "--threads", "2",
          // baseColorTexture
          in + "diffuse.png", "--ch", "R,G,B", in + "transmission.png", "--ch", "0", "--invert", "--chappend", "-d",
          "uint8", "-o", out + "baseColorTexture.png",
          // metallicRoughnessTexture
          "--pattern", "constant:color=0", size, "1", in + "roughness.png", "--ch", "0", "--chappend",
          in + "metalness.png", "--ch", "0", "--chappend", "--pattern", "constant:color=1", size, "1", "--chappend",
          "-d", "uint8", "-o", out + "metallicRoughnessTexture.png",
          // pass-through textures, re-encoded as vexinterop re-encodes them
          in + "emission.png", "-o", out + "emissiveTexture.png", in + "normal.png", "-o", out + "normalTexture.png"};
}

double Seconds(std::chrono::steady_clock::duration d) { return std::chrono::duration<double>(d).count(); }

void BM_MapTexturedSetToGltf(benchmark::State& state) {
  const Inputs& in = MakeInputs();
  if (!in.ok) {
    state.SkipWithError("cannot make the input textures");
    return;
  }
  const std::vector<std::string> vexinterop = {INTEROP_VEXINTEROP_PATH, "map", in.json.string(), "--to",
                                               "net.kelvo.material.portbundle.gltf", "-o",
                                               (in.dir / "out_vexinterop" / "gltf.json").string()};
  const auto oiiotool = OiiotoolCommand(in.dir);
  double ours = 0.0;
  double theirs = 0.0;
  for (auto _ : state) {
    const auto t0 = std::chrono::steady_clock::now();
    const int a = Run(vexinterop);
    const auto t1 = std::chrono::steady_clock::now();
    const int b = Run(oiiotool);
    const auto t2 = std::chrono::steady_clock::now();
    if (a != 0 || b != 0) {
      state.SkipWithError(a != 0 ? "vexinterop map failed" : "oiiotool failed (is openimageio-tools installed?)");
      break;
    }
    state.SetIterationTime(Seconds(t1 - t0));
    ours += Seconds(t1 - t0);
    theirs += Seconds(t2 - t1);
  }
  const double n = static_cast<double>(state.iterations());
  if (n == 0 || ours <= 0.0) return;
  state.counters["vexinterop_s"] = ours / n;
  state.counters["oiiotool_s"] = theirs / n;
  state.counters["speedup"] = theirs / ours;
  std::uintmax_t bytes = 0;
  for (const auto& e : fs::directory_iterator(in.dir / "out_vexinterop"))
    if (e.path().extension() == ".png") bytes += e.file_size();
  state.counters["out_MB"] = static_cast<double>(bytes) / 1e6;
}

BENCHMARK(BM_MapTexturedSetToGltf)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);

struct Cleanup {
  ~Cleanup() {
    std::error_code ec;
    fs::remove_all(fs::temp_directory_path() / ("interop_map_e2e_" + std::to_string(getpid())), ec);
  }
} s_cleanup;

}  // namespace

BENCHMARK_MAIN();
