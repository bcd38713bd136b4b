// Viewport material to glTF 2.0 metallic-roughness. The type chooses between
// an unlit body (emission only, on a black base) and a lit body (metal or
// dielectric). Constants become glTF factors; textures are collected by glTF
// role and packed at the end by the glTF texture combining pass.
#include <algorithm>
#include <string>

#include "material/mapping/mapping_corvane_gltfpbr.h"
#include "material/mapping/mapping_viewport.h"
#include "material/mapping/mappings.h"
#include "material/mapping/materialmapping.h"

namespace interop::mapping {
namespace {

using namespace viewport;

namespace gltf = vex::ports::gltf;
namespace alpha_mode = gltf::values::alphaMode;

/// glTF keeps emissive factors in [0, 1]; a brighter emission goes into "emissiveStrength".
vex::Result<void> SetEmissive(vex::ParameterSet& target, vex::Color factor) {
  const double strength = std::max({factor.r, factor.g, factor.b});
  if (strength > 1.0) {
    factor = {factor.r / strength, factor.g / strength, factor.b / strength};
    VEX_TRY(SetConstant(target, gltf::emissiveStrength, strength));
  }
  return SetConstant(target, gltf::emissiveFactor, factor);
}

/// Emission colour times its weight; a weight of 0 or less gives black. A textured colour goes to
/// "emissiveTexture" with the weight as its factor.
vex::Result<void> Emission(Reader& in, vex::ParameterSet& target, CollectedTextures& collected) {
  VEX_ASSIGN(const auto weight, in.Take<double>(vp::emission_color_weight, gltf::emissiveFactor));
  VEX_ASSIGN(const auto color, in.Take<vex::Color>(vp::emission_color, gltf::emissiveFactor));
  const double w = weight.value;
  if (!(w > 0.0)) return SetConstant(target, gltf::emissiveFactor, kBlack);
  if (color.IsConstant()) return SetEmissive(target, {w * color.value.r, w * color.value.g, w * color.value.b});
  VEX_TRY(Collect(collected, vp::emission_color, role::kEmissive, *color.texture));
  return SetEmissive(target, {w, w, w});
}

vex::Result<void> ConstantBody(Run<CollectedTextures>& run) {
  VEX_TRY(SetConstant(run.target, gltf::baseColorFactor, vex::ColorA{0.0, 0.0, 0.0, 1.0}));
  VEX_TRY(SetConstant(run.target, gltf::metallicFactor, 0.0));
  VEX_TRY(SetConstant(run.target, gltf::roughnessFactor, 1.0));
  VEX_TRY(SetConstant(run.target, gltf::alphaMode, std::string(alpha_mode::OPAQUE)));
  return Emission(run.in, run.target, run.context);
}

/// The opacity as the USD mapping has it: alpha clamped; a present alpha of exactly 1 hands the
/// decision to "transmissivity ", inverted and clamped. Returns the constant opacity and whether
/// an opacity texture was collected.
vex::Result<std::pair<double, bool>> Opacity(Reader& in, vex::ParameterSet& target, CollectedTextures& collected) {
  VEX_ASSIGN(const auto alpha, in.Take<double>(vp::alpha, gltf::opacity));
  double opacity = std::clamp(alpha.value, 0.0, 1.0);
  bool textured = false;
  if (!alpha.IsConstant()) {
    VEX_TRY(Collect(collected, vp::alpha, role::kOpacity, *alpha.texture));
    textured = true;
  } else if (alpha.present && opacity == 1.0) {
    VEX_ASSIGN(const auto transmissivity, in.Take<double>(vp::transmissivity, gltf::opacity));
    opacity = 1.0 - std::clamp(transmissivity.value, 0.0, 1.0);
    if (!transmissivity.IsConstant())
      VEX_DIAGNOSTIC("Viewport Material Export: transmissivity textures are not exported to glTF");
  }
  VEX_TRY(SetConstant(target, gltf::opacity, opacity));
  const std::string_view mode = textured || opacity < 1.0 ? alpha_mode::BLEND : alpha_mode::OPAQUE;
  VEX_TRY(SetConstant(target, gltf::alphaMode, std::string(mode)));
  return std::pair{opacity, textured};
}

/// Metal, dielectric (also an unknown type) and an absent type, which is recorded against
/// "metallicFactor".
vex::Result<void> LitBody(Run<CollectedTextures>& run) {
  Reader& in = run.in;
  vex::ParameterSet& target = run.target;
  CollectedTextures& collected = run.context;
  const bool metal = run.type == MaterialType::Metal;
  const double metallic = metal ? 1.0 : 0.0;
  VEX_TRY(SetConstant(target, gltf::metallicFactor, metallic));
  if (run.type == MaterialType::Absent)
    VEX_TRY(in.Record(vp::type, vex::PackedConstantParameter(metallic), gltf::metallicFactor));

  // Roughness is the green channel of the packed texture, scaled by the factor.
  VEX_ASSIGN(const auto roughness, in.Take<double>(vp::specular_roughness, gltf::roughnessFactor));
  if (roughness.IsConstant()) {
    VEX_TRY(SetConstant(target, gltf::roughnessFactor, roughness.value));
  } else {
    VEX_TRY(SetConstant(target, gltf::roughnessFactor, 1.0));
    VEX_TRY(Collect(collected, vp::specular_roughness, role::kMetalRoughness, *roughness.texture));
  }

  VEX_ASSIGN(const auto opacity, Opacity(in, target, collected));
  // A textured opacity lands in the base colour texture's alpha; the factor's alpha stays 1 then.
  const double a = opacity.second ? 1.0 : opacity.first;
  VEX_ASSIGN(const auto weight, in.Take<double>(vp::base_color_weight, gltf::baseColorFactor));
  VEX_ASSIGN(const auto color, in.Take<vex::Color>(vp::base_color, gltf::baseColorFactor));
  const double w = weight.value;
  if (color.IsConstant()) {
    const vex::Color& c = color.value;
    VEX_TRY(SetConstant(target, gltf::baseColorFactor, vex::ColorA{w * c.r, w * c.g, w * c.b, a}));
  } else {
    VEX_TRY(Collect(collected, vp::base_color, role::kBaseColor, *color.texture));
    VEX_TRY(SetConstant(target, gltf::baseColorFactor, vex::ColorA{w, w, w, a}));
  }

  // The viewport bundle's emission defaults (white at weight 1) describe an unlit colour, not a
  // glow: a lit material emits only when it sets one of its emission ports itself.
  VEX_ASSIGN(const auto emissionWeight, in.Read<double>(vp::emission_color_weight));
  VEX_ASSIGN(const auto emissionColor, in.Read<vex::Color>(vp::emission_color));
  if (emissionWeight.present || emissionColor.present) VEX_TRY(Emission(in, target, collected));

  // glTF has one normal texture and no constant normal: a chosen constant normal is not written.
  std::optional<ChosenNormal> normal;
  if (metal) {
    VEX_ASSIGN(normal, ChooseNormal(in, {{vp::specular_normal, vp::specular_normal_weight}}, gltf::normalTexture));
  } else {
    VEX_ASSIGN(normal, ChooseNormal(in,
                                    {{vp::specular_normal, vp::specular_normal_weight},
                                     {vp::base_normal, vp::base_normal_weight}},
                                    gltf::normalTexture));
  }
  if (normal && !normal->normal.IsConstant()) {
    VEX_TRY(Collect(collected, normal->port, role::kNormal, *normal->normal.texture));
    VEX_TRY(SetConstant(target, gltf::normalScale, normal->weight));
  }
  return {};
}

/// The collected textures are packed after the body, also when no body ran.
vex::Result<void> PackTextures(Run<CollectedTextures>& run) { return CombineTextures(run.context, run.target); }

// Dispatch as the USD mapping's: an unknown type converts as a dielectric, an absent one has its
// own run of the lit body.
const ViewportMapping<CollectedTextures> kGltfPbr{
    .target = gltf::kId,
    .policy = {.absent = OnAbsentType::OwnBody, .unknown = OnUnknownType::AsDielectric},
    .bodies = {.constant = ConstantBody, .metal = LitBody, .dielectric = LitBody, .absent = LitBody},
    .finish = PackTextures,
    .where = std::source_location::current()};

}  // namespace

vex::Result<vex::ComponentRef> CreateViewportToGltfPbr() { return MakeMapping(classid::kViewportToGltfPbr, kGltfPbr); }

}  // namespace interop::mapping
