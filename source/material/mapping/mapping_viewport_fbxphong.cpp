// Viewport material to FBX surface Phong. Three branches, one per viewport
// material type, and a shared emission/transparency block for the lit two.
// Formulas run on the constants; textures travel to their target port as they
// are. With g_viewportFBXMappingPath set, each run dumps its input and output.
#include <algorithm>
#include <cmath>
#include <string>

#include "material/mapping/configuration.h"
#include "material/mapping/mapping_viewport.h"
#include "material/mapping/mappings.h"
#include "material/mapping/materialmapping.h"

namespace interop::mapping {
namespace {

using namespace viewport;

/// "shininess" from "specular.roughness": 2^((1 - r) * 10), with r clamped to [0, 1] for metals
/// only. Dielectrics keep an unclamped roughness on purpose: above 1 it gives a shininess below
/// 1, where a metal's stays at 1. An absent roughness gives 0.
vex::Result<void> Shininess(Reader& in, vex::ParameterSet& target, bool clampRoughness) {
  VEX_ASSIGN(const auto roughness, in.Read<double>(kSpecularRoughness));
  if (!roughness.present) {
    VEX_TRY(in.Record(kSpecularRoughness, vex::PackedConstantParameter(0.0), "shininess"));
    return SetConstant(target, "shininess", 0.0);
  }
  const double r = clampRoughness ? std::clamp(roughness.value, 0.0, 1.0) : roughness.value;
  return SetValue(target, "shininess", std::exp2((1.0 - r) * 10.0), roughness.texture);
}

vex::Result<void> NormalMap(Reader& in, vex::ParameterSet& target, std::initializer_list<NormalPorts> candidates) {
  VEX_ASSIGN(const auto chosen, ChooseNormal(in, candidates, "normalMap"));
  if (!chosen) return {};
  return SetValue(target, "normalMap", chosen->normal.value, chosen->normal.texture);
}

/// Emission, then transparency: alpha is an opacity and is inverted; only a present alpha of 1 or
/// more hands the decision to "transmissivity ", which is a transparency and is used as it is.
vex::Result<void> EmissionAndTransparency(Reader& in, vex::ParameterSet& target) {
  VEX_TRY(Pass<vex::Color>(in, target, kEmissionColor, "emissive"));
  VEX_TRY(Pass<double>(in, target, kEmissionColorWeight, "emissiveFactor"));

  VEX_ASSIGN(const auto alpha, in.Read<double>(kAlpha));
  double transparency = 0.0;
  if (alpha.present) transparency = 1.0 - std::clamp(alpha.value, 0.0, 1.0);
  else VEX_TRY(in.Record(kAlpha, vex::PackedConstantParameter(0.0), "transparentColor"));
  VEX_TRY(SetValue(target, "transparentColor", kBlack, alpha.texture));
  VEX_TRY(SetConstant(target, "transparencyFactor", transparency));
  // A NaN alpha leaves a NaN transparency, which is not 0.
  if (!alpha.present || transparency != 0.0) return {};

  VEX_ASSIGN(const auto transmissivity, in.Read<double>(kTransmissivity));
  double t = 0.0;
  if (transmissivity.present) t = transmissivity.value;
  else VEX_TRY(in.Record(kTransmissivity, vex::PackedConstantParameter(0.0), "transparentColor"));
  VEX_TRY(SetValue(target, "transparentColor", kBlack, transmissivity.texture));
  return SetConstant(target, "transparencyFactor", t);
}

/// Unlit colour: only the emission counts.
vex::Result<void> ConstantBranch(Reader& in, vex::ParameterSet& target) {
  VEX_TRY(Pass<vex::Color>(in, target, kEmissionColor, "emissive"));
  VEX_TRY(SetConstant(target, "emissiveFactor", 1.0));
  VEX_TRY(SetConstant(target, "diffuse", kBlack));
  VEX_TRY(SetConstant(target, "diffuseFactor", 0.0));
  VEX_TRY(SetConstant(target, "specular", kBlack));
  VEX_TRY(SetConstant(target, "specularFactor", 0.0));
  VEX_TRY(SetConstant(target, "shininess", 0.0));
  VEX_TRY(SetConstant(target, "reflection", kBlack));
  return SetConstant(target, "reflectionFactor", 0.0);
}

/// A metal reflects its specular colour and has no diffuse or Phong specular lobe.
vex::Result<void> MetalBranch(Reader& in, vex::ParameterSet& target) {
  // Written first so that the port comes first; the specular weight overwrites it below.
  VEX_TRY(SetConstant(target, "reflectionFactor", 1.0));
  VEX_TRY(SetConstant(target, "diffuse", kBlack));
  VEX_TRY(SetConstant(target, "diffuseFactor", 0.0));
  VEX_TRY(SetConstant(target, "specular", kBlack));
  VEX_TRY(SetConstant(target, "specularFactor", 0.0));
  VEX_TRY(Pass<vex::Color>(in, target, kSpecularColor, "reflection"));
  VEX_TRY(Pass<double>(in, target, kSpecularColorWeight, "reflectionFactor"));
  VEX_TRY(NormalMap(in, target, {{kSpecularNormal, kSpecularNormalWeight}}));
  VEX_TRY(Shininess(in, target, true));
  return EmissionAndTransparency(in, target);
}

/// A dielectric (also an absent or unknown type): diffuse and Phong specular, no reflection.
vex::Result<void> DielectricBranch(Reader& in, vex::ParameterSet& target) {
  VEX_TRY(SetConstant(target, "reflection", kBlack));
  VEX_TRY(SetConstant(target, "reflectionFactor", 0.0));
  VEX_TRY(EmissionAndTransparency(in, target));
  VEX_TRY(Pass<vex::Color>(in, target, kBaseColor, "diffuse"));
  VEX_TRY(Pass<double>(in, target, kBaseColorWeight, "diffuseFactor"));
  VEX_TRY(Pass<vex::Color>(in, target, kSpecularColor, "specular"));
  VEX_TRY(Pass<double>(in, target, kSpecularColorWeight, "specularFactor"));
  VEX_TRY(Shininess(in, target, false));
  return NormalMap(in, target, {{kSpecularNormal, kSpecularNormalWeight}, {kBaseNormal, kBaseNormalWeight}});
}

class ViewportToFbxPhong final : public MappingBase {
 public:
  ViewportToFbxPhong() : MappingBase(classid::kViewportToFbxPhong, vex::bundle::kViewport, vex::bundle::kFbxPhong) {}

