// Viewport to FBX Phong: the three branches, the type dispatch, shininess and
// transparency rules, the normal choice, the defaults table and the dumps.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>

#include "host/paramset_json.h"
#include "material/mapping/configuration.h"
#include "material/mapping/mapping_viewport.h"
#include "mapping_dump_fixture.h"
#include "viewport_mapping_support.h"

namespace {

using namespace viewport_test;
namespace fs = std::filesystem;

const vex::Color kBlack{0, 0, 0};
const vex::Color kWhite{1, 1, 1};
const vex::Vector3d kZero{0, 0, 0};

vex::Result<vex::MappingOutput> ToFbx(const std::shared_ptr<vex::ParameterSet>& set) {
  return Map(interop::mapping::classid::kViewportToFbxPhong, set);
}

TEST(ViewportToFbx, TheBundleDeclaresTheDefaultsTheMappingDocuments) {
  auto bundle = testing_support::Host().bundles().Find(vex::bundle::kViewport);
  ASSERT_TRUE(bundle);
  const auto& d = (*bundle)->defaults;
  for (const char* port : {"base.color", "specular.color", "emission.color"})
    EXPECT_EQ(Const<vex::Color>(d, port), kWhite) << port;
  for (const char* port : {"base.color_weight", "specular.color_weight", "emission.color_weight"})
    EXPECT_EQ(Const<double>(d, port), 1.0) << port;
  EXPECT_EQ(Const<vex::Vector3d>(d, "base.normal"), kZero);
  EXPECT_EQ(Const<vex::Vector3d>(d, "specular.normal"), kZero);
  EXPECT_EQ(Const<double>(d, "transmissivity "), 0.0);
  EXPECT_FALSE(d.Has("transmissivity"));  // the id keeps its trailing blank
  EXPECT_FALSE(d.Has("type"));
}

TEST(ViewportToFbx, AnEmptyMaterialTakesTheDielectricBranchAndRecordsEveryDefault) {
  auto out = ToFbx(Viewport());
  ASSERT_TRUE(out) << out.error().Describe();
  const auto& t = *out->target;
  EXPECT_EQ(t.GetBundle(), vex::bundle::kFbxPhong);
  EXPECT_EQ(Ports(t), (std::vector<std::string>{"reflection", "reflectionFactor", "emissive", "emissiveFactor",
                                                "transparentColor", "transparencyFactor", "diffuse", "diffuseFactor",
                                                "specular", "specularFactor", "shininess", "normalMap"}));
  EXPECT_EQ(Const<vex::Color>(t, "reflection"), kBlack);
  EXPECT_EQ(Const<double>(t, "reflectionFactor"), 0.0);
  EXPECT_EQ(Const<vex::Color>(t, "emissive"), kWhite);
  EXPECT_EQ(Const<double>(t, "emissiveFactor"), 1.0);
  EXPECT_EQ(Const<vex::Color>(t, "diffuse"), kWhite);
  EXPECT_EQ(Const<double>(t, "diffuseFactor"), 1.0);
  EXPECT_EQ(Const<vex::Color>(t, "specular"), kWhite);
  EXPECT_EQ(Const<double>(t, "specularFactor"), 1.0);
  EXPECT_EQ(Const<double>(t, "shininess"), 0.0);
  EXPECT_EQ(Const<vex::Color>(t, "transparentColor"), kBlack);
  EXPECT_EQ(Const<double>(t, "transparencyFactor"), 0.0);
  EXPECT_EQ(Const<vex::Vector3d>(t, "normalMap"), kZero);

  const auto& table = out->defaults;
  EXPECT_EQ(Recorded(table), (std::vector<std::string>{"emission.color", "emission.color_weight", "alpha",
                                                       "base.color", "base.color_weight", "specular.color",
                                                       "specular.color_weight", "specular.roughness",
                                                       "specular.normal", "base.normal"}));
  EXPECT_EQ(RecordedAgainst(table, "alpha"), "transparentColor");
  EXPECT_EQ(RecordedAgainst(table, "specular.roughness"), "shininess");
  EXPECT_EQ(RecordedValue<double>(table, "specular.roughness"), 0.0);
  EXPECT_EQ(RecordedAgainst(table, "specular.color"), "specular");
  EXPECT_EQ(RecordedValue<vex::Color>(table, "specular.color"), kWhite);
  EXPECT_EQ(RecordedAgainst(table, "base.normal"), "normalMap");
  EXPECT_EQ(RecordedValue<vex::Vector3d>(table, "specular.normal"), kZero);
  EXPECT_EQ(table.Find("transmissivity "), nullptr);  // alpha absent: not consulted
  // (10 * 16 + 16) / 10 + 2 = 19 -> 32, and 32 * 10 / 16 = 20.
  EXPECT_EQ(table.capacity, 32u);
  EXPECT_EQ(table.growThreshold, 20u);
}

TEST(ViewportToFbx, TheDefaultsTableIsSizedToAPowerOfTwo) {
  using interop::mapping::viewport::DefaultsCapacity;
  EXPECT_EQ(DefaultsCapacity(0), 4u);    // 16 / 10 + 2 = 3
  EXPECT_EQ(DefaultsCapacity(1), 8u);    // 32 / 10 + 2 = 5
  EXPECT_EQ(DefaultsCapacity(3), 8u);    // 64 / 10 + 2 = 8
  EXPECT_EQ(DefaultsCapacity(4), 16u);   // 80 / 10 + 2 = 10
  EXPECT_EQ(DefaultsCapacity(8), 16u);   // 144 / 10 + 2 = 16
  EXPECT_EQ(DefaultsCapacity(9), 32u);   // 160 / 10 + 2 = 18

  // A metal with every port set records nothing.
  auto set = Viewport("metal");
  for (const char* port : {"specular.color", "emission.color"}) set->SetConstant(port, kWhite);
  for (const char* port : {"specular.color_weight", "specular.roughness", "emission.color_weight", "alpha"})
    set->SetConstant(port, 0.5);
  set->SetConstant("specular.normal_weight", 0.0);
  auto out = ToFbx(set);
  ASSERT_TRUE(out);
  EXPECT_TRUE(out->defaults.entries.empty());
  EXPECT_EQ(out->defaults.capacity, 4u);
  EXPECT_EQ(out->defaults.growThreshold, 2u);
}

TEST(ViewportToFbx, ShininessIsClampedForMetalsOnly) {
  const struct {
    const char* type;
    double roughness;
    double shininess;
  } cases[] = {{"metal", 0.0, 1024.0},      {"metal", 1.0, 1.0},          {"metal", 1.5, 1.0},
               {"metal", -0.5, 1024.0},     {"dielectric", 1.5, 0.03125}, {"dielectric", 0.5, 32.0},
               {"dielectric", -0.5, 32768.0}, {"metal", 0.5, 32.0}};
  for (const auto& c : cases) {
    auto set = Viewport(c.type);
    set->SetConstant("specular.roughness", c.roughness);
    auto out = ToFbx(set);
    ASSERT_TRUE(out);
    EXPECT_EQ(Const<double>(*out->target, "shininess"), c.shininess) << c.type << " " << c.roughness;
    EXPECT_EQ(out->defaults.Find("specular.roughness"), nullptr);
  }
  // Textured roughness: the formula runs on the constant, the texture goes on unchanged.
  auto set = Viewport("metal");
  const auto texture = Tex({0.9f, 0.9f, 0.9f, 1});
  set->Set("specular.roughness", Textured(0.0, texture));
  auto out = ToFbx(set);
  ASSERT_TRUE(out);
  EXPECT_EQ(Const<double>(*out->target, "shininess"), 1024.0);
  ASSERT_NE(TextureOn(*out->target, "shininess"), nullptr);
  EXPECT_EQ(TextureOn(*out->target, "shininess")->_pixels.get(), texture._pixels.get());
  EXPECT_EQ(PixelOf(*TextureOn(*out->target, "shininess"), 0), (Pixel{0.9f, 0.9f, 0.9f, 1}));
}

TEST(ViewportToFbx, AlphaIsInvertedAndTransmissivityDecidesOnlyForOpaqueAlpha) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const struct {
    double alpha;
    std::optional<double> transmissivity;
    double factor;
  } cases[] = {{0.25, std::nullopt, 0.75}, {0.25, 0.4, 0.75}, {1.0, 0.4, 0.4},   {1.0, std::nullopt, 0.0},
               {3.0, 0.4, 0.4},           {3.0, std::nullopt, 0.0}, {-1.0, 0.4, 1.0}, {1.0, 1.7, 1.7},
               {1.0, -0.2, -0.2}};
  for (const auto& c : cases) {
    auto set = Viewport("dielectric");
    set->SetConstant("alpha", c.alpha);
    if (c.transmissivity) set->SetConstant("transmissivity ", *c.transmissivity);
    auto out = ToFbx(set);
    ASSERT_TRUE(out);
    EXPECT_EQ(Const<double>(*out->target, "transparencyFactor"), c.factor) << c.alpha;
    EXPECT_EQ(Const<vex::Color>(*out->target, "transparentColor"), kBlack);
    const bool consulted = c.alpha >= 1.0;
    EXPECT_EQ(RecordedAgainst(out->defaults, "transmissivity "),
              consulted && !c.transmissivity ? "transparentColor" : "")
        << c.alpha;
    EXPECT_EQ(out->defaults.Find("alpha"), nullptr);
  }

