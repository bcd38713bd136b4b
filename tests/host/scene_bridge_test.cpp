// Whole scenes between host documents and the interchange scene: a scene with a hierarchy, a mesh
// with normals, texture coordinates and two materials, lights of every kind the formats share and
// two cameras goes into a document (through the material importer and the global import) and comes
// back out (through the exporter and the global utilities); the checks that refuse a broken scene;
// the transform decomposition and the change of unit and up axis; the files a scene names.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <numbers>

#include "host/formats/catalogue.h"
#include "host/formats/gltf_scene_fixture.h"
#include "host/formats/scene_bridge.h"
#include "host/json_text.h"
#include "host/polygon_object.h"
#include "host/port_bundles.h"
#include "host/scene_file.h"
#include "test_host.h"
#include "vex/lookup.h"
#include "vex/ports.h"
#include "vex/units.h"

namespace fs = std::filesystem;
namespace formats = host::formats;

namespace {

/// Translation, Euler angles in radians applied x then y then z, scale.
formats::Matrix4 Trs(vex::Vector3d t, vex::Vector3d r, vex::Vector3d s) {
  host::SceneObject object(vex::kGroupObjectType);
  object.MutableParameters().Set(vex::kObjectRelativePosition, t);
  object.MutableParameters().Set(vex::kObjectRelativeRotation, r);
  object.MutableParameters().Set(vex::kObjectRelativeScale, s);
  const host::Affine a = host::LocalTransform(object);
  formats::Matrix4 m;
  for (int row = 0; row < 3; ++row)
    for (int c = 0; c < 4; ++c) m.m[static_cast<std::size_t>(c * 4 + row)] = a.m[row][c];
  return m;
}


/// Two quads side by side (four triangles), Red then Blue, with normals and texture coordinates.
formats::MeshData Quads() {
  formats::MeshData m;
  m.name = "Body";
  m.positions = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 2, 0, 0.5f, 2, 1, 0.5f};
  m.normals = {0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 1, 0.6f, 0, 0.8f, 0.6f, 0, 0.8f};
  m.uvs = {0, 0, 0.5f, 0, 0.5f, 1, 0, 1, 1, 0, 1, 1};
  m.indices = {0, 1, 2, 0, 2, 3, 1, 4, 5, 1, 5, 2};
  m.parts = {{0, 2, 0}, {2, 2, 1}};
  return m;
}

formats::SceneData MakeScene() {
  formats::SceneData scene;
  scene.name = "bridge";
  scene.metersPerUnit = 0.01;
  scene.materials.push_back({"Red", gltf_fixture::ConstantMaterial({0.8, 0.1, 0.1, 1}, 0.0, 0.6)});
  scene.materials.push_back({"Blue", gltf_fixture::ConstantMaterial({0.1, 0.2, 0.9, 1}, 1.0, 0.3)});
  scene.meshes.push_back(Quads());
  formats::LightData lamp{.name = "Lamp", .type = formats::LightData::Type::Point, .color = {1, 0.9, 0.8}, .intensity = 25.0};
  lamp.range = 400.0;
  formats::LightData spot{.name = "Spot", .type = formats::LightData::Type::Spot, .intensity = 120.0};
  spot.innerConeAngle = 0.3, spot.outerConeAngle = 0.6;
  spot.temperature = 3200.0;
  spot.color = {0.9, 0.7, 0.5};  // already times the temperature's colour
  formats::LightData panel{.name = "Panel", .type = formats::LightData::Type::Rect, .intensity = 800.0};
  panel.width = 120, panel.height = 40;
  formats::LightData globe{.name = "Globe", .type = formats::LightData::Type::Sphere, .intensity = 50.0};
  globe.radius = 15;
  formats::LightData sun{.name = "Sun", .type = formats::LightData::Type::Directional, .color = {1, 1, 0.95}, .intensity = 3.5};
  scene.lights = {lamp, spot, panel, globe, sun};
  formats::CameraData view{.name = "View", .yfov = 0.8, .aspectRatio = 16.0 / 9.0, .znear = 5, .zfar = 5000};
  formats::CameraData plan{.name = "Plan", .orthographic = true, .aspectRatio = 1.25, .orthoHeight = 300, .znear = 1, .zfar = 900};
  scene.cameras = {view, plan};
  using N = formats::NodeData;
  scene.nodes = {
      N{"Root", -1, Trs({10, 20, 30}, {0, 0.5, 0}, {1, 1, 1}), -1, -1, -1},
      N{"Body", 0, Trs({0, 100, 0}, {0.2, -0.4, 1.1}, {2, 3, 0.5}), 0, -1, -1},
      N{"Lamp", 0, Trs({50, 250, -30}, {}, {1, 1, 1}), -1, 0, -1},
      N{"Spot", 1, Trs({0, 0, 80}, {-1.2, 0, 0}, {1, 1, 1}), -1, 1, -1},
      N{"Panel", -1, Trs({0, 300, 0}, {-std::numbers::pi / 2, 0, 0}, {1, 1, 1}), -1, 2, -1},
      N{"Globe", -1, Trs({-100, 50, 0}, {}, {1, 1, 1}), -1, 3, -1},
      N{"Sun", -1, Trs({}, {-0.7, 0.3, 0}, {1, 1, 1}), -1, 4, -1},
      N{"View", -1, Trs({0, 160, 900}, {-0.1, 0, 0}, {1, 1, 1}), -1, -1, 0},
      N{"Plan", 0, Trs({0, 1000, 0}, {-std::numbers::pi / 2, 0, 0}, {1, 1, 1}), -1, -1, 1},
  };
  return scene;
}

