// The glTF unit in-process: scenes written and read back (.gltf and .glb), the file's own
// texture-coordinate convention checked in the written bytes, the reader on files other tools
// make (embedded images, missing textures, what a set cannot say, broken hierarchies), and
// import -> export -> import.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <nlohmann/json.hpp>

#include "host/formats/gltf_io.h"
#include "host/formats/gltf_scene_fixture.h"
#include "host/images.h"
#include "test_host.h"

namespace fs = std::filesystem;
namespace formats = host::formats;
namespace port = vex::ports::gltf;
using Json = nlohmann::json;

namespace {

class Gltf : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = fs::temp_directory_path() / ("gltf_test_" + std::to_string(getpid()) + "_" +
                                       ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir);
    fs::create_directories(dir);
  }
  void TearDown() override { fs::remove_all(dir); }

  const vex::IPortBundles& Bundles() { return testing_support::Host().bundles(); }

  formats::SceneData WriteAndRead(const formats::SceneData& scene, bool glb, formats::WrittenFiles* written = nullptr) {
    formats::WriteOptions options{};
    options.glb = glb;
    auto files = formats::detail::WriteGltf(scene, dir.string(), "scene", Bundles(), options);
    EXPECT_TRUE(files.has_value()) << files.error().message;
    if (!files) return {};
    if (written) *written = *files;
    auto read = formats::detail::ReadGltf((dir / files->files.front()).string(), Bundles(), {});
    EXPECT_TRUE(read.has_value()) << read.error().message;
    return read ? std::move(*read) : formats::SceneData{};
  }

  fs::path dir;
};

const vex::PackedConstantParameter* ConstantOf(const vex::ParameterSet& set, std::string_view name) {
  const auto* entry = set.Find(name);
  return entry ? entry->Constant() : nullptr;
}

/// Every constant, texture and texture property of `expected` is in `actual` within `tolerance`.
void ExpectSameSet(const vex::ParameterSet& expected, const vex::ParameterSet& actual, double tolerance,
                   const std::string& label) {
  EXPECT_EQ(expected.GetBundle(), actual.GetBundle()) << label;
  for (const auto& [name, entry] : expected.Entries()) {
    SCOPED_TRACE(label + " port " + name);
    const auto* other = actual.Find(name);
    ASSERT_NE(other, nullptr);
    const auto* a = entry.Constant();
    const auto* b = other->Constant();
    ASSERT_TRUE(a && b);
    if (const auto* d = a->Get<double>()) {
      ASSERT_NE(b->Get<double>(), nullptr);
      EXPECT_NEAR(*d, *b->Get<double>(), tolerance);
    } else if (const auto* c = a->Get<vex::Color>()) {
      ASSERT_NE(b->Get<vex::Color>(), nullptr);
      EXPECT_NEAR(c->r, b->Get<vex::Color>()->r, tolerance);
      EXPECT_NEAR(c->g, b->Get<vex::Color>()->g, tolerance);
      EXPECT_NEAR(c->b, b->Get<vex::Color>()->b, tolerance);
    } else if (const auto* ca = a->Get<vex::ColorA>()) {
      ASSERT_NE(b->Get<vex::ColorA>(), nullptr) << static_cast<int>(b->Type());
      const auto& cb = *b->Get<vex::ColorA>();
      EXPECT_NEAR(ca->r, cb.r, tolerance);
      EXPECT_NEAR(ca->g, cb.g, tolerance);
      EXPECT_NEAR(ca->b, cb.b, tolerance);
      EXPECT_NEAR(ca->a, cb.a, tolerance);
    } else {
      EXPECT_EQ(*a, *b);
    }
    EXPECT_EQ(entry.texture.has_value(), other->texture.has_value());
    if (entry.texture && other->texture) {
      ASSERT_EQ(entry.texture->_dimensions, other->texture->_dimensions);
      EXPECT_EQ(entry.texture->colorSpace == "sRGB", other->texture->colorSpace == "sRGB");
      double worst = 0;
      for (std::size_t i = 0; i < entry.texture->GetCount() * 4; ++i)
        worst =
            std::max<double>(worst, std::abs(entry.texture->_pixels->Data()[i] - other->texture->_pixels->Data()[i]));
      EXPECT_LE(worst, tolerance);
    }
    EXPECT_EQ(entry.properties, other->properties);
  }
}

