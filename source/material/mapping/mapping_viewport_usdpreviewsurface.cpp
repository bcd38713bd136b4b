// Viewport material to USD Preview Surface. Colours go through their weights
// (a weight of 0 or less gives black), alpha is an opacity and is used as it
// is, transmissivity is inverted, and the stored normal is remapped from
// [0, 1] to [-1, 1]. Only constant materials emit.
#include <algorithm>
#include <string>

#include "material/mapping/mapping_viewport.h"
#include "material/mapping/mappings.h"
#include "material/mapping/materialmapping.h"

namespace interop::mapping {
namespace {

using namespace viewport;
namespace usd = vex::ports::usdpreviewsurface;

namespace workflow = usd::values::workflow;

/// The output receives the colour (with its texture) when the weight is greater than 0, else
/// black. An absent colour is recorded against the output; the weight only gates and is read
/// without being recorded.
vex::Result<void> WeightedColor(Reader& in, vex::ParameterSet& target, std::string_view weightPort,
                                std::string_view colorPort, std::string_view output) {
  VEX_ASSIGN(const auto weight, in.Read<double>(weightPort));
  VEX_ASSIGN(const auto color, in.Take<vex::Color>(colorPort, output));
  if (weight.value > 0.0) return SetValue(target, output, color.value, color.texture);
  return SetConstant(target, output, kBlack);
}

vex::Result<void> ConstantBody(Run<NoContext>& run) {
  VEX_TRY(WeightedColor(run.in, run.target, vp::emission_color_weight, vp::emission_color, usd::emissiveColor));
  return SetConstant(run.target, usd::workflow, std::string(workflow::specular));
}

/// Opacity from alpha, clamped; only a present alpha of exactly 1 after clamping hands the
/// decision to "transmissivity ", inverted and clamped.
vex::Result<void> Opacity(Reader& in, vex::ParameterSet& target) {
  VEX_ASSIGN(const auto alpha, in.Take<double>(vp::alpha, usd::opacity));
  const double opacity = std::clamp(alpha.value, 0.0, 1.0);
  VEX_TRY(SetValue(target, usd::opacity, opacity, alpha.texture));
  if (!alpha.present || opacity != 1.0) return {};
  VEX_ASSIGN(const auto transmissivity, in.Take<double>(vp::transmissivity, usd::opacity));
  return SetValue(target, usd::opacity, 1.0 - std::clamp(transmissivity.value, 0.0, 1.0), transmissivity.texture);
}

/// Metal, dielectric (also an unknown type) and an absent type, which is recorded against "metallic".
vex::Result<void> LitBody(Run<NoContext>& run) {
  Reader& in = run.in;
  vex::ParameterSet& target = run.target;
  const double metallic = run.type == MaterialType::Metal ? 1.0 : 0.0;
  VEX_TRY(SetConstant(target, usd::metallic, metallic));
  if (run.type == MaterialType::Absent)
    VEX_TRY(in.Record(vp::type, vex::PackedConstantParameter(metallic), usd::metallic));
  VEX_TRY(Pass<double>(in, target, vp::specular_roughness, usd::roughness));
  // A NaN counts as not 0: the metalness workflow.
  VEX_TRY(SetConstant(target, usd::workflow, std::string(metallic == 0.0 ? workflow::specular : workflow::metalness)));
  VEX_TRY(SetConstant(target, usd::metallic, metallic));
  VEX_TRY(WeightedColor(in, target, vp::base_color_weight, vp::base_color, usd::diffuseColor));
  VEX_TRY(Pass<double>(in, target, vp::specular_ior, usd::ior));
  VEX_TRY(WeightedColor(in, target, vp::specular_color_weight, vp::specular_color, usd::specularColor));
  VEX_TRY(Opacity(in, target));
  VEX_ASSIGN(const auto normal, in.Take<vex::Vector3d>(vp::base_normal, usd::normal));
  const vex::Vector3d& n = normal.value;
  return SetValue(target, usd::normal, vex::Vector3d{2.0 * n.x - 1.0, 2.0 * n.y - 1.0, 2.0 * n.z - 1.0},
                  normal.texture);
}

// An unknown type converts as a dielectric; an absent one has its own run of the lit body.
const ViewportMapping<> kUsdPreviewSurface{
    .target = usd::kId,
    .policy = {.absent = OnAbsentType::OwnBody, .unknown = OnUnknownType::AsDielectric},
    .bodies = {.constant = ConstantBody, .metal = LitBody, .dielectric = LitBody, .absent = LitBody},
    .where = std::source_location::current()};

}  // namespace

vex::Result<vex::ComponentRef> CreateViewportToUsdPreviewSurface() {
  return MakeMapping(classid::kViewportToUsdPreviewSurface, kUsdPreviewSurface);
}

}  // namespace interop::mapping
