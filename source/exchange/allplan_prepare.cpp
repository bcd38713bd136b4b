#include "exchange/allplan_prepare.h"

#include <cmath>
#include <cstring>
#include <unordered_map>
#include <vector>

namespace interop::exchange::allplan {
namespace {

/// The grid cell of a coordinate: the tolerance is the cell size, so points within it lie in
/// the same or a neighbouring cell.
std::int64_t Cell(double v, double size) {
  const double cell = std::floor(v / size);
  constexpr double kLimit = 4.0e18;  // far cells share an index: welding there is only slower
  return static_cast<std::int64_t>(cell < -kLimit ? -kLimit : (cell > kLimit ? kLimit : cell));
}

struct CellKey {
  std::int64_t x, y, z;
  bool operator==(const CellKey&) const = default;
};
struct CellHash {
  std::size_t operator()(const CellKey& k) const {
    std::uint64_t h = static_cast<std::uint64_t>(k.x) * 0x9E3779B97F4A7C15ull;
    h ^= static_cast<std::uint64_t>(k.y) * 0xC2B2AE3D27D4EB4Full + (h << 6) + (h >> 2);
    h ^= static_cast<std::uint64_t>(k.z) * 0x165667B19E3779F9ull + (h << 6) + (h >> 2);
    return static_cast<std::size_t>(h);
  }
};

/// Exact coordinates as a key (-0 and 0 are the same place).
CellKey ExactKey(const vex::Vector3d& p) {
  const auto bits = [](double v) {
    if (v == 0.0) v = 0.0;
    std::int64_t b;
    std::memcpy(&b, &v, sizeof b);
    return b;
  };
  return {bits(p.x), bits(p.y), bits(p.z)};
}

bool Valid(const vex::PolygonMesh& mesh) {
  std::size_t corners = 0;
  for (const std::int32_t size : mesh.polygonSizes) {
    if (size < 0) return false;
    corners += static_cast<std::size_t>(size);
  }
  if (corners != mesh.polygonPoints.size()) return false;
  for (const std::int32_t p : mesh.polygonPoints)
    if (p < 0 || static_cast<std::size_t>(p) >= mesh.points.size()) return false;
  for (const auto& p : mesh.points)
    if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z)) return false;
  return true;
}

/// For every point, the point it is welded into (itself when it is the first at its place).
std::vector<std::uint32_t> Weld(const std::vector<vex::Vector3d>& points, double tolerance) {
  std::vector<std::uint32_t> into(points.size());
  if (tolerance == 0.0) {
    std::unordered_map<CellKey, std::uint32_t, CellHash> first;
    first.reserve(points.size());
    for (std::size_t i = 0; i < points.size(); ++i)
      into[i] = first.try_emplace(ExactKey(points[i]), static_cast<std::uint32_t>(i)).first->second;
    return into;
  }
  // Kept points by cell; a point joins the first kept point within the tolerance on every axis.
  std::unordered_map<CellKey, std::vector<std::uint32_t>, CellHash> cells;
  cells.reserve(points.size());
  for (std::size_t i = 0; i < points.size(); ++i) {
    const auto& p = points[i];
    const CellKey c{Cell(p.x, tolerance), Cell(p.y, tolerance), Cell(p.z, tolerance)};
    std::uint32_t found = static_cast<std::uint32_t>(i);
    for (std::int64_t dx = -1; dx <= 1 && found == i; ++dx)
      for (std::int64_t dy = -1; dy <= 1 && found == i; ++dy)
        for (std::int64_t dz = -1; dz <= 1 && found == i; ++dz) {
          const auto it = cells.find({c.x + dx, c.y + dy, c.z + dz});
          if (it == cells.end()) continue;
          for (const std::uint32_t k : it->second) {
            const auto& q = points[k];
            if (std::fabs(q.x - p.x) <= tolerance && std::fabs(q.y - p.y) <= tolerance &&
                std::fabs(q.z - p.z) <= tolerance && (found == i || k < found))
              found = k;
          }
        }
    into[i] = found;
    if (found == i) cells[c].push_back(static_cast<std::uint32_t>(i));
  }
  return into;
}

}  // namespace

vex::PolygonMesh PrepareMesh(const vex::PolygonMesh& mesh, double tolerance, PrepareStats* stats) {
  if (!Valid(mesh)) return mesh;
  PrepareStats local;
  const std::vector<std::uint32_t> into = Weld(mesh.points, tolerance);
  for (std::size_t i = 0; i < into.size(); ++i)
    if (into[i] != i) ++local.weldedPoints;

  vex::PolygonMesh out;
  out.polygonSizes.reserve(mesh.polygonSizes.size());
  out.polygonPoints.reserve(mesh.polygonPoints.size());
  std::vector<std::uint32_t> loop;
  std::size_t corner = 0;
  for (const std::int32_t size : mesh.polygonSizes) {
    loop.clear();
    for (std::int32_t k = 0; k < size; ++k) {
      const std::uint32_t p = into[static_cast<std::size_t>(mesh.polygonPoints[corner + static_cast<std::size_t>(k)])];
      if (loop.empty() || loop.back() != p) loop.push_back(p);
    }
    corner += static_cast<std::size_t>(size);
    while (loop.size() > 1 && loop.back() == loop.front()) loop.pop_back();
    if (loop.size() < 3) {
      ++local.droppedPolygons;
      continue;
    }
    out.polygonSizes.push_back(static_cast<std::int32_t>(loop.size()));
    for (const std::uint32_t p : loop) out.polygonPoints.push_back(static_cast<std::int32_t>(p));
  }

  // Keep the points still in use, in their order.
  constexpr std::uint32_t kUnused = 0xFFFFFFFFu;
  std::vector<std::uint32_t> renumber(mesh.points.size(), kUnused);
  for (const std::int32_t p : out.polygonPoints) renumber[static_cast<std::size_t>(p)] = 0;
  for (std::size_t i = 0; i < renumber.size(); ++i) {
    if (renumber[i] == kUnused) {
      if (into[i] == i) ++local.droppedPoints;
      continue;
    }
    renumber[i] = static_cast<std::uint32_t>(out.points.size());
    out.points.push_back(mesh.points[i]);
  }
  for (auto& p : out.polygonPoints) p = static_cast<std::int32_t>(renumber[static_cast<std::size_t>(p)]);
  if (stats != nullptr) {
    stats->weldedPoints += local.weldedPoints;
    stats->droppedPolygons += local.droppedPolygons;
    stats->droppedPoints += local.droppedPoints;
  }
  return out;
}

vex::Result<PrepareStats> PrepareObjects(vex::IDocument& polygonCopy, double tolerance) {
  VEX_CHECK_ARGUMENT(std::isfinite(tolerance) && tolerance >= 0.0);
  PrepareStats stats;
  std::vector<vex::ISceneObject*> stack = polygonCopy.GetObjects();
  while (!stack.empty()) {
    vex::ISceneObject* object = stack.back();
    stack.pop_back();
    for (auto* c : object->GetChildren()) stack.push_back(c);
    if (object->GetType() != vex::kPolygonObjectType) continue;
    auto value = object->GetParameter(vex::kPolygonMeshParameter);
    if (!value) continue;
    const auto* mesh = value->Get<vex::PolygonMesh>();
    if (mesh == nullptr) continue;
    VEX_TRY(object->SetParameter(vex::kPolygonMeshParameter, vex::Data::MakeCustom(PrepareMesh(*mesh, tolerance, &stats))));
  }
  return stats;
}

}  // namespace interop::exchange::allplan
