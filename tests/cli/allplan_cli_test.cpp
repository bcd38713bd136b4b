// The Allplan saver as the application reaches it: registered by the loaded
// library (dialogs and log with the module's own strings), and through
// `vexinterop allplan` on scenes and mesh files.
#include <gtest/gtest.h>

#include "run_tool.h"
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "exchange/allplan_support.h"
#include "host/reference_host.h"

namespace fs = std::filesystem;

namespace {

using namespace allplan_test;

using cli_test::Outcome;
using cli_test::Tool;

/// Parses a file and returns the polyhedra's point counts, or fails the test.
std::vector<std::size_t> PointCounts(const std::string& path) {
  pugi::xml_document xml;
  EXPECT_EQ(ParseProblem(path, xml), "") << path;
  std::vector<std::size_t> counts;
  for (auto node : xml.select_nodes("//noi:GEO_POINT_LIST_3D")) counts.push_back(node.node().attribute("count").as_ullong());
  return counts;
}

TEST(AllplanModule, DialogsAndLogUseTheModulesStrings) {
  host::HostOptions options;
  options.quiet = true;
  host::ReferenceHost host(options);
  ASSERT_TRUE(host.Load(INTEROP_MODULE_PATH));
  const auto* saver = host.plugins().FindSaver("xml");
  ASSERT_NE(saver, nullptr);
  EXPECT_EQ(saver->id, 1016440);
  EXPECT_EQ(saver->name, "Allplan XML");

  TempDir dir("module");
  auto& document = host.documents().NewDocument("scene");
  auto mesh = Triangle({0, 0, 0}, {1, 0, 0}, {0, 1, 0});
  mesh.polygonPoints[2] = 7;
  ASSERT_TRUE(document.InsertObject(host::MakePolygonObject("broken", mesh), nullptr));
  vex::ParamContainer settings;
  EXPECT_EQ(saver->allocate()->Save(settings, dir.File("a.xml"), document), 0);
  ASSERT_EQ(host.dialogs().Records().size(), 1u);
  EXPECT_EQ(host.dialogs().Records()[0].text, "The Allplan export reported problems.");

  host.dialogs().Clear();
  settings.Set(2009, true);
  settings.Set(2007, true);
  EXPECT_EQ(saver->allocate()->Save(settings, dir.File("b.xml"), document), 0);
  ASSERT_EQ(host.dialogs().Records().size(), 1u);
  EXPECT_TRUE(host.dialogs().Records()[0].question);
  EXPECT_EQ(host.dialogs().Records()[0].text, "The Allplan export reported problems. Show the log?");
  EXPECT_EQ(ReadFile(dir.File("b.txt")),
            "Allplan XML Version 1.002\nPrepare selection FALSE\nExport edges FALSE\nExport faces FALSE\n"
            "Export volumes FALSE\nPacked polyhedra TRUE \nWeld tolerance FALSE\nWrite log TRUE\nVersion 2005 FALSE\n"
            "Object \"broken\" not written: polygon 0 refers to point 7, which does not exist\n"
            "Allplan export: 1 object(s) could not be written\n");
  for (const char* name : {"a.xml", "b.xml"}) EXPECT_EQ(PointCounts(dir.File(name)).size(), 0u);

  host.dialogs().Clear();
  settings.Set(2000, true);
  settings.Set(2008, -0.5);
  EXPECT_EQ(saver->allocate()->Save(settings, dir.File("c.xml"), document), -7);
  ASSERT_EQ(host.dialogs().Records().size(), 1u);
  EXPECT_EQ(host.dialogs().Records()[0].text, "The scene could not be prepared for the Allplan export.");
}

TEST(VexinteropAllplan, TheExampleHouseInEveryForm) {
  TempDir dir("cli_house");
  const std::string house = std::string(INTEROP_SOURCE_DIR) + "/examples/meshes/house.obj";
  const std::string out = dir.File("house.xml");
  auto o = Tool("allplan " + house + " -o " + out + " --log --options prepare,packed");
  ASSERT_EQ(o.exit, 0) << o.output;
  EXPECT_EQ(PointCounts(out), (std::vector<std::size_t>{8, 6}));
  const std::string log = ReadFile(dir.File("house.txt"));
  EXPECT_NE(log.find("Prepare selection TRUE\n"), std::string::npos) << log;
  EXPECT_NE(log.find("Packed polyhedra TRUE \n"), std::string::npos) << log;
  const std::string text = ReadFile(out);
  EXPECT_NE(text.find("<noi:GEO_PACKED_POLYHEDRON3D orientation=\"e_POSITIVE\" dimension=\"e_HAS_FACES\">"),
            std::string::npos);
  EXPECT_NE(text.find("r=\"153\" g=\"45.9\" b=\"30.6\""), std::string::npos);  // the tiles' colour

  o = Tool("allplan " + house + " -o " + out + " --version 2005 --unit mm --options volumes");
  ASSERT_EQ(o.exit, 0) << o.output;
  const std::string mm = ReadFile(out);
  EXPECT_NE(mm.find("<noi:VERSION info_1=\"2005\" info_2=\"2005.0\" info_3=\"\" />"), std::string::npos);
  EXPECT_NE(mm.find("<noi:GEO_POINT x=\"6000\" y=\"4000\" z=\"3000\" />"), std::string::npos);
  EXPECT_NE(mm.find("noi:BASIS_VOLUME3D"), std::string::npos);
  EXPECT_EQ(PointCounts(out), (std::vector<std::size_t>{8, 6}));
  for (const auto& entry : fs::directory_iterator(dir.path))
    EXPECT_EQ(entry.path().filename().string().find(".partial"), std::string::npos);
}

TEST(VexinteropAllplan, ScenesAndMeshFormats) {
  TempDir dir("cli_formats");
  // A native scene: a rotated group with a coloured child that has its own identity.
  std::ofstream(dir.File("scene.vex")) << R"({
    "format": "vexon-scene", "name": "Scene",
    "settings": {"2117": {"unitscale": "cm"}},
    "objects": [{"type": 1000, "name": "Group", "parameters": {"903": {"vector": [100, 0, 0]}},
      "children": [{"type": 1100, "name": "Roof & <Attic>",
        "parameters": {"940": {"polygonmesh": {"points": [[0,0,0],[100,0,0],[0,100,0]], "polygons": [[0,1,2]]}},
                       "941": {"color": [0.2, 0.4, 0.6]},
                       "942": "0f8fad5b-d9cb-469f-a165-70867728950e"}}]}]})";
  auto o = Tool("allplan " + dir.File("scene.vex") + " -o " + dir.File("scene.xml") + " --unit m");
  ASSERT_EQ(o.exit, 0) << o.output;
  const std::string scene = ReadFile(dir.File("scene.xml"));
  EXPECT_NE(scene.find("<noi:GEO_POINT x=\"2\" y=\"0\" z=\"0\" />"), std::string::npos) << scene;
  EXPECT_NE(scene.find("name=\"Roof &amp; &lt;Attic&gt;\" uuid=\"0f8fad5b-d9cb-469f-a165-70867728950e\""),
            std::string::npos);
  EXPECT_EQ(PointCounts(dir.File("scene.xml")).size(), 1u);

  std::ofstream(dir.File("tri.stl")) << "solid t\nfacet normal 0 0 1\nouter loop\nvertex 0 0 0\nvertex 1 0 0\n"
                                        "vertex 0 1 0\nendloop\nendfacet\nfacet normal 0 0 1\nouter loop\n"
                                        "vertex 1 0 0\nvertex 1 1 0\nvertex 0 1 0\nendloop\nendfacet\nendsolid t\n";
  std::ofstream(dir.File("quad.ply")) << "ply\nformat ascii 1.0\nelement vertex 4\nproperty float x\nproperty float y\n"
                                         "property float z\nelement face 1\nproperty list uchar int vertex_indices\n"
                                         "end_header\n0 0 0\n1 0 0\n1 1 0\n0 1 0\n4 0 1 2 3\n";
  // glTF with its buffer inline: one triangle, three float positions and three byte indices.
  std::ofstream(dir.File("tri.gltf")) << R"({"asset": {"version": "2.0"}, "scene": 0, "scenes": [{"nodes": [0]}],
    "nodes": [{"mesh": 0, "name": "Tri"}], "meshes": [{"primitives": [{"attributes": {"POSITION": 0}, "indices": 1}]}],
    "buffers": [{"byteLength": 39, "uri": "data:application/octet-stream;base64,AAAAAAAAAAAAAAAAAACAPwAAAAAAAAAAAAAAAAAAgD8AAAAAAAEC"}],
    "bufferViews": [{"buffer": 0, "byteOffset": 0, "byteLength": 36}, {"buffer": 0, "byteOffset": 36, "byteLength": 3}],
    "accessors": [{"bufferView": 0, "componentType": 5126, "count": 3, "type": "VEC3", "min": [0,0,0], "max": [1,1,0]},
                  {"bufferView": 1, "componentType": 5121, "count": 3, "type": "SCALAR"}]})";
  // COLLADA in centimetres: Assimp brings it to metres, the document's unit.
  std::ofstream(dir.File("tri.dae")) << R"(<?xml version="1.0" encoding="utf-8"?>
