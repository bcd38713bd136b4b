// Corvane to USD Preview Surface: the ten steps, the placeholders of textured
// ports, the pixel pass and the mapping-path dump.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "corvane_mapping_support.h"
#include "mapping_dump_fixture.h"
#include "material/mapping/configuration.h"
#include "material/mapping/mappings.h"

namespace {

using namespace corvane_test;
namespace fs = std::filesystem;

vex::Result<vex::MappingOutput> ToUsd(const std::shared_ptr<vex::ParameterSet>& set) {
  return Map(interop::mapping::classid::kCorvaneToUsdPreviewSurface, set);
}

TEST(CorvaneToUsd, ZeroWeightsGiveBlackWithoutReadingTheColour) {
  auto set = Corvane();
  set->SetConstant("diffuse_weight", 0.0);
  set->Set("diffuse_color", Textured(vex::Color{1, 0, 0}, Tex({1, 0, 0, 1})));
  set->SetConstant("emission_weight", -1.0);
  set->SetConstant("emission_color", std::int32_t{3});  // never read
  auto out = ToUsd(set);
  ASSERT_TRUE(out) << out.error().Describe();
  const auto& t = *out->target;
  EXPECT_EQ(t.GetBundle(), vex::bundle::kUsdPreviewSurface);
  EXPECT_EQ(Const<vex::Color>(t, "diffuseColor"), (vex::Color{0, 0, 0}));
  EXPECT_EQ(TextureOn(t, "diffuseColor"), nullptr);
  EXPECT_EQ(Const<vex::Color>(t, "emissiveColor"), (vex::Color{0, 0, 0}));

  // Weighted colours go over unweighted; textures with the white placeholder.
  set->SetConstant("diffuse_weight", 0.5);
  set->SetConstant("emission_weight", 0.5);
  set->SetConstant("emission_color", vex::Color{0.2, 0.4, 0.6});
  out = ToUsd(set);
  ASSERT_TRUE(out);
  EXPECT_EQ(Const<vex::Color>(*out->target, "diffuseColor"), (vex::Color{1, 1, 1}));
  ASSERT_NE(TextureOn(*out->target, "diffuseColor"), nullptr);
  EXPECT_EQ(PixelOf(*TextureOn(*out->target, "diffuseColor"), 0), (Pixel{1, 0, 0, 1}));
  EXPECT_EQ(Const<vex::Color>(*out->target, "emissiveColor"), (vex::Color{0.2, 0.4, 0.6}));
}

TEST(CorvaneToUsd, NoReflectionMeansSpecularWorkflowWithoutMetalOrRoughness) {
  auto set = Corvane();
  set->SetConstant("reflection_weight", 0.0);
  set->SetConstant("fresnel_type", std::string("metalness"));
  set->SetConstant("metalness", 1.0);
  auto out = ToUsd(set);
  ASSERT_TRUE(out);
  const auto& t = *out->target;
  EXPECT_EQ(Const<std::string>(t, "workflow"), "specular");
  EXPECT_EQ(Const<vex::Color>(t, "specularColor"), (vex::Color{0, 0, 0}));
  EXPECT_FALSE(t.Has("metallic"));
  EXPECT_FALSE(t.Has("roughness"));

  // With reflection: the Fresnel mode picks the workflow, written last.
  set->SetConstant("reflection_weight", 1.0);
  set->SetConstant("reflection_roughness", 0.3);
  set->SetConstant("reflectivity", vex::Color{0.9, 0.8, 0.7});
  set->Set("metalness", Textured(1.0, Tex({0.5f, 0.5f, 0.5f, 1})));
  out = ToUsd(set);
  ASSERT_TRUE(out);
  EXPECT_EQ(Const<std::string>(*out->target, "workflow"), "metalness");
  EXPECT_EQ(Const<double>(*out->target, "metallic"), 1.0);  // placeholder beside the texture
  ASSERT_NE(TextureOn(*out->target, "metallic"), nullptr);
  EXPECT_EQ(Const<vex::Color>(*out->target, "specularColor"), (vex::Color{0.9, 0.8, 0.7}));
  EXPECT_EQ(Const<double>(*out->target, "roughness"), 0.3);

  set->SetConstant("fresnel_type", std::string("ior"));
  set->SetConstant("reflection_color", vex::Color{0.1, 0.2, 0.3});
  out = ToUsd(set);
  ASSERT_TRUE(out);
  EXPECT_EQ(Const<std::string>(*out->target, "workflow"), "specular");
  EXPECT_EQ(Const<double>(*out->target, "metallic"), 0.0);
  EXPECT_EQ(Const<vex::Color>(*out->target, "specularColor"), (vex::Color{0.1, 0.2, 0.3}));
}

TEST(CorvaneToUsd, ASetWithoutFresnelOrDisplacementTakesTheBundleDefaults) {
  // Fresnel mode "metalness" and displacement scale 0 are the Corvane bundle's defaults: the
  // metalness workflow, and no displacement unless the set asks for one.
  auto out = ToUsd(Corvane());
  ASSERT_TRUE(out) << out.error().Describe();
  const auto& t = *out->target;
  EXPECT_EQ(Const<std::string>(t, "workflow"), "metalness");
  EXPECT_EQ(Const<double>(t, "metallic"), 0.0);
  EXPECT_EQ(Const<vex::Color>(t, "specularColor"), (vex::Color{1, 1, 1}));
  EXPECT_EQ(Const<double>(t, "displacement"), 0.0);

  auto set = Corvane();
  set->SetConstant("metalness", 0.4);
  set->SetConstant("displacement_scale", 0.25);
  out = ToUsd(set);
  ASSERT_TRUE(out);
  EXPECT_EQ(Const<double>(*out->target, "metallic"), 0.4);
  EXPECT_EQ(Const<double>(*out->target, "displacement"), 0.25);
}

TEST(CorvaneToUsd, OpacityFromTheColourOrFromTransmission) {
  const struct {
    vex::Color opacity;
    double transmission;
    double expected;
  } cases[] = {{{1, 1, 1}, 0.3, 0.7}, {{1, 1, 1}, 1.5, 0.0}, {{1, 1, 1}, -0.5, 1.0},
               {{1, 1, 0.99}, 0.3, 2.99 * 0.3333333333333333}};
  for (const auto& c : cases) {
    auto set = Corvane();
    set->SetConstant("opacity", c.opacity);
    set->SetConstant("transmission_weight", c.transmission);
    auto out = ToUsd(set);
    ASSERT_TRUE(out);
    EXPECT_DOUBLE_EQ(Const<double>(*out->target, "opacity"), c.expected) << c.transmission;
  }
  EXPECT_NEAR(2.99 * 0.3333333333333333, 0.99667, 1e-5);
}

TEST(CorvaneToUsd, PixelPassGreysOpacityAndInvertsTransmission) {
  {
    auto set = Corvane();
    const auto opacity = Tex4({0.3f, 0.6f, 0.9f, 0.5f}, {1, 1, 1, 1}, {0, 0, 0, 0.25f}, {0.1f, 0.2f, 0.3f, 1});
    set->Set("opacity", Textured(vex::Color{0.3, 0.6, 0.9}, opacity));
    auto out = ToUsd(set);
    ASSERT_TRUE(out);
    const auto* t = TextureOn(*out->target, "opacity");
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->_pixels.get(), opacity._pixels.get());
    const float m0 = (0.3f + 0.6f + 0.9f) * 0.33333334f;
    EXPECT_EQ(PixelOf(*t, 0), (Pixel{m0, m0, m0, 0.5f}));
    EXPECT_EQ(PixelOf(*t, 2), (Pixel{0, 0, 0, 0.25f}));
    EXPECT_DOUBLE_EQ(Const<double>(*out->target, "opacity"), (0.3 + 0.6 + 0.9) * 0.3333333333333333);
  }
  {
    auto set = Corvane();
    const auto transmission = Tex4({0.25f, 0.25f, 0.25f, 1}, {1, 0.5f, 0, 0.5f}, {0, 0, 0, 0}, {1, 1, 1, 1});
    set->Set("transmission_weight", Textured(0.25, transmission));
    auto out = ToUsd(set);
    ASSERT_TRUE(out);
    const auto* t = TextureOn(*out->target, "opacity");
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->_pixels.get(), transmission._pixels.get());
    EXPECT_EQ(PixelOf(*t, 0), (Pixel{0.75f, 0.75f, 0.75f, 1}));
    EXPECT_EQ(PixelOf(*t, 1), (Pixel{0, 0.5f, 1, 0.5f}));
    EXPECT_EQ(Const<double>(*out->target, "opacity"), 0.75);
  }
  {  // other textures are stored unchanged; a buffer without pixels ends the run
    auto set = Corvane();
    set->Set("coat_weight", Textured(0.5, Tex({0.2f, 0.4f, 0.6f, 0.8f})));
    set->Set("reflection_ior", Textured(1.6, Tex({0.5f, 0.5f, 0.5f, 1})));
    auto out = ToUsd(set);
    ASSERT_TRUE(out);
    EXPECT_EQ(Const<double>(*out->target, "clearcoat"), 1.0);
    EXPECT_EQ(PixelOf(*TextureOn(*out->target, "clearcoat"), 0), (Pixel{0.2f, 0.4f, 0.6f, 0.8f}));
    EXPECT_EQ(Const<double>(*out->target, "ior"), 1.4);
    ASSERT_NE(TextureOn(*out->target, "ior"), nullptr);

    auto empty = Tex({0, 0, 0, 0});
    empty._pixels.reset();
    set->Set("coat_roughness", Textured(0.5, empty));
    out = ToUsd(set);
    ASSERT_FALSE(out);
    EXPECT_EQ(out.error().message, "Illegal state: Condition pixels not fulfilled. ");
    EXPECT_EQ(out.error().unit, "mapping_corvane_usdpreviewsurface");
  }
}

