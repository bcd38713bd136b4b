// Corvane <-> glTF metallic-roughness: the export's three steps, the import
// direction and the round trip. The packing of textures has its own file.
#include <gtest/gtest.h>

#include <bit>
#include <cstdint>

#include "corvane_mapping_support.h"
#include "material/mapping/mappings.h"
#include "material/mapping/materialmapping.h"

namespace {

std::vector<std::string> PortsOf(const vex::ParameterSet& set) {
  std::vector<std::string> names;
  for (const auto& [port, unused] : set.Entries()) names.push_back(port);
  return names;
}

using namespace corvane_test;
using interop::mapping::classid::kCorvaneToGltfPbr;

vex::Result<vex::MappingOutput> ToGltf(const std::shared_ptr<vex::ParameterSet>& set) {
  return Map(kCorvaneToGltfPbr, set);
}

TEST(CorvaneToGltf, OpacityDecidesAlphaAndAlphaMode) {
  {  // constant translucent opacity: the alpha of the factor, "opacity" untouched
    auto set = Corvane();
    set->SetConstant("opacity", vex::Color{0.5, 0.5, 0.5});
    set->SetConstant("transmission_weight", 0.0);
    set->SetConstant("diffuse_color", vex::Color{1.0, 1.0, 1.0});
    auto out = ToGltf(set);
    ASSERT_TRUE(out) << out.error().Describe();
    const auto& t = *out->target;
    EXPECT_EQ(t.GetBundle(), vex::bundle::kGltf);
    EXPECT_FALSE(t.Has("opacity"));
    EXPECT_EQ(Const<std::string>(t, "alphaMode"), "BLEND");
    EXPECT_DOUBLE_EQ(Const<vex::ColorA>(t, "baseColorFactor").a, 0.5);
  }
  {  // within 0.0001 of opaque: no alpha mode, the alpha still carried
    auto set = Corvane();
    set->SetConstant("opacity", vex::Color{1.0, 1.0, 0.9999});
    auto out = ToGltf(set);
    ASSERT_TRUE(out);
    EXPECT_FALSE(out->target->Has("alphaMode"));
    EXPECT_DOUBLE_EQ(Const<vex::ColorA>(*out->target, "baseColorFactor").a, 2.9999 * 0.3333333333333333);
  }
  {  // textured opacity: mean as "opacity", BLEND, factor alpha 1
    auto set = Corvane();
    set->Set("opacity", Textured(vex::Color{0.2, 0.4, 0.9}, Tex({1, 1, 1, 1})));
    auto out = ToGltf(set);
    ASSERT_TRUE(out);
    EXPECT_DOUBLE_EQ(Const<double>(*out->target, "opacity"), (0.2 + 0.4 + 0.9) * 0.3333333333333333);
    EXPECT_EQ(Const<std::string>(*out->target, "alphaMode"), "BLEND");
    EXPECT_EQ(Const<vex::ColorA>(*out->target, "baseColorFactor").a, 1.0);
  }
  {  // textured transmission: BLEND, the constant inverted like the texels
    auto set = Corvane();
    set->Set("transmission_weight", Textured(0.25, Tex({0.25f, 0.25f, 0.25f, 1})));
    auto out = ToGltf(set);
    ASSERT_TRUE(out);
    EXPECT_DOUBLE_EQ(Const<double>(*out->target, "opacity"), 0.75);
    EXPECT_EQ(Const<std::string>(*out->target, "alphaMode"), "BLEND");
    ASSERT_NE(TextureOn(*out->target, "baseColorTexture"), nullptr);
  }
}

TEST(CorvaneToGltf, DiffuseWeightScalesConstantsAndBecomesTheFactorOfATexture) {
  auto set = Corvane();
  set->SetConstant("diffuse_weight", 0.5);
  set->SetConstant("diffuse_color", vex::Color{1.0, 0.5, 0.0});
  auto out = ToGltf(set);
  ASSERT_TRUE(out);
  EXPECT_EQ(Const<vex::ColorA>(*out->target, "baseColorFactor"), (vex::ColorA{0.5, 0.25, 0.0, 1.0}));
  EXPECT_FALSE(out->target->Has("baseColorTexture"));

  set->Set("diffuse_color", Textured(vex::Color{0.9, 0.8, 0.7}, Tex({0.1f, 0.2f, 0.3f, 1})));
  out = ToGltf(set);
  ASSERT_TRUE(out);
  EXPECT_EQ(Const<vex::ColorA>(*out->target, "baseColorFactor"), (vex::ColorA{0.5, 0.5, 0.5, 1.0}));
  EXPECT_EQ(Const<vex::ColorA>(*out->target, "baseColorTexture"), (vex::ColorA{0.9, 0.8, 0.7, 1.0}));
  ASSERT_NE(TextureOn(*out->target, "baseColorTexture"), nullptr);

  // A textured weight counts as 1.
  set->Set("diffuse_weight", Textured(0.5, Tex({0.5f, 0.5f, 0.5f, 1})));
  set->SetConstant("diffuse_color", vex::Color{0.4, 0.2, 0.1});
  out = ToGltf(set);
  ASSERT_TRUE(out);
  EXPECT_EQ(Const<vex::ColorA>(*out->target, "baseColorFactor"), (vex::ColorA{0.4, 0.2, 0.1, 1.0}));
}

TEST(CorvaneToGltf, MetalnessOnlyInMetalnessModeAndRoughnessUnderTheBitRule) {
  {  // another Fresnel mode: metal 0 even with a texture, which is not collected
    auto set = Corvane();
    set->SetConstant("fresnel_type", std::string("ior"));
    set->Set("metalness", Textured(1.0, Tex({1, 1, 1, 1})));
    set->SetConstant("reflection_roughness", 0.4);
    auto out = ToGltf(set);
    ASSERT_TRUE(out);
    EXPECT_EQ(Const<double>(*out->target, "metallicFactor"), 0.0);
    EXPECT_EQ(Const<double>(*out->target, "roughnessFactor"), 0.4);
    EXPECT_FALSE(out->target->Has("metallicRoughnessTexture"));
  }
  {  // metalness mode: constant metal as the factor, textured metal as the packed texture
    auto set = Corvane();
    set->SetConstant("fresnel_type", std::string("metalness"));
    set->SetConstant("metalness", 0.8);
    auto out = ToGltf(set);
    ASSERT_TRUE(out);
    EXPECT_EQ(Const<double>(*out->target, "metallicFactor"), 0.8);
    set->Set("metalness", Textured(0.8, Tex({0.6f, 0.6f, 0.6f, 1})));
    out = ToGltf(set);
    ASSERT_TRUE(out);
    EXPECT_FALSE(out->target->Has("metallicFactor"));
    const auto* packed = TextureOn(*out->target, "metallicRoughnessTexture");
    ASSERT_NE(packed, nullptr);
    EXPECT_EQ(PixelOf(*packed, 0), (Pixel{0, 0.6f, 1, 1}));
  }
  // "reflection_weight" equals 0.0 when the bit patterns are less than 8 apart.
  const struct {
    double weight;
    bool roughness;
  } cases[] = {{0.0, false},
               {std::bit_cast<double>(std::int64_t{7}), false},
               {std::bit_cast<double>(std::int64_t{8}), true},
               {-0.0, true},
               {0.5, true}};
  for (const auto& c : cases) {
    auto set = Corvane();
    set->SetConstant("reflection_weight", c.weight);
    set->SetConstant("reflection_roughness", 0.3);
    auto out = ToGltf(set);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->target->Has("roughnessFactor"), c.roughness) << c.weight;
  }
  // Zero weight: no roughness texture either; a textured weight never skips roughness.
  auto set = Corvane();
  set->SetConstant("reflection_weight", 0.0);
  set->Set("reflection_roughness", Textured(0.3, Tex({0.3f, 0.3f, 0.3f, 1})));
  auto out = ToGltf(set);
  ASSERT_TRUE(out);
  EXPECT_FALSE(out->target->Has("metallicRoughnessTexture"));
  set->Set("reflection_weight", Textured(0.0, Tex({0, 0, 0, 1})));
  out = ToGltf(set);
  ASSERT_TRUE(out);
  EXPECT_EQ(Const<double>(*out->target, "roughnessFactor"), 1.0);
  ASSERT_NE(TextureOn(*out->target, "metallicRoughnessTexture"), nullptr);
}

