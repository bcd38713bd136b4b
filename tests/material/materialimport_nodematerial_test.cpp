// The material importer: the space check, one conversion per source bundle and
// the Corvane node material it builds.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "material/materialimport_nodematerial.h"
#include "material_support.h"

namespace {

using namespace testing_support;

std::shared_ptr<vex::IMaterialImport> NewImporter() {
  auto importer = vex::CreateAs<vex::IMaterialImport>("net.kelvo.material.materialimport.nodematerial");
  return importer ? *importer : nullptr;
}

vex::ParameterSetRef Set(std::string_view bundle, std::function<void(vex::ParameterSet&)> fill) {
  auto set = std::make_shared<vex::ParameterSet>(vex::Id(bundle));
  fill(*set);
  return set;
}

const vex::GraphNode& End(const vex::IMaterial& m) { return *m.GetGraph(vex::nodespace::kCorvane)->EndNode(); }

template <class T>
T Port(const vex::GraphNode& node, std::string_view port) {
  const vex::Data* d = node.ports.Find(port);
  EXPECT_NE(d, nullptr) << port;
  return d && d->Get<T>() ? *d->Get<T>() : T{};
}

std::shared_ptr<const vex::ParameterSet> Corvane(const vex::ParameterSetRef& set) {
  auto converted = interop::material::ConvertToCorvane(set);
  EXPECT_TRUE(converted) << converted.error().Describe();
  if (converted) {
    EXPECT_EQ((*converted)->GetBundle(), vex::bundle::kCorvane);
  }
  return converted ? *converted : nullptr;
}

template <class T>
T Value(const vex::ParameterSet& set, std::string_view port) {
  const vex::Parameter* p = set.Find(port);
  EXPECT_NE(p, nullptr) << port;
  const T* v = p && p->Constant() ? p->Constant()->Get<T>() : nullptr;
  EXPECT_NE(v, nullptr) << port;
  return v ? *v : T{};
}

TEST(MaterialImport, OtherSpacesAreRefusedAndTheRecordNamesCorvane) {
  ScratchDocument scratch("importspace");
  auto importer = NewImporter();
  ASSERT_NE(importer, nullptr);
  auto set = Set(vex::bundle::kGeneric, [](auto& s) { s.SetConstant("diffuseColor", vex::Color{1, 0, 0}); });
  auto refused = importer->CreateMaterial(*scratch.document, set, vex::nodespace::kViewport);
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().message,
            "MapMaterialData (import) cannot handle nodespace for Corvane import: net.kelvo.nodes.nodespace.viewport");
  EXPECT_EQ(refused.error().unit, "materialimport_nodematerial");
  EXPECT_TRUE(scratch.document->Materials().All().empty());

  const auto entries = Host().components().GetRegistryEntries("net.kelvo.material.registry.materialimporters");
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].record.Get<vex::MaterialImportDescription>()->nodeSpace, vex::nodespace::kCorvane);

  auto unknown = importer->CreateMaterial(*scratch.document, Set("some.other.bundle", [](auto&) {}),
                                          vex::nodespace::kCorvane);
  ASSERT_FALSE(unknown);
  EXPECT_NE(unknown.error().message.find("some.other.bundle"), std::string::npos);
}

TEST(MaterialImport, BuildsAnEndNodeAndImageNodes) {
  ScratchDocument scratch("importgraph");
  auto texture = vex::TextureBuffer::Make(2, 2, {0.5f, 0.5f, 0.5f, 1.f});
  texture.colorSpace = "sRGB";
  auto set = Set(vex::bundle::kObj, [&](auto& s) {
    s.Set("diffuse_color", vex::Parameter::Textured(vex::PackedConstantParameter(vex::Color{1, 1, 1}), texture));
    vex::Parameter rough;
    rough.value = vex::ImageReference{vex::Url{"/maps/rough.png"}, "raw", ""};
    s.Set("roughness", rough);
    s.SetConstant("metallic", 1.0);
  });
  auto material = NewImporter()->CreateMaterial(*scratch.document, set, vex::nodespace::kCorvane);
  ASSERT_TRUE(material) << material.error().Describe();
  ASSERT_EQ(scratch.document->Materials().All().size(), 1u);
  EXPECT_TRUE((*material)->IsNodeBased());
  EXPECT_EQ((*material)->GetType(), 5703);
  EXPECT_EQ((*material)->GetDocument(), scratch.document);
  const vex::NodeGraph& graph = *(*material)->GetGraph(vex::nodespace::kCorvane);
  const auto& end = *graph.EndNode();
  EXPECT_EQ(end.asset, vex::node::kCorvaneMaterial);
  EXPECT_EQ(Port<std::string>(end, "fresnel_type"), "metalness");
  EXPECT_DOUBLE_EQ(Port<double>(end, "metalness"), 1.0);
  const vex::GraphNode* diffuse = graph.Source("material", "diffuse_color");
  ASSERT_NE(diffuse, nullptr);
  EXPECT_EQ(diffuse->asset, vex::node::kCorvaneImage);
  EXPECT_EQ(Port<std::string>(*diffuse, "colorSpace"), "sRGB");
  // The baked texture is handed to the document, which saves it with the scene.
  const auto& pending = scratch.document->Materials().PendingTextures();
  ASSERT_EQ(pending.size(), 1u);
  EXPECT_EQ(Port<std::string>(*diffuse, "file"), pending[0].file);
  const vex::GraphNode* rough = graph.Source("material", "reflection_roughness");
  ASSERT_NE(rough, nullptr);
  EXPECT_EQ(Port<std::string>(*rough, "file"), "/maps/rough.png");
  EXPECT_EQ(Port<std::string>(*rough, "colorSpace"), "raw");
}

