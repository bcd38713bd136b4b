// The native scene file: what it holds survives a round trip, and bad files
// are refused with the file and the place named.
#include "host/scene_file.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>
#include <random>
#include <sstream>

#include "host/input_checks.h"
#include "host/json_text.h"
#include "host/polygon_object.h"
#include "host/units.h"
#include "vex/material.h"
#include "vex/polygon.h"

namespace fs = std::filesystem;

namespace {

using host::scene_file::ParseDictionary;

constexpr std::string_view kScene = R"({
  "format": "vexon-scene",
  "version": 1,
  "name": "studio",
  "settings": {"2117": {"unitscale": "cm"}, "2204": {"int64": 5000000000}},
  "data": {"50010": {"int32": 200000215}},
  "renderData": [
    {"name": "Preview", "postEffects": []},
    {"name": "Final", "active": true, "settings": {"5": {"string": "x"}},
     "postEffects": [{"type": 7}, {"type": 1036219, "parameters": {
        "1801": {"float64": 50}, "25004": false, "25002": {"unitscale": {"unit": "m", "metresPerUnit": 1}}}}]}
  ],
  "objects": [
    {"type": 1000, "name": "Rig", "parameters": {"903": {"vector": [1, 2, 3]}},
     "children": [
       {"type": 1036751, "name": "Key",
        "parameters": {"10000": {"int32": 1}, "11004": {"float64": 0.1}, "11000": {"color": [1, 0.5, 0.25]},
                       "10027": "group", "11014": true, "12000": {"image": {"url": "sky.hdr", "colorSpace": "raw"}},
                       "1": {"id": "net.kelvo.example"}},
        "tracks": [{"parameter": 903, "component": 1, "keys": [[1, 5], [0, 4]]}]}
     ]}
  ]
})";

TEST(SceneFile, WhatItHoldsSurvivesARoundTrip) {
  host::Units units;
  host::Document first("a");
  ASSERT_TRUE(host::scene_file::Parse(kScene, "studio.vex", first, {&units}));
  EXPECT_EQ(first.GetName(), "studio");
  EXPECT_FALSE(first.IsChanged());
  const auto* unit = first.Settings().Find(vex::kDocumentLengthUnit)->Get<vex::UnitScale>();
  ASSERT_NE(unit, nullptr);
  EXPECT_EQ(*unit, (vex::UnitScale{"cm", 0.01}));
  ASSERT_EQ(first.RenderSettings().size(), 2u);
  EXPECT_EQ(first.ActiveRenderIndex(), 1);
  const vex::PostEffect* corvane = first.GetActiveRenderData()->FindPostEffect(1036219);
  ASSERT_NE(corvane, nullptr);
  EXPECT_EQ(corvane->parameters.GetFloat(1801), 50.0);
  EXPECT_EQ(*corvane->parameters.Find(25002)->Get<vex::UnitScale>(), (vex::UnitScale{"m", 1.0}));
  host::SceneObject* key = first.FindObject("Key");
  ASSERT_NE(key, nullptr);
  EXPECT_EQ(key->GetParent(), first.FindObject("Rig"));
  EXPECT_EQ(key->GetDocument(), &first);
  EXPECT_EQ(key->Parameters().GetFloat(11004), 0.1);
  EXPECT_EQ(key->Parameters().GetString(10027), "group");
  EXPECT_EQ(key->Parameters().Find(12000)->Get<vex::ImageReference>()->colorSpace, "raw");
  ASSERT_EQ(key->GetTracks().size(), 1u);
  EXPECT_EQ(key->GetTracks()[0].keys, (std::vector<vex::AnimationKey>{{0, 4}, {1, 5}}));  // sorted by time

  auto text = host::scene_file::Dump(first);
  ASSERT_TRUE(text) << text.error().Describe();
  host::Document second("b");
  ASSERT_TRUE(host::scene_file::Parse(*text, "again.vex", second, {&units}));
  EXPECT_EQ(*host::scene_file::Dump(second), *text);
  EXPECT_EQ(second.GetDataContainer().GetInt32(50010), 200000215);
  EXPECT_EQ(second.Settings().GetInt64(2204), 5000000000);
}

