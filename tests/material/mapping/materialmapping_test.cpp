// The mapping framework: reads with fallback to the bundle's defaults, writes,
// transfers, registry lookup and the parallel pixel loop.
#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "material/mapping/materialmapping.h"
#include "material/mapping/mappings.h"
#include "test_host.h"
#include "vex/lookup.h"

namespace {

using interop::mapping::Get;
using interop::mapping::Read;

TEST(MappingFramework, GetAndReadFailuresAndFallbacks) {
  auto none = Get<double>(nullptr, "metalness");
  ASSERT_FALSE(none);
  EXPECT_EQ(none.error().message, "Illegal state: Condition parametersPtr != nullptr not fulfilled. ");
  EXPECT_EQ(none.error().unit, "materialmapping");

  vex::ParameterSet set{vex::Id(vex::bundle::kCorvane)};
  set.SetConstant("metalness", 0.75);
  // Held by the material: present.
  auto metal = Read<double>(&set, "metalness");
  ASSERT_TRUE(metal);
  EXPECT_TRUE(metal->present);
  EXPECT_EQ(metal->value, 0.75);
  // Not held: the Corvane bundle's default, not present.
  auto weight = Read<double>(&set, "diffuse_weight");
  ASSERT_TRUE(weight);
  EXPECT_FALSE(weight->present);
  EXPECT_EQ(weight->value, 1.0);
  // Neither held nor defaulted: the data system's error.
  auto unknown = Read<double>(&set, "no_such_port");
  ASSERT_FALSE(unknown);
  EXPECT_EQ(unknown.error().message, "Illegal state: Condition parameterDataPtr != nullptr not fulfilled. ");
  EXPECT_EQ(unknown.error().unit, "datatypebase");
  // A default of another type is still a type error.
  auto wrong = Read<std::int32_t>(&set, "diffuse_weight");
  ASSERT_FALSE(wrong);
  EXPECT_EQ(wrong.error().message, "Invalid TypedConstantParameter");
}

TEST(MappingFramework, TexturedReadsCarryTheBuffer) {
  vex::ParameterSet set{vex::Id(vex::bundle::kCorvane)};
  set.Set("diffuse_color", vex::Parameter::Textured(vex::PackedConstantParameter(vex::Color{1, 0, 0}),
                                                    vex::TextureBuffer::Make(2, 2)));
  auto color = Read<vex::Color>(&set, "diffuse_color");
  ASSERT_TRUE(color);
  EXPECT_FALSE(color->IsConstant());
  EXPECT_EQ(color->texture->GetCount(), 4u);
  EXPECT_EQ(color->value, (vex::Color{1, 0, 0}));
}

TEST(MappingFramework, RegistryFindsMappingsBySourceAndTarget) {
  auto mapping = vex::FindMapping(vex::bundle::kCorvane, vex::bundle::kGltf);
  ASSERT_TRUE(mapping);
  EXPECT_EQ((*mapping)->GetDescription().targetBundle, vex::bundle::kGltf);
  vex::ParameterSet viewport{vex::Id(vex::bundle::kViewport)};
  EXPECT_FALSE((*mapping)->PassOne(viewport));

  auto none = vex::FindMapping(vex::bundle::kObj, vex::bundle::kFbxPhong);
  ASSERT_FALSE(none);
  EXPECT_EQ(none.error().kind, vex::ErrorKind::NotFound);
  EXPECT_EQ(none.error().message, std::string("No material mapping from ") + std::string(vex::bundle::kObj) +
                                      " to " + std::string(vex::bundle::kFbxPhong));
  EXPECT_EQ(testing_support::Host().components().GetRegistryEntries(vex::registry::kMaterialMappers).size(),
            interop::mapping::kMappingClasses.size());
}

TEST(MappingFramework, TransfersRenameAndConvert) {
  auto mapping = vex::FindMapping(vex::bundle::kCorvane, vex::bundle::kObj);
  ASSERT_TRUE(mapping);
  vex::ParameterSet source{vex::Id(vex::bundle::kCorvane)};
  source.SetConstant("metalness", 0.5);
  vex::ParameterSet target{vex::Id(vex::bundle::kObj)};
  ASSERT_TRUE((*mapping)->TransferParam(source, target, "metalness", "metallic"));
  EXPECT_EQ(*target.Find("metallic")->Constant()->Get<double>(), 0.5);
  // The source bundle's default stands in for a port the set lacks.
  ASSERT_TRUE((*mapping)->TransferParamWithConvertion(
      source, target, "diffuse_weight", "half",
      [](const vex::Parameter& p) -> vex::Result<vex::Parameter> {
        return vex::Parameter::Constant(*p.Constant()->Get<double>() / 2);
      }));
  EXPECT_EQ(*target.Find("half")->Constant()->Get<double>(), 0.5);
  auto failing = (*mapping)->TransferParamWithConvertion(
      source, target, "metalness", "x",
      [](const vex::Parameter&) -> vex::Result<vex::Parameter> {
        return VEX_FAIL(vex::ErrorKind::WrongDataType, "Invalid TypedConstantParameter");
      });
  ASSERT_FALSE(failing);
  EXPECT_FALSE(target.Has("x"));
}

TEST(MappingFramework, ParallelLoopCoversEveryPixelOnce) {
  constexpr std::size_t kCount = 1'000'003;  // not a multiple of the grain
  std::vector<std::atomic<int>> hits(kCount);
  auto done = interop::mapping::ForEachPixel(kCount, [&](std::int64_t begin, std::int64_t end) {
    for (std::int64_t i = begin; i < end; ++i) hits[static_cast<std::size_t>(i)].fetch_add(1);
  });
  ASSERT_TRUE(done);
  std::size_t once = 0;
  for (const auto& h : hits) once += h.load() == 1;
  EXPECT_EQ(once, kCount);
  EXPECT_TRUE(interop::mapping::ForEachPixel(0, [](std::int64_t, std::int64_t) { FAIL(); }));

  auto broken = vex::Host().parallel->ParallelFor(-1, [](std::int64_t, std::int64_t) {});
  ASSERT_FALSE(broken);
  EXPECT_EQ(broken.error().message, "Assertion failed: Someone has broken ParallelFor.");
  EXPECT_EQ(broken.error().unit, "parallelfordynamic");
}

}  // namespace
