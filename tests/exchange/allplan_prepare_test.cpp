// The preparation step: welding points and dropping collapsed polygons.
#include <gtest/gtest.h>

#include <cmath>

#include "exchange/allplan_prepare.h"
#include "host/polygon_object.h"
#include "host/scene.h"

namespace {

using interop::exchange::allplan::PrepareMesh;
using interop::exchange::allplan::PrepareObjects;
using interop::exchange::allplan::PrepareStats;

TEST(AllplanPrepare, WeldsCoincidentPointsAndDropsDegeneratePolygons) {
  vex::PolygonMesh mesh;
  // Two triangles of a quad with their own copies of the shared corners, an unused point, a
  // triangle that collapses to a line and a quad with a repeated corner.
  mesh.points = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {1, 1, 0}, {0, 1, 0}, {0, 0, 0}, {9, 9, 9}, {-0.0, 0, 0}};
  mesh.polygonSizes = {3, 3, 3, 4};
  mesh.polygonPoints = {0, 1, 2, 3, 4, 5, 0, 5, 1, 1, 2, 2, 3};
  PrepareStats stats;
  const auto out = PrepareMesh(mesh, 0.0, &stats);
  EXPECT_EQ(out.points, (std::vector<vex::Vector3d>{{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}}));
  EXPECT_EQ(out.polygonSizes, (std::vector<std::int32_t>{3, 3}));
  EXPECT_EQ(out.polygonPoints, (std::vector<std::int32_t>{0, 1, 2, 2, 3, 0}));
  EXPECT_EQ(stats.weldedPoints, 3u);  // 3 into 2, 5 and 7 (-0) into 0
  EXPECT_EQ(stats.droppedPolygons, 2u);
  EXPECT_EQ(stats.droppedPoints, 1u);
}

TEST(AllplanPrepare, ToleranceWeldsNearPointsIntoTheFirst) {
  vex::PolygonMesh mesh;
  mesh.points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1.0004, 0.0003, 0}, {0, 0, 1}};
  mesh.polygonSizes = {3, 3};
  mesh.polygonPoints = {0, 1, 2, 3, 2, 4};
  const auto near = PrepareMesh(mesh, 0.001);
  EXPECT_EQ(near.points.size(), 4u);
  EXPECT_EQ(near.polygonPoints, (std::vector<std::int32_t>{0, 1, 2, 1, 2, 3}));
  EXPECT_EQ(PrepareMesh(mesh, 0.0001).points.size(), 5u);

  // A mesh the walk must report is left as it is.
  vex::PolygonMesh broken = mesh;
  broken.polygonPoints[0] = 42;
  EXPECT_EQ(PrepareMesh(broken, 0.0), broken);
}

TEST(AllplanPrepare, CannotStartWithoutAUsableTolerance) {
  host::Document copy("copy");
  vex::PolygonMesh mesh;
  mesh.points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 0}};
  mesh.polygonSizes = {3};
  mesh.polygonPoints = {3, 1, 2};
  auto object = host::MakePolygonObject("tri", mesh);
  ASSERT_TRUE(copy.InsertObject(object, nullptr));
  for (const double bad : {-1.0, std::nan("")}) {
    auto prepared = PrepareObjects(copy, bad);
    ASSERT_FALSE(prepared);
    EXPECT_EQ(prepared.error().message,
              "Illegal argument: Condition std::isfinite(tolerance) && tolerance >= 0.0 not fulfilled.");
  }
  EXPECT_EQ(object->Parameters().Find(vex::kPolygonMeshParameter)->Get<vex::PolygonMesh>()->points.size(), 4u);
  ASSERT_TRUE(PrepareObjects(copy, 0.0));
  EXPECT_EQ(object->Parameters().Find(vex::kPolygonMeshParameter)->Get<vex::PolygonMesh>()->points.size(), 3u);
}

}  // namespace
