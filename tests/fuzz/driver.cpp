// The fuzzing driver every harness links: replays a corpus (regression) and then, for a bounded
// time, mutates it guided by edge coverage. Harnesses define the usual entry point
//   extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
// and are built with g++ -fsanitize=address,undefined -fsanitize-coverage=trace-pc.
//
//   harness [options] PATH...    PATH: corpus folders or single inputs, replayed in order
//     -max_total_time=S   mutate for S seconds after the replay (0: replay only)
//     -runs=N             stop mutating after N executions
//     -timeout=S          one input running longer than S seconds is a hang (default 10)
//     -max_len=N          longest mutated input (default 65536)
//     -seed=N             random seed (default: from the clock)
//     -new=DIR            save inputs that reach new edges here
//     -artifact_prefix=P  a crashing or hanging input is written to P<kind>-<hash>
//
// A failing input is written before the sanitizer's report ends the process, so the report and
// the file name tell what to keep in the corpus.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <fcntl.h>
#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/common_interface_defs.h>
#endif
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kMapSize = 1 << 16;
std::uint8_t g_edges[kMapSize];  // edges of the input being run
std::uint8_t g_seen[kMapSize];   // edges of every input so far
thread_local std::uintptr_t g_previous = 0;

// The input being run, for the death callback and the alarm.
const std::uint8_t* g_current = nullptr;
std::size_t g_currentSize = 0;
char g_artifactPrefix[1024] = "./";

std::uint64_t Hash(const std::uint8_t* data, std::size_t size) {
  std::uint64_t h = 1469598103934665603ull;
  for (std::size_t i = 0; i < size; ++i) h = (h ^ data[i]) * 1099511628211ull;
  return h;
}

