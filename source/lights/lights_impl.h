// The neutral light description: the light attribute vocabulary (one table),
// its enumerations, typed accessors on a VEXObjectDescription, the object
// classes "base" and "light", the object factory, and the renderer-light
// operations of the global utilities (intensity units, colour temperature).
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "vex/component.h"
#include "vex/data.h"
#include "vex/error.h"
#include "vex/material.h"
#include "vex/objectdescription.h"
#include "vex/scene.h"

namespace interop::lights {

// ---------------------------------------------------------------------------------------------
// Class ids and the factory's diagnostic

inline constexpr std::string_view kBaseClassId = "net.kelvo.tessel.vexobjectclasses.base";
inline constexpr std::string_view kLightClassId = "net.kelvo.tessel.vexobjectclasses.light";
inline constexpr std::string_view kFactoryClassId = vex::tessel::IVexObjectFactory::kClassId;
inline constexpr std::string_view kObjectTypeDiagnostic = "did you defined the object type in the datadictionary?";

// ---------------------------------------------------------------------------------------------
// Corvane renderer ids the light operations read and write

namespace corvane {
inline constexpr std::int32_t kLightObjectType = 1036751;  ///< the Corvane light object
inline constexpr std::int32_t kRendererEffect = 1036219;   ///< the Corvane render settings post effect

inline constexpr std::int32_t kLightType = 10000;       ///< int32, LightType
inline constexpr std::int32_t kIntensity = 11004;       ///< float64
inline constexpr std::int32_t kUnits = 11005;           ///< int32, LightUnits
inline constexpr std::int32_t kEfficacy = 11006;        ///< float64, lumens per watt
inline constexpr std::int32_t kAreaShape = 11010;       ///< int32, LightAreaGeometry
inline constexpr std::int32_t kAreaNormalize = 11014;   ///< bool
inline constexpr std::int32_t kAreaSizeX = 11016;       ///< float64
inline constexpr std::int32_t kAreaSizeY = 11017;       ///< float64
inline constexpr std::int32_t kAreaSizeZ = 11018;       ///< float64
inline constexpr std::int32_t kSunNonPhysical = 15001;  ///< bool
/// The dome light's environment texture: an ImageReference value.
inline constexpr std::int32_t kDomeTexture = 12000;

inline constexpr std::int32_t kSceneScaleA = 1801;          ///< float64, render settings
inline constexpr std::int32_t kSceneScaleB = 1802;          ///< float64, render settings
inline constexpr std::int32_t kRendererUnit = 25002;        ///< UnitScale, render settings
inline constexpr std::int32_t kIgnoreRendererUnit = 25004;  ///< bool, render settings
}  // namespace corvane

// ---------------------------------------------------------------------------------------------
// Enumerations

enum class Enumeration : std::uint8_t {
  None,
  LightType,
  LightUnits,
  LightDecayType,
  LightBackplateAspect,
  LightIesColorMode,
  LightRefractionMode,
  LightSunModel,
  LightDomeEnvType,
  LightAreaGeometry,
  LightColorMode,
};

struct EnumerationInfo {
  std::string_view name;
  std::span<const std::string_view> values;  ///< value i is the string of integer i
  std::optional<std::int32_t> unknown;       ///< what an unknown string yields; none: the attribute is absent
};

/// The table entry of an enumeration (None has no values).
const EnumerationInfo& Info(Enumeration enumeration);

/// The integer of an enumeration string, compared exactly (case-sensitive). An unknown string
/// yields the enumeration's fixed fallback, or nothing for enumerations without one.
std::optional<std::int32_t> ParseEnumeration(Enumeration enumeration, std::string_view text);

// ---------------------------------------------------------------------------------------------
// Light attributes: the one table

enum class ValueType : std::uint8_t { Float64, Int32, Bool, Id, Color, Texture, String };

constexpr std::string_view ValueTypeName(ValueType type) {
  constexpr std::array<std::string_view, 7> kNames = {"float64", "int32", "bool", "id", "colour", "texture", "string"};
  return kNames[static_cast<std::size_t>(type)];
}

// X(name, value type, enumeration). The order is the vocabulary's order.
#define INTEROP_LIGHT_ATTRIBUTES(X)                            \
  X(type, Id, LightType)                                       \
  X(intensity, Float64, None)                                  \
  X(color, Color, None)                                        \
  X(colormode, Id, LightColorMode)                             \
  X(temperature, Float64, None)                                \
  X(exposure, Float64, None)                                   \
  X(unitstype, Id, LightUnits)                                 \
  X(lumensperwatt, Float64, None)                              \
  X(decaytype, Id, LightDecayType)                             \
  X(falloffstart, Float64, None)                               \
  X(falloffstop, Float64, None)                                \
  X(affected_by_refraction, Id, LightRefractionMode)           \
  X(area_geometry, Id, LightAreaGeometry)                      \
  X(area_sizex, Float64, None)                                 \
  X(area_sizey, Float64, None)                                 \
  X(area_sizez, Float64, None)                                 \
  X(area_spread, Float64, None)                                \
  X(area_visible_in_render, Bool, None)                        \
  X(area_bidirectional, Bool, None)                            \
  X(area_normalize, Bool, None)                                \
  X(area_samples, Int32, None)                                 \
  X(spot_cone_angle, Float64, None)                            \
  X(spot_cone_falloff_angle, Float64, None)                    \
  X(spot_cone_falloff_curve, Float64, None)                    \
  X(dome_tex, Texture, None)                                   \
  X(dome_color, Color, None)                                   \
  X(dome_envtype, Id, LightDomeEnvType)                        \
  X(dome_multiplier, Float64, None)                            \
  X(dome_exposure0, Float64, None)                             \
  X(dome_hue0, Float64, None)                                  \
  X(dome_saturation0, Float64, None)                           \
  X(dome_tex0_gamma, Float64, None)                            \
  X(dome_exposure1, Float64, None)                             \
  X(dome_hue1, Float64, None)                                  \
  X(dome_saturation1, Float64, None)                           \
  X(dome_tex1_gamma, Float64, None)                            \
  X(dome_flip_horizontal, Bool, None)                          \
  X(dome_background_enable, Bool, None)                        \
  X(dome_alphareplaceenable, Bool, None)                       \
  X(dome_alphareplacevalue, Float64, None)                     \
  X(dome_backplateenabled, Bool, None)                         \
  X(dome_backplateaspect, Id, LightBackplateAspect)            \
  X(dome_applyexposurecompensation, Bool, None)                \
  X(dome_samples, Int32, None)                                 \
  X(ies_color, Color, None)                                    \
  X(ies_colormode, Id, LightIesColorMode)                      \
  X(ies_multiplier, Float64, None)                             \
  X(ies_exposure, Float64, None)                               \
  X(ies_temperature, Float64, None)                            \
  X(portal_multiplier, Float64, None)                          \
  X(portal_exposure, Float64, None)                            \
  X(portal_sizex, Float64, None)                               \
  X(portal_sizey, Float64, None)                               \
  X(portal_spread, Float64, None)                              \
  X(portal_tint_color, Color, None)                            \
  X(portal_transparency, Color, None)                          \
  X(portal_samples, Int32, None)                               \
  X(sun_model, Id, LightSunModel)                              \
  X(sun_multiplier, Float64, None)                             \
  X(sun_usenonphysicalintensity, Bool, None)                   \
  X(sun_sun_disk_scale, Float64, None)                         \
  X(sun_redblueshift, Float64, None)                           \
  X(sun_saturation, Float64, None)                             \
  X(sun_haze, Float64, None)                                   \
  X(sun_horizon_height, Float64, None)                         \
  X(sun_tint, Color, None)                                     \
  X(shadow, Bool, None)                                        \
  X(shadowtransparency, Float64, None)                         \
  X(samplingoverrides_shadowsamplesscale, Float64, None)       \
  X(samplingoverrides_numshadowsamples, Int32, None)           \
  X(softness_affects_gobo, Bool, None)                         \
  X(light_group, String, None)                                 \
  X(matte_shadow_illuminator, Bool, None)                      \
  X(indirect_max_trace_depth, Int32, None)                     \
  X(volume_num_samples, Int32, None)                           \
  X(diffuse_ray_contribution_scale, Float64, None)             \
  X(reflection_ray_contribution_scale, Float64, None)          \
  X(transmission_ray_contribution_scale, Float64, None)        \
  X(single_scattering_ray_contribution_scale, Float64, None)   \
  X(multiple_scattering_ray_contribution_scale, Float64, None) \
  X(indirect_ray_contribution_scale, Float64, None)            \
  X(volume_ray_contribution_scale, Float64, None)              \
  X(caustics_enabled, Bool, None)                              \
  X(photon_caustics_intensity_multiplier, Float64, None)       \
  X(photon_caustics_num_photons, Int32, None)                  \
  X(gi_enabled, Bool, None)                                    \
  X(photon_gi_intensity_multiplier, Float64, None)             \
  X(photon_gi_num_photons, Int32, None)                        \
  X(legacy_non_area_light_intensity, Bool, None)               \
  X(legacy_soft_shadow_technique, Bool, None)

/// One light attribute, named as in the vocabulary.
enum class LightAttr : std::uint8_t {
#define INTEROP_LIGHT_ENUMERATOR(name, type, enumeration) name,
  INTEROP_LIGHT_ATTRIBUTES(INTEROP_LIGHT_ENUMERATOR)
#undef INTEROP_LIGHT_ENUMERATOR
};

struct LightAttributeInfo {
  LightAttr attr;
  std::string_view name;  ///< "intensity"
  std::string_view key;   ///< "net.kelvo.tessel.presenterdata.light.intensity"
  ValueType type;
  Enumeration enumeration;  ///< None unless type is Id
};

inline constexpr std::array kLightAttributes = {
#define INTEROP_LIGHT_ROW(name, type, enumeration)                                                           \
  LightAttributeInfo{LightAttr::name, #name, "net.kelvo.tessel.presenterdata.light." #name, ValueType::type, \
                     Enumeration::enumeration},
    INTEROP_LIGHT_ATTRIBUTES(INTEROP_LIGHT_ROW)
#undef INTEROP_LIGHT_ROW
};
static_assert(kLightAttributes.size() == 90, "the light vocabulary has 90 attributes");

constexpr const LightAttributeInfo& Info(LightAttr attr) { return kLightAttributes[static_cast<std::size_t>(attr)]; }

/// The attribute of a full key, or none for keys outside the light vocabulary.
std::optional<LightAttr> FindLightAttribute(std::string_view key);

/// The C++ type a typed read of each value type yields.
template <ValueType T>
struct ValueOf;
template <>
struct ValueOf<ValueType::Float64> {
  using type = double;
};
template <>
struct ValueOf<ValueType::Int32> {
  using type = std::int32_t;
};
template <>
struct ValueOf<ValueType::Bool> {
  using type = bool;
};
template <>
struct ValueOf<ValueType::Id> {
  using type = vex::Id;
};
template <>
struct ValueOf<ValueType::Color> {
  using type = vex::Color;
};
template <>
struct ValueOf<ValueType::Texture> {
  using type = vex::ImageReference;
};
template <>
struct ValueOf<ValueType::String> {
  using type = std::string;
};

template <LightAttr A>
using AttributeValue = typename ValueOf<Info(A).type>::type;

/// Presence test: the attribute's key is in the description.
inline bool Has(const vex::tessel::VEXObjectDescription& description, LightAttr attr) {
  return description.data.Contains(Info(attr).key);
}

/// Typed read of an attribute in its vocabulary type. NotFound when absent, WrongDataType
/// ("Light attribute <key> is not a <type>") when the value has another type. Never converts.
template <LightAttr A>
vex::Result<AttributeValue<A>> Get(const vex::tessel::VEXObjectDescription& description) {
  const vex::Data* d = description.data.Find(Info(A).key);
  if (d == nullptr) return VEX_FAIL(vex::ErrorKind::NotFound, "Light attribute not found: " + std::string(Info(A).key));
  const auto* v = d->Get<AttributeValue<A>>();
  if (v == nullptr)
    return VEX_FAIL(vex::ErrorKind::WrongDataType, "Light attribute " + std::string(Info(A).key) + " is not a " +
                                                       std::string(ValueTypeName(Info(A).type)));
  return *v;
}

/// An enumeration attribute as its integer: none when absent or when the string is unknown to an
/// enumeration without a fallback (the attribute then counts as absent). WrongDataType when the
/// value is not an id.
vex::Result<std::optional<std::int32_t>> GetEnumeration(const vex::tessel::VEXObjectDescription& description,
                                                        LightAttr attr);

/// Any attribute as a host parameter value: the typed value, enumerations as int32, textures as
/// an ImageReference. None when the attribute is absent (or counts as absent). The typed read's
/// error otherwise.
vex::Result<std::optional<vex::Data>> ReadAsParameter(const vex::tessel::VEXObjectDescription& description,
                                                      LightAttr attr);

// ---------------------------------------------------------------------------------------------
// Object classes and the factory (component factories for the declarations)

/// `ObjectClassRegistry`: the host registry of object classes, each entry keyed by the node space
/// of the renderer it builds for and the object type (an ObjectClassKey record).
class ObjectClassRegistry {
 public:
  /// The class of the first entry, in registry order, whose keys equal both ids (whole strings).
  static std::optional<std::string> Find(std::string_view nodeSpaceId, std::string_view objectType);
  /// Every object type some class builds, each once, in registry order.
  static std::vector<std::string> ObjectTypes();
};

vex::Result<vex::ComponentRef> CreateBaseClass();
vex::Result<vex::ComponentRef> CreateLightClass();
vex::Result<vex::ComponentRef> CreateObjectFactory();

/// Makes the next class of a chain (a published class implementing the object-class interface).
vex::Result<std::shared_ptr<vex::tessel::IVexObjectClass>> NextClass(std::string_view classId);

// ---------------------------------------------------------------------------------------------
// Light units and colour temperature

/// The scene-scale values c0..c5 of a document's Corvane render settings.
struct LightUnitContext {
  std::array<double, 6> c = {100.0, 10000.0, 1.0, 1.0, 1.0, 1.0};
};

/// Fills the context from the document's first Corvane render post effect; without a document
/// the preloaded values stay. When the host cannot translate between the two units, c2 stays 1.
void ComputeLightUnitContext(vex::IDocument* document, LightUnitContext& context);

/// The emitting surface of a Corvane area light in square scene units; 1.0 for anything else.
double ComputeAreaLightSurface(const vex::ISceneObject& light);

/// The light's intensity in image units.
vex::Result<double> CVLightGetBaseIntensity(vex::ISceneObject* op);

/// Rewrites the light's intensity for the target units; leaves 0 in the units parameter.
vex::Result<void> CVLightConvertToUnit(vex::ISceneObject* op, std::int32_t targetUnits);

/// Linear sRGB of a black body at `temperature` kelvin adapted from the black body white at
/// `whiteTemperature` to D65 (Bradford); divided by the largest component when `normalize`.
vex::Color ComputeColorTemperatureRGB(double temperature, bool normalize, double whiteTemperature);

}  // namespace interop::lights
