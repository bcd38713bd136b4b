// The Allplan saver in-process against the reference host: the envelope, the
// options, the walk's forms and identities, and the failure paths.
#include <gtest/gtest.h>

#include <numbers>

#include <algorithm>
#include <cmath>
#include <set>
#include <tuple>

#include "allplan_support.h"
#include "exchange/allplan_main.h"
#include "exchange/allplan_walk.h"
#include "test_host.h"
#include "vex/ui.h"

namespace {

using namespace allplan_test;
namespace ap = interop::exchange::allplan;

constexpr std::string_view kEmpty2004 =
    R"(<?xml version="1.0" encoding="ISO-8859-1" ?><noi:DOCUMENT xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance" xmlns:noi="NOISchema.xsd"><noi:VERSION info_1="2004" info_2="2004.0" info_3="" /><noi:MODEL_SECTION></noi:MODEL_SECTION></noi:DOCUMENT>)";

class AllplanSaver : public ::testing::Test {
 protected:
  void SetUp() override {
    testing_support::ResetHostRecords();
    host().fileViewer().Clear();
    document = &host().documents().NewDocument("scene");
  }
  void TearDown() override {
    host().documents().Close(document);
    host().polygons().refuse = false;
  }
  static host::ReferenceHost& host() { return testing_support::Host(); }

  vex::ISceneObject* Add(std::shared_ptr<host::SceneObject> object, vex::ISceneObject* parent = nullptr) {
    auto inserted = document->InsertObject(std::move(object), parent);
    EXPECT_TRUE(inserted);
    return *inserted;
  }
  std::int32_t Save(const std::string& path) {
    return interop::exchange::AllocateAllplanSaver()->Save(settings, path, *document);
  }
  /// Saves and parses; fails the test when the file is not well-formed.
  std::string SaveText(const std::string& path) {
    EXPECT_EQ(Save(path), 0);
    pugi::xml_document xml;
    EXPECT_EQ(ParseProblem(path, xml), "") << ReadFile(path);
    return ReadFile(path);
  }

  TempDir dir{"saver"};
  host::Document* document = nullptr;
  vex::ParamContainer settings;
};

TEST_F(AllplanSaver, EmptySceneAndTheVersionOption) {
  const std::string text = SaveText(dir.File("empty.xml"));
  EXPECT_EQ(text, kEmpty2004);
  settings.Set(ap::kOptionVersion2005, true);
  std::string expected(kEmpty2004);
  expected.replace(expected.find(R"(info_1="2004" info_2="2004.0")"), 29, R"(info_1="2005" info_2="2005.0")");
  EXPECT_EQ(SaveText(dir.File("empty2005.xml")), expected);

  // With objects, the option still changes only the version line.
  Add(host::MakePolygonObject("cube", Cube()));
  settings.Set(ap::kOptionVersion2005, false);
  std::string v2004 = SaveText(dir.File("a.xml"));
  settings.Set(ap::kOptionVersion2005, true);
  std::string v2005 = SaveText(dir.File("b.xml"));
  v2005.replace(v2005.find("2005\" info_2=\"2005.0"), 20, "2004\" info_2=\"2004.0");
  EXPECT_EQ(v2004, v2005);
  EXPECT_TRUE(host().dialogs().Records().empty());
  EXPECT_TRUE(host().fileViewer().Opened().empty());
}

TEST_F(AllplanSaver, PointsSwapAxesAndColourlessObjectsAreGrey) {
  SetUnit(*document, "m", 1.0);
  Add(host::MakePolygonObject("tri", Triangle({1, 2, 3}, {4, 5, 6}, {-0.0004, 0.5, 7.25})));
  const std::string text = SaveText(dir.File("tri.xml"));
  EXPECT_NE(text.find("<noi:GEO_POINT x=\"1\" y=\"3\" z=\"2\" />\n"), std::string::npos) << text;
  EXPECT_NE(text.find("<noi:GEO_POINT x=\"0\" y=\"7.25\" z=\"0.5\" />\n"), std::string::npos) << text;
  EXPECT_NE(text.find("<noi:COMMON_STYLE alpha=\"0\" r=\"125\" g=\"125\" b=\"125\" layerId=\"0\" strokeId=\"1\" "
                      "penId=\"2\" colorByLayer=\"false\" strokeByLayer=\"false\" penByLayer=\"false\" "
                      "byLayerAllowed=\"false\" useConstructionLineMode=\"false\" drawOrder=\"15\" />\n"),
            std::string::npos);

  // The export unit scales every coordinate; colours are on the 0..255 scale.
  document->Objects()[0]->MutableParameters().Set(vex::kObjectColorParameter, vex::Color{1.0, 0.5, 0.0});
  settings.Set(ap::kOptionExportUnit, vex::Data::MakeCustom(*host().units().FindUnit("mm")));
  const std::string mm = SaveText(dir.File("mm.xml"));
  EXPECT_NE(mm.find("<noi:GEO_POINT x=\"1000\" y=\"3000\" z=\"2000\" />"), std::string::npos);
  EXPECT_NE(mm.find("<noi:GEO_POINT x=\"-0.4\" y=\"7250\" z=\"500\" />"), std::string::npos);
  EXPECT_NE(mm.find("r=\"255\" g=\"127.5\" b=\"0\""), std::string::npos);
}

