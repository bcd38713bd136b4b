// Hostile input to the host's readers: each case ends in a one-line error naming the file, the
// place and the reason, without a crash, a hang or a large allocation.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include "host/formats/catalogue.h"
#include "host/images.h"
#include "host/input_checks.h"
#include "host/input_files.h"
#include "host/json_text.h"
#include "host/mesh_import.h"
#include "host/paramset_json.h"
#include "host/port_bundles.h"
#include "host/registry_file.h"
#include "host/scene.h"
#include "host/scene_file.h"
#include "host/units.h"

namespace fs = std::filesystem;

namespace {

const fs::path kCorpus = fs::path(INTEROP_SOURCE_DIR) / "tests/fuzz/corpus";

class HostileInput : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() / ("hostile-" + std::to_string(::getpid()) + "-" +
                                        ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(dir_);
  }
  void TearDown() override {
    std::error_code ec;
    fs::remove_all(dir_, ec);
  }
  std::string Write(const std::string& name, std::string_view bytes) {
    const fs::path path = dir_ / name;
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return path.string();
  }
  /// A corpus input without the harness's leading selector byte.
  static std::string CorpusBytes(const std::string& harness, const std::string& name, bool selector) {
    std::ifstream in(kCorpus / harness / name, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    EXPECT_FALSE(bytes.empty()) << harness << "/" << name;
    return selector && !bytes.empty() ? bytes.substr(1) : bytes;
  }
  fs::path dir_;
};

/// Runs `body` in a child whose address space is capped at `bytes` (not under AddressSanitizer,
/// which reserves far more); true when the child returned true.
bool WithinMemory(std::size_t bytes, const std::function<bool()>& body) {
#if defined(__SANITIZE_ADDRESS__)
  (void)bytes;
  return body();
#else
  const pid_t child = ::fork();
  if (child == 0) {
    // On top of what the test process has mapped already (libraries, thread stacks).
    std::size_t pages = 0;
    if (std::FILE* statm = std::fopen("/proc/self/statm", "r")) {
      if (std::fscanf(statm, "%zu", &pages) != 1) pages = 0;
      std::fclose(statm);
    }
    const std::size_t cap = pages * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)) + bytes;
    rlimit limit{cap, cap};
    ::setrlimit(RLIMIT_AS, &limit);
    ::_exit(body() ? 0 : 3);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
#endif
}

bool OneLine(const std::string& message) { return message.find('\n') == std::string::npos; }

TEST_F(HostileInput, JsonTextNamesLineColumnAndReason) {
  // Nesting: 256 levels read, 257 do not; brackets inside strings do not count.
  const std::string ok = std::string(256, '[') + "\"[[[{{{\"" + std::string(256, ']');
  EXPECT_TRUE(host::ParseJsonText(ok, "a.json"));
  const std::string deep = "{\"a\":\n  " + std::string(257, '[') + std::string(257, ']') + "}";
  auto tooDeep = host::ParseJsonText(deep, "a.json");
  ASSERT_FALSE(tooDeep);
  EXPECT_EQ(tooDeep.error().message, "a.json:2:258: arrays and objects nested deeper than 256 levels");
  EXPECT_TRUE(host::ParseJsonText(deep, "a.json", 300));
  EXPECT_FALSE(host::ParseJsonText(std::string(3, '[') + std::string(3, ']'), "a.json", 2));

  auto syntax = host::ParseJsonText("{\"a\": 1,\n \"b\": tru}", "b.json");
  ASSERT_FALSE(syntax);
  EXPECT_EQ(syntax.error().message, "b.json:2:10: not valid JSON: unexpected character \"}\"");
  auto truncated = host::ParseJsonText("{\"a\": [1, 2", "c.json");
  ASSERT_FALSE(truncated);
  EXPECT_EQ(truncated.error().message, "c.json:1:12: not valid JSON: unexpected end of text");

  // Latin-1 text is refused at the byte, and no text of the library's exceptions shows.
  auto latin1 = host::ParseJsonText("{\"name\": \"Bois\xE9\"}", "d.json");
  ASSERT_FALSE(latin1);
  EXPECT_EQ(latin1.error().message, "d.json:1:15: invalid UTF-8 byte 0xE9 (the file must be UTF-8 text)");
  for (const auto* message : {&tooDeep.error().message, &syntax.error().message, &latin1.error().message}) {
    EXPECT_EQ(message->find("json.exception"), std::string::npos);
    EXPECT_TRUE(OneLine(*message));
  }
  // Overlong forms and surrogates are not UTF-8 either.
  EXPECT_FALSE(host::ParseJsonText("\"\xC0\xAF\"", "e.json"));
  EXPECT_FALSE(host::ParseJsonText("\"\xED\xA0\x80\"", "e.json"));
  EXPECT_TRUE(host::ParseJsonText("\"\xE2\x82\xAC \xF0\x9F\x98\x80\"", "e.json"));
}