TEST(CorvaneToGltf, EmissionWeightIsClampedAndATexturedWeightExportsNoEmission) {
  const struct {
    double weight;
    vex::Color expected;
  } cases[] = {{3.0, {0.2, 0.4, 0.6}}, {-1.0, {0, 0, 0}}, {0.5, {0.1, 0.2, 0.3}}};
  for (const auto& c : cases) {
    auto set = Corvane();
    set->SetConstant("emission_weight", c.weight);
    set->SetConstant("emission_color", vex::Color{0.2, 0.4, 0.6});
    auto out = ToGltf(set);
    ASSERT_TRUE(out);
    EXPECT_EQ(Const<vex::Color>(*out->target, "emissiveFactor"), c.expected) << c.weight;
  }
  auto set = Corvane();
  set->SetConstant("emission_weight", 2.0);
  set->Set("emission_color", Textured(vex::Color{1, 1, 1}, Tex({1, 0, 0, 1})));
  auto out = ToGltf(set);
  ASSERT_TRUE(out);
  EXPECT_EQ(Const<vex::Color>(*out->target, "emissiveFactor"), (vex::Color{1, 1, 1}));
  ASSERT_NE(TextureOn(*out->target, "emissiveTexture"), nullptr);

  set->Set("emission_weight", Textured(1.0, Tex({1, 1, 1, 1})));
  out = ToGltf(set);
  ASSERT_TRUE(out);
  EXPECT_FALSE(out->target->Has("emissiveFactor"));
  EXPECT_FALSE(out->target->Has("emissiveTexture"));
}

