// Import conversions into the Corvane renderer's ports, called by the material
// importer by the bundle of the set it was given (glTF goes through the
// Corvane-glTF mapping's import direction instead).
#pragma once

#include <memory>
#include <string_view>

#include "vex/error.h"
#include "vex/material.h"

namespace interop::mapping {

/// A set of the generic diffuse/specular/shininess model as Corvane parameters. Every source port
/// is optional: an absent one leaves its Corvane port unwritten (at the bundle default). A
/// positive "reflectionFactor" selects the "color_edge_tint" Fresnel mode with "specularColor"
/// as "reflectivity"; otherwise "specularFactor" becomes "reflection_weight" and the Fresnel mode
/// stays the bundle's default (the port is not written). Entries go over whole (constant or
/// texture, with their properties). Fails with "Invalid TypedConstantParameter" (wrong data
/// type) when a constant does not have the type of its Corvane port, or when "reflectionFactor"
/// is not a Float; lack of memory is returned as is. The result is tagged with the Corvane bundle
/// only once every transfer succeeded.
vex::Result<std::shared_ptr<vex::ParameterSet>> ImportGenericToCorvane(const vex::ParameterSet& source);

/// A set of the OBJ bundle as Corvane parameters, undoing the Corvane-to-OBJ mapping: colours
/// come back with weight 1 (the weight was multiplied in), "metallic" selects the "metalness"
/// Fresnel mode, the scalar "opacity" becomes a grey opacity colour, and "emissive_color" turns
/// emission on ("emission_weight" 1). Absent ports stay unwritten. Failures as for the generic
/// conversion ("opacity" must be a Float).
vex::Result<std::shared_ptr<vex::ParameterSet>> ImportObjToCorvane(const vex::ParameterSet& source);

namespace detail {
/// Copies the entry under `from`, when the source holds one, to the Corvane port `to`; a constant
/// of another type than the port's is a wrong-data-type error.
vex::Result<void> TransferToCorvane(const vex::ParameterSet& source, vex::ParameterSet& target, std::string_view from,
                                    std::string_view to);
/// Fails with the wrong-data-type error unless `entry` may be stored on the Corvane port.
vex::Result<void> CheckCorvaneType(const vex::Parameter& entry, std::string_view port);
}  // namespace detail

}  // namespace interop::mapping