TEST_F(HostileInput, JsonWritingReplacesBytesThatAreNotUtf8) {
  nlohmann::json value = {{"name", std::string("Bois\xE9")}, {"ok", "caf\xC3\xA9"}};
  std::string text;
  ASSERT_NO_THROW(text = host::DumpJsonText(value, 2));
  auto back = host::ParseJsonText(text, "written.json");
  ASSERT_TRUE(back) << back.error().message;
  EXPECT_EQ((*back)["name"], "Bois\xEF\xBF\xBD");  // U+FFFD
  EXPECT_EQ((*back)["ok"], "caf\xC3\xA9");
}

TEST_F(HostileInput, OnlyRegularFilesAreRead) {
  const std::string fifo = (dir_ / "pipe.png").string();
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  auto fromFifo = host::ReadInputFile(fifo);  // must not wait for a writer
  ASSERT_FALSE(fromFifo);
  EXPECT_EQ(fromFifo.error().message, fifo + ": cannot read: is a FIFO (named pipe), not a file");
  auto device = host::ReadInputFile("/dev/zero");
  ASSERT_FALSE(device);
  EXPECT_EQ(device.error().message, "/dev/zero: cannot read: is a device, not a file");
  auto folder = host::CheckInputFile(dir_.string());
  ASSERT_FALSE(folder);
  EXPECT_EQ(folder.error().message, dir_.string() + ": cannot read: is a directory, not a file");
  auto missing = host::ReadInputFile((dir_ / "none.json").string());
  ASSERT_FALSE(missing);
  EXPECT_NE(missing.error().message.find("No such file or directory"), std::string::npos);
  EXPECT_EQ(*host::ReadInputFile(Write("a.txt", std::string("x\0y", 3))), std::string("x\0y", 3));

  // The image reader, with a texture path naming each of them.
  for (const std::string& path : {fifo, std::string("/dev/zero"), dir_.string()}) {
    auto image = host::ReadImage(path, true);
    ASSERT_FALSE(image) << path;
    EXPECT_TRUE(image.error().message.starts_with(path + ": cannot read: is a")) << image.error().message;
  }
}

TEST_F(HostileInput, QuotedValuesAreCutAt200Characters) {
  EXPECT_EQ(host::Quoted("a\nb"), "\"a\\nb\"");
  const std::string big(1 << 20, 'k');
  const std::string quoted = host::Quoted(big);
  EXPECT_EQ(quoted, "\"" + std::string(200, 'k') + "\"... (1048576 bytes)");
  // Never half a UTF-8 sequence at the cut.
  std::string accents;
  for (int i = 0; i < 150; ++i) accents += "\xC3\xA9";
  const std::string cut = host::Quoted(accents);
  EXPECT_TRUE(host::ParseJsonText(cut.substr(0, cut.find("...")), "q"));
}

TEST_F(HostileInput, ImageHeadersAreCheckedBeforeAnyAllocation) {
  const std::string claim = Write("claim.png", CorpusBytes("image", "png-claims-100000x100000", true));
  const std::string bomb = Write("bomb.png", CorpusBytes("image", "png-bomb-16384x16384", true));
  const std::string empty = Write("empty.png", CorpusBytes("image", "png-header-40000x40000-no-data", true));
  const std::string ppm = Write("claim.ppm", CorpusBytes("image", "ppm-claims-more", true));
  // Each ends with a clean error within 1 GiB more address space (the bomb would take 4 GiB).
  EXPECT_TRUE(WithinMemory(std::size_t(1) << 30, [&] {
    return !host::ReadImage(claim, true) && !host::ReadImage(bomb, true) && !host::ReadImage(empty, false);
  }));
  auto a = host::ReadImage(claim, true);
  auto b = host::ReadImage(bomb, true);
  auto c = host::ReadImage(empty, false);
  ASSERT_FALSE(a);
  ASSERT_FALSE(b);
  ASSERT_FALSE(c);
  EXPECT_EQ(a.error().message,
            claim + ": cannot read image: 100000 x 100000 pixels is more than the limit of 67108864 (raise it with --max-pixels)");
  EXPECT_NE(b.error().message.find("16384 x 16384 pixels is more than the limit"), std::string::npos) << b.error().message;
  // No pixel data at all: the codec already refuses it when the header is opened.
  EXPECT_TRUE(c.error().message.starts_with(empty + ": cannot read image: ")) << c.error().message;
  // With the limit raised, a header that claims more than its file can hold is still refused.
  const std::uint64_t before = host::MaxImagePixels();
  host::SetMaxImagePixels(std::uint64_t(1) << 40);
  auto raised = host::ReadImage(claim, true);
  auto raisedPpm = host::ReadImage(ppm, true);
  host::SetMaxImagePixels(before);
  ASSERT_FALSE(raised);
  EXPECT_NE(raised.error().message.find("but the file holds only 68 bytes"), std::string::npos) << raised.error().message;
  ASSERT_FALSE(raisedPpm);
  // A small real image still reads.
  auto real = host::ReadImage((fs::path(INTEROP_SOURCE_DIR) / "examples/textures/diffuse.png").string(), true);
  ASSERT_TRUE(real) << real.error().message;
  EXPECT_GT(real->GetCount(), 0u);
}

