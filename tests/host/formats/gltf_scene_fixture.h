// A scene for the glTF tests: a sphere and a two-material panel mesh under a transformed root,
// three materials of the glTF bundle (one with every texture, a sampler and a texture transform
// and an emission above 1; a blended one; a masked one), four lights (one an area light, which
// glTF cannot hold), a perspective and an orthographic camera. The base colour texture is 8x4
// with a red top row and blue below it, so that its orientation can be told from outside.
#pragma once

#include <cmath>
#include <memory>
#include <numbers>
#include <string>

#include "host/formats/scene_data.h"
#include "vex/ports.h"

namespace gltf_fixture {

/// A GLB of `json` with `bin` as its binary chunk (both padded to four bytes).
inline std::string Glb(std::string json, std::string bin) {
  while (json.size() % 4 != 0) json += ' ';
  while (bin.size() % 4 != 0) bin += '\0';
  const auto word = [](std::size_t v) {
    std::string w(4, '\0');
    for (std::size_t k = 0; k < 4; ++k) w[k] = static_cast<char>((v >> (8 * k)) & 0xFF);
    return w;
  };
  return "glTF" + word(2) + word(12 + 8 + json.size() + 8 + bin.size()) + word(json.size()) + "JSON" + json +
         word(bin.size()) + std::string("BIN\0", 4) + bin;
}


namespace formats = host::formats;
namespace port = vex::ports::gltf;

/// 8-bit sRGB code to linear light, so that texel values survive an 8-bit file exactly.
inline float Linear(int code) {
  const double c = code / 255.0;
  return static_cast<float>(c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4));
}

/// A constant material of the glTF bundle.
inline vex::ParameterSetRef ConstantMaterial(vex::ColorA base, double metallic, double roughness) {
  vex::ParameterSet set;
  (void)set.Tag(vex::Id(port::kId));
  set.SetConstant(port::baseColorFactor, base);
  set.SetConstant(port::metallicFactor, metallic);
  set.SetConstant(port::roughnessFactor, roughness);
  return std::make_shared<const vex::ParameterSet>(std::move(set));
}

inline formats::MeshData Sphere(int segments = 12, int rings = 6) {
  formats::MeshData mesh;
  mesh.name = "Sphere";
  const auto columns = static_cast<std::uint32_t>(segments + 1);
  for (int r = 0; r <= rings; ++r) {
    const double v = static_cast<double>(r) / rings, theta = v * std::numbers::pi;
    for (int s = 0; s <= segments; ++s) {
      const double u = static_cast<double>(s) / segments, phi = u * 2 * std::numbers::pi;
      const double p[3] = {std::sin(theta) * std::sin(phi), std::cos(theta), std::sin(theta) * std::cos(phi)};
      for (const double c : p)
        mesh.positions.push_back(static_cast<float>(c)), mesh.normals.push_back(static_cast<float>(c));
      for (const double c : {std::cos(phi), 0.0, -std::sin(phi), 1.0}) mesh.tangents.push_back(static_cast<float>(c));
      mesh.uvs.push_back(static_cast<float>(u));
      mesh.uvs.push_back(static_cast<float>(1.0 - v));  // the north pole at the top of the image
    }
  }
  for (int r = 0; r < rings; ++r)
    for (int s = 0; s < segments; ++s) {
      const std::uint32_t a = static_cast<std::uint32_t>(r) * columns + static_cast<std::uint32_t>(s), b = a + columns;
      if (r != 0) mesh.indices.insert(mesh.indices.end(), {a, b, a + 1});
      if (r != rings - 1) mesh.indices.insert(mesh.indices.end(), {a + 1, b, b + 1});
    }
  mesh.parts.push_back({0, static_cast<std::uint32_t>(mesh.TriangleCount()), 0});
  return mesh;
}

/// Two quads side by side sharing an edge, one per material.
inline formats::MeshData Panels() {
  formats::MeshData mesh;
  mesh.name = "Panels";
  mesh.positions = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 2, 0, 0, 2, 1, 0};
  mesh.normals = {0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 1};
  mesh.uvs = {0, 0, 0.5f, 0, 0.5f, 1, 0, 1, 1, 0, 1, 1};
  mesh.indices = {0, 1, 2, 0, 2, 3, 1, 4, 5, 1, 5, 2};
  mesh.parts = {{0, 2, 1}, {2, 2, 2}};
  return mesh;
}

