// Light intensity units and colour temperature of Corvane lights.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "lights/colour_matching.h"
#include "lights/lights_impl.h"
#include "test_host.h"

namespace {

using namespace interop::lights;

constexpr double kPi = std::numbers::pi;

/// A document with optional Corvane render settings, and lights in it.
class LightUnits : public ::testing::Test {
 protected:
  void SetUp() override { document_ = &testing_support::Host().documents().NewDocument("units"); }
  void TearDown() override { testing_support::Host().documents().Close(document_); }

  vex::ParamContainer& Corvane() {
    if (document_->RenderSettings().empty()) {
      vex::RenderData render;
      render.postEffects.push_back({1, {}});  // another renderer's effect first
      render.postEffects.push_back({corvane::kRendererEffect, {}});
      document_->AddRenderData(std::move(render));
    }
    return document_->RenderSettings()[0].postEffects[1].parameters;
  }

  vex::ISceneObject* Add(std::int32_t type, std::int32_t units, double intensity,
                         std::int32_t objectType = corvane::kLightObjectType) {
    auto object = std::make_shared<host::SceneObject>(objectType);
    auto& p = object->MutableParameters();
    p.Set(corvane::kLightType, type);
    if (units != -1) p.Set(corvane::kUnits, units);
    p.Set(corvane::kIntensity, intensity);
    return *document_->InsertObject(object, nullptr);
  }

  static double Intensity(const vex::ISceneObject* o) { return o->Parameters().GetFloat(corvane::kIntensity, -1); }
  static std::int32_t Units(const vex::ISceneObject* o) { return o->Parameters().GetInt32(corvane::kUnits, -9); }