TEST_F(AllplanSaver, HierarchiesAreWrittenInGlobalCoordinates) {
  auto group = std::make_shared<host::SceneObject>(vex::kGroupObjectType);
  group->SetName("group");
  group->MutableParameters().Set(vex::kObjectRelativePosition, vex::Vector3d{10, 0, 0});
  group->MutableParameters().Set(vex::kObjectRelativeRotation, vex::Vector3d{0, 0, std::numbers::pi / 2});  // about z
  auto* parent = Add(group);
  auto child = host::MakePolygonObject("child", Triangle({1, 0, 0}, {0, 0, 1}, {0, 0, 0}));
  child->MutableParameters().Set(vex::kObjectRelativeScale, vex::Vector3d{2, 2, 2});
  Add(child, parent);
  const std::string text = SaveText(dir.File("tree.xml"));
  // (1, 0, 0) scaled to (2, 0, 0), turned about z to (0, 2, 0), moved to (10, 2, 0).
  EXPECT_NE(text.find("<noi:GEO_POINT x=\"10\" y=\"0\" z=\"2\" />"), std::string::npos) << text;
  EXPECT_NE(text.find("<noi:GEO_POINT x=\"10\" y=\"2\" z=\"0\" />"), std::string::npos) << text;
  EXPECT_EQ(text.find("name=\"group\""), std::string::npos);  // groups carry no geometry
}

/// The elements of the first object: its basis, its polyhedron tag, its counts.
struct Shape {
  std::string basis, polyhedron, dimension;
  std::size_t points = 0, edges = 0, faces = 0;
  bool hasFaces = false;
};
Shape ShapeOf(const std::string& path) {
  pugi::xml_document xml;
  EXPECT_EQ(ParseProblem(path, xml), "");
  Shape s;
  const auto model = xml.child("noi:DOCUMENT").child("noi:MODEL_SECTION");
  const auto basis = model.first_child();
  s.basis = basis.name();
  const auto rep = basis.child("noi:GEOMETRY").child("noi:OWNED_3DREPRESENTATIIONS").child("noi:GEO_3DREPRESENTATION");
  const auto poly = rep.first_child();
  s.polyhedron = poly.name();
  s.dimension = poly.attribute("dimension").value();
  EXPECT_STREQ(poly.attribute("orientation").value(), "e_POSITIVE");
  const auto points = poly.child("noi:POINTS").child("noi:GEO_POINT_LIST_3D");
  s.points = points.attribute("count").as_ullong();
  EXPECT_EQ(s.points, static_cast<std::size_t>(std::distance(points.children().begin(), points.children().end())));
  const auto edges = poly.child("noi:EDGES").child("noi:GEO_EDGE_LIST");
  s.edges = edges.attribute("count").as_ullong();
  EXPECT_EQ(s.edges, static_cast<std::size_t>(std::distance(edges.children().begin(), edges.children().end())));
  const auto faces = poly.child("noi:FACES").child("noi:GEO_FACE_LIST");
  s.hasFaces = !faces.empty();
  s.faces = faces.attribute("count").as_ullong();
  // Every face's edges chain into a closed loop of points.
  std::vector<std::pair<int, int>> edgeList;
  for (auto e : edges.children("noi:GEO_EDGE")) edgeList.emplace_back(e.attribute("e1").as_int(), e.attribute("e2").as_int());
  for (auto f : faces.children("noi:GEO_FACE")) {
    std::vector<std::pair<int, int>> loop;
    for (auto fe : f.children("noi:GEO_FACE_EDGE")) loop.push_back(edgeList.at(fe.attribute("e").as_uint()));
    EXPECT_EQ(loop.size(), f.attribute("countOfEdges").as_ullong());
    for (std::size_t k = 0; k < loop.size(); ++k) {
      const auto& a = loop[k];
      const auto& b = loop[(k + 1) % loop.size()];
      EXPECT_TRUE(a.first == b.first || a.first == b.second || a.second == b.first || a.second == b.second);
    }
  }
  return s;
}

