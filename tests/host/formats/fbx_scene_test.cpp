// The FBX unit on a whole scene: two meshes (one with two materials), a three-node hierarchy with
// rotations and non-uniform scale, materials of both bundles the writer takes, a centimetre Z-up
// document; written, then read back by our reader (through Assimp) and decoded record by record.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <numbers>

#include "host/formats/fbx_binary.h"
#include "host/formats/fbx_io.h"
#include "host/formats/fbx_surface.h"
#include "fbx_scene_support.h"
#include "test_host.h"
#include "vex/ports.h"

namespace fs = std::filesystem;
namespace formats = host::formats;
namespace fbx = host::formats::fbx;

namespace {

using fbx_test::MakeScene;

class FbxScene : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = fs::temp_directory_path() / ("fbx_scene_test_" + std::to_string(getpid()) + "_" +
                                       ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir);
    fs::create_directories(dir);
  }
  void TearDown() override { fs::remove_all(dir); }

  formats::WrittenFiles Write(const formats::SceneData& scene, const formats::WriteOptions& options = {}) {
    auto written = formats::detail::WriteFbx(scene, dir.string(), "scene", testing_support::Host().bundles(), options);
    EXPECT_TRUE(written.has_value()) << written.error().message;
    return written.value_or(formats::WrittenFiles{});
  }
  formats::SceneData Read() {
    auto read = formats::detail::ReadFbx((dir / "scene.fbx").string(), testing_support::Host().bundles(), {});
    EXPECT_TRUE(read.has_value()) << read.error().message;
    return read.value_or(formats::SceneData{});
  }
  fs::path dir;
};

const formats::MaterialData* MaterialNamed(const formats::SceneData& s, const std::string& name) {
  for (const auto& m : s.materials)
    if (m.name == name) return &m;
  return nullptr;
}
vex::Color ColorOf(const vex::ParameterSet& set, std::string_view port) {
  const auto* entry = set.Find(port);
  return entry != nullptr && entry->Constant() && entry->Constant()->Get<vex::Color>() ? *entry->Constant()->Get<vex::Color>()
                                                                                         : vex::Color{-1, -1, -1};
}
double NumberOf(const vex::ParameterSet& set, std::string_view port) {
  const auto* entry = set.Find(port);
  return entry != nullptr && entry->Constant() && entry->Constant()->Get<double>() ? *entry->Constant()->Get<double>() : -1.0;
}
void ExpectColor(const vex::Color& c, double r, double g, double b, double tolerance = 1e-6) {
  EXPECT_NEAR(c.r, r, tolerance);
  EXPECT_NEAR(c.g, g, tolerance);
  EXPECT_NEAR(c.b, b, tolerance);
}
std::string Warnings(const std::vector<std::string>& lines) {
  std::string all;
  for (const auto& l : lines) all += l + "\n";
  return all;
}