  host::Document* document_ = nullptr;
};

TEST_F(LightUnits, PointLightInLumensConvertsToWattsAndBack) {
  auto* light = Add(1, 1, 100.0);
  EXPECT_NEAR(*CVLightGetBaseIntensity(light), 31.830988618379067, 1e-12);
  ASSERT_TRUE(CVLightConvertToUnit(light, 1));  // its own units: nothing changes
  EXPECT_EQ(Intensity(light), 100.0);
  EXPECT_EQ(Units(light), 1);
  ASSERT_TRUE(CVLightConvertToUnit(light, 3));
  EXPECT_NEAR(Intensity(light), 5.882352941176471, 1e-12);
  EXPECT_EQ(Units(light), 0);  // the operation leaves image units behind
}

TEST_F(LightUnits, DomeIesPortalAndSunLightsAreNeverConverted) {
  for (const std::int32_t type : {4, 5, 6, 7}) {
    auto* light = Add(type, 1, 42.0);
    for (const std::int32_t target : {0, 3, 9, -1}) {
      ASSERT_TRUE(CVLightConvertToUnit(light, target)) << type << " " << target;
      EXPECT_EQ(Intensity(light), 42.0);
      EXPECT_EQ(Units(light), 1);
    }
  }
  // Any other type: the units are reset, the intensity stays.
  auto* odd = Add(9, 2, 42.0);
  ASSERT_TRUE(CVLightConvertToUnit(odd, 1));
  EXPECT_EQ(Units(odd), 0);
  EXPECT_EQ(Intensity(odd), 42.0);
}

TEST_F(LightUnits, ErrorsInTheirOrderWithTheirTexts) {
  auto message = [](const auto& r) { return r ? std::string("ok") : r.error().message; };
  EXPECT_EQ(message(CVLightGetBaseIntensity(nullptr)), "Illegal argument: Condition op not fulfilled.");
  EXPECT_EQ(message(CVLightConvertToUnit(nullptr, 0)), "Illegal argument: Condition op not fulfilled.");
  auto* cube = Add(1, 1, 1.0, 5159);
  EXPECT_EQ(message(CVLightGetBaseIntensity(cube)), "Illegal argument: Passed object is not an CV light!");
  EXPECT_EQ(message(CVLightConvertToUnit(cube, 0)), "Illegal argument: Passed object is not an CV light!");

  host::SceneObject loose(corvane::kLightObjectType);
  loose.MutableParameters().Set(corvane::kLightType, 1);
  EXPECT_EQ(message(CVLightGetBaseIntensity(&loose)), "Illegal state: CV light is not inserted into the document!");
  // The target is checked before the document, and equal units return before it.
  EXPECT_EQ(message(CVLightConvertToUnit(&loose, 5)), "Illegal state: Unknown target light units!");
  EXPECT_EQ(message(CVLightConvertToUnit(&loose, -1)), "Illegal state: Unknown target light units!");
  loose.MutableParameters().Set(corvane::kUnits, 2);
  EXPECT_EQ(message(CVLightConvertToUnit(&loose, 2)), "ok");
  EXPECT_EQ(message(CVLightConvertToUnit(&loose, 1)), "Illegal state: CV light is not inserted into the document!");
  const auto error = CVLightConvertToUnit(&loose, 1).error();
  EXPECT_EQ(error.kind, vex::ErrorKind::IllegalState);
  EXPECT_EQ(error.unit, "lights_impl");
  EXPECT_EQ(loose.Parameters().GetInt32(corvane::kUnits, -1), 2);  // unchanged
}

TEST_F(LightUnits, AreaSurfacesAndTheFloor) {
  auto* rect = Add(3, 0, 10.0);
  auto& p = static_cast<host::SceneObject*>(rect)->MutableParameters();
  EXPECT_EQ(ComputeAreaLightSurface(*rect), 1.0);  // default shape 5
  p.Set(corvane::kAreaShape, 0);
  EXPECT_EQ(ComputeAreaLightSurface(*rect), 40000.0);  // 200 x 200 by default
  p.Set(corvane::kAreaShape, 2);
  p.Set(corvane::kAreaSizeX, 2.0);
  p.Set(corvane::kAreaSizeY, 2.0);
  p.Set(corvane::kAreaSizeZ, 2.0);
  EXPECT_NEAR(ComputeAreaLightSurface(*rect), 4 * kPi, 1e-12);  // exact for a sphere
  p.Set(corvane::kAreaShape, 3);
  EXPECT_NEAR(ComputeAreaLightSurface(*rect), 2 * kPi * 1.0 * 2.0, 1e-12);
  p.Set(corvane::kAreaShape, 4);
  EXPECT_EQ(ComputeAreaLightSurface(*rect), 1.0);  // mesh
  p.Set(corvane::kLightType, 1);
  EXPECT_EQ(ComputeAreaLightSurface(*rect), 1.0);  // not an area light

  // A zero-sized disc has no surface; both operations use 0.0001 instead.
  p.Set(corvane::kLightType, 3);
  p.Set(corvane::kAreaShape, 1);
  p.Set(corvane::kAreaSizeX, 0.0);
  p.Set(corvane::kAreaSizeY, 0.0);
  p.Set(corvane::kAreaNormalize, true);
  EXPECT_EQ(ComputeAreaLightSurface(*rect), 0.0);
  EXPECT_NEAR(*CVLightGetBaseIntensity(rect), 10.0 / 0.0001, 1e-6);
  p.Set(corvane::kUnits, 0);
  p.Set(corvane::kIntensity, 1.0);
  ASSERT_TRUE(CVLightConvertToUnit(rect, 1));  // base 1 / 0.0001 = 10000, times A and pi
  EXPECT_NEAR(Intensity(rect), 0.0001 * 10000.0 * kPi, 1e-9);
}

TEST_F(LightUnits, RenderSettingsMakeTheContext) {
  LightUnitContext none;
  ComputeLightUnitContext(nullptr, none);
  EXPECT_EQ(none.c, (std::array<double, 6>{100, 10000, 1, 1, 1, 1}));

  LightUnitContext plain;
  plain.c = {0, 0, 0, 7, 7, 7};
  ComputeLightUnitContext(document_, plain);  // no Corvane settings: the start values
  EXPECT_EQ(plain.c, (std::array<double, 6>{100, 10000, 1, 1, 1, 1}));

  Corvane().Set(1801, 0.0);
  LightUnitContext clamped;
  ComputeLightUnitContext(document_, clamped);
  EXPECT_EQ(clamped.c[0], 0.0001);
  EXPECT_NEAR(clamped.c[4], 1000000.0, 1e-6);

  // Document in centimetres, renderer in metres: c2 is the translation scale 0.01.
  Corvane().Set(1801, 50.0);
  Corvane().Set(1802, 20000.0);
  Corvane().Set(25002, vex::Data::MakeCustom(vex::UnitScale{"m", 1.0}));
  document_->Settings().Set(vex::kDocumentLengthUnit, vex::Data::MakeCustom(vex::UnitScale{"cm", 0.01}));
  LightUnitContext scaled;
  ComputeLightUnitContext(document_, scaled);
  EXPECT_EQ(scaled.c[2], 0.01);
  EXPECT_EQ(scaled.c[3], 2.0);
  EXPECT_EQ(scaled.c[4], 2.0);
  EXPECT_EQ(scaled.c[5], 0.02);
  Corvane().Set(25004, true);  // the renderer's own unit is off
  LightUnitContext own;
  ComputeLightUnitContext(document_, own);
  EXPECT_EQ(own.c[2], 1.0);
  EXPECT_EQ(own.c[5], 2.0);
}

TEST_F(LightUnits, BaseIntensityKeepsItsIntendedAsymmetries) {
  Corvane().Set(1801, 50.0);     // c4 = 2
  Corvane().Set(1802, 20000.0);  // c3 = 2
  Corvane().Set(25002, vex::Data::MakeCustom(vex::UnitScale{"m", 1.0}));
  document_->Settings().Set(vex::kDocumentLengthUnit, vex::Data::MakeCustom(vex::UnitScale{"cm", 0.01}));
  // c2 = 0.01, c5 = 0.02
  const double I = 100.0, E = 17.0;
  EXPECT_DOUBLE_EQ(*CVLightGetBaseIntensity(Add(0, 0, I)), I);
  EXPECT_DOUBLE_EQ(*CVLightGetBaseIntensity(Add(0, -1, I)), I);
  EXPECT_DOUBLE_EQ(*CVLightGetBaseIntensity(Add(0, 3, I)), I / kPi / 2 / 4 * E);
  EXPECT_DOUBLE_EQ(*CVLightGetBaseIntensity(Add(0, 2, I)), I / 10000 / 2);
  EXPECT_DOUBLE_EQ(*CVLightGetBaseIntensity(Add(1, 0, I)), I / 0.0001);
  EXPECT_DOUBLE_EQ(*CVLightGetBaseIntensity(Add(2, 4, I)), I / 10000 / 2 / 0.0001 * E);
  EXPECT_DOUBLE_EQ(*CVLightGetBaseIntensity(Add(1, 7, I)), I);
  auto* area = Add(3, 2, I);
  static_cast<host::SceneObject*>(area)->MutableParameters().Set(corvane::kAreaShape, 0);
  EXPECT_DOUBLE_EQ(*CVLightGetBaseIntensity(area), I / 10000 / 2);  // no area, no c2
  for (const std::int32_t u : {-1, 0, 2, 4}) EXPECT_DOUBLE_EQ(*CVLightGetBaseIntensity(Add(5, u, I)), I / 2 / 4);
  auto* sun = Add(7, 1, I);
  EXPECT_DOUBLE_EQ(*CVLightGetBaseIntensity(sun), I / 2);
  static_cast<host::SceneObject*>(sun)->MutableParameters().Set(corvane::kSunNonPhysical, true);
  EXPECT_DOUBLE_EQ(*CVLightGetBaseIntensity(sun), I / 2.5);
  EXPECT_EQ(*CVLightGetBaseIntensity(Add(4, 1, I)), I);
  EXPECT_EQ(*CVLightGetBaseIntensity(Add(6, 1, I)), I);
}

TEST_F(LightUnits, ConversionIsTheInverseOfTheBaseIntensity) {
  Corvane().Set(1801, 40.0);
  Corvane().Set(1802, 30000.0);
  Corvane().Set(25002, vex::Data::MakeCustom(vex::UnitScale{"m", 1.0}));
  document_->Settings().Set(vex::kDocumentLengthUnit, vex::Data::MakeCustom(vex::UnitScale{"mm", 0.001}));
  for (const std::int32_t type : {0, 1, 2, 3}) {
    for (const std::int32_t from : {0, 1, 2, 3, 4}) {
      for (const std::int32_t to : {0, 1, 2, 3, 4}) {
        if (from == to) continue;
        auto* light = Add(type, from, 250.0);
        auto& p = static_cast<host::SceneObject*>(light)->MutableParameters();
        p.Set(corvane::kEfficacy, 12.5);
        p.Set(corvane::kAreaShape, 1);
        p.Set(corvane::kAreaSizeX, 30.0);
        p.Set(corvane::kAreaSizeY, 60.0);
        const double before = *CVLightGetBaseIntensity(light);
        ASSERT_TRUE(CVLightConvertToUnit(light, to));
        EXPECT_EQ(Units(light), 0);
        p.Set(corvane::kUnits, to);  // what a caller stores afterwards
        EXPECT_NEAR(*CVLightGetBaseIntensity(light) / before, 1.0, 1e-12) << type << ": " << from << " -> " << to;
      }
    }
  }
  // Into image units an area light's non-physical sun flag is cleared.
  auto* area = Add(3, 1, 10.0);
  static_cast<host::SceneObject*>(area)->MutableParameters().Set(corvane::kSunNonPhysical, true);
  ASSERT_TRUE(CVLightConvertToUnit(area, 0));
  EXPECT_FALSE(area->Parameters().GetBool(corvane::kSunNonPhysical, true));
}

TEST(ColourTemperature, TableAndWhitePoint) {
  // The table holds the data set rounded to six decimals: the rows quoted for the conversion.
  EXPECT_EQ(kColourMatching.front().wavelength, 380.0);
  EXPECT_EQ(kColourMatching.front().x, 0.002690);
  EXPECT_EQ(kColourMatching.front().y, 0.000200);
  EXPECT_EQ(kColourMatching.front().z, 0.012260);
  EXPECT_EQ(kColourMatching[40].wavelength, 580.0);
  EXPECT_EQ(kColourMatching[40].x, 0.91635);
  EXPECT_EQ(kColourMatching[40].y, 0.870);
  EXPECT_EQ(kColourMatching[40].z, 0.001807);
  // Half-way values round up.
  EXPECT_EQ(kColourMatching[1].x, 0.005311);
  EXPECT_EQ(kColourMatching[25].x, 0.002322);
  EXPECT_EQ(kColourMatching.back().wavelength, 825.0);
  for (const auto& row : kColourMatching) {
    for (const double v : {row.x, row.y, row.z}) {
      const double micro = v * 1e6;
      EXPECT_NEAR(micro, std::round(micro), 1e-6) << row.wavelength << " nm: " << v << " has more than six decimals";
    }
  }
  // What the rounding moves at the low end.
  EXPECT_NEAR(ComputeColorTemperatureRGB(1000, true, 6500).g, 0.0158723, 5e-8);

  // A temperature against a white of the same temperature is D65 white.
  for (const double t : {6500.0, 3000.0}) {
    const vex::Color white = ComputeColorTemperatureRGB(t, true, t);
    EXPECT_NEAR(white.r, 1.0, 1e-4);
    EXPECT_NEAR(white.g, 1.0, 1e-4);
    EXPECT_NEAR(white.b, 1.0, 1e-4);
  }
  // Warmer is redder, cooler is bluer; normalising puts the largest component at 1.
  const vex::Color warm = ComputeColorTemperatureRGB(2000, true, 6500);
  EXPECT_EQ(warm.r, 1.0);
  EXPECT_GT(warm.g, warm.b);
  const vex::Color cool = ComputeColorTemperatureRGB(15000, true, 6500);
  EXPECT_EQ(cool.b, 1.0);
  EXPECT_GT(cool.g, cool.r);
  const vex::Color raw = ComputeColorTemperatureRGB(2000, false, 6500);
  EXPECT_NEAR(raw.g / raw.r, warm.g, 1e-12);
  EXPECT_GT(raw.r, 1.0);
}

}  // namespace
