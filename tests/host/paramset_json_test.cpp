// The parameter-set JSON: reading with clear errors, writing with textures,
// and leaving nothing behind on failure.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "host/images.h"
#include "host/json_codec.h"
#include "host/paramset_json.h"
#include "test_host.h"

namespace fs = std::filesystem;

namespace {

struct TempDir {
  fs::path path;
  TempDir() : path(fs::temp_directory_path() / ("interop_json_" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) + "_" + std::to_string(reinterpret_cast<std::uintptr_t>(this)))) {
    fs::create_directories(path);
  }
  ~TempDir() { fs::remove_all(path); }
};

host::json::ReadOptions Options() {
  auto& h = testing_support::Host();
  host::json::ReadOptions o;
  o.bundles = &h.bundles();
  o.images = &h.images();
  o.ids = &h.ids();
  return o;
}

std::string ErrorOf(std::string_view text) {
  auto r = host::json::ParseParameterSet(text, "in.json", ".", Options());
  return r ? std::string() : r.error().message;
}

TEST(ParameterSetJson, ReadsEveryConstantTypeAndKeepsOrder) {
  auto set = host::json::ParseParameterSet(R"({"bundle": "net.kelvo.nodespace.exchange.bundle.viewportmaterial",
    "parameters": {"type": {"type": "InternedId", "value": "metal"},
                   "base.color": {"type": "Color", "value": [0.9, 0.6, 0.2]},
                   "transmissivity ": {"type": "Float", "value": 0.4, "properties": {"mute": true}}}})",
                                           "in.json", ".", Options());
  ASSERT_TRUE(set) << set.error().message;
  EXPECT_EQ(set->GetBundle(), vex::bundle::kViewport);
  ASSERT_EQ(set->Size(), 3u);
  EXPECT_EQ(set->Entries()[2].first, "transmissivity ");
  EXPECT_EQ(*set->Find("type")->Constant()->Get<vex::InternedId>(), vex::InternedId::Intern("metal"));
  EXPECT_EQ(*set->Find("transmissivity ")->properties.Find("mute")->Get<bool>(), true);
  // Serialising and reading back gives the same set.
  auto text = host::json::DumpParameterSet(*set, host::json::TextureMode::Describe);
  auto again = host::json::ParseParameterSet(text, "again.json", ".", Options());
  ASSERT_TRUE(again) << again.error().message;
  EXPECT_EQ(host::json::DumpParameterSet(*again, host::json::TextureMode::Describe), text);
}

TEST(ParameterSetJson, ErrorsNameTheFileAndTheKey) {
  EXPECT_EQ(ErrorOf("{"), "in.json:1:2: not valid JSON: unexpected end of text");
  EXPECT_EQ(ErrorOf(R"({"bundle": "net.kelvo.material.portbundle.gltf", "extra": 1})"),
            "in.json: extra: unknown key (expected \"bundle\" and \"parameters\")");
  EXPECT_EQ(ErrorOf(R"({"bundle": "no.such.bundle"})"), "in.json: bundle: Unknown port bundle: no.such.bundle");
  EXPECT_EQ(ErrorOf(R"({"bundle": "net.kelvo.material.portbundle.gltf",
                        "parameters": {"metallicFactor": {"type": "Color", "value": [1, 1, 1]}}})"),
            "in.json: parameters.metallicFactor: wrong type \"Color\" (the bundle declares \"Float\")");
  EXPECT_EQ(ErrorOf(R"({"bundle": "net.kelvo.material.portbundle.gltf",
                        "parameters": {"shine": {"type": "Float", "value": 1}}})"),
            "in.json: parameters.shine: unknown port of bundle net.kelvo.material.portbundle.gltf");
  EXPECT_EQ(ErrorOf(R"({"bundle": "net.kelvo.material.portbundle.gltf",
                        "parameters": {"roughnessFactor": {"type": "Float", "value": "high"}}})"),
            "in.json: parameters.roughnessFactor: expected a number");
  EXPECT_EQ(ErrorOf(R"({"bundle": "net.kelvo.material.portbundle.gltf",
                        "parameters": {"emissiveFactor": {"type": "Color", "value": [1, 1]}}})"),
            "in.json: parameters.emissiveFactor: expected an array of 3 numbers");
  EXPECT_NE(ErrorOf(R"({"bundle": "net.kelvo.material.portbundle.gltf",
                        "parameters": {"baseColorTexture": {"type": "ColorA", "value": [1, 1, 1, 1],
                                                            "texture": "missing.png"}}})")
                .find("in.json: parameters.baseColorTexture: "),
            std::string::npos);
  // Dumps embed their pixels; a pixel text of the wrong length is refused.
  EXPECT_EQ(ErrorOf(R"({"bundle": "net.kelvo.material.portbundle.gltf",
                        "parameters": {"baseColorTexture": {"type": "ColorA", "value": [1, 1, 1, 1],
                                       "texture": {"width": 2, "height": 2, "pixels": "AAAAAAAA"}}}})"),
            "in.json: parameters.baseColorTexture.texture: \"pixels\" is not base64 of 2 x 2 RGBA floats");
}

