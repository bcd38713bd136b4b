#include "material/materialimport_conversions.h"

#include <cmath>
#include <new>
#include <string>

#include "material/mapping/mapping_import.h"
#include "material/mapping/materialmapping.h"
#include "vex/datatypebase.h"
#include "vex/ports.h"

namespace interop::material {
namespace {

using mapping::detail::TransferToCorvane;
namespace cv = vex::ports::corvane;
namespace ss = vex::ports::standardsurface;
// FBX Lambert's ports are the first nine of Phong's, spelled alike.
namespace fbx = vex::ports::fbxsurfacephong;
namespace usd = vex::ports::usdpreviewsurface;

vex::Result<std::shared_ptr<vex::ParameterSet>> NewTarget() {
  auto target = std::shared_ptr<vex::ParameterSet>(new (std::nothrow) vex::ParameterSet());
  if (!target) return VEX_FAIL(vex::ErrorKind::OutOfMemory, "Out of memory");
  return target;
}

/// Tags the finished set (only after every transfer succeeded).
vex::Result<std::shared_ptr<vex::ParameterSet>> Finish(std::shared_ptr<vex::ParameterSet> target) {
  VEX_TRY(target->Tag(vex::Id(vex::bundle::kCorvane)));
  return target;
}

/// A scalar port as a grey Corvane colour (texture and properties kept).
vex::Result<void> ScalarToGrey(const vex::ParameterSet& source, vex::ParameterSet& target, std::string_view from,
                               std::string_view to) {
  const vex::Parameter* entry = source.Find(from);
  if (entry == nullptr) return {};
  if (entry->Constant() == nullptr) return mapping::Set(target, to, *entry);  // an image reference
  VEX_ASSIGN(const double value, vex::GetTypedConstant<double>(entry));
  vex::Parameter converted = vex::Parameter::Constant(vex::Color{value, value, value});
  converted.texture = entry->texture;
  converted.properties = entry->properties;
  return mapping::Set(target, to, std::move(converted));
}

/// A normal given as a vector: only a texture (or image) is a normal map; the constant beside it
/// becomes the flat tangent-space normal colour.
vex::Result<void> NormalMap(const vex::ParameterSet& source, vex::ParameterSet& target, std::string_view from) {
  const vex::Parameter* entry = source.Find(from);
  if (entry == nullptr) return {};
  if (entry->Constant() != nullptr && !entry->IsTextured()) return {};
  vex::Parameter normal = entry->Constant() != nullptr ? vex::Parameter::Constant(vex::Color{0.5, 0.5, 1.0}) : *entry;
  normal.texture = entry->texture;
  normal.properties = entry->properties;
  if (!normal.properties.Contains("colorSpace")) normal.properties.Set("colorSpace", std::string("raw"));
  VEX_TRY(mapping::Set(target, cv::overall_normal, std::move(normal)));
  return mapping::SetConstant(target, cv::normal_space, std::string(cv::values::normal_space::space_rgb_tangent));
}

bool HasNonBlackOrTexture(const vex::ParameterSet& source, std::string_view port) {
  const vex::Parameter* entry = source.Find(port);
  if (entry == nullptr) return false;
  if (entry->IsTextured() || entry->Constant() == nullptr) return true;
  if (const auto* c = entry->Constant()->Get<vex::Color>()) return c->r > 0.0 || c->g > 0.0 || c->b > 0.0;
  return true;
}

}  // namespace

vex::Result<std::shared_ptr<vex::ParameterSet>> ImportStandardSurfaceToCorvane(const vex::ParameterSet& source) {
  VEX_ASSIGN(auto target, NewTarget());
  auto transfer = [&](std::string_view from, std::string_view to) {
    return TransferToCorvane(source, *target, from, to);
  };
  VEX_TRY(transfer(ss::base_color, cv::diffuse_color));
  VEX_TRY(transfer(ss::base, cv::diffuse_weight));
  VEX_TRY(transfer(ss::diffuse_roughness, cv::diffuse_roughness));
  if (source.Has(ss::metalness)) {
    VEX_TRY(mapping::SetConstant(*target, cv::fresnel_type, std::string(cv::values::fresnel_type::metalness)));
    VEX_TRY(transfer(ss::metalness, cv::metalness));
  }
  VEX_TRY(transfer(ss::specular, cv::reflection_weight));
  VEX_TRY(transfer(ss::specular_color, cv::reflection_color));
  VEX_TRY(transfer(ss::specular_roughness, cv::reflection_roughness));
  VEX_TRY(transfer(ss::specular_IOR, cv::reflection_ior));
  VEX_TRY(transfer(ss::transmission, cv::transmission_weight));
  VEX_TRY(transfer(ss::coat, cv::coat_weight));
  VEX_TRY(transfer(ss::opacity, cv::opacity));
  VEX_TRY(NormalMap(source, *target, ss::surface_normal));
  VEX_TRY(transfer(ss::surface_normal_weight, cv::overall_normal_weight));
  VEX_TRY(transfer(ss::emission, cv::emission_weight));
  VEX_TRY(transfer(ss::emission_color, cv::emission_color));
  return Finish(std::move(target));
}

vex::Result<std::shared_ptr<vex::ParameterSet>> ImportFbxToCorvane(const vex::ParameterSet& source) {
  VEX_ASSIGN(auto target, NewTarget());
  auto transfer = [&](std::string_view from, std::string_view to) {
    return TransferToCorvane(source, *target, from, to);
  };
  VEX_TRY(transfer(fbx::diffuse, cv::diffuse_color));
  VEX_TRY(transfer(fbx::diffuseFactor, cv::diffuse_weight));
  if (HasNonBlackOrTexture(source, fbx::emissive)) {
    VEX_TRY(transfer(fbx::emissive, cv::emission_color));
    if (source.Has(fbx::emissiveFactor)) VEX_TRY(transfer(fbx::emissiveFactor, cv::emission_weight));
    else VEX_TRY(mapping::SetConstant(*target, cv::emission_weight, 1.0));
  }
  // Transparency: FBX's transparent colour scaled by its factor is what light lets through.
  if (const vex::Parameter* colour = source.Find(fbx::transparentColor)) {
    double factor = 1.0;
    if (const vex::Parameter* f = source.Find(fbx::transparencyFactor)) {
      VEX_ASSIGN(factor, vex::GetTypedConstant<double>(f));
    }
    if (colour->IsTextured() || colour->Constant() == nullptr) {
      VEX_TRY(TransferToCorvane(source, *target, fbx::transparentColor, cv::transmission_color));
      VEX_TRY(mapping::SetConstant(*target, cv::transmission_weight, factor));
    } else {
      VEX_ASSIGN(const vex::Color c, vex::GetTypedConstant<vex::Color>(colour));
      const vex::Color opacity{1.0 - factor * c.r, 1.0 - factor * c.g, 1.0 - factor * c.b};
      if (opacity.r < 1.0 || opacity.g < 1.0 || opacity.b < 1.0)
        VEX_TRY(mapping::SetConstant(*target, cv::opacity, opacity));
    }
  }
  VEX_TRY(NormalMap(source, *target, fbx::normalMap));
  if (source.GetBundle() == vex::bundle::kFbxPhong || source.Has(fbx::specular)) {
    VEX_TRY(transfer(fbx::specular, cv::reflection_color));
    VEX_TRY(transfer(fbx::specularFactor, cv::reflection_weight));
    if (const vex::Parameter* shininess = source.Find(fbx::shininess); shininess && shininess->Constant()) {
      // The Phong exponent as a microfacet roughness: sqrt(2 / (n + 2)).
      VEX_ASSIGN(const double n, vex::GetTypedConstant<double>(shininess));
      const double roughness = n > -2.0 ? std::sqrt(2.0 / (n + 2.0)) : 1.0;
      VEX_TRY(mapping::SetConstant(*target, cv::reflection_roughness, roughness > 1.0 ? 1.0 : roughness));
    }
  } else {
    // Lambert is diffuse only.
    VEX_TRY(mapping::SetConstant(*target, cv::reflection_weight, 0.0));
  }
  return Finish(std::move(target));
}

vex::Result<std::shared_ptr<vex::ParameterSet>> ImportUsdPreviewSurfaceToCorvane(const vex::ParameterSet& source) {
  VEX_ASSIGN(auto target, NewTarget());
  auto transfer = [&](std::string_view from, std::string_view to) {
    return TransferToCorvane(source, *target, from, to);
  };
  VEX_TRY(transfer(usd::diffuseColor, cv::diffuse_color));
  if (HasNonBlackOrTexture(source, usd::emissiveColor)) {
    VEX_TRY(transfer(usd::emissiveColor, cv::emission_color));
    VEX_TRY(mapping::SetConstant(*target, cv::emission_weight, 1.0));
  }
  std::string workflow(usd::values::workflow::metalness);
  if (const vex::Parameter* w = source.Find(usd::workflow)) {
    VEX_ASSIGN(workflow, vex::GetTypedConstant<std::string>(w));
  }
  if (workflow == usd::values::workflow::specular) {
    VEX_TRY(mapping::SetConstant(*target, cv::fresnel_type, std::string(cv::values::fresnel_type::ior)));
    VEX_TRY(transfer(usd::specularColor, cv::reflection_color));
  } else {
    VEX_TRY(mapping::SetConstant(*target, cv::fresnel_type, std::string(cv::values::fresnel_type::metalness)));
    VEX_TRY(transfer(usd::metallic, cv::metalness));
  }
  VEX_TRY(transfer(usd::roughness, cv::reflection_roughness));
  VEX_TRY(transfer(usd::clearcoat, cv::coat_weight));
  VEX_TRY(transfer(usd::clearcoatRoughness, cv::coat_roughness));
  VEX_TRY(transfer(usd::ior, cv::reflection_ior));
  VEX_TRY(ScalarToGrey(source, *target, usd::opacity, cv::opacity));
  if (const vex::Parameter* normal = source.Find(usd::normal)) {
    if (normal->IsTextured() || normal->Constant() == nullptr) {
      VEX_TRY(NormalMap(source, *target, usd::normal));
    } else {
      VEX_ASSIGN(const vex::Vector3d n, vex::GetTypedConstant<vex::Vector3d>(normal));
      VEX_TRY(mapping::SetConstant(*target, cv::overall_normal,
                                   vex::Color{(n.x + 1.0) * 0.5, (n.y + 1.0) * 0.5, (n.z + 1.0) * 0.5}));
    }
  }
  if (const vex::Parameter* displacement = source.Find(usd::displacement);
      displacement && (displacement->IsTextured() || displacement->Constant() == nullptr)) {
    VEX_TRY(transfer(usd::displacement, cv::displacement_scale));
    VEX_TRY(mapping::SetConstant(*target, cv::displacement_space,
                                 std::string(cv::values::displacement_space::space_heightfield)));
  }
  if (const vex::Parameter* occlusion = source.Find(usd::occlusion);
      occlusion && (occlusion->IsTextured() || occlusion->Constant() == nullptr)) {
    VEX_TRY(ScalarToGrey(source, *target, usd::occlusion, cv::overall_tint));
  }
  return Finish(std::move(target));
}

}  // namespace interop::material