TEST(CorvaneToGltf, NormalMapsOnlyInTangentSpaceAndOcclusionFromTheTint) {
  testing_support::ResetHostRecords();
  auto set = Corvane();
  set->SetConstant("normal_space", std::string("space_rgb_object"));
  set->Set("overall_normal", Textured(vex::Color{0.5, 0.5, 1}, Tex({0.5f, 0.5f, 1, 1})));
  auto out = ToGltf(set);
  ASSERT_TRUE(out);
  EXPECT_FALSE(out->target->Has("normalTexture"));
  EXPECT_FALSE(out->target->Has("normalScale"));
  const auto lines = ConsoleLines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_TRUE(IsDiagnostic(lines[0], "Corvane Material Export: Normal maps can only be exported in tangent space",
                           "mapping_corvane_gltfpbr"))
      << lines[0];

  testing_support::ResetHostRecords();
  set->SetConstant("normal_space", std::string("space_rgb_tangent"));
  set->SetConstant("overall_normal_weight", 0.7);
  out = ToGltf(set);
  ASSERT_TRUE(out);
  EXPECT_EQ(Const<double>(*out->target, "normalScale"), 0.7);
  ASSERT_NE(TextureOn(*out->target, "normalTexture"), nullptr);
  EXPECT_TRUE(ConsoleLines().empty());

  set->SetConstant("overall_normal_weight", 0.0);
  out = ToGltf(set);
  ASSERT_TRUE(out);
  EXPECT_EQ(Const<double>(*out->target, "normalScale"), 0.0);
  EXPECT_FALSE(out->target->Has("normalTexture"));

  EXPECT_FALSE(out->target->Has("occlusionStrength"));
  set->Set("overall_tint", Textured(vex::Color{1, 1, 1}, Tex({0.2f, 0.4f, 0.6f, 0.8f})));
  out = ToGltf(set);
  ASSERT_TRUE(out);
  EXPECT_EQ(Const<double>(*out->target, "occlusionStrength"), 1.0);
  const auto* occlusion = TextureOn(*out->target, "occlusionTexture");
  ASSERT_NE(occlusion, nullptr);
  EXPECT_EQ(PixelOf(*occlusion, 3), (Pixel{(0.2f + 0.4f + 0.6f + 0.8f) * 0.25f, 0, 0, 1}));
}

