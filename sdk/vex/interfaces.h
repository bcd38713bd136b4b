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
#include "vex/objectdescription.h"
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

/// Turns neutral object descriptions into host objects of a document.
class IGlobalImport {
 public:
  static constexpr std::string_view kInterfaceId = "net.kelvo.exchange.interface.globalimport";
  virtual ~IGlobalImport() = default;
  /// The object types this importer can build (over every node space, in registry order, each
  /// once), for a user's choice.
  virtual std::vector<std::string> FillDropdown() const = 0;
  /// Builds one object per description for the node space (through the global utilities'
  /// ConvertObjects) and inserts them in order into the document, under `parent` when given.
  /// A description whose "matrixisglobal" is true gets its transform made relative to the parent.
  /// Returns the inserted objects. Stops at the first failure; nothing is inserted then.
  virtual Result<std::vector<ISceneObject*>> ImportObjects(IDocument& document, std::string_view nodeSpaceId,
                                                           const std::vector<tessel::VEXObjectDescription>& descriptions,
                                                           ISceneObject* parent) = 0;
};

/// Conversions shared by importers and exporters, including the renderer's light units.
class IGlobalUtils {
 public:
  static constexpr std::string_view kInterfaceId = "net.kelvo.exchange.interface.globalutils";
  virtual ~IGlobalUtils() = default;
  /// Builds host objects from descriptions through the object factory for the node space, in
  /// order, without inserting them. Stops at the first failure and returns its error.
  virtual Result<std::vector<SceneObjectRef>> ConvertObjects(
      std::string_view nodeSpaceId, const std::vector<tessel::VEXObjectDescription>& descriptions,
      std::int32_t flags) = 0;
  /// Brings loosely typed values (as a text format reads them) into the types of the attribute
  /// vocabulary: whole numbers for float64 attributes, strings for id and texture attributes,
  /// three-number arrays for vectors and colours, {time, value} records for animation keys.
  /// Keys outside the vocabulary stay as they are. Fails with WrongDataType naming the key when
  /// a value cannot be converted; the description may then be partly converted.
  virtual Result<void> ConformDescription(tessel::VEXObjectDescription& description) const = 0;
  /// The light's intensity in image units (Corvane light objects only).
  virtual Result<double> CVLightGetBaseIntensity(ISceneObject* op) = 0;
  /// Rewrites the light's intensity for the target units; the units parameter is left at 0.
  virtual Result<void> CVLightConvertToUnit(ISceneObject* op, std::int32_t targetUnits) = 0;
  /// Linear sRGB of a black body at `temperature` kelvin, adapted from the white of a black body
  /// at `whiteTemperature` to D65; divided by its largest component when `normalize` is true.
  virtual Color ComputeColorTemperatureRGB(double temperature, bool normalize, double whiteTemperature) = 0;
};

}  // namespace vex
