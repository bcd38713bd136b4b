// Corvane renderer material to USD Preview Surface. Textured sources are filed
// under their target port with a placeholder constant beside them; a pixel
// pass at the end turns opacity and transmission textures into opacity.
#include <algorithm>
#include <cmath>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "material/mapping/configuration.h"
#include "material/mapping/filed_textures.h"
#include "material/mapping/mappings.h"
#include "material/mapping/materialmapping.h"
#include "material/mapping/pixel_passes.h"

namespace interop::mapping {
namespace {

namespace cv = vex::ports::corvane;
namespace usd = vex::ports::usdpreviewsurface;

constexpr double kOneThird = 0.3333333333333333;
constexpr std::string_view kTransmission = cv::transmission_weight;
// Opacity and transmission textures are filed under the opacity port, which the pixel pass turns
// them into.
constexpr std::string_view kRoleOpacity = usd::opacity;

struct UsdFiledTexture {
  std::string_view source;
  std::string_view role;
  vex::TextureBuffer texture;
};
using UsdFiledTextures = std::vector<UsdFiledTexture>;

vex::Result<void> File(UsdFiledTextures& filed, std::string_view source, std::string_view role,
                       const vex::TextureBuffer& texture) {
  try {
    filed.push_back({source, role, texture});
  } catch (const std::bad_alloc&) {
    return VEX_FAIL(vex::ErrorKind::OutOfMemory, "Out of memory");
  }
  return {};
}

/// The target gets the constant, or, for a textured source, the placeholder while the texture is
/// filed under the target's name.
template <class T>
vex::Result<void> SetOrFile(vex::ParameterSet& target, UsdFiledTextures& filed, std::string_view sourcePort,
                            std::string_view targetPort, const PortValue<T>& value, T placeholder) {
  if (value.IsConstant()) return SetConstant(target, targetPort, value.value);
  VEX_TRY(SetConstant(target, targetPort, placeholder));
  return File(filed, sourcePort, targetPort, *value.texture);
}

template <class T>
vex::Result<void> Transfer(const vex::ParameterSet* source, vex::ParameterSet& target, UsdFiledTextures& filed,
                           std::string_view sourcePort, std::string_view targetPort, T placeholder) {
  VEX_ASSIGN(const auto value, Read<T>(source, sourcePort));
  return SetOrFile(target, filed, sourcePort, targetPort, value, placeholder);
}

const vex::Color kBlack{0.0, 0.0, 0.0};
const vex::Color kWhite{1.0, 1.0, 1.0};

/// A colour-encoded normal as a vector (2c - 1); black (the "no normal" colour) is the straight
/// tangent-space normal rather than (-1, -1, -1).
vex::Vector3d NormalVector(const vex::Color& c) {
  constexpr double kZero = 0.001f;
  if (std::abs(c.r) < kZero && std::abs(c.g) < kZero && std::abs(c.b) < kZero) return {0.0, 0.0, 1.0};
  return {2.0 * c.r - 1.0, 2.0 * c.g - 1.0, 2.0 * c.b - 1.0};
}

vex::Result<void> Opacity(const vex::ParameterSet* source, vex::ParameterSet& target, UsdFiledTextures& filed) {
  VEX_ASSIGN(const auto opacity, Read<vex::Color>(source, cv::opacity));
  const vex::Color& c = opacity.value;
  const double mean = (c.r + c.g + c.b) * kOneThird;
  if (!opacity.IsConstant()) {
    VEX_TRY(File(filed, cv::opacity, kRoleOpacity, *opacity.texture));
    return SetConstant(target, usd::opacity, mean);
  }
  if (std::min({c.r, c.g, c.b}) < 1.0) return SetConstant(target, usd::opacity, mean);
  // Fully opaque: what lets light through is the transmission.
  VEX_ASSIGN(const auto transmission, Read<double>(source, kTransmission));
  VEX_TRY(SetConstant(target, usd::opacity, 1.0 - std::clamp(transmission.value, 0.0, 1.0)));
  if (!transmission.IsConstant()) VEX_TRY(File(filed, kTransmission, kRoleOpacity, *transmission.texture));
  return {};
}

vex::Result<void> MapToUsd(const vex::ParameterSet* source, vex::ParameterSet& target) {
  UsdFiledTextures filed;
  VEX_ASSIGN(const auto reflection, Read<double>(source, cv::reflection_weight));

  VEX_ASSIGN(const auto diffuseWeight, Read<double>(source, cv::diffuse_weight));
  if (diffuseWeight.IsConstant() && diffuseWeight.value <= 0.0) {
    VEX_TRY(SetConstant(target, usd::diffuseColor, kBlack));
  } else {
    VEX_TRY(Transfer(source, target, filed, cv::diffuse_color, usd::diffuseColor, kWhite));
  }

  VEX_ASSIGN(const auto emissionWeight, Read<double>(source, cv::emission_weight));
  if (emissionWeight.IsConstant() && emissionWeight.value <= 0.0) {
    VEX_TRY(SetConstant(target, usd::emissiveColor, kBlack));
  } else {
    VEX_TRY(Transfer(source, target, filed, cv::emission_color, usd::emissiveColor, kWhite));
  }

  const bool noReflection = reflection.IsConstant() && reflection.value <= 0.0;
  if (noReflection) {
    VEX_TRY(SetConstant(target, usd::workflow, std::string(usd::values::workflow::specular)));
    VEX_TRY(SetConstant(target, usd::specularColor, kBlack));
  } else {
    VEX_TRY(Transfer(source, target, filed, cv::reflection_roughness, usd::roughness, 0.0));
  }

  VEX_TRY(Transfer(source, target, filed, cv::coat_weight, usd::clearcoat, 1.0));
  VEX_TRY(Transfer(source, target, filed, cv::coat_roughness, usd::clearcoatRoughness, 1.0));
  VEX_TRY(Transfer(source, target, filed, cv::reflection_ior, usd::ior, 1.4));
  VEX_TRY(Opacity(source, target, filed));

  VEX_ASSIGN(const auto displacementSpace, Read<std::string>(source, cv::displacement_space));
  if (displacementSpace.value == cv::values::displacement_space::space_heightfield) {
    VEX_TRY(Transfer(source, target, filed, cv::displacement_scale, usd::displacement, 0.0));
  } else {
    VEX_DIAGNOSTIC("Corvane Nodes Export: Displacement maps can only be exported as heightfields");
  }

  VEX_ASSIGN(const auto normalSpace, Read<std::string>(source, cv::normal_space));
  if (normalSpace.value == cv::values::normal_space::space_rgb_tangent) {
    VEX_ASSIGN(const auto normal, Read<vex::Color>(source, cv::overall_normal));
    VEX_TRY(SetConstant(target, usd::normal, NormalVector(normal.value)));
    if (!normal.IsConstant()) VEX_TRY(File(filed, cv::overall_normal, usd::normal, *normal.texture));
  } else {
    VEX_DIAGNOSTIC("Corvane Nodes Export: Normal maps can only be exported in tangent space");
  }

  if (!noReflection) {
    VEX_ASSIGN(const auto fresnel, Read<std::string>(source, cv::fresnel_type));
    if (fresnel.value == cv::values::fresnel_type::metalness) {
      VEX_TRY(SetConstant(target, usd::workflow, std::string(usd::values::workflow::metalness)));
      VEX_TRY(Transfer(source, target, filed, cv::metalness, usd::metallic, 1.0));
      VEX_TRY(Transfer(source, target, filed, cv::reflectivity, usd::specularColor, kWhite));
    } else {
      VEX_TRY(SetConstant(target, usd::workflow, std::string(usd::values::workflow::specular)));
      VEX_TRY(SetConstant(target, usd::metallic, 0.0));
      VEX_TRY(Transfer(source, target, filed, cv::reflection_color, usd::specularColor, kWhite));
    }
  }

  // Pixel pass. All buffers are checked before the first is rewritten.
  for (const auto& entry : filed) {
    const auto& pixels = entry.texture._pixels;
    VEX_CHECK_STATE(pixels);
  }
  for (const auto& entry : filed) {
    if (entry.source == kTransmission) VEX_TRY(InvertRgb(*entry.texture._pixels));
    else if (entry.role == kRoleOpacity) VEX_TRY(GreyMean(*entry.texture._pixels));
    VEX_TRY(StoreTexture(target, entry.role, entry.texture));
  }
  return {};
}

class CorvaneToUsdPreviewSurface final : public MappingBase {
 public:
  CorvaneToUsdPreviewSurface()
      : MappingBase(classid::kCorvaneToUsdPreviewSurface, vex::bundle::kCorvane, vex::bundle::kUsdPreviewSurface) {}

