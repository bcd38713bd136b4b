// The one road of a parameter set into another bundle, which every file command and `map`
// take: the registered mapping from the set's bundle to the target, else the mapping registered
// the other way round in its import direction (when it accepts the set), else through the
// Corvane bundle, which a set the material importer reads reaches through the importer.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/formats/catalogue.h"
#include "vex/interfaces.h"
#include "vex/material.h"

namespace host {
class Documents;
}

namespace host::formats {

struct Converted {
  vex::ParameterSetRef set;
  bool mapped = false;                    ///< false: the input was already in the bundle
  std::vector<vex::DefaultUse> defaults;  ///< what the mappings filled in from source defaults
  /// What the target bundle's file will show differently from the source set, one line each
  /// (without the material's name; the caller puts it in front).
  std::vector<std::string> warnings;
};

/// Where the material importer may build its scratch material (a set it reads reaches the
/// Corvane bundle only through a node material). Without one that road is closed.
struct ConversionContext {
  Documents* documents = nullptr;
};

/// The set in `target`. NotFound ("No material mapping from <bundle> to <target>") when no road
/// leads there; the mapping's or importer's own error otherwise.
vex::Result<Converted> ConvertSet(const vex::ParameterSetRef& set, std::string_view target,
                                  const ConversionContext& context = {});

/// The set as the writer of `row` takes it: unchanged when the writer takes its bundle, else in
/// the first of the row's bundles that a road reaches.
vex::Result<Converted> ToWriterBundle(const vex::ParameterSetRef& set, const FormatRow& row,
                                      const ConversionContext& context = {});

/// The registered mapping between the two bundles, in either direction (a mapping serving both
/// is registered under its export direction and takes the import direction when it accepts the
/// set). NotFound when neither is registered or accepts the set.
vex::Result<std::shared_ptr<vex::IMaterialMapping>> FindMappingEitherWay(const vex::ParameterSet& set,
                                                                        std::string_view target);

/// Resolves the texture properties a baker applies: a texture whose entry says "channelSelect"
/// gets that channel, times "valueScale", in every channel (alpha too, so that a mean over four
/// channels gives it back); without a selection "valueScale" multiplies red, green and blue. A
/// selected channel that is 1 everywhere, or a scale of 0, makes the port the constant scale.
/// Both properties are then dropped so that nothing applies them twice.
void ResolveTextureProperties(vex::ParameterSet& set);

}  // namespace host::formats