  /// With g_viewportFBXMappingPath set, the run's input is kept at the start and, at the end,
  /// written with the output into that directory; a failed write is the run's error (the output
  /// is complete by then, but not returned).
  vex::Result<vex::MappingOutput> MapMaterialData(const vex::ParameterSetRef& source) override {
    if (!SettingValue(kViewportFbxMappingPath).empty()) {
      keptBundle_ = vex::Id(vex::bundle::kViewport);
      kept_ = source;
    }
    const auto& bundles = *vex::Host().bundles;
    VEX_ASSIGN(const vex::PortBundle* sourceBundle, bundles.Find(vex::bundle::kViewport));
    VEX_TRY(bundles.Find(vex::bundle::kFbxPhong));
    const vex::ParameterSet* parametersPtr = source.get();
    VEX_CHECK_STATE(parametersPtr != nullptr);

    VEX_ASSIGN(auto target, MakeTarget(vex::bundle::kFbxPhong));
    Reader in(*parametersPtr, *sourceBundle);
    VEX_ASSIGN(const auto type, in.ReadType());
    switch (type ? Classify(*type) : MaterialType::Absent) {
      case MaterialType::Constant:
        VEX_TRY(ConstantBranch(in, *target));
        break;
      case MaterialType::Metal:
        VEX_TRY(MetalBranch(in, *target));
        break;
      case MaterialType::Dielectric:
      case MaterialType::Absent:
      case MaterialType::Unknown:
        VEX_TRY(DielectricBranch(in, *target));
        break;
      case MaterialType::Colliding:
        // A foreign id that only looks like a known type: nothing is converted, and that is no error.
        break;
    }
    VEX_ASSIGN(auto defaults, in.Table());

    if (const std::string directory = SettingValue(kViewportFbxMappingPath); !directory.empty() && kept_ != nullptr)
      VEX_TRY(WriteMappingDump(directory, *kept_, *target, keptBundle_));
    return vex::MappingOutput{std::move(target), std::move(defaults)};
  }

 private:
  // The source bundle and input of the last run started while the mapping path was set: what
  // the dump writes.
  vex::Id keptBundle_;
  vex::ParameterSetRef kept_;
};

}  // namespace

vex::Result<vex::ComponentRef> CreateViewportToFbxPhong() { return vex::MakeComponent<ViewportToFbxPhong>(); }

}  // namespace interop::mapping