TEST_F(HostileInput, RegistryHiveEdgeCases) {
  host::RegistryFile wide;
  auto refused = wide.LoadFile(Write("wide.reg", CorpusBytes("registry", "hex-type-too-wide", true)));
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().message, (dir_ / "wide.reg").string() + ":4: value type hex(ffffffffffffffff...) is larger than 32 bits");

  // 20,000 values under one key: all there, in order, each found by name (any case).
  std::string text = "Windows Registry Editor Version 5.00\r\n\r\n[HKEY_CURRENT_USER\\Software\\Many]\r\n";
  for (int i = 0; i < 20000; ++i) text += "\"v" + std::to_string(i) + "\"=\"" + std::to_string(i * 7) + "\"\r\n";
  text += "\"v5\"=-\r\n\"V7\"=\"again\"\r\n";
  host::RegistryFile many;
  ASSERT_TRUE(many.LoadFile(Write("many.reg", text)));
  auto key = many.OpenCurrentUserKey("Software\\Many");
  ASSERT_TRUE(key);
  std::uint32_t count = 0;
  while (many.EnumValue(*key, count)) ++count;
  EXPECT_EQ(count, 19999u);
  EXPECT_EQ(many.EnumValue(*key, 5)->name, "v6");  // v5 deleted, the rest moved up
  char buffer[64];
  auto size = many.QueryValue(*key, "v19999", buffer);
  ASSERT_TRUE(size);
  EXPECT_EQ(std::string(buffer, *size), std::string("139993\0", 7));
  size = many.QueryValue(*key, "v7", buffer);
  ASSERT_TRUE(size);
  EXPECT_EQ(std::string(buffer, *size), std::string("again\0", 6));
  EXPECT_FALSE(many.QueryValue(*key, "v5", buffer));

  // Deleting a key takes its sub-keys, not a sibling whose name starts the same.
  host::RegistryFile tree;
  ASSERT_TRUE(tree.Parse("REGEDIT4\n[HKEY_CURRENT_USER\\A\\B\\C]\n[HKEY_CURRENT_USER\\A\\B2]\n[HKEY_CURRENT_USER\\A\\B.x]\n"
                         "[-HKEY_CURRENT_USER\\A\\B]\n",
                         "tree.reg"));
  EXPECT_FALSE(tree.OpenCurrentUserKey("A\\B"));
  EXPECT_FALSE(tree.OpenCurrentUserKey("A\\B\\C"));
  EXPECT_TRUE(tree.OpenCurrentUserKey("A\\B2"));
  EXPECT_TRUE(tree.OpenCurrentUserKey("A\\B.x"));
}