struct Services {
  std::shared_ptr<vex::IGlobalUtils> utils;
  std::shared_ptr<vex::IGlobalImport> importer;
};
Services Open() {
  Services s;
  s.utils = vex::CreateAs<vex::IGlobalUtils>(formats::kGlobalUtilsClass).value_or(nullptr);
  s.importer = vex::CreateAs<vex::IGlobalImport>(formats::kGlobalImportClass).value_or(nullptr);
  return s;
}

/// Every triangle corner of a mesh as position, normal, uv: what a mesh shows whatever its
/// vertex sharing.
std::vector<std::array<float, 8>> Corners(const formats::MeshData& m) {
  std::vector<std::array<float, 8>> out;
  for (const auto i : m.indices) {
    std::array<float, 8> c{};
    for (int k = 0; k < 3; ++k) c[static_cast<std::size_t>(k)] = m.positions[i * 3 + static_cast<std::size_t>(k)];
    for (int k = 0; k < 3 && !m.normals.empty(); ++k) c[3 + static_cast<std::size_t>(k)] = m.normals[i * 3 + static_cast<std::size_t>(k)];
    for (int k = 0; k < 2 && !m.uvs.empty(); ++k) c[6 + static_cast<std::size_t>(k)] = m.uvs[i * 2 + static_cast<std::size_t>(k)];
    out.push_back(c);
  }
  return out;
}

class SceneBridge : public ::testing::Test {
 protected:
  void SetUp() override { services = Open(); }
  void TearDown() override {
    for (auto* d : opened) testing_support::Host().documents().Close(d);
  }
  host::Document& NewDocument(const std::string& name) {
    host::Document& d = testing_support::Host().documents().NewDocument(name);
    opened.push_back(&d);
    return d;
  }
  Services services;
  std::vector<host::Document*> opened;
};