// Async-signal-safe: builds the name by hand and writes with write(2).
void WriteArtifact(const char* kind) {
  if (g_current == nullptr) return;
  char name[1200];
  std::size_t n = 0;
  for (const char* p = g_artifactPrefix; *p && n < 1100; ++p) name[n++] = *p;
  for (const char* p = kind; *p && n < 1150; ++p) name[n++] = *p;
  name[n++] = '-';
  std::uint64_t h = Hash(g_current, g_currentSize);
  for (int i = 0; i < 16; ++i) {
    name[n++] = "0123456789abcdef"[(h >> 60) & 15];
    h <<= 4;
  }
  name[n] = '\0';
  const int fd = ::open(name, O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (fd < 0) return;
  std::size_t done = 0;
  while (done < g_currentSize) {
    const ssize_t w = ::write(fd, g_current + done, g_currentSize - done);
    if (w <= 0) break;
    done += static_cast<std::size_t>(w);
  }
  ::close(fd);
  static const char kSaved[] = "\nfuzz driver: failing input saved as ";
  (void)!::write(2, kSaved, sizeof kSaved - 1);
  (void)!::write(2, name, n);
  (void)!::write(2, "\n", 1);
}

void OnDeath() { WriteArtifact("crash"); }

void OnAlarm(int) {
  static const char kHang[] = "\nfuzz driver: an input ran past the timeout\n";
  (void)!::write(2, kHang, sizeof kHang - 1);
  WriteArtifact("timeout");
  ::_exit(70);
}

std::size_t CountEdges() {
  std::size_t n = 0;
  for (std::uint8_t e : g_seen) n += e != 0;
  return n;
}

struct Options {
  double maxTotalTime = 0;
  std::uint64_t runs = ~0ull;
  unsigned timeout = 10;
  std::size_t maxLen = 65536;
  std::uint64_t seed = 0;
  std::string newDir;
  std::vector<std::string> paths;
};

std::vector<std::uint8_t> ReadFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

/// Runs one input; true when it reached an edge never seen before.
bool Run(const std::vector<std::uint8_t>& input, unsigned timeout) {
  std::memset(g_edges, 0, sizeof g_edges);
  g_current = input.data();
  g_currentSize = input.size();
  ::alarm(timeout);
  // A copy of exactly the input's size, so that reading one byte past it is caught.
  std::unique_ptr<std::uint8_t[]> copy(new std::uint8_t[input.size() + (input.empty() ? 1 : 0)]);
  if (!input.empty()) std::memcpy(copy.get(), input.data(), input.size());
  LLVMFuzzerTestOneInput(copy.get(), input.size());
  ::alarm(0);
  g_current = nullptr;  // a report after this run (a leak at exit) names no input
  bool fresh = false;
  for (std::size_t i = 0; i < kMapSize; ++i)
    if (g_edges[i] && !g_seen[i]) {
      g_seen[i] = 1;
      fresh = true;
    }
  return fresh;
}

// Tokens that open new paths in the formats the harnesses read.
const char* const kTokens[] = {
    "{", "}", "[", "]", "\"", ":", ",", "null", "true", "false", "-1", "1e309", "0x", "\\u0000", "\\ud800",
    "\n", "\r\n", "\\", "=", "@", "hex:", "hex(7):", "dword:", "[-", "REGEDIT4\n",
    "Windows Registry Editor Version 5.00\n", "ply\n", "format ascii 1.0\n", "format binary_little_endian 1.0\n",
    "element vertex ", "property float x\n", "property list uchar int vertex_indices\n", "end_header\n",
    "newmtl ", "map_Kd ", "mtllib ", "v 0 0 0\n", "f 1 2 3\n", "Kd 1 0 0\n", "\x89PNG\r\n\x1a\n", "IHDR", "IDAT",
    "IEND", "glTF", "JSON", "BIN", "uri", "images", "buffers", "materials", "children", "parameters", "array",
    "type", "value", "url", "bundle", "Kaydara FBX Binary  \x00", "\xff\xfe", "\xef\xbb\xbf", "\xe9", "\xc3\xa9",
    "weld=", "prepare", "=true", "/dev/zero", "..", "/"};

class Mutator {
 public:
  explicit Mutator(std::uint64_t seed) : random_(seed) {}
  std::size_t Below(std::size_t n) { return n == 0 ? 0 : std::uniform_int_distribution<std::size_t>(0, n - 1)(random_); }

  void Mutate(std::vector<std::uint8_t>& data, const std::vector<std::vector<std::uint8_t>>& pool, std::size_t maxLen) {
    const std::size_t rounds = 1 + Below(4);
    for (std::size_t r = 0; r < rounds; ++r) {
      switch (Below(9)) {
        case 0:  // flip a bit
          if (!data.empty()) data[Below(data.size())] ^= static_cast<std::uint8_t>(1u << Below(8));
          break;
        case 1: {  // an interesting byte
          static const std::uint8_t kBytes[] = {0, 1, 0x7F, 0x80, 0xFF, '0', '9', '"', '\\', '{', '[', '\n', ' '};
          if (!data.empty()) data[Below(data.size())] = kBytes[Below(sizeof kBytes)];
          break;
        }
        case 2:  // erase a run
          if (!data.empty()) {
            const std::size_t at = Below(data.size());
            data.erase(data.begin() + static_cast<std::ptrdiff_t>(at),
                       data.begin() + static_cast<std::ptrdiff_t>(std::min(data.size(), at + 1 + Below(16))));
          }
          break;
        case 3: {  // insert a token
          const char* t = kTokens[Below(std::size(kTokens))];
          const std::size_t len = std::strlen(t) + (t[0] == 'K' ? 1 : 0);
          data.insert(data.begin() + static_cast<std::ptrdiff_t>(Below(data.size() + 1)), t, t + len);
          break;
        }
        case 4:  // duplicate a run (nesting, repetition)
          if (!data.empty()) {
            const std::size_t at = Below(data.size());
            const std::size_t len = std::min(data.size() - at, 1 + Below(64));
            const std::vector<std::uint8_t> run(data.begin() + static_cast<std::ptrdiff_t>(at),
                                                data.begin() + static_cast<std::ptrdiff_t>(at + len));
            const std::size_t times = 1 + Below(Below(2) ? 4 : 400);
            for (std::size_t k = 0; k < times && data.size() + len <= maxLen; ++k)
              data.insert(data.begin() + static_cast<std::ptrdiff_t>(at), run.begin(), run.end());
          }
          break;
        case 5: {  // splice with another input
          const auto& other = pool[Below(pool.size())];
          if (!other.empty()) {
            const std::size_t from = Below(other.size());
            const std::size_t len = std::min(other.size() - from, 1 + Below(256));
            data.insert(data.begin() + static_cast<std::ptrdiff_t>(Below(data.size() + 1)),
                        other.begin() + static_cast<std::ptrdiff_t>(from),
                        other.begin() + static_cast<std::ptrdiff_t>(from + len));
          }
          break;
        }
        case 6:  // a number in text made extreme
          if (!data.empty()) {
            const std::size_t at = Below(data.size());
            for (std::size_t i = at; i < data.size(); ++i)
              if (data[i] >= '0' && data[i] <= '9') {
                static const char* const kNumbers[] = {"99999999999", "-1", "0", "4294967296", "65535", "1e400", "nan"};
                const char* n = kNumbers[Below(std::size(kNumbers))];
                data.insert(data.begin() + static_cast<std::ptrdiff_t>(i), n, n + std::strlen(n));
                break;
              }
          }
          break;
        case 7:  // a binary field made extreme
          if (data.size() >= 4) {
            const std::size_t at = Below(data.size() - 3);
            const std::uint32_t values[] = {0, 1, 0x7FFFFFFF, 0xFFFFFFFF, 0x10000, 100000};
            const std::uint32_t v = values[Below(std::size(values))];
            const bool big = Below(2);
            for (int i = 0; i < 4; ++i)
              data[at + static_cast<std::size_t>(i)] =
                  static_cast<std::uint8_t>(v >> (8 * (big ? 3 - i : i)));
          }
          break;
        default:  // cut the tail
          if (!data.empty()) data.resize(Below(data.size()));
          break;
      }
    }
    if (data.size() > maxLen) data.resize(maxLen);
  }

 private:
  std::mt19937_64 random_;
};

Options Parse(int argc, char** argv) {
  Options o;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    const auto value = [&](const char* flag) { return a.substr(std::strlen(flag)); };
    if (a.rfind("-max_total_time=", 0) == 0) o.maxTotalTime = std::stod(value("-max_total_time="));
    else if (a.rfind("-runs=", 0) == 0) o.runs = std::stoull(value("-runs="));
    else if (a.rfind("-timeout=", 0) == 0) o.timeout = static_cast<unsigned>(std::stoul(value("-timeout=")));
    else if (a.rfind("-max_len=", 0) == 0) o.maxLen = std::stoull(value("-max_len="));
    else if (a.rfind("-seed=", 0) == 0) o.seed = std::stoull(value("-seed="));
    else if (a.rfind("-new=", 0) == 0) o.newDir = value("-new=");
    else if (a.rfind("-artifact_prefix=", 0) == 0)
      std::snprintf(g_artifactPrefix, sizeof g_artifactPrefix, "%s", value("-artifact_prefix=").c_str());
    else if (a.rfind("-", 0) == 0) std::fprintf(stderr, "fuzz driver: ignoring %s\n", a.c_str());
    else o.paths.push_back(a);
  }
  return o;
}

}  // namespace