TEST_F(AllplanSaver, OptionsChooseTheFormOfThePolyhedra) {
  Add(host::MakePolygonObject("cube", Cube()));
  const auto save = [&](bool edges, bool faces, bool volumes, bool packed) {
    settings.Set(ap::kOptionEdges, edges);
    settings.Set(ap::kOptionFaces, faces);
    settings.Set(ap::kOptionVolumes, volumes);
    settings.Set(ap::kOptionPacked, packed);
    const std::string path = dir.File("form.xml");
    EXPECT_EQ(Save(path), 0);
    return ShapeOf(path);
  };
  host().statusBar().Reset();
  auto s = save(false, false, false, false);  // nothing chosen: faces
  EXPECT_GT(host().statusBar().Reports(), 0u);
  EXPECT_EQ(s.basis, "noi:BASIS_FACE3D");
  EXPECT_EQ(s.polyhedron, "noi:GEO_POLYHEDRON3D");
  EXPECT_EQ(s.dimension, "e_HAS_FACES");
  EXPECT_EQ(s.points, 8u);
  EXPECT_EQ(s.edges, 24u);  // plain: every side of every face
  EXPECT_EQ(s.faces, 6u);

  s = save(true, false, false, false);
  EXPECT_EQ(s.basis, "noi:BASIS_LINE3D");
  EXPECT_EQ(s.dimension, "e_HAS_EDGES");
  EXPECT_FALSE(s.hasFaces);

  s = save(true, true, false, true);  // faces win over edges; packed shares edges
  EXPECT_EQ(s.polyhedron, "noi:GEO_PACKED_POLYHEDRON3D");
  EXPECT_EQ(s.dimension, "e_HAS_FACES");
  EXPECT_EQ(s.edges, 12u);
  EXPECT_EQ(s.faces, 6u);

  s = save(true, true, true, false);  // volumes win over both
  EXPECT_EQ(s.basis, "noi:BASIS_VOLUME3D");
  EXPECT_EQ(s.dimension, "e_HAS_VOLUMES");
  EXPECT_EQ(s.faces, 6u);

  s = save(false, false, true, true);
  EXPECT_EQ(s.polyhedron, "noi:GEO_PACKED_POLYHEDRON3D");
  EXPECT_EQ(s.edges, 12u);
}

TEST_F(AllplanSaver, IdentitiesAreStableAndNamesAreEscaped) {
  const std::string tricky = "Wand \"S\xC3\xBC\x64\" & <T\xC3\xBCr> \xE5\xA3\x81";
  Add(host::MakePolygonObject(tricky, Cube()));
  Add(host::MakePolygonObject("same", Cube()));
  Add(host::MakePolygonObject("same", Cube(2)));
  auto own = host::MakePolygonObject("own", Cube());
  own->MutableParameters().Set(vex::kObjectUuidParameter, std::string("0f8fad5b-d9cb-469f-a165-70867728950e"));
  Add(own);

  const auto identities = [&](const std::string& path) {
    EXPECT_EQ(Save(path), 0);
    pugi::xml_document xml;
    EXPECT_EQ(ParseProblem(path, xml), "");
    std::vector<std::tuple<std::string, std::string, unsigned, unsigned>> out;
    for (auto basis : xml.child("noi:DOCUMENT").child("noi:MODEL_SECTION").children()) {
      const auto named = basis.child("noi:NAMED_UUID");
      const auto uuid = basis.child("noi:UUID");
      out.emplace_back(named.attribute("name").value(), named.attribute("uuid").value(),
                       uuid.attribute("drawingId").as_uint(), uuid.attribute("elementId").as_uint());
    }
    return out;
  };
  const auto first = identities(dir.File("one.xml"));
  ASSERT_EQ(first.size(), 4u);
  EXPECT_EQ(std::get<0>(first[0]), tricky);  // read back through the Latin-1 document as written
  EXPECT_EQ(std::get<1>(first[0]), ap::kNilUuid);
  EXPECT_EQ(std::get<1>(first[3]), "0f8fad5b-d9cb-469f-a165-70867728950e");
  std::set<unsigned> elements;
  for (const auto& i : first) {
    EXPECT_EQ(std::get<2>(i), ap::kDrawingId);
    EXPECT_GT(std::get<3>(i), 0u);
    elements.insert(std::get<3>(i));
  }
  EXPECT_EQ(elements.size(), 4u);  // same-named siblings differ too
  EXPECT_EQ(identities(dir.File("two.xml")), first);

  // An object added in front leaves the others' identities alone.
  auto& objects = const_cast<std::vector<std::shared_ptr<host::SceneObject>>&>(document->Objects());
  Add(host::MakePolygonObject("new", Cube()));
  std::rotate(objects.begin(), objects.end() - 1, objects.end());
  const auto third = identities(dir.File("three.xml"));
  ASSERT_EQ(third.size(), 5u);
  for (std::size_t i = 0; i < first.size(); ++i) EXPECT_EQ(third[i + 1], first[i]);
}

