// The command line against hostile input: every failure is one line on stderr, the exit code is
// one of 0, 1, 2 and 64, and no input makes it hang or take unbounded memory. Each run is capped
// (virtual memory, and a kill after a generous minute so that a hang fails instead of blocking).
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "run_tool.h"

namespace fs = std::filesystem;

namespace {

using cli_test::Outcome;

const fs::path kCorpus = fs::path(INTEROP_SOURCE_DIR) / "tests/fuzz/corpus";

/// vexinterop in a child limited to 3 GiB of address space, killed if it ever hangs.
Outcome Capped(const std::string& arguments) {
  return cli_test::Shell("ulimit -v 3145728; timeout -s KILL 60 " + std::string(INTEROP_VEXINTEROP_PATH) + " " +
                         arguments);
}

/// Lines of output, leaving out the PNG codec's own "libpng error:" lines (printed by the image
/// library itself, beside our one-line message).
std::size_t Lines(const std::string& text) {
  std::size_t n = 0;
  for (std::size_t at = 0; at < text.size();) {
    const auto end = text.find('\n', at);
    if (text.compare(at, 13, "libpng error:") != 0) ++n;
    if (end == std::string::npos) break;
    at = end + 1;
  }
  return n;
}

struct Scratch {
  fs::path path = fs::temp_directory_path() / ("hostile_cli_" + std::to_string(::getpid()));
  Scratch() { fs::create_directories(path); }
  ~Scratch() {
    std::error_code ec;
    fs::remove_all(path, ec);
  }
  std::string Write(const std::string& name, std::string_view bytes) const {
    std::ofstream(path / name, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return (path / name).string();
  }
  std::string Corpus(const std::string& harness, const std::string& name, const std::string& as, bool selector) const {
    std::ifstream in(kCorpus / harness / name, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    return Write(as, selector ? bytes.substr(1) : bytes);
  }
};

constexpr const char* kGltf = " --to net.kelvo.material.portbundle.gltf -o ";
const std::string kScene = (fs::path(INTEROP_SOURCE_DIR) / "examples/materials_scene.vex").string();
const std::string kSet = (fs::path(INTEROP_SOURCE_DIR) / "examples/corvane_plain.json").string();

TEST(HostileCli, ExitCodesAreZeroOneTwoAndSixtyFour) {
  Scratch s;
  const std::string out = (s.path / "out.json").string();
  EXPECT_EQ(Capped("info").exit, 0);
  const auto help = Capped("--help");
  EXPECT_EQ(help.exit, 0);
  EXPECT_NE(help.output.find("Exit codes: 0 success, 1 the work failed"), std::string::npos) << help.output;
  EXPECT_NE(help.output.find("64 wrong usage"), std::string::npos);

  // 1: the work failed.
  const auto bad = Capped("map " + s.Write("bad.json", "{\"bundle\": 3}") + kGltf + out);
  EXPECT_EQ(bad.exit, 1) << bad.output;
  // 2: no mapping between the two bundles.
  const std::string obj = s.Write("obj.json", R"({"bundle": "net.kelvo.material.portbundle.obj", "parameters": {}})");
  EXPECT_EQ(Capped("map " + obj + " --to net.kelvo.material.portbundle.fbxsurfacephong -o " + out).exit, 2);

  // 64: every kind of usage error the argument parser knows, one line each.
  struct Usage {
    std::string arguments;
    std::string message;
  };
  const Usage usages[] = {
      {"frobnicate", "vexinterop: unknown command 'frobnicate' (see vexinterop --help)"},
      {"light frobnicate", "vexinterop: unknown command 'light frobnicate' (see vexinterop --help)"},
      {"", "A subcommand is required"},
      {"map", "input is required"},
      {"map " + obj, "--to is required"},
      {"info --no-such-option", "--no-such-option"},
      {"map " + obj + kGltf + out + " extra", "extra"},
      {"map " + (s.path / "missing.json").string() + kGltf + out, "missing.json"},
      {"material export x.vex --material M -o o.json --texture-size -1",
       "--texture-size: expected a whole number from 1 to 16384, got '-1'"},
      {"export x.vex --to gltf -o o --texture-size -1", "expected a whole number from 1 to 16384, got '-1'"},
      {"convert x.json --to gltf -o o --max-texture-size 0", "expected a whole number from 1 to 1048576, got '0'"},
      {"--max-pixels -5 info", "--max-pixels: expected a whole number of at least 1, got '-5'"},
      {"--max-json-depth x info", "expected a whole number from 1 to 100000, got 'x'"},
  };
  for (auto u : usages) {
    for (const auto& [from, to] : {std::pair<std::string, std::string>{"x.vex", kScene}, {"x.json", kSet}}) {
      if (const auto at = u.arguments.find(" " + from + " "); at != std::string::npos)
        u.arguments.replace(at + 1, from.size(), to);
    }
    const auto o = Capped(u.arguments);
    EXPECT_EQ(o.exit, 64) << u.arguments << "\n" << o.output;
    EXPECT_NE(o.output.find(u.message), std::string::npos) << u.arguments << "\n" << o.output;
    EXPECT_EQ(Lines(o.output), 1u) << o.output;
    EXPECT_EQ(o.output.find("179769313486231570"), std::string::npos) << o.output;
  }
}

TEST(HostileCli, TexturesThatAreNotImagesEndCleanly) {
  Scratch s;
  s.Corpus("image", "png-claims-100000x100000", "claim.png", true);
  s.Corpus("image", "png-bomb-16384x16384", "bomb.png", true);
  s.Corpus("image", "png-header-40000x40000-no-data", "empty.png", true);
  ASSERT_EQ(::mkfifo((s.path / "fifo.png").c_str(), 0600), 0);
  fs::create_directories(s.path / "folder.png");
  struct Case {
    std::string texture;
    std::string reason;
  };
  const Case cases[] = {
      {"claim.png", "claim.png: cannot read image: 100000 x 100000 pixels is more than the limit of 67108864"},
      {"bomb.png", "bomb.png: cannot read image: 16384 x 16384 pixels is more than the limit"},
      {"empty.png", "empty.png: cannot read image: "},
      {"fifo.png", "fifo.png: cannot read: is a FIFO (named pipe), not a file"},
      {"folder.png", "folder.png: cannot read: is a directory, not a file"},
      {"/dev/zero", "/dev/zero: cannot read: is a device, not a file"},
  };
  for (const auto& c : cases) {
    const std::string set = s.Write(
        "set.json", R"({"bundle": "net.kelvo.material.portbundle.corvane", "parameters": {"diffuse_color": )"
                    R"({"type": "Color", "value": [1, 1, 1], "texture": ")" + c.texture + "\"}}}");
    const auto o = Capped("map " + set + kGltf + (s.path / "out" / "o.json").string());
    EXPECT_EQ(o.exit, 1) << c.texture << "\n" << o.output;
    EXPECT_NE(o.output.find(c.reason), std::string::npos) << o.output;
    EXPECT_EQ(Lines(o.output), 1u) << o.output;
    EXPECT_FALSE(fs::exists(s.path / "out" / "o.json"));
  }
  // Raising the limit lets the header's claim meet the file's size instead.
  const std::string set = s.Write(
      "set.json", R"({"bundle": "net.kelvo.material.portbundle.corvane", "parameters": {"diffuse_color": )"
                  R"({"type": "Color", "value": [1, 1, 1], "texture": "claim.png"}}})");
  const auto raised = Capped("--max-pixels 100000000000 map " + set + kGltf + (s.path / "o.json").string());
  EXPECT_EQ(raised.exit, 1);
  EXPECT_NE(raised.output.find("but the file holds only 68 bytes"), std::string::npos) << raised.output;
}

TEST(HostileCli, BrokenFilesGiveThePlaceAndTheReason) {
  Scratch s;
  const std::string out = (s.path / "o.json").string();
  // JSON: line and column, no library text.
  const auto syntax = Capped("map " + s.Corpus("paramset", "syntax-error", "syntax.json", false) + kGltf + out);
  EXPECT_EQ(syntax.exit, 1);
  EXPECT_NE(syntax.output.find("syntax.json:2:65: not valid JSON: unexpected character \"}\""), std::string::npos)
      << syntax.output;
  // Nested thousands deep: a light description, a scene's children and typed arrays, a set.
  const auto light = Capped("light build " + s.Corpus("light", "nested-3000-deep", "light.json", false) + " -o " +
                         (s.path / "l.vex").string());
  EXPECT_EQ(light.exit, 1) << light.output;
  EXPECT_NE(light.output.find("light.json:1:262: arrays and objects nested deeper than 256 levels"), std::string::npos);
  for (const char* scene : {"children-3000-deep", "typed-array-3000-deep"}) {
    const auto o = Capped("allplan " + s.Corpus("scene", scene, "deep.vex", false) + " -o " + (s.path / "a.xml").string());
    EXPECT_EQ(o.exit, 1) << o.output;
    // Two levels more for each of the thousand levels a scene's hierarchy may have.
    EXPECT_NE(o.output.find("nested deeper than 2256 levels"), std::string::npos) << o.output;
  }
  const auto deepSet = Capped("map " + s.Corpus("paramset", "nested-3000-deep", "deep.json", false) + kGltf + out);
  EXPECT_EQ(deepSet.exit, 1);
  // --max-json-depth raises the limit (the set is then refused for its value, not its depth).
  const auto raised = Capped("--max-json-depth 5000 map " + (s.path / "deep.json").string() + kGltf + out);
  EXPECT_EQ(raised.exit, 1);
  EXPECT_EQ(raised.output.find("nested deeper"), std::string::npos) << raised.output;

  // A megabyte-long key is quoted, not echoed.
  const std::string key(1 << 20, 'k');
  const auto big = Capped("map " +
                       s.Write("big.json", R"({"bundle": "net.kelvo.material.portbundle.corvane", "parameters": {")" +
                                               key + R"(": {"type": "Float", "value": 1}}})") +
                       kGltf + out);
  EXPECT_EQ(big.exit, 1);
  EXPECT_LT(big.output.size(), 1000u) << big.output.substr(0, 300);

  // A PLY header that ends early, through the mesh import.
  const auto ply = Capped("allplan " + s.Corpus("ply", "header-ends-early", "m.ply", false) + " -o " +
                       (s.path / "m.xml").string());
  EXPECT_EQ(ply.exit, 1);
  EXPECT_NE(ply.output.find("m.ply:4: the PLY header ends before \"end_header\""), std::string::npos) << ply.output;

  // A registry value type wider than 32 bits.
  const auto reg = Capped("archicad locate --registry " + s.Corpus("registry", "hex-type-too-wide", "w.reg", true));
  EXPECT_EQ(reg.exit, 1);
  EXPECT_NE(reg.output.find("w.reg:4: value type hex(ffffffffffffffff...) is larger than 32 bits"), std::string::npos)
      << reg.output;

  // glTF whose image or buffer names a directory.
  fs::create_directories(s.path / "folder");
  // A buffer is an error; an image is a texture that could not be read: a warning naming it.
  for (const char* name : {"image-uri-directory", "buffer-uri-directory"}) {
    const auto o = Capped("import " + s.Corpus("gltf", name, "m.gltf", true) + " --json -o " + (s.path / "imp").string());
    EXPECT_EQ(o.exit, std::string(name) == "buffer-uri-directory" ? 1 : 0) << o.output;
    EXPECT_NE(o.output.find("is a directory, not a file"), std::string::npos) << o.output;
    EXPECT_EQ(o.output.find("json.exception"), std::string::npos);
  }
}

