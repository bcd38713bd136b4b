// Viewport material to standard surface. Two bodies, constant and lit; values
// pass through unchanged with their textures, and an absent port hands on the
// viewport bundle's declared default. A material without a known type is an
// error here (the FBX Phong mapping converts it as a dielectric).
#include <string>

#include "material/mapping/mapping_viewport.h"
#include "material/mapping/mappings.h"
#include "material/mapping/materialmapping.h"

namespace interop::mapping {
namespace {

using namespace viewport;

vex::Result<void> ConstantBody(Reader& in, vex::ParameterSet& target) {
  VEX_TRY(SetConstant(target, "emission", 1.0));
  VEX_TRY(Pass<vex::Color>(in, target, kEmissionColor, "emission_color"));
  for (const std::string_view weight : {"base", "specular", "transmission", "subsurface", "coat", "sheen"})
    VEX_TRY(SetConstant(target, weight, 0.0));
  return {};
}

vex::Result<void> LitBody(Reader& in, vex::ParameterSet& target, bool metal) {
  VEX_TRY(SetConstant(target, "metalness", metal ? 1.0 : 0.0));
  VEX_TRY(Pass<double>(in, target, kSpecularRoughness, "specular_roughness"));
  if (!metal) {
    VEX_TRY(Pass<double>(in, target, kBaseColorWeight, "base"));
    VEX_TRY(Pass<vex::Color>(in, target, kBaseColor, "base_color"));
    VEX_TRY(Pass<double>(in, target, kSpecularIor, "specular_IOR"));
    VEX_TRY(Pass<double>(in, target, kSpecularColorWeight, "specular"));
    VEX_TRY(Pass<vex::Color>(in, target, kSpecularColor, "specular_color"));
    VEX_TRY(Pass<double>(in, target, kTransmissivity, "transmission"));
  } else {
    // A metal's colour is its base colour, and it drives the specular lobe.
    VEX_TRY(Pass<double>(in, target, kBaseColorWeight, "specular"));
    VEX_TRY(Pass<vex::Color>(in, target, kBaseColor, "specular_color"));
  }
  // Opacity is the alpha as it stands, grey, not inverted.
  VEX_ASSIGN(const auto alpha, in.Take<double>(kAlpha, "opacity"));
  const double a = alpha.value;
  VEX_TRY(SetValue(target, "opacity", vex::Color{a, a, a}, alpha.texture));
  VEX_TRY(Pass<vex::Vector3d>(in, target, kBaseNormal, "surface_normal"));
  VEX_TRY(Pass<double>(in, target, kBaseNormalWeight, "surface_normal_weight"));
  VEX_TRY(Pass<double>(in, target, kEmissionColorWeight, "emission"));
  return Pass<vex::Color>(in, target, kEmissionColor, "emission_color");
}

class ViewportToStandardSurface final : public MappingBase {
 public:
  ViewportToStandardSurface()
      : MappingBase(classid::kViewportToStandardSurface, vex::bundle::kViewport, vex::bundle::kStandardSurface) {}

  vex::Result<vex::MappingOutput> MapMaterialData(const vex::ParameterSetRef& source) override {
    const auto& bundles = *vex::Host().bundles;
    VEX_TRY(bundles.Find(vex::bundle::kStandardSurface));
    VEX_ASSIGN(const vex::PortBundle* sourceBundle, bundles.Find(vex::bundle::kViewport));
    const vex::ParameterSet* parametersPtr = source.get();
    VEX_CHECK_STATE(parametersPtr != nullptr);

    VEX_ASSIGN(auto target, MakeTarget(vex::bundle::kStandardSurface));
    Reader in(*parametersPtr, *sourceBundle);
    VEX_ASSIGN(const auto type, in.ReadType());
    switch (type ? Classify(*type) : MaterialType::Absent) {
      case MaterialType::Constant:
        VEX_TRY(ConstantBody(in, *target));
        break;
      case MaterialType::Metal:
        VEX_TRY(LitBody(in, *target, true));
        break;
      case MaterialType::Dielectric:
        VEX_TRY(LitBody(in, *target, false));
        break;
      case MaterialType::Absent:
      case MaterialType::Unknown:
        return VEX_FAIL(vex::ErrorKind::IllegalArgument, "Unknown material type");
      case MaterialType::Colliding:
        // A foreign id that only looks like a known type: nothing is converted, and that is no error.
        break;
    }
    VEX_ASSIGN(auto defaults, in.Table());
    return vex::MappingOutput{std::move(target), std::move(defaults)};
  }
};

}  // namespace

vex::Result<vex::ComponentRef> CreateViewportToStandardSurface() {
  return vex::MakeComponent<ViewportToStandardSurface>();
}

}  // namespace interop::mapping
