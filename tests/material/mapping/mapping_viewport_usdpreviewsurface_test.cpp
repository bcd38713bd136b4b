// Viewport to USD Preview Surface: weighted colours, workflow, opacity from
// alpha or inverted transmissivity, the remapped normal, and the constant body.
#include <gtest/gtest.h>

#include <optional>

#include "material/mapping/mapping_viewport.h"
#include "viewport_mapping_support.h"

namespace {

using namespace viewport_test;

vex::Result<vex::MappingOutput> ToUsd(const std::shared_ptr<vex::ParameterSet>& set) {
  return Map(interop::mapping::classid::kViewportToUsdPreviewSurface, set);
}

TEST(ViewportToUsd, WeightsOfZeroGiveBlackWhateverTheColour) {
  auto set = Viewport("dielectric");
  set->SetConstant("base.color_weight", 0.0);
  set->Set("base.color", Textured(vex::Color{1, 0, 0}, Tex({1, 0, 0, 1})));
  set->SetConstant("specular.color", vex::Color{0.2, 0.3, 0.4});
  auto out = ToUsd(set);
  ASSERT_TRUE(out) << out.error().Describe();
  const auto& t = *out->target;
  EXPECT_EQ(Const<vex::Color>(t, "diffuseColor"), (vex::Color{0, 0, 0}));
  EXPECT_EQ(TextureOn(t, "diffuseColor"), nullptr);
  EXPECT_EQ(Const<vex::Color>(t, "specularColor"), (vex::Color{0.2, 0.3, 0.4}));
  // Only the colour of a weighted colour is recorded; its weight gates without being recorded.
  EXPECT_EQ(RecordedAgainst(out->defaults, "specular.color"), "");
  EXPECT_EQ(RecordedAgainst(out->defaults, "specular.color_weight"), "");

  set->SetConstant("base.color_weight", 0.5);  // the weight gates, it does not scale
  out = ToUsd(set);
  ASSERT_TRUE(out);
  EXPECT_EQ(Const<vex::Color>(*out->target, "diffuseColor"), (vex::Color{1, 0, 0}));
  ASSERT_NE(TextureOn(*out->target, "diffuseColor"), nullptr);
  EXPECT_FALSE(out->target->Has("emissiveColor"));  // lit materials do not emit here
}

TEST(ViewportToUsd, MetalsTakeTheMetalnessWorkflow) {
  auto metal = ToUsd(Viewport("metal"));
  ASSERT_TRUE(metal);
  EXPECT_EQ(Ports(*metal->target), (std::vector<std::string>{"metallic", "roughness", "workflow", "diffuseColor",
                                                             "ior", "specularColor", "opacity", "normal"}));
  EXPECT_EQ(Const<double>(*metal->target, "metallic"), 1.0);
  EXPECT_EQ(Const<std::string>(*metal->target, "workflow"), "metalness");
  EXPECT_EQ(metal->defaults.Find("type"), nullptr);

  for (auto set : {Viewport("dielectric"), Viewport("glass"), Viewport()}) {
    set->SetConstant("specular.ior", 1.33);
    set->SetConstant("specular.roughness", 0.2);
    auto out = ToUsd(set);
    ASSERT_TRUE(out);
    EXPECT_EQ(Const<double>(*out->target, "metallic"), 0.0);
    EXPECT_EQ(Const<std::string>(*out->target, "workflow"), "specular");
    EXPECT_EQ(Const<double>(*out->target, "ior"), 1.33);
    EXPECT_EQ(Const<double>(*out->target, "roughness"), 0.2);
  }
  // Only an absent type is recorded, against "metallic".
  auto empty = ToUsd(Viewport());
  ASSERT_TRUE(empty);
  // The whole table of an empty set: the weights of the weighted colours are not in it, and the
  // table is sized for the seven entries.
  EXPECT_EQ(Recorded(empty->defaults), (std::vector<std::string>{"type", "specular.roughness", "base.color",
                                                                 "specular.ior", "specular.color", "alpha",
                                                                 "base.normal"}));
  EXPECT_EQ(empty->defaults.capacity, interop::mapping::viewport::DefaultsCapacity(7));
  EXPECT_EQ(RecordedAgainst(empty->defaults, "type"), "metallic");
  EXPECT_EQ(RecordedValue<double>(empty->defaults, "type"), 0.0);
  EXPECT_EQ(Const<double>(*empty->target, "roughness"), 0.5);
  EXPECT_EQ(Const<double>(*empty->target, "opacity"), 1.0);
  // The zero-vector default normal remaps like any stored normal.
  EXPECT_EQ(Const<vex::Vector3d>(*empty->target, "normal"), (vex::Vector3d{-1, -1, -1}));
  EXPECT_EQ(RecordedAgainst(empty->defaults, "base.normal"), "normal");

  auto colliding = Viewport();
  colliding->SetConstant("type", Colliding("constant"));
  auto nothing = ToUsd(colliding);
  ASSERT_TRUE(nothing);
  EXPECT_TRUE(nothing->target->IsEmpty());
}

TEST(ViewportToUsd, AlphaIsUsedDirectlyAndTransmissivityInverted) {
  const struct {
    std::optional<double> alpha;
    std::optional<double> transmissivity;
    double opacity;
    bool transmissivityRecorded;
  } cases[] = {{1.0, 0.25, 0.75, false},
               {0.4, 0.25, 0.4, false},
               {0.4, std::nullopt, 0.4, false},
               {0.25, std::nullopt, 0.25, false},
               {3.0, 0.25, 0.75, false},
               {3.0, 1.5, 0.0, false},
               {1.0, -2.0, 1.0, false},
               {1.0, std::nullopt, 1.0, true},
               {-0.5, 0.25, 0.0, false},
               {std::nullopt, 0.25, 1.0, false}};
  for (const auto& c : cases) {
    auto set = Viewport("dielectric");
    if (c.alpha) set->SetConstant("alpha", *c.alpha);
    if (c.transmissivity) set->SetConstant("transmissivity ", *c.transmissivity);
    auto out = ToUsd(set);
    ASSERT_TRUE(out);
    EXPECT_EQ(Const<double>(*out->target, "opacity"), c.opacity) << c.alpha.value_or(-9);
    EXPECT_EQ(RecordedAgainst(out->defaults, "transmissivity "), c.transmissivityRecorded ? "opacity" : "");
    EXPECT_EQ(RecordedAgainst(out->defaults, "alpha"), c.alpha ? "" : "opacity");
  }
}

TEST(ViewportToUsd, NormalsAreRemappedToMinusOneToOne) {
  auto set = Viewport("dielectric");
  set->SetConstant("base.normal", vex::Vector3d{0.5, 0.5, 1.0});
  auto out = ToUsd(set);
  ASSERT_TRUE(out);
  EXPECT_EQ(Const<vex::Vector3d>(*out->target, "normal"), (vex::Vector3d{0, 0, 1}));
  set->SetConstant("base.normal", vex::Vector3d{1.0, 0.25, 0.75});
  out = ToUsd(set);
  ASSERT_TRUE(out);
  EXPECT_EQ(Const<vex::Vector3d>(*out->target, "normal"), (vex::Vector3d{1, -0.5, 0.5}));
}

TEST(ViewportToUsd, ConstantsWriteOnlyEmissionAndWorkflow) {
  auto set = Viewport("constant");
  set->SetConstant("emission.color", vex::Color{0.1, 0.6, 1});
  set->SetConstant("base.color", vex::Color{0.3, 0.3, 0.3});
  set->SetConstant("alpha", 0.5);
  auto out = ToUsd(set);
  ASSERT_TRUE(out);
  EXPECT_EQ(Ports(*out->target), (std::vector<std::string>{"emissiveColor", "workflow"}));
  EXPECT_EQ(Const<vex::Color>(*out->target, "emissiveColor"), (vex::Color{0.1, 0.6, 1}));
  EXPECT_EQ(Const<std::string>(*out->target, "workflow"), "specular");

  EXPECT_TRUE(out->defaults.entries.empty());  // an absent emission weight is not recorded

  set->SetConstant("emission.color_weight", -1.0);
  out = ToUsd(set);
  ASSERT_TRUE(out);
  EXPECT_EQ(Const<vex::Color>(*out->target, "emissiveColor"), (vex::Color{0, 0, 0}));
  set->Erase("emission.color");
  out = ToUsd(set);
  ASSERT_TRUE(out);
  EXPECT_EQ(Recorded(out->defaults), (std::vector<std::string>{"emission.color"}));
  EXPECT_EQ(RecordedAgainst(out->defaults, "emission.color"), "emissiveColor");
}

}  // namespace