// The values are the host's codec's: the same JSON as the scene file's tagged values without the
// tag, the same checks (whole numbers in range) and messages.
TEST(ParameterSetJson, ValuesAreTheSceneFilesTaggedValuesWithoutTheirTags) {
  auto options = Options();
  options.bundles = nullptr;  // any port, any type
  const std::string text = R"({"bundle": "com.example.any",
    "parameters": {"b": {"type": "Bool", "value": true}, "i": {"type": "Int", "value": -7},
                   "u": {"type": "UInt", "value": 4294967295}, "f": {"type": "Float", "value": 0.25},
                   "v2": {"type": "Vector2d", "value": [1.5, -2]}, "v": {"type": "Vector", "value": [1, 2, 3]},
                   "v4": {"type": "Vector4d", "value": [1, 2, 3, 4]}, "c": {"type": "Color", "value": [0.1, 0.2, 0.3]},
                   "ca": {"type": "ColorA", "value": [0.1, 0.2, 0.3, 0.4]}, "s": {"type": "String", "value": "x"},
                   "id": {"type": "Id", "value": "net.kelvo.x"}, "url": {"type": "Url", "value": "a/b.png"},
                   "cs": {"type": "CString", "value": "c"}, "ii": {"type": "InternedId", "value": "metal"}}})";
  auto set = host::json::ParseParameterSet(text, "in.json", ".", options);
  ASSERT_TRUE(set) << set.error().message;
  const auto dumped = host::json_codec::Json::parse(host::json::DumpParameterSet(*set, host::json::TextureMode::Describe));
  const auto given = host::json_codec::Json::parse(text);
  int shared = 0;
  for (const auto& [port, entry] : given["parameters"].items()) {
    EXPECT_EQ(dumped["parameters"][port]["value"], entry["value"]) << port;
    const auto* constant = set->Find(port)->Constant();
    ASSERT_NE(constant, nullptr) << port;
    // Where the scene file has the type too, its tagged value holds the same JSON.
    const vex::Data data = std::visit(
        []<class T>(const T& v) {
          if constexpr (std::is_constructible_v<vex::Data::Variant, T> && !std::is_same_v<T, std::uint32_t>)
            return vex::Data(v);
          else
            return vex::Data();
        },
        constant->Value());
    if (host::json_codec::TagOf(data).empty()) continue;
    auto tagged = host::json_codec::EncodeScalar(data, port);
    ASSERT_TRUE(tagged && *tagged) << port;
    const auto& value = (*tagged)->is_object() ? (*tagged)->begin().value() : **tagged;
    EXPECT_EQ(value, entry["value"]) << port;
    ++shared;
  }
  EXPECT_EQ(shared, 10);  // all but UInt, Url, CString and InternedId
  const auto error = [&](const char* type, const char* value) {
    auto r = host::json::ParseParameterSet(std::string(R"({"bundle": "com.example.any", "parameters": {"n": {"type": ")") +
                                               type + R"(", "value": )" + value + "}}}",
                                           "in.json", ".", options);
    return r ? std::string() : r.error().message;
  };
  EXPECT_EQ(error("Int", "3000000000"), "in.json: parameters.n: number out of range");
  EXPECT_EQ(error("UInt", "-1"), "in.json: parameters.n: number out of range");
  EXPECT_EQ(error("Int", "1.5"), "in.json: parameters.n: expected a whole number");
  EXPECT_EQ(error("Bool", "1"), "in.json: parameters.n: expected true or false");
  EXPECT_EQ(error("Id", "1"), "in.json: parameters.n: expected a string");
  EXPECT_EQ(error("Vector2d", "[1]"), "in.json: parameters.n: expected an array of 2 numbers");
}