TEST(CorvaneToGltf, MissingPortsReadTheCorvaneDefaultsAndReadErrorsEndTheRun) {
  auto out = ToGltf(Corvane());
  ASSERT_TRUE(out) << out.error().Describe();
  const auto& t = *out->target;
  EXPECT_EQ(Const<vex::ColorA>(t, "baseColorFactor"), (vex::ColorA{0.5, 0.5, 0.5, 1.0}));
  EXPECT_EQ(Const<double>(t, "metallicFactor"), 0.0);  // the default metalness, in the default metalness mode
  EXPECT_EQ(Const<double>(t, "roughnessFactor"), 0.0);
  EXPECT_EQ(Const<vex::Color>(t, "emissiveFactor"), (vex::Color{0, 0, 0}));
  EXPECT_EQ(Const<double>(t, "normalScale"), 1.0);
  EXPECT_FALSE(t.Has("alphaMode"));

  // The default Fresnel mode is "metalness": a set that only gives its metalness exports it.
  auto metal = Corvane();
  metal->SetConstant("metalness", 0.7);
  auto metalOut = ToGltf(metal);
  ASSERT_TRUE(metalOut);
  EXPECT_EQ(Const<double>(*metalOut->target, "metallicFactor"), 0.7);

  auto set = Corvane();
  set->SetConstant("fresnel_type", std::string("metalness"));
  set->SetConstant("metalness", std::int32_t{1});
  auto failed = ToGltf(set);
  ASSERT_FALSE(failed);
  EXPECT_EQ(failed.error().kind, vex::ErrorKind::WrongDataType);
  EXPECT_EQ(failed.error().message, "Invalid TypedConstantParameter");

  auto none = ToGltf(nullptr);
  ASSERT_FALSE(none);
  EXPECT_EQ(none.error().message, "Illegal state: Condition parametersPtr != nullptr not fulfilled. ");

  auto mapping = vex::CreateAs<vex::IMaterialMapping>(kCorvaneToGltfPbr);
  ASSERT_TRUE(mapping);
  EXPECT_TRUE((*mapping)->PassOne(vex::ParameterSet(vex::Id(vex::bundle::kCorvane))));
  EXPECT_TRUE((*mapping)->PassOne(vex::ParameterSet(vex::Id(vex::bundle::kGltf))));
  EXPECT_FALSE((*mapping)->PassOne(vex::ParameterSet(vex::Id(vex::bundle::kObj))));
  EXPECT_FALSE((*mapping)->MapMaterialData(std::make_shared<vex::ParameterSet>(vex::Id(vex::bundle::kObj))));
}

// --- import ---------------------------------------------------------------------------------------

std::shared_ptr<vex::ParameterSet> Gltf() { return std::make_shared<vex::ParameterSet>(vex::Id(vex::bundle::kGltf)); }

std::string StringProperty(const vex::Parameter& p, std::string_view key) {
  const vex::Data* d = p.properties.Find(key);
  return (d != nullptr && d->Get<std::string>() != nullptr) ? *d->Get<std::string>() : std::string("<none>");
}