<COLLADA xmlns="http://www.collada.org/2005/11/COLLADASchema" version="1.4.1">
  <asset><unit name="centimeter" meter="0.01"/><up_axis>Y_UP</up_axis></asset>
  <library_geometries><geometry id="tri"><mesh>
    <source id="pos"><float_array id="pos-a" count="9">0 0 0 100 0 0 0 100 0</float_array>
      <technique_common><accessor source="#pos-a" count="3" stride="3">
        <param name="X" type="float"/><param name="Y" type="float"/><param name="Z" type="float"/>
      </accessor></technique_common></source>
    <vertices id="v"><input semantic="POSITION" source="#pos"/></vertices>
    <triangles count="1"><input semantic="VERTEX" source="#v" offset="0"/><p>0 1 2</p></triangles>
  </mesh></geometry></library_geometries>
  <library_visual_scenes><visual_scene id="s"><node id="n" name="Tri"><instance_geometry url="#tri"/></node>
  </visual_scene></library_visual_scenes>
  <scene><instance_visual_scene url="#s"/></scene>
</COLLADA>)";
  o = Tool("allplan " + dir.File("tri.dae") + " -o " + dir.File("dae.xml") + " --unit mm");
  ASSERT_EQ(o.exit, 0) << o.output;
  EXPECT_NE(ReadFile(dir.File("dae.xml")).find("<noi:GEO_POINT x=\"0\" y=\"0\" z=\"1000\" />"), std::string::npos);
  EXPECT_EQ(PointCounts(dir.File("dae.xml")), std::vector<std::size_t>{3});

  std::ofstream(dir.File("plain.obj")) << "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n";
  for (const auto& [file, points] : std::vector<std::pair<std::string, std::size_t>>{
           {"tri.stl", 4}, {"quad.ply", 4}, {"tri.gltf", 3}, {"plain.obj", 3}}) {
    const std::string out = dir.File(file + ".xml");
    o = Tool("allplan " + dir.File(file) + " -o " + out);
    ASSERT_EQ(o.exit, 0) << file << ": " << o.output;
    EXPECT_EQ(PointCounts(out), std::vector<std::size_t>{points}) << file;
    // No material in any of them: the colourless grey.
    EXPECT_NE(ReadFile(out).find("r=\"125\" g=\"125\" b=\"125\""), std::string::npos) << file;
  }
}