TEST(SceneFile, BadFilesAreRefusedNamingTheFileAndThePlace) {
  host::Units units;
  auto refuse = [&](std::string_view text) {
    host::Document d("x");
    const auto r = host::scene_file::Parse(text, "bad.vex", d, {&units});
    return r ? std::string("accepted") : r.error().message;
  };
  EXPECT_EQ(refuse("{"), "bad.vex:1:2: not valid JSON: unexpected end of text");
  EXPECT_EQ(refuse("[]"), "bad.vex: (top): expected an object");
  EXPECT_EQ(
      refuse(R"({"objects": [{"type": 1, "parameters": {"11004": 1.5}}]})"),
      "bad.vex: objects[0].parameters.11004: a bare number has no type: write {\"float64\": n} or {\"int32\": n}");
  EXPECT_EQ(refuse(R"({"objcts": []})"), "bad.vex: objcts: unknown key");
  EXPECT_EQ(refuse(R"({"settings": {"2117": {"unitscale": "furlong"}}})"),
            "bad.vex: settings.2117: unknown unit \"furlong\"");
  EXPECT_EQ(refuse(R"({"objects": [{"name": "no type"}]})"), "bad.vex: objects[0]: an object needs its \"type\"");
  EXPECT_EQ(refuse(R"({"renderData": [{"active": true}, {"active": true}]})"),
            "bad.vex: renderData[1].active: only one render setting can be active");
  EXPECT_EQ(refuse(R"({"objects": [{"type": 1, "parameters": {"x": true}}]})"),
            "bad.vex: objects[0].parameters.x: parameter ids are whole numbers");
}

TEST(SceneFile, LoadAndSaveLeaveNothingHalfDone) {
  const fs::path dir = fs::temp_directory_path() / ("scene_file_test_" + std::to_string(getpid()));
  fs::create_directories(dir);
  host::Documents documents;
  host::Units units;
  const std::string bad = (dir / "broken.vex").string();
  std::ofstream(bad) << R"({"objects": [{"type": 1}, {"type": "two"}]})";
  const auto loaded = host::scene_file::Load(documents, bad, {&units});
  ASSERT_FALSE(loaded);
  EXPECT_EQ(loaded.error().message, bad + ": objects[1].type: expected a whole number");
  EXPECT_TRUE(documents.GetDocuments().empty());
  EXPECT_FALSE(host::scene_file::Load(documents, (dir / "missing.vex").string()));

  const std::string good = (dir / "good.vex").string();
  std::ofstream(good) << kScene;
  auto doc = host::scene_file::Load(documents, good, {&units});
  ASSERT_TRUE(doc);
  EXPECT_EQ((*doc)->GetPath(), dir.string());
  EXPECT_FALSE(host::scene_file::Save(**doc, (dir / "no" / "such" / "dir.vex").string()));
  EXPECT_FALSE(fs::exists(dir / "no"));
  // A value the format cannot hold fails the save and leaves the old file as it was.
  const std::string out = (dir / "out.vex").string();
  ASSERT_TRUE(host::scene_file::Save(**doc, out));
  const auto before = fs::file_size(out);
  (*doc)->FindObject("Key")->MutableParameters().Set(77, vex::Data::MakeCustom(vex::SubstanceReference{}));
  const auto unsaved = host::scene_file::Save(**doc, out);
  ASSERT_FALSE(unsaved);
  EXPECT_NE(unsaved.error().message.find("objects[0].children[0].parameters.77"), std::string::npos)
      << unsaved.error().message;
  EXPECT_EQ(fs::file_size(out), before);
  EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 3);  // no temporary left
  documents.CloseAll();
  fs::remove_all(dir);
}

