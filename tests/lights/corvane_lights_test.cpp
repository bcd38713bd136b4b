// The Corvane light class: the row table, the write order and its quirks,
// and stopping at the first failure.
#include "lights/corvane_lights.h"

#include <gtest/gtest.h>

#include <set>

#include "test_host.h"
#include "vex/lookup.h"

namespace {

using namespace interop::lights;
namespace tessel = vex::tessel;
namespace key = vex::tessel::key;

std::string LightKey(std::string_view name) { return std::string(key::kLightPrefix) + std::string(name); }

/// A scene object that records every parameter write and can refuse one parameter.
class RecordingObject final : public vex::ISceneObject {
 public:
  std::int32_t refuse = 0;
  std::vector<std::pair<std::int32_t, vex::Data>> writes;

  std::int32_t GetType() const override { return corvane::kLightObjectType; }
  std::string GetName() const override { return name_; }
  void SetName(std::string name) override { name_ = std::move(name); }
  vex::Result<vex::Data> GetParameter(std::int32_t id) const override {
    if (const auto* d = parameters_.Find(id)) return *d;
    return VEX_FAIL(vex::ErrorKind::NotFound, "no parameter");
  }
  vex::Result<void> SetParameter(std::int32_t id, const vex::Data& value) override {
    if (id == refuse) return VEX_FAIL(vex::ErrorKind::IllegalState, "refused " + std::to_string(id));
    writes.emplace_back(id, value);
    parameters_.Set(id, value);
    return {};
  }
  const vex::ParamContainer& Parameters() const override { return parameters_; }
  vex::IDocument* GetDocument() const override { return nullptr; }
  vex::ISceneObject* GetParent() const override { return nullptr; }
  std::vector<vex::ISceneObject*> GetChildren() const override { return {}; }

  std::vector<std::int32_t> Ids() const {
    std::vector<std::int32_t> ids;
    for (const auto& w : writes) ids.push_back(w.first);
    return ids;
  }

