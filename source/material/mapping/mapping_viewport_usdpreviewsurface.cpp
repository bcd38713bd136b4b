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

// The index-of-refraction port, named as the Corvane-to-USD mapping names it.
constexpr std::string_view kIor = "ior";

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

vex::Result<void> ConstantBody(Reader& in, vex::ParameterSet& target) {
  VEX_TRY(WeightedColor(in, target, kEmissionColorWeight, kEmissionColor, "emissiveColor"));
  return SetConstant(target, "workflow", std::string("specular"));
}

/// Opacity from alpha, clamped; only a present alpha of exactly 1 after clamping hands the
/// decision to "transmissivity ", inverted and clamped.
vex::Result<void> Opacity(Reader& in, vex::ParameterSet& target) {
  VEX_ASSIGN(const auto alpha, in.Take<double>(kAlpha, "opacity"));
  const double opacity = std::clamp(alpha.value, 0.0, 1.0);
  VEX_TRY(SetValue(target, "opacity", opacity, alpha.texture));
  if (!alpha.present || opacity != 1.0) return {};
  VEX_ASSIGN(const auto transmissivity, in.Take<double>(kTransmissivity, "opacity"));
  return SetValue(target, "opacity", 1.0 - std::clamp(transmissivity.value, 0.0, 1.0), transmissivity.texture);
}

vex::Result<void> LitBody(Reader& in, vex::ParameterSet& target, bool typeHeld, bool metal) {
  const double metallic = metal ? 1.0 : 0.0;
  VEX_TRY(SetConstant(target, "metallic", metallic));
  if (!typeHeld) VEX_TRY(in.Record(kType, vex::PackedConstantParameter(metallic), "metallic"));
  VEX_TRY(Pass<double>(in, target, kSpecularRoughness, "roughness"));
  // A NaN counts as not 0: the metalness workflow.
  VEX_TRY(SetConstant(target, "workflow", std::string(metallic == 0.0 ? "specular" : "metalness")));
  VEX_TRY(SetConstant(target, "metallic", metallic));
  VEX_TRY(WeightedColor(in, target, kBaseColorWeight, kBaseColor, "diffuseColor"));
  VEX_TRY(Pass<double>(in, target, kSpecularIor, kIor));
  VEX_TRY(WeightedColor(in, target, kSpecularColorWeight, kSpecularColor, "specularColor"));
  VEX_TRY(Opacity(in, target));
  VEX_ASSIGN(const auto normal, in.Take<vex::Vector3d>(kBaseNormal, "normal"));
  const vex::Vector3d& n = normal.value;
  return SetValue(target, "normal", vex::Vector3d{2.0 * n.x - 1.0, 2.0 * n.y - 1.0, 2.0 * n.z - 1.0},
                  normal.texture);
}

class ViewportToUsdPreviewSurface final : public MappingBase {
 public:
  ViewportToUsdPreviewSurface()
      : MappingBase(classid::kViewportToUsdPreviewSurface, vex::bundle::kViewport, vex::bundle::kUsdPreviewSurface) {}

  vex::Result<vex::MappingOutput> MapMaterialData(const vex::ParameterSetRef& source) override {
    const auto& bundles = *vex::Host().bundles;
    VEX_TRY(bundles.Find(vex::bundle::kUsdPreviewSurface));
    VEX_ASSIGN(const vex::PortBundle* sourceBundle, bundles.Find(vex::bundle::kViewport));
    const vex::ParameterSet* parametersPtr = source.get();
    VEX_CHECK_STATE(parametersPtr != nullptr);

    VEX_ASSIGN(auto target, MakeTarget(vex::bundle::kUsdPreviewSurface));
    Reader in(*parametersPtr, *sourceBundle);
    VEX_ASSIGN(const auto type, in.ReadType());
    switch (type ? Classify(*type) : MaterialType::Absent) {
      case MaterialType::Constant:
        VEX_TRY(ConstantBody(in, *target));
        break;
      case MaterialType::Metal:
        VEX_TRY(LitBody(in, *target, true, true));
        break;
      case MaterialType::Dielectric:
      case MaterialType::Unknown:
        VEX_TRY(LitBody(in, *target, true, false));
        break;
      case MaterialType::Absent:
        VEX_TRY(LitBody(in, *target, false, false));
        break;
      case MaterialType::Colliding:
        // A foreign id that only looks like a known type: nothing is converted, and that is no error.
        break;
    }
    VEX_ASSIGN(auto defaults, in.Table());
    return vex::MappingOutput{std::move(target), std::move(defaults)};
  }
};

}  // namespace

vex::Result<vex::ComponentRef> CreateViewportToUsdPreviewSurface() {
  return vex::MakeComponent<ViewportToUsdPreviewSurface>();
}

}  // namespace interop::mapping
