// Polygon objects in the reference host: the scene file's mesh form and the
// polygon copy.
#include <gtest/gtest.h>

#include <numbers>

#include "host/polygon_object.h"
#include "host/scene_file.h"
#include "host/units.h"

namespace {

TEST(PolygonObjects, SceneFileKeepsMeshesAndRefusesBadIndices) {
  host::Document document("d");
  vex::PolygonMesh mesh;
  mesh.points = {{0, 0, 0}, {1.5, 0, 0}, {0, 2, -3}, {1, 1, 1}};
  mesh.polygonSizes = {3, 4};
  mesh.polygonPoints = {0, 1, 2, 0, 1, 3, 2};
  ASSERT_TRUE(document.InsertObject(host::MakePolygonObject("m", mesh, vex::Color{0.1, 0.2, 0.3}), nullptr));
  auto text = host::scene_file::Dump(document);
  ASSERT_TRUE(text) << text.error().message;
  EXPECT_NE(text->find("\"polygonmesh\""), std::string::npos);
  host::Document back("b");
  ASSERT_TRUE(host::scene_file::Parse(*text, "t.vex", back));
  const auto* read = back.Objects().at(0)->Parameters().Find(vex::kPolygonMeshParameter)->Get<vex::PolygonMesh>();
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(*read, mesh);
  EXPECT_EQ(back.Objects()[0]->GetType(), vex::kPolygonObjectType);

  host::Document bad("x");
  auto parsed = host::scene_file::Parse(
      R"({"objects": [{"type": 1100, "parameters": {"940": {"polygonmesh": {"points": [[0,0,0]], "polygons": [[0, 0]]}}}}]})",
      "bad.vex", bad);
  ASSERT_FALSE(parsed);
  EXPECT_EQ(parsed.error().message,
            "bad.vex: objects[0].parameters.940.polygons[0]: expected a list of at least three point indices");
}

TEST(PolygonObjects, TheCopyIsInGlobalCoordinatesAndSharesUnmovedMeshes) {
  host::Document document("d");
  vex::PolygonMesh mesh;
  mesh.points = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  mesh.polygonSizes = {3};
  mesh.polygonPoints = {0, 1, 2};
  auto still = host::MakePolygonObject("still", mesh);
  ASSERT_TRUE(document.InsertObject(still, nullptr));
  auto group = std::make_shared<host::SceneObject>(vex::kGroupObjectType);
  group->MutableParameters().Set(vex::kObjectRelativePosition, vex::Vector3d{0, 5, 0});
  group->MutableParameters().Set(vex::kObjectRelativeRotation, vex::Vector3d{std::numbers::pi / 2, 0, 0});  // about x
  auto* parent = *document.InsertObject(group, nullptr);
  auto moved = host::MakePolygonObject("moved", mesh);
  moved->MutableParameters().Set(vex::kObjectUuidParameter, std::string("id"));
  ASSERT_TRUE(document.InsertObject(moved, parent));

  host::Polygons polygons;
  auto copy = polygons.MakePolygonCopy(document);
  ASSERT_TRUE(copy);
  auto* doc = static_cast<host::Document*>(copy->get());
  const auto all = doc->AllObjects();
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(all[0]->Parameters().Find(vex::kPolygonMeshParameter)->CustomTypeId(), vex::PolygonMesh::kDataTypeId);
  EXPECT_EQ(*all[0]->Parameters().Find(vex::kPolygonMeshParameter), *still->Parameters().Find(vex::kPolygonMeshParameter));
  EXPECT_EQ(all[1]->GetType(), vex::kGroupObjectType);
  EXPECT_FALSE(all[1]->Parameters().Contains(vex::kObjectRelativePosition));
  const auto* global = all[2]->Parameters().Find(vex::kPolygonMeshParameter)->Get<vex::PolygonMesh>();
  // (0, 1, 0) turned about x becomes (0, 0, 1), then moved up to (0, 5, 1); (0, 0, 1) becomes (0, 4, 0).
  EXPECT_NEAR(global->points[1].y, 5, 1e-12);
  EXPECT_NEAR(global->points[1].z, 1, 1e-12);
  EXPECT_NEAR(global->points[2].y, 4, 1e-12);
  EXPECT_NEAR(global->points[2].z, 0, 1e-12);
  EXPECT_EQ(all[2]->Parameters().GetString(vex::kObjectUuidParameter), "id");

  polygons.refuse = true;
  EXPECT_FALSE(polygons.MakePolygonCopy(document));
}

}  // namespace