  /// With the mapping path set, the run's input is kept as it arrived (the pixel pass rewrites
  /// the source's textures in place) and, at the end, written beside the output into that
  /// directory; a failed write is the run's error (the output is complete by then, but not
  /// returned).
  vex::Result<vex::MappingOutput> MapMaterialData(const vex::ParameterSetRef& source) override {
    if (!SettingValue(kCorvaneUsdMappingPath).empty() && source != nullptr) {
      VEX_ASSIGN(kept_, SnapshotForDump(*source));
    }
    VEX_ASSIGN(auto target, MakeTarget(vex::bundle::kUsdPreviewSurface));
    VEX_TRY(MapToUsd(source.get(), *target));
    if (const std::string directory = SettingValue(kCorvaneUsdMappingPath); !directory.empty() && kept_ != nullptr)
      VEX_TRY(WriteMappingDump(directory, *kept_, *target));
    return vex::MappingOutput{std::move(target), {}};
  }

 private:
  // The input (a Corvane set, tagged so) of the last run made while the mapping path was set:
  // what the dump writes.
  vex::ParameterSetRef kept_;
};

}  // namespace

vex::Result<vex::ComponentRef> CreateCorvaneToUsdPreviewSurface() {
  return vex::MakeComponent<CorvaneToUsdPreviewSurface>();
}

}  // namespace interop::mapping
