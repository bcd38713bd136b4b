// How the file formats say a light's brightness, from the interchange scene's photometric units
// (point and spot in candela, directional in lux, area and dome in nits; scene_data.h) and back.
// Every conversion a format writer or reader makes is here, once, so that the writers, the readers,
// the tests and docs/lights.md ("Lights in files") agree.
#pragma once

#include <algorithm>
#include <cmath>
#include <numbers>

#include "host/formats/scene_data.h"

namespace host::formats::light_units {

/// Lumens per watt at 555 nm: the factor Blender's glTF importer divides by (its watts).
inline constexpr double kLumensPerWatt = 683.0;
/// The radius of the sphere a point or spot light's candela are spread over where a format knows
/// only lights with a surface (USD's SphereLight): one centimetre.
inline constexpr double kPointRadiusMeters = 0.01;
/// FBX's Intensity is a percentage of the watts the readers make of it (Blender and three.js
/// divide by 100).
inline constexpr double kFbxIntensityPerWatt = 100.0;
/// The longer side of the film, in millimetres, that FBX cameras are written with (three.js
/// measures focal lengths against a 35 mm gauge too), and in tenths of a scene unit for USD.
inline constexpr double kFilmGauge = 35.0;
/// FBX stores the film in inches.
inline constexpr double kMillimetresPerInch = 25.4;

/// The emitting surface of an area light in square scene units: rectangle w h, disk pi r^2,
/// sphere 4 pi r^2, cylinder 2 pi r l (its side, the ends do not emit); 0 for other types.
inline double EmittingArea(const LightData& light) {
  constexpr double pi = std::numbers::pi;
  switch (light.type) {
    case LightData::Type::Rect: return light.width * light.height;
    case LightData::Type::Disk: return pi * light.radius * light.radius;
    case LightData::Type::Sphere: return 4 * pi * light.radius * light.radius;
    case LightData::Type::Cylinder: return 2 * pi * light.radius * light.length;
    default: return 0.0;
  }
}

/// The radius, in scene units, of the sphere a point light becomes.
inline double PointRadius(double metersPerUnit) { return kPointRadiusMeters / metersPerUnit; }

/// Candela as the luminance of a sphere of radius r seen from afar (its silhouette is a disc of
/// pi r^2): L = I / (pi r^2).
inline double SphereNitsFromCandela(double candela, double radius) {
  return candela / (std::numbers::pi * radius * radius);
}

/// The watts Blender gives a light: its glTF importer makes cd 4 pi / 683 of a point or spot
/// light and lux / 683 of a sun (W/m^2); an area light of luminance L over the area A sends
/// pi A L lumens (a Lambertian emitter), pi A L / 683 watts.
inline double BlenderWatts(const LightData& light) {
  constexpr double pi = std::numbers::pi;
  switch (light.type) {
    case LightData::Type::Point:
    case LightData::Type::Spot: return light.intensity * 4 * pi / kLumensPerWatt;
    case LightData::Type::Directional: return light.intensity / kLumensPerWatt;
    case LightData::Type::Dome: return 0.0;
    default: return light.intensity * pi * EmittingArea(light) / kLumensPerWatt;
  }
}

/// The inverse of BlenderWatts for the light's type and size (its own intensity is ignored).
inline double IntensityFromBlenderWatts(const LightData& light, double watts) {
  constexpr double pi = std::numbers::pi;
  switch (light.type) {
    case LightData::Type::Point:
    case LightData::Type::Spot: return watts * kLumensPerWatt / (4 * pi);
    case LightData::Type::Directional: return watts * kLumensPerWatt;
    case LightData::Type::Dome: return 0.0;
    default: {
      const double area = EmittingArea(light);
      return area > 0 ? watts * kLumensPerWatt / (pi * area) : 0.0;
    }
  }
}

/// USD's intensity and exposure for a value v > 0: exposure = floor(log2 v), intensity =
/// v / 2^exposure in [1, 2) (exact: a power of two only moves the exponent). Other values keep
/// exposure 0.
struct Exposed {
  double intensity;
  int exposure;
};
inline Exposed SplitExposure(double value) {
  if (!(value > 0) || !std::isfinite(value)) return {value, 0};
  const int exposure = static_cast<int>(std::floor(std::log2(value)));
  return {std::ldexp(value, -exposure), exposure};
}

/// The vertical field of view of a film `filmHeight` high behind a lens `focalLength` long (same
/// unit), and the focal length for a field of view.
inline double FieldOfView(double filmHeight, double focalLength) {
  return 2 * std::atan(filmHeight / (2 * focalLength));
}
inline double FocalLength(double filmHeight, double fieldOfView) {
  return filmHeight / (2 * std::tan(fieldOfView / 2));
}

/// The film a camera of this aspect (width / height) is written with: the longer side is the
/// gauge.
struct Film {
  double width, height;
};
inline Film FilmFor(double aspectRatio) {
  const double aspect = aspectRatio > 0 ? aspectRatio : 1.0;
  return aspect >= 1 ? Film{kFilmGauge, kFilmGauge / aspect} : Film{kFilmGauge * aspect, kFilmGauge};
}

}  // namespace host::formats::light_units
