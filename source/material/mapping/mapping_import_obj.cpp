// The OBJ material model into Corvane ports: the way back of the Corvane-to-OBJ
// mapping. Weighted colours come back with weight 1 (the weight was
// multiplied in on export), so the Corvane weights stay at their defaults,
// except emission, which is off by default and is switched on when the OBJ
// material has an emissive colour.
#include <new>
#include <string>

#include "material/mapping/mapping_import.h"
#include "material/mapping/materialmapping.h"
#include "vex/datatypebase.h"
#include "vex/ports.h"

namespace interop::mapping {
namespace {

namespace cv = vex::ports::corvane;
namespace obj = vex::ports::obj;

/// The scalar OBJ opacity as the grey Corvane opacity colour, texture and properties kept.
vex::Result<void> OpacityToColor(const vex::ParameterSet& source, vex::ParameterSet& target) {
  const vex::Parameter* entry = source.Find(obj::opacity);
  if (entry == nullptr) return {};
  VEX_ASSIGN(const double opacity, vex::GetTypedConstant<double>(entry));
  vex::Parameter converted = vex::Parameter::Constant(vex::Color{opacity, opacity, opacity});
  converted.texture = entry->texture;
  converted.properties = entry->properties;
  return Set(target, cv::opacity, std::move(converted));
}

}  // namespace

vex::Result<std::shared_ptr<vex::ParameterSet>> ImportObjToCorvane(const vex::ParameterSet& source) {
  auto target = std::shared_ptr<vex::ParameterSet>(new (std::nothrow) vex::ParameterSet());
  if (!target) return VEX_FAIL(vex::ErrorKind::OutOfMemory, "Out of memory");
  auto transfer = [&](std::string_view from, std::string_view to) {
    return detail::TransferToCorvane(source, *target, from, to);
  };
  VEX_TRY(transfer(obj::diffuse_color, cv::diffuse_color));
  if (source.Has(obj::metallic)) {
    // OBJ's metallic is the metal/roughness model's: the renderer reads it in metalness mode.
    VEX_TRY(SetConstant(*target, cv::fresnel_type, std::string(cv::values::fresnel_type::metalness)));
    VEX_TRY(transfer(obj::metallic, cv::metalness));
  }
  VEX_TRY(transfer(obj::specular_color, cv::reflection_color));
  VEX_TRY(transfer(obj::roughness, cv::reflection_roughness));
  VEX_TRY(transfer(obj::anisotropy, cv::reflection_aniso));
  VEX_TRY(transfer(obj::anisotropy_rotation, cv::reflection_aniso_rot));
  VEX_TRY(transfer(obj::transmission_color, cv::transmission_color));
  VEX_TRY(transfer(obj::transmission_ior, cv::transmission_ior));
  VEX_TRY(OpacityToColor(source, *target));
  VEX_TRY(transfer(obj::normal_map, cv::overall_normal));
  if (source.Has(obj::emissive_color)) {
    VEX_TRY(transfer(obj::emissive_color, cv::emission_color));
    VEX_TRY(SetConstant(*target, cv::emission_weight, 1.0));
  }
  VEX_TRY(target->Tag(vex::Id(vex::bundle::kCorvane)));
  return target;
}

}  // namespace interop::mapping
