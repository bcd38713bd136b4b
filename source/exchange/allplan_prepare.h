// The preparation step of the Allplan saver (option 2000): welds coincident
// points of the polygon copy and drops the polygons that collapse.
#pragma once

#include "vex/polygon.h"
#include "vex/scene.h"

namespace interop::exchange::allplan {

/// What preparing one mesh did.
struct PrepareStats {
  std::size_t weldedPoints = 0;       ///< points merged into an earlier point
  std::size_t droppedPolygons = 0;    ///< polygons with fewer than three corners left
  std::size_t droppedPoints = 0;      ///< points no polygon uses any more
};

/// Welds points closer than `tolerance` (per axis, within a cube of that size; 0 welds only
/// points at exactly the same place) into the first of them, removes repeated neighbouring
/// corners from every polygon, drops polygons left with fewer than three corners, and drops
/// points no polygon uses. Point order is kept otherwise. A mesh with an index out of range is
/// returned unchanged (the walk reports it).
vex::PolygonMesh PrepareMesh(const vex::PolygonMesh& mesh, double tolerance, PrepareStats* stats = nullptr);

/// Runs PrepareMesh on every polygon object of the copy. `tolerance` is in the copy's units.
/// Fails without changing anything when the step cannot start: a tolerance that is negative or
/// not finite.
vex::Result<PrepareStats> PrepareObjects(vex::IDocument& polygonCopy, double tolerance);

}  // namespace interop::exchange::allplan
