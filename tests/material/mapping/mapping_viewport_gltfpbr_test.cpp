// Viewport to glTF PBR: factors from constants, opacity and alpha mode,
// emission only where the material sets it, textures packed by glTF role.
#include <gtest/gtest.h>

#include "viewport_mapping_support.h"

namespace {

using namespace viewport_test;

vex::Result<vex::MappingOutput> ToGltf(const std::shared_ptr<vex::ParameterSet>& set) {
  return Map(interop::mapping::classid::kViewportToGltfPbr, set);
}

TEST(ViewportToGltf, AnEmptyMaterialIsAnOpaqueWhiteDielectric) {
  auto out = ToGltf(Viewport());
  ASSERT_TRUE(out) << out.error().Describe();
  const auto& t = *out->target;
  EXPECT_EQ(t.GetBundle(), vex::bundle::kGltf);
  EXPECT_EQ(Ports(t), (std::vector<std::string>{"metallicFactor", "roughnessFactor", "opacity", "alphaMode",
                                                "baseColorFactor"}));
  EXPECT_EQ(Const<double>(t, "metallicFactor"), 0.0);
  EXPECT_EQ(Const<double>(t, "roughnessFactor"), 0.5);
  EXPECT_EQ(Const<std::string>(t, "alphaMode"), "OPAQUE");
  EXPECT_EQ(Const<vex::ColorA>(t, "baseColorFactor"), (vex::ColorA{1, 1, 1, 1}));
  EXPECT_EQ(RecordedAgainst(out->defaults, "type"), "metallicFactor");
  EXPECT_EQ(RecordedAgainst(out->defaults, "base.color"), "baseColorFactor");
  EXPECT_EQ(RecordedAgainst(out->defaults, "specular.roughness"), "roughnessFactor");
  EXPECT_EQ(out->defaults.Find("emission.color"), nullptr);  // not read: the material sets no emission
}

TEST(ViewportToGltf, BaseColourTimesWeightAndAlphaIntoTheAlphaMode) {
  const struct {
    const char* type;
    std::optional<double> alpha;
    std::optional<double> transmissivity;
    double opacity;
  } cases[] = {{"metal", 0.25, std::nullopt, 0.25}, {"dielectric", 1.0, 0.4, 0.6}, {"dielectric", 3.0, 0.4, 0.6},
               {"dielectric", 1.0, std::nullopt, 1.0}, {"metal", std::nullopt, 0.4, 1.0}};
  for (const auto& c : cases) {
    auto set = Viewport(c.type);
    set->SetConstant("base.color", vex::Color{0.8, 0.4, 0.2});
    set->SetConstant("base.color_weight", 0.5);
    if (c.alpha) set->SetConstant("alpha", *c.alpha);
    if (c.transmissivity) set->SetConstant("transmissivity ", *c.transmissivity);
    auto out = ToGltf(set);
    ASSERT_TRUE(out);
    const auto& t = *out->target;
    EXPECT_EQ(Const<double>(t, "metallicFactor"), std::string(c.type) == "metal" ? 1.0 : 0.0);
    EXPECT_EQ(Const<vex::ColorA>(t, "baseColorFactor"), (vex::ColorA{0.4, 0.2, 0.1, c.opacity}));
    EXPECT_EQ(Const<double>(t, "opacity"), c.opacity);
    EXPECT_EQ(Const<std::string>(t, "alphaMode"), c.opacity < 1.0 ? "BLEND" : "OPAQUE");
  }
}

TEST(ViewportToGltf, EmissionIsWrittenForConstantsAndWhereTheMaterialSetsIt) {
  auto set = Viewport("constant");
  set->SetConstant("emission.color", vex::Color{0.1, 0.6, 1.0});
  set->SetConstant("emission.color_weight", 2.0);
  auto out = ToGltf(set);
  ASSERT_TRUE(out);
  EXPECT_EQ(Ports(*out->target), (std::vector<std::string>{"baseColorFactor", "metallicFactor", "roughnessFactor",
                                                           "alphaMode", "emissiveStrength", "emissiveFactor"}));
  EXPECT_EQ(Const<vex::ColorA>(*out->target, "baseColorFactor"), (vex::ColorA{0, 0, 0, 1}));
  EXPECT_EQ(Const<double>(*out->target, "emissiveStrength"), 2.0);
  EXPECT_EQ(Const<vex::Color>(*out->target, "emissiveFactor"), (vex::Color{0.1, 0.6, 1.0}));

  set = Viewport("dielectric");
  set->SetConstant("emission.color", vex::Color{0.5, 0.25, 0.0});
  out = ToGltf(set);
  ASSERT_TRUE(out);
  EXPECT_EQ(Const<vex::Color>(*out->target, "emissiveFactor"), (vex::Color{0.5, 0.25, 0.0}));
  EXPECT_FALSE(out->target->Has("emissiveStrength"));
  EXPECT_EQ(RecordedAgainst(out->defaults, "emission.color_weight"), "emissiveFactor");

  set->SetConstant("emission.color_weight", 0.0);
  out = ToGltf(set);
  ASSERT_TRUE(out);
  EXPECT_EQ(Const<vex::Color>(*out->target, "emissiveFactor"), (vex::Color{0, 0, 0}));
}

TEST(ViewportToGltf, TexturesArePackedByRole) {
  auto set = Viewport("dielectric");
  const auto base = Tex({0.8f, 0.4f, 0.2f, 1});
  set->Set("base.color", Textured(vex::Color{0.8, 0.4, 0.2}, base));
  set->SetConstant("base.color_weight", 0.5);
  set->Set("specular.roughness", Textured(0.3, Tex({0.7f, 0.3f, 0.9f, 1})));
  const auto normal = Tex({0.5f, 0.5f, 1, 1});
  set->Set("base.normal", Textured(vex::Vector3d{0.5, 0.5, 1}, normal));
  set->SetConstant("base.normal_weight", 0.8);
  set->SetConstant("specular.normal_weight", 0.0);
  auto out = ToGltf(set);
  ASSERT_TRUE(out) << out.error().Describe();
  const auto& t = *out->target;
  EXPECT_EQ(Const<vex::ColorA>(t, "baseColorFactor"), (vex::ColorA{0.5, 0.5, 0.5, 1}));
  ASSERT_NE(TextureOn(t, "baseColorTexture"), nullptr);
  EXPECT_EQ(PixelOf(*TextureOn(t, "baseColorTexture"), 0), (Pixel{0.8f, 0.4f, 0.2f, 1}));
  EXPECT_EQ(Const<double>(t, "roughnessFactor"), 1.0);
  ASSERT_NE(TextureOn(t, "metallicRoughnessTexture"), nullptr);
  EXPECT_EQ(PixelOf(*TextureOn(t, "metallicRoughnessTexture"), 3), (Pixel{0, 0.3f, 1, 1}));
  ASSERT_NE(TextureOn(t, "normalTexture"), nullptr);
  EXPECT_EQ(TextureOn(t, "normalTexture")->_pixels.get(), normal._pixels.get());
  EXPECT_EQ(Const<double>(t, "normalScale"), 0.8);

  // An alpha texture goes into the base colour's alpha; the factor's alpha stays 1.
  set->Set("alpha", Textured(0.5, Tex({0.5f, 0.5f, 0.5f, 0.5f})));
  out = ToGltf(set);
  ASSERT_TRUE(out);
  EXPECT_EQ(Const<std::string>(*out->target, "alphaMode"), "BLEND");
  EXPECT_EQ(Const<vex::ColorA>(*out->target, "baseColorFactor").a, 1.0);
  EXPECT_EQ(PixelOf(*TextureOn(*out->target, "baseColorTexture"), 0)[3], 0.5f);

  // A constant normal has no place in glTF.
  set = Viewport("metal");
  set->SetConstant("specular.normal", vex::Vector3d{0.5, 0.5, 1});
  out = ToGltf(set);
  ASSERT_TRUE(out);
  EXPECT_FALSE(out->target->Has("normalTexture"));
  EXPECT_FALSE(out->target->Has("normalScale"));

  auto colliding = Viewport();
  colliding->SetConstant("type", Colliding("metal"));
  out = ToGltf(colliding);
  ASSERT_TRUE(out);
  EXPECT_TRUE(out->target->IsEmpty());
}

}  // namespace
