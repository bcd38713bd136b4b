// Viewport material to glTF 2.0 metallic-roughness. The type chooses between
// an unlit body (emission only, on a black base) and a lit body (metal or
// dielectric). Constants become glTF factors; textures are collected by glTF
// role and packed at the end by the glTF texture combining pass.
#include <algorithm>
#include <string>

#include "material/mapping/mapping_corvane_gltfpbr.h"
#include "material/mapping/mapping_viewport.h"
#include "material/mapping/mappings.h"
#include "material/mapping/materialmapping.h"

namespace interop::mapping {
namespace {

using namespace viewport;

constexpr std::string_view kRoleBaseColor = "baseColorTexture";
constexpr std::string_view kRoleOpacity = "opacity";
constexpr std::string_view kRoleMetalRoughness = "metallicRoughnessTexture";
constexpr std::string_view kRoleEmissive = "emissiveTexture";
constexpr std::string_view kRoleNormal = "normalTexture";

vex::Result<void> Collect(CollectedTextures& collected, std::string_view source, std::string_view role,
                          const vex::TextureBuffer& texture) {
  try {
    collected.insert_or_assign(std::string(source), FileTexture(source, role, texture));
  } catch (const std::bad_alloc&) {
    return VEX_FAIL(vex::ErrorKind::OutOfMemory, "Out of memory");
  }
  return {};
}

/// glTF keeps emissive factors in [0, 1]; a brighter emission goes into "emissiveStrength".
vex::Result<void> SetEmissive(vex::ParameterSet& target, vex::Color factor) {
  const double strength = std::max({factor.r, factor.g, factor.b});
  if (strength > 1.0) {
    factor = {factor.r / strength, factor.g / strength, factor.b / strength};
    VEX_TRY(SetConstant(target, "emissiveStrength", strength));
  }
  return SetConstant(target, "emissiveFactor", factor);
}

/// Emission colour times its weight; a weight of 0 or less gives black. A textured colour goes to
/// "emissiveTexture" with the weight as its factor.
vex::Result<void> Emission(Reader& in, vex::ParameterSet& target, CollectedTextures& collected) {
  VEX_ASSIGN(const auto weight, in.Take<double>(kEmissionColorWeight, "emissiveFactor"));
  VEX_ASSIGN(const auto color, in.Take<vex::Color>(kEmissionColor, "emissiveFactor"));
  const double w = weight.value;
  if (!(w > 0.0)) return SetConstant(target, "emissiveFactor", kBlack);
  if (color.IsConstant()) return SetEmissive(target, {w * color.value.r, w * color.value.g, w * color.value.b});
  VEX_TRY(Collect(collected, kEmissionColor, kRoleEmissive, *color.texture));
  return SetEmissive(target, {w, w, w});
}

vex::Result<void> ConstantBody(Reader& in, vex::ParameterSet& target, CollectedTextures& collected) {
  VEX_TRY(SetConstant(target, "baseColorFactor", vex::ColorA{0.0, 0.0, 0.0, 1.0}));
  VEX_TRY(SetConstant(target, "metallicFactor", 0.0));
  VEX_TRY(SetConstant(target, "roughnessFactor", 1.0));
  VEX_TRY(SetConstant(target, "alphaMode", std::string("OPAQUE")));
  return Emission(in, target, collected);
}

/// The opacity as the USD mapping has it: alpha clamped; a present alpha of exactly 1 hands the
/// decision to "transmissivity ", inverted and clamped. Returns the constant opacity and whether
/// an opacity texture was collected.
vex::Result<std::pair<double, bool>> Opacity(Reader& in, vex::ParameterSet& target, CollectedTextures& collected) {
  VEX_ASSIGN(const auto alpha, in.Take<double>(kAlpha, "opacity"));
  double opacity = std::clamp(alpha.value, 0.0, 1.0);
  bool textured = false;
  if (!alpha.IsConstant()) {
    VEX_TRY(Collect(collected, kAlpha, kRoleOpacity, *alpha.texture));
    textured = true;
  } else if (alpha.present && opacity == 1.0) {
    VEX_ASSIGN(const auto transmissivity, in.Take<double>(kTransmissivity, "opacity"));
    opacity = 1.0 - std::clamp(transmissivity.value, 0.0, 1.0);
    if (!transmissivity.IsConstant())
      VEX_DIAGNOSTIC("Viewport Material Export: transmissivity textures are not exported to glTF");
  }
  VEX_TRY(SetConstant(target, "opacity", opacity));
  VEX_TRY(SetConstant(target, "alphaMode", std::string(textured || opacity < 1.0 ? "BLEND" : "OPAQUE")));
  return std::pair{opacity, textured};
}

vex::Result<void> LitBody(Reader& in, vex::ParameterSet& target, CollectedTextures& collected, bool typeHeld,
                          bool metal) {
  const double metallic = metal ? 1.0 : 0.0;
  VEX_TRY(SetConstant(target, "metallicFactor", metallic));
  if (!typeHeld) VEX_TRY(in.Record(kType, vex::PackedConstantParameter(metallic), "metallicFactor"));

  // Roughness is the green channel of the packed texture, scaled by the factor.
  VEX_ASSIGN(const auto roughness, in.Take<double>(kSpecularRoughness, "roughnessFactor"));
  if (roughness.IsConstant()) {
    VEX_TRY(SetConstant(target, "roughnessFactor", roughness.value));
  } else {
    VEX_TRY(SetConstant(target, "roughnessFactor", 1.0));
    VEX_TRY(Collect(collected, kSpecularRoughness, kRoleMetalRoughness, *roughness.texture));
  }

  VEX_ASSIGN(const auto opacity, Opacity(in, target, collected));
  // A textured opacity lands in the base colour texture's alpha; the factor's alpha stays 1 then.
  const double a = opacity.second ? 1.0 : opacity.first;
  VEX_ASSIGN(const auto weight, in.Take<double>(kBaseColorWeight, "baseColorFactor"));
  VEX_ASSIGN(const auto color, in.Take<vex::Color>(kBaseColor, "baseColorFactor"));
  const double w = weight.value;
  if (color.IsConstant()) {
    const vex::Color& c = color.value;
    VEX_TRY(SetConstant(target, "baseColorFactor", vex::ColorA{w * c.r, w * c.g, w * c.b, a}));
  } else {
    VEX_TRY(Collect(collected, kBaseColor, kRoleBaseColor, *color.texture));
    VEX_TRY(SetConstant(target, "baseColorFactor", vex::ColorA{w, w, w, a}));
  }

  // The viewport bundle's emission defaults (white at weight 1) describe an unlit colour, not a
  // glow: a lit material emits only when it sets one of its emission ports itself.
  VEX_ASSIGN(const auto emissionWeight, in.Read<double>(kEmissionColorWeight));
  VEX_ASSIGN(const auto emissionColor, in.Read<vex::Color>(kEmissionColor));
  if (emissionWeight.present || emissionColor.present) VEX_TRY(Emission(in, target, collected));

  // glTF has one normal texture and no constant normal: a chosen constant normal is not written.
  std::optional<ChosenNormal> normal;
  if (metal) {
    VEX_ASSIGN(normal, ChooseNormal(in, {{kSpecularNormal, kSpecularNormalWeight}}, "normalTexture"));
  } else {
    VEX_ASSIGN(normal, ChooseNormal(in, {{kSpecularNormal, kSpecularNormalWeight}, {kBaseNormal, kBaseNormalWeight}},
                                    "normalTexture"));
  }
  if (normal && !normal->normal.IsConstant()) {
    VEX_TRY(Collect(collected, normal->port, kRoleNormal, *normal->normal.texture));
    VEX_TRY(SetConstant(target, "normalScale", normal->weight));
  }
  return {};
}

class ViewportToGltfPbr final : public MappingBase {
 public:
  ViewportToGltfPbr() : MappingBase(classid::kViewportToGltfPbr, vex::bundle::kViewport, vex::bundle::kGltf) {}