TEST(GltfToCorvane, TexturesCarryColourSpaceChannelAndScale) {
  testing_support::ResetHostRecords();
  const auto base = Tex({0.5f, 0.5f, 0.5f, 0.5f});
  const auto metalRough = Tex({0, 0.3f, 0.7f, 1});
  auto set = Gltf();
  set->SetConstant("baseColorFactor", vex::ColorA{0.8, 0.6, 0.4, 0.5});
  set->Set("baseColorTexture", Textured(vex::ColorA{1, 1, 1, 1}, base));
  set->SetConstant("alphaMode", std::string("BLEND"));
  set->SetConstant("metallicFactor", 0.9);
  set->SetConstant("roughnessFactor", 0.6);
  set->Set("metallicRoughnessTexture", Textured(vex::ColorA{1, 1, 1, 1}, metalRough));
  set->SetConstant("normalScale", 0.8);
  set->Set("normalTexture", Textured(vex::ColorA{0.5, 0.5, 1, 1}, Tex({0.5f, 0.5f, 1, 1})));
  set->SetConstant("occlusionStrength", 0.6);
  set->Set("occlusionTexture", Textured(vex::ColorA{1, 1, 1, 1}, Tex({0.9f, 0, 0, 1})));
  set->SetConstant("emissiveFactor", vex::Color{1, 0.5, 0});
  set->Set("emissiveTexture", Textured(vex::ColorA{1, 1, 1, 1}, Tex({1, 1, 1, 1})));

  auto out = ToGltf(set);
  ASSERT_TRUE(out) << out.error().Describe();
  const auto& c = *out->target;
  EXPECT_EQ(c.GetBundle(), vex::bundle::kCorvane);

  const struct {
    const char* port;
    const char* colorSpace;
    const char* channel;
    double scale;
  } expected[] = {{"diffuse_color", "sRGB", "<none>", 1.0},      {"opacity", "raw", "a", 0.5},
                  {"reflection_roughness", "raw", "g", 0.6},     {"metalness", "raw", "b", 0.9},
                  {"overall_normal", "raw", "<none>", 1.0},      {"overall_tint", "raw", "r", 0.6},
                  {"emission_color", "sRGB", "<none>", 1.0}};
  for (const auto& e : expected) {
    const vex::Parameter* p = c.Find(e.port);
    ASSERT_NE(p, nullptr) << e.port;
    ASSERT_TRUE(p->texture) << e.port;
    EXPECT_EQ(StringProperty(*p, "colorSpace"), e.colorSpace) << e.port;
    EXPECT_EQ(StringProperty(*p, "channelSelect"), e.channel) << e.port;
    ASSERT_NE(p->properties.Find("valueScale"), nullptr) << e.port;
    EXPECT_EQ(*p->properties.Find("valueScale")->Get<double>(), e.scale) << e.port;
    EXPECT_EQ(*p->properties.Find("makeImplicit")->Get<bool>(), true) << e.port;
  }
  // The base colour factor tints the texture as the constant beside it; opacity reads the same pixels.
  EXPECT_EQ(Const<vex::Color>(c, "diffuse_color"), (vex::Color{0.8, 0.6, 0.4}));
  EXPECT_EQ(c.Find("opacity")->texture->_pixels, base._pixels);
  EXPECT_EQ(c.Find("metalness")->texture->_pixels, metalRough._pixels);
  EXPECT_EQ(Const<double>(c, "reflection_roughness"), 0.6);
  // The import writes exactly the ports its table names: no Fresnel mode, which the Corvane
  // bundle's default ("metalness") supplies, so the imported metal stays metal.
  EXPECT_FALSE(c.Has("fresnel_type"));
  const auto* fresnelDefault = interop::mapping::BundleDefaults(vex::Id(vex::bundle::kCorvane))->Find("fresnel_type");
  ASSERT_NE(fresnelDefault, nullptr);
  EXPECT_EQ(*fresnelDefault->Constant()->Get<std::string>(), "metalness");
  EXPECT_EQ(PortsOf(c), (std::vector<std::string>{"diffuse_color", "opacity", "reflection_roughness", "metalness",
                                                "overall_normal", "overall_normal_weight", "overall_tint",
                                                "emission_color", "emission_weight"}));
  EXPECT_EQ(Const<double>(c, "overall_normal_weight"), 0.8);
  EXPECT_EQ(Const<vex::Color>(c, "emission_color"), (vex::Color{1, 0.5, 0}));
  // Emission weight always comes last.
  EXPECT_EQ(c.Entries().back().first, "emission_weight");
  EXPECT_EQ(Const<double>(c, "emission_weight"), 1.0);
  EXPECT_TRUE(ConsoleLines().empty());
}

