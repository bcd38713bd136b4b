// Corvane renderer material to the OBJ/MTL material model. Nothing is packed:
// each texture is stored under its own target port.
#include <string_view>

#include "material/mapping/mappings.h"
#include "material/mapping/materialmapping.h"

namespace interop::mapping {
namespace {

namespace cv = vex::ports::corvane;
namespace obj = vex::ports::obj;

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
  VEX_ASSIGN(const auto opacity, Read<vex::Color>(source, cv::opacity));
  const vex::Color& c = opacity.value;
  return SetValue(target, obj::opacity, (c.r + c.g + c.b) * kOneThird, opacity.texture);
}

class CorvaneToObj final : public MappingBase {
 public:
  CorvaneToObj() : MappingBase(classid::kCorvaneToObj, vex::bundle::kCorvane, vex::bundle::kObj) {}

  vex::Result<vex::MappingOutput> MapMaterialData(const vex::ParameterSetRef& sourceRef) override {
    const vex::ParameterSet* source = sourceRef.get();
    VEX_ASSIGN(auto target, MakeTarget(vex::bundle::kObj));
    vex::ParameterSet& t = *target;
    VEX_TRY(WeightedColor(source, t, cv::diffuse_color, cv::diffuse_weight, obj::diffuse_color));
    // Metalness goes over whatever the Fresnel mode.
    VEX_TRY(Unchanged<double>(source, t, cv::metalness, obj::metallic));
    VEX_TRY(WeightedColor(source, t, cv::reflection_color, cv::reflection_weight, obj::specular_color));
    VEX_TRY(Unchanged<double>(source, t, cv::reflection_roughness, obj::roughness));
    VEX_TRY(Unchanged<double>(source, t, cv::reflection_aniso, obj::anisotropy));
    VEX_TRY(Unchanged<double>(source, t, cv::reflection_aniso_rot, obj::anisotropy_rotation));
    VEX_TRY(Unchanged<vex::Color>(source, t, cv::transmission_color, obj::transmission_color));
    VEX_TRY(Unchanged<double>(source, t, cv::transmission_ior, obj::transmission_ior));
    VEX_TRY(OpacityMean(source, t));
    VEX_TRY(Unchanged<vex::Color>(source, t, cv::overall_normal, obj::normal_map));
    VEX_TRY(WeightedColor(source, t, cv::emission_color, cv::emission_weight, obj::emissive_color));
    return vex::MappingOutput{std::move(target), {}};
  }
};

}  // namespace

vex::Result<vex::ComponentRef> CreateCorvaneToObj() { return vex::MakeComponent<CorvaneToObj>(); }

}  // namespace interop::mapping
