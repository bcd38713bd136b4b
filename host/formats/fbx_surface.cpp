#include "host/formats/fbx_surface.h"

#include <algorithm>
#include <cmath>

#include "host/formats/formats.h"
#include "vex/ports.h"

namespace host::formats::detail {
namespace {

vex::Color Times(const vex::Color& c, double f) { return {c.r * f, c.g * f, c.b * f}; }
double Max(const vex::Color& c) { return std::max({c.r, c.g, c.b}); }
bool IsGrey(const vex::Color& c) { return std::abs(c.r - c.g) < 1e-9 && std::abs(c.g - c.b) < 1e-9; }

struct Builder {
  const PortReader& ports;
  Surface& s;
  void Texture(std::string_view port, const char* property) {
    if (const auto* t = ports.Texture(port))
      s.textures.push_back({property, std::string(port), t, ports.IsColorPort(port)});
  }
  /// An emission as colour and factor with the colour's largest channel at most 1 (readers that
  /// take the colour as a display colour clamp it; the product is the same).
  void Emission(const vex::Color& c, double factor) {
    const double peak = Max(c);
    if (peak > 1.0) {
      s.emissive = Times(c, 1.0 / peak);
      s.emissiveFactor = factor * peak;
    } else {
      s.emissive = c;
      s.emissiveFactor = factor;
    }
  }
  void Opacity(double opacity) {
    s.opacity = std::clamp(opacity, 0.0, 1.0);
    s.transparentColor = {1, 1, 1};
    s.transparencyFactor = 1.0 - s.opacity;
  }
};

void FromFbxPhong(const PortReader& p, Builder& b, std::vector<std::string>& losses) {
  namespace port = vex::ports::fbxsurfacephong;
  Surface& s = b.s;
  // Readers differ on whether they apply DiffuseFactor; the product with factor 1 reads the same
  // everywhere. A textured factor keeps its constant beside the texture.
  const bool diffuseFactorTextured = p.Texture(port::diffuseFactor) != nullptr;
  s.diffuse = diffuseFactorTextured ? p.Rgb(port::diffuse, s.diffuse)
                                    : Times(p.Rgb(port::diffuse, s.diffuse), p.Number(port::diffuseFactor, 1.0));
  s.diffuseFactor = diffuseFactorTextured ? p.Number(port::diffuseFactor, 1.0) : 1.0;
  s.ambient = p.Rgb(port::ambient, s.ambient);
  s.ambientFactor = p.Number(port::ambientFactor, 1.0);
  b.Emission(p.Rgb(port::emissive, {0, 0, 0}), p.Number(port::emissiveFactor, 1.0));
  s.specular = p.Rgb(port::specular, s.specular);
  s.specularFactor = p.Number(port::specularFactor, 1.0);
  s.shininess = std::clamp(p.Number(port::shininess, 20.0), 0.0, 100.0);
  if (p.Number(port::shininess, 20.0) > 100.0) losses.push_back("shininess above 100 written as 100");
  s.reflection = p.Rgb(port::reflection, s.reflection);
  s.reflectionFactor = p.Number(port::reflectionFactor, 1.0);
  // FBX's rule: opacity = 1 - factor x mean(colour). Written as a white colour and the factor
  // 1 - opacity, with Opacity beside, so that every reader's rule gives the same opacity.
  const vex::Color t = p.Rgb(port::transparentColor, {0, 0, 0});
  const double factor = p.Number(port::transparencyFactor, 0.0);
  b.Opacity(1.0 - factor * (t.r + t.g + t.b) / 3.0);
  if (factor > 0 && !IsGrey(t)) losses.push_back("transparentColor: the tint of the transparency is written as its mean");
  b.Texture(port::diffuse, "DiffuseColor");
  b.Texture(port::diffuseFactor, "DiffuseFactor");
  b.Texture(port::ambient, "AmbientColor");
  b.Texture(port::ambientFactor, "AmbientFactor");
  b.Texture(port::emissive, "EmissiveColor");
  b.Texture(port::emissiveFactor, "EmissiveFactor");
  b.Texture(port::specular, "SpecularColor");
  b.Texture(port::specularFactor, "SpecularFactor");
  b.Texture(port::shininess, "ShininessExponent");
  b.Texture(port::reflection, "ReflectionColor");
  b.Texture(port::reflectionFactor, "ReflectionFactor");
  b.Texture(port::transparentColor, "TransparentColor");
  b.Texture(port::transparencyFactor, "TransparencyFactor");
  b.Texture(port::normalMap, "NormalMap");
  if (p.Texture(port::normalMap) == nullptr && p.Rgb(port::normalMap, {0, 0, 0}) != vex::Color{0, 0, 0})
    losses.push_back("normalMap: a constant normal has no place on an FBX surface; left out");
}

void FromObj(const PortReader& p, Builder& b, std::vector<std::string>& losses) {
  namespace port = vex::ports::obj;
  Surface& s = b.s;
  const vex::Color white{1, 1, 1};
  // A textured colour is the texture alone, as in the MTL file.
  auto colour = [&](std::string_view name, vex::Color fallback) {
    return p.Texture(name) != nullptr ? white : p.Rgb(name, fallback);
  };
  s.diffuse = colour(port::diffuse_color, {0.8, 0.8, 0.8});
  s.specular = colour(port::specular_color, {0, 0, 0});
  b.Emission(colour(port::emissive_color, {0, 0, 0}), 1.0);
  const double roughness = std::clamp(p.Number(port::roughness, 0.5), 0.0, 1.0);
  s.shininess = ShininessFromRoughness(roughness);
  // Metalness rides on the reflection: a metal reflects its base colour (the factor is what
  // readers that know metalness take as it).
  s.reflectionFactor = p.Texture(port::metallic) != nullptr ? 1.0 : std::clamp(p.Number(port::metallic, 0.0), 0.0, 1.0);
  s.reflection = s.reflectionFactor > 0 ? s.diffuse : vex::Color{0, 0, 0};
  b.Opacity(p.Texture(port::opacity) != nullptr ? 1.0 : p.Number(port::opacity, 1.0));
  b.Texture(port::diffuse_color, "DiffuseColor");
  b.Texture(port::specular_color, "SpecularColor");
  b.Texture(port::emissive_color, "EmissiveColor");
  b.Texture(port::roughness, "ShininessExponent");
  b.Texture(port::metallic, "ReflectionFactor");
  b.Texture(port::opacity, "TransparentColor");
  b.Texture(port::normal_map, "NormalMap");
  // The OBJ model has no strength port: the conversion carries the strength as a property of the
  // normal map's entry, as MTL's bump multiplier takes it.
  if (const vex::Parameter* normal = p.Set().Find(port::normal_map); normal != nullptr && normal->texture)
    if (const vex::Data* strength = normal->properties.Find("strength"))
      if (const double* value = strength->Get<double>()) s.bumpFactor = *value;
  if (p.Number(port::anisotropy, 0.0) != 0.0 || p.Texture(port::anisotropy) != nullptr)
    losses.push_back("anisotropy: an FBX Phong surface has no anisotropy; left out");
  // White lets light through untinted, which the white TransparentColor says as well.
  if (p.Rgb(port::transmission_color, white) != white || p.Texture(port::transmission_color) != nullptr)
    losses.push_back("transmission_color: an FBX Phong surface has no tinted transmission; left out");
  if (std::abs(p.Number(port::transmission_ior, 1.5) - 1.5) > 1e-9)
    losses.push_back("transmission_ior: an FBX Phong surface has no index of refraction; left out");
}

}  // namespace

double ShininessFromRoughness(double roughness) {
  const double r = std::clamp(roughness, 0.0, 1.0);
  return 100.0 * (1.0 - r) * (1.0 - r);
}

double RoughnessFromShininess(double shininess) {
  return 1.0 - std::sqrt(std::clamp(shininess, 0.0, 100.0)) / 10.0;
}

vex::Result<Surface> MakeSurface(const vex::ParameterSet& set, const vex::IPortBundles& bundles,
                                 std::vector<std::string>& losses) {
  const PortReader ports(set, bundles);
  Surface surface;
  Builder builder{ports, surface};
  if (set.GetBundle() == vex::ports::fbxsurfacephong::kId) FromFbxPhong(ports, builder, losses);
  else if (set.GetBundle() == vex::ports::obj::kId) FromObj(ports, builder, losses);
  else
    return VEX_FAIL(vex::ErrorKind::IllegalArgument,
                    "the fbx writer does not take sets of the bundle " + set.GetBundle().Str());
  return surface;
}

}  // namespace host::formats::detail