TEST(SceneFile, DescriptionsReadLooselyTyped) {
  const auto d = ParseDictionary(R"({"a": 5, "b": 2.5, "c": 9000000000, "d": [1, 2, 3], "e": {"x": true},
                                     "f": {"float64": 5}, "g": {"color": [1, 0, 0]}, "h": "text"})",
                                 "desc.json");
  ASSERT_TRUE(d) << d.error().Describe();
  EXPECT_EQ(*vex::GetDataAs<std::int32_t>(*d, "a"), 5);
  EXPECT_EQ(*vex::GetDataAs<double>(*d, "b"), 2.5);
  EXPECT_EQ(*vex::GetDataAs<std::int64_t>(*d, "c"), 9000000000);
  EXPECT_EQ(vex::GetDataAs<vex::DataArray>(*d, "d")->size(), 3u);
  EXPECT_TRUE(vex::GetDataAs<vex::DataDictionary>(*d, "e")->Contains("x"));
  EXPECT_EQ(*vex::GetDataAs<double>(*d, "f"), 5.0);
  EXPECT_EQ(*vex::GetDataAs<vex::Color>(*d, "g"), (vex::Color{1, 0, 0}));
  EXPECT_EQ(*vex::GetDataAs<std::string>(*d, "h"), "text");
  EXPECT_EQ(ParseDictionary("[1]", "list.json").error().message, "list.json: (top): expected an object");
  EXPECT_EQ(ParseDictionary(R"({"n": null})", "null.json").error().message, "null.json: (top).n: null is not a value");
}

// --- large scenes: written and read a buffer at a time ------------------------------------------