TEST_F(SceneBridge, SceneGoesIntoADocumentAndComesBackWhole) {
  ASSERT_TRUE(services.utils && services.importer);
  const formats::SceneData original = MakeScene();
  formats::SceneData scene = original;
  host::Document& document = NewDocument("bridge");
  formats::DocumentImport in{services.utils.get(), services.importer.get(), {}};
  auto lost = formats::SceneIntoDocument(std::move(scene), document, "bridge.gltf", in);
  ASSERT_TRUE(lost) << lost.error().message;
  EXPECT_TRUE(lost->empty()) << lost->front();
  EXPECT_TRUE(scene.meshes.empty() || scene.meshes.front().positions.empty());  // moved, not copied

  // The host's side: the unit, the objects and their data.
  const auto* unit = document.Settings().Find(vex::kDocumentLengthUnit)->Get<vex::UnitScale>();
  ASSERT_NE(unit, nullptr);
  EXPECT_EQ(unit->unit, "cm");
  host::SceneObject* body = document.FindObject("Body");
  ASSERT_NE(body, nullptr);
  EXPECT_EQ(body->GetType(), vex::kPolygonObjectType);
  EXPECT_EQ(body->GetParent()->GetName(), "Root");
  const auto* attributes = body->Parameters().Find(host::kPolygonAttributesParameter)->Get<host::PolygonAttributes>();
  ASSERT_NE(attributes, nullptr);
  EXPECT_EQ(attributes->normals.size(), 12u);
  EXPECT_EQ(attributes->uvs.size(), 12u);
  EXPECT_EQ(attributes->materials, (std::vector<std::int32_t>{0, 0, 1, 1}));
  EXPECT_EQ(attributes->materialNames, (std::vector<std::string>{"Red", "Blue"}));
  host::SceneObject* lamp = document.FindObject("Lamp");
  ASSERT_NE(lamp, nullptr);
  EXPECT_EQ(lamp->GetType(), 1036751);                     // the Corvane light, built by the global import
  EXPECT_EQ(lamp->Parameters().GetInt32(11005, -1), 1);   // luminous power
  EXPECT_NEAR(lamp->Parameters().GetFloat(11004), 25.0 * 4 * std::numbers::pi, 1e-9);
  EXPECT_EQ(document.FindObject("Plan")->GetType(), host::kCameraObjectType);
  EXPECT_EQ(document.Materials().All().size(), 2u);

  // And back out.
  formats::DocumentExport out;
  out.utils = services.utils.get();
  auto back = formats::SceneFromDocument(document, "bridge.vex", out);
  ASSERT_TRUE(back) << back.error().message;
  EXPECT_NEAR(back->metersPerUnit, 0.01, 1e-12);
  EXPECT_EQ(back->upAxis, 'Y');
  // Nodes come out depth first (children after their parent); compared by name.
  ASSERT_EQ(back->nodes.size(), original.nodes.size());
  const auto named = [](const formats::SceneData& s, const std::string& name) -> const formats::NodeData& {
    for (const auto& n : s.nodes)
      if (n.name == name) return n;
    ADD_FAILURE() << "no node " << name;
    return s.nodes.front();
  };
  const auto parentName = [](const formats::SceneData& s, const formats::NodeData& n) {
    return n.parent >= 0 ? s.nodes[static_cast<std::size_t>(n.parent)].name : std::string("-");
  };
  for (const auto& a : original.nodes) {
    const auto& b = named(*back, a.name);
    EXPECT_EQ(parentName(*back, b), parentName(original, a)) << a.name;
    for (std::size_t k = 0; k < 16; ++k) EXPECT_NEAR(b.local.m[k], a.local.m[k], 1e-9) << a.name << " " << k;
    EXPECT_EQ(b.mesh >= 0, a.mesh >= 0) << a.name;
    EXPECT_EQ(b.light >= 0, a.light >= 0) << a.name;
    EXPECT_EQ(b.camera >= 0, a.camera >= 0) << a.name;
  }
  for (std::size_t i = 0; i + 1 < back->nodes.size(); ++i)
    EXPECT_LT(back->nodes[i + 1].parent, static_cast<int>(i + 1));  // parents first
  ASSERT_EQ(back->meshes.size(), 1u);
  const auto& mesh = back->meshes[0];
  EXPECT_EQ(Corners(mesh), Corners(original.meshes[0]));
  ASSERT_EQ(mesh.parts.size(), 2u);
  EXPECT_EQ(back->materials[static_cast<std::size_t>(mesh.parts[0].material)].name, "Red");
  EXPECT_EQ(mesh.parts[0].triangleCount, 2u);
  EXPECT_EQ(back->materials[static_cast<std::size_t>(mesh.parts[1].material)].name, "Blue");
  EXPECT_EQ(mesh.VertexCount(), 6u);  // corners that agree share a vertex again

  ASSERT_EQ(back->lights.size(), original.lights.size());
  const auto lightOf = [&](const std::string& node) -> const formats::LightData& {
    return back->lights[static_cast<std::size_t>(named(*back, node).light)];
  };
  for (const auto& n : original.nodes) {
    if (n.light < 0) continue;
    const auto& a = original.lights[static_cast<std::size_t>(n.light)];
    const auto& b = lightOf(n.name);
    EXPECT_EQ(b.name, a.name);
    EXPECT_EQ(b.type, a.type) << a.name;
    EXPECT_NEAR(b.intensity, a.intensity, 1e-9 * a.intensity) << a.name;
    EXPECT_NEAR(b.color.r, a.color.r, 1e-9) << a.name;
    EXPECT_NEAR(b.color.g, a.color.g, 1e-9) << a.name;
    EXPECT_NEAR(b.color.b, a.color.b, 1e-9) << a.name;
    EXPECT_EQ(b.temperature.has_value(), a.temperature.has_value()) << a.name;
    EXPECT_EQ(b.range.has_value(), a.range.has_value()) << a.name;
  }
  EXPECT_NEAR(*lightOf("Spot").temperature, 3200.0, 1e-9);
  EXPECT_NEAR(lightOf("Spot").innerConeAngle, 0.3, 1e-12);
  EXPECT_NEAR(lightOf("Spot").outerConeAngle, 0.6, 1e-12);
  EXPECT_NEAR(*lightOf("Lamp").range, 400.0, 1e-12);
  EXPECT_NEAR(lightOf("Panel").width, 120.0, 1e-12);
  EXPECT_NEAR(lightOf("Panel").height, 40.0, 1e-12);
  EXPECT_NEAR(lightOf("Globe").radius, 15.0, 1e-12);
  ASSERT_EQ(back->cameras.size(), 2u);
  const auto& view = back->cameras[static_cast<std::size_t>(named(*back, "View").camera)];
  const auto& plan = back->cameras[static_cast<std::size_t>(named(*back, "Plan").camera)];
  EXPECT_FALSE(view.orthographic);
  EXPECT_NEAR(view.yfov, 0.8, 1e-12);
  EXPECT_NEAR(view.aspectRatio, 16.0 / 9.0, 1e-12);
  EXPECT_NEAR(view.zfar, 5000, 1e-12);
  EXPECT_TRUE(plan.orthographic);
  EXPECT_NEAR(plan.orthoHeight, 300, 1e-12);
  EXPECT_NEAR(plan.znear, 1, 1e-12);

  // Materials went through the importer and come back through the exporter (Corvane).
  ASSERT_EQ(back->materials.size(), 2u);
  EXPECT_EQ(back->materials[0].name, "Red");
  EXPECT_EQ(back->materials[0].set->GetBundle(), vex::ports::corvane::kId);
  const auto* diffuse = back->materials[0].set->Find(vex::ports::corvane::diffuse_color);
  ASSERT_TRUE(diffuse && diffuse->Constant() && diffuse->Constant()->Get<vex::Color>());
  EXPECT_NEAR(diffuse->Constant()->Get<vex::Color>()->r, 0.8, 1e-4);
  EXPECT_NEAR(diffuse->Constant()->Get<vex::Color>()->b, 0.1, 1e-4);
  // The polygon meshes were handed over, not kept twice.
  EXPECT_FALSE(body->Parameters().Contains(vex::kPolygonMeshParameter));
}

