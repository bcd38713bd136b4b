// The neutral parameter model: typed reads and their exact failures, bundle
// tags, accepted-type maps, ids and condition texts.
#include <gtest/gtest.h>

#include "test_host.h"
#include "vex/datatypebase.h"
#include "vex/material.h"

namespace {

vex::Result<int> CheckPositive(int value) {
  VEX_CHECK_STATE(value > 0);
  VEX_CHECK_ARGUMENT(value < 100);
  return value;
}

TEST(ParameterModel, TypedReadsFailWithTheDataSystemsTexts) {
  vex::ParameterSet set{vex::Id(vex::bundle::kCorvane)};
  set.SetConstant("metalness", 0.25);
  set.SetConstant("fresnel_type", std::string("metalness"));

  auto metal = vex::ReadTyped<double>(set, "metalness");
  ASSERT_TRUE(metal);
  EXPECT_EQ(*metal, 0.25);

  auto missing = vex::ReadTyped<double>(set, "reflection_weight");
  ASSERT_FALSE(missing);
  EXPECT_EQ(missing.error().message, "Illegal state: Condition parameterDataPtr != nullptr not fulfilled. ");
  EXPECT_EQ(missing.error().kind, vex::ErrorKind::IllegalState);
  EXPECT_EQ(missing.error().unit, "datatypebase");

  // No conversion between types: a Float read as Int, a String read as Id.
  auto asInt = vex::ReadTyped<std::int32_t>(set, "metalness");
  ASSERT_FALSE(asInt);
  EXPECT_EQ(asInt.error().message, "Invalid TypedConstantParameter");
  EXPECT_EQ(asInt.error().kind, vex::ErrorKind::WrongDataType);
  EXPECT_EQ(asInt.error().unit, "datatypebase");
  EXPECT_FALSE(vex::ReadTyped<vex::Id>(set, "fresnel_type"));

  // A reference is not a constant of any type.
  vex::Parameter image;
  image.value = vex::ImageReference{vex::Url{"a.png"}, "sRGB", ""};
  set.Set("diffuse_color", image);
  EXPECT_EQ(vex::ReadTyped<vex::Color>(set, "diffuse_color").error().message, "Invalid TypedConstantParameter");
}

TEST(ParameterModel, SetsKeepTheirBundleAndOrder) {
  vex::ParameterSet set{vex::Id(vex::bundle::kGltf)};
  set.SetConstant("b", 1.0);
  set.SetConstant("a", 2.0);
  set.SetConstant("b", 3.0);  // replaced in place
  ASSERT_EQ(set.Size(), 2u);
  EXPECT_EQ(set.Entries()[0].first, "b");
  EXPECT_EQ(*set.Find("b")->Constant()->Get<double>(), 3.0);
  EXPECT_TRUE(set.Tag(vex::Id(vex::bundle::kGltf)));
  EXPECT_FALSE(set.Tag(vex::Id(vex::bundle::kObj)));
  EXPECT_EQ(set.GetBundle(), vex::bundle::kGltf);
  EXPECT_EQ(vex::TypedConstantParameter<vex::ColorA>::kType, vex::ConstantType::ColorA);
  EXPECT_EQ(vex::ConstantTypeName(vex::TypedConstantParameter<vex::InternedId>::kType), "InternedId");
}

TEST(ParameterModel, MaterialTypesMapKeepsInsertionOrder) {
  vex::MaterialTypesMap map;
  EXPECT_FALSE(map.IsPopulated());
  map.Insert(vex::Id("p"), 1);
  map.Insert(vex::Id("q"), 0);
  map.Insert(vex::Id("p"), 2);
  ASSERT_EQ(map.Entries().size(), 2u);
  EXPECT_EQ(map.Entries()[0].first, "p");
  EXPECT_EQ(map.Find(vex::Id("p")), 2);
  EXPECT_EQ(map.Find(vex::Id("r")), std::nullopt);
  auto data = vex::Data::MakeCustom(map);
  ASSERT_NE(data.Get<vex::MaterialTypesMap>(), nullptr);
  EXPECT_EQ(data.Get<vex::TextureBuffer>(), nullptr);
}

TEST(ParameterModel, TextureBuffersSharePixels) {
  auto t = vex::TextureBuffer::Make(3, 2, {0.5f, 0.25f, 1.f, 1.f});
  ASSERT_EQ(t.GetCount(), 6u);
  EXPECT_EQ(t._pixels->Pixel(5)[1], 0.25f);
  vex::TextureBuffer copy = t;
  EXPECT_EQ(copy._pixels.get(), t._pixels.get());
  EXPECT_TRUE(t._dimensions.IsEqual({3, 2}, 0));
  EXPECT_FALSE(t._dimensions.IsEqual({3, 3}, 0));
}

TEST(ParameterModel, InternedIdsCompareByIdentity) {
  auto metal = vex::InternedId::Intern("metal");
  EXPECT_EQ(metal, vex::InternedId::Intern("metal"));
  EXPECT_EQ(metal.Hash(), vex::HashId("metal"));
  auto impostor = vex::InternedId::MakeUninterned("metal", vex::HashId("metal"));
  EXPECT_EQ(impostor.Hash(), metal.Hash());
  EXPECT_FALSE(impostor == metal);
  EXPECT_EQ(impostor.View(), "metal");
}

TEST(ParameterModel, ConditionChecksQuoteTheConditionAsWritten) {
  auto low = CheckPositive(0);
  ASSERT_FALSE(low);
  EXPECT_EQ(low.error().message, "Illegal state: Condition value > 0 not fulfilled. ");
  EXPECT_EQ(low.error().unit, "parameters_test");
  auto high = CheckPositive(100);
  ASSERT_FALSE(high);
  EXPECT_EQ(high.error().message, "Illegal argument: Condition value < 100 not fulfilled.");
  EXPECT_EQ(high.error().kind, vex::ErrorKind::IllegalArgument);
  EXPECT_EQ(vex::ErrorKindName(vex::ErrorKind::OutOfMemory), "out of memory");
}

}  // namespace