void ExpectMatrixNear(const formats::Matrix4& a, const formats::Matrix4& b, double tolerance,
                      const std::string& label) {
  for (std::size_t i = 0; i < 16; ++i) EXPECT_NEAR(a.m[i], b.m[i], tolerance) << label << " element " << i;
}

TEST_F(Gltf, ScenesTravelWholeThroughTextAndBinaryFiles) {
  const auto scene = gltf_fixture::Scene();
  for (const bool glb : {false, true}) {
    SCOPED_TRACE(glb ? "glb" : "gltf");
    formats::WrittenFiles written;
    const auto back = WriteAndRead(scene, glb, &written);
    if (glb) {
      EXPECT_EQ(written.files, std::vector<std::string>{"scene.glb"});
      // The layout the writer lays out itself: the header's length is the file's, the JSON chunk
      // and the binary chunk are 4-byte aligned, and the buffer's length fits the binary chunk.
      std::ifstream in(dir / "scene.glb", std::ios::binary);
      const std::string bytes((std::istreambuf_iterator<char>(in)), {});
      const auto u32 = [&](std::size_t at) {
        std::uint32_t v = 0;
        if (at + 4 <= bytes.size()) std::memcpy(&v, bytes.data() + at, 4);
        return v;
      };
      ASSERT_GE(bytes.size(), 28u);
      EXPECT_EQ(bytes.substr(0, 4), "glTF");
      EXPECT_EQ(u32(4), 2u);
      EXPECT_EQ(u32(8), bytes.size());
      const std::uint32_t jsonLength = u32(12);
      EXPECT_EQ(u32(16), 0x4E4F534Au);
      EXPECT_EQ(jsonLength % 4, 0u);
      const std::size_t bin = 20 + std::size_t{jsonLength};
      EXPECT_EQ(u32(bin + 4), 0x004E4942u);
      EXPECT_EQ(u32(bin) % 4, 0u);
      EXPECT_EQ(bin + 8 + u32(bin), bytes.size());
      const std::string json = bytes.substr(20, jsonLength);
      const auto length = json.find("\"byteLength\"", json.find("\"buffers\""));
      ASSERT_NE(length, std::string::npos) << json.substr(0, 400);
      const std::size_t byteLength = std::stoul(json.substr(json.find(':', length) + 1));
      EXPECT_LE(byteLength, u32(bin));
      EXPECT_GT(byteLength + 4, u32(bin));
      EXPECT_EQ(json.find("\"uri\"", json.find("\"buffers\"")), std::string::npos) << "a GLB's buffer has no URI";
    } else {
      // One image per distinct texture: the occlusion shares the metal-roughness image.
      EXPECT_EQ(written.files.size(), 2u + 4u);
      EXPECT_EQ(written.files[1], "scene.bin");
      for (const auto& file : written.files) EXPECT_TRUE(fs::exists(dir / file)) << file;
    }
    // The area light cannot be said in glTF: a 1 x 1 rectangle of 50 nits is a spot of 50 cd on its
    // axis, opened to the half space, and the warning says so.
    ASSERT_EQ(written.warnings.size(), 1u) << ::testing::PrintToString(written.warnings);
    EXPECT_EQ(written.warnings[0],
              "light 'Window': a rectangle light has no glTF type; written as a spot light opened to the half "
              "space with its on-axis intensity (50 cd)");

    ASSERT_EQ(back.nodes.size(), scene.nodes.size());
    for (std::size_t i = 0; i < scene.nodes.size(); ++i) {
      const auto& a = scene.nodes[i];
      const auto& b = back.nodes[i];
      EXPECT_EQ(a.name, b.name);
      EXPECT_EQ(a.parent, b.parent) << a.name;
      EXPECT_EQ(a.mesh, b.mesh) << a.name;
      EXPECT_EQ(a.camera, b.camera) << a.name;
      EXPECT_EQ(a.light, b.light) << a.name;
      ExpectMatrixNear(a.local, b.local, 1e-6, a.name);
    }
    ASSERT_EQ(back.meshes.size(), 2u);
    for (std::size_t m = 0; m < 2; ++m) {
      const auto& a = scene.meshes[m];
      const auto& b = back.meshes[m];
      EXPECT_EQ(a.name, b.name);
      EXPECT_EQ(a.indices, b.indices);
      ASSERT_EQ(a.parts.size(), b.parts.size());
      for (std::size_t p = 0; p < a.parts.size(); ++p) {
        EXPECT_EQ(a.parts[p].firstTriangle, b.parts[p].firstTriangle);
        EXPECT_EQ(a.parts[p].triangleCount, b.parts[p].triangleCount);
        EXPECT_EQ(a.parts[p].material, b.parts[p].material);
      }
      for (const auto& [x, y] : {std::pair{&a.positions, &b.positions}, std::pair{&a.normals, &b.normals},
                                 std::pair{&a.uvs, &b.uvs}, std::pair{&a.tangents, &b.tangents}}) {
        ASSERT_EQ(x->size(), y->size()) << a.name;
        for (std::size_t k = 0; k < x->size(); ++k) ASSERT_NEAR((*x)[k], (*y)[k], 1e-6) << a.name << " value " << k;
      }
    }
    ASSERT_EQ(back.materials.size(), 3u);
    // Painted: every value, texture and texture property (colour texels within the sRGB round trip).
    ExpectSameSet(*scene.materials[0].set, *back.materials[0].set, 1e-4, "Painted");
    EXPECT_TRUE(back.warnings.empty()) << ::testing::PrintToString(back.warnings);
    // Glass: the opacity goes into the factor's alpha.
    EXPECT_EQ(*ConstantOf(*back.materials[1].set, port::baseColorFactor)->Get<vex::ColorA>(),
              (vex::ColorA{0.2, 0.4, 0.6, 0.5}));
    EXPECT_EQ(*ConstantOf(*back.materials[1].set, port::alphaMode)->Get<std::string>(), "BLEND");
    ExpectSameSet(*scene.materials[2].set, *back.materials[2].set, 1e-9, "Leaf");

    ASSERT_EQ(back.lights.size(), 4u);
    EXPECT_EQ(back.lights[3].type, formats::LightData::Type::Spot);
    EXPECT_EQ(back.lights[3].intensity, 50);
    EXPECT_EQ(back.lights[3].innerConeAngle, 0);
    EXPECT_DOUBLE_EQ(back.lights[3].outerConeAngle, std::numbers::pi / 2);
    EXPECT_EQ(back.lights[0].type, formats::LightData::Type::Point);
    EXPECT_EQ(back.lights[0].intensity, 120);
    EXPECT_EQ(back.lights[0].range, 7.5);
    EXPECT_EQ(back.lights[0].color, (vex::Color{1, 0.9, 0.8}));
    EXPECT_EQ(back.lights[1].type, formats::LightData::Type::Spot);
    EXPECT_EQ(back.lights[1].innerConeAngle, 0.2);
    EXPECT_EQ(back.lights[1].outerConeAngle, 0.5);
    EXPECT_FALSE(back.lights[1].range.has_value());
    EXPECT_EQ(back.lights[2].type, formats::LightData::Type::Directional);
    EXPECT_EQ(back.lights[2].intensity, 3.5);
    ASSERT_EQ(back.cameras.size(), 2u);
    EXPECT_EQ(back.cameras[0].name, "Lens");
    EXPECT_FALSE(back.cameras[0].orthographic);
    EXPECT_DOUBLE_EQ(back.cameras[0].yfov, 0.8);
    EXPECT_DOUBLE_EQ(back.cameras[0].aspectRatio, 1.6);
    EXPECT_DOUBLE_EQ(back.cameras[0].znear, 0.05);
    EXPECT_DOUBLE_EQ(back.cameras[0].zfar, 250);
    EXPECT_TRUE(back.cameras[1].orthographic);
    EXPECT_DOUBLE_EQ(back.cameras[1].orthoHeight, 6);
    EXPECT_DOUBLE_EQ(back.cameras[1].aspectRatio, 2);
    EXPECT_EQ(back.metersPerUnit, 1.0);
    EXPECT_EQ(back.upAxis, 'Y');
  }

  // Without the strength extension the factor goes out as the set has it (its hue kept), and the
  // writer names the strength it left out.
  formats::WriteOptions plain{};
  plain.emissiveStrength = false;
  auto written = formats::detail::WriteGltf(scene, dir.string(), "plain", Bundles(), plain);
  ASSERT_TRUE(written.has_value()) << written.error().message;
  ASSERT_EQ(written->warnings.size(), 2u);
  EXPECT_EQ(written->warnings[0],
            "material 'Painted': emission strength 2.5 left out, the factor written as the set has it "
            "(--emissive-strength keeps it)");
  auto back = formats::detail::ReadGltf((dir / "plain.gltf").string(), Bundles(), {});
  ASSERT_TRUE(back.has_value()) << back.error().message;
  EXPECT_FALSE(back->materials[0].set->Has(port::emissiveStrength));
  EXPECT_EQ(*ConstantOf(*back->materials[0].set, port::emissiveFactor)->Get<vex::Color>(), (vex::Color{1, 0.5, 0.25}));
}