TEST_F(HostileInput, PlyHeadersAreCheckedBeforeTheMeshReader) {
  auto early = host::CheckPlyFile(CorpusBytes("ply", "header-ends-early", false), "m.ply");
  ASSERT_FALSE(early);
  EXPECT_EQ(early.error().message, "m.ply:4: the PLY header ends before \"end_header\"");
  auto short_ = host::CheckPlyFile(CorpusBytes("ply", "header-no-newline-after-end", false), "m.ply");
  ASSERT_FALSE(short_);
  EXPECT_TRUE(host::CheckPlyFile(CorpusBytes("ply", "seed-ascii", false), "m.ply"));
  EXPECT_TRUE(host::CheckPlyFile(CorpusBytes("ply", "seed-binary", false), "m.ply"));
  auto counts = host::CheckPlyFile("ply\nformat ascii 1.0\nelement vertex 99999999999\nproperty float x\nend_header\n1\n", "m.ply");
  ASSERT_FALSE(counts);
  EXPECT_NE(counts.error().message.find("needing at least"), std::string::npos);
  // Found by the fuzzer: a property type the mesh library does not know made it allocate 14 GB
  // for a body of 300 bytes. Only the format's own types pass, and a list counts in integers.
  auto unknown = host::CheckPlyFile(CorpusBytes("ply", "unknown-property-type", false), "m.ply");
  ASSERT_FALSE(unknown);
  EXPECT_EQ(unknown.error().message, "m.ply:5: unknown PLY property type \"\"uchar\"");
  const std::string header = "ply\nformat ascii 1.0\nelement face 1\n";
  EXPECT_EQ(host::CheckPlyFile(header + "property list float int v\nend_header\n3 0 1 2\n", "m.ply").error().message,
            "m.ply:4: the list's count type \"float\" is not an integer type");
  EXPECT_EQ(host::CheckPlyFile(header + "property ly lisfloat y\nend_header\n3 0 1 2\n", "m.ply").error().message,
            "m.ply:4: malformed property line \"property ly lisfloat y\"");
  EXPECT_TRUE(host::CheckPlyFile(header + "property list uint8 int32 v\nproperty float64 w\nend_header\n3 0 1 2 1\n", "m.ply"));
  // Inputs the fuzzer found, each of which the mesh library misread into gigabytes or minutes:
  // a NUL in a property's name, a name that is not ASCII, rows without properties (10^13 of
  // them), a short row (read on into the next line, a vertex's 999999999990 became a face's
  // count), blank lines among the rows, a NUL in an ASCII body.
  const std::pair<const char*, const char*> found[] = {
      {"nul-in-property-name", "m.ply:4: the PLY header holds the byte 0x01 (it must be ASCII text)"},
      {"element-name-not-ascii", "m.ply:3: the PLY header holds the byte 0xFF (it must be ASCII text)"},
      {"rows-without-properties", "m.ply:3: element \"vertex\" has 30 rows but no properties"},
      {"row-ends-early", "m.ply:12: element \"vertex\" 2: the row ends before its values do"},
      {"blank-lines-among-rows", "m.ply:12: a blank line or a comment among the rows (element \"vertex\" 2)"},
      {"nul-in-ascii-body", "m.ply:12: the ASCII body holds the byte 0x00"},
  };
  for (const auto& [input, message] : found) {
    auto refused = host::CheckPlyFile(CorpusBytes("ply", input, false), "m.ply");
    ASSERT_FALSE(refused) << input;
    EXPECT_EQ(refused.error().message, message);
  }
  // A list's count sizes the list before a value is read: 3e9 in a file of 100 bytes took 23 GB.
  const std::string mesh = "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
                           "property float z\nelement face 1\nproperty list COUNT int vertex_indices\nend_header\n"
                           "0 0 0\n1 0 0\n0 1 0\nFACE\n";
  const auto ply = [&](std::string count, std::string face) {
    std::string text = mesh;
    text.replace(text.find("COUNT"), 5, count);
    text.replace(text.find("FACE"), 4, face);
    return host::CheckPlyFile(text, "m.ply");
  };
  EXPECT_TRUE(ply("uchar", "3 0 1 2"));
  EXPECT_TRUE(ply("uint", "3 0 1 2 7 7"));
  EXPECT_EQ(ply("uint", "3000000000 0 1 2").error().message,
            "m.ply:13: element \"face\" 0: a list of 3000000000 values where the line holds 3");
  EXPECT_EQ(ply("uchar", "300 0 1 2").error().message, "m.ply:13: element \"face\" 0: a list of 300 values where the line holds 3");
  EXPECT_EQ(ply("int", "4 0 1 2").error().message, "m.ply:13: element \"face\" 0: a list of 4 values where the line holds 3");
  EXPECT_EQ(ply("int", "3.0 0 1 2").error().message, "m.ply:13: element \"face\" 0: the list's count \"3.0\" is not a whole number");
  EXPECT_EQ(ply("uchar", "   ").error().message, "m.ply:13: a blank line or a comment among the rows (element \"face\" 0)");
  // A name opening with digits runs into the count after it.
  auto digits = host::CheckPlyFile(CorpusBytes("ply", "element-name-opens-with-digits", false), "m.ply");
  ASSERT_FALSE(digits);
  EXPECT_NE(digits.error().message.find("m.ply:3: the element name \"9496729696"), std::string::npos) << digits.error().message;
  EXPECT_NE(digits.error().message.find("is not a word"), std::string::npos) << digits.error().message;
  // Binary: the count against the bytes left.
  std::string binary = "ply\nformat binary_little_endian 1.0\nelement face 1\nproperty list uint int v\nend_header\n";
  binary += std::string("\x00\x5E\xD0\xB2", 4) + std::string(12, '\0');
  EXPECT_EQ(host::CheckPlyFile(binary, "m.ply").error().message,
            "m.ply: byte 0 of the body: element \"face\" 0: a list of 3000000000 values where the file holds 3 more");

  // Through the mesh import, as `vexinterop allplan` reads it.
  host::Documents documents;
  const host::Units units;
  auto loaded = host::mesh_import::Load(documents, Write("early.ply", CorpusBytes("ply", "header-ends-early", false)), units);
  ASSERT_FALSE(loaded);
  EXPECT_TRUE(loaded.error().message.ends_with("early.ply:4: the PLY header ends before \"end_header\""));
  auto good = host::mesh_import::Load(documents, Write("good.ply", CorpusBytes("ply", "seed-ascii", false)), units);
  ASSERT_TRUE(good) << good.error().message;
}