// Called by every instrumented basic block: counts the edge (previous block, this block).
extern "C" __attribute__((no_sanitize_coverage, no_sanitize("address", "undefined"))) void __sanitizer_cov_trace_pc() {
  const auto pc = reinterpret_cast<std::uintptr_t>(__builtin_return_address(0));
  const std::uintptr_t edge = (pc ^ g_previous) & (kMapSize - 1);
  g_previous = pc >> 1;
  g_edges[edge] = 1;
}

int main(int argc, char** argv) {
  if (LLVMFuzzerInitialize) LLVMFuzzerInitialize(&argc, &argv);
  const Options options = Parse(argc, argv);
#if defined(__SANITIZE_ADDRESS__)
  __sanitizer_set_death_callback(&OnDeath);
#else
  (void)&OnDeath;
#endif
  std::signal(SIGALRM, &OnAlarm);

  std::vector<std::vector<std::uint8_t>> pool;
  std::vector<fs::path> files;
  for (const auto& p : options.paths) {
    std::error_code ec;
    if (fs::is_directory(p, ec)) {
      for (const auto& e : fs::recursive_directory_iterator(p, ec))
        if (e.is_regular_file()) files.push_back(e.path());
    } else {
      files.emplace_back(p);
    }
  }
  std::sort(files.begin(), files.end());
  const auto start = std::chrono::steady_clock::now();
  for (const auto& f : files) {
    pool.push_back(ReadFile(f));
    Run(pool.back(), options.timeout);
  }
  std::fprintf(stderr, "fuzz driver: replayed %zu inputs, %zu edges\n", files.size(), CountEdges());
  if (pool.empty()) pool.emplace_back();
  if (options.maxTotalTime <= 0) return 0;

  const std::uint64_t seed =
      options.seed ? options.seed : static_cast<std::uint64_t>(start.time_since_epoch().count());
  std::fprintf(stderr, "fuzz driver: mutating with seed %llu\n", static_cast<unsigned long long>(seed));
  Mutator mutator(seed);
  std::uint64_t executions = 0;
  std::size_t added = 0;
  const auto deadline = start + std::chrono::duration<double>(options.maxTotalTime);
  while (executions < options.runs && std::chrono::steady_clock::now() < deadline) {
    std::vector<std::uint8_t> input = pool[mutator.Below(pool.size())];
    mutator.Mutate(input, pool, options.maxLen);
    ++executions;
    if (Run(input, options.timeout)) {
      ++added;
      if (!options.newDir.empty()) {
        std::error_code ec;
        fs::create_directories(options.newDir, ec);
        char name[32];
        std::snprintf(name, sizeof name, "%016llx", static_cast<unsigned long long>(Hash(input.data(), input.size())));
        std::ofstream(fs::path(options.newDir) / name, std::ios::binary)
            .write(reinterpret_cast<const char*>(input.data()), static_cast<std::streamsize>(input.size()));
      }
      pool.push_back(std::move(input));
    }
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::fprintf(stderr, "fuzz driver: seed %llu, %llu executions in %.0f s, %zu new inputs, %zu edges, pool %zu\n",
               static_cast<unsigned long long>(seed), static_cast<unsigned long long>(executions), seconds, added,
               CountEdges(), pool.size());
  return 0;
}
