// The global import and utilities: the dropdown, importing descriptions into a
// document, global transforms under a parent, and conforming loose values.
#include "exchange/globalimport_impl.h"

#include <gtest/gtest.h>

#include <cmath>

#include "lights/lights_impl.h"
#include "test_host.h"
#include "vex/interfaces.h"
#include "vex/lookup.h"

namespace {

namespace tessel = vex::tessel;
namespace key = vex::tessel::key;
using interop::exchange::kGlobalImportClassId;
using interop::exchange::kGlobalUtilsClassId;

tessel::VEXObjectDescription NamedLight(std::string name) {
  tessel::VEXObjectDescription d;
  d.data.Set(std::string(key::kObjectType), vex::Id("light"));
  d.data.Set(std::string(key::kName), std::move(name));
  return d;
}

class GlobalImport : public ::testing::Test {
 protected:
  void SetUp() override {
    document_ = &testing_support::Host().documents().NewDocument("import");
    auto importer = vex::CreateAs<vex::IGlobalImport>(kGlobalImportClassId);
    auto utils = vex::CreateAs<vex::IGlobalUtils>(kGlobalUtilsClassId);
    ASSERT_TRUE(importer && utils);
    importer_ = *importer;
    utils_ = *utils;
  }
  void TearDown() override { testing_support::Host().documents().Close(document_); }

