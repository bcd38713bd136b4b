// What the four viewport-material mappings share: the port ids of the viewport
// bundle, the dispatch on "type" (hash first, then interned identity), reads
// that record every absent port against the target port that received its
// value, the defaults table a run returns, and the choice of one normal out of
// the specular and base normals.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <source_location>
#include <string>
#include <string_view>
#include <vector>

#include "material/mapping/materialmapping.h"
#include "vex/datatypebase.h"

namespace interop::mapping::viewport {

// Source ports of "net.kelvo.nodespace.exchange.bundle.viewportmaterial".
inline constexpr std::string_view kType = "type";
inline constexpr std::string_view kBaseColor = "base.color";
inline constexpr std::string_view kBaseColorWeight = "base.color_weight";
inline constexpr std::string_view kBaseNormal = "base.normal";
inline constexpr std::string_view kBaseNormalWeight = "base.normal_weight";
inline constexpr std::string_view kSpecularColor = "specular.color";
inline constexpr std::string_view kSpecularColorWeight = "specular.color_weight";
inline constexpr std::string_view kSpecularRoughness = "specular.roughness";
inline constexpr std::string_view kSpecularIor = "specular.ior";
inline constexpr std::string_view kSpecularNormal = "specular.normal";
inline constexpr std::string_view kSpecularNormalWeight = "specular.normal_weight";
inline constexpr std::string_view kEmissionColor = "emission.color";
inline constexpr std::string_view kEmissionColorWeight = "emission.color_weight";
inline constexpr std::string_view kAlpha = "alpha";
// The bundle spells this port with a trailing blank; the blank is part of the id.
inline constexpr std::string_view kTransmissivity = "transmissivity ";

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

}  // namespace interop::mapping::viewport