TEST_F(HostileInput, PlyMeshesAreReadByTheHostInEveryEncoding) {
  // A quad and a triangle sharing an edge, with properties the reader passes over; the fourth
  // vertex repeats the first, and a two-corner face is a line.
  const std::string header = "element vertex 5\nproperty float x\nproperty uchar red\nproperty float y\nproperty double z\n"
                             "element face 3\nproperty list uchar float texcoord\nproperty list uchar int vertex_indices\nend_header\n";
  const std::string ascii = "ply\nformat ascii 1.0\n" + header +
                            "0 9 0 0\n1 9 0 0\n1 9 1 0\n0 9 0 0\n0 9 1 0.5\n"
                            "0 4 0 1 2 4\n2 0.5 0.5 3 1 2 3\n0 2 0 4\n";
  const auto binary = [&](bool big) {
    std::string out = std::string("ply\nformat ") + (big ? "binary_big_endian" : "binary_little_endian") + " 1.0\n" + header;
    const auto put = [&](auto value) {
      std::string bytes(sizeof value, '\0');
      std::memcpy(bytes.data(), &value, sizeof value);
      if (big) std::reverse(bytes.begin(), bytes.end());
      out += bytes;
    };
    const double points[5][3] = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 0, 0}, {0, 1, 0.5}};
    for (const auto& p : points) {
      put(static_cast<float>(p[0]));
      put(std::uint8_t{9});
      put(static_cast<float>(p[1]));
      put(p[2]);
    }
    const std::vector<std::vector<std::int32_t>> faces = {{0, 1, 2, 4}, {1, 2, 3}, {0, 4}};
    for (std::size_t f = 0; f < faces.size(); ++f) {
      put(std::uint8_t{f == 1 ? std::uint8_t{2} : std::uint8_t{0}});
      if (f == 1) {
        put(0.5f);
        put(0.5f);
      }
      put(static_cast<std::uint8_t>(faces[f].size()));
      for (const auto i : faces[f]) put(i);
    }
    return out;
  };
  vex::PolygonMesh expected;
  expected.points = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0.5}};
  expected.polygonSizes = {4, 3};
  expected.polygonPoints = {0, 1, 2, 3, 1, 2, 0};
  for (const auto& [name, text] : {std::pair{"ascii", ascii}, {"little", binary(false)}, {"big", binary(true)}}) {
    auto mesh = host::ReadPlyMesh(text, "m.ply");
    ASSERT_TRUE(mesh) << name << ": " << mesh.error().message;
    EXPECT_EQ(*mesh, expected) << name;
  }
  std::string outside = ascii;
  outside.replace(outside.find("3 1 2 3"), 7, "3 1 2 7");
  EXPECT_EQ(host::ReadPlyMesh(outside, "m.ply").error().message, "m.ply: face 1 refers to vertex 7 of 5");
  std::string word = ascii;
  word.replace(word.find("1 9 1 0"), 7, "1 9 up 0");
  EXPECT_EQ(host::ReadPlyMesh(word, "m.ply").error().message, "m.ply:14: element \"vertex\" 2: \"up\" is not a number");
  // Through the mesh import: no faces is an error, as the mesh library's reading made it.
  host::Documents documents;
  const host::Units units;
  auto loaded = host::mesh_import::Load(documents, Write("quad.ply", binary(true)), units);
  ASSERT_TRUE(loaded) << loaded.error().message;
  std::string lines = ascii;
  const std::string faces = "0 4 0 1 2 4\n2 0.5 0.5 3 1 2 3\n";
  lines.replace(lines.find(faces), faces.size(), "0 2 0 1\n0 2 1 2\n");
  auto none = host::mesh_import::Load(documents, Write("lines.ply", lines), units);
  ASSERT_FALSE(none);
  EXPECT_TRUE(none.error().message.ends_with("lines.ply: the PLY file has no faces")) << none.error().message;
}

