#include "material/mapping/materialmapping.h"

#include <new>

namespace interop::mapping {

const vex::ParameterSet* BundleDefaults(const vex::Id& bundle) {
  auto found = vex::Host().bundles->Find(bundle.View());
  return found ? &(*found)->defaults : nullptr;
}

vex::Result<void> Set(vex::ParameterSet& target, std::string_view port, vex::Parameter parameter) {
  try {
    target.Set(port, std::move(parameter));
  } catch (const std::bad_alloc&) {
    return VEX_FAIL(vex::ErrorKind::OutOfMemory, "Out of memory");
  }
  return {};
}

vex::Result<std::shared_ptr<vex::ParameterSet>> MakeTarget(std::string_view bundle) {
  auto set = std::shared_ptr<vex::ParameterSet>(new (std::nothrow) vex::ParameterSet(vex::Id(bundle)));
  if (!set) return VEX_FAIL(vex::ErrorKind::OutOfMemory, "Out of memory");
  return set;
}

vex::Result<void> ForEachPixel(std::size_t count, vex::FunctionRef<void(std::int64_t, std::int64_t)> body) {
  // 16384 pixels (256 KiB) a task: large enough to stream, small enough to balance two cores.
  constexpr std::int64_t kGrain = 1 << 14;
  return vex::Host().parallel->ParallelFor(static_cast<std::int64_t>(count), body, kGrain);
}

vex::Result<void> MappingBase::PassOne(const vex::ParameterSet& source) const {
  if (source.GetBundle() != description_.sourceBundle)
    return VEX_FAIL(vex::ErrorKind::IllegalArgument, "Illegal argument: parameter set of bundle " +
                                                         source.GetBundle().Str() + " cannot be mapped by " +
                                                         classId_);
  return {};
}

vex::Result<void> MappingBase::TransferParam(const vex::ParameterSet& source, vex::ParameterSet& target,
                                             std::string_view sourcePort, std::string_view targetPort) {
  bool present = false;
  const vex::Parameter* entry =
      FindWithFallback(source, BundleDefaults(source.GetBundle()), sourcePort, present);
  VEX_CHECK_STATE(entry != nullptr);
  return Set(target, targetPort, *entry);
}

vex::Result<void> MappingBase::TransferParamWithConvertion(const vex::ParameterSet& source,
                                                           vex::ParameterSet& target, std::string_view sourcePort,
                                                           std::string_view targetPort,
                                                           const vex::ParameterConversion& conversion) {
  bool present = false;
  const vex::Parameter* entry =
      FindWithFallback(source, BundleDefaults(source.GetBundle()), sourcePort, present);
  VEX_CHECK_STATE(entry != nullptr);
  VEX_ASSIGN(vex::Parameter converted, conversion(*entry));
  return Set(target, targetPort, std::move(converted));
}

}  // namespace interop::mapping
