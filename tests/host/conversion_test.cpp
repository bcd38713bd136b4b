// The conversion path into a bundle: mappings either way, the importer's road through the Corvane
// bundle, what the path carries over a mapping or names in a warning, and the texture properties
// resolved the way a baker applies them.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "cli/files_support.h"
#include "host/formats/catalogue.h"
#include "host/formats/conversion.h"
#include "host/paramset_json.h"
#include "test_host.h"
#include "vex/ports.h"

namespace fs = std::filesystem;
namespace formats = host::formats;
namespace ports = vex::ports;

namespace {

class Conversion : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = fs::temp_directory_path() / ("conversion_test_" + std::to_string(getpid()));
    fs::remove_all(dir);
    files_test::WriteCorvaneInputs(dir);
  }
  void TearDown() override { fs::remove_all(dir); }
  vex::ParameterSetRef Input(const char* name) {
    auto& h = testing_support::Host();
    host::json::ReadOptions read{&h.bundles(), &h.images(), &h.ids()};
    auto set = host::json::ReadParameterSetFile((dir / name).string(), read);
    EXPECT_TRUE(set.has_value()) << set.error().message;
    return std::make_shared<const vex::ParameterSet>(std::move(*set));
  }
  static double Number(const vex::ParameterSet& set, std::string_view port) {
    const auto* entry = set.Find(port);
    EXPECT_NE(entry, nullptr) << port;
    return entry != nullptr ? *entry->Constant()->Get<double>() : -1.0;
  }
  formats::ConversionContext Context() { return {&testing_support::Host().documents()}; }
  fs::path dir;
};

TEST_F(Conversion, MappingsEitherWayAndWhatTheyLeaveOutIsCarriedOrNamed) {
  // USD: the mapping leaves the diffuse and emission weights out; each is named once.
  auto usd = formats::ToWriterBundle(Input("corvane_plain.json"), *formats::FindFormat("usd"), Context());
  ASSERT_TRUE(usd) << usd.error().message;
  EXPECT_TRUE(usd->mapped);
  EXPECT_EQ(usd->set->GetBundle(), ports::usdpreviewsurface::kId);
  ASSERT_EQ(usd->warnings.size(), 2u);
  EXPECT_NE(usd->warnings[0].find("diffuseColor is written without diffuse_weight (0.9)"), std::string::npos)
      << usd->warnings[0];
  EXPECT_NE(usd->warnings[1].find("emissiveColor is written without emission_weight (0.5)"), std::string::npos)
      << usd->warnings[1];

  // glTF: the weight above 1 that the mapping clamps travels as the emissive strength; OBJ: the
  // normal map's weight as the entry's strength.
  auto textured = Input("corvane_textured.json");
  auto gltf = formats::ToWriterBundle(textured, *formats::FindFormat("glb"), Context());
  ASSERT_TRUE(gltf) << gltf.error().message;
  EXPECT_EQ(Number(*gltf->set, ports::gltf::emissiveStrength), 3.0);
  EXPECT_TRUE(gltf->warnings.empty());
  auto obj = formats::ToWriterBundle(textured, *formats::FindFormat("obj"), Context());
  ASSERT_TRUE(obj) << obj.error().message;
  const auto* normal = obj->set->Find(ports::obj::normal_map);
  ASSERT_TRUE(normal != nullptr && normal->texture.has_value());
  ASSERT_NE(normal->properties.Find("strength"), nullptr);
  EXPECT_EQ(*normal->properties.Find("strength")->Get<double>(), 0.7);

  // A set already in a bundle the writer takes goes as it is; FBX takes OBJ sets second.
  auto asIs = formats::ToWriterBundle(obj->set, *formats::FindFormat("fbx"), Context());
  ASSERT_TRUE(asIs);
  EXPECT_FALSE(asIs->mapped);
  EXPECT_EQ(asIs->set, obj->set);

  // The glTF set back into Corvane: the Corvane-glTF mapping's import direction.
  auto back = formats::ConvertSet(gltf->set, ports::corvane::kId, Context());
  ASSERT_TRUE(back) << back.error().message;
  EXPECT_EQ(back->set->GetBundle(), ports::corvane::kId);

  // No road at all: NotFound naming both bundles.
  auto nowhere = std::make_shared<const vex::ParameterSet>(vex::Id("com.example.nobundle"));
  auto none = formats::ConvertSet(nowhere, ports::gltf::kId, Context());
  ASSERT_FALSE(none);
  EXPECT_EQ(none.error().kind, vex::ErrorKind::NotFound);
  EXPECT_NE(none.error().message.find("com.example.nobundle"), std::string::npos) << none.error().message;
}

