// What the four viewport-material mappings share: one runner (bundle lookups,
// state check, reader, dispatch on "type" by hash first and then interned
// identity, the defaults table a run returns, the optional dump), reads that
// record every absent port against the target port that received its value,
// and the choice of one normal out of the specular and base normals. Each
// mapping brings its bodies and one dispatch policy.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <memory>
#include <new>
#include <optional>
#include <source_location>
#include <string>
#include <string_view>
#include <vector>

#include "material/mapping/configuration.h"
#include "material/mapping/materialmapping.h"
#include "vex/datatypebase.h"
#include "vex/ports.h"

namespace interop::mapping::viewport {

// The source ports, as the viewport bundle spells them ("transmissivity " with its trailing blank).
namespace vp = vex::ports::viewportmaterial;

inline const vex::Color kBlack{0.0, 0.0, 0.0};

/// What the "type" port selects. `Absent`: the material holds no type (and the bundle declares
/// none). `Unknown`: a type whose hash is none of the three. `Colliding`: a type with the hash of
/// one of the three that is not that interned id.
enum class MaterialType { Constant, Metal, Dielectric, Absent, Unknown, Colliding };

/// Classifies a type id: by hash first, then by identity with the interned id of that hash.
MaterialType Classify(const vex::InternedId& type);

/// The smallest power of two not below (entries * 16 + 16) / 10 + 2: the capacity of the
/// defaults table a run returns. Its grow threshold is capacity * 10 / 16.
std::size_t DefaultsCapacity(std::size_t entries);

/// An error of `kind` located at the caller (its source unit and line), so that each mapping's
/// failures carry that mapping's unit.
vex::Error ErrorHere(vex::ErrorKind kind, std::string message,
                     std::source_location where = std::source_location::current());

/// The reads of one mapping run over a viewport set. Every read goes to the material first and
/// then to the viewport bundle's defaults; `Take` also records an absent port, with the value it
/// stood in for and the target port that received it. Recording keeps the first-recorded order;
/// a port recorded again replaces its entry.
class Reader {
 public:
  Reader(const vex::ParameterSet& source, const vex::PortBundle& bundle) : source_(source), bundle_(bundle) {}

  /// The port as constant-or-textured, with its present flag; the data system's typed-read
  /// errors when neither the material nor the bundle has a value of type T.
  template <class T>
  vex::Result<PortValue<T>> Read(std::string_view port) const {
    PortValue<T> out;
    const vex::Parameter* entry = FindWithFallback(source_, &bundle_.defaults, port, out.present);
    auto value = vex::GetTypedConstant<T>(entry);
    if (!value) return std::unexpected(std::move(value).error());
    out.value = *value;
    if (entry->texture) out.texture = entry->texture;
    return out;
  }

  /// Read, and when the port is absent, record its default against `targetPort`.
  template <class T>
  vex::Result<PortValue<T>> Take(std::string_view port, std::string_view targetPort,
                                 std::source_location where = std::source_location::current()) {
    VEX_ASSIGN(PortValue<T> value, Read<T>(port));
    if (!value.present) VEX_TRY(Record(port, vex::PackedConstantParameter(value.value), targetPort, where));
    return value;
  }

  /// "type": the interned id, or nullopt when neither the material nor the bundle holds one.
  /// A type of another value type is the data system's "Invalid TypedConstantParameter".
  vex::Result<std::optional<vex::InternedId>> ReadType() const;

  /// Records an absent port; only lack of memory fails (reported at the caller).
  vex::Result<void> Record(std::string_view sourcePort, vex::PackedConstantParameter value,
                           std::string_view targetPort, std::source_location where = std::source_location::current());

  /// The table the run returns: the recorded entries in a fresh table sized by
  /// DefaultsCapacity. Out of memory (at the caller) when it cannot be allocated.
  vex::Result<vex::DefaultsTable> Table(std::source_location where = std::source_location::current()) const;

  const std::vector<vex::DefaultUse>& Recorded() const { return recorded_; }

