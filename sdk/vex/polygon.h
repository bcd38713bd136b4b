// Polygon objects as modules see them: the mesh a polygon object carries, the
// object parameters that describe it, and the host's service that makes a
// polygon copy of a document.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "vex/data.h"
#include "vex/error.h"
#include "vex/scene.h"

namespace vex {

/// Host object type of a polygon object: an object whose shape is a PolygonMesh.
inline constexpr std::int32_t kPolygonObjectType = 1100;

/// Object parameters of polygon objects (and, for colour and identity, of any object).
inline constexpr std::int32_t kPolygonMeshParameter = 940;  ///< PolygonMesh (custom data)
inline constexpr std::int32_t kObjectColorParameter = 941;  ///< Color, channels 0..1; absent: no colour
inline constexpr std::int32_t kObjectUuidParameter = 942;   ///< string "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx"

/// Points and polygons of one object, in the object's own coordinates. Polygon i has
/// `polygonSizes[i]` corners; their point indices follow one another in `polygonPoints`.
struct PolygonMesh {
  static constexpr std::string_view kDataTypeId = "net.kelvo.datatype.polygonmesh";
  std::vector<Vector3d> points;
  std::vector<std::int32_t> polygonSizes;
  std::vector<std::int32_t> polygonPoints;

  std::size_t PolygonCount() const { return polygonSizes.size(); }
  bool operator==(const PolygonMesh&) const = default;
};

/// The host's polygon service.
class IPolygons {
 public:
  virtual ~IPolygons() = default;
  /// A copy of the document in which every object is turned into polygons: polygon objects keep
  /// their name, colour and identity and carry their mesh in global coordinates (the transforms
  /// of the object and its parents applied, the copy's own transforms left at identity); every
  /// other object becomes an empty group that keeps its name and children. The copy belongs to
  /// the caller, who frees it. Fails when the host cannot convert the document.
  virtual Result<std::unique_ptr<IDocument>> MakePolygonCopy(const IDocument& document) = 0;
};

}  // namespace vex
