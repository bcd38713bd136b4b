// Mapping dumps describe a texture by its size; reading a dump back gives a
// texture of that size filled with the constant beside it.
#include <gtest/gtest.h>

#include <array>

#include "host/paramset_json.h"
#include "test_host.h"

namespace {

vex::Result<vex::ParameterSet> Parse(std::string_view text) {
  auto& h = testing_support::Host();
  host::json::ReadOptions o;
  o.bundles = &h.bundles();
  o.ids = &h.ids();
  return host::json::ParseParameterSet(text, "dump", ".", o);
}

TEST(ParameterSetJsonDump, DescribedTexturesReadBackAtTheirSize) {
  vex::ParameterSet set{vex::Id(vex::bundle::kViewport)};
  set.Set("base.color", vex::Parameter::Textured(vex::PackedConstantParameter(vex::Color{0.25, 0.5, 0.75}),
                                                 vex::TextureBuffer::Make(3, 2)));
  set.Set("alpha", vex::Parameter::Textured(vex::PackedConstantParameter(0.5), vex::TextureBuffer::Make(1, 4)));
  const std::string text = host::json::DumpParameterSet(set, host::json::TextureMode::Describe);
  auto back = Parse(text);
  ASSERT_TRUE(back) << back.error().Describe();
  const auto& color = back->Find("base.color")->texture;
  ASSERT_TRUE(color);
  EXPECT_EQ(color->_dimensions, (vex::Dimensions{3, 2}));
  const float* p = color->_pixels->Pixel(5);
  EXPECT_EQ((std::array<float, 4>{p[0], p[1], p[2], p[3]}), (std::array<float, 4>{0.25f, 0.5f, 0.75f, 1}));
  const float* a = back->Find("alpha")->texture->_pixels->Pixel(3);
  EXPECT_EQ((std::array<float, 4>{a[0], a[1], a[2], a[3]}), (std::array<float, 4>{0.5f, 0.5f, 0.5f, 1}));
  EXPECT_EQ(host::json::DumpParameterSet(*back, host::json::TextureMode::Describe), text);

  for (const char* bad : {R"({"width": 0, "height": 2})", R"({"width": 2})", R"({"width": 2, "height": 2.5})",
                          R"({"width": 2, "height": 2, "depth": 1})", R"({"width": 100000, "height": 1})"}) {
    auto r = Parse(std::string(R"({"bundle": "net.kelvo.nodespace.exchange.bundle.viewportmaterial",
      "parameters": {"alpha": {"type": "Float", "value": 1, "texture": )") + bad + "}}}");
    ASSERT_FALSE(r) << bad;
    EXPECT_TRUE(r.error().message.starts_with("dump: parameters.alpha.texture: expected")) << r.error().message;
  }
}

}  // namespace
