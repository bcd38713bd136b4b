// Corvane renderer material <-> glTF 2.0 metallic-roughness. One class serves
// both directions: a Corvane set is exported (textures are collected by glTF
// role and packed at the end), a glTF set is imported into Corvane ports.
#include "material/mapping/mapping_corvane_gltfpbr.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>

#include "material/mapping/mappings.h"
#include "material/mapping/materialmapping.h"
#include "material/mapping/pixel_passes.h"

namespace interop::mapping {
namespace {

constexpr double kOneThird = 0.3333333333333333;

namespace cv = vex::ports::corvane;
namespace gltf = vex::ports::gltf;
constexpr std::string_view kBlend = gltf::values::alphaMode::BLEND;

/// Equality of two doubles as the renderer's parameter code has it: bit patterns (as 64-bit
/// integers) less than 8 apart. -0.0 is far from 0.0 under this rule.
bool BitsEqual(double a, double b) {
  const auto ia = std::bit_cast<std::int64_t>(a);
  const auto ib = std::bit_cast<std::int64_t>(b);
  // The difference is taken in unsigned arithmetic: it can exceed the signed range.
  const std::uint64_t diff = ia > ib ? static_cast<std::uint64_t>(ia) - static_cast<std::uint64_t>(ib)
                                     : static_cast<std::uint64_t>(ib) - static_cast<std::uint64_t>(ia);
  return diff < 8;
}

// --- export: Corvane to glTF ------------------------------------------------------------------

vex::Result<void> ExportBaseColorAndOpacity(const vex::ParameterSet* source, vex::ParameterSet& target,
                                            CollectedTextures& collected) {
  VEX_ASSIGN(const auto opacity, Read<vex::Color>(source, cv::opacity));
  VEX_ASSIGN(const auto transmission, Read<double>(source, cv::transmission_weight));
  const double opacityMean = (opacity.value.r + opacity.value.g + opacity.value.b) * kOneThird;
  double alpha = 1.0;
  if (!opacity.IsConstant()) {
    VEX_TRY(Collect(collected, cv::opacity, role::kOpacity, *opacity.texture));
    VEX_TRY(SetConstant(target, gltf::opacity, opacityMean));
    VEX_TRY(SetConstant(target, gltf::alphaMode, std::string(kBlend)));
  } else if (transmission.IsConstant()) {
    alpha = opacityMean;
    if (std::abs(alpha - 1.0) > 0.0001) VEX_TRY(SetConstant(target, gltf::alphaMode, std::string(kBlend)));
  } else {
    // The combining pass inverts the texels; the constant beside them is inverted alike.
    VEX_TRY(Collect(collected, cv::transmission_weight, role::kOpacity, *transmission.texture));
    VEX_TRY(SetConstant(target, gltf::opacity, 1.0 - transmission.value));
    VEX_TRY(SetConstant(target, gltf::alphaMode, std::string(kBlend)));
  }

  VEX_ASSIGN(const auto diffuseWeight, Read<double>(source, cv::diffuse_weight));
  const double w = diffuseWeight.IsConstant() ? diffuseWeight.value : 1.0;
  VEX_ASSIGN(const auto diffuse, Read<vex::Color>(source, cv::diffuse_color));
  const vex::Color& c = diffuse.value;
  if (diffuse.IsConstant())
    return SetConstant(target, gltf::baseColorFactor, vex::ColorA{w * c.r, w * c.g, w * c.b, alpha});
  VEX_TRY(Collect(collected, cv::diffuse_color, role::kBaseColor, *diffuse.texture));
  VEX_TRY(SetConstant(target, gltf::baseColorTexture, vex::ColorA{c.r, c.g, c.b, 1.0}));
  return SetConstant(target, gltf::baseColorFactor, vex::ColorA{w, w, w, alpha});
}

vex::Result<void> ExportMetalnessAndRoughness(const vex::ParameterSet* source, vex::ParameterSet& target,
                                              CollectedTextures& collected) {
  VEX_ASSIGN(const auto fresnel, Read<std::string>(source, cv::fresnel_type));
  bool metalTextured = false;
  if (fresnel.value == cv::values::fresnel_type::metalness) {
    VEX_ASSIGN(const auto metal, Read<double>(source, cv::metalness));
    if (metal.IsConstant()) {
      VEX_TRY(SetConstant(target, gltf::metallicFactor, metal.value));
    } else {
      VEX_TRY(Collect(collected, cv::metalness, role::kMetalRoughness, *metal.texture));
      metalTextured = true;
    }
  } else {
    VEX_TRY(SetConstant(target, gltf::metallicFactor, 0.0));
  }

  VEX_ASSIGN(const auto reflection, Read<double>(source, cv::reflection_weight));
  if (reflection.IsConstant() && BitsEqual(reflection.value, 0.0)) return {};

  VEX_ASSIGN(const auto roughness, Read<double>(source, cv::reflection_roughness));
  if (roughness.IsConstant()) return SetConstant(target, gltf::roughnessFactor, roughness.value);
  VEX_TRY(SetConstant(target, gltf::roughnessFactor, 1.0));
  return Collect(collected, cv::reflection_roughness, metalTextured ? role::kRoughness : role::kMetalRoughness,
                 *roughness.texture);
}

vex::Result<void> ExportEmissionNormalOcclusion(const vex::ParameterSet* source, vex::ParameterSet& target,
                                                CollectedTextures& collected) {
  VEX_ASSIGN(const auto emissionWeight, Read<double>(source, cv::emission_weight));
  if (emissionWeight.IsConstant()) {
    const double w = std::clamp(emissionWeight.value, 0.0, 1.0);
    VEX_ASSIGN(const auto emission, Read<vex::Color>(source, cv::emission_color));
    const vex::Color& c = emission.value;
    if (emission.IsConstant()) {
      VEX_TRY(SetConstant(target, gltf::emissiveFactor, vex::Color{w * c.r, w * c.g, w * c.b}));
    } else {
      VEX_TRY(Collect(collected, cv::emission_color, role::kEmissive, *emission.texture));
      VEX_TRY(SetConstant(target, gltf::emissiveFactor, vex::Color{w, w, w}));
    }
  }

  VEX_ASSIGN(const auto normalSpace, Read<std::string>(source, cv::normal_space));
  if (normalSpace.value == cv::values::normal_space::space_rgb_tangent) {
    VEX_ASSIGN(const auto normalWeight, Read<double>(source, cv::overall_normal_weight));
    VEX_TRY(SetConstant(target, gltf::normalScale, normalWeight.value));
    if (normalWeight.value > 0.0) {
      VEX_ASSIGN(const auto normal, Read<vex::Color>(source, cv::overall_normal));
      if (!normal.IsConstant()) VEX_TRY(Collect(collected, cv::overall_normal, role::kNormal, *normal.texture));
    }
  } else {
    VEX_DIAGNOSTIC("Corvane Material Export: Normal maps can only be exported in tangent space");
  }

  VEX_ASSIGN(const auto tint, Read<vex::Color>(source, cv::overall_tint));
  if (tint.IsConstant()) return {};
  VEX_TRY(Collect(collected, cv::overall_tint, role::kOcclusion, *tint.texture));
  return SetConstant(target, gltf::occlusionStrength, 1.0);
}

vex::Result<vex::MappingOutput> ExportToGltf(const vex::ParameterSet* source) {
  VEX_ASSIGN(auto target, MakeTarget(vex::bundle::kGltf));
  CollectedTextures collected;
  VEX_TRY(ExportBaseColorAndOpacity(source, *target, collected));
  VEX_TRY(ExportMetalnessAndRoughness(source, *target, collected));
  VEX_TRY(ExportEmissionNormalOcclusion(source, *target, collected));
  VEX_TRY(CombineTextures(collected, *target));
  return vex::MappingOutput{std::move(target), {}};
}

// --- import: glTF to Corvane ------------------------------------------------------------------

/// The baked texture of a port (the material's own entry, else the bundle default's); the
/// constant beside it is not needed, so any constant type is accepted.
std::optional<vex::TextureBuffer> TextureOf(const vex::ParameterSet& source, std::string_view port) {
  bool present = false;
  const vex::Parameter* entry = FindWithFallback(source, BundleDefaults(source.GetBundle()), port, present);
  return entry != nullptr ? entry->texture : std::nullopt;
}

/// A Corvane entry carrying an imported glTF texture. `channel` is empty when the whole colour
/// is used; `valueScale` is the glTF factor that multiplies the channel.
vex::Parameter ImportedTexture(vex::PackedConstantParameter constant, const vex::TextureBuffer& texture,
                               std::string_view colorSpace, std::string_view channel, double valueScale) {
  vex::Parameter p = vex::Parameter::Textured(std::move(constant), texture);
  p.properties.Set("colorSpace", std::string(colorSpace));
  if (!channel.empty()) p.properties.Set("channelSelect", std::string(channel));
  p.properties.Set("makeImplicit", true);
  p.properties.Set("valueScale", valueScale);
  return p;
}

vex::Result<void> ImportScalar(const vex::ParameterSet* source, vex::ParameterSet& target, std::string_view factorPort,
                               const std::optional<vex::TextureBuffer>& texture, std::string_view channel,
                               std::string_view targetPort) {
  VEX_ASSIGN(const auto factor, Read<double>(source, factorPort));
  if (!texture) return SetConstant(target, targetPort, factor.value);
  return Set(target, targetPort,
             ImportedTexture(vex::PackedConstantParameter(factor.value), *texture, "raw", channel, factor.value));
}

vex::Result<vex::MappingOutput> ImportFromGltf(const vex::ParameterSet* source) {
  VEX_ASSIGN(auto target, MakeTarget(vex::bundle::kCorvane));
  vex::ParameterSet& t = *target;

  // Base colour: the factor stays as the constant beside the texture, where it tints it.
  VEX_ASSIGN(const auto baseFactor, Read<vex::ColorA>(source, gltf::baseColorFactor));
  const vex::ColorA& f = baseFactor.value;
  const auto baseTexture = TextureOf(*source, gltf::baseColorTexture);
  const vex::Color baseColor{f.r, f.g, f.b};
  if (baseTexture) {
    VEX_TRY(Set(t, cv::diffuse_color,
                ImportedTexture(vex::PackedConstantParameter(baseColor), *baseTexture, "sRGB", {}, 1.0)));
  } else {
    VEX_TRY(SetConstant(t, cv::diffuse_color, baseColor));
  }

  // Opacity: glTF keeps it in the alpha of the base colour. "MASK" is reported and then treated
  // as if the set gave no alpha mode: the bundle's default decides.
  VEX_ASSIGN(auto alphaMode, Read<std::string>(source, gltf::alphaMode));
  if (alphaMode.value == gltf::values::alphaMode::MASK) {
    VEX_DIAGNOSTIC("AlphaMode == MASK is not implemented yet!");
    const vex::ParameterSet* defaults = BundleDefaults(source->GetBundle());
    const vex::Parameter* absent = defaults ? defaults->Find(gltf::alphaMode) : nullptr;
    VEX_ASSIGN(alphaMode.value, vex::GetTypedConstant<std::string>(absent));
  }
  if (alphaMode.value == gltf::values::alphaMode::BLEND) {
    const vex::Color alpha{f.a, f.a, f.a};
    if (baseTexture) {
      // glTF stores alpha linearly whatever the colour channels' encoding: the opacity reads it raw.
      VEX_TRY(Set(t, cv::opacity, ImportedTexture(vex::PackedConstantParameter(alpha), *baseTexture, "raw", "a", f.a)));
    } else {
      VEX_TRY(SetConstant(t, cv::opacity, alpha));
    }
  } else if (alphaMode.value == gltf::values::alphaMode::OPAQUE) {
    vex::Parameter opaque = vex::Parameter::Constant(vex::Color{1.0, 1.0, 1.0});
    opaque.properties.Set("mute", true);
    VEX_TRY(Set(t, cv::opacity, std::move(opaque)));
  }

  // Roughness in green, metal in blue of the one packed texture. glTF's metal factor means
  // something to the renderer only in its metalness Fresnel mode, which is the Corvane bundle's
  // default: the imported set needs no Fresnel port of its own.
  const auto metalRoughness = TextureOf(*source, gltf::metallicRoughnessTexture);
  VEX_TRY(ImportScalar(source, t, gltf::roughnessFactor, metalRoughness, "g", cv::reflection_roughness));
  VEX_TRY(ImportScalar(source, t, gltf::metallicFactor, metalRoughness, "b", cv::metalness));

  VEX_ASSIGN(const auto normalScale, Read<double>(source, gltf::normalScale));
  if (const auto normal = TextureOf(*source, gltf::normalTexture)) {
    // The scale is the normal weight below; scaling the encoded vectors as well would tilt them.
    VEX_TRY(Set(t, cv::overall_normal, ImportedTexture(vex::PackedConstantParameter(vex::Color{0.5, 0.5, 1.0}),
                                                     *normal, "raw", {}, 1.0)));
  }
  VEX_TRY(SetConstant(t, cv::overall_normal_weight, normalScale.value));

  VEX_ASSIGN(const auto occlusionStrength, Read<double>(source, gltf::occlusionStrength));
  if (const auto occlusion = TextureOf(*source, gltf::occlusionTexture)) {
    VEX_TRY(Set(t, cv::overall_tint, ImportedTexture(vex::PackedConstantParameter(vex::Color{1.0, 1.0, 1.0}),
                                                   *occlusion, "raw", "r", occlusionStrength.value)));
  }

  VEX_ASSIGN(const auto emissiveFactor, Read<vex::Color>(source, gltf::emissiveFactor));
  if (const auto emissive = TextureOf(*source, gltf::emissiveTexture)) {
    VEX_TRY(Set(t, cv::emission_color,
                ImportedTexture(vex::PackedConstantParameter(emissiveFactor.value), *emissive, "sRGB", {}, 1.0)));
  } else {
    VEX_TRY(SetConstant(t, cv::emission_color, emissiveFactor.value));
  }
  VEX_TRY(SetConstant(t, cv::emission_weight, 1.0));
  return vex::MappingOutput{std::move(target), {}};
}

class CorvaneToGltfPbr final : public MappingBase {
 public:
  CorvaneToGltfPbr() : MappingBase(classid::kCorvaneToGltfPbr, vex::bundle::kCorvane, vex::bundle::kGltf) {}