inline formats::Matrix4 Trs(std::array<double, 3> t, std::array<double, 4> q, std::array<double, 3> s) {
  const double x = q[0], y = q[1], z = q[2], w = q[3];
  formats::Matrix4 m;
  // clang-format off
  m.m = {(1 - 2 * (y * y + z * z)) * s[0], 2 * (x * y + z * w) * s[0],       2 * (x * z - y * w) * s[0],       0,
         2 * (x * y - z * w) * s[1],       (1 - 2 * (x * x + z * z)) * s[1], 2 * (y * z + x * w) * s[1],       0,
         2 * (x * z + y * w) * s[2],       2 * (y * z - x * w) * s[2],       (1 - 2 * (x * x + y * y)) * s[2], 0,
         t[0],                             t[1],                             t[2],                             1};
  // clang-format on
  return m;
}

inline std::array<double, 4> AxisAngle(double x, double y, double z, double angle) {
  const double s = std::sin(angle / 2);
  return {x * s, y * s, z * s, std::cos(angle / 2)};
}

inline vex::TextureBuffer Pixels(int width, int height, auto fill) {
  auto t = vex::TextureBuffer::Make(width, height);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) fill(x, y, t._pixels->Pixel(static_cast<std::size_t>(y * width + x)));
  return t;
}