  // The port without its trailing blank is another port: it is never read.
  auto set = Viewport("metal");
  set->SetConstant("alpha", 1.0);
  set->SetConstant("transmissivity", 0.4);
  auto out = ToFbx(set);
  ASSERT_TRUE(out);
  EXPECT_EQ(Const<double>(*out->target, "transparencyFactor"), 0.0);
  EXPECT_EQ(RecordedAgainst(out->defaults, "transmissivity "), "transparentColor");

  // A NaN alpha is not an opaque one: its NaN stays, transmissivity is not consulted.
  set = Viewport("dielectric");
  set->SetConstant("alpha", nan);
  set->SetConstant("transmissivity ", 0.4);
  out = ToFbx(set);
  ASSERT_TRUE(out);
  EXPECT_TRUE(std::isnan(Const<double>(*out->target, "transparencyFactor")));

  // The alpha texture goes with the black colour, until transmissivity takes over with its own.
  const auto alphaTexture = Tex({0.5f, 0.5f, 0.5f, 1});
  const auto transmissivityTexture = Tex({0.2f, 0.2f, 0.2f, 1});
  set = Viewport("metal");
  set->Set("alpha", Textured(0.5, alphaTexture));
  out = ToFbx(set);
  ASSERT_TRUE(out);
  ASSERT_NE(TextureOn(*out->target, "transparentColor"), nullptr);
  EXPECT_EQ(TextureOn(*out->target, "transparentColor")->_pixels.get(), alphaTexture._pixels.get());
  EXPECT_EQ(Const<double>(*out->target, "transparencyFactor"), 0.5);
  set->Set("alpha", Textured(1.0, alphaTexture));
  set->Set("transmissivity ", Textured(0.3, transmissivityTexture));
  out = ToFbx(set);
  ASSERT_TRUE(out);
  EXPECT_EQ(TextureOn(*out->target, "transparentColor")->_pixels.get(), transmissivityTexture._pixels.get());
  EXPECT_EQ(Const<double>(*out->target, "transparencyFactor"), 0.3);
  EXPECT_EQ(TextureOn(*out->target, "transparencyFactor"), nullptr);
}

