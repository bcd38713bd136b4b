#include "material/mapping/mapping_viewport.h"

#include <algorithm>
#include <bit>
#include <new>

namespace interop::mapping::viewport {

MaterialType Classify(const vex::InternedId& type) {
  struct Known {
    std::string_view name;
    MaterialType kind;
  };
  static constexpr Known kKnown[] = {
      {vp::values::type::constant, MaterialType::Constant},
      {vp::values::type::metal, MaterialType::Metal},
      {vp::values::type::dielectric, MaterialType::Dielectric}};
  const std::uint64_t hash = type.Hash();
  for (const auto& known : kKnown) {
    if (hash != vex::HashId(known.name)) continue;
    // Same hash: only the table's own entry is that type; any other id with this hash is foreign.
    return type == vex::InternedId::Intern(known.name) ? known.kind : MaterialType::Colliding;
  }
  return MaterialType::Unknown;
}

std::size_t DefaultsCapacity(std::size_t entries) { return std::bit_ceil((entries * 16 + 16) / 10 + 2); }

vex::Error ErrorHere(vex::ErrorKind kind, std::string message, std::source_location where) {
  return vex::MakeError(kind, std::move(message), vex::SourceUnit(where.file_name()),
                        static_cast<int>(where.line()));
}

vex::Result<std::optional<vex::InternedId>> Reader::ReadType() const {
  bool present = false;
  const vex::Parameter* entry = FindWithFallback(source_, &bundle_.defaults, vp::type, present);
  if (entry == nullptr) return std::optional<vex::InternedId>();
  VEX_ASSIGN(vex::InternedId type, vex::GetTypedConstant<vex::InternedId>(entry));
  return std::optional<vex::InternedId>(std::move(type));
}

vex::Result<void> Reader::Record(std::string_view sourcePort, vex::PackedConstantParameter value,
                                 std::string_view targetPort, std::source_location where) {
  try {
    const auto existing = std::ranges::find(recorded_, sourcePort, &vex::DefaultUse::sourcePort);
    vex::DefaultUse use{std::string(sourcePort), std::move(value), std::string(targetPort)};
    if (existing != recorded_.end()) *existing = std::move(use);
    else recorded_.push_back(std::move(use));
  } catch (const std::bad_alloc&) {
    return std::unexpected(ErrorHere(vex::ErrorKind::OutOfMemory, "Out of memory", where));
  }
  return {};
}

vex::Result<vex::DefaultsTable> Reader::Table(std::source_location where) const {
  vex::DefaultsTable table;
  table.capacity = DefaultsCapacity(recorded_.size());
  table.growThreshold = table.capacity * 10 / 16;
  try {
    table.entries.reserve(table.capacity);
    table.entries.assign(recorded_.begin(), recorded_.end());
  } catch (const std::bad_alloc&) {
    return std::unexpected(ErrorHere(vex::ErrorKind::OutOfMemory, "Out of memory", where));
  }
  return table;
}

vex::Result<std::optional<ChosenNormal>> ChooseNormal(Reader& in, std::initializer_list<NormalPorts> candidates,
                                                      std::string_view targetPort, std::source_location where) {
  bool anyTakesPart = false;
  std::optional<ChosenNormal> chosen;
  for (const auto& candidate : candidates) {
    VEX_ASSIGN(const auto weight, in.Read<double>(candidate.weight));
    // A NaN weight is not greater than 0: the normal stays out.
    if (weight.present && !(weight.value > 0.0)) continue;
    anyTakesPart = true;
    VEX_ASSIGN(auto normal, in.Take<vex::Vector3d>(candidate.normal, targetPort, where));
    const bool carries = normal.present && (normal.texture.has_value() || normal.value != vex::Vector3d{});
    if (carries && !chosen)
      chosen = ChosenNormal{candidate.normal, std::move(normal), weight.present ? weight.value : 1.0, weight.present};
  }
  if (chosen || !anyTakesPart) return chosen;
  return std::optional<ChosenNormal>(ChosenNormal{});
}

vex::Result<Opening> Open(const vex::ParameterSetRef& source, std::string_view targetBundle,
                          std::source_location where) {
  const auto& bundles = *vex::Host().bundles;
  VEX_TRY(bundles.Find(targetBundle));
  Opening open;
  VEX_ASSIGN(open.bundle, bundles.Find(vp::kId));
  open.source = source.get();
  if (open.source == nullptr)
    return std::unexpected(vex::IllegalStateCondition("parametersPtr != nullptr", vex::SourceUnit(where.file_name()),
                                                      static_cast<int>(where.line())));
  VEX_ASSIGN(open.target, MakeTarget(targetBundle));
  return open;
}

Selected Select(const std::optional<vex::InternedId>& type, TypePolicy policy) {
  if (!type) {
    // Indexed by OnAbsentType.
    static constexpr Selected kAbsent[] = {Selected::Reject, Selected::Dielectric, Selected::Absent};
    return kAbsent[static_cast<std::size_t>(policy.absent)];
  }
  switch (Classify(*type)) {
    case MaterialType::Constant:
      return Selected::Constant;
    case MaterialType::Metal:
      return Selected::Metal;
    case MaterialType::Unknown:
      return policy.unknown == OnUnknownType::Reject ? Selected::Reject : Selected::Dielectric;
    case MaterialType::Colliding:
      // A foreign id that only looks like a known type: nothing is converted, and that is no error.
      return Selected::Nothing;
    default:
      return Selected::Dielectric;
  }
}

}  // namespace interop::mapping::viewport