TEST_F(SceneBridge, ANodeWithAMeshAndALightKeepsBoth) {
  ASSERT_TRUE(services.utils && services.importer);
  formats::SceneData scene;
  scene.meshes.push_back(Quads());
  scene.meshes[0].parts.clear();
  scene.lights.push_back({.name = "Bulb", .type = formats::LightData::Type::Point, .intensity = 10.0});
  formats::NodeData lamp{"Lamp", -1, Trs({1, 2, 3}, {0, 0.3, 0}, {1, 1, 1}), 0, 0, -1};
  formats::NodeData shade{"Shade", 0, Trs({0, 1, 0}, {}, {1, 1, 1}), 0, -1, -1};
  scene.nodes = {lamp, shade};
  scene.meshes.push_back(Quads());
  scene.meshes[1].parts.clear();
  scene.nodes[1].mesh = 1;
  host::Document& document = NewDocument("lamp");
  formats::DocumentImport in{services.utils.get(), services.importer.get(), {}};
  auto lost = formats::SceneIntoDocument(std::move(scene), document, "lamp.gltf", in);
  ASSERT_TRUE(lost) << lost.error().message;
  EXPECT_TRUE(lost->empty());
  // The mesh is the node's object; the light is one child at its origin, the node's child another.
  ASSERT_EQ(document.Objects().size(), 1u);
  const auto& object = *document.Objects()[0];
  EXPECT_EQ(object.GetType(), vex::kPolygonObjectType);
  ASSERT_EQ(object.Children().size(), 2u);
  EXPECT_EQ(object.Children()[0]->GetType(), 1036751);
  EXPECT_EQ(object.Children()[0]->GetName(), "Lamp");
  EXPECT_TRUE(host::LocalTransform(*object.Children()[0]).IsIdentity());
  EXPECT_EQ(object.Children()[1]->GetName(), "Shade");
  EXPECT_EQ(object.Children()[1]->GetType(), vex::kPolygonObjectType);
}