inline formats::SceneData Scene() {
  formats::SceneData scene;
  scene.name = "Fixture";
  scene.meshes = {Sphere(), Panels()};

  // The base colour: a red top row, blue below (sRGB-exact texels); alpha 1.
  auto base = Pixels(8, 4, [](int, int y, float* p) {
    p[0] = y == 0 ? Linear(255) : Linear(20), p[1] = Linear(y == 0 ? 0 : 40), p[2] = y == 0 ? Linear(0) : Linear(230),
    p[3] = 1;
  });
  base.colorSpace = "sRGB";
  // Occlusion in red, roughness in green, metal in blue, one image for both ports.
  auto orm = Pixels(4, 4, [](int x, int y, float* p) {
    p[0] = static_cast<float>(200 + x) / 255, p[1] = static_cast<float>(40 * y + 10) / 255,
    p[2] = static_cast<float>(60 * x) / 255, p[3] = 1;
  });
  auto normal = Pixels(4, 4, [](int x, int, float* p) {
    p[0] = static_cast<float>(128 + 10 * x) / 255, p[1] = 115.0f / 255, p[2] = 242.0f / 255, p[3] = 1;
  });
  auto emissive = Pixels(
      4, 2, [](int x, int y, float* p) { p[0] = Linear(50 * x), p[1] = Linear(100 * y), p[2] = Linear(7), p[3] = 1; });
  emissive.colorSpace = "sRGB";

  auto painted = std::make_shared<vex::ParameterSet>(vex::Id(port::kId));
  painted->SetConstant(port::baseColorFactor, vex::ColorA{0.9, 0.8, 0.7, 1.0});
  vex::Parameter baseEntry = vex::Parameter::Textured(vex::PackedConstantParameter(vex::ColorA{1, 1, 1, 1}), base);
  baseEntry.properties.Set("wrapS", std::string("CLAMP_TO_EDGE"));
  baseEntry.properties.Set("wrapT", std::string("MIRRORED_REPEAT"));
  baseEntry.properties.Set("magFilter", std::string("NEAREST"));
  baseEntry.properties.Set("minFilter", std::string("LINEAR_MIPMAP_NEAREST"));
  baseEntry.properties.Set("uvOffset", vex::Vector2d{0.25, 0.5});
  baseEntry.properties.Set("uvRotation", 0.3);
  baseEntry.properties.Set("uvScale", vex::Vector2d{2, 3});
  painted->Set(port::baseColorTexture, baseEntry);
  painted->SetConstant(port::alphaMode, std::string("OPAQUE"));
  painted->SetConstant(port::metallicFactor, 0.6);
  painted->SetConstant(port::roughnessFactor, 0.4);
  painted->Set(port::metallicRoughnessTexture,
               vex::Parameter::Textured(vex::PackedConstantParameter(vex::ColorA{1, 1, 1, 1}), orm));
  painted->SetConstant(port::emissiveFactor, vex::Color{1.0, 0.5, 0.25});
  painted->SetConstant(port::emissiveStrength, 2.5);
  painted->Set(port::emissiveTexture,
               vex::Parameter::Textured(vex::PackedConstantParameter(vex::ColorA{1, 1, 1, 1}), emissive));
  painted->SetConstant(port::normalScale, 0.7);
  painted->Set(port::normalTexture,
               vex::Parameter::Textured(vex::PackedConstantParameter(vex::ColorA{0.5, 0.5, 1, 1}), normal));
  painted->SetConstant(port::occlusionStrength, 0.8);
  painted->Set(port::occlusionTexture,
               vex::Parameter::Textured(vex::PackedConstantParameter(vex::ColorA{1, 1, 1, 1}), orm));

  auto glass = std::make_shared<vex::ParameterSet>(vex::Id(port::kId));
  glass->SetConstant(port::baseColorFactor, vex::ColorA{0.2, 0.4, 0.6, 1.0});
  glass->SetConstant(port::opacity, 0.5);
  glass->SetConstant(port::alphaMode, std::string("BLEND"));
  glass->SetConstant(port::metallicFactor, 0.0);
  glass->SetConstant(port::roughnessFactor, 0.1);

  auto leaf = std::make_shared<vex::ParameterSet>(vex::Id(port::kId));
  leaf->SetConstant(port::baseColorFactor, vex::ColorA{0.1, 0.7, 0.2, 1.0});
  leaf->SetConstant(port::alphaMode, std::string("MASK"));
  leaf->SetConstant(port::alphaCutoff, 0.3);
  leaf->SetConstant(port::metallicFactor, 0.25);
  leaf->SetConstant(port::roughnessFactor, 0.75);
  leaf->SetConstant(port::emissiveFactor, vex::Color{0.1, 0.2, 0.3});
  scene.materials = {{"Painted", painted}, {"Glass", glass}, {"Leaf", leaf}};

  formats::LightData point{
      .name = "Bulb", .type = formats::LightData::Type::Point, .color = {1, 0.9, 0.8}, .intensity = 120};
  point.range = 7.5;
  formats::LightData spot{.name = "Spot",
                          .type = formats::LightData::Type::Spot,
                          .color = {0.5, 0.6, 1},
                          .intensity = 800,
                          .innerConeAngle = 0.2,
                          .outerConeAngle = 0.5};
  formats::LightData sun{
      .name = "Sun", .type = formats::LightData::Type::Directional, .color = {1, 1, 0.9}, .intensity = 3.5};
  formats::LightData area{.name = "Window", .type = formats::LightData::Type::Rect, .intensity = 50};
  scene.lights = {point, spot, sun, area};
  scene.cameras = {
      {.name = "Lens", .yfov = 0.8, .aspectRatio = 1.6, .znear = 0.05, .zfar = 250},
      {.name = "Plan", .orthographic = true, .aspectRatio = 2, .orthoHeight = 6, .znear = 0.5, .zfar = 90}};

  using N = formats::NodeData;
  N root{.name = "Root", .local = Trs({1, 2, 3}, AxisAngle(0, 1, 0, std::numbers::pi / 6), {2, 2, 2})};
  N ball{.name = "Ball", .parent = 0, .local = Trs({0, 1, 0}, {0, 0, 0, 1}, {1, 1, 1}), .mesh = 0};
  N panels{.name = "Panels",
           .parent = 0,
           .local = Trs({-3, 0, 0.5}, AxisAngle(1, 0, 0, -std::numbers::pi / 2), {1, 0.5, 1}),
           .mesh = 1};
  N bulb{.name = "BulbNode", .parent = 2, .local = Trs({0, 0, 2}, {0, 0, 0, 1}, {1, 1, 1}), .light = 0};
  N spotNode{.name = "SpotNode",
             .parent = 0,
             .local = Trs({0, 4, 0}, AxisAngle(1, 0, 0, -std::numbers::pi / 2), {1, 1, 1}),
             .light = 1};
  N sunNode{.name = "SunNode", .local = Trs({0, 0, 0}, AxisAngle(1, 0, 0, -1.0), {1, 1, 1}), .light = 2};
  N windowNode{.name = "WindowNode", .local = Trs({0, 3, -2}, {0, 0, 0, 1}, {1, 1, 1}), .light = 3};
  N lens{.name = "LensNode", .local = Trs({0, 1.5, 6}, {0, 0, 0, 1}, {1, 1, 1}), .camera = 0};
  N plan{
      .name = "PlanNode", .local = Trs({0, 10, 0}, AxisAngle(1, 0, 0, -std::numbers::pi / 2), {1, 1, 1}), .camera = 1};
  scene.nodes = {root, ball, panels, bulb, spotNode, sunNode, windowNode, lens, plan};
  return scene;
}

/// The world transform of node `i`.
inline formats::Matrix4 World(const formats::SceneData& scene, int i) {
  formats::Matrix4 m = scene.nodes[static_cast<std::size_t>(i)].local;
  for (int p = scene.nodes[static_cast<std::size_t>(i)].parent; p >= 0;
       p = scene.nodes[static_cast<std::size_t>(p)].parent)
    m = scene.nodes[static_cast<std::size_t>(p)].local * m;
  return m;
}

}  // namespace gltf_fixture