TEST(ViewportToFbx, MetalsReflectTheirSpecularColourWithoutDiffuse) {
  auto set = Viewport("metal");
  const auto colorTexture = Tex({0.9f, 0.6f, 0.2f, 1});
  set->Set("specular.color", Textured(vex::Color{0.9, 0.6, 0.2}, colorTexture));
  set->SetConstant("specular.color_weight", 0.8);
  set->SetConstant("base.color", vex::Color{0.1, 0.2, 0.3});  // not read by a metal
  set->SetConstant("specular.normal", vex::Vector3d{0.5, 0.5, 1});
  auto out = ToFbx(set);
  ASSERT_TRUE(out);
  const auto& t = *out->target;
  EXPECT_EQ(Ports(t), (std::vector<std::string>{"reflectionFactor", "diffuse", "diffuseFactor", "specular",
                                                "specularFactor", "reflection", "normalMap", "shininess", "emissive",
                                                "emissiveFactor", "transparentColor", "transparencyFactor"}));
  EXPECT_EQ(Const<double>(t, "reflectionFactor"), 0.8);
  EXPECT_EQ(Const<vex::Color>(t, "reflection"), (vex::Color{0.9, 0.6, 0.2}));
  EXPECT_EQ(TextureOn(t, "reflection")->_pixels.get(), colorTexture._pixels.get());
  EXPECT_EQ(Const<vex::Color>(t, "diffuse"), kBlack);
  EXPECT_EQ(Const<double>(t, "specularFactor"), 0.0);
  EXPECT_EQ(Const<vex::Vector3d>(t, "normalMap"), (vex::Vector3d{0.5, 0.5, 1}));
  EXPECT_EQ(out->defaults.Find("base.color"), nullptr);
  EXPECT_EQ(RecordedAgainst(out->defaults, "specular.roughness"), "shininess");

  // An absent colour records white against "reflection", an absent weight 1 against its factor.
  out = ToFbx(Viewport("metal"));
  ASSERT_TRUE(out);
  EXPECT_EQ(RecordedAgainst(out->defaults, "specular.color"), "reflection");
  EXPECT_EQ(RecordedValue<vex::Color>(out->defaults, "specular.color"), kWhite);
  EXPECT_EQ(RecordedAgainst(out->defaults, "specular.color_weight"), "reflectionFactor");
  EXPECT_EQ(RecordedValue<double>(out->defaults, "specular.color_weight"), 1.0);
  EXPECT_EQ(Const<double>(*out->target, "reflectionFactor"), 1.0);
  EXPECT_EQ(Const<vex::Vector3d>(*out->target, "normalMap"), kZero);

  // A weight of 0 (or NaN) keeps the normal out: no "normalMap" at all.
  for (const double weight : {0.0, -1.0, std::numeric_limits<double>::quiet_NaN()}) {
    set->SetConstant("specular.normal_weight", weight);
    out = ToFbx(set);
    ASSERT_TRUE(out);
    EXPECT_FALSE(out->target->Has("normalMap")) << weight;
  }
}

