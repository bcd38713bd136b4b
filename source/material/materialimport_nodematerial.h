// The importer that builds renderer node materials from parameter sets.
#pragma once

#include <string_view>

#include "vex/component.h"
#include "vex/material.h"

namespace interop::material {

inline constexpr std::string_view kImporterClassId = "net.kelvo.material.materialimport.nodematerial";
inline constexpr std::string_view kCorvaneNodeSpace = "com.corvane3d.corvane4vex.class.nodespace";

vex::Result<vex::ComponentRef> CreateNodeMaterialImporter();

/// The importer's registry record: the Corvane node space, this class.
const vex::MaterialImportDescription& ImporterRegistrationRecord();

}  // namespace interop::material
