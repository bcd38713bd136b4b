// Component interfaces defined by the exchange module and used by the host's
// exporters, importers and other modules.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "vex/data.h"
#include "vex/error.h"
#include "vex/material.h"
#include "vex/material_host.h"
#include "vex/scene.h"

namespace vex {

namespace registry {
inline constexpr std::string_view kMaterialExporters = "net.kelvo.material.registry.materialexporters";
inline constexpr std::string_view kMaterialImporters = "net.kelvo.material.registry.materialimporters";
inline constexpr std::string_view kMaterialMappers = "net.kelvo.material.registry.materialmappers";
inline constexpr std::string_view kReplaceModule = "net.kelvo.registry.replacemodule";
inline constexpr std::string_view kDataTypes = "net.kelvo.registry.datatypes";
}  // namespace registry

/// A conversion applied to a value by TransferParamWithConvertion.
using ParameterConversion = std::function<Result<Parameter>(const Parameter&)>;

/// Carries a parameter set from one port bundle into another.
class IMaterialMapping {
 public:
  static constexpr std::string_view kInterfaceId = "net.kelvo.material.interface.materialmapping";
  virtual ~IMaterialMapping() = default;
  /// Checks that the set can be mapped by this mapping (it belongs to a bundle the mapping reads).
  virtual Result<void> PassOne(const ParameterSet& source) const = 0;
  /// The new set in the target bundle (with the defaults table of mappings that record one).
  virtual Result<MappingOutput> MapMaterialData(const ParameterSetRef& source) = 0;
  /// Copies one parameter unchanged, renaming it.
  virtual Result<void> TransferParam(const ParameterSet& source, ParameterSet& target, std::string_view sourcePort,
                                     std::string_view targetPort) = 0;
  /// Copies one parameter through a conversion.
  virtual Result<void> TransferParamWithConvertion(const ParameterSet& source, ParameterSet& target,
                                                   std::string_view sourcePort, std::string_view targetPort,
                                                   const ParameterConversion& conversion) = 0;
  /// Source and target bundle of this mapping.
  virtual MaterialMappingDescription GetDescription() const = 0;
};

/// Exports one host material as a parameter set in a bundle the caller accepts.
class IMaterialExport {
 public:
  static constexpr std::string_view kInterfaceId = "net.kelvo.material.interface.materialexport";
  virtual ~IMaterialExport() = default;
  virtual Result<void> Initialize(const MaterialRef& material, const DataDictionary& description) = 0;
  virtual Result<ParameterSetRef> GetParameters() = 0;
  virtual Result<TextureResult> GetTextures(const TextureRequest& request) = 0;
  /// Initialize and GetParameters in one call.
  virtual Result<ParameterSetRef> Export(const MaterialRef& material, const DataDictionary& description) = 0;
  virtual std::int32_t GetSupportedMaterialType() const = 0;
};

/// Builds a host material in a node space from a parameter set.
class IMaterialImport {
 public:
  static constexpr std::string_view kInterfaceId = "net.kelvo.material.interface.materialimport";
  virtual ~IMaterialImport() = default;
  virtual Result<MaterialRef> CreateMaterial(IDocument& document, const ParameterSetRef& parameters,
                                             std::string_view nodeSpaceId) = 0;
};

/// Turns neutral object descriptions into host objects.
class IGlobalImport {
 public:
  static constexpr std::string_view kInterfaceId = "net.kelvo.exchange.interface.globalimport";
  virtual ~IGlobalImport() = default;
  /// The object types this importer can build, for a user's choice.
  virtual std::vector<std::string> FillDropdown() const = 0;
};

/// Conversions shared by importers and exporters, including the renderer's light units.
class IGlobalUtils {
 public:
  static constexpr std::string_view kInterfaceId = "net.kelvo.exchange.interface.globalutils";
  virtual ~IGlobalUtils() = default;
  virtual Result<double> CVLightGetBaseIntensity(ISceneObject* op) = 0;
  virtual Result<void> CVLightConvertToUnit(ISceneObject* op, std::int32_t targetUnits) = 0;
  virtual Vector3d ComputeColorTemperatureRGB(double temperature, bool normalize, double whiteTemperature) = 0;
};

}  // namespace vex