  vex::Result<vex::MappingOutput> MapMaterialData(const vex::ParameterSetRef& source) override {
    const auto& bundles = *vex::Host().bundles;
    VEX_TRY(bundles.Find(vex::bundle::kGltf));
    VEX_ASSIGN(const vex::PortBundle* sourceBundle, bundles.Find(vex::bundle::kViewport));
    const vex::ParameterSet* parametersPtr = source.get();
    VEX_CHECK_STATE(parametersPtr != nullptr);

    VEX_ASSIGN(auto target, MakeTarget(vex::bundle::kGltf));
    Reader in(*parametersPtr, *sourceBundle);
    CollectedTextures collected;
    VEX_ASSIGN(const auto type, in.ReadType());
    switch (type ? Classify(*type) : MaterialType::Absent) {
      case MaterialType::Constant:
        VEX_TRY(ConstantBody(in, *target, collected));
        break;
      case MaterialType::Metal:
        VEX_TRY(LitBody(in, *target, collected, true, true));
        break;
      case MaterialType::Dielectric:
      case MaterialType::Unknown:
        VEX_TRY(LitBody(in, *target, collected, true, false));
        break;
      case MaterialType::Absent:
        VEX_TRY(LitBody(in, *target, collected, false, false));
        break;
      case MaterialType::Colliding:
        // A foreign id that only looks like a known type: nothing is converted, and that is no error.
        break;
    }
    VEX_TRY(CombineTextures(collected, *target));
    VEX_ASSIGN(auto defaults, in.Table());
    return vex::MappingOutput{std::move(target), std::move(defaults)};
  }
};

}  // namespace

vex::Result<vex::ComponentRef> CreateViewportToGltfPbr() { return vex::MakeComponent<ViewportToGltfPbr>(); }

}  // namespace interop::mapping