TEST(VexinteropAllplan, BadInputsLeaveNothingBehind) {
  TempDir dir("cli_bad");
  const std::string out = dir.File("out.xml");
  std::ofstream(dir.File("bad.vex")) << R"({"objects": [{"type": 1100, "name": "x",
      "parameters": {"940": {"polygonmesh": {"points": [[0,0,0]], "polygons": [[0,0,5]]}}}}]})";
  auto o = Tool("allplan " + dir.File("bad.vex") + " -o " + out);
  EXPECT_EQ(o.exit, 1);
  EXPECT_NE(o.output.find(dir.File("bad.vex") + ": objects[0].parameters.940.polygons[0]: number out of range"),
            std::string::npos)
      << o.output;
  std::ofstream(dir.File("notes.txt")) << "hello";
  o = Tool("allplan " + dir.File("notes.txt") + " -o " + out);
  EXPECT_EQ(o.exit, 1);
  EXPECT_NE(o.output.find("notes.txt: unknown input format"), std::string::npos) << o.output;
  std::ofstream(dir.File("broken.obj")) << "v 0 0 0\nf 1 2 x\n";
  o = Tool("allplan " + dir.File("broken.obj") + " -o " + out);
  EXPECT_EQ(o.exit, 1) << o.output;
  EXPECT_NE(o.output.find("broken.obj"), std::string::npos) << o.output;
  o = Tool("allplan " + dir.File("missing.obj") + " -o " + out);
  EXPECT_EQ(o.exit, 1);
  EXPECT_NE(o.output.find("missing.obj: cannot read: No such file or directory"), std::string::npos) << o.output;
  o = Tool("allplan " + std::string(INTEROP_SOURCE_DIR) + "/examples/meshes/house.obj -o " + out +
           " --options weld=abc");
  EXPECT_EQ(o.exit, 1);
  EXPECT_NE(o.output.find("--options \"weld=abc\": expected weld=TOLERANCE (a number)"), std::string::npos);
  o = Tool("allplan " + std::string(INTEROP_SOURCE_DIR) + "/examples/meshes/house.obj -o " + out +
           " --options prepare,weld=-1");
  EXPECT_EQ(o.exit, 1);
  EXPECT_NE(o.output.find("Allplan export failed (result -7)"), std::string::npos) << o.output;
  EXPECT_TRUE(fs::is_empty(dir.path / "") || !fs::exists(out));
  for (const auto& entry : fs::directory_iterator(dir.path)) {
    const auto name = entry.path().filename().string();
    EXPECT_TRUE(name.ends_with(".vex") || name.ends_with(".txt") || name.ends_with(".obj")) << name;
  }
}

}  // namespace