TEST(CorvaneToUsd, NormalsAndDisplacementWarnOutsideTheirSpaces) {
  const struct {
    vex::Color color;
    vex::Vector3d expected;
  } cases[] = {{{0.5, 0.5, 1.0}, {0, 0, 1}},
               {{0, 0, 0}, {0, 0, 1}},
               {{0.0005, 0, 0.0009}, {0, 0, 1}},
               {{1, 0.5, 0.5}, {1, 0, 0}},
               {{0.002, 0, 0}, {2 * 0.002 - 1, -1, -1}}};
  for (const auto& c : cases) {
    auto set = Corvane();
    set->SetConstant("overall_normal", c.color);
    auto out = ToUsd(set);
    ASSERT_TRUE(out);
    EXPECT_EQ(Const<vex::Vector3d>(*out->target, "normal"), c.expected) << c.color.r;
  }

  testing_support::ResetHostRecords();
  auto set = Corvane();
  set->SetConstant("normal_space", std::string("space_rgb_world"));
  set->SetConstant("displacement_space", std::string("space_vector"));
  set->SetConstant("displacement_scale", 0.2);
  auto out = ToUsd(set);
  ASSERT_TRUE(out);
  EXPECT_FALSE(out->target->Has("normal"));
  EXPECT_FALSE(out->target->Has("displacement"));
  const auto lines = ConsoleLines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_TRUE(IsDiagnostic(lines[0], "Corvane Nodes Export: Displacement maps can only be exported as heightfields",
                           "mapping_corvane_usdpreviewsurface"))
      << lines[0];
  EXPECT_TRUE(IsDiagnostic(lines[1], "Corvane Nodes Export: Normal maps can only be exported in tangent space",
                           "mapping_corvane_usdpreviewsurface"))
      << lines[1];

  set->SetConstant("displacement_space", std::string("space_heightfield"));
  set->Set("displacement_scale", Textured(0.2, Tex({0.1f, 0.1f, 0.1f, 1})));
  out = ToUsd(set);
  ASSERT_TRUE(out);
  EXPECT_EQ(Const<double>(*out->target, "displacement"), 0.0);
  ASSERT_NE(TextureOn(*out->target, "displacement"), nullptr);
}