TEST_F(AllplanSaver, LogLinesAndItsHandOver) {
  settings.Set(ap::kOptionWriteLog, true);
  settings.Set(ap::kOptionPacked, true);
  settings.Set(ap::kOptionWeldTolerance, 0.5);
  const std::string path = dir.File("logged.xml");
  EXPECT_EQ(SaveText(path), kEmpty2004);
  // Unit tests run without the module's resources: labels read "StrNotFound".
  EXPECT_EQ(ReadFile(dir.File("logged.txt")),
            "Allplan XML Version 1.002\nStrNotFound FALSE\nStrNotFound FALSE\nStrNotFound FALSE\n"
            "StrNotFound FALSE\nStrNotFound TRUE \nStrNotFound TRUE\nStrNotFound TRUE\nStrNotFound FALSE\n");
  EXPECT_EQ(host().fileViewer().Opened(), std::vector<std::string>{dir.File("logged.txt")});
  EXPECT_TRUE(host().dialogs().Records().empty());
  EXPECT_EQ(ap::LogFileName("a/b.c/out.xml"), "a/b.c/out.txt");
  EXPECT_EQ(ap::LogFileName("a/b.c/out"), "a/b.c/out.txt");
}

TEST_F(AllplanSaver, AFailedWalkStillClosesTheDocument) {
  Add(host::MakePolygonObject("good", Cube()));
  auto bad = host::MakePolygonObject("bad", Cube());
  auto mesh = Cube();
  mesh.polygonPoints[5] = 99;
  bad->MutableParameters().Set(vex::kPolygonMeshParameter, vex::Data::MakeCustom(mesh));
  Add(bad);
  Add(host::MakePolygonObject("nan", Triangle({0, 0, 0}, {1, std::nan(""), 0}, {0, 1, 0})));

  // Without a log: dialog 10014; the good object is written and the file is well-formed.
  const std::string text = SaveText(dir.File("failed.xml"));
  EXPECT_NE(text.find("name=\"good\""), std::string::npos);
  EXPECT_EQ(text.find("name=\"bad\""), std::string::npos);
  EXPECT_TRUE(text.ends_with("</noi:MODEL_SECTION></noi:DOCUMENT>"));
  auto records = host().dialogs().Records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_FALSE(records[0].question);
  EXPECT_EQ(host().console().Lines().at(0),
            "Object \"bad\" not written: polygon 1 refers to point 99, which does not exist [allplan_walk:" +
                host().console().Lines().at(0).substr(host().console().Lines().at(0).rfind(':') + 1));

  // With a log: question 10013, answered no: the log is not shown, and it says what went wrong.
  testing_support::ResetHostRecords();
  settings.Set(ap::kOptionWriteLog, true);
  SaveText(dir.File("failed_log.xml"));
  records = host().dialogs().Records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_TRUE(records[0].question);
  EXPECT_TRUE(host().fileViewer().Opened().empty());
  const std::string log = ReadFile(dir.File("failed_log.txt"));
  EXPECT_NE(log.find("Object \"bad\" not written: polygon 1 refers to point 99, which does not exist\n"),
            std::string::npos);
  EXPECT_NE(log.find("Object \"nan\" not written: point 1 has a coordinate that is not a finite number\n"),
            std::string::npos);
  EXPECT_TRUE(log.ends_with("Allplan export: 2 object(s) could not be written\n")) << log;

  // Answered yes: the log is handed to the host.
  host().dialogs().answerQuestions = true;
  SaveText(dir.File("failed_yes.xml"));
  host().dialogs().answerQuestions = false;
  EXPECT_EQ(host().fileViewer().Opened(), std::vector<std::string>{dir.File("failed_yes.txt")});
}