TEST(GltfToCorvane, AlphaModes) {
  auto set = Gltf();
  set->SetConstant("alphaMode", std::string("OPAQUE"));
  auto out = ToGltf(set);
  ASSERT_TRUE(out);
  const vex::Parameter* opacity = out->target->Find("opacity");
  ASSERT_NE(opacity, nullptr);
  ASSERT_NE(opacity->properties.Find("mute"), nullptr);
  EXPECT_EQ(*opacity->properties.Find("mute")->Get<bool>(), true);

  set->SetConstant("alphaMode", std::string("BLEND"));
  set->SetConstant("baseColorFactor", vex::ColorA{1, 1, 1, 0.25});
  out = ToGltf(set);
  ASSERT_TRUE(out);
  EXPECT_EQ(Const<vex::Color>(*out->target, "opacity"), (vex::Color{0.25, 0.25, 0.25}));

  // "MASK" goes on as if no alpha mode were given: the same set as without the port, plus the
  // diagnostic line.
  for (const double alpha : {0.25, 1.0}) {
    auto without = Gltf();
    without->SetConstant("baseColorFactor", vex::ColorA{0.5, 0.5, 0.5, alpha});
    auto masked = Gltf();
    masked->SetConstant("baseColorFactor", vex::ColorA{0.5, 0.5, 0.5, alpha});
    masked->SetConstant("alphaMode", std::string("MASK"));
    testing_support::ResetHostRecords();
    auto plain = ToGltf(without);
    ASSERT_TRUE(plain);
    EXPECT_TRUE(ConsoleLines().empty());
    auto mask = ToGltf(masked);
    ASSERT_TRUE(mask) << mask.error().Describe();
    ASSERT_EQ(PortsOf(*mask->target), PortsOf(*plain->target));
    for (const auto& [port, entry] : plain->target->Entries()) {
      const vex::Parameter* same = mask->target->Find(port);
      ASSERT_NE(same, nullptr) << port;
      ASSERT_NE(entry.Constant(), nullptr) << port;
      ASSERT_NE(same->Constant(), nullptr) << port;
      EXPECT_EQ(*same->Constant(), *entry.Constant()) << port;
      EXPECT_EQ(same->properties.Find("mute") != nullptr, entry.properties.Find("mute") != nullptr) << port;
    }
    // Without an alpha mode the glTF default (opaque) applies: a muted white opacity.
    ASSERT_NE(mask->target->Find("opacity"), nullptr);
    EXPECT_NE(mask->target->Find("opacity")->properties.Find("mute"), nullptr);
    const auto lines = ConsoleLines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(IsDiagnostic(lines[0], "AlphaMode == MASK is not implemented yet!", "mapping_corvane_gltfpbr"));
  }
}

TEST(GltfToCorvane, RoundTripKeepsColourMetalRoughnessEmissionAndNormalWeight) {
  auto set = Corvane();
  set->SetConstant("diffuse_color", vex::Color{0.8, 0.3, 0.2});
  set->SetConstant("fresnel_type", std::string("metalness"));
  set->SetConstant("metalness", 0.6);
  set->SetConstant("reflection_roughness", 0.35);
  set->SetConstant("emission_weight", 0.5);
  set->SetConstant("emission_color", vex::Color{0.2, 0.4, 0.6});
  set->SetConstant("overall_normal_weight", 0.8);
  auto gltf = ToGltf(set);
  ASSERT_TRUE(gltf);
  auto back = ToGltf(gltf->target);
  ASSERT_TRUE(back) << back.error().Describe();
  const auto& c = *back->target;
  EXPECT_EQ(Const<vex::Color>(c, "diffuse_color"), (vex::Color{0.8, 0.3, 0.2}));
  EXPECT_EQ(Const<double>(c, "metalness"), 0.6);
  EXPECT_EQ(Const<double>(c, "reflection_roughness"), 0.35);
  EXPECT_EQ(Const<double>(c, "overall_normal_weight"), 0.8);
  // Emission comes back with the weight multiplied into the colour.
  const auto emission = Const<vex::Color>(c, "emission_color");
  const double weight = Const<double>(c, "emission_weight");
  EXPECT_DOUBLE_EQ(emission.r * weight, 0.5 * 0.2);
  EXPECT_DOUBLE_EQ(emission.g * weight, 0.5 * 0.4);
  EXPECT_DOUBLE_EQ(emission.b * weight, 0.5 * 0.6);

  // A diffuse texture travels as the same pixels.
  const auto diffuse = Tex({0.1f, 0.2f, 0.3f, 1});
  set->Set("diffuse_color", Textured(vex::Color{1, 1, 1}, diffuse));
  gltf = ToGltf(set);
  ASSERT_TRUE(gltf);
  back = ToGltf(gltf->target);
  ASSERT_TRUE(back);
  ASSERT_NE(TextureOn(*back->target, "diffuse_color"), nullptr);
  EXPECT_EQ(TextureOn(*back->target, "diffuse_color")->_pixels, diffuse._pixels);
  EXPECT_EQ(PixelOf(*TextureOn(*back->target, "diffuse_color"), 0), (Pixel{0.1f, 0.2f, 0.3f, 1}));
}

}  // namespace