TEST_F(SceneBridge, DocumentLightsAreMeasuredByTheModule) {
  ASSERT_TRUE(services.utils);
  // A light in image units under Corvane render settings of a centimetre document with a metre
  // renderer unit: the module's conversion decides the candela, not the bridge.
  host::Document& document = NewDocument("units");
  document.Settings().Set(vex::kDocumentLengthUnit, vex::Data::MakeCustom(vex::UnitScale{"cm", 0.01}));
  vex::RenderData render;
  vex::PostEffect corvane;
  corvane.type = 1036219;
  corvane.parameters.Set(25004, false);
  corvane.parameters.Set(25002, vex::Data::MakeCustom(vex::UnitScale{"m", 1.0}));
  render.postEffects.push_back(corvane);
  document.AddRenderData(render);
  auto light = std::make_shared<host::SceneObject>(1036751);
  light->SetName("Key");
  light->MutableParameters().Set(10000, std::int32_t{1});
  light->MutableParameters().Set(11004, 2.0);
  light->MutableParameters().Set(11005, std::int32_t{0});
  light->MutableParameters().Set(11002, std::int32_t{1});
  light->MutableParameters().Set(11003, 2700.0);
  auto* inserted = *document.InsertObject(light, nullptr);
  auto base = services.utils->CVLightGetBaseIntensity(inserted);
  ASSERT_TRUE(base);
  formats::DocumentExport out;
  out.utils = services.utils.get();
  auto scene = formats::SceneFromDocument(document, "units.vex", out);
  ASSERT_TRUE(scene) << scene.error().message;
  ASSERT_EQ(scene->lights.size(), 1u);
  // Luminous power from image units is base x pi (c3 = 1, c5 = c2 = 0.01), then lumens / 4 pi.
  EXPECT_NEAR(scene->lights[0].intensity, *base * std::numbers::pi * 0.01 * 0.01 / (4 * std::numbers::pi), 1e-12);
  EXPECT_NEAR(*base, 2.0 / (0.01 * 0.01), 1e-6);
  const vex::Color warm = services.utils->ComputeColorTemperatureRGB(2700.0, true, 6500.0);
  EXPECT_NEAR(scene->lights[0].color.b, warm.b, 1e-12);
  EXPECT_NEAR(*scene->lights[0].temperature, 2700.0, 0);
  // Formats that apply the temperature themselves take it back out of the colour.
  EXPECT_NEAR(scene->lights[0].temperatureRgb.r, warm.r, 1e-12);
  EXPECT_NEAR(scene->lights[0].temperatureRgb.b, warm.b, 1e-12);
  // The scratch copy the conversion used is gone; the light is as it was.
  EXPECT_EQ(document.Objects().size(), 1u);
  EXPECT_EQ(light->Parameters().GetFloat(11004), 2.0);
  EXPECT_EQ(light->Parameters().GetInt32(11005, -1), 0);
}

TEST_F(SceneBridge, BrokenDocumentsNameTheObject) {
  formats::DocumentExport out;
  const auto fails = [&](host::Document& d, const std::string& expected) {
    auto scene = formats::SceneFromDocument(d, "broken.vex", out);
    ASSERT_FALSE(scene) << expected;
    EXPECT_EQ(scene.error().message.substr(0, expected.size()), expected) << scene.error().message;
  };
  host::Document& empty = NewDocument("empty");
  ASSERT_TRUE(empty.InsertObject(host::MakePolygonObject("Flat", vex::PolygonMesh{{{0, 0, 0}}, {}, {}}), nullptr));
  fails(empty, "broken.vex: object 'Flat': the polygon object has no polygons");

  host::Document& nan = NewDocument("nan");
  auto group = std::make_shared<host::SceneObject>(vex::kGroupObjectType);
  group->SetName("Lost");
  group->MutableParameters().Set(vex::kObjectRelativePosition, vex::Vector3d{std::nan(""), 0, 0});
  ASSERT_TRUE(nan.InsertObject(group, nullptr));
  fails(nan, "broken.vex: object 'Lost': its transform is not finite");

  host::Document& unknown = NewDocument("unknown");
  auto quad = host::MakePolygonObject("Tile", vex::PolygonMesh{{{0, 0, 0}, {1, 0, 0}, {1, 1, 0}}, {3}, {0, 1, 2}});
  quad->MutableParameters().Set(host::kPolygonAttributesParameter,
                                vex::Data::MakeCustom(host::PolygonAttributes{{}, {}, {0}, {"Nowhere"}}));
  ASSERT_TRUE(unknown.InsertObject(quad, nullptr));
  fails(unknown, "broken.vex: object 'Tile': material 'Nowhere' is not a material of the document");

  host::Document& wrong = NewDocument("wrong");
  auto counted = host::MakePolygonObject("Odd", vex::PolygonMesh{{{0, 0, 0}, {1, 0, 0}, {1, 1, 0}}, {3}, {0, 1, 2}});
  counted->MutableParameters().Set(host::kPolygonAttributesParameter,
                                   vex::Data::MakeCustom(host::PolygonAttributes{{{0, 0, 1}}, {}, {}, {}}));
  ASSERT_TRUE(wrong.InsertObject(counted, nullptr));
  fails(wrong, "broken.vex: object 'Odd': normals: 1 for 3 polygon corners");
}