 private:
  const vex::ParameterSet& source_;
  const vex::PortBundle& bundle_;
  std::vector<vex::DefaultUse> recorded_;
};

/// Copies a source port onto a target port unchanged, texture included; an absent port hands on
/// the bundle's default and is recorded against the target port.
template <class T>
vex::Result<void> Pass(Reader& in, vex::ParameterSet& target, std::string_view sourcePort, std::string_view targetPort,
                       std::source_location where = std::source_location::current()) {
  VEX_ASSIGN(const auto value, in.Take<T>(sourcePort, targetPort, where));
  return SetValue(target, targetPort, value.value, value.texture);
}

/// One normal and the weight that lets it take part.
struct NormalPorts {
  std::string_view normal;
  std::string_view weight;
};

/// The normal a target's single normal port receives.
struct ChosenNormal {
  std::string_view port;            ///< the chosen normal port; empty when none carries a normal
  PortValue<vex::Vector3d> normal;  ///< the zero vector when no candidate carries a normal
  double weight = 1.0;              ///< the chosen normal's weight (1 when its port is absent)
  bool weightPresent = false;
};

/// Chooses one normal out of `candidates`, considered in order. A candidate takes part when its
/// weight is greater than 0 or its weight port is absent; a taking-part normal the material does
/// not hold is recorded against `targetPort` with its default (the zero vector). The first
/// taking-part normal that the material holds with a texture or a non-zero vector wins; when
/// some take part but none carries a normal, the result is the zero vector; nullopt when none
/// takes part.
vex::Result<std::optional<ChosenNormal>> ChooseNormal(Reader& in, std::initializer_list<NormalPorts> candidates,
                                                      std::string_view targetPort,
                                                      std::source_location where = std::source_location::current());

// --- the runner --------------------------------------------------------------------------------

/// What a mapping does with a material that holds no type.
enum class OnAbsentType { Reject, AsDielectric, OwnBody };
/// What a mapping does with a type whose hash is none of the three.
enum class OnUnknownType { Reject, AsDielectric };

/// A mapping's dispatch policy. A type with the hash of a known one that is not that interned id
/// converts nothing and succeeds under every policy; a rejected type fails with
/// "Unknown material type".
struct TypePolicy {
  OnAbsentType absent;
  OnUnknownType unknown;
};

/// The per-run state of a mapping without any of its own.
struct NoContext {};

/// What a body works on: the reads, the target set, the type it runs for (Constant, Metal,
/// Dielectric, or Absent for an own absent-type body; an unknown type taken as a dielectric comes
/// as Dielectric) and the mapping's own per-run state.
template <class Context>
struct Run {
  Reader& in;
  vex::ParameterSet& target;
  MaterialType type;
  Context& context;
};

template <class Context>
using Body = vex::Result<void> (*)(Run<Context>&);

/// The bodies a mapping brings, one per type it converts; `absent` only with OnAbsentType::OwnBody.
template <class Context>
struct Bodies {
  Body<Context> constant = nullptr;
  Body<Context> metal = nullptr;
  Body<Context> dielectric = nullptr;
  Body<Context> absent = nullptr;
};

/// One viewport mapping: its target bundle, policy and bodies, an optional last step run after
/// the body (also when no body ran), the setting whose directory receives a dump of each run
/// (empty: none), and the mapping's own place, which the runner's failures carry (the parameter
/// check, "Unknown material type", lack of memory for the defaults table).
template <class Context = NoContext>
struct ViewportMapping {
  std::string_view target;
  TypePolicy policy;
  Bodies<Context> bodies;
  Body<Context> finish = nullptr;
  std::string_view dumpSetting;
  std::source_location where;
};

/// What the runner resolved before the body: the viewport bundle, the source set and the new,
/// empty target set.
struct Opening {
  const vex::PortBundle* bundle = nullptr;
  const vex::ParameterSet* source = nullptr;
  std::shared_ptr<vex::ParameterSet> target;
};

/// Resolves the target bundle, then the viewport bundle, through the host's port-bundle registry
/// (a lookup error is returned as it is), checks the source set ("Illegal state: Condition
/// parametersPtr != nullptr not fulfilled. " at `where`) and makes the target set.
vex::Result<Opening> Open(const vex::ParameterSetRef& source, std::string_view targetBundle,
                          std::source_location where);

/// Which body a type selects under a policy. `Nothing`: a colliding id; `Reject`: the policy
/// refuses the type.
enum class Selected { Constant, Metal, Dielectric, Absent, Nothing, Reject };
Selected Select(const std::optional<vex::InternedId>& type, TypePolicy policy);

/// The input of the last run started while the dump setting was set: what the dump writes.
struct KeptInput {
  vex::Id bundle;
  vex::ParameterSetRef set;
};

/// One run of a viewport mapping: opening, dispatch, body, last step, defaults table, dump. Every
/// error ends the run at once; target ports already written stay written.
template <class Context>
vex::Result<vex::MappingOutput> RunMapping(const vex::ParameterSetRef& source, const ViewportMapping<Context>& mapping,
                                           KeptInput& kept) {
  if (!mapping.dumpSetting.empty() && !SettingValue(mapping.dumpSetting).empty())
    kept = KeptInput{vex::Id(vp::kId), source};
  VEX_ASSIGN(Opening open, Open(source, mapping.target, mapping.where));
  Reader in(*open.source, *open.bundle);
  VEX_ASSIGN(const auto type, in.ReadType());
  Context context{};
  const Selected selected = Select(type, mapping.policy);
  if (selected == Selected::Reject)
    return std::unexpected(ErrorHere(vex::ErrorKind::IllegalArgument, "Unknown material type", mapping.where));
  if (selected != Selected::Nothing) {
    static constexpr MaterialType kRunsAs[] = {MaterialType::Constant, MaterialType::Metal, MaterialType::Dielectric,
                                               MaterialType::Absent};
    const Body<Context> bodies[] = {mapping.bodies.constant, mapping.bodies.metal, mapping.bodies.dielectric,
                                    mapping.bodies.absent};
    const auto index = static_cast<std::size_t>(selected);
    const Body<Context> body = bodies[index];
    VEX_CHECK_STATE(body != nullptr);
    Run<Context> run{in, *open.target, kRunsAs[index], context};
    VEX_TRY(body(run));
  }
  if (mapping.finish != nullptr) {
    Run<Context> run{in, *open.target, MaterialType::Absent, context};
    VEX_TRY(mapping.finish(run));
  }
  VEX_ASSIGN(auto defaults, in.Table(mapping.where));
  if (!mapping.dumpSetting.empty())
    if (const std::string directory = SettingValue(mapping.dumpSetting); !directory.empty() && kept.set != nullptr)
      VEX_TRY(WriteMappingDump(directory, *kept.set, *open.target, kept.bundle));
  return vex::MappingOutput{std::move(open.target), std::move(defaults)};
}

/// The mapping class of a viewport mapping: the component the mapper registry creates.
template <class Context>
class ViewportMappingClass final : public MappingBase {
 public:
  ViewportMappingClass(std::string_view classId, const ViewportMapping<Context>& mapping)
      : MappingBase(classId, vp::kId, mapping.target), mapping_(mapping) {}

  /// With the dump setting set, the run's input is kept at the start and, at the end, written
  /// with the output into that directory; a failed write is the run's error (the output is
  /// complete by then, but not returned).
  vex::Result<vex::MappingOutput> MapMaterialData(const vex::ParameterSetRef& source) override {
    return RunMapping(source, mapping_, kept_);
  }

 private:
  const ViewportMapping<Context>& mapping_;
  KeptInput kept_;
};

/// A new instance of the mapping class; lack of memory is reported at the mapping's place.
template <class Context>
vex::Result<vex::ComponentRef> MakeMapping(std::string_view classId, const ViewportMapping<Context>& mapping) {
  auto instance = std::shared_ptr<ViewportMappingClass<Context>>(new (std::nothrow)
                                                                     ViewportMappingClass<Context>(classId, mapping));
  if (!instance) return std::unexpected(ErrorHere(vex::ErrorKind::OutOfMemory, "Out of memory", mapping.where));
  return vex::ComponentRef(std::move(instance));
}

}  // namespace interop::mapping::viewport