std::string FileText(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

void WriteText(const fs::path& path, std::string_view text) {
  std::ofstream(path, std::ios::binary) << text;
}

/// A scratch folder of the test's own, removed at the end.
struct Scratch {
  fs::path dir = fs::temp_directory_path() / ("scene_stream_test_" + std::to_string(getpid()));
  Scratch() { fs::create_directories(dir); }
  ~Scratch() { fs::remove_all(dir); }
};

/// Doubles that are hard to write and read back: random bit patterns over the whole range, both
/// zeros, the smallest subnormal, the largest double, whole numbers beyond 2^53, decimals.
double Awkward(std::mt19937_64& random, std::size_t i) {
  constexpr double kFixed[] = {0.0, -0.0, 5e-324, -1.7976931348623157e308, 0.1, 1e21, 123456789012345680000.0,
                               -2.0, 1e-7, 0.30000000000000004, 9007199254740993.0, 3.0};
  if (i % 3 == 0) return kFixed[(i / 3) % std::size(kFixed)];
  for (;;) {
    const double v = std::bit_cast<double>(random());
    if (std::isfinite(v)) return v;
  }
}

/// A polygon object of `points` awkward points, polygons of three to six corners, a normal and a
/// texture coordinate per corner and a material per polygon (some without one).
std::shared_ptr<host::SceneObject> AwkwardMesh(std::string name, std::size_t points, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  std::size_t n = 0;
  vex::PolygonMesh mesh;
  mesh.points = {{0.0, -0.0, 5e-324}, {1e21, 0.1, -2.0}};
  while (mesh.points.size() < points) mesh.points.push_back({Awkward(random, n++), Awkward(random, n++), Awkward(random, n++)});
  host::PolygonAttributes attributes;
  attributes.materialNames = {"Brick", "Glass \"clear\""};
  for (std::size_t f = 0; f + 6 < points; f += 2) {
    const auto size = static_cast<std::int32_t>(3 + f % 4);
    mesh.polygonSizes.push_back(size);
    for (std::int32_t k = 0; k < size; ++k) {
      mesh.polygonPoints.push_back(static_cast<std::int32_t>(f) + k);
      attributes.normals.push_back({Awkward(random, n++), Awkward(random, n++), Awkward(random, n++)});
      attributes.uvs.push_back({Awkward(random, n++), Awkward(random, n++)});
    }
    attributes.materials.push_back(static_cast<std::int32_t>(f % 3) - 1);
  }
  auto object = host::MakePolygonObject(std::move(name), std::move(mesh));
  object->MutableParameters().Set(host::kPolygonAttributesParameter, vex::Data::MakeCustom(std::move(attributes)));
  return object;
}

/// Bit patterns, so that -0.0 and 0.0 differ.
std::vector<std::uint64_t> Bits(const vex::PolygonMesh& mesh, const host::PolygonAttributes& attributes) {
  std::vector<std::uint64_t> bits;
  for (const auto& p : mesh.points)
    for (const double v : {p.x, p.y, p.z}) bits.push_back(std::bit_cast<std::uint64_t>(v));
  for (const auto& p : attributes.normals)
    for (const double v : {p.x, p.y, p.z}) bits.push_back(std::bit_cast<std::uint64_t>(v));
  for (const auto& p : attributes.uvs)
    for (const double v : {p.x, p.y}) bits.push_back(std::bit_cast<std::uint64_t>(v));
  return bits;
}

const vex::PolygonMesh& MeshOf(const vex::ISceneObject& object) {
  return *object.Parameters().Find(vex::kPolygonMeshParameter)->Get<vex::PolygonMesh>();
}
const host::PolygonAttributes& AttributesOf(const vex::ISceneObject& object) {
  return *object.Parameters().Find(host::kPolygonAttributesParameter)->Get<host::PolygonAttributes>();
}

/// Two meshes, the second a child, that together make a file of several MB: it crosses the
/// writer's buffer many times and the reader's 1 MiB blocks more than once.
void AddLargeScene(host::Document& document) {
  auto* root = *document.InsertObject(AwkwardMesh("Walls", 9000, 1), nullptr);
  auto child = AwkwardMesh("Roof", 7000, 2);
  ASSERT_TRUE(child->SetKey({903, 1}, {0.5, -0.0}));
  ASSERT_TRUE(child->SetKey({903, 1}, {1.0 / 3.0, 1e300}));
  ASSERT_TRUE(document.InsertObject(child, root));
}

TEST(SceneFile, LargeGeometryRoundTripsBitForBit) {
  Scratch scratch;
  host::Document document("big");
  AddLargeScene(document);
  const fs::path file = scratch.dir / "big.vex";
  ASSERT_TRUE(host::scene_file::Save(document, file.string()));
  ASSERT_GT(fs::file_size(file), 3u << 20);

  host::Documents documents;
  auto loaded = host::scene_file::Load(documents, file.string());
  ASSERT_TRUE(loaded) << loaded.error().message;
  ASSERT_EQ((*loaded)->Objects().size(), 1u);
  const host::SceneObject& walls = *(*loaded)->Objects()[0];
  ASSERT_EQ(walls.Children().size(), 1u);
  const host::SceneObject& roof = *walls.Children()[0];
  for (const auto& [original, read] : {std::pair{document.Objects()[0].get(), &walls},
                                       std::pair{document.Objects()[0]->Children()[0].get(), &roof}}) {
    EXPECT_EQ(read->GetName(), original->GetName());
    EXPECT_EQ(MeshOf(*read).polygonSizes, MeshOf(*original).polygonSizes);
    EXPECT_EQ(MeshOf(*read).polygonPoints, MeshOf(*original).polygonPoints);
    EXPECT_EQ(AttributesOf(*read).materials, AttributesOf(*original).materials);
    EXPECT_EQ(AttributesOf(*read).materialNames, AttributesOf(*original).materialNames);
    EXPECT_TRUE(Bits(MeshOf(*read), AttributesOf(*read)) == Bits(MeshOf(*original), AttributesOf(*original)))
        << read->GetName() << ": a number changed on the way";
  }
  ASSERT_EQ(roof.GetTracks().size(), 1u);
  EXPECT_TRUE(std::signbit(roof.GetTracks()[0].keys[1].value));
  EXPECT_EQ(roof.GetTracks()[0].keys[0].value, 1e300);

  // The text is stable, one row a line, and the same read from a string or from the file.
  const std::string text = FileText(file);
  EXPECT_EQ(*host::scene_file::Dump(**loaded), text);
  EXPECT_NE(text.find("\n              [0.0, -0.0, 5e-324],\n              [1e+21, 0.1, -2.0],\n"), std::string::npos);
  host::Document fromText("t");
  ASSERT_TRUE(host::scene_file::Parse(text, "big.vex", fromText));
  EXPECT_EQ(*host::scene_file::Dump(fromText), text);
  // The document list's file operations, which modules call, write and read the same file.
  const fs::path again = scratch.dir / "again.vex";
  ASSERT_TRUE(documents.SaveDocument(fromText, again.string(), vex::IDocuments::kNativeSceneFormat, 0));
  EXPECT_EQ(FileText(again), text);
  auto reloaded = documents.LoadDocument(again.string(), 0);
  ASSERT_TRUE(reloaded) << reloaded.error().message;
  EXPECT_EQ(*host::scene_file::Dump(static_cast<host::Document&>(**reloaded)), text);
  documents.CloseAll();
}

TEST(SceneFile, AnIndependentReaderReadsTheWrittenNumbersExactly) {
  if (std::system("command -v node >/dev/null 2>&1") != 0) GTEST_SKIP() << "node is not installed";
  Scratch scratch;
  host::Document document("big");
  AddLargeScene(document);
  const fs::path file = scratch.dir / "big.vex";
  ASSERT_TRUE(host::scene_file::Save(document, file.string()));
  // JavaScript's JSON.parse, then every double of the first mesh as its bits.
  const fs::path script = scratch.dir / "bits.js";
  WriteText(script, R"(const d = JSON.parse(require('fs').readFileSync(process.argv[2], 'utf8'));
const o = d.objects[0].parameters;
const f = new Float64Array(1), u = new BigUint64Array(f.buffer), out = [];
const put = (rows) => { for (const r of rows) for (const x of r) { f[0] = x; out.push(u[0].toString(16)); } };
put(o['940'].polygonmesh.points); put(o['943'].polygonattributes.normals); put(o['943'].polygonattributes.uvs);
out.push(o['940'].polygonmesh.polygons.flat().join(','));
process.stdout.write(out.join('\n') + '\n');
)");
  FILE* pipe = popen(("node '" + script.string() + "' '" + file.string() + "'").c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  std::string output;
  char buffer[1 << 16];
  for (std::size_t got; (got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) output.append(buffer, got);
  ASSERT_EQ(pclose(pipe), 0) << output.substr(0, 2000);
  std::string expected;
  const auto& object = *document.Objects()[0];
  for (const std::uint64_t bits : Bits(MeshOf(object), AttributesOf(object))) {
    std::ostringstream hex;
    hex << std::hex << bits;
    expected += hex.str() + "\n";
  }
  std::string indices;
  for (const std::int32_t i : MeshOf(object).polygonPoints) indices += (indices.empty() ? "" : ",") + std::to_string(i);
  expected += indices + "\n";
  EXPECT_TRUE(output == expected) << "node read other numbers than were written";
}

TEST(SceneFile, BrokenTextDeepInALargeFileNamesItsLineAndColumn) {
  Scratch scratch;
  host::Document document("big");
  AddLargeScene(document);
  auto saved = host::scene_file::Dump(document);
  ASSERT_TRUE(saved);
  const std::string text = std::move(*saved);
  host::Documents documents;
  // Read from the file, where the position is found again after the block is gone, and from the
  // text: both name the same place, the one counted here.
  const auto refused = [&](const std::string& broken) {
    const fs::path file = scratch.dir / "broken.vex";
    WriteText(file, broken);
    auto loaded = host::scene_file::Load(documents, file.string());
    EXPECT_TRUE(documents.GetDocuments().empty());
    host::Document d("d");
    auto parsed = host::scene_file::Parse(broken, file.string(), d);
    if (loaded || parsed) return std::string("accepted");
    EXPECT_EQ(loaded.error().message, parsed.error().message);
    return loaded.error().message.substr(file.string().size());
  };
  const auto at = [&](const std::string& t, std::size_t offset) {
    const host::TextPosition p = host::PositionOf(t, offset);
    return ":" + std::to_string(p.line) + ":" + std::to_string(p.column) + ": ";
  };
  // Cut inside the second mesh's points, past the first read block.
  const std::size_t roof = text.find("\"Roof\"");
  ASSERT_GT(roof, std::size_t{1} << 20);
  const std::size_t cut = text.find("\"points\"", roof) + 2000;
  const std::string truncated = text.substr(0, cut);
  EXPECT_EQ(refused(truncated), at(truncated, cut) + "not valid JSON: unexpected end of text");
  // A stray character in the middle of the file.
  std::string stray = text;
  const std::size_t comma = stray.find("],\n", text.size() / 2) + 1;
  stray[comma] = ';';
  EXPECT_EQ(refused(stray), at(stray, comma) + "not valid JSON: unexpected character \";\"");
  // A byte that is not UTF-8 in the second object's name: the scan of its block finds it.
  std::string latin = text;
  latin[roof + 2] = '\xE9';
  EXPECT_EQ(refused(latin), at(latin, roof + 2) + "invalid UTF-8 byte 0xE9 (the file must be UTF-8 text)");
  // Nesting too deep, far in: the scan keeps its depth from block to block.
  std::string deep = text;
  const std::size_t value = deep.find("\"Roof\"");
  deep.replace(value, 6, std::string(2300, '[') + std::string(2300, ']'));
  // Five levels are open at the name (the root, "objects", Walls, "children", Roof). A scene file
  // may nest two levels more for each level of its object hierarchy.
  const int limit = host::JsonDepthLimit() + 2 * host::kMaxNodeDepth;
  EXPECT_EQ(refused(deep), at(deep, value + static_cast<std::size_t>(limit) - 5) + "arrays and objects nested deeper than " +
                               std::to_string(limit) + " levels");
}

TEST(SceneFile, TextSplitAcrossReadBlocksReadsWhole) {
  Scratch scratch;
  // A name longer than a read block made of escapes, brackets and two- to four-byte characters:
  // for each shift some escape or sequence is cut by the end of the block. Were the scan to lose
  // its place in the string there, the brackets would count as nesting.
  const std::string unit = "\\\"\xC3\xA9[\xE2\x82\xAC\xF0\x9F\x98\x80\\\\x";  // \" é [ € 😀 \\ x
  const std::string decoded = "\"\xC3\xA9[\xE2\x82\xAC\xF0\x9F\x98\x80\\x";
  std::string name, expected;
  while (name.size() < (std::size_t{1} << 20) + 64) name += unit, expected += decoded;
  host::Documents documents;
  for (std::size_t shift = 0; shift < unit.size(); ++shift) {
    const fs::path file = scratch.dir / ("split" + std::to_string(shift) + ".vex");
    WriteText(file, "{" + std::string(shift, ' ') + "\"objects\": [{\"type\": 1000, \"name\": \"" + name + "\"}]}");
    auto loaded = host::scene_file::Load(documents, file.string());
    ASSERT_TRUE(loaded) << "shift " << shift << ": " << loaded.error().message.substr(0, 300);
    EXPECT_TRUE((*loaded)->Objects().at(0)->GetName() == expected) << "shift " << shift;
    documents.Close(*loaded);
  }
}

TEST(SceneFile, NumbersThatAreNotFiniteAreRefusedNamingTheObjectAndLeaveTheFile) {
  Scratch scratch;
  const fs::path file = scratch.dir / "scene.vex";
  host::Document document("big");
  AddLargeScene(document);
  ASSERT_TRUE(host::scene_file::Save(document, file.string()));
  const std::string before = FileText(file);
  auto* roof = document.Objects()[0]->Children()[0].get();
  auto refused = [&]() {
    const auto saved = host::scene_file::Save(document, file.string());
    EXPECT_EQ(FileText(file), before);  // neither replaced nor cut
    EXPECT_EQ(std::distance(fs::directory_iterator(scratch.dir), fs::directory_iterator()), 1);  // no scratch left
    EXPECT_FALSE(host::scene_file::Dump(document));
    return saved ? std::string("saved") : saved.error().message;
  };
  const std::string where = file.string() + ": objects[0].children[0]";
  const std::string problem = ": a number that is not finite cannot be saved";
  {
    auto mesh = MeshOf(*roof);
    mesh.points[6000].y = std::numeric_limits<double>::quiet_NaN();  // long after the first buffer
    roof->MutableParameters().Set(vex::kPolygonMeshParameter, vex::Data::MakeCustom(mesh));
    EXPECT_EQ(refused(), where + ".parameters.940.points" + problem);
    mesh.points[6000].y = 0;
    roof->MutableParameters().Set(vex::kPolygonMeshParameter, vex::Data::MakeCustom(std::move(mesh)));
  }
  const auto attributes = AttributesOf(*roof);
  for (const char* list : {"normals", "uvs"}) {
    auto broken = attributes;
    if (std::string_view(list) == "normals")
      broken.normals.back().z = -std::numeric_limits<double>::infinity();
    else
      broken.uvs[100].x = std::numeric_limits<double>::infinity();
    roof->MutableParameters().Set(host::kPolygonAttributesParameter, vex::Data::MakeCustom(std::move(broken)));
    EXPECT_EQ(refused(), where + ".parameters.943." + list + problem);
  }
  roof->MutableParameters().Set(host::kPolygonAttributesParameter, vex::Data::MakeCustom(attributes));
  // A disk that fills up mid-file says so.
  if (fs::exists("/dev/full")) {
    const auto full = host::scene_file::WriteFile(document, "/dev/full", "full.vex");
    ASSERT_FALSE(full);
    EXPECT_EQ(full.error().message, "full.vex: cannot write: No space left on device");
  }
  ASSERT_TRUE(roof->SetKey({904, 0}, {2.0, std::numeric_limits<double>::quiet_NaN()}));
  EXPECT_EQ(refused(), where + ".tracks" + problem);
}

TEST(SceneFile, BrokenGeometryIsRefusedAsTheWholeTreeReaderRefusedIt) {
  // The arrays decoded while reading fall back to the tree when they are not what the format
  // says, so every message stays the one the file always gave.
  const auto refuse = [](std::string_view mesh, std::string_view attributes = {}) {
    std::string parameters = R"("940": {"polygonmesh": )" + std::string(mesh) + "}";
    if (!attributes.empty()) parameters += R"(, "943": {"polygonattributes": )" + std::string(attributes) + "}";
    host::Document d("x");
    const auto r = host::scene_file::Parse(
        R"({"objects": [{"type": 1000, "children": [{"type": 1100, "parameters": {)" + parameters + "}}]}]}", "bad.vex", d);
    return r ? std::string("accepted") : r.error().message.substr(std::string_view("bad.vex: objects[0].children[0].parameters.").size());
  };
  const std::string tri = R"({"points": [[0, 0, 0], [1, 0, 0], [0, 1, 0]], "polygons": [[0, 1, 2]]})";
  EXPECT_EQ(refuse(R"({"points": [[0, 0, 0], [1, 0], [0, 1, 0]], "polygons": []})"),
            "940.points[1]: expected an array of 3 numbers");
  EXPECT_EQ(refuse(R"({"points": [[0, 0, 0], [1, 0, 0], [0, 1, 0, 5]], "polygons": []})"),
            "940.points[2]: expected an array of 3 numbers");
  EXPECT_EQ(refuse(R"({"points": [[0, "x", 0]], "polygons": []})"), "940.points[0]: expected a number");
  EXPECT_EQ(refuse(R"({"points": {"x": 1}})"), "940.points: expected an array of [x, y, z]");
  EXPECT_EQ(refuse(R"({"points": [[0, 0, 0], [1, 0, 0], [0, 1, 0]], "polygons": [[0, 1, 2], [0, 1, 3]]})"),
            "940.polygons[1]: number out of range");
  EXPECT_EQ(refuse(R"({"points": [[0, 0, 0], [1, 0, 0], [0, 1, 0]], "polygons": [[0, 1, 2], [0, 1, 2, 9], [0, 1]]})"),
            "940.polygons[1]: number out of range");
  EXPECT_EQ(refuse(R"({"points": [[0, 0, 0], [1, 0, 0], [0, 1, 0]], "polygons": [[0, 1.0, 2]]})"),
            "940.polygons[0]: expected a whole number");
  EXPECT_EQ(refuse(R"({"points": [[0, 0, 0], [1, 0, 0], [0, 1, 0]], "polygons": [[0, [1], 2]]})"),
            "940.polygons[0]: expected a whole number");
  EXPECT_EQ(refuse(R"({"points": [[0, 0, 0], [1, 0, 0], [0, 1, 0]], "polygons": [[0, 1, 3000000000]]})"),
            "940.polygons[0]: number out of range");
  EXPECT_EQ(refuse(R"({"points": [[0, 0, 0], [1, 0, 0], [0, 1, 0]], "polygons": [[0, 1, 18446744073709551615]]})"),
            "940.polygons[0]: number out of range");
  EXPECT_EQ(refuse(R"({"points": [[0, 0, 0], [1, 0, 0], [0, 1, 0]], "polygons": [[0, 1, 2], 7]})"),
            "940.polygons[1]: expected a list of at least three point indices");
  EXPECT_EQ(refuse(R"({"points": [], "polygons": [[0, 1, 2]], "polygons": [[0, 1]]})"),
            "940.polygons[0]: expected a list of at least three point indices");  // the later one counts
  EXPECT_EQ(refuse(R"({"polygons": [[0, 1, 2]], "points": [[0, 0, 0], [1, 0, 0], [0, 1, 0]]})"), "accepted");
  EXPECT_EQ(refuse(tri, R"({"normals": [[0, 0, 1], [0, 0, 1], [0, 0]]})"), "943.normals[2]: expected an array of 3 numbers");
  EXPECT_EQ(refuse(tri, R"({"normals": [[0, 0, true], [0, 0, 1], [0, 0, 1]]})"), "943.normals[0]: expected a number");
  EXPECT_EQ(refuse(tri, R"({"uvs": [[0, 0], [1, 0], [0, 1, 2]]})"), "943.uvs[2]: expected an array of 2 numbers");
  EXPECT_EQ(refuse(tri, R"({"materials": [1], "materialNames": ["A"]})"), "943.materials[0]: number out of range");
  EXPECT_EQ(refuse(tri, R"({"materials": [-2], "materialNames": ["A"]})"), "943.materials[0]: number out of range");
  EXPECT_EQ(refuse(tri, R"({"materials": [0.0], "materialNames": ["A"]})"), "943.materials[0]: expected a whole number");
  EXPECT_EQ(refuse(tri, R"({"materials": [[0]], "materialNames": ["A"]})"), "943.materials[0]: expected a whole number");
  EXPECT_EQ(refuse(tri, R"({"normals": [[0, 0, 1], [0, 0, 1]]})"), "943.normals: 2 for 3 polygon corners");
  EXPECT_EQ(refuse(tri, R"({"normals": "no"})"), "943.normals: expected an array");
  EXPECT_EQ(refuse(tri, R"({"normals": [[0, 0, 1], [0, 0, 1], [0, 0, 1]], "uvs": [[0, 0], [1, 0], [0, 1]],
                            "materials": [0], "materialNames": ["A"]})"),
            "accepted");
}

TEST(SceneFile, OfSeveralProblemsTheOneReportedIsTheOneItAlwaysWas) {
  host::Units units;
  auto refuse = [&](std::string_view text) {
    host::Document d("x");
    const auto r = host::scene_file::Parse(text, "bad.vex", d, {&units});
    return r ? std::string("accepted") : r.error().message;
  };
  // Sections are made as they end, yet an earlier-ranked problem later in the file wins, and a
  // text that is not JSON wins over everything.
  EXPECT_EQ(refuse(R"({"objects": [{"type": "x"}], "bogus": 1})"), "bad.vex: bogus: unknown key");
  EXPECT_EQ(refuse(R"({"objects": [{"type": 1}, {"type": "two"}], "name": 5)"),
            "bad.vex:1:54: not valid JSON: unexpected end of text");
  EXPECT_EQ(refuse(R"({"objects": [{"type": 1100, "parameters": {"940": {"polygonmesh": {"points": [[0, 0, 0]]}}}}],
                       "settings": {"1": 5}})"),
            "bad.vex: settings.1: a bare number has no type: write {\"float64\": n} or {\"int32\": n}");
  EXPECT_EQ(refuse(R"({"objects": [{"type": 1000}], "materials": [{"name": "A"}], "version": 7})"),
            "bad.vex: version: number out of range");
  EXPECT_EQ(refuse(R"({"format": "other", "objects": [{"type": "x"}]})"), "bad.vex: format: expected \"vexon-scene\"");
  EXPECT_EQ(refuse(R"({"objects": [1, {"type": "x"}]})"), "bad.vex: objects[0]: expected an object");
  EXPECT_EQ(refuse(R"({"objects": {"type": 1}})"), "bad.vex: objects: expected an array of objects");
  EXPECT_EQ(refuse(R"([{"objects": 1}])"), "bad.vex: (top): expected an object");
  EXPECT_EQ(refuse(R"({"settings": {"1": {"dictionary": {"polygonmesh": {"points": [[0, 0, 0]]}}}}})"),
            "bad.vex: settings.1.polygonmesh: unknown value type \"points\"");
  // A section given twice was read as its last copy; it is refused now.
  EXPECT_EQ(refuse(R"({"objects": [], "objects": []})"), "bad.vex: objects: given twice");
}

}  // namespace
