// The object walk of the Allplan XML writer: every polygon object of the
// polygon copy becomes a polyhedron in a 3D representation, with its points,
// edges and faces, its style and its identity.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "exchange/allplan_main.h"
#include "vex/polygon.h"
#include "vex/scene.h"

namespace interop::exchange::allplan {

/// The geometry options the walk is handed.
struct WalkOptions {
  bool edges = false;    ///< 2001
  bool faces = false;    ///< 2004
  bool volumes = false;  ///< 2006
  bool packed = false;   ///< 2007
  double weldTolerance = 0.0;  ///< 2008 (used by the preparation step before the walk)

  static WalkOptions From(const AllplanOptions& options);
};

/// The polyhedron form an object is written in.
enum class Dimension : std::uint8_t { Edges, Faces, Volumes };
/// Volumes over faces over edges; faces when none of the three is set.
Dimension ChooseDimension(const WalkOptions& options);

/// The nil identifier, for objects without an identity of their own.
inline constexpr std::string_view kNilUuid = "00000000-0000-0000-0000-000000000000";
/// Whether `text` is an identifier of the form xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx (hex digits).
bool IsUuid(std::string_view text);

/// drawingId of every element: a save writes one drawing.
inline constexpr std::uint32_t kDrawingId = 1;

/// Writes the elements of the copy's objects. `startFlag` is the depth the walk starts at (0).
/// `defaultColour` (0..255) styles objects without a colour. Objects that cannot be written
/// (no mesh, a polygon with fewer than three corners, an index out of range, a coordinate that
/// is not finite) are left out whole, each with a log line; the walk then goes on and fails at
/// the end with "Allplan export: <n> object(s) could not be written".
vex::Result<void> WalkObjects(AllplanWriter& writer, vex::IDocument& document, vex::IDocument& polygonCopy,
                              int startFlag, const vex::Color& defaultColour, const WalkOptions& options);

}  // namespace interop::exchange::allplan
