// Conversions of the material importer into Corvane ports for the source bundles
// that have no mapping of their own: standard surface, FBX Lambert and Phong
// (one conversion), USD Preview Surface. Each is the way back of the export
// into that bundle; docs/materials.md has the table.
#pragma once

#include <memory>

#include "vex/error.h"
#include "vex/material.h"

namespace interop::material {

/// Every source port is optional: an absent one leaves its Corvane port unwritten. Entries go
/// over whole (constant, image reference or texture, with their properties) unless the table
/// converts them. A constant of another type than its Corvane port is a wrong-data-type error
/// ("Invalid TypedConstantParameter"). The result is tagged with the Corvane bundle.
vex::Result<std::shared_ptr<vex::ParameterSet>> ImportStandardSurfaceToCorvane(const vex::ParameterSet& source);
vex::Result<std::shared_ptr<vex::ParameterSet>> ImportFbxToCorvane(const vex::ParameterSet& source);
vex::Result<std::shared_ptr<vex::ParameterSet>> ImportUsdPreviewSurfaceToCorvane(const vex::ParameterSet& source);

}  // namespace interop::material