TEST(SceneChecks, BrokenScenesAreRefusedNamingTheObject) {
  const formats::SceneData good = MakeScene();
  ASSERT_TRUE(formats::ValidateScene(good, "s.gltf"));
  const auto refused = [](const formats::SceneData& s, const std::string& expected) {
    auto valid = formats::ValidateScene(s, "s.gltf");
    ASSERT_FALSE(valid) << expected;
    EXPECT_EQ(valid.error().message, "s.gltf: " + expected);
  };
  auto s = good;
  s.nodes[0].parent = 3;  // Root under Spot, which is under Body, which is under Root
  refused(s, "node 'Root': its parents form a cycle");
  s = good;
  s.nodes[5].parent = 6;
  refused(s, "node 'Globe': its parent 'Sun' comes after it");
  s = good;
  s.nodes[2].parent = 42;
  refused(s, "node 'Lamp': parent 42 does not exist");
  s = good;
  s.nodes[1].mesh = 3;
  refused(s, "node 'Body': mesh 3 does not exist");
  s = good;
  s.nodes[2].light = 9;
  refused(s, "node 'Lamp': light 9 does not exist");
  s = good;
  s.nodes[1].local.m[13] = std::nan("");
  refused(s, "node 'Body': its transform is not finite");
  s = good;
  s.meshes[0].indices.clear();
  s.meshes[0].parts.clear();
  refused(s, "mesh 'Body' (node 'Body'): no triangles");
  s = good;
  s.meshes[0].indices[4] = 6;
  refused(s, "mesh 'Body' (node 'Body'): triangle 1 refers to vertex 6 of 6");
  s = good;
  s.meshes[0].positions[7] = std::numeric_limits<float>::infinity();
  refused(s, "mesh 'Body' (node 'Body'): vertex 2 is not finite");
  s = good;
  s.meshes[0].uvs.pop_back();
  refused(s, "mesh 'Body' (node 'Body'): the texture coordinates do not match the vertices");
  s = good;
  s.meshes[0].parts[1].triangleCount = 3;
  refused(s, "mesh 'Body' (node 'Body'): a part lies beyond the triangles");
  s = good;
  s.meshes[0].parts[1].material = 2;
  refused(s, "mesh 'Body' (node 'Body'): material 2 does not exist");
  s = good;
  s.lights[0].intensity = std::nan("");
  refused(s, "light 'Lamp': its intensity or colour is not finite");
}

TEST(SceneFrames, TransformsDecomposeAndScenesChangeUnitAndAxis) {
  const vex::Vector3d t{1, -2, 3}, r{0.3, -1.2, 2.5}, sc{2, 0.5, 1.5};
  const auto d = formats::Decompose(Trs(t, r, sc));
  EXPECT_FALSE(d.sheared);
  const auto again = Trs(d.position, d.rotation, d.scale);
  const auto expected = Trs(t, r, sc);
  for (std::size_t k = 0; k < 16; ++k) EXPECT_NEAR(again.m[k], expected.m[k], 1e-10) << k;
  // A mirror keeps its sign in the scale; a shear is reported.
  const auto mirrored = formats::Decompose(Trs({}, {0.1, 0.2, 0.3}, {-1, 2, 3}));
  const auto back = Trs(mirrored.position, mirrored.rotation, mirrored.scale);
  const auto mirror = Trs({}, {0.1, 0.2, 0.3}, {-1, 2, 3});
  for (std::size_t k = 0; k < 16; ++k) EXPECT_NEAR(back.m[k], mirror.m[k], 1e-10) << k;
  formats::Matrix4 shear;
  shear.m[4] = 0.5;  // x grows with y
  EXPECT_TRUE(formats::Decompose(shear).sheared);

  // Centimetres and Z up into metres and Y up: lengths scale, the roots turn about +X.
  formats::SceneData s = MakeScene();
  s.upAxis = 'Z';
  formats::ConvertFrame(s, 1.0, 'Y');
  EXPECT_EQ(s.metersPerUnit, 1.0);
  EXPECT_EQ(s.upAxis, 'Y');
  EXPECT_FLOAT_EQ(s.meshes[0].positions[12], 0.02f);
  EXPECT_NEAR(*s.lights[0].range, 4.0, 1e-12);
  EXPECT_NEAR(s.lights[2].width, 1.2, 1e-12);
  EXPECT_NEAR(s.cameras[0].zfar, 50.0, 1e-12);
  // Root at (10, 20, 30) cm, Z up: (0.1, 0.3, -0.2) m, Y up.
  EXPECT_NEAR(s.nodes[0].local.m[12], 0.1, 1e-12);
  EXPECT_NEAR(s.nodes[0].local.m[13], 0.3, 1e-12);
  EXPECT_NEAR(s.nodes[0].local.m[14], -0.2, 1e-12);
  // A child keeps its rotation, only its translation scales.
  const auto body = MakeScene().nodes[1].local;
  EXPECT_NEAR(s.nodes[1].local.m[0], body.m[0], 1e-12);
  EXPECT_NEAR(s.nodes[1].local.m[13], 1.0, 1e-12);
  // And back: the same scene again.
  formats::ConvertFrame(s, 0.01, 'Z');
  const auto original = MakeScene();
  for (std::size_t k = 0; k < 16; ++k) EXPECT_NEAR(s.nodes[0].local.m[k], original.nodes[0].local.m[k], 1e-9) << k;
}

