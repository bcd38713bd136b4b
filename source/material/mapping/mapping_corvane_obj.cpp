// Corvane renderer material to the OBJ/MTL material model. Nothing is packed:
// each texture is stored under its own target port.
#include <string_view>

#include "material/mapping/mappings.h"
#include "material/mapping/materialmapping.h"

namespace interop::mapping {
namespace {

constexpr double kOneThird = 0.3333333333333333;

/// A constant goes over as it is; a texture is stored under the target with the constant beside it.
template <class T>
vex::Result<void> Unchanged(const vex::ParameterSet* source, vex::ParameterSet& target, std::string_view from,
                            std::string_view to) {
  VEX_ASSIGN(const auto value, Read<T>(source, from));
  return SetValue(target, to, value.value, value.texture);
}

/// The colour scaled by its weight when it is a constant; a textured colour is stored unscaled
/// (what the weight means for a texture is left to the OBJ writer).
vex::Result<void> WeightedColor(const vex::ParameterSet* source, vex::ParameterSet& target,
                                std::string_view colorPort, std::string_view weightPort, std::string_view to) {
  VEX_ASSIGN(const auto color, Read<vex::Color>(source, colorPort));
  VEX_ASSIGN(const auto weight, Read<double>(source, weightPort));
  if (!color.IsConstant()) return SetValue(target, to, color.value, color.texture);
  const double w = weight.value;
  const vex::Color& c = color.value;
  return SetConstant(target, to, vex::Color{w * c.r, w * c.g, w * c.b});
}

vex::Result<void> OpacityMean(const vex::ParameterSet* source, vex::ParameterSet& target) {
  VEX_ASSIGN(const auto opacity, Read<vex::Color>(source, "opacity"));
  const vex::Color& c = opacity.value;
  return SetValue(target, "opacity", (c.r + c.g + c.b) * kOneThird, opacity.texture);
}

class CorvaneToObj final : public MappingBase {
 public:
  CorvaneToObj() : MappingBase(classid::kCorvaneToObj, vex::bundle::kCorvane, vex::bundle::kObj) {}

  vex::Result<vex::MappingOutput> MapMaterialData(const vex::ParameterSetRef& sourceRef) override {
    const vex::ParameterSet* source = sourceRef.get();
    VEX_ASSIGN(auto target, MakeTarget(vex::bundle::kObj));
    vex::ParameterSet& t = *target;
    VEX_TRY(WeightedColor(source, t, "diffuse_color", "diffuse_weight", "diffuse_color"));
    // Metalness goes over whatever the Fresnel mode.
    VEX_TRY(Unchanged<double>(source, t, "metalness", "metallic"));
    VEX_TRY(WeightedColor(source, t, "reflection_color", "reflection_weight", "specular_color"));
    VEX_TRY(Unchanged<double>(source, t, "reflection_roughness", "roughness"));
    VEX_TRY(Unchanged<double>(source, t, "reflection_aniso", "anisotropy"));
    VEX_TRY(Unchanged<double>(source, t, "reflection_aniso_rot", "anisotropy_rotation"));
    VEX_TRY(Unchanged<vex::Color>(source, t, "transmission_color", "transmission_color"));
    VEX_TRY(Unchanged<double>(source, t, "transmission_ior", "transmission_ior"));
    VEX_TRY(OpacityMean(source, t));
    VEX_TRY(Unchanged<vex::Color>(source, t, "overall_normal", "normal_map"));
    VEX_TRY(WeightedColor(source, t, "emission_color", "emission_weight", "emissive_color"));
    return vex::MappingOutput{std::move(target), {}};
  }
};

}  // namespace

vex::Result<vex::ComponentRef> CreateCorvaneToObj() { return vex::MakeComponent<CorvaneToObj>(); }

}  // namespace interop::mapping