class CorvaneToUsdDump : public testing_support::MappingDumpTest {
 protected:
  CorvaneToUsdDump() : MappingDumpTest(interop::mapping::kCorvaneUsdMappingPath, "corvane_usd_dump_") {}
};

TEST_F(CorvaneToUsdDump, WritesInputAndOutputOnlyWhenThePathIsSet) {
  auto set = Corvane();
  set->SetConstant("diffuse_color", vex::Color{0.1, 0.2, 0.3});
  ASSERT_TRUE(ToUsd(set));
  EXPECT_TRUE(Files(dir_).empty());

  SetPath(dir_);
  ASSERT_TRUE(ToUsd(set));
  const auto names = Files(dir_);
  ASSERT_EQ(names.size(), 2u);
  const auto prefix = names[0].substr(0, names[0].find('_'));
  EXPECT_EQ(names[0], prefix + "_mapping_input");
  EXPECT_EQ(names[1], prefix + "_mapping_output");
  std::ifstream input(dir_ / names[0]);
  const std::string text((std::istreambuf_iterator<char>(input)), std::istreambuf_iterator<char>());
  EXPECT_NE(text.find(vex::bundle::kCorvane), std::string::npos);
  EXPECT_NE(text.find("diffuse_color"), std::string::npos);
}

TEST_F(CorvaneToUsdDump, AMissingDirectoryFailsTheRunWithTheFileError) {
  SetPath(dir_ / "missing");
  auto out = ToUsd(Corvane());
  ASSERT_FALSE(out);
  EXPECT_EQ(out.error().kind, vex::ErrorKind::FileIO);
  EXPECT_TRUE(Files(dir_).empty());
}

}  // namespace
