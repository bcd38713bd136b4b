// Corvane to OBJ: weighted colours, the opacity mean, unchanged transfers and
// their textures, and the first error ending the run.
#include <gtest/gtest.h>

#include "corvane_mapping_support.h"
#include "material/mapping/mappings.h"

namespace {

using namespace corvane_test;

vex::Result<vex::MappingOutput> ToObj(const std::shared_ptr<vex::ParameterSet>& set) {
  return Map(interop::mapping::classid::kCorvaneToObj, set);
}

TEST(CorvaneToObj, WeightedColoursAndOpacityMean) {
  auto set = Corvane();
  set->SetConstant("diffuse_weight", 0.5);
  set->SetConstant("diffuse_color", vex::Color{1.0, 0.5, 0.0});
  set->SetConstant("reflection_weight", 0.2);
  set->SetConstant("reflection_color", vex::Color{1.0, 1.0, 0.5});
  set->SetConstant("emission_weight", 2.0);
  set->SetConstant("emission_color", vex::Color{0.25, 0.5, 1.0});
  set->SetConstant("opacity", vex::Color{1.0, 0.0, 0.5});
  auto out = ToObj(set);
  ASSERT_TRUE(out) << out.error().Describe();
  const auto& t = *out->target;
  EXPECT_EQ(t.GetBundle(), vex::bundle::kObj);
  EXPECT_EQ(Const<vex::Color>(t, "diffuse_color"), (vex::Color{0.5, 0.25, 0.0}));
  EXPECT_EQ(Const<vex::Color>(t, "specular_color"), (vex::Color{0.2, 0.2, 0.1}));
  // The emission weight is not clamped here.
  EXPECT_EQ(Const<vex::Color>(t, "emissive_color"), (vex::Color{0.5, 1.0, 2.0}));
  EXPECT_EQ(Const<double>(t, "opacity"), 1.5 * 0.3333333333333333);
  EXPECT_DOUBLE_EQ(Const<double>(t, "opacity"), 0.5);
  EXPECT_EQ(TextureOn(t, "opacity"), nullptr);

  // Every target port, in transfer order.
  std::vector<std::string> ports;
  for (const auto& [port, value] : t.Entries()) ports.push_back(port);
  EXPECT_EQ(ports, (std::vector<std::string>{"diffuse_color", "metallic", "specular_color", "roughness", "anisotropy",
                                             "anisotropy_rotation", "transmission_color", "transmission_ior",
                                             "opacity", "normal_map", "emissive_color"}));
}

TEST(CorvaneToObj, TexturesAreStoredUnscaledUnderTheirTargetNames) {
  auto set = Corvane();
  const auto specular = Tex({0.8f, 0.6f, 0.4f, 1});
  const auto opacity = Tex({0.5f, 0.5f, 0.5f, 1});
  const auto normal = Tex({0.5f, 0.5f, 1, 1});
  set->SetConstant("reflection_weight", 0.2);
  set->Set("reflection_color", Textured(vex::Color{1, 1, 1}, specular));
  set->Set("opacity", Textured(vex::Color{0.3, 0.6, 0.9}, opacity));
  set->Set("overall_normal", Textured(vex::Color{0.5, 0.5, 1}, normal));
  set->Set("reflection_roughness", Textured(0.25, Tex({0.25f, 0.25f, 0.25f, 1})));
  auto out = ToObj(set);
  ASSERT_TRUE(out);
  const auto& t = *out->target;
  ASSERT_NE(TextureOn(t, "specular_color"), nullptr);
  EXPECT_EQ(TextureOn(t, "specular_color")->_pixels, specular._pixels);
  EXPECT_EQ(PixelOf(*TextureOn(t, "specular_color"), 0), (Pixel{0.8f, 0.6f, 0.4f, 1}));
  EXPECT_EQ(Const<vex::Color>(t, "specular_color"), (vex::Color{1, 1, 1}));
  // Opacity: the mean of the constant, the texture beside it.
  EXPECT_DOUBLE_EQ(Const<double>(t, "opacity"), 0.6);
  EXPECT_EQ(TextureOn(t, "opacity")->_pixels, opacity._pixels);
  EXPECT_EQ(TextureOn(t, "normal_map")->_pixels, normal._pixels);
  EXPECT_EQ(Const<double>(t, "roughness"), 0.25);
  ASSERT_NE(TextureOn(t, "roughness"), nullptr);
}

TEST(CorvaneToObj, MetallicIgnoresTheFresnelModeAndDefaultsFillTheRest) {
  auto set = Corvane();
  set->SetConstant("fresnel_type", std::string("ior"));
  set->SetConstant("metalness", 0.7);
  auto out = ToObj(set);
  ASSERT_TRUE(out);
  const auto& t = *out->target;
  EXPECT_EQ(Const<double>(t, "metallic"), 0.7);
  // Corvane defaults: diffuse (0.5, 0.5, 0.5) at weight 1, emission weight 0, IOR 1.5.
  EXPECT_EQ(Const<vex::Color>(t, "diffuse_color"), (vex::Color{0.5, 0.5, 0.5}));
  EXPECT_EQ(Const<vex::Color>(t, "emissive_color"), (vex::Color{0, 0, 0}));
  EXPECT_EQ(Const<double>(t, "transmission_ior"), 1.5);
  EXPECT_EQ(Const<double>(t, "opacity"), 1.0);
}

TEST(CorvaneToObj, TheFirstReadErrorEndsTheMapping) {
  auto set = Corvane();
  set->SetConstant("reflection_aniso", std::string("strong"));
  auto out = ToObj(set);
  ASSERT_FALSE(out);
  EXPECT_EQ(out.error().kind, vex::ErrorKind::WrongDataType);
  EXPECT_EQ(out.error().message, "Invalid TypedConstantParameter");
  auto none = ToObj(nullptr);
  ASSERT_FALSE(none);
  EXPECT_EQ(none.error().message, "Illegal state: Condition parametersPtr != nullptr not fulfilled. ");
}

}  // namespace
