// The importer that builds renderer node materials from parameter sets.
#pragma once

#include <memory>
#include <string_view>

#include "vex/component.h"
#include "vex/material.h"
#include "vex/material_host.h"

namespace interop::material {

inline constexpr std::string_view kImporterClassId = "net.kelvo.material.materialimport.nodematerial";
inline constexpr std::string_view kCorvaneNodeSpace = "com.corvane3d.corvane4vex.class.nodespace";

vex::Result<vex::ComponentRef> CreateNodeMaterialImporter();

/// The importer's registry record: the Corvane node space, this class.
const vex::MaterialImportDescription& ImporterRegistrationRecord();

/// The set as Corvane parameters, by its bundle: standard surface, FBX Lambert and Phong, USD
/// Preview Surface, glTF (the import direction of the Corvane-glTF mapping, found in the mapper
/// registry), generic, OBJ; a Corvane set is taken as it is. Any other bundle is an
/// illegal-argument error naming it.
vex::Result<std::shared_ptr<const vex::ParameterSet>> ConvertToCorvane(const vex::ParameterSetRef& source);

/// The Corvane node graph for a set of Corvane parameters: an end node "material" carrying the
/// constants (and, as "<port>.<property>", the properties of constant entries), and one image node
/// per textured port, linked to that port, carrying the entry's properties ("colorSpace",
/// "channelSelect", "makeImplicit", "valueScale", "mute"). Baked textures are handed to the
/// document (the host saves them with it) and the image node names the file.
vex::Result<vex::NodeGraph> BuildCorvaneGraph(vex::IDocument& document, const vex::ParameterSet& corvane);

}  // namespace interop::material