TEST_F(Conversion, SetsTheImporterReadsReachEveryFormatWithTheirEmission) {
  // A generic set as an exporter makes it: colours, no factors (the model's factor is then 1).
  auto generic = std::make_shared<vex::ParameterSet>(vex::Id(ports::generic::kId));
  generic->SetConstant(ports::generic::diffuseColor, vex::Color{0.2, 0.6, 0.3});
  generic->SetConstant(ports::generic::emissiveColor, vex::Color{0.1, 0.3, 0.1});
  const vex::ParameterSetRef set = generic;
  auto usd = formats::ConvertSet(set, ports::usdpreviewsurface::kId, Context());
  ASSERT_TRUE(usd) << usd.error().message;
  const auto* emissive = usd->set->Find(ports::usdpreviewsurface::emissiveColor);
  ASSERT_NE(emissive, nullptr);
  const auto c = *emissive->Constant()->Get<vex::Color>();
  EXPECT_NEAR(c.r, 0.1, 1e-9);
  EXPECT_NEAR(c.g, 0.3, 1e-9);
  EXPECT_NEAR(c.b, 0.1, 1e-9);
  // Without a document to build the importer's material in, that road is closed.
  auto closed = formats::ConvertSet(set, ports::usdpreviewsurface::kId, {});
  ASSERT_FALSE(closed);
  EXPECT_EQ(closed.error().kind, vex::ErrorKind::NotFound);
}

TEST(ConversionTextures, ChannelSelectionAndValueScaleAreAppliedOnceAsABakerWould) {
  vex::ParameterSet set(vex::Id(ports::corvane::kId));
  auto packed = vex::TextureBuffer::Make(2, 1);
  const float texels[2][4] = {{0.1f, 0.4f, 0.8f, 0.5f}, {0.3f, 0.2f, 0.6f, 1.0f}};
  for (std::size_t i = 0; i < 2; ++i)
    for (int c = 0; c < 4; ++c) packed._pixels->Pixel(i)[c] = texels[i][c];
  auto metal = vex::Parameter::Textured(vex::PackedConstantParameter(1.0), packed);
  metal.properties.Set("channelSelect", std::string("b"));
  metal.properties.Set("valueScale", 0.5);
  metal.properties.Set("colorSpace", std::string("raw"));
  set.Set(ports::corvane::metalness, std::move(metal));
  auto rough = vex::Parameter::Textured(vex::PackedConstantParameter(1.0), packed);
  rough.properties.Set("channelSelect", std::string("g"));
  set.Set(ports::corvane::reflection_roughness, std::move(rough));
  set.Set(ports::corvane::diffuse_color, vex::Parameter::Textured(vex::PackedConstantParameter(vex::Color{1, 1, 1}), packed));

  formats::ResolveTextureProperties(set);
  const auto* m = set.Find(ports::corvane::metalness);
  for (std::size_t i = 0; i < 2; ++i) {
    const float* px = m->texture->_pixels->Pixel(i);
    // The one selected value in every channel, alpha too (a mean over four channels keeps it).
    for (int c = 0; c < 4; ++c) EXPECT_FLOAT_EQ(px[c], texels[i][2] * 0.5f) << i << c;
    const float* r = set.Find(ports::corvane::reflection_roughness)->texture->_pixels->Pixel(i);
    for (int c = 0; c < 3; ++c) EXPECT_FLOAT_EQ(r[c], texels[i][1]);
    // Without properties the texels stay as they are; the shared source buffer is untouched.
    const float* d = set.Find(ports::corvane::diffuse_color)->texture->_pixels->Pixel(i);
    for (int c = 0; c < 4; ++c) EXPECT_FLOAT_EQ(d[c], texels[i][c]);
    for (int c = 0; c < 4; ++c) EXPECT_FLOAT_EQ(packed._pixels->Pixel(i)[c], texels[i][c]);
  }
  EXPECT_FALSE(m->properties.Contains("channelSelect"));
  EXPECT_FALSE(m->properties.Contains("valueScale"));
  EXPECT_TRUE(m->properties.Contains("colorSpace"));
  // A second pass changes nothing: the properties are gone.
  formats::ResolveTextureProperties(set);
  EXPECT_FLOAT_EQ(set.Find(ports::corvane::metalness)->texture->_pixels->Pixel(0)[0], texels[0][2] * 0.5f);
}