TEST(ViewportToFbx, DielectricsTakeTheFirstNormalThatCarriesOne) {
  const vex::Vector3d specular{0.4, 0.5, 1};
  const vex::Vector3d base{0.6, 0.5, 1};
  auto run = [](const std::shared_ptr<vex::ParameterSet>& set) {
    auto out = ToFbx(set);
    EXPECT_TRUE(out);
    return out;
  };
  auto set = Viewport("dielectric");
  set->SetConstant("specular.normal", specular);
  set->SetConstant("base.normal", base);
  auto out = run(set);
  EXPECT_EQ(Const<vex::Vector3d>(*out->target, "normalMap"), specular);

  set->SetConstant("specular.normal_weight", 0.0);  // the specular normal stays out
  out = run(set);
  EXPECT_EQ(Const<vex::Vector3d>(*out->target, "normalMap"), base);

  set->SetConstant("specular.normal_weight", 0.5);
  set->SetConstant("specular.normal", kZero);  // held but carries nothing
  const auto baseTexture = Tex({0.5f, 0.5f, 1, 1});
  set->Set("base.normal", Textured(kZero, baseTexture));
  out = run(set);
  EXPECT_EQ(TextureOn(*out->target, "normalMap")->_pixels.get(), baseTexture._pixels.get());

  set = Viewport("dielectric");
  set->SetConstant("base.normal", base);  // the absent specular normal takes part but carries nothing
  out = run(set);
  EXPECT_EQ(Const<vex::Vector3d>(*out->target, "normalMap"), base);
  EXPECT_EQ(RecordedAgainst(out->defaults, "specular.normal"), "normalMap");

  set->SetConstant("specular.normal_weight", 0.0);
  set->SetConstant("base.normal_weight", 0.0);
  out = run(set);
  EXPECT_FALSE(out->target->Has("normalMap"));
  EXPECT_EQ(out->defaults.Find("specular.normal"), nullptr);
}

