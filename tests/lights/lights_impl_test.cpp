// The neutral light description: vocabulary, enumerations, typed reads, the
// factory and the base class.
#include "lights/lights_impl.h"

#include <gtest/gtest.h>

#include <set>

#include "lights/corvane_lights.h"
#include "test_host.h"
#include "vex/lookup.h"

namespace {

using namespace interop::lights;
namespace tessel = vex::tessel;
namespace key = vex::tessel::key;

std::string LightKey(std::string_view name) { return std::string(key::kLightPrefix) + std::string(name); }

tessel::VEXObjectDescription Describe(std::initializer_list<std::pair<std::string, vex::Data>> entries) {
  tessel::VEXObjectDescription d;
  for (const auto& [k, v] : entries) d.data.Set(k, v);
  return d;
}

std::shared_ptr<tessel::IVexObjectFactory> Factory() {
  auto f = vex::CreateAs<tessel::IVexObjectFactory>(kFactoryClassId);
  EXPECT_TRUE(f) << f.error().Describe();
  return *f;
}

TEST(LightVocabulary, NinetyAttributesWithUniqueKeysAndDeclaredDataTypes) {
  std::set<std::string_view> keys;
  for (std::size_t i = 0; i < kLightAttributes.size(); ++i) {
    const auto& a = kLightAttributes[i];
    EXPECT_EQ(static_cast<std::size_t>(a.attr), i);
    EXPECT_EQ(a.key, LightKey(a.name));
    EXPECT_TRUE(keys.insert(a.key).second) << a.key;
    EXPECT_EQ(a.type == ValueType::Id, a.enumeration != Enumeration::None) << a.name;
    EXPECT_EQ(FindLightAttribute(a.key), a.attr);
  }
  EXPECT_EQ(keys.size(), 90u);
  EXPECT_EQ(FindLightAttribute("net.kelvo.tessel.presenterdata.light.Intensity"), std::nullopt);
  EXPECT_EQ(Info(LightAttr::dome_tex).type, ValueType::Texture);
  EXPECT_EQ(Info(LightAttr::light_group).type, ValueType::String);
  EXPECT_EQ(Info(LightAttr::photon_gi_num_photons).type, ValueType::Int32);

  auto& components = testing_support::Host().components();
  EXPECT_EQ(components.GetDataTypeName("net.kelvo.tessel.datatype.vexobjectdescription"),
            "kelvo::tessel::VEXObjectDescription");
  EXPECT_EQ(components.GetDataTypeName("net.kelvo.tessel.datatype.tesseltime"), "kelvo::tessel::TesselTime");
  EXPECT_EQ(components.GetDataTypeName("net.kelvo.tessel.datatype.tesselkeyframe"), "kelvo::tessel::TesselKeyFrame");
  for (const auto id : {kBaseClassId, kLightClassId, kFactoryClassId, kCorvaneLightClassId})
    EXPECT_TRUE(components.IsClassPublished(id)) << id;
}

TEST(LightEnumerations, ExactValuesCaseSensitiveParsingAndFallbacks) {
  struct Case {
    Enumeration e;
    std::vector<std::string_view> values;
    std::optional<std::int32_t> unknown;
  };
  const std::vector<Case> cases = {
      {Enumeration::LightType, {"infinite", "point", "spot", "area", "dome", "photometric_ies", "portal", "sun"}, 1},
      {Enumeration::LightUnits, {"image", "luminous_power", "luminance", "radiant_power", "radiance"}, std::nullopt},
      {Enumeration::LightDecayType, {"quadratic", "none", "linear"}, std::nullopt},
      {Enumeration::LightBackplateAspect, {"texture", "render"}, std::nullopt},
      {Enumeration::LightIesColorMode, {"color", "temperature"}, std::nullopt},
      {Enumeration::LightRefractionMode, {"never", "auto", "always"}, 0},
      {Enumeration::LightSunModel, {"prg_clear_sky", "legacy"}, 1},
      {Enumeration::LightDomeEnvType, {"spherical", "hemispherical", "mirror_ball", "angular"}, 0},
      {Enumeration::LightAreaGeometry, {"rectangle", "disc", "sphere", "cylinder", "mesh"}, 0},
      {Enumeration::LightColorMode, {"color", "temperature", "color_and_temperature"}, 0},
  };
  for (const auto& c : cases) {
    for (std::size_t i = 0; i < c.values.size(); ++i)
      EXPECT_EQ(ParseEnumeration(c.e, c.values[i]), static_cast<std::int32_t>(i)) << c.values[i];
    EXPECT_EQ(ParseEnumeration(c.e, "no such value"), c.unknown) << Info(c.e).name;
    std::string upper(c.values[0]);
    upper[0] = static_cast<char>(upper[0] - 'a' + 'A');
    EXPECT_EQ(ParseEnumeration(c.e, upper), c.unknown) << upper;
  }

  // Through a description: an unknown type is a point light; units that differ only in case are absent.
  auto d = Describe({{LightKey("type"), vex::Id("lamp")}, {LightKey("unitstype"), vex::Id("Luminance")}});
  EXPECT_EQ(*GetEnumeration(d, LightAttr::type), 1);
  EXPECT_EQ(*GetEnumeration(d, LightAttr::unitstype), std::nullopt);
  EXPECT_EQ(*ReadAsParameter(d, LightAttr::unitstype), std::nullopt);
  EXPECT_EQ(*GetEnumeration(d, LightAttr::decaytype), std::nullopt);  // absent
  d.data.Set(LightKey("decaytype"), std::string("linear"));           // a plain string is not an id
  const auto wrong = GetEnumeration(d, LightAttr::decaytype);
  ASSERT_FALSE(wrong);
  EXPECT_EQ(wrong.error().message, "Light attribute net.kelvo.tessel.presenterdata.light.decaytype is not a id");
  EXPECT_EQ(wrong.error().kind, vex::ErrorKind::WrongDataType);
}

TEST(LightAttributes, TypedReadsNeverConvert) {
  auto d = Describe(
      {{LightKey("intensity"), 5.0}, {LightKey("area_samples"), 5.0}, {LightKey("color"), vex::Color{1, 0.5, 0}}});
  EXPECT_TRUE(Has(d, LightAttr::intensity));
  EXPECT_FALSE(Has(d, LightAttr::exposure));
  EXPECT_EQ(*Get<LightAttr::intensity>(d), 5.0);
  EXPECT_EQ(*Get<LightAttr::color>(d), (vex::Color{1, 0.5, 0}));
  const auto samples = Get<LightAttr::area_samples>(d);
  ASSERT_FALSE(samples);
  EXPECT_EQ(samples.error().message,
            "Light attribute net.kelvo.tessel.presenterdata.light.area_samples is not a int32");
  EXPECT_EQ(Get<LightAttr::exposure>(d).error().kind, vex::ErrorKind::NotFound);
  EXPECT_FALSE(ReadAsParameter(d, LightAttr::area_samples));
  EXPECT_EQ(**ReadAsParameter(d, LightAttr::intensity), vex::Data(5.0));
}

TEST(ObjectFactory, PicksTheClassByNodeSpaceAndFallsBackToCorvane) {
  testing_support::ResetHostRecords();
  auto factory = Factory();
  const auto light = Describe({{std::string(key::kObjectType), vex::Id("light")}, {LightKey("type"), vex::Id("spot")}});
  for (const std::string_view space : {tessel::kCorvaneNodeSpace, std::string_view("org.example.renderer.nodespace")}) {
    auto object = factory->Create(space, light, tessel::kCreateDefault);
    ASSERT_TRUE(object) << object.error().Describe();
    EXPECT_EQ((*object)->GetType(), corvane::kLightObjectType);
    EXPECT_EQ((*object)->Parameters().GetInt32(corvane::kLightType, -1), 2);
    EXPECT_EQ((*object)->GetDocument(), nullptr);  // not inserted by the factory
  }

  const auto camera = Describe({{std::string(key::kObjectType), vex::Id("camera")}});
  const auto none = factory->Create(tessel::kCorvaneNodeSpace, camera, 0);
  ASSERT_FALSE(none);
  EXPECT_EQ(none.error().kind, vex::ErrorKind::NotFound);
  EXPECT_EQ(none.error().unit, "lights_impl");
  EXPECT_TRUE(testing_support::Host().console().Lines().empty());

  // No object type: nothing is made, the read error comes back and one diagnostic line is written.
  const auto untyped = factory->Create(tessel::kCorvaneNodeSpace, Describe({{LightKey("type"), vex::Id("area")}}), 0);
  ASSERT_FALSE(untyped);
  EXPECT_EQ(untyped.error().kind, vex::ErrorKind::NotFound);
  const auto lines = testing_support::Host().console().Lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_NE(lines[0].find(kObjectTypeDiagnostic), std::string::npos) << lines[0];
}

/// Another renderer's light class, made by a second module: it marks its objects with type 4242.
class OtherRendererLight final : public vex::ComponentBase<tessel::IVexObjectClass> {
 public:
  std::string_view ClassId() const override { return "org.example.renderer.light"; }
  vex::Result<void> Create(tessel::ObjectSlot& slot, const tessel::VEXObjectDescription&, std::int32_t) override {
    VEX_ASSIGN(slot.object, vex::Host().documents->CreateObject(4242));
    return {};
  }
  vex::Result<void> Finish(tessel::ObjectSlot&) override { return {}; }
};

TEST(ObjectFactory, ARenderersOwnClassComesBeforeTheCorvaneFallback) {
  auto& host = testing_support::Host();
  vex::ModuleFramework other;
  vex::DeclareClass(other, "example", "org.example.renderer.light", tessel::IVexObjectClass::kInterfaceId,
                    &vex::MakeComponent<OtherRendererLight>, tessel::kObjectClassRegistry,
                    vex::Data::MakeCustom(tessel::ObjectClassKey{vex::Id("org.example.renderer"), vex::Id("light")}));
  ASSERT_TRUE(host.components().AddModule("example_renderer", other, host.config()));
  ASSERT_TRUE(host.components().InitialiseModule("example_renderer"));
  const auto d = Describe({{std::string(key::kObjectType), vex::Id("light")}});
  auto own = Factory()->Create("org.example.renderer", d, 0);
  auto fallback = Factory()->Create("org.example.renderer.v2", d, 0);  // ids compare as whole strings
  EXPECT_EQ(ObjectClassRegistry::ObjectTypes(), std::vector<std::string>{"light"});
  EXPECT_EQ(ObjectClassRegistry::Find("org.example.renderer", "light"), "org.example.renderer.light");
  EXPECT_EQ(ObjectClassRegistry::Find("org.example.renderer", "Light"), std::nullopt);
  host.components().RemoveModule("example_renderer");
  other.Withdraw("example");
  ASSERT_TRUE(own && fallback);
  EXPECT_EQ((*own)->GetType(), 4242);
  EXPECT_EQ((*fallback)->GetType(), corvane::kLightObjectType);
}

TEST(BaseObjectClass, NameTransformAndAnimationKeysOntoTheComponentTracks) {
  auto key = [](double t, double v) { return vex::Data::MakeCustom(tessel::TesselKeyFrame{{t}, v}); };
  vex::DataDictionary positionTrack;
  positionTrack.Set(std::string(key::kTrackX), vex::DataArray{key(0, 1), key(1, 2)});
  positionTrack.Set(std::string(key::kTrackZ), vex::DataArray{key(0.5, -3)});
  vex::DataDictionary scaleTrack;
  scaleTrack.Set(std::string(key::kTrackY), vex::DataArray{key(2, 4)});
  vex::DataDictionary tracks;
  tracks.Set(std::string(key::kPosition), positionTrack);
  tracks.Set(std::string(key::kScale), scaleTrack);
  vex::DataDictionary take;
  take.Set(std::string(key::kTakeName), std::string("Main"));
  take.Set(std::string(key::kTakeTracks), tracks);
  vex::DataDictionary offTake = take;
  offTake.Set(std::string(key::kTakeAnimation), false);
  offTake.Set(std::string(key::kTakeTracks), vex::DataDictionary{});

  const auto d = Describe({{std::string(key::kObjectType), vex::Id("light")},
                           {std::string(key::kName), std::string("Key")},
                           {std::string(key::kPosition), vex::Vector3d{1, 2, 3}},
                           {std::string(key::kRotation), vex::Vector3d{0, 0.5, 0}},
                           {std::string(key::kScale), vex::Vector3d{2, 2, 2}},
                           {std::string(key::kAnimation), vex::DataArray{take, offTake}}});
  auto object = Factory()->Create(tessel::kCorvaneNodeSpace, d, tessel::kCreateDefault);
  ASSERT_TRUE(object) << object.error().Describe();
  const vex::ISceneObject& o = **object;
  EXPECT_EQ(o.GetName(), "Key");
  EXPECT_EQ(*o.Parameters().Find(vex::kObjectRelativePosition)->Get<vex::Vector3d>(), (vex::Vector3d{1, 2, 3}));
  EXPECT_EQ(*o.Parameters().Find(vex::kObjectRelativeRotation)->Get<vex::Vector3d>(), (vex::Vector3d{0, 0.5, 0}));
  EXPECT_EQ(*o.Parameters().Find(vex::kObjectRelativeScale)->Get<vex::Vector3d>(), (vex::Vector3d{2, 2, 2}));
  const auto t = o.GetTracks();
  ASSERT_EQ(t.size(), 3u);
  EXPECT_EQ(t[0].id, (vex::TrackId{903, 0}));
  EXPECT_EQ(t[0].keys, (std::vector<vex::AnimationKey>{{0, 1}, {1, 2}}));
  EXPECT_EQ(t[1].id, (vex::TrackId{903, 2}));
  EXPECT_EQ(t[1].keys, (std::vector<vex::AnimationKey>{{0.5, -3}}));
  EXPECT_EQ(t[2].id, (vex::TrackId{905, 1}));

  auto still = Factory()->Create(tessel::kCorvaneNodeSpace, d, tessel::kCreateWithoutAnimation);
  ASSERT_TRUE(still);
  EXPECT_TRUE((*still)->GetTracks().empty());

  // A key that is not a key frame stops the build with an error.
  positionTrack.Set(std::string(key::kTrackY), vex::DataArray{vex::Data(1.0)});
  tracks.Set(std::string(key::kPosition), positionTrack);
  take.Set(std::string(key::kTakeTracks), tracks);
  auto broken = d;
  broken.data.Set(std::string(key::kAnimation), vex::DataArray{take});
  EXPECT_FALSE(Factory()->Create(tessel::kCorvaneNodeSpace, broken, 0));
}

TEST(LightObjectClass, AloneBuildsTheHostsGenericLightThroughTheBaseClass) {
  auto lightClass = NextClass(kLightClassId);
  ASSERT_TRUE(lightClass);
  tessel::ObjectSlot slot;
  ASSERT_TRUE((*lightClass)->Create(slot, Describe({{std::string(key::kName), std::string("Lamp")}}), 0));
  ASSERT_TRUE((*lightClass)->Finish(slot));
  EXPECT_EQ(slot.object->GetType(), vex::kLightObjectType);
  EXPECT_EQ(slot.object->GetName(), "Lamp");
  tessel::ObjectSlot empty;
  EXPECT_FALSE((*lightClass)->Finish(empty));
}

}  // namespace
