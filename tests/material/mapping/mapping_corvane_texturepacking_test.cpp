// The glTF texture combining pass: merges in place, the size and pixel-array
// checks, and runs that fail leaving every buffer as it was.
#include <gtest/gtest.h>

#include "corvane_mapping_support.h"
#include "material/mapping/mapping_corvane_gltfpbr.h"
#include "material/mapping/mappings.h"

namespace {

using namespace corvane_test;
using interop::mapping::CollectedTextures;
using interop::mapping::CombineTextures;
using interop::mapping::FileTexture;

void Add(CollectedTextures& c, std::string_view source, std::string_view role, const vex::TextureBuffer& t) {
  c.insert_or_assign(std::string(source), FileTexture(source, role, t));
}

vex::ParameterSet GltfTarget() { return vex::ParameterSet(vex::Id(vex::bundle::kGltf)); }

TEST(GltfTexturePacking, OpacityMergesUseFourChannelsWithBaseColourAndThreeAlone) {
  const auto base = Tex4({0.1f, 0.2f, 0.3f, 0.9f}, {0.4f, 0.5f, 0.6f, 0.9f}, {1, 1, 1, 1}, {0, 0, 0, 0});
  const auto opacity = Tex4({1, 1, 1, 1}, {0, 0, 0, 1}, {0.2f, 0.4f, 0.6f, 0.5f}, {1, 1, 1, 0});
  CollectedTextures c;
  Add(c, "diffuse_color", "baseColorTexture", base);
  Add(c, "opacity", "opacity", opacity);
  auto target = GltfTarget();
  ASSERT_TRUE(CombineTextures(c, target));
  EXPECT_TRUE(c.empty());
  const auto* merged = TextureOn(target, "baseColorTexture");
  ASSERT_NE(merged, nullptr);
  // The base colour buffer itself is the result: no merge allocates.
  EXPECT_EQ(merged->_pixels.get(), base._pixels.get());
  EXPECT_EQ(PixelOf(*merged, 0), (Pixel{0.1f, 0.2f, 0.3f, 1.0f}));  // opaque white keeps alpha 1
  EXPECT_EQ(PixelOf(*merged, 1), (Pixel{0.4f, 0.5f, 0.6f, 0.25f}));  // black with alpha 1: 0.25, not 0
  EXPECT_EQ(PixelOf(*merged, 2), (Pixel{1, 1, 1, (0.2f + 0.4f + 0.6f + 0.5f) * 0.25f}));
  EXPECT_EQ(PixelOf(*merged, 3), (Pixel{0, 0, 0, 0.75f}));
  EXPECT_EQ(target.Size(), 1u);

  // Opacity alone: white, with the mean of the three colour channels as alpha.
  const auto alone = Tex4({0.3f, 0.6f, 0.9f, 1}, {0, 0, 0, 1}, {1, 1, 1, 0}, {0.5f, 0.5f, 0.5f, 0.5f});
  Add(c, "opacity", "opacity", alone);
  target = GltfTarget();
  ASSERT_TRUE(CombineTextures(c, target));
  merged = TextureOn(target, "baseColorTexture");
  ASSERT_NE(merged, nullptr);
  EXPECT_EQ(merged->_pixels.get(), alone._pixels.get());
  EXPECT_EQ(PixelOf(*merged, 0), (Pixel{1, 1, 1, (0.3f + 0.6f + 0.9f) * 0.33333334f}));
  EXPECT_EQ(PixelOf(*merged, 1), (Pixel{1, 1, 1, 0}));
  EXPECT_EQ(PixelOf(*merged, 2), (Pixel{1, 1, 1, 3.0f * 0.33333334f}));
  // The stored entry gets the glTF default constant beside the texture.
  EXPECT_EQ(Const<vex::ColorA>(target, "baseColorTexture"), (vex::ColorA{1, 1, 1, 1}));

  // Base colour alone is stored untouched.
  const auto plain = Tex({0.1f, 0.2f, 0.3f, 0.4f});
  Add(c, "diffuse_color", "baseColorTexture", plain);
  target = GltfTarget();
  ASSERT_TRUE(CombineTextures(c, target));
  EXPECT_EQ(PixelOf(*TextureOn(target, "baseColorTexture"), 0), (Pixel{0.1f, 0.2f, 0.3f, 0.4f}));
}

TEST(GltfTexturePacking, TransmissionIsInvertedBeforeItBecomesOpacity) {
  const auto transmission = Tex({0.25f, 0.25f, 0.25f, 1});
  CollectedTextures c;
  Add(c, "transmission_weight", "opacity", transmission);
  auto target = GltfTarget();
  ASSERT_TRUE(CombineTextures(c, target));
  const auto* merged = TextureOn(target, "baseColorTexture");
  ASSERT_NE(merged, nullptr);
  EXPECT_EQ(merged->_pixels.get(), transmission._pixels.get());
  EXPECT_EQ(PixelOf(*merged, 0), (Pixel{1, 1, 1, (0.75f + 0.75f + 0.75f) * 0.33333334f}));
  EXPECT_FLOAT_EQ(PixelOf(*merged, 0)[3], 0.75f);

  // Inverted colour channels, alpha kept, when merged into a base colour.
  const auto base = Tex({0.5f, 0.5f, 0.5f, 1});
  const auto tinted = Tex({0.25f, 0.5f, 1.0f, 0.5f});
  Add(c, "diffuse_color", "baseColorTexture", base);
  Add(c, "transmission_weight", "opacity", tinted);
  target = GltfTarget();
  ASSERT_TRUE(CombineTextures(c, target));
  EXPECT_EQ(PixelOf(tinted, 0), (Pixel{0.75f, 0.5f, 0.0f, 0.5f}));
  EXPECT_EQ(PixelOf(base, 0), (Pixel{0.5f, 0.5f, 0.5f, (0.75f + 0.5f + 0.0f + 0.5f) * 0.25f}));
}

TEST(GltfTexturePacking, MetalRoughnessAndOcclusionLayouts) {
  const auto metal = Tex4({0.9f, 0.1f, 0.9f, 0.9f}, {0, 0.2f, 0, 0}, {0, 0.3f, 0, 0}, {0, 0.4f, 0, 0});
  const auto rough = Tex4({0.9f, 0.5f, 0.9f, 0.9f}, {0, 0.6f, 0, 0}, {0, 0.7f, 0, 0}, {0, 0.8f, 0, 0});
  CollectedTextures c;
  Add(c, "metalness", "metallicRoughnessTexture", metal);
  Add(c, "reflection_roughness", "roughness", rough);
  auto target = GltfTarget();
  ASSERT_TRUE(CombineTextures(c, target));
  const auto* packed = TextureOn(target, "metallicRoughnessTexture");
  ASSERT_NE(packed, nullptr);
  EXPECT_EQ(packed->_pixels.get(), metal._pixels.get());
  EXPECT_EQ(PixelOf(*packed, 0), (Pixel{0, 0.5f, 0.1f, 1}));
  EXPECT_EQ(PixelOf(*packed, 3), (Pixel{0, 0.8f, 0.4f, 1}));
  EXPECT_FALSE(target.Has("roughness"));

  // One texture only (roughness, or metalness): its green stays green, blue becomes 1.
  const auto only = Tex({0.9f, 0.35f, 0.2f, 0.1f});
  Add(c, "reflection_roughness", "metallicRoughnessTexture", only);
  target = GltfTarget();
  ASSERT_TRUE(CombineTextures(c, target));
  EXPECT_EQ(PixelOf(*TextureOn(target, "metallicRoughnessTexture"), 0), (Pixel{0, 0.35f, 1, 1}));

  // Through the mapping: textured roughness, constant metalness.
  auto set = Corvane();
  set->SetConstant("fresnel_type", std::string("metalness"));
  set->SetConstant("metalness", 0.3);
  set->Set("reflection_roughness", Textured(0.0, Tex({0.4f, 0.6f, 0.8f, 1})));
  auto out = Map(interop::mapping::classid::kCorvaneToGltfPbr, set);
  ASSERT_TRUE(out);
  EXPECT_EQ(Const<double>(*out->target, "metallicFactor"), 0.3);
  EXPECT_EQ(PixelOf(*TextureOn(*out->target, "metallicRoughnessTexture"), 0), (Pixel{0, 0.6f, 1, 1}));

  const auto occlusion = Tex4({0.2f, 0.4f, 0.6f, 0.8f}, {1, 1, 1, 1}, {0, 0, 0, 0}, {0, 0, 0, 1});
  Add(c, "overall_tint", "occlusionTexture", occlusion);
  target = GltfTarget();
  ASSERT_TRUE(CombineTextures(c, target));
  const auto* occl = TextureOn(target, "occlusionTexture");
  ASSERT_NE(occl, nullptr);
  EXPECT_EQ(occl->_pixels.get(), occlusion._pixels.get());
  EXPECT_EQ(PixelOf(*occl, 0), (Pixel{(0.2f + 0.4f + 0.6f + 0.8f) * 0.25f, 0, 0, 1}));
  EXPECT_EQ(PixelOf(*occl, 1), (Pixel{1, 0, 0, 1}));
  EXPECT_EQ(PixelOf(*occl, 3), (Pixel{0.25f, 0, 0, 1}));
}

TEST(GltfTexturePacking, OtherRolesPassThroughAndNothingCollectedWritesNothing) {
  CollectedTextures c;
  auto target = GltfTarget();
  ASSERT_TRUE(CombineTextures(c, target));
  EXPECT_TRUE(target.IsEmpty());

  const auto emissive = Tex({0.3f, 0.2f, 0.1f, 0.5f});
  const auto normal = Tex({0.5f, 0.5f, 1, 1});
  Add(c, "emission_color", "emissiveTexture", emissive);
  Add(c, "overall_normal", "normalTexture", normal);
  ASSERT_TRUE(CombineTextures(c, target));
  EXPECT_EQ(target.Size(), 2u);
  EXPECT_EQ(TextureOn(target, "emissiveTexture")->_pixels.get(), emissive._pixels.get());
  EXPECT_EQ(PixelOf(*TextureOn(target, "emissiveTexture"), 0), (Pixel{0.3f, 0.2f, 0.1f, 0.5f}));
  EXPECT_EQ(Const<vex::ColorA>(target, "normalTexture"), (vex::ColorA{0.5, 0.5, 1, 1}));
}

TEST(GltfTexturePacking, ChecksFailBeforeAnyPixelIsRewritten) {
  const std::string unit = "mapping_corvane_gltfpbr";
  auto noPixels = Tex({1, 1, 1, 1});
  noPixels._pixels.reset();
  // A buffer whose pixel array does not match its size.
  auto short2x2 = Tex({1, 1, 1, 1});
  short2x2._pixels = vex::PixelArray::Allocate(3);
  for (std::size_t i = 0; i < 3; ++i)
    for (int k = 0; k < 4; ++k) short2x2._pixels->Pixel(i)[k] = 1.0f;

  const struct {
    const char* what;
    std::vector<std::tuple<const char*, const char*, vex::TextureBuffer>> entries;
    const char* message;
  } cases[] = {
      {"opacity without pixels",
       {{"opacity", "opacity", noPixels}, {"diffuse_color", "baseColorTexture", Tex({0.5f, 0.5f, 0.5f, 1})}},
       "Illegal state: Condition opPixels not fulfilled. "},
      {"base colour without pixels",
       {{"opacity", "opacity", Tex({0, 0, 0, 1})}, {"diffuse_color", "baseColorTexture", noPixels}},
       "Illegal state: Condition bcPixels not fulfilled. "},
      {"different sizes",
       {{"opacity", "opacity", Tex({0, 0, 0, 1}, 256, 256)},
        {"diffuse_color", "baseColorTexture", Tex({0.5f, 0.5f, 0.5f, 1}, 512, 512)}},
       "Illegal state: Condition opDims.IsEqual(bcTexBuffer._dimensions, 0) not fulfilled. "},
      {"different counts",
       {{"opacity", "opacity", short2x2}, {"diffuse_color", "baseColorTexture", Tex({0.5f, 0.5f, 0.5f, 1})}},
       "Illegal state: Condition opPixels->GetCount() == bcPixels->GetCount() not fulfilled. "},
      {"metal without pixels",
       {{"metalness", "metallicRoughnessTexture", noPixels}},
       "Illegal state: Condition metPixels not fulfilled. "},
      {"roughness without pixels",
       {{"metalness", "metallicRoughnessTexture", Tex({0, 0.5f, 0, 1})}, {"reflection_roughness", "roughness", noPixels}},
       "Illegal state: Condition roughPixels not fulfilled. "},
      {"metal and roughness counts",
       {{"metalness", "metallicRoughnessTexture", Tex({0, 0.5f, 0, 1})},
        {"reflection_roughness", "roughness", Tex({0, 0.5f, 0, 1}, 4, 4)}},
       "Illegal state: Condition metPixels->GetCount() == roughPixels->GetCount() not fulfilled. "},
      {"occlusion without pixels",
       {{"transmission_weight", "opacity", Tex({0.25f, 0.25f, 0.25f, 1})},
        {"diffuse_color", "baseColorTexture", Tex({0.5f, 0.5f, 0.5f, 1})},
        {"overall_tint", "occlusionTexture", noPixels}},
       "Illegal state: Condition occlPixels not fulfilled. "},
  };
  for (const auto& tc : cases) {
    CollectedTextures c;
    std::vector<std::pair<const vex::TextureBuffer*, std::vector<Pixel>>> before;
    for (const auto& [source, role, texture] : tc.entries) {
      Add(c, source, role, texture);
      std::vector<Pixel> pixels;
      for (std::size_t i = 0; i < texture.GetCount(); ++i) pixels.push_back(PixelOf(texture, i));
      before.emplace_back(&texture, std::move(pixels));
    }
    auto target = GltfTarget();
    auto combined = CombineTextures(c, target);
    ASSERT_FALSE(combined) << tc.what;
    EXPECT_EQ(combined.error().kind, vex::ErrorKind::IllegalState) << tc.what;
    EXPECT_EQ(combined.error().message, tc.message) << tc.what;
    EXPECT_EQ(combined.error().unit, unit) << tc.what;
    // Nothing stored, nothing rewritten (the inversion of transmission included).
    EXPECT_FALSE(target.Has("baseColorTexture")) << tc.what;
    EXPECT_FALSE(target.Has("metallicRoughnessTexture")) << tc.what;
    for (const auto& [texture, pixels] : before)
      for (std::size_t i = 0; i < pixels.size(); ++i) EXPECT_EQ(PixelOf(*texture, i), pixels[i]) << tc.what;
  }

  // An entry that is not a texture buffer: the framework's wrong data type.
  CollectedTextures c;
  c.insert_or_assign("opacity", interop::mapping::FiledTexture{"opacity", "opacity", vex::Data(std::string("x"))});
  auto target = GltfTarget();
  auto wrong = CombineTextures(c, target);
  ASSERT_FALSE(wrong);
  EXPECT_EQ(wrong.error().kind, vex::ErrorKind::WrongDataType);
  EXPECT_EQ(wrong.error().message, "Invalid TypedConstantParameter");
}

TEST(GltfTexturePacking, DifferentSizesFailTheWholeMapping) {
  auto set = Corvane();
  const auto base = Tex({0.5f, 0.5f, 0.5f, 1}, 512, 512);
  set->Set("diffuse_color", Textured(vex::Color{1, 1, 1}, base));
  set->Set("opacity", Textured(vex::Color{1, 1, 1}, Tex({0, 0, 0, 1}, 256, 256)));
  auto out = Map(interop::mapping::classid::kCorvaneToGltfPbr, set);
  ASSERT_FALSE(out);
  EXPECT_EQ(out.error().message, "Illegal state: Condition opDims.IsEqual(bcTexBuffer._dimensions, 0) not fulfilled. ");
  EXPECT_EQ(PixelOf(base, 0), (Pixel{0.5f, 0.5f, 0.5f, 1}));
}

}  // namespace
