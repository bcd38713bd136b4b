// Viewport material to standard surface. Two bodies, constant and lit; values
// pass through unchanged with their textures, and an absent port hands on the
// viewport bundle's declared default. A material without a known type is an
// error here (the FBX Phong mapping converts it as a dielectric).
#include "material/mapping/mapping_viewport.h"
#include "material/mapping/mappings.h"
#include "material/mapping/materialmapping.h"

namespace interop::mapping {
namespace {

using namespace viewport;
namespace ss = vex::ports::standardsurface;

vex::Result<void> ConstantBody(Run<NoContext>& run) {
  VEX_TRY(SetConstant(run.target, ss::emission, 1.0));
  VEX_TRY(Pass<vex::Color>(run.in, run.target, vp::emission_color, ss::emission_color));
  for (const std::string_view weight : {ss::base, ss::specular, ss::transmission, ss::subsurface, ss::coat, ss::sheen})
    VEX_TRY(SetConstant(run.target, weight, 0.0));
  return {};
}

vex::Result<void> LitBody(Run<NoContext>& run) {
  Reader& in = run.in;
  vex::ParameterSet& target = run.target;
  const bool metal = run.type == MaterialType::Metal;
  VEX_TRY(SetConstant(target, ss::metalness, metal ? 1.0 : 0.0));
  VEX_TRY(Pass<double>(in, target, vp::specular_roughness, ss::specular_roughness));
  if (!metal) {
    VEX_TRY(Pass<double>(in, target, vp::base_color_weight, ss::base));
    VEX_TRY(Pass<vex::Color>(in, target, vp::base_color, ss::base_color));
    VEX_TRY(Pass<double>(in, target, vp::specular_ior, ss::specular_IOR));
    VEX_TRY(Pass<double>(in, target, vp::specular_color_weight, ss::specular));
    VEX_TRY(Pass<vex::Color>(in, target, vp::specular_color, ss::specular_color));
    VEX_TRY(Pass<double>(in, target, vp::transmissivity, ss::transmission));
  } else {
    // A metal's colour is its base colour, and it drives the specular lobe.
    VEX_TRY(Pass<double>(in, target, vp::base_color_weight, ss::specular));
    VEX_TRY(Pass<vex::Color>(in, target, vp::base_color, ss::specular_color));
  }
  // Opacity is the alpha as it stands, grey, not inverted.
  VEX_ASSIGN(const auto alpha, in.Take<double>(vp::alpha, ss::opacity));
  const double a = alpha.value;
  VEX_TRY(SetValue(target, ss::opacity, vex::Color{a, a, a}, alpha.texture));
  VEX_TRY(Pass<vex::Vector3d>(in, target, vp::base_normal, ss::surface_normal));
  VEX_TRY(Pass<double>(in, target, vp::base_normal_weight, ss::surface_normal_weight));
  VEX_TRY(Pass<double>(in, target, vp::emission_color_weight, ss::emission));
  return Pass<vex::Color>(in, target, vp::emission_color, ss::emission_color);
}

// An absent or unknown type is refused with "Unknown material type".
const ViewportMapping<> kStandardSurface{
    .target = ss::kId,
    .policy = {.absent = OnAbsentType::Reject, .unknown = OnUnknownType::Reject},
    .bodies = {.constant = ConstantBody, .metal = LitBody, .dielectric = LitBody},
    .where = std::source_location::current()};

}  // namespace

vex::Result<vex::ComponentRef> CreateViewportToStandardSurface() {
  return MakeMapping(classid::kViewportToStandardSurface, kStandardSurface);
}

}  // namespace interop::mapping
