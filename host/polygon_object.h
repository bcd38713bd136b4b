// Polygon objects in the reference host: making them, the transforms of an
// object hierarchy, and the polygon copy of a document.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/scene.h"
#include "vex/polygon.h"

namespace host {

/// What the reference host's polygon objects carry beside their points and polygons (parameter
/// 943, host data; modules see only the mesh of 940): shading normals and texture coordinates per
/// polygon corner (in the order of `PolygonMesh::polygonPoints`), and a material per polygon as an
/// index into the object's own list of material names (names of the document's materials).
/// Each list is empty when the object has none of it.
struct PolygonAttributes {
  static constexpr std::string_view kDataTypeId = "net.kelvo.host.datatype.polygonattributes";
  std::vector<vex::Vector3d> normals;       ///< per corner, or empty
  std::vector<vex::Vector2d> uvs;           ///< per corner (v up, bottom-left origin), or empty
  std::vector<std::int32_t> materials;      ///< per polygon, index into materialNames or -1; or empty
  std::vector<std::string> materialNames;
  bool operator==(const PolygonAttributes&) const = default;
};
inline constexpr std::int32_t kPolygonAttributesParameter = 943;

/// The problem with `attributes` on `mesh` ("normals: 5 for 6 polygon corners"), or empty when
/// each list is empty or matches the mesh and every material index names a material.
std::string CheckPolygonAttributes(const vex::PolygonMesh& mesh, const PolygonAttributes& attributes);

/// A new polygon object (not yet inserted), with an optional colour (channels 0..1).
std::shared_ptr<SceneObject> MakePolygonObject(std::string name, vex::PolygonMesh mesh,
                                               std::optional<vex::Color> colour = std::nullopt);

/// An affine transform: rows of a 3x4 matrix (rotation and scale, then translation).
struct Affine {
  std::array<std::array<double, 4>, 3> m{{{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}}};
  vex::Vector3d Apply(const vex::Vector3d& p) const;
  Affine operator*(const Affine& other) const;
  bool IsIdentity() const;
};

/// The object's own transform from its parameters 903 (position), 904 (rotation in radians about
/// x, y and z, x first) and 905 (scale; absent means 1): position + rotation(scale * p).
Affine LocalTransform(const vex::ISceneObject& object);
/// The transform from the object's coordinates into the document's: the parents' transforms
/// applied after its own.
Affine GlobalTransform(const vex::ISceneObject& object);

/// The host's polygon service.
class Polygons final : public vex::IPolygons {
 public:
  /// Works for documents of this host. Polygon objects whose global transform is the identity
  /// share their mesh with the original.
  vex::Result<std::unique_ptr<vex::IDocument>> MakePolygonCopy(const vex::IDocument& document) override;
  /// Makes every copy fail (for tests of the saver's failure paths).
  bool refuse = false;
};

}  // namespace host