/// The file's own bytes: v counted from the top of the image, TRS where the transform has no shear,
/// the texture transform and sampler as the format spells them.
TEST_F(Gltf, WrittenFileSpeaksTheFormatsConventions) {
  auto scene = gltf_fixture::Scene();
  // A sheared node can only be written as a matrix.
  scene.nodes[5].local.m[4] = 0.5;
  formats::WriteOptions options{};
  ASSERT_TRUE(formats::detail::WriteGltf(scene, dir.string(), "scene", Bundles(), options).has_value());
  std::ifstream in(dir / "scene.gltf");
  const Json json = Json::parse(in);
  std::ifstream binFile(dir / "scene.bin", std::ios::binary);
  const std::vector<char> bin((std::istreambuf_iterator<char>(binFile)), {});
  const auto& primitive = json["meshes"][0]["primitives"][0];
  const auto floats = [&](int accessor) {
    const auto& a = json["accessors"][accessor];
    const auto& view = json["bufferViews"][a["bufferView"].get<int>()];
    std::vector<float> out(a["count"].get<std::size_t>() * (a["type"] == "VEC2" ? 2 : 3));
    std::memcpy(out.data(), bin.data() + view.value("byteOffset", 0) + a.value("byteOffset", 0), out.size() * 4);
    return out;
  };
  const auto uvs = floats(primitive["attributes"]["TEXCOORD_0"].get<int>());
  const auto positions = floats(primitive["attributes"]["POSITION"].get<int>());
  const auto& sphere = scene.meshes[0];
  for (std::size_t i = 0; i < sphere.VertexCount(); ++i) {
    EXPECT_FLOAT_EQ(uvs[2 * i], sphere.uvs[2 * i]);
    EXPECT_NEAR(uvs[2 * i + 1], 1.0f - sphere.uvs[2 * i + 1], 1e-7);
    // The north pole samples the top row of the image in the file's convention.
    if (positions[3 * i + 1] > 0.999f) {
      EXPECT_NEAR(uvs[2 * i + 1], 0.0f, 1e-6);
    }
  }
  EXPECT_EQ(json["nodes"][0]["scale"], Json::array({2.0, 2.0, 2.0}));
  EXPECT_NEAR(json["nodes"][0]["rotation"][1].get<double>(), std::sin(std::numbers::pi / 12), 1e-12);
  EXPECT_FALSE(json["nodes"][0].contains("matrix"));
  EXPECT_EQ(json["nodes"][5]["matrix"].size(), 16u);
  EXPECT_EQ(json["nodes"][0]["children"], Json::array({1, 2, 4}));
  EXPECT_EQ(json["nodes"][3]["extensions"]["KHR_lights_punctual"]["light"], 0);
  EXPECT_EQ(json["nodes"][6]["extensions"]["KHR_lights_punctual"]["light"], 3);  // the area light, approximated
  const auto& base = json["materials"][0]["pbrMetallicRoughness"]["baseColorTexture"];
  const auto& transform = base["extensions"]["KHR_texture_transform"];
  EXPECT_EQ(transform["offset"], Json::array({0.25, 0.5}));
  EXPECT_EQ(transform["rotation"], 0.3);
  EXPECT_EQ(transform["scale"], Json::array({2.0, 3.0}));
  const auto& sampler = json["samplers"][json["textures"][base["index"].get<int>()]["sampler"].get<int>()];
  EXPECT_EQ(sampler, (Json{{"wrapS", 33071}, {"wrapT", 33648}, {"magFilter", 9728}, {"minFilter", 9985}}));
  // A texture without sampler properties names no sampler.
  EXPECT_FALSE(json["textures"][json["materials"][0]["normalTexture"]["index"].get<int>()].contains("sampler"));
  EXPECT_EQ(json["materials"][0]["occlusionTexture"]["index"],
            json["materials"][0]["pbrMetallicRoughness"]["metallicRoughnessTexture"]["index"]);
  const auto used = json["extensionsUsed"].get<std::vector<std::string>>();
  EXPECT_NE(std::find(used.begin(), used.end(), "KHR_texture_transform"), used.end());
  EXPECT_EQ(json["materials"][2]["alphaMode"], "MASK");
  EXPECT_EQ(json["materials"][2]["alphaCutoff"], 0.3);
  // The image keeps its top row on top.
  auto image = host::ReadImage((dir / "scene_Painted_baseColorTexture.png").string(), true);
  ASSERT_TRUE(image.has_value()) << image.error().message;
  EXPECT_EQ(image->_dimensions, (vex::Dimensions{8, 4}));
  EXPECT_NEAR(image->_pixels->Pixel(3)[0], 1.0, 1e-6);
  EXPECT_NEAR(image->_pixels->Pixel(8 + 3)[2], gltf_fixture::Linear(230), 2e-3);
  EXPECT_NEAR(image->_pixels->Pixel(8 + 3)[0], gltf_fixture::Linear(20), 2e-3);
}