TEST(ViewportToFbx, ConstantMaterialsKeepOnlyTheirEmission) {
  auto set = Viewport("constant");
  const auto texture = Tex({0.1f, 0.6f, 1, 1});
  set->Set("emission.color", Textured(vex::Color{0.1, 0.6, 1}, texture));
  set->SetConstant("emission.color_weight", 5.0);
  set->SetConstant("base.color", vex::Color{0.3, 0.3, 0.3});
  set->SetConstant("alpha", 0.2);
  set->SetConstant("specular.roughness", std::string("not even a number"));  // never read
  auto out = ToFbx(set);
  ASSERT_TRUE(out) << out.error().Describe();
  const auto& t = *out->target;
  EXPECT_EQ(Ports(t), (std::vector<std::string>{"emissive", "emissiveFactor", "diffuse", "diffuseFactor", "specular",
                                                "specularFactor", "shininess", "reflection", "reflectionFactor"}));
  EXPECT_EQ(Const<vex::Color>(t, "emissive"), (vex::Color{0.1, 0.6, 1}));
  EXPECT_EQ(TextureOn(t, "emissive")->_pixels.get(), texture._pixels.get());
  EXPECT_EQ(Const<double>(t, "emissiveFactor"), 1.0);
  EXPECT_EQ(Const<double>(t, "shininess"), 0.0);
  EXPECT_TRUE(out->defaults.entries.empty());

  out = ToFbx(Viewport("constant"));
  ASSERT_TRUE(out);
  EXPECT_EQ(Recorded(out->defaults), (std::vector<std::string>{"emission.color"}));
  EXPECT_EQ(RecordedAgainst(out->defaults, "emission.color"), "emissive");
}

TEST(ViewportToFbx, TypesDispatchByHashThenIdentity) {
  using interop::mapping::viewport::Classify;
  using interop::mapping::viewport::MaterialType;
  EXPECT_EQ(Classify(vex::InternedId::Intern("metal")), MaterialType::Metal);
  EXPECT_EQ(Classify(vex::InternedId::Intern("glass")), MaterialType::Unknown);
  EXPECT_EQ(Classify(Colliding("constant")), MaterialType::Colliding);
  // The same text outside the table is not the type either.
  EXPECT_EQ(Classify(vex::InternedId::MakeUninterned("dielectric", vex::HashId("dielectric"))),
            MaterialType::Colliding);

  // A colliding hash converts nothing and is no error; the set is tagged all the same.
  for (const char* known : {"constant", "metal", "dielectric"}) {
    auto set = Viewport();
    set->SetConstant("type", Colliding(known));
    set->SetConstant("base.color", vex::Color{0.5, 0.5, 0.5});
    auto out = ToFbx(set);
    ASSERT_TRUE(out) << known;
    EXPECT_EQ(out->target->GetBundle(), vex::bundle::kFbxPhong);
    EXPECT_TRUE(out->target->IsEmpty()) << known;
    EXPECT_TRUE(out->defaults.entries.empty());
  }

  // An unknown type is converted exactly as a dielectric.
  auto glass = Viewport("glass");
  auto dielectric = Viewport("dielectric");
  for (auto* set : {&glass, &dielectric}) {
    (*set)->SetConstant("base.color", vex::Color{0.2, 0.4, 0.6});
    (*set)->SetConstant("specular.roughness", 0.25);
  }
  auto unknownOut = ToFbx(glass);
  auto dielectricOut = ToFbx(dielectric);
  ASSERT_TRUE(unknownOut);
  ASSERT_TRUE(dielectricOut);
  ASSERT_EQ(Ports(*unknownOut->target), Ports(*dielectricOut->target));
  for (const auto& [port, p] : unknownOut->target->Entries())
    EXPECT_EQ(*p.Constant(), *dielectricOut->target->Find(port)->Constant()) << port;
  EXPECT_EQ(Const<vex::Color>(*unknownOut->target, "diffuse"), (vex::Color{0.2, 0.4, 0.6}));
}

