// Module settings of the mappings: directories that mapping runs dump their
// input and output parameter sets into.
#pragma once

#include <string>
#include <string_view>

#include "vex/error.h"
#include "vex/material.h"

namespace interop::mapping {

inline constexpr std::string_view kViewportFbxMappingPath = "g_viewportFBXMappingPath";
inline constexpr std::string_view kCorvaneUsdMappingPath = "g_corvaneUSDMappingPath";

/// The current value of a setting (empty when unset).
std::string SettingValue(std::string_view name);

/// A copy of `set` that owns copies of its textures' pixels, so that what a run rewrites in place
/// does not reach it: the input a dump records is the input as the run received it. Lack of
/// memory is the only failure.
vex::Result<vex::ParameterSetRef> SnapshotForDump(const vex::ParameterSet& set);

/// Writes "<ms>_mapping_input" and "<ms>_mapping_output" into `directory` through the host's data
/// serialisation, <ms> being the current time in whole milliseconds. A directory that does not
/// exist, or any failed write, is returned as the error.
vex::Result<void> WriteMappingDump(std::string_view directory, const vex::ParameterSet& input,
                                   const vex::ParameterSet& output);

/// As above, for a mapping that kept its source bundle with its input: an input set without a
/// bundle tag is written tagged with `inputBundle`, so that the dump reads back as a set of the
/// bundle the mapping ran for.
vex::Result<void> WriteMappingDump(std::string_view directory, const vex::ParameterSet& input,
                                   const vex::ParameterSet& output, const vex::Id& inputBundle);

}  // namespace interop::mapping
