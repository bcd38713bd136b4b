#include "host/formats/conversion.h"

#include "vex/lookup.h"

namespace host::formats {

vex::Result<vex::MappingOutput> MapSet(const vex::ParameterSetRef& set, std::string_view targetBundle) {
  VEX_ASSIGN(auto mapping, vex::FindMapping(set->GetBundle().View(), targetBundle));
  return mapping->MapMaterialData(set);
}

vex::Result<FormatSet> ToFormatBundle(const vex::ParameterSetRef& set, Format format, const ConvertOptions& options) {
  const auto accepted = AcceptedBundles(format);
  for (const auto bundle : accepted)
    if (set->GetBundle() == bundle) return FormatSet{set, false, {}, {}};
  std::optional<vex::Error> first;
  for (const auto bundle : accepted) {
    auto mapped = MapSet(set, bundle);
    if (!mapped) {
      if (mapped.error().kind != vex::ErrorKind::NotFound) return std::unexpected(std::move(mapped).error());
      if (!first) first = std::move(mapped).error();
      continue;
    }
    auto target = std::make_shared<vex::ParameterSet>(*mapped->target);
    FormatSet out{nullptr, true, std::move(mapped->defaults.entries), {}};
    if (format == Format::Gltf && set->GetBundle() == vex::bundle::kCorvane) {
      const auto* weight = set->Find("emission_weight");
      const auto* value = weight != nullptr && !weight->texture && weight->Constant() != nullptr
                              ? weight->Constant()->Get<double>()
                              : nullptr;
      if (value != nullptr && *value > 1.0) {
        if (options.emissiveStrength) target->SetConstant("emissiveStrength", *value);
        else
          out.warnings.push_back("emission weight " + FormatNumber(*value) +
                                 " was clamped to 1 (--emissive-strength keeps it)");
      }
    }
    out.set = std::move(target);
    return out;
  }
  return std::unexpected(std::move(*first));
}

vex::Result<vex::ParameterSetRef> ToCorvane(const vex::ParameterSetRef& set) {
  const vex::Id& bundle = set->GetBundle();
  if (bundle == vex::bundle::kCorvane) return set;
  if (bundle == vex::bundle::kGltf) {
    // The Corvane-glTF mapping serves both directions; a glTF set takes the import direction.
    VEX_ASSIGN(auto mapping, vex::FindMapping(vex::bundle::kCorvane, vex::bundle::kGltf));
    VEX_ASSIGN(auto output, mapping->MapMaterialData(set));
    return vex::ParameterSetRef(std::move(output.target));
  }
  return VEX_FAIL(vex::ErrorKind::NotFound,
                  "sets of " + bundle.Str() +
                      " reach the Corvane bundle only through the material importer, which is not available yet");
}

}  // namespace host::formats