TEST(ConversionTextures, AChannelThatHoldsNothingButOnesLeavesTheFactorAsTheConstant) {
  // glTF packs a constant metal as blue 1 beside a textured roughness; the import selects blue and
  // scales it by the factor. Blue 1 everywhere (or a scale of 0) leaves the factor alone: the port
  // becomes that constant, in the constant's own type, its other properties kept.
  vex::ParameterSet set(vex::Id(ports::corvane::kId));
  auto packed = vex::TextureBuffer::Make(2, 1);
  const float texels[2][4] = {{0.0f, 0.2f, 1.0f, 1.0f}, {0.0f, 0.7f, 1.0f, 0.4f}};
  for (std::size_t i = 0; i < 2; ++i)
    for (int c = 0; c < 4; ++c) packed._pixels->Pixel(i)[c] = texels[i][c];
  const auto selected = [&](std::string_view port, vex::PackedConstantParameter constant, const char* channel,
                            double scale) {
    auto entry = vex::Parameter::Textured(std::move(constant), packed);
    entry.properties.Set("channelSelect", std::string(channel));
    entry.properties.Set("valueScale", scale);
    entry.properties.Set("makeImplicit", true);
    set.Set(port, std::move(entry));
  };
  selected(ports::corvane::metalness, vex::PackedConstantParameter(0.5), "b", 0.5);
  selected(ports::corvane::reflection_roughness, vex::PackedConstantParameter(1.0), "g", 0.0);
  selected(ports::corvane::opacity, vex::PackedConstantParameter(vex::Color{0.8, 0.8, 0.8}), "a", 0.8);
  selected(ports::corvane::overall_tint, vex::PackedConstantParameter(vex::Color{1, 1, 1}), "r", 1.0);

  formats::ResolveTextureProperties(set);
  const auto* metal = set.Find(ports::corvane::metalness);
  ASSERT_FALSE(metal->texture.has_value());
  EXPECT_DOUBLE_EQ(*metal->Constant()->Get<double>(), 0.5);
  EXPECT_TRUE(metal->properties.Contains("makeImplicit"));
  EXPECT_FALSE(metal->properties.Contains("valueScale"));
  const auto* rough = set.Find(ports::corvane::reflection_roughness);
  ASSERT_FALSE(rough->texture.has_value());
  EXPECT_DOUBLE_EQ(*rough->Constant()->Get<double>(), 0.0);
  // Alpha 0.4 in one pixel: the opacity stays a texture, its selected value in every channel.
  const auto* opacity = set.Find(ports::corvane::opacity);
  ASSERT_TRUE(opacity->texture.has_value());
  for (int c = 0; c < 4; ++c) EXPECT_FLOAT_EQ(opacity->texture->_pixels->Pixel(1)[c], 0.4f * 0.8f);
  // Red 0 everywhere is not "nothing": the occlusion keeps its (black) texture.
  const auto* tint = set.Find(ports::corvane::overall_tint);
  ASSERT_TRUE(tint->texture.has_value());
  EXPECT_FLOAT_EQ(tint->texture->_pixels->Pixel(0)[0], 0.0f);
}

}  // namespace
