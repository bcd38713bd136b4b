// The native scene file: what it holds survives a round trip, and bad files
// are refused with the file and the place named.
#include "host/scene_file.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "host/units.h"
#include "vex/material.h"

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

}  // namespace
