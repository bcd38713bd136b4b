// The exporter of the host's standard material (channel and node materials).
#pragma once

#include <memory>
#include <string_view>

#include "vex/component.h"
#include "vex/material.h"

namespace interop::material {

inline constexpr std::string_view kExporterClassId = "net.kelvo.material.class.materialexport.mmaterial";

vex::Result<vex::ComponentRef> CreateMaterialExporter();

/// The registry record built at library load: material type 5703, this class.
const vex::MaterialExportDescription& ExporterRegistrationRecord();

/// The work behind the exporter: the legacy (channel) path or the node path.
class SubExporter {
 public:
  virtual ~SubExporter() = default;
  /// The exported parameter set, tagged with the bundle it is expressed in.
  virtual vex::Result<vex::ParameterSetRef> GetParameters() = 0;
  /// The texture buffer(s) for a request.
  virtual vex::Result<vex::TextureResult> GetTextures(const vex::TextureRequest& request) = 0;
};

using SubExporterRef = std::shared_ptr<SubExporter>;

}  // namespace interop::material
