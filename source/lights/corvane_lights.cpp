// The `corvane_lights` unit: the Corvane light object class, registered for the
// Corvane node space and the object type "light".
#include "lights/corvane_lights.h"

#include "frame/module.h"
#include "vex/host.h"

namespace interop::lights {

namespace tessel = vex::tessel;

// The table is the renderer's; two rows share parameter 11007 (the backplate aspect is written
// after the decay type and wins), and row 29 is written twice in a row. Both are
// intended and kept; tests pin them.
const std::array<CorvaneLightRow, 90> kCorvaneLightRows = {{
    {1, LightAttr::temperature, 11003},
    {2, LightAttr::area_sizex, 11016},
    {3, LightAttr::area_sizey, 11017},
    {4, LightAttr::area_sizez, 11018},
    {5, LightAttr::area_spread, 11023},
    {6, LightAttr::area_visible_in_render, 11012},
    {7, LightAttr::area_bidirectional, 11013},
    {8, LightAttr::area_normalize, 11014},
    {9, LightAttr::exposure, 11022},
    {10, LightAttr::lumensperwatt, 11006},
    {11, LightAttr::falloffstart, 11008},
    {12, LightAttr::falloffstop, 11009},
    {13, LightAttr::spot_cone_angle, 11019},
    {14, LightAttr::spot_cone_falloff_angle, 11020},
    {15, LightAttr::spot_cone_falloff_curve, 11021},
    {16, LightAttr::dome_multiplier, 12024},
    {17, LightAttr::dome_exposure0, 12015},
    {18, LightAttr::dome_flip_horizontal, 12013},
    {19, LightAttr::dome_hue0, 12016},
    {20, LightAttr::dome_saturation0, 12017},
    {21, LightAttr::dome_tex0_gamma, 12002},
    {22, LightAttr::dome_background_enable, 12004},
    {23, LightAttr::dome_alphareplaceenable, 12005},
    {24, LightAttr::dome_alphareplacevalue, 12006},
    {25, LightAttr::dome_backplateenabled, 12007},
    {26, LightAttr::dome_exposure1, 12018},
    {27, LightAttr::dome_hue1, 12019},
    {28, LightAttr::dome_saturation1, 12020},
    {29, LightAttr::dome_tex1_gamma, 12009, 2},
    {30, LightAttr::dome_applyexposurecompensation, 12012},
    {31, LightAttr::ies_multiplier, 13004},
    {32, LightAttr::ies_exposure, 13005},
    {33, LightAttr::ies_temperature, 13002},
    {34, LightAttr::portal_multiplier, 14002},
    {35, LightAttr::portal_exposure, 14007},
    {36, LightAttr::portal_sizex, 14000},
    {37, LightAttr::portal_sizey, 14001},
    {38, LightAttr::portal_spread, 14008},
    {39, LightAttr::sun_multiplier, 15000},
    {40, LightAttr::sun_usenonphysicalintensity, 15001},
    {41, LightAttr::sun_sun_disk_scale, 15002},
    {42, LightAttr::sun_redblueshift, 15006},
    {43, LightAttr::sun_saturation, 15007},
    {44, LightAttr::sun_haze, 15003},
    {45, LightAttr::sun_horizon_height, 15005},
    {46, LightAttr::shadow, 10009},
    {47, LightAttr::shadowtransparency, 10010},
    {48, LightAttr::samplingoverrides_shadowsamplesscale, 10011},
    {49, LightAttr::samplingoverrides_numshadowsamples, 10012},
    {50, LightAttr::softness_affects_gobo, 10013},
    {51, LightAttr::light_group, 10027},
    {52, LightAttr::matte_shadow_illuminator, 10004},
    {53, LightAttr::indirect_max_trace_depth, 10032},
    {54, LightAttr::area_samples, 11015},
    {55, LightAttr::dome_samples, 12021},
    {56, LightAttr::portal_samples, 14005},
    {57, LightAttr::volume_num_samples, 10008},
    {58, LightAttr::diffuse_ray_contribution_scale, 10005},
    {59, LightAttr::reflection_ray_contribution_scale, 10034},
    {60, LightAttr::transmission_ray_contribution_scale, 10035},
    {61, LightAttr::single_scattering_ray_contribution_scale, 10028},
    {62, LightAttr::multiple_scattering_ray_contribution_scale, 10029},
    {63, LightAttr::indirect_ray_contribution_scale, 10031},
    {64, LightAttr::volume_ray_contribution_scale, 10007},
    {65, LightAttr::caustics_enabled, 10017},
    {66, LightAttr::photon_caustics_intensity_multiplier, 10018},
    {67, LightAttr::photon_caustics_num_photons, 10019},
    {68, LightAttr::legacy_non_area_light_intensity, 16000},
    {69, LightAttr::legacy_soft_shadow_technique, 16001},
    {70, LightAttr::gi_enabled, 10014},
    {71, LightAttr::photon_gi_intensity_multiplier, 10015},
    {72, LightAttr::photon_gi_num_photons, 10016},
    {73, LightAttr::unitstype, 11005},
    {74, LightAttr::decaytype, 11007},
    {75, LightAttr::dome_backplateaspect, 11007},
    {76, LightAttr::ies_colormode, 13003},
    {77, LightAttr::portal_transparency, 14004},
    {78, LightAttr::affected_by_refraction, 10030},
    {79, LightAttr::type, 10000},
    {80, LightAttr::sun_model, 15008},
    {81, LightAttr::dome_envtype, 12001},
    {82, LightAttr::area_geometry, 11010},
    {83, LightAttr::colormode, 11002},
    {84, LightAttr::color, 11000},
    {85, LightAttr::dome_color, 12003},
    {86, LightAttr::ies_color, 13001},
    {87, LightAttr::portal_tint_color, 14003},
    {88, LightAttr::sun_tint, 15009},
    {89, LightAttr::dome_tex, corvane::kDomeTexture},
    {90, LightAttr::intensity, corvane::kIntensity},
}};

vex::Result<void> FillCorvaneLight(vex::ISceneObject* object, const tessel::VEXObjectDescription& description) {
  if (object == nullptr || description.data.IsEmpty()) return {};
  for (const CorvaneLightRow& row : kCorvaneLightRows) {
    for (int i = 0; i < row.times; ++i) {
      VEX_ASSIGN(const auto value, ReadAsParameter(description, row.attr));
      if (!value) break;
      // Row 89 hands the texture reference to the dome's environment texture slot.
      VEX_TRY(object->SetParameter(row.parameter, *value));
    }
  }
  return {};
}

namespace {

/// "net.kelvo.tessel.vexobjectclasses.corvanearealight": on top of the light class.
class CorvaneLightClass final : public vex::ComponentBase<tessel::IVexObjectClass> {
 public:
  std::string_view ClassId() const override { return kCorvaneLightClassId; }