TEST(MaterialImport, GltfGoesThroughTheMappingsWayBack) {
  ScratchDocument scratch("importgltf");
  auto base = vex::TextureBuffer::Make(2, 2, {1, 1, 1, 0.5f});
  auto set = Set(vex::bundle::kGltf, [&](auto& s) {
    s.Set("baseColorTexture", vex::Parameter::Textured(vex::PackedConstantParameter(vex::ColorA{1, 1, 1, 1}), base));
    s.SetConstant("baseColorFactor", vex::ColorA{0.8, 0.8, 0.8, 0.5});
    s.SetConstant("alphaMode", std::string("BLEND"));
    s.SetConstant("metallicFactor", 0.7);
  });
  auto material = NewImporter()->CreateMaterial(*scratch.document, set, vex::nodespace::kCorvane);
  ASSERT_TRUE(material) << material.error().Describe();
  const vex::NodeGraph& graph = *(*material)->GetGraph(vex::nodespace::kCorvane);
  const vex::GraphNode* opacity = graph.Source("material", "opacity");
  ASSERT_NE(opacity, nullptr);
  EXPECT_EQ(Port<std::string>(*opacity, "channelSelect"), "a");
  EXPECT_EQ(Port<bool>(*opacity, "makeImplicit"), true);
  EXPECT_DOUBLE_EQ(Port<double>(End(**material), "metalness"), 0.7);
  EXPECT_DOUBLE_EQ(Port<double>(End(**material), "emission_weight"), 1.0);
}

TEST(MaterialImport, OpaqueMuteStaysOnTheEndNode) {
  ScratchDocument scratch("importmute");
  auto set = Set(vex::bundle::kGltf, [](auto& s) { s.SetConstant("alphaMode", std::string("OPAQUE")); });
  auto material = NewImporter()->CreateMaterial(*scratch.document, set, vex::nodespace::kCorvane);
  ASSERT_TRUE(material) << material.error().Describe();
  EXPECT_EQ(Port<bool>(End(**material), "opacity.mute"), true);
}

TEST(MaterialImport, StandardSurfaceConversion) {
  auto c = Corvane(Set(vex::bundle::kStandardSurface, [](auto& s) {
    s.SetConstant("base_color", vex::Color{0.1, 0.2, 0.3});
    s.SetConstant("base", 0.9);
    s.SetConstant("metalness", 1.0);
    s.SetConstant("specular_roughness", 0.35);
    s.SetConstant("emission", 2.0);
    s.SetConstant("surface_normal", vex::Vector3d{0, 0, 1});  // a constant normal is no normal map
  }));
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(Value<vex::Color>(*c, "diffuse_color"), (vex::Color{0.1, 0.2, 0.3}));
  EXPECT_DOUBLE_EQ(Value<double>(*c, "diffuse_weight"), 0.9);
  EXPECT_EQ(Value<std::string>(*c, "fresnel_type"), "metalness");
  EXPECT_DOUBLE_EQ(Value<double>(*c, "reflection_roughness"), 0.35);
  EXPECT_DOUBLE_EQ(Value<double>(*c, "emission_weight"), 2.0);
  EXPECT_FALSE(c->Has("overall_normal"));

  auto wrong = interop::material::ConvertToCorvane(
      Set(vex::bundle::kStandardSurface, [](auto& s) { s.SetConstant("base", std::int32_t{1}); }));
  ASSERT_FALSE(wrong);
  EXPECT_EQ(wrong.error().message, "Invalid TypedConstantParameter");
}

