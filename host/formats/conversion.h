// Parameter sets into the bundle a file format needs, and back into the
// Corvane bundle, through the module's mapper registry: the road every file
// command takes between a set and a file.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/formats/formats.h"
#include "vex/material.h"

namespace host::formats {

/// Runs the registered mapping from the set's bundle to `targetBundle` (vex::FindMapping, then
/// MapMaterialData). NotFound when no mapping connects the two; the mapping's own error
/// otherwise.
vex::Result<vex::MappingOutput> MapSet(const vex::ParameterSetRef& set, std::string_view targetBundle);

struct FormatSet {
  vex::ParameterSetRef set;  ///< in one of AcceptedBundles(format)
  bool mapped = false;       ///< false: the input was already in that bundle
  std::vector<vex::DefaultUse> defaults;  ///< what the mapping filled in from source defaults
  std::vector<std::string> warnings;      ///< what the mapping lost that a flag would keep
};

struct ConvertOptions {
  /// With a Corvane source whose constant emission weight exceeds 1, the glTF set gets the
  /// weight as "emissiveStrength" (the mapping clamps the weight to 1 in the factor).
  bool emissiveStrength = false;
};

/// The set as the format's writer takes it: unchanged when its bundle is accepted, else mapped
/// into the first accepted bundle that a registered mapping reaches. NotFound ("No material
/// mapping from <bundle> to <first accepted bundle>") when none does.
vex::Result<FormatSet> ToFormatBundle(const vex::ParameterSetRef& set, Format format,
                                      const ConvertOptions& options = {});

/// A set read from a file (glTF, OBJ or generic bundle) as a Corvane set. glTF sets take the
/// import direction of the Corvane-glTF mapping. The OBJ and generic conversions live in the
/// material importer and are reached through it; until it builds materials, such sets fail with
/// NotFound naming the bundle.
vex::Result<vex::ParameterSetRef> ToCorvane(const vex::ParameterSetRef& set);

}  // namespace host::formats