/// Writes `json` as "<dir>/<name>.gltf" with a 3x2 PNG embedded as a data URI.
std::string EmbeddedPng(const fs::path& dir) {
  auto pixels = gltf_fixture::Pixels(
      3, 2, [](int x, int y, float* p) { p[0] = x / 2.0f, p[1] = static_cast<float>(y), p[2] = 0.5f, p[3] = 1; });
  const auto file = dir / "embedded.png";
  EXPECT_TRUE(host::WriteImage(file.string(), pixels, {}).has_value());
  std::ifstream in(file, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(in)), {});
  fs::remove(file);
  static const char* table = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::uint32_t n = (static_cast<unsigned char>(bytes[i]) << 16) |
                            (i + 1 < bytes.size() ? static_cast<unsigned char>(bytes[i + 1]) << 8 : 0) |
                            (i + 2 < bytes.size() ? static_cast<unsigned char>(bytes[i + 2]) : 0);
    out += table[(n >> 18) & 63];
    out += table[(n >> 12) & 63];
    out += i + 1 < bytes.size() ? table[(n >> 6) & 63] : '=';
    out += i + 2 < bytes.size() ? table[n & 63] : '=';
  }
  return "data:image/png;base64," + out;
}

/// A file as other tools write it: what the set can say is carried, the rest is named, a texture
/// that is not there falls back to its factor, and primitives that are not triangles are skipped.
TEST_F(Gltf, ForeignFilesAreCarriedOrNamedNeverLostSilently) {
  // Geometry: a triangle strip of four vertices (two triangles), a line, sharing the positions.
  std::vector<float> positions = {0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0};
  std::vector<float> uvs = {0, 1, 1, 1, 0, 0, 1, 0};
  std::string bin(reinterpret_cast<const char*>(positions.data()), positions.size() * 4);
  bin.append(reinterpret_cast<const char*>(uvs.data()), uvs.size() * 4);
  std::ofstream(dir / "foreign.bin", std::ios::binary) << bin;
  Json file;
  file["asset"] = {{"version", "2.0"}};
  file["extensionsUsed"] = {"KHR_materials_clearcoat", "KHR_texture_transform", "EXT_mystery"};
  file["buffers"] = Json::array({{{"uri", "foreign.bin"}, {"byteLength", bin.size()}}});
  file["bufferViews"] = Json::array({{{"buffer", 0}, {"byteOffset", 0}, {"byteLength", 48}},
                                     {{"buffer", 0}, {"byteOffset", 48}, {"byteLength", 32}}});
  file["accessors"] = Json::array({{{"bufferView", 0},
                                    {"componentType", 5126},
                                    {"count", 4},
                                    {"type", "VEC3"},
                                    {"min", {0, 0, 0}},
                                    {"max", {1, 1, 0}}},
                                   {{"bufferView", 1}, {"componentType", 5126}, {"count", 4}, {"type", "VEC2"}}});
  Json stripPrimitive = {{"attributes", {{"POSITION", 0}, {"TEXCOORD_0", 1}}}, {"mode", 5}, {"material", 0}};
  Json line = {{"attributes", {{"POSITION", 0}}}, {"mode", 1}};
  file["meshes"] = Json::array({{{"name", "Strip"}, {"primitives", Json::array({stripPrimitive, line})}}});
  file["images"] = Json::array({{{"uri", EmbeddedPng(dir)}}, {{"uri", "missing.png"}}});
  file["samplers"] = Json::array({{{"wrapS", 33071}, {"wrapT", 10497}, {"magFilter", 9729}}});
  file["textures"] = Json::array({{{"source", 0}, {"sampler", 0}}, {{"source", 1}}});
  Json material;
  material["name"] = "Coat";
  material["doubleSided"] = true;
  material["pbrMetallicRoughness"]["baseColorFactor"] = {0.5, 0.25, 1, 0.8};
  material["pbrMetallicRoughness"]["baseColorTexture"]["index"] = 0;
  material["pbrMetallicRoughness"]["baseColorTexture"]["extensions"]["KHR_texture_transform"] = {{"offset", {0.1, 0.2}},
                                                                                                 {"texCoord", 1}};
  material["pbrMetallicRoughness"]["metallicFactor"] = 0.3;
  material["normalTexture"] = {{"index", 1}, {"scale", 0.4}};
  material["emissiveTexture"]["index"] = 0;
  material["emissiveTexture"]["extensions"]["EXT_mystery"] = Json::object();
  material["extensions"]["KHR_materials_clearcoat"]["clearcoatFactor"] = 1;
  file["materials"] = Json::array({material});
  // Children before their parent in the file; one node outside every scene.
  Json child = {{"name", "Child"}, {"mesh", 0}, {"translation", {1, 0, 0}}};
  Json parent = {{"name", "Parent"}, {"children", {0}}, {"matrix", {2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 2, 0, 5, 6, 7, 1}}};
  Json loose = {{"name", "Loose"}};
  file["nodes"] = Json::array({child, parent, loose});
  file["scenes"] = Json::array({{{"name", "Main"}, {"nodes", {1}}}});
  file["scene"] = 0;
  std::ofstream(dir / "foreign.gltf") << file.dump();

  auto read = formats::detail::ReadGltf((dir / "foreign.gltf").string(), Bundles(), {});
  ASSERT_TRUE(read.has_value()) << read.error().message;
  const auto& scene = *read;
  EXPECT_EQ(scene.name, "Main");
  ASSERT_EQ(scene.nodes.size(), 3u);
  EXPECT_EQ(scene.nodes[0].name, "Parent");
  EXPECT_EQ(scene.nodes[1].name, "Child");
  EXPECT_EQ(scene.nodes[1].parent, 0);
  EXPECT_EQ(scene.nodes[2].name, "Loose");
  EXPECT_EQ(scene.nodes[2].parent, -1);
  EXPECT_EQ(scene.nodes[0].local.m[0], 2);
  EXPECT_EQ(scene.nodes[0].local.m[14], 7);
  EXPECT_EQ(scene.nodes[1].local.m[12], 1);
  ASSERT_EQ(scene.meshes.size(), 1u);
  const auto& mesh = scene.meshes[0];
  EXPECT_EQ(mesh.indices, (std::vector<std::uint32_t>{0, 1, 2, 2, 1, 3}));  // the strip's second triangle turned
  ASSERT_EQ(mesh.parts.size(), 1u);
  EXPECT_EQ(mesh.parts[0].material, 0);
  EXPECT_EQ(mesh.uvs, (std::vector<float>{0, 0, 1, 0, 0, 1, 1, 1}));  // v from the bottom of the image

  ASSERT_EQ(scene.materials.size(), 1u);
  const auto& set = *scene.materials[0].set;
  const auto* base = set.Find(port::baseColorTexture);
  ASSERT_TRUE(base && base->texture);
  EXPECT_EQ(base->texture->_dimensions, (vex::Dimensions{3, 2}));  // the file's own size and aspect
  EXPECT_EQ(base->texture->colorSpace, "sRGB");
  EXPECT_EQ(*base->properties.Find("wrapS"), vex::Data(std::string("CLAMP_TO_EDGE")));
  EXPECT_EQ(*base->properties.Find("wrapT"), vex::Data(std::string("REPEAT")));
  EXPECT_EQ(*base->properties.Find("magFilter"), vex::Data(std::string("LINEAR")));
  EXPECT_FALSE(base->properties.Contains("minFilter"));
  EXPECT_EQ(*base->properties.Find("uvOffset"), vex::Data(vex::Vector2d{0.1, 0.2}));
  EXPECT_EQ(*base->properties.Find("texCoord"), vex::Data(std::int32_t{1}));
  EXPECT_EQ(*ConstantOf(set, port::baseColorFactor)->Get<vex::ColorA>(), (vex::ColorA{0.5, 0.25, 1, 0.8}));
  EXPECT_EQ(*ConstantOf(set, port::normalScale)->Get<double>(), 0.4);
  EXPECT_FALSE(set.Find(port::normalTexture) && set.Find(port::normalTexture)->texture);  // falls back to the factor
  ASSERT_TRUE(set.Find(port::emissiveTexture) && set.Find(port::emissiveTexture)->texture);
  // The same image for a colour port shares its pixels.
  EXPECT_EQ(set.Find(port::emissiveTexture)->texture->_pixels, base->texture->_pixels);

  std::vector<std::string> coat, strip, file_level;
  for (const auto& w : scene.warnings)
    (w.rfind("material 'Coat'", 0) == 0 ? coat : w.rfind("mesh 'Strip'", 0) == 0 ? strip : file_level).push_back(w);
  ASSERT_EQ(coat.size(), 1u) << ::testing::PrintToString(scene.warnings);
  for (const char* loss :
       {"baseColorTexture uses texCoord 1 (only the first set is read)",
        "missing.png: cannot read: No such file or directory; the factor stands alone", "emissiveTexture extension EXT_mystery not carried",
        "extension KHR_materials_clearcoat not carried", "doubleSided not carried"})
    EXPECT_NE(coat[0].find(loss), std::string::npos) << loss << " in " << coat[0];
  ASSERT_EQ(strip.size(), 1u);
  EXPECT_NE(strip[0].find("primitive 1 (points or lines) skipped"), std::string::npos) << strip[0];
  ASSERT_EQ(file_level.size(), 0u) << ::testing::PrintToString(scene.warnings);

  // Fitted on request: the longer side to the size asked, the aspect kept.
  formats::ReadOptions fitted;
  fitted.textureSize = 6;
  auto big = formats::detail::ReadGltf((dir / "foreign.gltf").string(), Bundles(), fitted);
  ASSERT_TRUE(big.has_value()) << big.error().message;
  EXPECT_EQ(big->materials[0].set->Find(port::baseColorTexture)->texture->_dimensions, (vex::Dimensions{6, 4}));

  // Broken hierarchies and references fail, naming the file and the node.
  const auto broken = [&](const std::function<void(Json&)>& edit) {
    Json copy = file;
    edit(copy);
    std::ofstream(dir / "broken.gltf") << copy.dump();
    auto r = formats::detail::ReadGltf((dir / "broken.gltf").string(), Bundles(), {});
    EXPECT_FALSE(r.has_value());
    return r ? std::string() : r.error().message;
  };
  std::string message = broken([](Json& j) { j["nodes"][0]["children"] = {1}; });
  EXPECT_NE(message.find("broken.gltf: node 'Child' lies on a cycle of parents"), std::string::npos) << message;
  message = broken([](Json& j) { j["nodes"][1]["children"] = {0, 9}; });
  EXPECT_NE(message.find("broken.gltf: node 'Parent': child 9 does not exist"), std::string::npos) << message;
  message = broken([](Json& j) { j["nodes"][2]["children"] = {0}; });
  EXPECT_NE(message.find("node 'Child' has more than one parent"), std::string::npos) << message;
  message = broken([](Json& j) { j["accessors"][0]["count"] = 40; });
  EXPECT_NE(message.find("mesh 'Strip': accessor 0"), std::string::npos) << message;
  std::ofstream(dir / "text.gltf") << "{\"asset\": ";
  auto r = formats::detail::ReadGltf((dir / "text.gltf").string(), Bundles(), {});
  ASSERT_FALSE(r.has_value());
  EXPECT_NE(r.error().message.find("text.gltf:1:11: not valid JSON"), std::string::npos) << r.error().message;
}

