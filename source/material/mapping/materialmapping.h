// What every material mapping shares: reading source ports (constant or
// textured, with the source bundle's defaults as fallback), writing target
// ports, the mapping component base with TransferParam, and the parallel
// pixel loop on the host's parallel-for.
#pragma once

#include <cstdint>
#include <new>
#include <optional>
#include <string>
#include <string_view>

#include "vex/datatypebase.h"
#include "vex/host.h"
#include "vex/interfaces.h"
#include "vex/material.h"

namespace interop::mapping {

/// A source port as a mapping reads it: the constant (for a textured port, the constant stored
/// beside the texture), the baked texture when there is one, and whether the material itself
/// holds the port (false: the value came from the bundle's defaults).
template <class T>
struct PortValue {
  T value{};
  std::optional<vex::TextureBuffer> texture;
  bool present = false;
  bool IsConstant() const { return !texture.has_value(); }
};

/// Get: the T value of a port of a set. Fails with
/// "Illegal state: Condition parametersPtr != nullptr not fulfilled. " without a set, and with the
/// typed-read failures of the data system ("parameterDataPtr", "Invalid TypedConstantParameter").
template <class T>
vex::Result<T> Get(const vex::ParameterSet* parametersPtr, std::string_view port) {
  VEX_CHECK_STATE(parametersPtr != nullptr);
  return vex::ReadTyped<T>(*parametersPtr, port);
}

/// The entry a read uses: the set's own, else the default set's (either may be absent).
inline const vex::Parameter* FindWithFallback(const vex::ParameterSet& set, const vex::ParameterSet* defaults,
                                              std::string_view port, bool& present) {
  present = set.Has(port);
  if (present) return set.Find(port);
  return defaults ? defaults->Find(port) : nullptr;
}

/// The default parameter set of a bundle from the host's port-bundle registry (nullptr if unknown).
const vex::ParameterSet* BundleDefaults(const vex::Id& bundle);

/// Get with fallback, constant-or-textured: the port of the set, else of the default set of the
/// set's own bundle. Only when both lack it is the typed-read error returned.
template <class T>
vex::Result<PortValue<T>> Read(const vex::ParameterSet* parametersPtr, std::string_view port) {
  VEX_CHECK_STATE(parametersPtr != nullptr);
  PortValue<T> out;
  const vex::Parameter* entry =
      FindWithFallback(*parametersPtr, BundleDefaults(parametersPtr->GetBundle()), port, out.present);
  auto value = vex::GetTypedConstant<T>(entry);
  if (!value) return std::unexpected(std::move(value).error());
  out.value = *value;
  if (entry->texture) out.texture = entry->texture;
  return out;
}

/// Set: inserts or replaces the entry under the port; the only failure is lack of memory.
vex::Result<void> Set(vex::ParameterSet& target, std::string_view port, vex::Parameter parameter);

template <class T>
vex::Result<void> SetConstant(vex::ParameterSet& target, std::string_view port, T value) {
  return Set(target, port, vex::Parameter::Constant(std::move(value)));
}

/// A constant with its texture (when one is given): what a textured target port holds.
template <class T>
vex::Result<void> SetValue(vex::ParameterSet& target, std::string_view port, T value,
                           const std::optional<vex::TextureBuffer>& texture) {
  vex::Parameter p = vex::Parameter::Constant(std::move(value));
  p.texture = texture;
  return Set(target, port, std::move(p));
}

/// A new, empty target set tagged with the bundle (the tag comes before any parameter).
vex::Result<std::shared_ptr<vex::ParameterSet>> MakeTarget(std::string_view bundle);

/// Runs body(begin, end) over [0, count) pixels on the host's parallel-for and waits.
vex::Result<void> ForEachPixel(std::size_t count, vex::FunctionRef<void(std::int64_t, std::int64_t)> body);

/// Base of every mapping class: identity, description, PassOne and the two transfers.
class MappingBase : public vex::ComponentBase<vex::IMaterialMapping> {
 public:
  MappingBase(std::string_view classId, std::string_view sourceBundle, std::string_view targetBundle)
      : classId_(classId), description_{vex::Id(sourceBundle), vex::Id(targetBundle)} {}

  std::string_view ClassId() const override { return classId_; }
  vex::MaterialMappingDescription GetDescription() const override { return description_; }
  /// Accepts a set of the source bundle.
  vex::Result<void> PassOne(const vex::ParameterSet& source) const override;
  vex::Result<void> TransferParam(const vex::ParameterSet& source, vex::ParameterSet& target,
                                  std::string_view sourcePort, std::string_view targetPort) override;
  vex::Result<void> TransferParamWithConvertion(const vex::ParameterSet& source, vex::ParameterSet& target,
                                                std::string_view sourcePort, std::string_view targetPort,
                                                const vex::ParameterConversion& conversion) override;

 protected:
  std::string classId_;
  vex::MaterialMappingDescription description_;
};

}  // namespace interop::mapping
