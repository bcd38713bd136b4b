// The node sub-exporter: a node material exported by its node space, either
// through the space's own export class or through the space's material-exchange
// class with a target bundle chosen from what the caller accepts; textures are
// baked by the node material baker.
#pragma once

#include "material/materialexport_mmaterial.h"
#include "vex/material_host.h"

namespace interop::material {

/// Reads "spaceId", looks the space up and builds the space exporter (when the space names an
/// export class) or the exchange exporter. A creation error is returned and nothing is kept.
vex::Result<SubExporterRef> CreateNodeExporter(const vex::MaterialRef& material, const vex::DataDictionary& description);

/// The target bundle of the exchange path: walking `spaceBundles` in order, the first bundle the
/// map holds with the value 0; else the last one it holds with another value; else none.
vex::Id ChooseTargetBundle(const std::vector<vex::Id>& spaceBundles, const vex::MaterialTypesMap& accepted);

}  // namespace interop::material