TEST_F(FbxScene, WholeSceneComesBackThroughOurReader) {
  const auto scene = MakeScene();
  const auto written = Write(scene);
  EXPECT_EQ(written.files.front(), "scene.fbx");
  EXPECT_TRUE(fs::exists(dir / "Brass_diffuse_color.png"));
  EXPECT_TRUE(fs::exists(dir / "Brass_normal_map.png"));
  const auto back = Read();

  EXPECT_EQ(back.upAxis, 'Z');
  EXPECT_NEAR(back.metersPerUnit, 0.01, 1e-9);

  // Hierarchy and local transforms.
  ASSERT_EQ(back.nodes.size(), 3u);
  std::map<std::string, const formats::NodeData*> nodes;
  for (const auto& n : back.nodes) nodes[n.name] = &n;
  for (const auto& expected : scene.nodes) {
    ASSERT_TRUE(nodes.contains(expected.name)) << expected.name;
    const auto& got = *nodes[expected.name];
    const std::string parent = got.parent >= 0 ? back.nodes[static_cast<std::size_t>(got.parent)].name : "";
    EXPECT_EQ(parent, expected.parent >= 0 ? scene.nodes[static_cast<std::size_t>(expected.parent)].name : "");
    for (std::size_t i = 0; i < 16; ++i) EXPECT_NEAR(got.local.m[i], expected.local.m[i], 1e-5) << expected.name << " " << i;
  }

  // Meshes: the triangles of each material, and every corner's texture coordinate by position.
  const auto& body = *nodes["Body"];
  ASSERT_GE(body.mesh, 0);
  const auto& quads = back.meshes[static_cast<std::size_t>(body.mesh)];
  EXPECT_EQ(quads.TriangleCount(), 4u);
  std::map<std::string, std::uint32_t> trianglesOf;
  for (const auto& part : quads.parts)
    trianglesOf[part.material >= 0 ? back.materials[static_cast<std::size_t>(part.material)].name : "-"] += part.triangleCount;
  EXPECT_EQ(trianglesOf, (std::map<std::string, std::uint32_t>{{"Brass", 2}, {"Glass", 2}}));
  for (std::size_t v = 0; v < quads.VertexCount(); ++v) {
    const float x = quads.positions[3 * v], y = quads.positions[3 * v + 1];
    bool found = false;
    for (std::size_t k = 0; k < 6; ++k)
      if (scene.meshes[0].positions[3 * k] == x && scene.meshes[0].positions[3 * k + 1] == y) {
        EXPECT_FLOAT_EQ(quads.uvs[2 * v], scene.meshes[0].uvs[2 * k]);
        EXPECT_FLOAT_EQ(quads.uvs[2 * v + 1], scene.meshes[0].uvs[2 * k + 1]);
        EXPECT_FLOAT_EQ(quads.normals[3 * v + 2], 1.0f);
        found = true;
      }
    EXPECT_TRUE(found) << x << " " << y;
  }
  ASSERT_GE(nodes["Fin"]->mesh, 0);
  const auto& tri = back.meshes[static_cast<std::size_t>(nodes["Fin"]->mesh)];
  ASSERT_EQ(tri.parts.size(), 1u);
  EXPECT_EQ(back.materials[static_cast<std::size_t>(tri.parts[0].material)].name, "Paint");

  // Materials in the generic bundle.
  namespace g = vex::ports::generic;
  const auto* brass = MaterialNamed(back, "Brass");
  const auto* glass = MaterialNamed(back, "Glass");
  const auto* paint = MaterialNamed(back, "Paint");
  ASSERT_TRUE(brass && glass && paint);
  EXPECT_EQ(brass->set->GetBundle(), g::kId);
  ExpectColor(ColorOf(*brass->set, g::diffuseColor), 1, 1, 1);  // the texture alone
  const auto& texture = brass->set->Find(g::diffuseColor)->texture;
  ASSERT_TRUE(texture.has_value());
  EXPECT_EQ(texture->_dimensions, (vex::Dimensions{4, 2}));  // the file's size and aspect
  EXPECT_NEAR(texture->_pixels->Pixel(5)[0], 5.0f / 8.0f, 0.01f);
  EXPECT_NEAR(NumberOf(*brass->set, g::shininess), 0.3, 1e-6);  // as a roughness
  EXPECT_NEAR(NumberOf(*brass->set, g::reflectionFactor), 0.8, 1e-6);
  ExpectColor(ColorOf(*glass->set, g::diffuseColor), 0.1, 0.15, 0.2);
  ExpectColor(ColorOf(*glass->set, g::emissiveColor), 2.0, 1.0, 0.5, 1e-5);
  EXPECT_NEAR(NumberOf(*glass->set, g::emissiveFactor), 1.0, 1e-9);
  ExpectColor(ColorOf(*glass->set, g::opacityColor), 0.6, 0.6, 0.6, 1e-6);
  EXPECT_NEAR(NumberOf(*glass->set, g::shininess), 0.3, 1e-6);
  ExpectColor(ColorOf(*glass->set, g::specularColor), 0.5, 0.4, 0.3);
  EXPECT_NEAR(NumberOf(*glass->set, g::specularFactor), 0.75, 1e-6);
  ExpectColor(ColorOf(*paint->set, g::diffuseColor), 0.1, 0.8, 0.1);
  ExpectColor(ColorOf(*paint->set, g::opacityColor), 0.5, 0.5, 0.5, 1e-6);
  EXPECT_NEAR(NumberOf(*paint->set, g::shininess), 0.9, 1e-6);
  ASSERT_TRUE(paint->set->Find(g::reflectionFactor) && paint->set->Find(g::reflectionFactor)->texture);  // the metal
  EXPECT_NEAR(paint->set->Find(g::reflectionFactor)->texture->_pixels->Pixel(0)[0], 0.25f, 0.01f);

  // The normal map has no port in the generic model: said once, on Brass's line.
  const std::string warnings = Warnings(back.warnings);
  EXPECT_NE(warnings.find("material 'Brass': "), std::string::npos) << warnings;
  EXPECT_NE(warnings.find("NormalMap (strength 1): the generic model has no normal port; left out"), std::string::npos)
      << warnings;
  EXPECT_EQ(warnings.find("material 'Glass'"), std::string::npos) << warnings;
}

