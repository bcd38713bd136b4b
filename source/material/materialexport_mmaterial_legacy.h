// The legacy (channel) sub-exporter: the colour channel of a classic material
// as the single port "base_color" (constant, bitmap or Substance reference).
#pragma once

#include "material/materialexport_mmaterial.h"
#include "vex/material_host.h"

namespace interop::material {

/// Keeps the material and copies "materialTypes" from the description (an absent key is an empty
/// map, which GetParameters refuses; a value of another type is a wrong-data-type error here).
vex::Result<SubExporterRef> CreateLegacyExporter(const vex::MaterialRef& material,
                                                 const vex::DataDictionary& description);

}  // namespace interop::material
