// The exporter of the host's standard material (channel and node materials).
#pragma once

#include <string_view>

#include "vex/component.h"
#include "vex/material.h"

namespace interop::material {

inline constexpr std::string_view kExporterClassId = "net.kelvo.material.class.materialexport.mmaterial";

vex::Result<vex::ComponentRef> CreateMaterialExporter();

/// The registry record built at library load: material type 5703, this class.
const vex::MaterialExportDescription& ExporterRegistrationRecord();

}  // namespace interop::material