 private:
  std::string name_;
  vex::ParamContainer parameters_;
};

std::shared_ptr<tessel::IVexObjectClass> CorvaneClass() {
  auto c = NextClass(kCorvaneLightClassId);
  EXPECT_TRUE(c) << c.error().Describe();
  return *c;
}

tessel::VEXObjectDescription Light(std::initializer_list<std::pair<std::string_view, vex::Data>> entries) {
  tessel::VEXObjectDescription d;
  d.data.Set(std::string(key::kObjectType), vex::Id("light"));
  for (const auto& [name, value] : entries) d.data.Set(LightKey(name), value);
  return d;
}

TEST(CorvaneLightRows, EveryAttributeOnceInNumberOrderWithIntensityLast) {
  std::set<LightAttr> attrs;
  for (std::size_t i = 0; i < kCorvaneLightRows.size(); ++i) {
    const auto& row = kCorvaneLightRows[i];
    EXPECT_EQ(row.number, static_cast<int>(i) + 1);
    EXPECT_TRUE(attrs.insert(row.attr).second) << Info(row.attr).name;
    EXPECT_EQ(row.times, row.number == 29 ? 2 : 1);
  }
  EXPECT_EQ(attrs.size(), kLightAttributes.size());
  EXPECT_EQ(kCorvaneLightRows[72].parameter, 11005);
  EXPECT_EQ(kCorvaneLightRows[73].parameter, 11007);
  EXPECT_EQ(kCorvaneLightRows[74].parameter, 11007);
  EXPECT_EQ(kCorvaneLightRows[78].parameter, 10000);
  EXPECT_EQ(kCorvaneLightRows.back().attr, LightAttr::intensity);
}

TEST(CorvaneLightClass, AreaLightWithIntensityOnlyWritesTypeAndIntensity) {
  auto built = vex::CreateAs<tessel::IVexObjectFactory>(kFactoryClassId);
  ASSERT_TRUE(built);
  auto object = (*built)->Create(tessel::kCorvaneNodeSpace, Light({{"type", vex::Id("area")}, {"intensity", 5.0}}), 0);
  ASSERT_TRUE(object) << object.error().Describe();
  const auto& p = (*object)->Parameters();
  EXPECT_EQ((*object)->GetType(), 1036751);
  ASSERT_EQ(p.Entries().size(), 2u);
  EXPECT_EQ(p.GetInt32(10000, -1), 3);
  EXPECT_EQ(p.GetFloat(11004, 0), 5.0);
}

TEST(CorvaneLightClass, WriteOrderAndTheRendererQuirks) {
  RecordingObject object;
  const auto d = Light({{"intensity", 100.0},
                        {"unitstype", vex::Id("radiant_power")},
                        {"decaytype", vex::Id("linear")},
                        {"dome_backplateaspect", vex::Id("texture")},
                        {"dome_tex1_gamma", 2.2},
                        {"type", vex::Id("not a light type")},
                        {"dome_tex", vex::Data::MakeCustom(vex::ImageReference{{"sky.hdr"}, "raw", ""})},
                        {"ies_colormode", vex::Id("Temperature")},  // no value: left out
                        {"light_group", std::string("key")}});
  ASSERT_TRUE(FillCorvaneLight(&object, d));
  // Row 29 twice, 73 (units) then 74/75 into 11007, the type (unknown: point), the dome texture,
  // and intensity last.
  EXPECT_EQ(object.Ids(), (std::vector<std::int32_t>{12009, 12009, 10027, 11005, 11007, 11007, 10000, 12000, 11004}));
  EXPECT_EQ(object.Parameters().GetInt32(11005, -1), 3);
  EXPECT_EQ(object.Parameters().GetInt32(11007, -1), 0);  // the backplate aspect wins
  EXPECT_EQ(object.Parameters().GetInt32(10000, -1), 1);
  EXPECT_EQ(object.Parameters().GetFloat(11004, 0), 100.0);
  const auto* sky = object.Parameters().Find(corvane::kDomeTexture)->Get<vex::ImageReference>();
  ASSERT_NE(sky, nullptr);
  EXPECT_EQ(sky->url.text, "sky.hdr");

  // Missing object or empty description: success, nothing written.
  EXPECT_TRUE(FillCorvaneLight(nullptr, d));
  RecordingObject untouched;
  EXPECT_TRUE(FillCorvaneLight(&untouched, tessel::VEXObjectDescription{}));
  EXPECT_TRUE(untouched.writes.empty());
}

TEST(CorvaneLightClass, StopsAtTheFirstFailingReadOrWrite) {
  auto objectClass = CorvaneClass();
  auto d = Light(
      {{"temperature", 3200.0}, {"unitstype", vex::Id("luminance")}, {"type", vex::Id("spot")}, {"intensity", 7.0}});
  d.data.Set(std::string(key::kName), std::string("Spot"));

  // A refused write: earlier rows stay written, later rows and the base classes do not run.
  auto refusing = std::make_shared<RecordingObject>();
  refusing->refuse = 10000;
  tessel::ObjectSlot slot{refusing};
  const auto refused = objectClass->Create(slot, d, 0);
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().message, "refused 10000");
  EXPECT_EQ(refusing->Ids(), (std::vector<std::int32_t>{11003, 11005}));
  EXPECT_EQ(refusing->GetName(), "");

  // A value of the wrong type: the read error, nothing after it.
  d.data.Set(LightKey("area_sizex"), std::string("wide"));
  auto reading = std::make_shared<RecordingObject>();
  slot.object = reading;
  const auto wrong = objectClass->Create(slot, d, 0);
  ASSERT_FALSE(wrong);
  EXPECT_EQ(wrong.error().kind, vex::ErrorKind::WrongDataType);
  EXPECT_EQ(reading->Ids(), (std::vector<std::int32_t>{11003}));

  // Everything readable: all rows, then the light and base classes (the name).
  d.data.Erase(LightKey("area_sizex"));
  auto fine = std::make_shared<RecordingObject>();
  slot.object = fine;
  ASSERT_TRUE(objectClass->Create(slot, d, 0));
  EXPECT_EQ(fine->Ids(), (std::vector<std::int32_t>{11003, 11005, 10000, 11004}));
  EXPECT_EQ(fine->GetName(), "Spot");
}

}  // namespace