TEST(SceneFiles, PolygonAttributesAreSavedAndCheckedInTheSceneFile) {
  host::Document document("d");
  auto object = host::MakePolygonObject("Quad", vex::PolygonMesh{{{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}}, {3, 3}, {0, 1, 2, 0, 2, 3}});
  const host::PolygonAttributes attributes{{{0, 0, 1}, {0, 0, 1}, {0, 0, 1}, {0, 0, 1}, {0, 0, 1}, {0, 0, 1}},
                                           {{0, 0}, {1, 0}, {1, 1}, {0, 0}, {1, 1}, {0, 1}},
                                           {1, -1},
                                           {"Wood", "Brick"}};
  object->MutableParameters().Set(host::kPolygonAttributesParameter, vex::Data::MakeCustom(attributes));
  ASSERT_TRUE(document.InsertObject(object, nullptr));
  auto text = host::scene_file::Dump(document);
  ASSERT_TRUE(text) << text.error().message;
  EXPECT_NE(text->find("\"polygonattributes\""), std::string::npos);
  host::Document back("b");
  ASSERT_TRUE(host::scene_file::Parse(*text, "t.vex", back));
  const auto* read = back.Objects().at(0)->Parameters().Find(host::kPolygonAttributesParameter)->Get<host::PolygonAttributes>();
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(*read, attributes);

  const auto refused = [](const std::string& attributesJson, const std::string& expected) {
    host::Document bad("x");
    auto parsed = host::scene_file::Parse(
        R"({"objects": [{"type": 1100, "name": "T", "parameters": {"940": {"polygonmesh": {"points": [[0,0,0],[1,0,0],[0,1,0]], "polygons": [[0,1,2]]}}, "943": {"polygonattributes": )" +
            attributesJson + "}}}]}",
        "bad.vex", bad);
    ASSERT_FALSE(parsed) << attributesJson;
    EXPECT_EQ(parsed.error().message, expected);
  };
  refused(R"({"uvs": [[0, 0], [1, 0]]})", "bad.vex: objects[0].parameters.943.uvs: 2 for 3 polygon corners");
  refused(R"({"materials": [0, 0], "materialNames": ["A"]})", "bad.vex: objects[0].parameters.943.materials: 2 for 1 polygons");
  refused(R"({"materials": [1], "materialNames": ["A"]})",
          "bad.vex: objects[0].parameters.943.materials[0]: number out of range");
  refused(R"({"normals": [[0, 0]]})", "bad.vex: objects[0].parameters.943.normals[0]: expected an array of 3 numbers");
}

TEST(SceneFiles, MissingBuffersAndTexturesAreFoundBeforeReading) {
  const fs::path dir = fs::temp_directory_path() / ("scene_refs_" + std::to_string(getpid()));
  fs::remove_all(dir);
  fs::create_directories(dir);
  const std::string json = R"({"asset": {"version": "2.0"},
    "buffers": [{"uri": "here.bin", "byteLength": 4}, {"uri": "gone%20away.bin", "byteLength": 36}],
    "bufferViews": [{"buffer": 0, "byteLength": 4}, {"buffer": 1, "byteLength": 36}],
    "accessors": [{"bufferView": 1, "componentType": 5126, "count": 3, "type": "VEC3"}],
    "meshes": [{"name": "Wall", "primitives": [{"attributes": {"POSITION": 0}, "material": 0}]}],
    "images": [{"uri": "data:image/png;base64,AAAA"}, {"uri": "bricks.png"}],
    "textures": [{"source": 1}],
    "materials": [{"name": "Brick", "pbrMetallicRoughness": {"baseColorTexture": {"index": 0}}}]})";
  // The same JSON as a .gltf and as a GLB's JSON chunk (with a binary chunk behind it).
  const std::string gltf = (dir / "s.gltf").string(), glb = (dir / "s.glb").string();
  std::ofstream(gltf) << json;
  std::ofstream(glb, std::ios::binary) << gltf_fixture::Glb(json, std::string(8, '\x7f'));
  std::ofstream(dir / "here.bin") << "abcd";
  for (const std::string& file : {gltf, glb}) {
    auto checked = formats::CheckReferencedFiles(file);
    ASSERT_FALSE(checked) << file;
    EXPECT_EQ(checked.error().message, file + ": mesh 'Wall': buffer 1 \"gone%20away.bin\" does not exist");
  }
  std::ofstream(dir / "gone away.bin") << std::string(36, '\0');
  for (const std::string& file : {gltf, glb}) {
    auto checked = formats::CheckReferencedFiles(file);
    ASSERT_FALSE(checked) << file;
    EXPECT_EQ(checked.error().message, file + ": material 'Brick': texture \"bricks.png\" does not exist");
  }
  std::ofstream(dir / "bricks.png") << "x";
  EXPECT_TRUE(formats::CheckReferencedFiles(gltf));
  EXPECT_TRUE(formats::CheckReferencedFiles(glb));
  // A file that only starts like a GLB is left to the reader to refuse.
  std::ofstream(dir / "cut.glb", std::ios::binary) << gltf_fixture::Glb(json, "").substr(0, 40);
  EXPECT_TRUE(formats::CheckReferencedFiles((dir / "cut.glb").string()));
  fs::remove_all(dir);
}

