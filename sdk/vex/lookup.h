// Lookups through the host's component system: the mapping between two port
// bundles, the exporter of a material type.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "vex/host.h"
#include "vex/interfaces.h"

namespace vex {

/// The mapping class from one bundle to another, from the mapper registry, instantiated.
/// NotFound ("No material mapping from <a> to <b>") when no registered mapping matches.
inline Result<std::shared_ptr<IMaterialMapping>> FindMapping(std::string_view sourceBundle,
                                                             std::string_view targetBundle) {
  auto& components = *Host().components;
  for (const auto& entry : components.GetRegistryEntries(registry::kMaterialMappers)) {
    const auto* d = entry.record.Get<MaterialMappingDescription>();
    if (!d || d->sourceBundle != sourceBundle || d->targetBundle != targetBundle) continue;
    auto instance = components.CreateInstance(entry.id);
    if (!instance) return std::unexpected(std::move(instance).error());
    auto mapping = Query<IMaterialMapping>(*instance);
    if (!mapping)
      return VEX_FAIL(ErrorKind::WrongDataType, "Class " + entry.id + " does not implement " +
                                                    std::string(IMaterialMapping::kInterfaceId));
    return mapping;
  }
  return VEX_FAIL(ErrorKind::NotFound,
                  "No material mapping from " + std::string(sourceBundle) + " to " + std::string(targetBundle));
}

/// Instantiates a published class and returns its interface I.
template <class I>
Result<std::shared_ptr<I>> CreateAs(std::string_view classId) {
  auto instance = Host().components->CreateInstance(classId);
  if (!instance) return std::unexpected(std::move(instance).error());
  auto typed = Query<I>(*instance);
  if (!typed)
    return VEX_FAIL(ErrorKind::WrongDataType,
                    "Class " + std::string(classId) + " does not implement " + std::string(I::kInterfaceId));
  return typed;
}

}  // namespace vex
