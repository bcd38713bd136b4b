// A small whole scene for the FBX tests: two meshes (one with two materials), a three-node
// hierarchy with rotations and non-uniform scale, three materials of the two bundles the FBX writer
// takes (one textured with a 4x2 image and a normal map), centimetres and Z up.
#pragma once

#include <cmath>
#include <memory>
#include <numbers>
#include <string>
#include <utility>
#include <vector>

#include "host/formats/scene_data.h"
#include "vex/ports.h"

namespace fbx_test {

using host::formats::Matrix4;

/// Translation, Euler angles in degrees applied x then y then z, scale.
inline Matrix4 Trs(std::array<double, 3> t, std::array<double, 3> degrees, std::array<double, 3> s) {
  const double k = std::numbers::pi / 180.0;
  const double a = degrees[0] * k, b = degrees[1] * k, c = degrees[2] * k;
  const double ca = std::cos(a), sa = std::sin(a), cb = std::cos(b), sb = std::sin(b), cc = std::cos(c), sc = std::sin(c);
  // Rz * Ry * Rx, rows
  const double r[3][3] = {{cb * cc, sa * sb * cc - ca * sc, ca * sb * cc + sa * sc},
                          {cb * sc, sa * sb * sc + ca * cc, ca * sb * sc - sa * cc},
                          {-sb, sa * cb, ca * cb}};
  Matrix4 m;
  for (int col = 0; col < 3; ++col)
    for (int row = 0; row < 3; ++row) m.m[static_cast<std::size_t>(col * 4 + row)] = r[row][col] * s[static_cast<std::size_t>(col)];
  m.m[12] = t[0], m.m[13] = t[1], m.m[14] = t[2];
  return m;
}

inline vex::TextureBuffer Gradient(std::int64_t w, std::int64_t h) {
  auto t = vex::TextureBuffer::Make(w, h);
  for (std::size_t i = 0; i < t.GetCount(); ++i) {
    float* p = t._pixels->Pixel(i);
    p[0] = static_cast<float>(i) / static_cast<float>(t.GetCount());
    p[1] = 0.5f, p[2] = 1.0f - p[0], p[3] = 1.0f;
  }
  return t;
}

inline host::formats::SceneData MakeScene() {
  namespace obj = vex::ports::obj;
  namespace phong = vex::ports::fbxsurfacephong;
  host::formats::SceneData scene;
  scene.name = "test";
  scene.metersPerUnit = 0.01;
  scene.upAxis = 'Z';

  vex::ParameterSet brass;
  (void)brass.Tag(vex::Id(obj::kId));
  brass.SetConstant(obj::diffuse_color, vex::Color{0.6, 0.4, 0.2});
  brass.Find(obj::diffuse_color)->texture = Gradient(4, 2);
  brass.SetConstant(obj::metallic, 0.8);
  brass.SetConstant(obj::roughness, 0.3);
  brass.SetConstant(obj::normal_map, vex::Color{0.5, 0.5, 1.0});
  brass.Find(obj::normal_map)->texture = vex::TextureBuffer::Make(2, 2, {0.5f, 0.5f, 1.0f, 1.0f});
  vex::ParameterSet glass;
  (void)glass.Tag(vex::Id(phong::kId));
  glass.SetConstant(phong::diffuse, vex::Color{0.2, 0.3, 0.4});
  glass.SetConstant(phong::diffuseFactor, 0.5);
  glass.SetConstant(phong::emissive, vex::Color{2.0, 1.0, 0.5});
  glass.SetConstant(phong::transparentColor, vex::Color{1, 1, 1});
  glass.SetConstant(phong::transparencyFactor, 0.4);
  glass.SetConstant(phong::shininess, 49.0);
  glass.SetConstant(phong::specular, vex::Color{0.5, 0.4, 0.3});
  glass.SetConstant(phong::specularFactor, 0.75);
  vex::ParameterSet paint;
  (void)paint.Tag(vex::Id(obj::kId));
  paint.SetConstant(obj::diffuse_color, vex::Color{0.1, 0.8, 0.1});
  paint.SetConstant(obj::roughness, 0.9);
  paint.SetConstant(obj::opacity, 0.5);
  paint.SetConstant(obj::metallic, 1.0);
  paint.Find(obj::metallic)->texture = vex::TextureBuffer::Make(2, 2, {0.25f, 0.25f, 0.25f, 1.0f});
  for (auto& [name, set] : std::vector<std::pair<std::string, vex::ParameterSet*>>{{"Brass", &brass}, {"Glass", &glass}, {"Paint", &paint}})
    scene.materials.push_back({name, std::make_shared<const vex::ParameterSet>(*set)});

  host::formats::MeshData quads;  // a strip of two squares: the first Brass, the second Glass
  quads.name = "Quads";
  quads.positions = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 2, 0, 0, 2, 1, 0};
  quads.normals = {0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 1};
  quads.uvs = {0, 0, 0.5f, 0, 0.5f, 1, 0, 1, 1, 0, 1, 1};
  quads.indices = {0, 1, 2, 0, 2, 3, 1, 4, 5, 1, 5, 2};
  quads.parts = {{0, 2, 0}, {2, 2, 1}};
  host::formats::MeshData tri;
  tri.name = "Tri";
  tri.positions = {0, 0, 0, 1, 0, 0, 0, 0, 1};
  tri.normals = {0, -1, 0, 0, -1, 0, 0, -1, 0};
  tri.uvs = {0, 0, 1, 0, 0, 1};
  tri.indices = {0, 1, 2};
  tri.parts = {{0, 1, 2}};
  scene.meshes = {quads, tri};

  host::formats::NodeData root{"Root", -1, Trs({1, 2, 3}, {0, 0, 0}, {1, 1, 1}), -1, -1, -1};
  host::formats::NodeData body{"Body", 0, Trs({0, 1, 0}, {0, 0, 30}, {2, 2, 2}), 0, -1, -1};
  host::formats::NodeData fin{"Fin", 1, Trs({0.5, 0, 0.25}, {10, 20, 30}, {1, 2, 3}), 1, -1, -1};
  scene.nodes = {root, body, fin};
  return scene;
}

}  // namespace fbx_test
