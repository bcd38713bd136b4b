// The generic (diffuse/specular/shininess) material model into Corvane ports.
#include <new>
#include <string>

#include "material/mapping/mapping_import.h"
#include "material/mapping/materialmapping.h"
#include "vex/datatypebase.h"
#include "vex/ports.h"

namespace interop::mapping {

namespace cv = vex::ports::corvane;
namespace generic = vex::ports::generic;

namespace detail {

vex::Result<void> CheckCorvaneType(const vex::Parameter& entry, std::string_view port) {
  const vex::PackedConstantParameter* constant = entry.Constant();
  if (constant == nullptr) return {};  // image and Substance references fit any texturable port
  auto bundle = vex::Host().bundles->Find(vex::bundle::kCorvane);
  const vex::PortDeclaration* declared = bundle ? (*bundle)->FindPort(port) : nullptr;
  if (declared != nullptr && declared->type != constant->Type())
    return VEX_FAIL(vex::ErrorKind::WrongDataType, std::string(vex::kInvalidTypedConstant));
  return {};
}

vex::Result<void> TransferToCorvane(const vex::ParameterSet& source, vex::ParameterSet& target, std::string_view from,
                                    std::string_view to) {
  const vex::Parameter* entry = source.Find(from);
  if (entry == nullptr) return {};
  VEX_TRY(CheckCorvaneType(*entry, to));
  return Set(target, to, *entry);
}

}  // namespace detail

vex::Result<std::shared_ptr<vex::ParameterSet>> ImportGenericToCorvane(const vex::ParameterSet& source) {
  // Untagged until every transfer has succeeded.
  auto target = std::shared_ptr<vex::ParameterSet>(new (std::nothrow) vex::ParameterSet());
  if (!target) return VEX_FAIL(vex::ErrorKind::OutOfMemory, "Out of memory");
  auto transfer = [&](std::string_view from, std::string_view to) {
    return detail::TransferToCorvane(source, *target, from, to);
  };
  VEX_TRY(transfer(generic::diffuseColor, cv::diffuse_color));
  VEX_TRY(transfer(generic::diffuseFactor, cv::diffuse_weight));
  VEX_TRY(transfer(generic::emissiveColor, cv::emission_color));
  VEX_TRY(transfer(generic::emissiveFactor, cv::emission_weight));
  VEX_TRY(transfer(generic::transparencyColor, cv::transmission_color));
  VEX_TRY(transfer(generic::transparencyFactor, cv::transmission_weight));
  VEX_TRY(transfer(generic::specularColor, cv::reflection_color));
  VEX_TRY(transfer(generic::opacityColor, cv::opacity));
  VEX_TRY(transfer(generic::reflectionFactor, cv::reflection_weight));

  double reflectionFactor = 0.0;
  if (source.Has(generic::reflectionFactor)) {
    VEX_ASSIGN(reflectionFactor, vex::ReadTyped<double>(source, generic::reflectionFactor));
  }
  if (reflectionFactor > 0.0) {
    // A reflective material: its specular colour is the edge tint's reflectivity.
    VEX_TRY(SetConstant(*target, cv::fresnel_type, std::string(cv::values::fresnel_type::color_edge_tint)));
    VEX_TRY(transfer(generic::specularColor, cv::reflectivity));
  } else {
    // The Fresnel mode stays the Corvane default: leaving the port out selects it.
    VEX_TRY(transfer(generic::specularFactor, cv::reflection_weight));
  }
  VEX_TRY(transfer(generic::shininess, cv::reflection_roughness));

  VEX_TRY(target->Tag(vex::Id(vex::bundle::kCorvane)));
  return target;
}

}  // namespace interop::mapping
