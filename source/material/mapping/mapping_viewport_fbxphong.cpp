// Viewport material to FBX surface Phong. Three branches, one per viewport
// material type, and a shared emission/transparency block for the lit two.
// Formulas run on the constants; textures travel to their target port as they
// are. With g_viewportFBXMappingPath set, each run dumps its input and output.
#include <algorithm>
#include <cmath>

#include "material/mapping/configuration.h"
#include "material/mapping/mapping_viewport.h"
#include "material/mapping/mappings.h"
#include "material/mapping/materialmapping.h"

namespace interop::mapping {
namespace {

using namespace viewport;
namespace phong = vex::ports::fbxsurfacephong;

/// "shininess" from "specular.roughness": 2^((1 - r) * 10), with r clamped to [0, 1] for metals
/// only. Dielectrics keep an unclamped roughness on purpose: above 1 it gives a shininess below
/// 1, where a metal's stays at 1. An absent roughness gives 0.
vex::Result<void> Shininess(Reader& in, vex::ParameterSet& target, bool clampRoughness) {
  VEX_ASSIGN(const auto roughness, in.Read<double>(vp::specular_roughness));
  if (!roughness.present) {
    VEX_TRY(in.Record(vp::specular_roughness, vex::PackedConstantParameter(0.0), phong::shininess));
    return SetConstant(target, phong::shininess, 0.0);
  }
  const double r = clampRoughness ? std::clamp(roughness.value, 0.0, 1.0) : roughness.value;
  return SetValue(target, phong::shininess, std::exp2((1.0 - r) * 10.0), roughness.texture);
}

vex::Result<void> NormalMap(Reader& in, vex::ParameterSet& target, std::initializer_list<NormalPorts> candidates) {
  VEX_ASSIGN(const auto chosen, ChooseNormal(in, candidates, phong::normalMap));
  if (!chosen) return {};
  return SetValue(target, phong::normalMap, chosen->normal.value, chosen->normal.texture);
}

/// Emission, then transparency: alpha is an opacity and is inverted; only a present alpha of 1 or
/// more hands the decision to "transmissivity ", which is a transparency and is used as it is.
vex::Result<void> EmissionAndTransparency(Reader& in, vex::ParameterSet& target) {
  VEX_TRY(Pass<vex::Color>(in, target, vp::emission_color, phong::emissive));
  VEX_TRY(Pass<double>(in, target, vp::emission_color_weight, phong::emissiveFactor));

  VEX_ASSIGN(const auto alpha, in.Read<double>(vp::alpha));
  double transparency = 0.0;
  if (alpha.present) transparency = 1.0 - std::clamp(alpha.value, 0.0, 1.0);
  else VEX_TRY(in.Record(vp::alpha, vex::PackedConstantParameter(0.0), phong::transparentColor));
  VEX_TRY(SetValue(target, phong::transparentColor, kBlack, alpha.texture));
  VEX_TRY(SetConstant(target, phong::transparencyFactor, transparency));
  // A NaN alpha leaves a NaN transparency, which is not 0.
  if (!alpha.present || transparency != 0.0) return {};

  VEX_ASSIGN(const auto transmissivity, in.Read<double>(vp::transmissivity));
  double t = 0.0;
  if (transmissivity.present) t = transmissivity.value;
  else VEX_TRY(in.Record(vp::transmissivity, vex::PackedConstantParameter(0.0), phong::transparentColor));
  VEX_TRY(SetValue(target, phong::transparentColor, kBlack, transmissivity.texture));
  return SetConstant(target, phong::transparencyFactor, t);
}

/// Unlit colour: only the emission counts.
vex::Result<void> ConstantBranch(Run<NoContext>& run) {
  vex::ParameterSet& target = run.target;
  VEX_TRY(Pass<vex::Color>(run.in, target, vp::emission_color, phong::emissive));
  VEX_TRY(SetConstant(target, phong::emissiveFactor, 1.0));
  VEX_TRY(SetConstant(target, phong::diffuse, kBlack));
  VEX_TRY(SetConstant(target, phong::diffuseFactor, 0.0));
  VEX_TRY(SetConstant(target, phong::specular, kBlack));
  VEX_TRY(SetConstant(target, phong::specularFactor, 0.0));
  VEX_TRY(SetConstant(target, phong::shininess, 0.0));
  VEX_TRY(SetConstant(target, phong::reflection, kBlack));
  return SetConstant(target, phong::reflectionFactor, 0.0);
}

/// A metal reflects its specular colour and has no diffuse or Phong specular lobe.
vex::Result<void> MetalBranch(Run<NoContext>& run) {
  Reader& in = run.in;
  vex::ParameterSet& target = run.target;
  // Written first so that the port comes first; the specular weight overwrites it below.
  VEX_TRY(SetConstant(target, phong::reflectionFactor, 1.0));
  VEX_TRY(SetConstant(target, phong::diffuse, kBlack));
  VEX_TRY(SetConstant(target, phong::diffuseFactor, 0.0));
  VEX_TRY(SetConstant(target, phong::specular, kBlack));
  VEX_TRY(SetConstant(target, phong::specularFactor, 0.0));
  VEX_TRY(Pass<vex::Color>(in, target, vp::specular_color, phong::reflection));
  VEX_TRY(Pass<double>(in, target, vp::specular_color_weight, phong::reflectionFactor));
  VEX_TRY(NormalMap(in, target, {{vp::specular_normal, vp::specular_normal_weight}}));
  VEX_TRY(Shininess(in, target, true));
  return EmissionAndTransparency(in, target);
}

/// A dielectric (also an absent or unknown type): diffuse and Phong specular, no reflection.
vex::Result<void> DielectricBranch(Run<NoContext>& run) {
  Reader& in = run.in;
  vex::ParameterSet& target = run.target;
  VEX_TRY(SetConstant(target, phong::reflection, kBlack));
  VEX_TRY(SetConstant(target, phong::reflectionFactor, 0.0));
  VEX_TRY(EmissionAndTransparency(in, target));
  VEX_TRY(Pass<vex::Color>(in, target, vp::base_color, phong::diffuse));
  VEX_TRY(Pass<double>(in, target, vp::base_color_weight, phong::diffuseFactor));
  VEX_TRY(Pass<vex::Color>(in, target, vp::specular_color, phong::specular));
  VEX_TRY(Pass<double>(in, target, vp::specular_color_weight, phong::specularFactor));
  VEX_TRY(Shininess(in, target, false));
  return NormalMap(in, target,
                   {{vp::specular_normal, vp::specular_normal_weight}, {vp::base_normal, vp::base_normal_weight}});
}

// An absent or unknown type converts as a dielectric; every run dumps when the FBX mapping path is set.
const ViewportMapping<> kFbxPhong{
    .target = phong::kId,
    .policy = {.absent = OnAbsentType::AsDielectric, .unknown = OnUnknownType::AsDielectric},
    .bodies = {.constant = ConstantBranch, .metal = MetalBranch, .dielectric = DielectricBranch},
    .dumpSetting = kViewportFbxMappingPath,
    .where = std::source_location::current()};

}  // namespace

vex::Result<vex::ComponentRef> CreateViewportToFbxPhong() {
  return MakeMapping(classid::kViewportToFbxPhong, kFbxPhong);
}

}  // namespace interop::mapping