TEST_F(HostileInput, GltfReferencesToFoldersAndDevicesAreRefusedByName) {
  const auto bundles = *host::PortBundles::Builtin();
  fs::create_directories(dir_ / "folder");
  // A buffer the file cannot do without is an error; an image is a texture that could not be
  // read: a warning naming it, and its port keeps the factor.
  const std::string buffer = Write("buffer-uri-directory.gltf", CorpusBytes("gltf", "buffer-uri-directory", true));
  auto read = host::formats::ReadFormatFile(buffer, bundles);
  ASSERT_FALSE(read);
  EXPECT_NE(read.error().message.find("is a directory, not a file"), std::string::npos) << read.error().message;
  EXPECT_EQ(read.error().message.find("json.exception"), std::string::npos);
  for (const char* name : {"image-uri-directory", "image-uri-dev-zero"}) {
    const std::string path = Write(std::string(name) + ".gltf", CorpusBytes("gltf", name, true));
    auto scene = host::formats::ReadFormatFile(path, bundles);
    ASSERT_TRUE(scene) << name << ": " << scene.error().message;
    std::string warnings;
    for (const auto& line : scene->warnings) warnings += line + "\n";
    EXPECT_TRUE(warnings.find("is a directory, not a file") != std::string::npos ||
                warnings.find("is a device, not a file") != std::string::npos)
        << name << ": " << warnings;
  }
  auto deep = host::formats::ReadFormatFile(Write("deep.gltf", CorpusBytes("gltf", "extras-3000-deep", true)), bundles);
  ASSERT_FALSE(deep);
  EXPECT_NE(deep.error().message.find("nested deeper than 256 levels"), std::string::npos);
  auto lies = host::formats::ReadFormatFile(Write("lies.glb", CorpusBytes("gltf", "glb-length-lies", true)), bundles);
  ASSERT_FALSE(lies);
  EXPECT_NE(lies.error().message.find("the GLB header gives 2147483647 bytes"), std::string::npos);
  auto glb = host::formats::ReadFormatFile(Write("ok.glb", CorpusBytes("gltf", "seed-glb", true)), bundles);
  ASSERT_TRUE(glb) << glb.error().message;
  ASSERT_EQ(glb->materials.size(), 1u);
  EXPECT_EQ(glb->materials[0].name, "G");
}

TEST_F(HostileInput, DeepJsonInEveryReaderIsAnErrorNotACrash) {
  const host::Units units;
  host::scene_file::ReadOptions options;
  options.units = &units;
  for (const char* name : {"children-3000-deep", "typed-array-3000-deep"}) {
    host::Document document("deep");
    auto parsed = host::scene_file::Parse(CorpusBytes("scene", name, false), "deep.vex", document, options);
    ASSERT_FALSE(parsed) << name;
    EXPECT_NE(parsed.error().message.find("deep.vex:1:"), std::string::npos) << parsed.error().message;
  }
  auto light = host::scene_file::ParseDictionary(CorpusBytes("light", "nested-3000-deep", false), "light.json", options);
  ASSERT_FALSE(light);
  EXPECT_EQ(light.error().message, "light.json:1:262: arrays and objects nested deeper than 256 levels");
  const auto bundles = *host::PortBundles::Builtin();
  host::json::ReadOptions read;
  read.bundles = &bundles;
  auto set = host::json::ParseParameterSet(CorpusBytes("paramset", "nested-3000-deep", false), "set.json", dir_.string(), read);
  ASSERT_FALSE(set);
  EXPECT_TRUE(set.error().message.starts_with("set.json:1:")) << set.error().message;
}

