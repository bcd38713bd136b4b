// The node path of the standard material's exporter: the target-bundle walk,
// the space exporter and the exchange exporter with its baked textures.
#include <gtest/gtest.h>

#include "material/materialexport_mmaterial_nodes.h"
#include "material_support.h"

namespace {

using namespace testing_support;
using interop::material::ChooseTargetBundle;

TEST(MaterialExportNodes, TargetBundleWalk) {
  const vex::Id p("p.bundle"), q("q.bundle"), r("r.bundle");
  const auto accepted = Accept({{"p.bundle", 1}, {"q.bundle", 0}, {"r.bundle", 1}});
  EXPECT_EQ(ChooseTargetBundle({p, r, q}, accepted), q);  // the value-0 match wins at once
  EXPECT_EQ(ChooseTargetBundle({p, r}, accepted), r);     // else the last fallback
  EXPECT_EQ(ChooseTargetBundle({q, p, r}, accepted), q);
  EXPECT_FALSE(ChooseTargetBundle({vex::Id("other")}, accepted).IsPopulated());
  EXPECT_FALSE(ChooseTargetBundle({}, accepted).IsPopulated());
}

TEST(MaterialExportNodes, WalkThroughTheSpaceAttributeAndNoSharedBundle) {
  ScratchDocument scratch("nodewalk");
  auto& space = Host().materials().AddSpace(
      "test.nodespace.walk",
      Host().materials().Space(vex::nodespace::kCorvane)->MutableAttributes());
  vex::DataArray list{vex::Id("p.bundle"), vex::Id(vex::bundle::kCorvane)};
  space.MutableAttributes().Set(std::string(vex::nodespace::kExchangeBundlesAttribute), list);
  auto m = scratch.Add(NodeMaterial("Walk", "test.nodespace.walk", vex::node::kCorvaneMaterial));
  auto exporter = NewExporter();
  // The Corvane bundle is the last fallback (value 1); p is not accepted at all.
  ASSERT_TRUE(exporter->Initialize(m, Description(Accept({{vex::bundle::kCorvane, 1}}), "test.nodespace.walk")));
  EXPECT_EQ((*exporter->GetParameters())->GetBundle(), vex::bundle::kCorvane);

  auto none = exporter->Initialize(m, Description(Accept({{vex::bundle::kGltf, 0}}), "test.nodespace.walk"));
  ASSERT_FALSE(none);
  EXPECT_EQ(none.error().message, "Illegal state: Condition targetMaterialTypeId.IsPopulated() == true not fulfilled. ");
  EXPECT_EQ(none.error().unit, "materialexport_mmaterial_nodes");
  auto after = exporter->GetParameters();
  ASSERT_FALSE(after);
  EXPECT_EQ(after.error().unit, "materialexport_mmaterial");
}

TEST(MaterialExportNodes, SpaceWithItsOwnExportClassIsNeverAskedForBundles) {
  ScratchDocument scratch("nodeown");
  auto* space = Host().materials().Space(host::kPreviewSpace);
  ASSERT_NE(space, nullptr);
  space->ClearQueries();
  auto m = scratch.Add(NodeMaterial("Glow", host::kPreviewSpace, host::kPreviewMaterialNode,
                                    Ports({{"color", vex::Color{0.2, 0.6, 0.3}}, {"opacity", 0.5}})));
  auto exporter = NewExporter();
  ASSERT_TRUE(exporter->Initialize(m, Description(Accept({{vex::bundle::kCorvane, 0}}), host::kPreviewSpace)));
  auto set = exporter->GetParameters();
  ASSERT_TRUE(set) << set.error().Describe();
  EXPECT_EQ((*set)->GetBundle(), vex::bundle::kGeneric);
  EXPECT_EQ(*(*set)->Find("diffuseColor")->Constant()->Get<vex::Color>(), (vex::Color{0.2, 0.6, 0.3}));
  EXPECT_EQ(*(*set)->Find("opacityColor")->Constant()->Get<vex::Color>(), (vex::Color{0.5, 0.5, 0.5}));
  for (const auto& q : space->Queries()) {
    EXPECT_NE(q, vex::nodespace::kExchangeBundlesAttribute);
    EXPECT_NE(q, vex::nodespace::kExchangeClassAttribute);
  }

  // The space exporter needs the material's document.
  auto loose = NodeMaterial("Loose", host::kPreviewSpace, host::kPreviewMaterialNode);
  auto outside = exporter->Initialize(loose, Description(Accept({{vex::bundle::kCorvane, 0}}), host::kPreviewSpace));
  ASSERT_FALSE(outside);
  EXPECT_EQ(outside.error().message, "Illegal state: Condition baseDocument != nullptr not fulfilled. ");
  EXPECT_EQ(outside.error().unit, "materialexport_mmaterial_nodes");
}

TEST(MaterialExportNodes, ExchangeExportWithBakedTextures) {
  ScratchDocument scratch("nodeexchange");
  scratch.Image("albedo.png", 8, 4, [](auto x, auto) { return std::array<float, 4>{x < 4 ? 1.f : 0.f, 0, 0, 1}; });
  auto m = scratch.Add(NodeMaterial("Wood", vex::nodespace::kCorvane, vex::node::kCorvaneMaterial,
                                    Ports({{"metalness", 0.25}, {"fresnel_type", std::string("metalness")},
                                           {"opacity.mute", true}, {"opacity", vex::Color{1, 1, 1}}})));
  Feed(*m, vex::nodespace::kCorvane,
       {"albedo", vex::Id(vex::node::kImage), Ports({{"file", std::string("albedo.png")}})}, "diffuse_color");
  auto exporter = NewExporter();
  ASSERT_TRUE(exporter->Initialize(m, Description(Accept({{vex::bundle::kCorvane, 0}}), vex::nodespace::kCorvane, 4,
                                                  vex::TextureResize::Fit)));
  auto set = exporter->GetParameters();
  ASSERT_TRUE(set) << set.error().Describe();
  EXPECT_EQ((*set)->GetBundle(), vex::bundle::kCorvane);
  EXPECT_DOUBLE_EQ(*(*set)->Find("metalness")->Constant()->Get<double>(), 0.25);
  EXPECT_EQ(*(*set)->Find("opacity")->properties.Find("mute")->Get<bool>(), true);
  const auto* ref = std::get_if<vex::ImageReference>(&(*set)->Find("diffuse_color")->value);
  ASSERT_NE(ref, nullptr);
  EXPECT_EQ(ref->bakePort, "diffuse_color");
  EXPECT_EQ(ref->url.text, "albedo.png");

  auto baked = exporter->GetTextures(vex::TextureRequest{"diffuse_color"});
  ASSERT_TRUE(baked) << baked.error().Describe();
  ASSERT_TRUE(baked->present);
  const auto& buffer = baked->textures.at(0).second;
  EXPECT_EQ(buffer._dimensions, (vex::Dimensions{4, 2}));  // fit: the longer side 4, aspect kept
  EXPECT_NEAR(buffer._pixels->Pixel(0)[0], 1.f, 1e-5);
  EXPECT_NEAR(buffer._pixels->Pixel(3)[0], 0.f, 1e-5);
  EXPECT_EQ(buffer.colorSpace, "sRGB");

  auto unconnected = exporter->GetTextures(vex::TextureRequest{"metalness"});
  ASSERT_FALSE(unconnected);
  EXPECT_NE(unconnected.error().message.find("has no texture input"), std::string::npos);

  // A material without a graph in the space.
  auto bare = scratch.Add(NodeMaterial("Bare", vex::nodespace::kViewport, vex::node::kViewportMaterial));
  auto noGraph = exporter->Initialize(bare, Description(Accept({{vex::bundle::kCorvane, 0}}), vex::nodespace::kCorvane));
  ASSERT_FALSE(noGraph);
  EXPECT_EQ(noGraph.error().message, "Illegal state: Condition this->PrivateGetGraph() not fulfilled. ");

  // An unknown space and a missing space id pass their errors through.
  EXPECT_EQ(exporter->Initialize(m, Description(Accept({{vex::bundle::kCorvane, 0}}), "no.such.space")).error().message,
            "Unknown node space: no.such.space");
  EXPECT_EQ(exporter->Initialize(m, Description(Accept({{vex::bundle::kCorvane, 0}}))).error().message,
            "Key not found: spaceId");
}

TEST(MaterialExportNodes, ViewportMaterialExportsInTheViewportBundle) {
  ScratchDocument scratch("nodeviewport");
  auto m = scratch.Add(NodeMaterial("Metal", vex::nodespace::kViewport, vex::node::kViewportMaterial,
                                    Ports({{"base.color", vex::Color{0.9, 0.9, 0.9}}, {"specular.ior", 2}})));
  auto exporter = NewExporter();
  ASSERT_TRUE(exporter->Initialize(
      m, Description(Accept({{vex::bundle::kCorvane, 0}, {vex::bundle::kViewport, 1}}), vex::nodespace::kViewport)));
  auto set = exporter->GetParameters();
  ASSERT_TRUE(set) << set.error().Describe();
  EXPECT_EQ((*set)->GetBundle(), vex::bundle::kViewport);
  EXPECT_DOUBLE_EQ(*(*set)->Find("specular.ior")->Constant()->Get<double>(), 2.0);  // a whole number read as Float
}

}  // namespace