TEST(HostileCli, TheOsSaysWhyAWriteFailed) {
  Scratch s;
  const std::string set = (fs::path(INTEROP_SOURCE_DIR) / "examples/corvane_plain.json").string();
  fs::create_directories(s.path / "taken.json");
  const auto o = Capped("map " + set + kGltf + (s.path / "taken.json").string());
  EXPECT_EQ(o.exit, 1);
  EXPECT_EQ(o.output.find("Success"), std::string::npos) << o.output;
  EXPECT_NE(o.output.find("taken.json: cannot write: "), std::string::npos) << o.output;
}

TEST(HostileCli, ArchicadCloseSaysWhyTheSceneDidNotOpen) {
  Scratch s;
  const std::string broken = s.Write("broken.vex", "{\"format\": \"vexon-scene\", \"version\": 1,\n \"objects\": [}");
  const auto o = Capped("archicad close " + broken + " --answer no --user-dir " + (s.path / "user").string() +
                     " --registry " + (fs::path(INTEROP_SOURCE_DIR) / "examples/archicad/installed.reg").string());
  EXPECT_EQ(o.exit, 1);
  EXPECT_NE(o.output.find("vexinterop: " + broken + ":2:14: not valid JSON"), std::string::npos) << o.output;
}

}  // namespace