TEST_F(HostileInput, MtlTextureStatementBeforeNewmtlIsRefusedOrNamed) {
  // Found by the fuzzer: the mesh library writes through a null material on this.
  EXPECT_TRUE(host::CheckMtlText("# c\nnewmtl a\nmap_Kd x.png\n", "a.mtl"));
  auto early = host::CheckMtlText("# c\n\nmap_Kd x.png\nnewmtl a\n", "a.mtl");
  ASSERT_FALSE(early);
  EXPECT_EQ(early.error().message, "a.mtl:3: \"map_Kd\" before the first \"newmtl\"");
  // The mesh library ends lines at NUL, CR and FF as well, and knows statements by their first
  // letters; a "newmtl" counts only at the start of a line.
  const std::string behindNul("# 2\n\0map_Kdp_Kdp x.png\n", 22);
  auto hidden = host::CheckMtlText(behindNul, "a.mtl");
  ASSERT_FALSE(hidden);
  EXPECT_EQ(hidden.error().message, "a.mtl:2: \"map_Kdp_Kdp\" before the first \"newmtl\"");
  EXPECT_FALSE(host::CheckMtlText("a\rbumpy x.png\n", "a.mtl"));
  EXPECT_FALSE(host::CheckMtlText("normal x.png\n", "a.mtl"));
  EXPECT_FALSE(host::CheckMtlText(" newmtl a\n\tdisplace x.png\n", "a.mtl"));
  EXPECT_TRUE(host::CheckMtlText("newmtl a\fmap_Kd x.png\n", "a.mtl"));
  Write("model.mtl", "2\nmap_Kd x.png\n");
  const std::string obj = Write("model.obj", "mtllib model.mtl\nv 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n");
  const auto bundles = *host::PortBundles::Builtin();
  // The material reader is the project's own: the statement belongs to no material, and the
  // material's warning line says so; the mesh library is never handed such a file.
  auto materials = host::formats::ReadFormatFile(obj, bundles);
  ASSERT_TRUE(materials) << materials.error().message;
  host::Documents documents;
  const host::Units units;
  EXPECT_FALSE(host::mesh_import::Load(documents, obj, units));
  // The fuzzer's input: its material library names a folder first.
  const auto parts = CorpusBytes("obj", "mtl-texture-before-newmtl", false);
  const auto nul = parts.find('\0');
  Write("found/model.mtl", parts.substr(nul + 1));
  auto found = host::formats::ReadFormatFile(Write("found/model.obj", parts.substr(0, nul)), bundles);
  if (!found) {
    EXPECT_TRUE(found.error().message.find("is a directory, not a file") != std::string::npos ||
                found.error().message.find("before the first \"newmtl\"") != std::string::npos)
        << found.error().message;
  }
  // Its material library is a folder, so the mesh library falls back to the model's own name,
  // whose text hides the texture statement behind a NUL: refused, never read by the library.
  const auto hiddenParts = CorpusBytes("obj", "mtl-texture-behind-nul", false);
  const auto split = hiddenParts.find('\0');
  Write("hidden/model.mtl", hiddenParts.substr(split + 1));
  const std::string hiddenObj = Write("hidden/model.obj", hiddenParts.substr(0, split));
  EXPECT_TRUE(host::formats::ReadFormatFile(hiddenObj, bundles));
  EXPECT_FALSE(host::mesh_import::Load(documents, hiddenObj, units));
  // The library matches texture statements loosely ("mAp_Kd" is one): before the first material
  // only blank lines and comments pass. It drops a UTF-8 mark and skips a first line that opens
  // with a blank.
  auto loose = host::CheckMtlText("# c\n\tmAp_Kd x.png\nnewmtl a\n", "a.mtl");
  ASSERT_FALSE(loose);
  EXPECT_EQ(loose.error().message, "a.mtl:2: \"mAp_Kd\" before the first \"newmtl\"");
  EXPECT_FALSE(host::CheckMtlText("Kd 1 1 1\nnewmtl a\n", "a.mtl"));
  EXPECT_TRUE(host::CheckMtlText("\xEF\xBB\xBFnewmtl a\nmap_Kd x.png\n", "a.mtl"));
  EXPECT_TRUE(host::CheckMtlText(" map_Kd x.png\n  \n# c\n newmtl a\nmap_Kd x.png\n", "a.mtl"));
  const auto looseParts = CorpusBytes("obj", "mtl-texture-spelled-loosely", false);
  const auto at = looseParts.find('\0');
  Write("loose/model.mtl", looseParts.substr(at + 1));
  const auto looseLoad = host::mesh_import::Load(documents, Write("loose/model.obj", looseParts.substr(0, at)), units);
  ASSERT_FALSE(looseLoad);
  EXPECT_NE(looseLoad.error().message.find("model.mtl:1: \"2\" before the first \"newmtl\""),
            std::string::npos)
      << looseLoad.error().message;
  // A material library is one whatever its name.
  Write("named/library.txt", "map_Kd x.png\nnewmtl a\n");
  const auto named = host::mesh_import::Load(
      documents, Write("named/model.obj", "mtllib library.txt\nv 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n"), units);
  ASSERT_FALSE(named);
  EXPECT_NE(named.error().message.find("library.txt:1: \"map_Kd\" before the first \"newmtl\""), std::string::npos)
      << named.error().message;
  Write("named/fine.txt", "newmtl a\nmap_Kd x.png\n");
  EXPECT_TRUE(host::mesh_import::Load(
      documents, Write("named/fine.obj", "mtllib fine.txt\nv 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n"), units));
}