TEST(SceneFiles, NumbersBeyondADoubleAreRefusedWhereTheyStand) {
  const auto refused = [](const std::string& text, const std::string& expected) {
    auto parsed = host::ParseJsonText(text, "s.gltf");
    ASSERT_FALSE(parsed) << text;
    EXPECT_EQ(parsed.error().message, expected);
  };
  // An element is named when its name comes before the number; keys, indices and nesting count.
  refused(R"({"nodes": [{"name": "A"}, {"name": "Far", "translation": [0, 1e999, 0]}]})",
          "s.gltf:1:62: nodes[1] 'Far'.translation[1]: the number 1e999 is beyond the range of a double");
  refused("{\"nodes\": [{\"matrix\": [[0, -2e308]],\n \"name\": \"Late\"}]}",
          "s.gltf:1:28: nodes[0].matrix[0][1]: the number -2e308 is beyond the range of a double");
  refused(R"({"a,[": "x]", "b": {"name": 3, "c": 1E400}})",
          "s.gltf:1:37: b.c: the number 1E400 is beyond the range of a double");
  refused("[1e999]", "s.gltf:1:2: [0]: the number 1e999 is beyond the range of a double");
  EXPECT_TRUE(host::ParseJsonText(R"({"small": 1e-999, "large": 1e308})", "s.gltf"));
}

TEST(SceneFiles, ReadersRequireTheFilesTheSceneNamesOnlyWhenAsked) {
  const fs::path dir = fs::temp_directory_path() / ("scene_reads_" + std::to_string(getpid()));
  fs::remove_all(dir);
  fs::create_directories(dir);
  const auto bundles = *host::PortBundles::Builtin();
  formats::ReadOptions whole;
  whole.requireFiles = true;
  const auto refused = [&](const std::string& file, const std::string& message) {
    auto read = formats::ReadFormatFile(file, bundles, whole);
    ASSERT_FALSE(read) << file;
    EXPECT_EQ(read.error().message, file + ": " + message);
  };
  const auto warned = [&](const std::string& file, const std::string& warning) {
    auto read = formats::ReadFormatFile(file, bundles);
    ASSERT_TRUE(read) << read.error().message;
    std::string all;
    for (const auto& w : read->warnings) all += w + "\n";
    EXPECT_NE(all.find(warning), std::string::npos) << all;
  };

  // OBJ: the library and every map it names, spaces in the name and options before it.
  const std::string obj = (dir / "m.obj").string();
  std::ofstream(obj) << "mtllib my stuff.mtl\nv 0 0 0\nv 1 0 0\nv 0 1 0\nusemtl Stone\nf 1 2 3\n";
  refused(obj, "material library \"my stuff.mtl\" does not exist");
  warned(obj, "material library cannot be read");
  std::ofstream(dir / "my stuff.mtl") << "newmtl Stone\nKd 1 1 1\nmap_Kd -s 1 1 1 stone wall.png\nrefl dusk.png\n";
  refused(obj, "material 'Stone': texture \"stone wall.png\" does not exist");
  warned(obj, "(constant kept)");
  std::ofstream(dir / "stone wall.png") << "x";
  refused(obj, "material 'Stone': texture \"dusk.png\" does not exist");  // not carried, but named
  std::ofstream(dir / "dusk.png") << "x";
  EXPECT_TRUE(formats::ReadFormatFile(obj, bundles, whole));

  // glTF: an image file that is gone, found by the reader itself too.
  const std::string gltf = (dir / "t.gltf").string();
  std::ofstream(gltf) << R"({"asset": {"version": "2.0"}, "images": [{"uri": "gone.png"}], "textures": [{"source": 0}],
    "materials": [{"name": "Brick", "pbrMetallicRoughness": {"baseColorTexture": {"index": 0}}}]})";
  refused(gltf, "material 'Brick': texture \"gone.png\" does not exist");
  warned(gltf, "material 'Brick': baseColorTexture: image 0");
  fs::remove_all(dir);
}

}  // namespace
