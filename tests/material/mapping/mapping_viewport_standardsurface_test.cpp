// Viewport to standard surface: the type is required, the two bodies, values
// and textures passing through, and the bundle's defaults for absent ports.
#include <gtest/gtest.h>

#include "viewport_mapping_support.h"

namespace {

using namespace viewport_test;

vex::Result<vex::MappingOutput> ToStandardSurface(const std::shared_ptr<vex::ParameterSet>& set) {
  return Map(interop::mapping::classid::kViewportToStandardSurface, set);
}

TEST(ViewportToStandardSurface, AMissingOrUnknownTypeIsAnError) {
  for (auto set : {Viewport(), Viewport("glass")}) {
    set->SetConstant("base.color", vex::Color{0.5, 0.5, 0.5});
    auto out = ToStandardSurface(set);
    ASSERT_FALSE(out);
    EXPECT_EQ(out.error().message, "Unknown material type");
    EXPECT_EQ(out.error().unit, "mapping_viewport_standardsurface");
  }
  // A colliding hash is no error: nothing is converted.
  auto set = Viewport();
  set->SetConstant("type", Colliding("dielectric"));
  auto out = ToStandardSurface(set);
  ASSERT_TRUE(out);
  EXPECT_TRUE(out->target->IsEmpty());
  EXPECT_EQ(out->target->GetBundle(), vex::bundle::kStandardSurface);

  auto mapping = vex::CreateAs<vex::IMaterialMapping>(interop::mapping::classid::kViewportToStandardSurface);
  ASSERT_TRUE(mapping);
  auto none = (*mapping)->MapMaterialData(nullptr);
  ASSERT_FALSE(none);
  EXPECT_EQ(none.error().message, "Illegal state: Condition parametersPtr != nullptr not fulfilled. ");
}

TEST(ViewportToStandardSurface, MetalsDriveTheSpecularLobeWithTheirBaseColour) {
  auto set = Viewport("metal");
  const auto texture = Tex({0.9f, 0.6f, 0.2f, 1});
  set->Set("base.color", Textured(vex::Color{0.9, 0.6, 0.2}, texture));
  set->SetConstant("base.color_weight", 0.7);
  set->SetConstant("specular.color", vex::Color{0.1, 0.1, 0.1});  // not used by a metal
  set->SetConstant("transmissivity ", 0.5);
  auto out = ToStandardSurface(set);
  ASSERT_TRUE(out) << out.error().Describe();
  const auto& t = *out->target;
  EXPECT_EQ(Ports(t), (std::vector<std::string>{"metalness", "specular_roughness", "specular", "specular_color",
                                                "opacity", "surface_normal", "surface_normal_weight", "emission",
                                                "emission_color"}));
  EXPECT_EQ(Const<double>(t, "metalness"), 1.0);
  EXPECT_EQ(Const<vex::Color>(t, "specular_color"), (vex::Color{0.9, 0.6, 0.2}));
  EXPECT_EQ(TextureOn(t, "specular_color")->_pixels.get(), texture._pixels.get());
  EXPECT_EQ(Const<double>(t, "specular"), 0.7);
  EXPECT_FALSE(t.Has("base_color"));
  EXPECT_FALSE(t.Has("transmission"));
  EXPECT_EQ(RecordedAgainst(out->defaults, "specular.roughness"), "specular_roughness");
  EXPECT_EQ(out->defaults.Find("specular.color"), nullptr);
}

TEST(ViewportToStandardSurface, DielectricsPassValuesUnchangedAndTakeTheBundleDefaults) {
  auto set = Viewport("dielectric");
  set->SetConstant("alpha", 0.3);
  set->SetConstant("base.color", vex::Color{0.8, 0.1, 0.1});
  set->SetConstant("specular.roughness", 1.7);  // not clamped
  set->SetConstant("transmissivity ", 0.25);
  const auto normal = Tex({0.5f, 0.5f, 1, 1});
  set->Set("base.normal", Textured(vex::Vector3d{0.5, 0.5, 1}, normal));
  auto out = ToStandardSurface(set);
  ASSERT_TRUE(out);
  const auto& t = *out->target;
  EXPECT_EQ(Ports(t), (std::vector<std::string>{"metalness", "specular_roughness", "base", "base_color",
                                                "specular_IOR", "specular", "specular_color", "transmission",
                                                "opacity", "surface_normal", "surface_normal_weight", "emission",
                                                "emission_color"}));
  EXPECT_EQ(Const<double>(t, "metalness"), 0.0);
  EXPECT_EQ(Const<vex::Color>(t, "opacity"), (vex::Color{0.3, 0.3, 0.3}));
  EXPECT_EQ(Const<double>(t, "specular_roughness"), 1.7);
  EXPECT_EQ(Const<double>(t, "transmission"), 0.25);
  EXPECT_EQ(Const<vex::Color>(t, "base_color"), (vex::Color{0.8, 0.1, 0.1}));
  EXPECT_EQ(TextureOn(t, "surface_normal")->_pixels.get(), normal._pixels.get());
  // Absent float ports hand on the viewport bundle's declared defaults, and are recorded.
  EXPECT_EQ(Const<double>(t, "specular_IOR"), 1.5);
  EXPECT_EQ(RecordedAgainst(out->defaults, "specular.ior"), "specular_IOR");
  EXPECT_EQ(RecordedValue<double>(out->defaults, "specular.ior"), 1.5);
  EXPECT_EQ(Const<double>(t, "base"), 1.0);
  EXPECT_EQ(RecordedAgainst(out->defaults, "base.color_weight"), "base");
  EXPECT_EQ(Const<double>(t, "surface_normal_weight"), 1.0);
  EXPECT_EQ(Const<double>(t, "emission"), 1.0);
  EXPECT_EQ(RecordedAgainst(out->defaults, "emission.color"), "emission_color");

  // An absent alpha is the bundle's opaque 1, not inverted.
  out = ToStandardSurface(Viewport("dielectric"));
  ASSERT_TRUE(out);
  EXPECT_EQ(Const<vex::Color>(*out->target, "opacity"), (vex::Color{1, 1, 1}));
  EXPECT_EQ(Const<double>(*out->target, "specular_roughness"), 0.5);
  EXPECT_EQ(RecordedAgainst(out->defaults, "alpha"), "opacity");
  EXPECT_EQ(RecordedAgainst(out->defaults, "transmissivity "), "transmission");
}

TEST(ViewportToStandardSurface, ConstantsWriteEmissionAndSixZeroWeights) {
  auto set = Viewport("constant");
  set->SetConstant("emission.color", vex::Color{0.1, 0.6, 1});
  set->SetConstant("emission.color_weight", 3.0);  // the constant body emits at 1
  set->SetConstant("base.color", vex::Color{0.3, 0.3, 0.3});
  auto out = ToStandardSurface(set);
  ASSERT_TRUE(out);
  const auto& t = *out->target;
  EXPECT_EQ(Ports(t), (std::vector<std::string>{"emission", "emission_color", "base", "specular", "transmission",
                                                "subsurface", "coat", "sheen"}));
  EXPECT_EQ(Const<double>(t, "emission"), 1.0);
  EXPECT_EQ(Const<vex::Color>(t, "emission_color"), (vex::Color{0.1, 0.6, 1}));
  for (const char* weight : {"base", "specular", "transmission", "subsurface", "coat", "sheen"})
    EXPECT_EQ(Const<double>(t, weight), 0.0) << weight;
  EXPECT_TRUE(out->defaults.entries.empty());
}

}  // namespace
