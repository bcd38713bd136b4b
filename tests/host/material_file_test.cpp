// Materials in the native scene file: every kind of material survives a save
// and a load, and malformed sections are refused with the place named.
#include <gtest/gtest.h>

#include "host/material_file.h"
#include "host/materials.h"
#include "host/scene_file.h"

namespace {

constexpr const char* kScene = R"({
  "format": "vexon-scene", "version": 1, "name": "m",
  "substanceAssets": [{"name": "Leather", "file": "leather.substance"}],
  "materials": [
    {"name": "Brick", "type": 5703, "parameters": {"2100": {"color": [0.6, 0.25, 0.15]}},
     "links": {"8000": {"shader": 5833, "parameters": {"1010": "brick.png"}}}},
    {"name": "Leather", "type": 5703, "links": {"8000": {"shader": 1032171, "assets": {"1000": "Leather"}}}},
    {"name": "Hair", "type": 1011136},
    {"name": "Wood", "type": 5703, "nodeBased": true,
     "graphs": {"com.corvane3d.corvane4vex.class.nodespace": {
       "endNode": "material",
       "nodes": [{"id": "material", "asset": "com.corvane3d.corvane4vex.node.standardmaterial",
                  "ports": {"metalness": {"float64": 0.5}, "fresnel_type": "metalness", "opacity.mute": true}},
                 {"id": "albedo", "asset": "net.kelvo.nodes.node.image", "ports": {"file": "wood.png"}}],
       "links": [{"from": "albedo", "to": "material", "port": "diffuse_color"}]}}}]})";

TEST(MaterialFile, EveryKindOfMaterialRoundTrips) {
  host::Document document("m");
  ASSERT_TRUE(host::scene_file::Parse(kScene, "m.vex", document));
  const auto& store = document.Materials();
  ASSERT_EQ(store.All().size(), 4u);
  const host::Material& brick = *store.All()[0];
  EXPECT_FALSE(brick.IsNodeBased());
  EXPECT_EQ(brick.GetDocument(), &document);
  EXPECT_EQ(*brick.Parameters().Find(2100)->Get<vex::Color>(), (vex::Color{0.6, 0.25, 0.15}));
  const vex::IShader* bitmap = brick.GetLink(8000, vex::kShaderBaseType);
  ASSERT_NE(bitmap, nullptr);
  EXPECT_EQ(bitmap->GetType(), 5833);
  EXPECT_EQ(brick.GetLink(8000, vex::kSubstanceShaderType), nullptr);  // a link of another type does not count
  const vex::IShader* substance = store.All()[1]->GetLink(8000, vex::kShaderBaseType);
  ASSERT_NE(substance, nullptr);
  EXPECT_EQ(substance->GetAssetLink(1000), store.FindAsset("Leather").get());
  EXPECT_EQ(store.All()[2]->GetType(), 1011136);
  const vex::NodeGraph* graph = store.All()[3]->GetGraph(vex::nodespace::kCorvane);
  ASSERT_NE(graph, nullptr);
  EXPECT_EQ(graph->Source("material", "diffuse_color")->id, "albedo");
  EXPECT_FALSE(document.IsChanged());

  auto text = host::scene_file::Dump(document);
  ASSERT_TRUE(text) << text.error().Describe();
  host::Document again("m");
  ASSERT_TRUE(host::scene_file::Parse(*text, "again.vex", again));
  auto twice = host::scene_file::Dump(again);
  ASSERT_TRUE(twice);
  EXPECT_EQ(*text, *twice);
}

TEST(MaterialFile, ScenesWithoutMaterialsKeepTheirForm) {
  host::Document document("plain");
  ASSERT_TRUE(host::scene_file::Parse(R"({"name": "plain", "objects": []})", "p.vex", document));
  auto text = host::scene_file::Dump(document);
  ASSERT_TRUE(text);
  EXPECT_EQ(text->find("materials"), std::string::npos);
}

TEST(MaterialFile, MalformedSectionsNameThePlace) {
  const struct {
    const char* text;
    const char* message;
  } cases[] = {
      {R"({"materials": [{"name": "A"}]})", "x.vex: materials[0]: a material needs \"name\" and \"type\""},
      {R"({"materials": [{"name": "A", "type": 5703, "links": {"8000": {"shader": 1032171, "assets": {"1000": "No"}}}}]})",
       "x.vex: materials[0].links.8000.assets.1000: no Substance asset \"No\""},
      {R"({"materials": [{"name": "A", "type": 5703, "graphs": {"s": {"endNode": "e", "nodes": []}}}]})",
       "x.vex: materials[0].graphs.s.endNode: no node \"e\" in the graph"},
      {R"({"materials": [{"name": "A", "type": 5703, "graphs": {"s": {"endNode": "e",
           "nodes": [{"id": "e", "asset": "x"}], "links": [{"from": "q", "to": "e", "port": "p"}]}}}]})",
       "x.vex: materials[0].graphs.s.links[0].from: no node \"q\""},
      {R"({"materials": [{"name": "A", "type": 5703, "colour": 1}]})", "x.vex: materials[0].colour: unknown key"},
      {R"({"materials": {}})", "x.vex: materials: expected an array of materials"},
  };
  for (const auto& c : cases) {
    host::Document document("x");
    auto parsed = host::scene_file::Parse(c.text, "x.vex", document);
    ASSERT_FALSE(parsed) << c.text;
    EXPECT_EQ(parsed.error().message, c.message);
  }
}

}  // namespace