  /// Accepts Corvane sets (export) and glTF sets (import).
  vex::Result<void> PassOne(const vex::ParameterSet& source) const override {
    if (source.GetBundle() == vex::bundle::kGltf) return {};
    return MappingBase::PassOne(source);
  }

  vex::Result<vex::MappingOutput> MapMaterialData(const vex::ParameterSetRef& source) override {
    if (source != nullptr && source->GetBundle() != vex::bundle::kCorvane) {
      VEX_TRY(PassOne(*source));
      return ImportFromGltf(source.get());
    }
    return ExportToGltf(source.get());
  }
};

}  // namespace

// --- texture combining ------------------------------------------------------------------------

vex::Result<void> CombineTextures(CollectedTextures& collected, vex::ParameterSet& target) {
  const vex::TextureBuffer* transmission = nullptr;
  const vex::TextureBuffer* baseColor = nullptr;
  const vex::TextureBuffer* opacity = nullptr;
  const vex::TextureBuffer* metal = nullptr;
  const vex::TextureBuffer* roughness = nullptr;
  const vex::TextureBuffer* occlusion = nullptr;
  for (const auto& [source, entry] : collected) {
    const auto* buffer = entry.texture.Get<vex::TextureBuffer>();
    if (buffer == nullptr) return VEX_FAIL(vex::ErrorKind::WrongDataType, std::string(vex::kInvalidTypedConstant));
    if (entry.source == cv::transmission_weight) transmission = buffer;
    if (entry.role == role::kBaseColor) baseColor = buffer;
    else if (entry.role == role::kOpacity) opacity = buffer;
    else if (entry.role == role::kMetalRoughness) metal = buffer;
    else if (entry.role == role::kRoughness) roughness = buffer;
    else if (entry.role == role::kOcclusion) occlusion = buffer;
    else VEX_TRY(StoreTexture(target, entry.role, *buffer));
  }

  // Every check comes before the first pixel is touched, so a failed run leaves the buffers as
  // they were. The pixel loops themselves cannot fail on checked buffers.
  std::shared_ptr<vex::PixelArray> opPixels;
  std::shared_ptr<vex::PixelArray> bcPixels;
  if (opacity != nullptr) {
    opPixels = opacity->_pixels;
    VEX_CHECK_STATE(opPixels);
    if (baseColor != nullptr) {
      const vex::TextureBuffer& bcTexBuffer = *baseColor;
      bcPixels = bcTexBuffer._pixels;
      VEX_CHECK_STATE(bcPixels);
      // Sizes before counts: two images of different sizes report their sizes; the count check
      // catches a buffer whose pixel array does not match its own size.
      const vex::Dimensions opDims = opacity->_dimensions;
      VEX_CHECK_STATE(opDims.IsEqual(bcTexBuffer._dimensions, 0));
      VEX_CHECK_STATE(opPixels->GetCount() == bcPixels->GetCount());
    }
  }
  std::shared_ptr<vex::PixelArray> metPixels;
  std::shared_ptr<vex::PixelArray> roughPixels;
  if (metal != nullptr) {
    metPixels = metal->_pixels;
    VEX_CHECK_STATE(metPixels);
    if (roughness != nullptr) {
      roughPixels = roughness->_pixels;
      VEX_CHECK_STATE(roughPixels);
      VEX_CHECK_STATE(metPixels->GetCount() == roughPixels->GetCount());
    }
  }
  std::shared_ptr<vex::PixelArray> occlPixels;
  if (occlusion != nullptr) {
    occlPixels = occlusion->_pixels;
    VEX_CHECK_STATE(occlPixels);
  }

  if (transmission != nullptr && transmission->_pixels) VEX_TRY(InvertRgb(*transmission->_pixels));

  if (opacity != nullptr && baseColor != nullptr) {
    VEX_TRY(OpacityIntoAlpha(*bcPixels, *opPixels));
    VEX_TRY(StoreTexture(target, role::kBaseColor, *baseColor));
  } else if (opacity != nullptr) {
    VEX_TRY(WhiteWithMeanAlpha(*opPixels));
    VEX_TRY(StoreTexture(target, role::kBaseColor, *opacity));
  } else if (baseColor != nullptr) {
    VEX_TRY(StoreTexture(target, role::kBaseColor, *baseColor));
  }

  if (metal != nullptr) {
    // Without a separate roughness texture the one buffer keeps its green as roughness, whether
    // it came from roughness or from metalness.
    if (roughness != nullptr) VEX_TRY(MetalRoughness(*metPixels, *roughPixels));
    else VEX_TRY(GreenAsRoughness(*metPixels));
    VEX_TRY(StoreTexture(target, role::kMetalRoughness, *metal));
  }

  if (occlusion != nullptr) {
    VEX_TRY(Occlusion(*occlPixels));
    VEX_TRY(StoreTexture(target, role::kOcclusion, *occlusion));
  }

  collected.clear();
  return {};
}

vex::Result<vex::ComponentRef> CreateCorvaneToGltfPbr() { return vex::MakeComponent<CorvaneToGltfPbr>(); }

}  // namespace interop::mapping