TEST_F(HostileInput, HierarchyAndMarkupDepthAreMeasuredWithoutRecursion) {
  // Parents listed in any order: a chain whose root comes last.
  const auto reversed = [](std::size_t n) {
    std::vector<std::int64_t> parent(n, -1);
    for (std::size_t i = 0; i + 1 < n; ++i) parent[i] = static_cast<std::int64_t>(i + 1);
    return parent;
  };
  EXPECT_FALSE(host::FindMisplacedNode(reversed(host::kMaxNodeDepth)));
  const auto deep = host::FindMisplacedNode(reversed(host::kMaxNodeDepth + 1));
  ASSERT_TRUE(deep);
  EXPECT_EQ(deep->node, 0u);
  EXPECT_FALSE(deep->cycle);
  EXPECT_EQ(host::DescribeMisplacedNode(*deep, "leaf"), "node 'leaf': the hierarchy is deeper than 1000 levels");
  // A tree beside a cycle of three.
  const std::vector<std::int64_t> cycle = {-1, 0, 0, 4, 5, 3};
  const auto looped = host::FindMisplacedNode(cycle);
  ASSERT_TRUE(looped);
  EXPECT_TRUE(looped->cycle);
  EXPECT_EQ(looped->node, 3u);

  // Markup: only elements count; comments, CDATA, instructions and quoted '>' do not.
  EXPECT_TRUE(host::CheckMarkupDepth(
      "<a><b/><c x=\"<d>\" y='>'></c><!-- <e><e><e> --><![CDATA[<f><f>]]><?p <g>?><!DOCTYPE h></a>", "m.dae", 2));
  EXPECT_TRUE(host::CheckMarkupDepth("<a><b></b><b></b><b></b></a>", "m.dae", 2));
  const auto nested = host::CheckMarkupDepth("<a>\n<b>\n<c></c></b></a>", "m.dae", 2);
  ASSERT_FALSE(nested);
  EXPECT_EQ(nested.error().message, "m.dae:3: elements nested deeper than 2 levels");
}

TEST_F(HostileInput, Latin1MaterialNameFromAnMtlSavesIntoAScene) {
  const auto parts = CorpusBytes("obj", "latin1-material-name", false);
  const auto nul = parts.find('\0');
  const auto bundles = *host::PortBundles::Builtin();
  // The corpus file's texture is /dev/zero: refused by name.
  Write("corpus/model.mtl", parts.substr(nul + 1));
  auto device = host::formats::ReadFormatFile(Write("corpus/model.obj", parts.substr(0, nul)), bundles);
  ASSERT_TRUE(device) << device.error().message;
  std::string warnings;
  for (const auto& line : device->warnings) warnings += line + "\n";
  EXPECT_NE(warnings.find("is a device, not a file"), std::string::npos) << warnings;
  Write("model.mtl", "newmtl Bois\xE9\nKd 0.8 0.5 0.2\n");
  const std::string obj = Write("model.obj", parts.substr(0, nul));
  auto materials = host::formats::ReadFormatFile(obj, bundles);
  ASSERT_TRUE(materials) << materials.error().message;
  ASSERT_EQ(materials->materials.size(), 1u);
  EXPECT_EQ(materials->materials[0].name, "Bois\xE9");
  // A scene whose object carries that name is written (with U+FFFD) and reads back.
  host::Document document("latin1");
  const host::Units units;
  host::scene_file::ReadOptions options;
  options.units = &units;
  ASSERT_TRUE(host::scene_file::Parse(R"({"format": "vexon-scene", "version": 1, "name": "x", "objects": [{"type": 1000, "name": "o"}]})",
                                      "x.vex", document, options));
  document.AllObjects().front()->SetName(materials->materials[0].name);
  auto text = host::scene_file::Dump(document);
  ASSERT_TRUE(text) << text.error().message;
  host::Document back("back");
  auto reread = host::scene_file::Parse(*text, "back.vex", back, options);
  ASSERT_TRUE(reread) << reread.error().message;
  EXPECT_EQ(back.AllObjects().front()->GetName(), "Bois\xEF\xBF\xBD");
}

}  // namespace