TEST_F(Gltf, WriterRefusesScenesItCannotWriteTruthfully) {
  auto scene = gltf_fixture::Scene();
  const auto attempt = [&](formats::SceneData s) {
    auto r = formats::detail::WriteGltf(s, dir.string(), "bad", Bundles(), {});
    EXPECT_FALSE(r.has_value());
    return r ? std::string() : r.error().message;
  };
  auto s = scene;
  s.nodes[1].local.m[13] = std::nan("");
  EXPECT_NE(attempt(s).find("bad.gltf: node 'Ball': its transform is not finite"), std::string::npos);
  s = scene;
  s.nodes[0].parent = 4;
  EXPECT_NE(attempt(s).find("node 'Root': its parent 4 does not come before it"), std::string::npos);
  s = scene;
  s.nodes[1].parent = -5;
  EXPECT_NE(attempt(s).find("node 'Ball': its parent -5 does not come before it"), std::string::npos);
  s = scene;
  s.meshes[1].indices[4] = 99;
  EXPECT_NE(attempt(s).find("mesh 'Panels': index 99 beyond its 6 vertices"), std::string::npos);
  s = scene;
  s.materials[1].set = std::make_shared<vex::ParameterSet>(vex::Id(vex::ports::corvane::kId));
  EXPECT_NE(attempt(s).find("material 'Glass': the glTF writer takes sets of net.kelvo.material.portbundle.gltf"),
            std::string::npos);
}

