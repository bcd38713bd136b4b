// The node material baker: sizes and fitting modes, filtered resampling, colour
// spaces, procedural nodes and refusals.
#include <gtest/gtest.h>

#include <cmath>

#include "material/nodematerialbaker.h"
#include "material_support.h"

namespace {

using namespace testing_support;
using interop::material::BakeNodeInput;
using interop::material::BakeSettings;
using interop::material::FittedDimensions;

struct Graph {
  vex::NodeGraph graph;
  Graph() {
    graph.endNode = "material";
    graph.nodes.push_back({"material", vex::Id(vex::node::kCorvaneMaterial), {}});
  }
  Graph& Add(vex::GraphNode node, std::string port, std::string to = "material") {
    graph.links.push_back({node.id, std::move(to), std::move(port)});
    graph.nodes.push_back(std::move(node));
    return *this;
  }
  vex::Result<vex::TextureBuffer> Bake(std::string_view port, std::int64_t size, vex::TextureResize resize,
                                       const vex::IDocument* document = nullptr, bool color = false) const {
    return BakeNodeInput(graph, *graph.EndNode(), port, BakeSettings{size, resize}, document, color);
  }
};

const float* Px(const vex::TextureBuffer& t, std::int64_t x, std::int64_t y) {
  return t._pixels->Pixel(static_cast<std::size_t>(y * t._dimensions.width + x));
}

TEST(NodeMaterialBaker, FittedDimensions) {
  EXPECT_EQ(FittedDimensions({40, 20}, 16, vex::TextureResize::Stretch), (vex::Dimensions{16, 16}));
  EXPECT_EQ(FittedDimensions({40, 20}, 16, vex::TextureResize::Pad), (vex::Dimensions{16, 16}));
  EXPECT_EQ(FittedDimensions({40, 20}, 16, vex::TextureResize::Crop), (vex::Dimensions{16, 16}));
  EXPECT_EQ(FittedDimensions({40, 20}, 16, vex::TextureResize::Fit), (vex::Dimensions{16, 8}));
  EXPECT_EQ(FittedDimensions({3, 300}, 16, vex::TextureResize::Fit), (vex::Dimensions{1, 16}));
}

TEST(NodeMaterialBaker, ImageAtOtherSizesInEveryMode) {
  ScratchDocument scratch("bakeimage");
  // 4 x 2 float image (raw data): left half 1, right half 0.
  scratch.Image("half.exr", 4, 2, [](auto x, auto) { return std::array<float, 4>{x < 2 ? 1.f : 0.f, 0.5f, 0, 1}; },
                true);
  Graph g;
  g.Add({"img", vex::Id(vex::node::kImage), Ports({{"file", std::string("half.exr")}})}, "reflection_roughness");

  // Minified 4x2 -> 2x2 stretch: exact area means, left 1 and right 0.
  auto small = g.Bake("reflection_roughness", 2, vex::TextureResize::Stretch, scratch.document);
  ASSERT_TRUE(small) << small.error().Describe();
  EXPECT_EQ(small->_dimensions, (vex::Dimensions{2, 2}));
  EXPECT_FLOAT_EQ(Px(*small, 0, 0)[0], 1.f);
  EXPECT_FLOAT_EQ(Px(*small, 1, 1)[0], 0.f);
  // 4x2 -> 1x1: the mean of the whole image.
  auto one = g.Bake("reflection_roughness", 1, vex::TextureResize::Stretch, scratch.document);
  ASSERT_TRUE(one);
  EXPECT_FLOAT_EQ(Px(*one, 0, 0)[0], 0.5f);
  EXPECT_FLOAT_EQ(Px(*one, 0, 0)[1], 0.5f);

  // Pad to 8x8: the image fills 8x4 in the middle rows, the rest transparent black.
  auto pad = g.Bake("reflection_roughness", 8, vex::TextureResize::Pad, scratch.document);
  ASSERT_TRUE(pad);
  EXPECT_EQ(pad->_dimensions, (vex::Dimensions{8, 8}));
  EXPECT_FLOAT_EQ(Px(*pad, 0, 0)[3], 0.f);
  EXPECT_FLOAT_EQ(Px(*pad, 7, 7)[3], 0.f);
  EXPECT_FLOAT_EQ(Px(*pad, 0, 3)[0], 1.f);
  EXPECT_FLOAT_EQ(Px(*pad, 0, 3)[3], 1.f);
  EXPECT_FLOAT_EQ(Px(*pad, 7, 4)[0], 0.f);

  // Crop to 4x4: the middle 2x2 of the source (columns 1-2) covers it; left edge 1, right edge 0.
  auto crop = g.Bake("reflection_roughness", 4, vex::TextureResize::Crop, scratch.document);
  ASSERT_TRUE(crop);
  EXPECT_FLOAT_EQ(Px(*crop, 0, 0)[0], 1.f);
  EXPECT_FLOAT_EQ(Px(*crop, 3, 3)[0], 0.f);
  EXPECT_FLOAT_EQ(Px(*crop, 0, 0)[3], 1.f);  // no padding

  // Magnified 4x2 -> 16x16 stretch: bilinear, monotone across the edge, ends exact.
  auto big = g.Bake("reflection_roughness", 16, vex::TextureResize::Stretch, scratch.document);
  ASSERT_TRUE(big);
  EXPECT_FLOAT_EQ(Px(*big, 0, 8)[0], 1.f);
  EXPECT_FLOAT_EQ(Px(*big, 15, 8)[0], 0.f);
  for (int x = 1; x < 16; ++x) EXPECT_LE(Px(*big, x, 8)[0], Px(*big, x - 1, 8)[0]);
  EXPECT_GT(Px(*big, 7, 8)[0], 0.f);
  EXPECT_LT(Px(*big, 7, 8)[0], 1.f);
}

TEST(NodeMaterialBaker, ColourSpaceChannelSelectAndValueScale) {
  ScratchDocument scratch("bakecolour");
  // 8-bit PNG holding sRGB 0.5 grey (written from linear 0.5 without encoding).
  scratch.Image("grey.png", 2, 2, [](auto, auto) { return std::array<float, 4>{0.5f, 0.25f, 1.f, 1.f}; });
  Graph colour;
  colour.Add({"img", vex::Id(vex::node::kImage), Ports({{"file", std::string("grey.png")}})}, "diffuse_color");
  auto srgb = colour.Bake("diffuse_color", 2, vex::TextureResize::Stretch, scratch.document, true);
  ASSERT_TRUE(srgb);
  EXPECT_NEAR(Px(*srgb, 0, 0)[0], 0.2158f, 0.002f);  // decoded to linear light
  EXPECT_EQ(srgb->colorSpace, "sRGB");

  Graph raw;
  raw.Add({"img", vex::Id(vex::node::kCorvaneImage),
           Ports({{"file", std::string("grey.png")}, {"colorSpace", std::string("raw")},
                  {"channelSelect", std::string("g")}, {"valueScale", 2.0}})},
          "diffuse_color");
  auto data = raw.Bake("diffuse_color", 2, vex::TextureResize::Stretch, scratch.document, true);
  ASSERT_TRUE(data);
  EXPECT_NEAR(Px(*data, 1, 1)[0], 0.502f, 0.004f);  // green 0.251 scaled by 2, on all three channels
  EXPECT_NEAR(Px(*data, 1, 1)[2], 0.502f, 0.004f);
  EXPECT_FLOAT_EQ(Px(*data, 1, 1)[3], 1.f);
}

TEST(NodeMaterialBaker, ProceduralNodes) {
  Graph g;
  g.Add({"check", vex::Id(vex::node::kChecker),
         Ports({{"squares", 2.0}, {"color2", vex::Color{0, 0, 1}}})}, "diffuse_color")
      .Add({"ramp", vex::Id(vex::node::kLinearGradient),
            Ports({{"color1", vex::Color{0, 0, 0}}, {"color2", vex::Color{1, 1, 1}}})}, "color1", "check")
      .Add({"flat", vex::Id(vex::node::kConstantColor), Ports({{"color", vex::ColorA{0.25, 0.5, 0.75, 0.5}}})},
           "opacity");
  auto checker = g.Bake("diffuse_color", 4, vex::TextureResize::Pad);
  ASSERT_TRUE(checker) << checker.error().Describe();
  // Square (0,0) takes the gradient (left to right), square (1,0) the blue colour.
  EXPECT_NEAR(Px(*checker, 0, 0)[0], 0.125f, 1e-5);
  EXPECT_NEAR(Px(*checker, 1, 0)[0], 0.375f, 1e-5);
  EXPECT_FLOAT_EQ(Px(*checker, 2, 0)[2], 1.f);
  EXPECT_FLOAT_EQ(Px(*checker, 2, 0)[0], 0.f);
  EXPECT_NEAR(Px(*checker, 3, 3)[0], 0.875f, 1e-5);
  auto flat = g.Bake("opacity", 3, vex::TextureResize::Crop);
  ASSERT_TRUE(flat);
  EXPECT_EQ(flat->_dimensions, (vex::Dimensions{3, 3}));
  for (std::size_t i = 0; i < flat->GetCount(); ++i) EXPECT_FLOAT_EQ(flat->_pixels->Pixel(i)[3], 0.5f);
}

TEST(NodeMaterialBaker, Refusals) {
  Graph g;
  g.Add({"odd", vex::Id("net.kelvo.nodes.node.noise"), {}}, "diffuse_color")
      .Add({"img", vex::Id(vex::node::kImage), Ports({{"file", std::string("/no/such/file.png")}})}, "opacity")
      .Add({"a", vex::Id(vex::node::kChecker), {}}, "metalness")
      .Add({"b", vex::Id(vex::node::kChecker), {}}, "color1", "a");
  g.graph.links.push_back({"a", "b", "color1"});  // a cycle a -> b -> a
  auto odd = g.Bake("diffuse_color", 4, vex::TextureResize::Stretch);
  ASSERT_FALSE(odd);
  EXPECT_EQ(odd.error().message, "Illegal argument: node odd (net.kelvo.nodes.node.noise) cannot be baked");
  EXPECT_EQ(odd.error().unit, "nodematerialbaker");
  auto missing = g.Bake("opacity", 4, vex::TextureResize::Stretch);
  ASSERT_FALSE(missing);
  EXPECT_NE(missing.error().message.find("/no/such/file.png"), std::string::npos);
  auto cycle = g.Bake("metalness", 4, vex::TextureResize::Stretch);
  ASSERT_FALSE(cycle);
  EXPECT_NE(cycle.error().message.find("cycle"), std::string::npos);
  EXPECT_FALSE(g.Bake("metalness", 0, vex::TextureResize::Stretch));
  EXPECT_FALSE(g.Bake("metalness", 4, static_cast<vex::TextureResize>(9)));
  EXPECT_EQ(g.Bake("coat_weight", 4, vex::TextureResize::Stretch).error().message,
            "Illegal argument: port coat_weight of node material has no texture input");
}

}  // namespace