TEST_F(FbxScene, RecordsCarryTheCurrentAndTheLegacyPropertyNames) {
  Write(MakeScene());
  std::ifstream in(dir / "scene.fbx", std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(in)), {});
  auto decoded = fbx::DecodeBinary(bytes, "scene.fbx");
  ASSERT_TRUE(decoded.has_value()) << decoded.error().message;
  const fbx::Node* objects = nullptr;
  const fbx::Node* connections = nullptr;
  const fbx::Node* settings = nullptr;
  for (const auto& n : *decoded) {
    if (n.name == "Objects") objects = &n;
    if (n.name == "Connections") connections = &n;
    if (n.name == "GlobalSettings") settings = &n;
  }
  ASSERT_TRUE(objects && connections && settings);
  auto props = [](const fbx::Node& node) {
    std::map<std::string, std::vector<double>> out;
    for (const auto& p : node.Find("Properties70")->children) {
      std::vector<double> values;
      for (std::size_t i = 4; i < p.properties.size(); ++i) {
        if (const auto* d = std::get_if<double>(&p.properties[i])) values.push_back(*d);
        if (const auto* v = std::get_if<std::int32_t>(&p.properties[i])) values.push_back(*v);
      }
      out[std::get<std::string>(p.properties[0])] = values;
    }
    return out;
  };
  EXPECT_EQ(props(*settings)["UnitScaleFactor"], std::vector<double>{1.0});  // centimetres per unit
  EXPECT_EQ(props(*settings)["UpAxis"], std::vector<double>{2});
  std::map<std::string, std::int64_t> ids;
  for (const auto& o : objects->children) {
    const std::string name = std::get<std::string>(o.properties[1]);
    ids[name] = std::get<std::int64_t>(o.properties[0]);
    if (name != fbx::ObjectName("Glass", "Material")) continue;
    auto p = props(o);
    EXPECT_EQ(p["EmissiveColor"], (std::vector<double>{1.0, 0.5, 0.25}));
    EXPECT_EQ(p["EmissiveFactor"], std::vector<double>{2.0});
    EXPECT_EQ(p["Emissive"], (std::vector<double>{1.0, 0.5, 0.25}));
    EXPECT_NEAR(p["TransparencyFactor"].at(0), 0.4, 1e-12);
    EXPECT_NEAR(p["Opacity"].at(0), 0.6, 1e-12);
    EXPECT_EQ(p["TransparentColor"], (std::vector<double>{1, 1, 1}));
    EXPECT_EQ(p["DiffuseColor"], (std::vector<double>{0.1, 0.15, 0.2}));
    EXPECT_EQ(p["Diffuse"], (std::vector<double>{0.1, 0.15, 0.2}));
    EXPECT_EQ(p["ShininessExponent"], std::vector<double>{49.0});
    EXPECT_FALSE(p.contains("BumpFactor")) << "a normal-map slot without a normal map";
  }
  // The diffuse texture drives Brass's DiffuseColor; the Video names the file beside the FBX.
  bool diffuseLinked = false;
  for (const auto& c : connections->children)
    if (c.properties.size() == 4 && std::get<std::string>(c.properties[0]) == "OP" &&
        std::get<std::int64_t>(c.properties[2]) == ids[fbx::ObjectName("Brass", "Material")] &&
        std::get<std::string>(c.properties[3]) == "DiffuseColor")
      diffuseLinked = std::get<std::int64_t>(c.properties[1]) == ids[fbx::ObjectName("Brass_DiffuseColor", "Texture")];
  EXPECT_TRUE(diffuseLinked);
}

