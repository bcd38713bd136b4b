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

namespace interop::mapping {
namespace {

/// The scalar OBJ opacity as the grey Corvane opacity colour, texture and properties kept.
vex::Result<void> OpacityToColor(const vex::ParameterSet& source, vex::ParameterSet& target) {
  const vex::Parameter* entry = source.Find("opacity");
  if (entry == nullptr) return {};
  VEX_ASSIGN(const double opacity, vex::GetTypedConstant<double>(entry));
  vex::Parameter converted = vex::Parameter::Constant(vex::Color{opacity, opacity, opacity});
  converted.texture = entry->texture;
  converted.properties = entry->properties;
  return Set(target, "opacity", std::move(converted));
}

}  // namespace

vex::Result<std::shared_ptr<vex::ParameterSet>> ImportObjToCorvane(const vex::ParameterSet& source) {
  auto target = std::shared_ptr<vex::ParameterSet>(new (std::nothrow) vex::ParameterSet());
  if (!target) return VEX_FAIL(vex::ErrorKind::OutOfMemory, "Out of memory");
  auto transfer = [&](std::string_view from, std::string_view to) {
    return detail::TransferToCorvane(source, *target, from, to);
  };
  VEX_TRY(transfer("diffuse_color", "diffuse_color"));
  if (source.Has("metallic")) {
    // OBJ's metallic is the metal/roughness model's: the renderer reads it in metalness mode.
    VEX_TRY(SetConstant(*target, "fresnel_type", std::string("metalness")));
    VEX_TRY(transfer("metallic", "metalness"));
  }
  VEX_TRY(transfer("specular_color", "reflection_color"));
  VEX_TRY(transfer("roughness", "reflection_roughness"));
  VEX_TRY(transfer("anisotropy", "reflection_aniso"));
  VEX_TRY(transfer("anisotropy_rotation", "reflection_aniso_rot"));
  VEX_TRY(transfer("transmission_color", "transmission_color"));
  VEX_TRY(transfer("transmission_ior", "transmission_ior"));
  VEX_TRY(OpacityToColor(source, *target));
  VEX_TRY(transfer("normal_map", "overall_normal"));
  if (source.Has("emissive_color")) {
    VEX_TRY(transfer("emissive_color", "emission_color"));
    VEX_TRY(SetConstant(*target, "emission_weight", 1.0));
  }
  VEX_TRY(target->Tag(vex::Id(vex::bundle::kCorvane)));
  return target;
}

}  // namespace interop::mapping