TEST(MaterialImport, FbxLambertAndPhongConversion) {
  auto lambert = Corvane(Set(vex::bundle::kFbxLambert, [](auto& s) {
    s.SetConstant("diffuse", vex::Color{0.5, 0.5, 0.5});
    s.SetConstant("transparentColor", vex::Color{1, 1, 1});
    s.SetConstant("transparencyFactor", 0.25);
    s.SetConstant("emissive", vex::Color{0, 0, 0});
  }));
  ASSERT_NE(lambert, nullptr);
  EXPECT_EQ(Value<vex::Color>(*lambert, "opacity"), (vex::Color{0.75, 0.75, 0.75}));
  EXPECT_DOUBLE_EQ(Value<double>(*lambert, "reflection_weight"), 0.0);
  EXPECT_FALSE(lambert->Has("emission_weight"));  // black emission stays off

  auto phong = Corvane(Set(vex::bundle::kFbxPhong, [](auto& s) {
    s.SetConstant("specular", vex::Color{0.2, 0.2, 0.2});
    s.SetConstant("specularFactor", 0.5);
    s.SetConstant("shininess", 98.0);
    s.SetConstant("emissive", vex::Color{1, 0.5, 0});
  }));
  ASSERT_NE(phong, nullptr);
  EXPECT_EQ(Value<vex::Color>(*phong, "reflection_color"), (vex::Color{0.2, 0.2, 0.2}));
  EXPECT_DOUBLE_EQ(Value<double>(*phong, "reflection_weight"), 0.5);
  EXPECT_NEAR(Value<double>(*phong, "reflection_roughness"), std::sqrt(0.02), 1e-12);
  EXPECT_DOUBLE_EQ(Value<double>(*phong, "emission_weight"), 1.0);
}

TEST(MaterialImport, UsdPreviewSurfaceConversion) {
  auto normal = vex::TextureBuffer::Make(1, 1, {0.5f, 0.5f, 1, 1});
  auto metal = Corvane(Set(vex::bundle::kUsdPreviewSurface, [&](auto& s) {
    s.SetConstant("diffuseColor", vex::Color{0.3, 0.3, 0.3});
    s.SetConstant("metallic", 1.0);
    s.SetConstant("roughness", 0.2);
    s.SetConstant("opacity", 0.4);
    s.Set("normal", vex::Parameter::Textured(vex::PackedConstantParameter(vex::Vector3d{0, 0, 1}), normal));
  }));
  ASSERT_NE(metal, nullptr);
  EXPECT_EQ(Value<std::string>(*metal, "fresnel_type"), "metalness");
  EXPECT_DOUBLE_EQ(Value<double>(*metal, "metalness"), 1.0);
  EXPECT_EQ(Value<vex::Color>(*metal, "opacity"), (vex::Color{0.4, 0.4, 0.4}));
  ASSERT_TRUE(metal->Find("overall_normal")->IsTextured());
  EXPECT_EQ(Value<std::string>(*metal, "normal_space"), "space_rgb_tangent");

  auto specular = Corvane(Set(vex::bundle::kUsdPreviewSurface, [](auto& s) {
    s.SetConstant("workflow", std::string("specular"));
    s.SetConstant("specularColor", vex::Color{0.04, 0.04, 0.04});
    s.SetConstant("normal", vex::Vector3d{0, 0, 1});
  }));
  ASSERT_NE(specular, nullptr);
  EXPECT_EQ(Value<std::string>(*specular, "fresnel_type"), "ior");
  EXPECT_EQ(Value<vex::Color>(*specular, "reflection_color"), (vex::Color{0.04, 0.04, 0.04}));
  EXPECT_EQ(Value<vex::Color>(*specular, "overall_normal"), (vex::Color{0.5, 0.5, 1.0}));
}

TEST(MaterialImport, GenericObjAndCorvaneSets) {
  auto generic = Corvane(Set(vex::bundle::kGeneric, [](auto& s) { s.SetConstant("diffuseColor", vex::Color{1, 0, 0}); }));
  ASSERT_NE(generic, nullptr);
  EXPECT_EQ(Value<vex::Color>(*generic, "diffuse_color"), (vex::Color{1, 0, 0}));
  auto obj = Corvane(Set(vex::bundle::kObj, [](auto& s) { s.SetConstant("emissive_color", vex::Color{0, 1, 0}); }));
  ASSERT_NE(obj, nullptr);
  EXPECT_DOUBLE_EQ(Value<double>(*obj, "emission_weight"), 1.0);
  auto same = Set(vex::bundle::kCorvane, [](auto& s) { s.SetConstant("metalness", 0.5); });
  EXPECT_EQ(Corvane(same), same);
}

}  // namespace