/// Import -> export -> import: every value and texture channel of the first import comes back.
TEST_F(Gltf, ImportExportImportKeepsEveryValueAndChannel) {
  formats::WriteOptions options{};
  options.emissiveStrength = true;
  for (const bool glb : {false, true}) {
    SCOPED_TRACE(glb ? "glb" : "gltf");
    options.glb = glb;
    const fs::path first = dir / (glb ? "first" : "first_text");
    const fs::path second = dir / (glb ? "second" : "second_text");
    fs::create_directories(first);
    fs::create_directories(second);
    auto written = formats::detail::WriteGltf(gltf_fixture::Scene(), first.string(), "s", Bundles(), options);
    ASSERT_TRUE(written.has_value()) << written.error().message;
    auto imported = formats::detail::ReadGltf((first / written->files[0]).string(), Bundles(), {});
    ASSERT_TRUE(imported.has_value()) << imported.error().message;
    auto again = formats::detail::WriteGltf(*imported, second.string(), "s", Bundles(), options);
    ASSERT_TRUE(again.has_value()) << again.error().message;
    auto back = formats::detail::ReadGltf((second / again->files[0]).string(), Bundles(), {});
    ASSERT_TRUE(back.has_value()) << back.error().message;
    ASSERT_EQ(imported->materials.size(), back->materials.size());
    for (std::size_t i = 0; i < back->materials.size(); ++i)
      ExpectSameSet(*imported->materials[i].set, *back->materials[i].set, 1e-3, imported->materials[i].name);
    ASSERT_EQ(imported->nodes.size(), back->nodes.size());
    for (std::size_t i = 0; i < back->nodes.size(); ++i)
      ExpectMatrixNear(imported->nodes[i].local, back->nodes[i].local, 1e-9, back->nodes[i].name);
    EXPECT_EQ(imported->meshes[0].uvs, back->meshes[0].uvs);
  }
}

}  // namespace