TEST(ViewportToFbx, ReadFailuresEndTheRun) {
  auto mapping = vex::CreateAs<vex::IMaterialMapping>(interop::mapping::classid::kViewportToFbxPhong);
  ASSERT_TRUE(mapping);
  auto none = (*mapping)->MapMaterialData(nullptr);
  ASSERT_FALSE(none);
  EXPECT_EQ(none.error().message, "Illegal state: Condition parametersPtr != nullptr not fulfilled. ");
  EXPECT_EQ(none.error().unit, "mapping_viewport_fbxphong");

  auto set = Viewport();
  set->SetConstant("type", std::string("metal"));  // a string, not an interned id
  auto wrongType = ToFbx(set);
  ASSERT_FALSE(wrongType);
  EXPECT_EQ(wrongType.error().message, "Invalid TypedConstantParameter");
  EXPECT_EQ(wrongType.error().unit, "datatypebase");

  set = Viewport("dielectric");
  set->SetConstant("alpha", vex::Color{1, 1, 1});
  auto wrongAlpha = ToFbx(set);
  ASSERT_FALSE(wrongAlpha);
  EXPECT_EQ(wrongAlpha.error().message, "Invalid TypedConstantParameter");
  EXPECT_EQ(wrongAlpha.error().kind, vex::ErrorKind::WrongDataType);
}

class ViewportToFbxDump : public testing_support::MappingDumpTest {
 protected:
  ViewportToFbxDump() : MappingDumpTest(interop::mapping::kViewportFbxMappingPath, "viewport_fbx_dump_") {}
};

TEST_F(ViewportToFbxDump, WritesAPairThatReadsBackOnlyWhenThePathIsSet) {
  auto set = Viewport("metal");
  set->SetConstant("specular.roughness", 0.3);
  set->Set("specular.color", Textured(vex::Color{0.9, 0.6, 0.2}, Tex({0.9f, 0.6f, 0.2f, 1}, 3, 2)));
  ASSERT_TRUE(ToFbx(set));
  EXPECT_TRUE(Files(dir_).empty());

  SetPath(dir_);
  auto out = ToFbx(set);
  ASSERT_TRUE(out);
  const auto names = Files(dir_);
  ASSERT_EQ(names.size(), 2u);
  const auto prefix = names[0].substr(0, names[0].find('_'));
  EXPECT_FALSE(prefix.empty());
  EXPECT_TRUE(std::all_of(prefix.begin(), prefix.end(), [](char c) { return c >= '0' && c <= '9'; }));
  EXPECT_EQ(names[0], prefix + "_mapping_input");
  EXPECT_EQ(names[1], prefix + "_mapping_output");

  // Both files read back as parameter sets: the input maps again to the same output.
  auto& host = testing_support::Host();
  host::json::ReadOptions read;
  read.bundles = &host.bundles();
  read.ids = &host.ids();
  auto input = host::json::ReadParameterSetFile((dir_ / names[0]).string(), read);
  ASSERT_TRUE(input) << input.error().Describe();
  EXPECT_EQ(input->GetBundle(), vex::bundle::kViewport);
  ASSERT_NE(TextureOn(*input, "specular.color"), nullptr);
  EXPECT_EQ(TextureOn(*input, "specular.color")->_dimensions, (vex::Dimensions{3, 2}));
  auto output = host::json::ReadParameterSetFile((dir_ / names[1]).string(), read);
  ASSERT_TRUE(output) << output.error().Describe();
  EXPECT_EQ(host::json::DumpParameterSet(*output, host::json::TextureMode::Describe),
            host::json::DumpParameterSet(*out->target, host::json::TextureMode::Describe));
  ASSERT_TRUE(testing_support::Host().config().SetString(interop::mapping::kViewportFbxMappingPath, ""));
  auto again = ToFbx(std::make_shared<vex::ParameterSet>(*input));
  ASSERT_TRUE(again);
  EXPECT_EQ(host::json::DumpParameterSet(*again->target, host::json::TextureMode::Describe),
            host::json::DumpParameterSet(*output, host::json::TextureMode::Describe));
}

TEST_F(ViewportToFbxDump, AMissingDirectoryFailsTheRunAfterTheConversion) {
  SetPath(dir_ / "missing");
  auto out = ToFbx(Viewport("metal"));
  ASSERT_FALSE(out);
  EXPECT_EQ(out.error().kind, vex::ErrorKind::FileIO);
  EXPECT_NE(out.error().message.find("missing"), std::string::npos);
  EXPECT_TRUE(Files(dir_).empty());

  // A run that converts nothing still dumps its (empty) output.
  SetPath(dir_);
  auto set = Viewport();
  set->SetConstant("type", Colliding("metal"));
  ASSERT_TRUE(ToFbx(set));
  EXPECT_EQ(Files(dir_).size(), 2u);
}

}  // namespace
