// The typical material request on the reference host, as a file exporter or
// importer of the application makes it: a scene material through the exporter
// registered for its type (with its textures baked on request), and a
// parameter set through the importer registered for a node space.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/materials.h"
#include "vex/material.h"

namespace host {

struct MaterialExportRequest {
  vex::MaterialTypesMap accepted;  ///< the bundles the caller accepts (value 0: preferred)
  std::int64_t textureSize = 1024;
  vex::TextureResize resize = vex::TextureResize::Stretch;
  std::string spaceId;  ///< the node space to export; empty: the material's first graph
};

/// The bundles accepted when a caller names none: standard surface, Corvane and the viewport
/// material, all preferred (every export path then has its natural bundle).
vex::MaterialTypesMap DefaultAcceptedBundles();

/// Exports one material: finds the exporter of its type in the exporter registry, initialises it
/// with the request as export description, takes the parameters, and for every port whose value is
/// an image reference asks for its texture; a texture that comes back replaces the reference by the
/// port's default constant with the texture beside it (properties kept). Errors of the exporter
/// pass through; a material type without an exporter is NotFound.
vex::Result<vex::ParameterSet> ExportMaterial(const std::shared_ptr<Material>& material,
                                              const MaterialExportRequest& request);

/// A file carries no Substance archive: every port of `set` holding a Substance reference gets
/// the material's channel colour instead (the colour the archive is applied over), else the
/// bundle's default. Returns one line per port replaced, for the caller to show.
std::vector<std::string> ResolveSubstanceReferences(const Material& material, vex::ParameterSet& set);

/// The importer registered for the space (else the first registered importer, which reports the
/// spaces it cannot handle) builds a material in the document from the set.
vex::Result<vex::MaterialRef> ImportMaterial(Document& document, const vex::ParameterSet& set,
                                             std::string_view spaceId);

/// Makes the document's relative file references (bitmap files, Substance assets, image nodes)
/// relative to `toDirectory` instead of the document's directory, and moves the document there.
void RebaseFileReferences(Document& document, const std::string& toDirectory);

}  // namespace host