  vex::Result<void> Create(tessel::ObjectSlot& slot, const tessel::VEXObjectDescription& description,
                           std::int32_t flags) override {
    if (!slot.object) {
      VEX_ASSIGN(slot.object, vex::Host().documents->CreateObject(corvane::kLightObjectType));
      VEX_CHECK_STATE(slot.object != nullptr);
    }
    if (description.data.IsEmpty()) return {};
    VEX_TRY(FillCorvaneLight(slot.object.get(), description));
    VEX_ASSIGN(auto next, NextClass(kLightClassId));
    return next->Create(slot, description, flags);
  }

  vex::Result<void> Finish(tessel::ObjectSlot& slot) override {
    VEX_ASSIGN(auto next, NextClass(kLightClassId));
    return next->Finish(slot);
  }
};

struct CorvaneLightsUnit {
  static constexpr std::string_view kUnit = "corvane_lights";
  CorvaneLightsUnit() {
    vex::DeclareClass(g_kelvo, kUnit, kCorvaneLightClassId, tessel::IVexObjectClass::kInterfaceId,
                      &CreateCorvaneLightClass, tessel::kObjectClassRegistry,
                      vex::Data::MakeCustom(tessel::ObjectClassKey{vex::Id(tessel::kCorvaneNodeSpace),
                                                                   vex::Id(tessel::kObjectTypeLight)}),
                      kLightClassId);
  }
  ~CorvaneLightsUnit() { g_kelvo.Withdraw(kUnit); }
};

CorvaneLightsUnit s_corvaneLightsUnit INTEROP_UNIT_PRIORITY(kCorvaneLightsUnitPriority);

}  // namespace

vex::Result<vex::ComponentRef> CreateCorvaneLightClass() { return vex::MakeComponent<CorvaneLightClass>(); }

}  // namespace interop::lights