  host::Document* document_ = nullptr;
  std::shared_ptr<vex::IGlobalImport> importer_;
  std::shared_ptr<vex::IGlobalUtils> utils_;
};

TEST_F(GlobalImport, DropdownListsEachBuildableObjectTypeOnce) {
  EXPECT_EQ(importer_->FillDropdown(), std::vector<std::string>{"light"});
}

TEST_F(GlobalImport, InsertsAllOrNothing) {
  auto objects =
      importer_->ImportObjects(*document_, "org.example.nodespace", {NamedLight("A"), NamedLight("B")}, nullptr);
  ASSERT_TRUE(objects) << objects.error().Describe();
  ASSERT_EQ(objects->size(), 2u);
  EXPECT_EQ(document_->Objects().size(), 2u);
  EXPECT_EQ((*objects)[1]->GetName(), "B");
  EXPECT_EQ((*objects)[1]->GetDocument(), document_);

  tessel::VEXObjectDescription untyped;
  untyped.data.Set(std::string(key::kName), std::string("C"));
  EXPECT_FALSE(importer_->ImportObjects(*document_, tessel::kCorvaneNodeSpace, {NamedLight("D"), untyped}, nullptr));
  EXPECT_EQ(document_->Objects().size(), 2u);

  host::Document other("other");
  auto stranger = std::make_shared<host::SceneObject>(1000);
  auto* foreignParent = *other.InsertObject(stranger, nullptr);
  EXPECT_FALSE(importer_->ImportObjects(*document_, tessel::kCorvaneNodeSpace, {NamedLight("E")}, foreignParent));
}

TEST_F(GlobalImport, GlobalTransformsBecomeRelativeToTheParent) {
  auto group = std::make_shared<host::SceneObject>(vex::kGroupObjectType);
  group->MutableParameters().Set(vex::kObjectRelativePosition, vex::Vector3d{10, 0, 0});
  group->MutableParameters().Set(vex::kObjectRelativeRotation, vex::Vector3d{0, 0, std::numbers::pi / 2});
  group->MutableParameters().Set(vex::kObjectRelativeScale, vex::Vector3d{2, 2, 2});
  auto* parent = *document_->InsertObject(group, nullptr);

  auto global = NamedLight("Global");
  global.data.Set(std::string(key::kPosition), vex::Vector3d{10, 4, 0});
  global.data.Set(std::string(key::kRotation), vex::Vector3d{0, 0, std::numbers::pi / 2 + 0.25});
  global.data.Set(std::string(key::kScale), vex::Vector3d{2, 2, 2});
  global.data.Set(std::string(key::kMatrixIsGlobal), true);
  auto local = NamedLight("Local");
  local.data.Set(std::string(key::kPosition), vex::Vector3d{1, 2, 3});
  auto objects = importer_->ImportObjects(*document_, tessel::kCorvaneNodeSpace, {global, local}, parent);
  ASSERT_TRUE(objects) << objects.error().Describe();
  auto vec = [](const vex::ISceneObject* o, std::int32_t id) {
    return *o->Parameters().Find(id)->Get<vex::Vector3d>();
  };
  // (10, 4, 0) is 4 along the parent's rotated x axis (now y), scaled by 2: local x = 2.
  const auto p = vec((*objects)[0], vex::kObjectRelativePosition);
  EXPECT_NEAR(p.x, 2, 1e-12);
  EXPECT_NEAR(p.y, 0, 1e-12);
  EXPECT_NEAR(vec((*objects)[0], vex::kObjectRelativeRotation).z, 0.25, 1e-12);
  EXPECT_NEAR(vec((*objects)[0], vex::kObjectRelativeScale).x, 1, 1e-12);
  EXPECT_EQ(vec((*objects)[1], vex::kObjectRelativePosition), (vex::Vector3d{1, 2, 3}));
  EXPECT_EQ((*objects)[0]->GetParent(), parent);
}

TEST(TransformMath, RelativeToEveryParentOfTheChain) {
  host::Document doc("chain");
  auto a = std::make_shared<host::SceneObject>(1000);
  a->MutableParameters().Set(vex::kObjectRelativePosition, vex::Vector3d{1, 0, 0});
  auto* pa = *doc.InsertObject(a, nullptr);
  auto b = std::make_shared<host::SceneObject>(1000);
  b->MutableParameters().Set(vex::kObjectRelativePosition, vex::Vector3d{0, 2, 0});
  b->MutableParameters().Set(vex::kObjectRelativeScale, vex::Vector3d{2, 2, 4});
  auto* pb = *doc.InsertObject(b, pa);
  const interop::exchange::Transform global{{5, 6, 8}, {0, 0, 0}, {4, 4, 4}};
  const auto local = interop::exchange::RelativeToParent(pb, global);
  EXPECT_NEAR(local.position.x, 2, 1e-12);
  EXPECT_NEAR(local.position.y, 2, 1e-12);
  EXPECT_NEAR(local.position.z, 2, 1e-12);
  EXPECT_NEAR(local.scale.x, 2, 1e-12);
  EXPECT_NEAR(local.scale.z, 1, 1e-12);
  EXPECT_EQ(interop::exchange::RelativeToParent(nullptr, global).position, global.position);

  // Without scale the rotation comes back exactly, also through a rotated parent.
  a->MutableParameters().Set(vex::kObjectRelativeRotation, vex::Vector3d{0, 0, 0.4});
  const interop::exchange::Transform turned{{0, 0, 0}, {0, 0, 1.0}, {1, 1, 1}};
  const auto underA = interop::exchange::RelativeToParent(pa, turned);
  EXPECT_NEAR(underA.rotation.z, 0.6, 1e-12);
  EXPECT_NEAR(underA.rotation.x, 0, 1e-12);
  EXPECT_NEAR(underA.position.x, -std::cos(0.4), 1e-12);
  EXPECT_NEAR(underA.position.y, std::sin(0.4), 1e-12);
}

TEST(ConformDescription, LooseValuesTakeTheVocabularyTypes) {
  auto utils = *vex::CreateAs<vex::IGlobalUtils>(kGlobalUtilsClassId);
  tessel::VEXObjectDescription d;
  d.data.Set(std::string(key::kObjectType), std::string("light"));
  d.data.Set(std::string(key::kPosition), vex::DataArray{1, 2.5, 3});
  d.data.Set(std::string(key::kLightPrefix) + "intensity", std::int32_t{5});
  d.data.Set(std::string(key::kLightPrefix) + "area_samples", 8.0);
  d.data.Set(std::string(key::kLightPrefix) + "type", std::string("dome"));
  d.data.Set(std::string(key::kLightPrefix) + "color", vex::DataArray{1, 0, 0});
  d.data.Set(std::string(key::kLightPrefix) + "dome_tex", std::string("sky.hdr"));
  d.data.Set("org.example.custom", std::int32_t{7});
  vex::DataDictionary key0;
  key0.Set("time", 0.5);
  key0.Set("value", 2);
  vex::DataDictionary track;
  track.Set(std::string(key::kTrackX), vex::DataArray{key0, vex::DataArray{1, 3}});
  vex::DataDictionary tracks;
  tracks.Set(std::string(key::kPosition), track);
  vex::DataDictionary take;
  take.Set(std::string(key::kTakeTracks), tracks);
  d.data.Set(std::string(key::kAnimation), vex::DataArray{take});
  ASSERT_TRUE(utils->ConformDescription(d));
  using interop::lights::LightAttr;
  EXPECT_EQ(*vex::GetDataAs<vex::Id>(d.data, key::kObjectType), vex::Id("light"));
  EXPECT_EQ(*vex::GetDataAs<vex::Vector3d>(d.data, key::kPosition), (vex::Vector3d{1, 2.5, 3}));
  EXPECT_EQ(*interop::lights::Get<LightAttr::intensity>(d), 5.0);
  EXPECT_EQ(*interop::lights::Get<LightAttr::area_samples>(d), 8);
  EXPECT_EQ(*interop::lights::GetEnumeration(d, LightAttr::type), 4);
  EXPECT_EQ(*interop::lights::Get<LightAttr::color>(d), (vex::Color{1, 0, 0}));
  EXPECT_EQ(interop::lights::Get<LightAttr::dome_tex>(d)->url.text, "sky.hdr");
  EXPECT_EQ(*vex::GetDataAs<std::int32_t>(d.data, "org.example.custom"), 7);
  const auto& keys = *d.data.Find(key::kAnimation)
                          ->Get<vex::DataArray>()
                          ->at(0)
                          .Get<vex::DataDictionary>()
                          ->Find(key::kTakeTracks)
                          ->Get<vex::DataDictionary>()
                          ->Find(key::kPosition)
                          ->Get<vex::DataDictionary>()
                          ->Find(key::kTrackX)
                          ->Get<vex::DataArray>();
  ASSERT_EQ(keys.size(), 2u);
  EXPECT_EQ(*keys[0].Get<tessel::TesselKeyFrame>(), (tessel::TesselKeyFrame{{0.5}, 2.0}));
  EXPECT_EQ(*keys[1].Get<tessel::TesselKeyFrame>(), (tessel::TesselKeyFrame{{1.0}, 3.0}));

  tessel::VEXObjectDescription bad;
  bad.data.Set(std::string(key::kLightPrefix) + "area_samples", 2.5);
  const auto error = utils->ConformDescription(bad);
  ASSERT_FALSE(error);
  EXPECT_EQ(error.error().kind, vex::ErrorKind::WrongDataType);
  EXPECT_EQ(error.error().message, "net.kelvo.tessel.presenterdata.light.area_samples: cannot be read as int32");
}

}  // namespace