TEST(ParameterSetJson, TexturesRoundTripThroughImageFilesAndFailuresLeaveNothing) {
  TempDir dir;
  vex::ParameterSet set{vex::Id(vex::bundle::kGltf)};
  auto texture = vex::TextureBuffer::Make(4, 2, {0.f, 0.5f, 1.f, 1.f});
  texture._pixels->Pixel(5)[0] = 0.123456789f;
  {
    // The dumps' inline form keeps every float exactly.
    vex::ParameterSet dumped{vex::Id(vex::bundle::kGltf)};
    dumped.Set("occlusionTexture", vex::Parameter::Textured(vex::PackedConstantParameter(vex::ColorA{1, 1, 1, 1}), texture));
    const auto text = host::json::DumpParameterSet(dumped, host::json::TextureMode::Embed);
    auto back = host::json::ParseParameterSet(text, "dump", ".", Options());
    ASSERT_TRUE(back) << back.error().message;
    const auto& t = *back->Find("occlusionTexture")->texture;
    EXPECT_EQ(t._dimensions, (vex::Dimensions{4, 2}));
    EXPECT_EQ(std::memcmp(t._pixels->Data(), texture._pixels->Data(), 4 * 2 * 16), 0);
  }
  set.Set("metallicRoughnessTexture",
          vex::Parameter::Textured(vex::PackedConstantParameter(vex::ColorA{1, 1, 1, 1}), texture));
  set.SetConstant("roughnessFactor", 1.0);
  const auto out = (dir.path / "out.json").string();
  host::json::WriteOptions w;
  w.bundles = &testing_support::Host().bundles();
  ASSERT_TRUE(host::json::WriteParameterSetFile(out, set, w));
  EXPECT_TRUE(fs::exists(dir.path / "out.metallicRoughnessTexture.png"));
  auto back = host::json::ReadParameterSetFile(out, Options());
  ASSERT_TRUE(back) << back.error().message;
  const auto* p = back->Find("metallicRoughnessTexture");
  ASSERT_TRUE(p && p->texture);
  EXPECT_EQ(p->texture->_dimensions, (vex::Dimensions{4, 2}));
  EXPECT_NEAR(p->texture->_pixels->Pixel(7)[1], 0.5f, 1.f / 255);  // data stays raw: no sRGB curve
  // The target port decides the encoding, not where the texels came from: a buffer decoded from
  // an sRGB colour image and packed into a data port is written linear.
  {
    vex::ParameterSet packed{vex::Id(vex::bundle::kGltf)};
    auto occlusion = vex::TextureBuffer::Make(2, 2, {0.5f, 0.f, 0.f, 1.f});
    occlusion.colorSpace = "sRGB";
    packed.Set("occlusionTexture",
               vex::Parameter::Textured(vex::PackedConstantParameter(vex::ColorA{1, 1, 1, 1}), occlusion));
    auto base = vex::TextureBuffer::Make(2, 2, {0.5f, 0.5f, 0.5f, 0.5f});
    packed.Set("baseColorTexture", vex::Parameter::Textured(vex::PackedConstantParameter(vex::ColorA{1, 1, 1, 1}), base));
    const auto packedOut = (dir.path / "packed" / "p.json");
    fs::create_directories(packedOut.parent_path());
    ASSERT_TRUE(host::json::WriteParameterSetFile(packedOut.string(), packed, w));
    auto raw = host::ReadImage((dir.path / "packed" / "p.occlusionTexture.png").string(), false);
    ASSERT_TRUE(raw);
    EXPECT_NEAR(raw->_pixels->Pixel(0)[0], 0.5f, 1.f / 255);
    auto encoded = host::ReadImage((dir.path / "packed" / "p.baseColorTexture.png").string(), false);
    ASSERT_TRUE(encoded);
    EXPECT_NEAR(encoded->_pixels->Pixel(0)[0], 188.f / 255, 1.f / 255);  // colour: sRGB-encoded
    EXPECT_NEAR(encoded->_pixels->Pixel(0)[3], 0.5f, 1.f / 255);         // alpha stays linear
    fs::remove_all(dir.path / "packed");
  }
  // Channels that say nothing are left out of the PNG (colour type at byte 25: 0 grey, 2 RGB, 6
  // RGBA), and reading gives the same pixels back.
  {
    const auto png = [&](const char* name, std::array<float, 4> odd, bool srgb) {
      auto t = vex::TextureBuffer::Make(3, 2, {0.25f, 0.25f, 0.25f, 1.f});
      for (int c = 0; c < 4; ++c) t._pixels->Pixel(5)[c] = odd[static_cast<std::size_t>(c)];
      const auto file = (dir.path / name).string();
      EXPECT_TRUE(host::WriteImage(file, t, {.srgb = srgb}));
      std::ifstream in(file, std::ios::binary);
      std::string head(26, '\0');
      in.read(head.data(), 26);
      auto back = host::ReadImage(file, srgb);
      EXPECT_TRUE(back);
      for (int c = 0; back && c < 4; ++c) EXPECT_NEAR(back->_pixels->Pixel(5)[c], odd[static_cast<std::size_t>(c)], 2.f / 255) << name;
      fs::remove(file);
      return static_cast<int>(head[25]);
    };
    EXPECT_EQ(png("grey.png", {0.8f, 0.8f, 0.8f, 1.f}, true), 0);
    EXPECT_EQ(png("grey_data.png", {0.6f, 0.6f, 0.6f, 1.f}, false), 0);
    EXPECT_EQ(png("colour.png", {0.8f, 0.2f, 0.8f, 1.f}, true), 2);
    EXPECT_EQ(png("translucent.png", {0.8f, 0.8f, 0.8f, 0.5f}, false), 6);
  }
  // An unwritable target directory fails and leaves nothing behind.
  auto bad = host::json::WriteParameterSetFile((dir.path / "missing" / "x.json").string(), set, w);
  ASSERT_FALSE(bad);
  EXPECT_FALSE(fs::exists(dir.path / "missing"));
  std::size_t files = 0;
  for ([[maybe_unused]] const auto& e : fs::directory_iterator(dir.path)) ++files;
  EXPECT_EQ(files, 2u);
}

}  // namespace