TEST_F(AllplanSaver, PreparationCopyAndFileFailures) {
  Add(host::MakePolygonObject("cube", Cube()));
  // The polygon copy fails: -7 and no file.
  host().polygons().refuse = true;
  EXPECT_EQ(Save(dir.File("nocopy.xml")), ap::kCannotPrepare);
  EXPECT_FALSE(std::filesystem::exists(dir.File("nocopy.xml")));
  host().polygons().refuse = false;

  // The preparation step cannot start: dialog 10011, -7, no file.
  settings.Set(ap::kOptionPrepare, true);
  settings.Set(ap::kOptionWeldTolerance, -1.0);
  EXPECT_EQ(Save(dir.File("noprep.xml")), ap::kCannotPrepare);
  EXPECT_FALSE(std::filesystem::exists(dir.File("noprep.xml")));
  ASSERT_EQ(host().dialogs().Records().size(), 1u);

  // The preparation step works on the copy only.
  auto mesh = Cube();
  mesh.points.push_back(mesh.points[0]);
  mesh.polygonPoints[0] = 8;
  document->Objects()[0]->MutableParameters().Set(vex::kPolygonMeshParameter, vex::Data::MakeCustom(mesh));
  settings.Set(ap::kOptionWeldTolerance, 0.0);
  EXPECT_EQ(ShapeOf((Save(dir.File("prep.xml")), dir.File("prep.xml"))).points, 8u);
  EXPECT_EQ(document->Objects()[0]->Parameters().Find(vex::kPolygonMeshParameter)->Get<vex::PolygonMesh>()->points.size(),
            9u);

  // A directory that does not exist: the host's file error.
  testing_support::ResetHostRecords();
  EXPECT_EQ(Save(dir.File("missing/out.xml")), vex::kFileErrorOpen);
  EXPECT_NE(host().console().Lines().at(0).find("missing/out.xml: cannot open for writing"), std::string::npos);
}

/// A file that takes `budget` bytes, then fails every write.
class FailingFile final : public vex::IFile {
 public:
  explicit FailingFile(std::size_t budget) : budget_(budget) {}
  vex::Result<void> Write(const void* bytes, std::size_t size) override {
    if (size > budget_) return VEX_FAIL(vex::ErrorKind::FileIO, "disk full");
    budget_ -= size;
    text.append(static_cast<const char*>(bytes), size);
    return {};
  }
  vex::Result<void> Close() override { return {}; }
  std::string text;

 private:
  std::size_t budget_;
};

TEST(AllplanWriter, TagsLinesAndAStickyWriteError) {
  FailingFile file(1 << 20);
  ap::AllplanWriter writer(file, nullptr, 1.0);
  EXPECT_EQ(writer.Name(ap::Element::Owned3dRepresentations), "noi:OWNED_3DREPRESENTATIIONS");
  EXPECT_EQ(writer.Name(ap::Element::PackedPolyhedronVolumes),
            R"(noi:GEO_PACKED_POLYHEDRON3D orientation="e_POSITIVE" dimension="e_HAS_VOLUMES")");
  EXPECT_EQ(writer.Name(ap::Element::Faces), "noi:FACES");
  writer.Open(ap::Element::Geometry);
  writer.WriteTag("noi:X a=\"1\"", true);
  writer.WriteEdge(3, 4);
  writer.WriteFaceEdge(7);
  writer.WriteIdentity(1, 42);
  writer.WriteLine("raw");
  ASSERT_TRUE(writer.Flush());
  EXPECT_EQ(file.text,
            "<noi:GEOMETRY></noi:X a=\"1\"><noi:GEO_EDGE e1=\"3\" e2=\"4\" />\n<noi:GEO_FACE_EDGE e=\"7\" />\n"
            "<noi:UUID drawingId=\"1\" elementId=\"42\" />\nraw\n");

  FailingFile small(10);
  ap::AllplanWriter failing(small, nullptr, 1.0);
  for (int i = 0; i < 100000; ++i) failing.WritePoint({1, 2, 3});
  EXPECT_TRUE(failing.Failed());  // the buffer went out and was refused
  EXPECT_FALSE(failing.Flush());
  EXPECT_EQ(failing.Error()->message, "disk full");
}

}  // namespace
