// The interchange scene: what every file reader of the host produces and every file writer takes.
// A material's preview (one sphere, one material) and a whole document are the same thing here, so
// one writer per format serves both. Units and axes are the file's own once a reader is done and
// the writer's own before it starts: the pipeline converts between them (ConvertFrame).
#pragma once

#include <array>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vex/material.h"

namespace host::formats {

/// A column-major 4x4 affine transform (the last row is 0 0 0 1), as glTF and USD store it.
struct Matrix4 {
  std::array<double, 16> m{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  Matrix4 operator*(const Matrix4& o) const {
    Matrix4 r;
    for (int c = 0; c < 4; ++c)
      for (int row = 0; row < 4; ++row) {
        double s = 0;
        for (int k = 0; k < 4; ++k) s += m[static_cast<std::size_t>(k * 4 + row)] * o.m[static_cast<std::size_t>(c * 4 + k)];
        r.m[static_cast<std::size_t>(c * 4 + row)] = s;
      }
    return r;
  }
  /// The transpose: the inverse of a rotation.
  Matrix4 Transposed() const {
    Matrix4 t;
    for (int c = 0; c < 4; ++c)
      for (int row = 0; row < 4; ++row) t.m[static_cast<std::size_t>(c * 4 + row)] = m[static_cast<std::size_t>(row * 4 + c)];
    return t;
  }
  bool IsIdentity() const { return *this == Matrix4{}; }
  bool IsFinite() const {
    for (double v : m)
      if (!std::isfinite(v)) return false;
    return true;
  }
  bool operator==(const Matrix4&) const = default;
};

/// Triangles with per-vertex attributes. Texture coordinates use the bottom-left origin (v grows
/// upwards in the image); a format that counts v from the top converts on its way in and out.
struct MeshData {
  std::string name;
  std::vector<float> positions;  ///< x, y, z per vertex
  std::vector<float> normals;    ///< x, y, z per vertex, or empty
  std::vector<float> uvs;        ///< u, v per vertex, or empty
  std::vector<float> tangents;   ///< x, y, z, w per vertex, or empty
  std::vector<std::uint32_t> indices;  ///< three per triangle
  /// Consecutive runs of triangles sharing one material (index into SceneData::materials, -1 for
  /// none). Empty means every triangle uses material -1.
  struct Part {
    std::uint32_t firstTriangle = 0;
    std::uint32_t triangleCount = 0;
    int material = -1;
  };
  std::vector<Part> parts;
  std::size_t VertexCount() const { return positions.size() / 3; }
  std::size_t TriangleCount() const { return indices.size() / 3; }
};

/// A material by name with its parameter set. Writers take sets in one of their format's
/// bundles (the pipeline maps them there); readers produce sets in their format's bundle, with
/// textures loaded as pixel buffers (their size and aspect as the file has them).
struct MaterialData {
  std::string name;
  vex::ParameterSetRef set;
};

/// A light in the photometric units that the interchange formats share; the pipeline converts to
/// and from the host's light description.
struct LightData {
  enum class Type { Point, Spot, Directional, Rect, Disk, Sphere, Cylinder, Dome };
  std::string name;
  Type type = Type::Point;
  vex::Color color{1, 1, 1};           ///< linear, already multiplied by a colour temperature's RGB
  std::optional<double> temperature;   ///< kelvin, when the light uses a colour temperature
  /// The normalised RGB of `temperature` that `color` includes ((1, 1, 1) without a temperature),
  /// for formats that apply the temperature themselves and take the colour without it.
  vex::Color temperatureRgb{1, 1, 1};
  /// Point and spot: candela; directional: lux; area lights and dome: nits (cd/m^2).
  double intensity = 1.0;
  double innerConeAngle = 0.0;  ///< spot, radians from the axis
  double outerConeAngle = 0.7853981633974483;
  std::optional<double> range;  ///< falloff radius in scene units
  double width = 1.0, height = 1.0, radius = 0.5, length = 1.0;  ///< area shapes, scene units
  std::string texture;           ///< dome: image file
};

struct CameraData {
  std::string name;
  bool orthographic = false;
  double yfov = 0.6911112070083618;  ///< perspective: vertical field of view, radians
  double aspectRatio = 1.5;          ///< width / height
  double orthoHeight = 2.0;          ///< orthographic: height of the view volume, scene units
  double znear = 0.1, zfar = 1000.0; ///< scene units
};

/// A node of the hierarchy: its local transform relative to its parent and what it carries.
/// Lights shine and cameras look down their node's -Z axis with +Y up.
struct NodeData {
  std::string name;
  int parent = -1;  ///< index of the parent in SceneData::nodes (parents come before children)
  Matrix4 local;
  int mesh = -1, light = -1, camera = -1;
};

struct SceneData {
  std::string name;
  double metersPerUnit = 1.0;
  char upAxis = 'Y';  ///< 'Y' or 'Z'
  std::vector<NodeData> nodes;
  std::vector<MeshData> meshes;
  std::vector<MaterialData> materials;
  std::vector<LightData> lights;
  std::vector<CameraData> cameras;
  /// What a reader met and could not carry, one line each ("material 'X': ... ").
  std::vector<std::string> warnings;
};

}  // namespace host::formats
