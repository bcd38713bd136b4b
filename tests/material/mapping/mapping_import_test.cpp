// Import conversions into Corvane ports: the generic model and the OBJ model.
#include <gtest/gtest.h>

#include "corvane_mapping_support.h"
#include "material/mapping/mapping_import.h"
#include "material/mapping/mappings.h"

namespace {

using namespace corvane_test;
using interop::mapping::ImportGenericToCorvane;
using interop::mapping::ImportObjToCorvane;

vex::ParameterSet Generic() { return vex::ParameterSet(vex::Id(vex::bundle::kGeneric)); }

std::vector<std::string> Ports(const vex::ParameterSet& set) {
  std::vector<std::string> ports;
  for (const auto& [port, value] : set.Entries()) ports.push_back(port);
  return ports;
}

TEST(GenericImport, OnlyHeldPortsAreWritten) {
  auto source = Generic();
  source.SetConstant("diffuseColor", vex::Color{0.1, 0.2, 0.3});
  auto out = ImportGenericToCorvane(source);
  ASSERT_TRUE(out) << out.error().Describe();
  EXPECT_EQ((*out)->GetBundle(), vex::bundle::kCorvane);
  EXPECT_EQ(Ports(**out), std::vector<std::string>{"diffuse_color"});
  EXPECT_EQ(Const<vex::Color>(**out, "diffuse_color"), (vex::Color{0.1, 0.2, 0.3}));

  // Everything held: the transfers in their order, textures and shininess as they are.
  const auto diffuse = Tex({0.5f, 0.25f, 0.125f, 1});
  source.Set("diffuseColor", Textured(vex::Color{1, 1, 1}, diffuse));
  source.SetConstant("diffuseFactor", 0.9);
  source.SetConstant("emissiveColor", vex::Color{1, 0, 0});
  source.SetConstant("emissiveFactor", 0.5);
  source.SetConstant("transparencyColor", vex::Color{0, 1, 0});
  source.SetConstant("transparencyFactor", 0.25);
  source.SetConstant("specularColor", vex::Color{0.7, 0.7, 0.7});
  source.SetConstant("opacityColor", vex::Color{1, 1, 0.5});
  source.SetConstant("specularFactor", 0.6);
  source.SetConstant("shininess", 42.0);
  out = ImportGenericToCorvane(source);
  ASSERT_TRUE(out);
  EXPECT_EQ(Ports(**out), (std::vector<std::string>{"diffuse_color", "diffuse_weight", "emission_color",
                                                    "emission_weight", "transmission_color", "transmission_weight",
                                                    "reflection_color", "opacity", "reflection_weight",
                                                    "reflection_roughness"}));
  EXPECT_EQ(TextureOn(**out, "diffuse_color")->_pixels, diffuse._pixels);
  EXPECT_EQ(Const<double>(**out, "reflection_roughness"), 42.0);
  EXPECT_EQ(Const<double>(**out, "reflection_weight"), 0.6);
}

TEST(GenericImport, ReflectionFactorChoosesTheFresnelMode) {
  auto source = Generic();
  source.SetConstant("reflectionFactor", 0.3);
  source.SetConstant("specularFactor", 0.8);
  source.SetConstant("specularColor", vex::Color{0.9, 0.5, 0.1});
  auto out = ImportGenericToCorvane(source);
  ASSERT_TRUE(out);
  EXPECT_EQ(Const<double>(**out, "reflection_weight"), 0.3);
  EXPECT_EQ(Const<std::string>(**out, "fresnel_type"), "color_edge_tint");
  EXPECT_EQ(Const<vex::Color>(**out, "reflectivity"), (vex::Color{0.9, 0.5, 0.1}));
  EXPECT_EQ(Const<vex::Color>(**out, "reflection_color"), (vex::Color{0.9, 0.5, 0.1}));

  // Absent (or not positive): the specular factor is the weight, reflectivity untouched, and the
  // Fresnel mode left at the Corvane default.
  for (const bool zero : {false, true}) {
    auto plain = Generic();
    if (zero) plain.SetConstant("reflectionFactor", 0.0);
    plain.SetConstant("specularFactor", 0.8);
    plain.SetConstant("specularColor", vex::Color{0.9, 0.5, 0.1});
    out = ImportGenericToCorvane(plain);
    ASSERT_TRUE(out);
    EXPECT_EQ(Const<double>(**out, "reflection_weight"), 0.8);
    EXPECT_FALSE((*out)->Has("reflectivity"));
    EXPECT_FALSE((*out)->Has("fresnel_type"));
  }
}

TEST(GenericImport, TypeMismatchesFailAndLeaveNoSet) {
  auto source = Generic();
  source.SetConstant("diffuseColor", vex::Color{0.1, 0.2, 0.3});
  source.SetConstant("shininess", std::string("glossy"));
  auto out = ImportGenericToCorvane(source);
  ASSERT_FALSE(out);
  EXPECT_EQ(out.error().kind, vex::ErrorKind::WrongDataType);
  EXPECT_EQ(out.error().message, "Invalid TypedConstantParameter");

  auto badFactor = Generic();
  badFactor.SetConstant("reflectionFactor", std::int32_t{1});
  EXPECT_FALSE(ImportGenericToCorvane(badFactor));
}

TEST(ObjImport, UndoesTheObjExport) {
  auto corvane = Corvane();
  corvane->SetConstant("diffuse_color", vex::Color{0.8, 0.4, 0.2});
  corvane->SetConstant("fresnel_type", std::string("metalness"));
  corvane->SetConstant("metalness", 0.7);
  corvane->SetConstant("reflection_color", vex::Color{0.5, 0.5, 0.5});
  corvane->SetConstant("reflection_roughness", 0.3);
  corvane->SetConstant("reflection_aniso", 0.2);
  corvane->SetConstant("reflection_aniso_rot", 0.1);
  corvane->SetConstant("transmission_color", vex::Color{0.9, 1, 0.9});
  corvane->SetConstant("transmission_ior", 1.33);
  corvane->SetConstant("opacity", vex::Color{0.25, 0.25, 0.25});
  const auto normal = Tex({0.5f, 0.5f, 1, 1});
  corvane->Set("overall_normal", Textured(vex::Color{0.5, 0.5, 1}, normal));
  corvane->SetConstant("emission_weight", 1.0);
  corvane->SetConstant("emission_color", vex::Color{0.1, 0.2, 0.3});
  auto obj = Map(interop::mapping::classid::kCorvaneToObj, corvane);
  ASSERT_TRUE(obj);
  auto back = ImportObjToCorvane(*obj->target);
  ASSERT_TRUE(back) << back.error().Describe();
  const auto& c = **back;
  EXPECT_EQ(c.GetBundle(), vex::bundle::kCorvane);
  for (const char* port : {"diffuse_color", "reflection_color", "transmission_color", "emission_color"})
    EXPECT_EQ(Const<vex::Color>(c, port), Const<vex::Color>(*corvane, port)) << port;
  for (const char* port :
       {"metalness", "reflection_roughness", "reflection_aniso", "reflection_aniso_rot", "transmission_ior"})
    EXPECT_EQ(Const<double>(c, port), Const<double>(*corvane, port)) << port;
  EXPECT_EQ(Const<std::string>(c, "fresnel_type"), "metalness");
  EXPECT_EQ(Const<double>(c, "emission_weight"), 1.0);
  const auto opacity = Const<vex::Color>(c, "opacity");
  EXPECT_DOUBLE_EQ(opacity.r, 0.25);
  EXPECT_EQ(opacity.r, opacity.b);
  EXPECT_EQ(TextureOn(c, "overall_normal")->_pixels, normal._pixels);
}

TEST(ObjImport, AbsentPortsStayUnwrittenAndOpacityMustBeAFloat) {
  vex::ParameterSet obj(vex::Id(vex::bundle::kObj));
  obj.Set("opacity", Textured(0.5, Tex({0.5f, 0.5f, 0.5f, 1})));
  auto out = ImportObjToCorvane(obj);
  ASSERT_TRUE(out);
  EXPECT_EQ(Ports(**out), std::vector<std::string>{"opacity"});
  EXPECT_EQ(Const<vex::Color>(**out, "opacity"), (vex::Color{0.5, 0.5, 0.5}));
  ASSERT_NE(TextureOn(**out, "opacity"), nullptr);

  obj.SetConstant("opacity", vex::Color{1, 1, 1});
  auto wrong = ImportObjToCorvane(obj);
  ASSERT_FALSE(wrong);
  EXPECT_EQ(wrong.error().message, "Invalid TypedConstantParameter");
}

}  // namespace