TEST_F(FbxScene, EmbeddedAsciiAndMissingTexturesReadBack) {
  namespace g = vex::ports::generic;
  // Embedded: no image beside the file, the texture comes back from inside it.
  formats::WriteOptions embed;
  embed.embedTextures = true;
  const auto written = Write(MakeScene(), embed);
  EXPECT_EQ(written.files, std::vector<std::string>{"scene.fbx"});
  EXPECT_FALSE(fs::exists(dir / "Brass_diffuse_color.png"));
  auto back = Read();
  const auto* brass = MaterialNamed(back, "Brass");
  ASSERT_TRUE(brass);
  ASSERT_TRUE(brass->set->Find(g::diffuseColor)->texture.has_value());
  EXPECT_EQ(brass->set->Find(g::diffuseColor)->texture->_dimensions, (vex::Dimensions{4, 2}));

  // ASCII: the same tree as text, read by the same reader.
  formats::WriteOptions ascii;
  ascii.fbxAscii = true;
  Write(MakeScene(), ascii);
  std::ifstream in(dir / "scene.fbx");
  std::string first;
  std::getline(in, first);
  EXPECT_EQ(first, "; FBX 7.4.0 project file");
  back = Read();
  ASSERT_EQ(back.nodes.size(), 3u);
  const auto* glass = MaterialNamed(back, "Glass");
  ASSERT_TRUE(glass);
  ExpectColor(ColorOf(*glass->set, g::emissiveColor), 2.0, 1.0, 0.5, 1e-5);
  ExpectColor(ColorOf(*glass->set, g::opacityColor), 0.6, 0.6, 0.6, 1e-6);

  // A texture that is gone: a warning, and the port keeps its constant.
  Write(MakeScene());
  fs::remove(dir / "Brass_diffuse_color.png");
  back = Read();
  brass = MaterialNamed(back, "Brass");
  ASSERT_TRUE(brass);
  EXPECT_FALSE(brass->set->Find(g::diffuseColor)->texture.has_value());
  ExpectColor(ColorOf(*brass->set, g::diffuseColor), 1, 1, 1);
  const std::string warnings = Warnings(back.warnings);
  EXPECT_NE(warnings.find("material 'Brass': DiffuseColor texture Brass_diffuse_color.png cannot be read (no such file)"),
            std::string::npos)
      << warnings;
}

TEST_F(FbxScene, ScenesTheFileCannotSayAreRefusedOrWarned) {
  auto& bundles = testing_support::Host().bundles();
  auto scene = MakeScene();
  scene.meshes[1].indices = {0, 1, 7};
  auto r = formats::detail::WriteFbx(scene, dir.string(), "scene", bundles, {});
  ASSERT_FALSE(r.has_value());
  EXPECT_EQ(r.error().message, "mesh 'Tri': index 7 out of range (3 vertices)");

  scene = MakeScene();
  scene.nodes[1].parent = 2;
  r = formats::detail::WriteFbx(scene, dir.string(), "scene", bundles, {});
  ASSERT_FALSE(r.has_value());
  EXPECT_EQ(r.error().message, "node 'Body': parent 2 does not come before it");

  scene = MakeScene();
  scene.nodes[2].local.m[13] = std::nan("");
  r = formats::detail::WriteFbx(scene, dir.string(), "scene", bundles, {});
  ASSERT_FALSE(r.has_value());
  EXPECT_EQ(r.error().message, "node 'Fin': transform is not finite");

  scene = MakeScene();
  scene.materials[0].set = std::make_shared<const vex::ParameterSet>(vex::ParameterSet(vex::Id(vex::ports::gltf::kId)));
  r = formats::detail::WriteFbx(scene, dir.string(), "scene", bundles, {});
  ASSERT_FALSE(r.has_value());
  EXPECT_EQ(r.error().message,
            "material 'Brass': the fbx writer does not take sets of the bundle net.kelvo.material.portbundle.gltf");

  // A shear is dropped with a warning; anisotropy and transmission are named.
  scene = MakeScene();
  scene.nodes[0].local.m[4] = 0.5;  // y column leans into x
  auto set = *scene.materials[2].set;
  set.SetConstant(vex::ports::obj::anisotropy, 0.3);
  set.SetConstant(vex::ports::obj::transmission_color, vex::Color{0.5, 0.8, 0.5});
  scene.materials[2].set = std::make_shared<const vex::ParameterSet>(set);
  r = formats::detail::WriteFbx(scene, dir.string(), "scene", bundles, {});
  ASSERT_TRUE(r.has_value()) << r.error().message;
  const std::string warnings = Warnings(r->warnings);
  EXPECT_NE(warnings.find("node 'Root': a shear in its transform cannot be carried by FBX; dropped"), std::string::npos)
      << warnings;
  EXPECT_NE(warnings.find("material 'Paint': anisotropy: an FBX Phong surface has no anisotropy; left out"),
            std::string::npos)
      << warnings;
  EXPECT_NE(warnings.find("material 'Paint': transmission_color:"), std::string::npos) << warnings;

  EXPECT_NEAR(formats::detail::RoughnessFromShininess(formats::detail::ShininessFromRoughness(0.35)), 0.35, 1e-12);
  EXPECT_EQ(formats::detail::ShininessFromRoughness(0.0), 100.0);
  EXPECT_EQ(formats::detail::RoughnessFromShininess(400.0), 0.0);
}

}  // namespace
