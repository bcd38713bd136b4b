// Whole scenes written by `vexinterop convert` (the example showroom and a generated OBJ scene),
// opened by Blender (glTF, FBX, OBJ) and three.js (glTF, FBX): every mesh and empty node by name,
// its parent, its world matrix within 1e-4, the material of its triangles, and the camera's field
// of view and clip range. What each reader should show comes from our own glTF read back through
// the host's reader, with each reader's documented axis and unit conventions applied.
// Lights are checked by IndependentLights.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <numbers>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/formats/catalogue.h"
#include "host/port_bundles.h"
#include "run_tool.h"

namespace fs = std::filesystem;
using Json = nlohmann::json;

namespace {

constexpr double kTolerance = 1e-4;
const fs::path kSource = INTEROP_SOURCE_DIR;

using cli_test::Outcome;
using cli_test::Shell;

using cli_test::Quote;
using cli_test::OnPath;
double Num(const Json& value) { return value.is_number() ? value.get<double>() : std::nan(""); }

/// Rows of a 4x4 matrix.
using Rows = std::array<std::array<double, 4>, 4>;

Rows RowsOf(const host::formats::Matrix4& m) {
  Rows r{};
  for (std::size_t row = 0; row < 4; ++row)
    for (std::size_t c = 0; c < 4; ++c) r[row][c] = m.m[c * 4 + row];
  return r;
}

Rows Mul(const Rows& a, const Rows& b) {
  Rows r{};
  for (std::size_t i = 0; i < 4; ++i)
    for (std::size_t j = 0; j < 4; ++j)
      for (std::size_t k = 0; k < 4; ++k) r[i][j] += a[i][k] * b[k][j];
  return r;
}

Rows Scaling(double s) { return {{{s, 0, 0, 0}, {0, s, 0, 0}, {0, 0, s, 0}, {0, 0, 0, 1}}}; }
constexpr Rows kIdentity{{{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}}};
/// +Y up to +Z up: a +90 degree turn about X, and its inverse.
constexpr Rows kYUpToZUp{{{1, 0, 0, 0}, {0, 0, -1, 0}, {0, 1, 0, 0}, {0, 0, 0, 1}}};
constexpr Rows kZUpToYUp{{{1, 0, 0, 0}, {0, 0, 1, 0}, {0, -1, 0, 0}, {0, 0, 0, 1}}};

::testing::AssertionResult NearRows(const Json& actual, const Rows& expected, const std::string& what) {
  for (std::size_t r = 0; r < 4; ++r)
    for (std::size_t c = 0; c < 4; ++c) {
      const double a = actual.is_array() && actual.size() == 4 && actual[r].size() == 4 ? Num(actual[r][c]) : std::nan("");
      if (!(std::abs(a - expected[r][c]) <= kTolerance))
        return ::testing::AssertionFailure() << what << ": row " << r << " column " << c << " is " << a << ", expected "
                                             << expected[r][c] << " (" << actual.dump() << ")";
    }
  return ::testing::AssertionSuccess();
}

::testing::AssertionResult NearValue(const Json& actual, double expected, const std::string& what) {
  if (std::abs(Num(actual) - expected) <= kTolerance) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << what << ": " << actual.dump() << ", expected " << expected;
}

/// One FBX header property (`UnitScaleFactor`, `UpAxis`) from a binary FBX file: the record is the
/// name, three more strings (type, label, flags), then a type code and the value.
std::optional<double> FbxProperty(const fs::path& path, const std::string& name) {
  std::ifstream in(path, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(in)), {});
  std::string key(1, 'S');
  const auto length = static_cast<std::uint32_t>(name.size());
  key.append(reinterpret_cast<const char*>(&length), 4);
  key += name;
  auto at = bytes.find(key);
  if (at == std::string::npos) return std::nullopt;
  at += key.size();
  for (int i = 0; i < 3; ++i) {
    if (at + 5 > bytes.size() || bytes[at] != 'S') return std::nullopt;
    std::uint32_t n = 0;
    std::memcpy(&n, bytes.data() + at + 1, 4);
    at += 5 + n;
  }
  if (at + 9 > bytes.size()) return std::nullopt;
  if (bytes[at] == 'D') {
    double v = 0;
    std::memcpy(&v, bytes.data() + at + 1, 8);
    return v;
  }
  if (bytes[at] == 'I') {
    std::int32_t v = 0;
    std::memcpy(&v, bytes.data() + at + 1, 4);
    return v;
  }
  return std::nullopt;
}

/// What a scene holds as our own glTF reads back: per node its parent's name, world matrix and
/// mesh; per mesh the triangles per material and the world-space bounds.
struct ExpectedNode {
  std::string name, parent;  // parent empty at the root
  Rows world{};
  bool mesh = false, empty = false;
  std::map<std::string, int> triangles;  // material name -> triangle count
  std::array<double, 3> low{}, high{};   // world-space vertex bounds, metres, +Y up
  // The mesh's own corners (mesh space, v from the bottom of the image), for the moments below.
  const host::formats::MeshData* data = nullptr;
};

/// Over a mesh's triangle corners, the means of normal[i] * position[j] (rows 0-2, when it has
/// normals) and uv[i] * position[j] (rows 3-4, when it has texture coordinates), positions and
/// normals first passed through `turn` and positions scaled by `scale`: which normal and which
/// texture coordinate sit at which vertex, as a reader that keeps the mesh's own space shows it.
using Moments = std::array<std::optional<std::array<double, 3>>, 5>;
Moments MomentsOf(const host::formats::MeshData& mesh, const Rows& turn, double scale) {
  const auto turned = [&](const float* v) {
    std::array<double, 3> out{};
    for (std::size_t r = 0; r < 3; ++r) out[r] = turn[r][0] * v[0] + turn[r][1] * v[1] + turn[r][2] * v[2];
    return out;
  };
  Moments out;
  const bool normals = mesh.normals.size() == mesh.positions.size(), uvs = mesh.uvs.size() == 2 * mesh.VertexCount();
  std::array<std::array<double, 3>, 5> sum{};
  for (const auto i : mesh.indices) {
    auto p = turned(&mesh.positions[3 * i]);
    for (auto& c : p) c *= scale;
    const auto n = normals ? turned(&mesh.normals[3 * i]) : std::array<double, 3>{};
    for (std::size_t j = 0; j < 3; ++j) {
      for (std::size_t r = 0; r < 3; ++r) sum[r][j] += n[r] * p[j];
      if (uvs)
        for (std::size_t r = 0; r < 2; ++r) sum[3 + r][j] += mesh.uvs[2 * i + r] * p[j];
    }
  }
  const double corners = static_cast<double>(std::max<std::size_t>(mesh.indices.size(), 1));
  for (std::size_t r = 0; r < 5; ++r)
    if (r < 3 ? normals : uvs) out[r] = std::array<double, 3>{sum[r][0] / corners, sum[r][1] / corners, sum[r][2] / corners};
  return out;
}

struct ExpectedScene {
  std::vector<ExpectedNode> nodes;
  std::optional<host::formats::CameraData> camera;
  std::string cameraNode;
};

ExpectedScene Expect(const host::formats::SceneData& scene) {
  ExpectedScene out;
  std::vector<host::formats::Matrix4> world(scene.nodes.size());
  for (std::size_t i = 0; i < scene.nodes.size(); ++i) {
    const auto& node = scene.nodes[i];
    world[i] = node.parent >= 0 ? world[static_cast<std::size_t>(node.parent)] * node.local : node.local;
    if (node.camera >= 0 && !out.camera) {
      out.camera = scene.cameras[static_cast<std::size_t>(node.camera)];
      out.cameraNode = node.name;
    }
    ExpectedNode e{.name = node.name,
                   .parent = node.parent >= 0 ? scene.nodes[static_cast<std::size_t>(node.parent)].name : "",
                   .world = RowsOf(world[i]),
                   .mesh = node.mesh >= 0,
                   .empty = node.mesh < 0 && node.light < 0 && node.camera < 0};
    if (e.mesh) {
      const auto& mesh = scene.meshes[static_cast<std::size_t>(node.mesh)];
      for (const auto& part : mesh.parts)
        e.triangles[part.material >= 0 ? scene.materials[static_cast<std::size_t>(part.material)].name : ""] +=
            static_cast<int>(part.triangleCount);
      e.data = &mesh;
      e.low = {INFINITY, INFINITY, INFINITY};
      e.high = {-INFINITY, -INFINITY, -INFINITY};
      for (std::size_t v = 0; v < mesh.VertexCount(); ++v)
        for (std::size_t a = 0; a < 3; ++a) {
          double p = e.world[a][3];
          for (std::size_t k = 0; k < 3; ++k) p += e.world[a][k] * mesh.positions[v * 3 + k];
          e.low[a] = std::min(e.low[a], p);
          e.high[a] = std::max(e.high[a], p);
        }
    }
    if (e.mesh || e.empty) out.nodes.push_back(e);
  }
  return out;
}

class SceneReaders : public ::testing::Test {
 public:
  static void SetUpTestSuite() {
    dir = fs::temp_directory_path() / ("vexinterop_scene_readers_" + std::to_string(getpid()));
    fs::remove_all(dir);
    fs::create_directories(dir);
    const fs::path generated = dir / "generated.obj";
    made = Shell("python3 " + Quote(kSource / "bench" / "make_big_scene.py") + " --objects 3 --cells 4 " + Quote(generated));
    for (const char* format : {"gltf", "fbx", "obj"})
      conversions[format] = cli_test::Tool("convert " + Quote(kSource / "examples" / "scenes" / "showroom.vex") + " " +
                                           Quote(generated) + " --to " + format + " -o " + Quote(dir / format));
    auto bundles = host::PortBundles::Builtin();
    if (!bundles) return;
    for (const char* stem : kStems) {
      auto scene = host::formats::ReadFormatFile(File("gltf", stem).string(), *bundles);
      if (scene) expected[stem] = Expect(scenes[stem] = std::move(*scene));
      else readBack += scene.error().message + "\n";
    }
  }
  static void TearDownTestSuite() {
    if (std::getenv("INTEROP_KEEP_INDEPENDENT") == nullptr) fs::remove_all(dir);
  }

 protected:
  static constexpr std::array<const char*, 2> kStems{"showroom", "generated"};

  static fs::path File(const std::string& format, const std::string& stem) { return dir / format / stem / (stem + "." + format); }

  static ::testing::AssertionResult Ready() {
    if (made.exit != 0) return ::testing::AssertionFailure() << "make_big_scene.py: " << made.output;
    for (const auto& [format, run] : conversions)
      if (run.exit != 0) return ::testing::AssertionFailure() << "convert --to " << format << ": " << run.output;
    if (expected.size() != kStems.size()) return ::testing::AssertionFailure() << "read back: " << readBack;
    return ::testing::AssertionSuccess();
  }

  /// Blender's reports: format -> stem -> report.
  static const std::map<std::string, std::map<std::string, Json>>& Blender() {
    static const auto reports = [] {
      std::map<std::string, std::map<std::string, Json>> out;
      std::string pairs;
      for (const char* format : {"gltf", "fbx", "obj"})
        for (const char* stem : kStems)
          pairs += " " + Quote(File(format, stem)) + " " + Quote(dir / (std::string(format) + "_" + stem + ".json"));
      blenderRun = Shell("PATH=/usr/bin:$PATH blender -b --factory-startup --python " +
                         Quote(kSource / "tests" / "tools" / "blender_read.py") + " --" + pairs);
      for (const char* format : {"gltf", "fbx", "obj"})
        for (const char* stem : kStems) {
          std::ifstream in(dir / (std::string(format) + "_" + stem + ".json"));
          out[format][stem] = Json::parse(in, nullptr, false);
        }
      return out;
    }();
    return reports;
  }

  /// three.js's reports: format -> stem -> report.
  static const std::map<std::string, std::map<std::string, Json>>& Three() {
    static const auto reports = [] {
      std::map<std::string, std::map<std::string, Json>> out;
      std::string files;
      for (const char* format : {"gltf", "fbx"})
        for (const char* stem : kStems) files += " " + Quote(File(format, stem));
      threeRun = Shell("node " + Quote(kSource / "tests" / "tools" / "three_read.mjs") + files);
      std::istringstream lines(threeRun.output);
      for (std::string line; std::getline(lines, line);) {
        const auto report = Json::parse(line, nullptr, false);
        if (report.is_discarded() || !report.contains("file")) continue;
        const fs::path file = report["file"].get<std::string>();
        out[file.extension().string().substr(1)][file.stem().string()] = report;
      }
      return out;
    }();
    return reports;
  }

  /// The world transform a Blender FBX import gives a node: the importer turns the file's axes into
  /// +Z up and scales by the file's unit (UnitScaleFactor centimetres) to metres at the root, so
  /// (in metres) world = axes * ours * scale.
  static ::testing::AssertionResult FbxHeader(const std::string& stem, double& metresPerUnit, Rows& axes) {
    const auto unit = FbxProperty(File("fbx", stem), "UnitScaleFactor");
    const auto up = FbxProperty(File("fbx", stem), "UpAxis");
    if (!unit || !up) return ::testing::AssertionFailure() << File("fbx", stem) << ": no UnitScaleFactor or UpAxis";
    // The frames handled here: +X across, the up and front axes with positive signs.
    for (const char* sign : {"UpAxisSign", "FrontAxisSign", "CoordAxisSign"})
      if (FbxProperty(File("fbx", stem), sign) != 1.0)
        return ::testing::AssertionFailure() << File("fbx", stem) << ": " << sign << " is not 1";
    if (FbxProperty(File("fbx", stem), "CoordAxis") != 0.0)
      return ::testing::AssertionFailure() << File("fbx", stem) << ": CoordAxis is not X";
    metresPerUnit = *unit / 100;
    if (*up == 1) axes = kYUpToZUp;
    else if (*up == 2) axes = kIdentity;
    else return ::testing::AssertionFailure() << File("fbx", stem) << ": UpAxis " << *up;
    return ::testing::AssertionSuccess();
  }

  static inline fs::path dir;
  static inline Outcome made, blenderRun, threeRun;
  static inline std::map<std::string, Outcome> conversions;
  static inline std::map<std::string, host::formats::SceneData> scenes;  // what `expected` points into
  static inline std::map<std::string, ExpectedScene> expected;
  static inline std::string readBack;
};

const Json* Object(const Json& report, const std::string& name) {
  for (const auto& o : report["objects"])
    if (o["name"] == name) return &o;
  return nullptr;
}

std::map<std::string, int> Counts(const Json& polygonMaterials) {
  std::map<std::string, int> counts;
  for (const auto& m : polygonMaterials) ++counts[m.is_string() ? m.get<std::string>() : ""];
  return counts;
}

TEST_F(SceneReaders, BlenderShowsNamesParentsTransformsMaterialsAndTheCamera) {
  if (!OnPath("blender")) GTEST_SKIP() << "blender is not installed (scripts/setup.sh installs it)";
  ASSERT_TRUE(Ready());
  const auto& reports = Blender();
  for (const char* format : {"gltf", "fbx", "obj"})
    for (const char* stem : kStems) {
      SCOPED_TRACE(std::string(format) + " " + stem);
      const Json& report = reports.at(format).at(stem);
      ASSERT_TRUE(report.is_object() && !report.contains("error")) << report.dump().substr(0, 1000) << blenderRun.output;
      const auto& scene = expected.at(stem);
      // The conversion of our world matrix into Blender's: glTF's importer turns +Y up into +Z up
      // for every node (A W A^-1: a mesh keeps its local axes relative to the turned world); FBX's
      // as read from the file's header (see FbxHeader).
      Rows left = kYUpToZUp, right = kZUpToYUp;
      if (std::string(format) == "fbx") {
        double metres = 1;
        ASSERT_TRUE(FbxHeader(stem, metres, left));
        right = Scaling(metres);
      }
      std::size_t compared = 0;
      for (const auto& node : scene.nodes) {
        SCOPED_TRACE(node.name);
        // OBJ has no hierarchy and no empties; its vertices are in world space.
        if (std::string(format) == "obj" && !node.mesh) continue;
        const Json* object = Object(report, node.name);
        ASSERT_NE(object, nullptr) << report["objects"].dump().substr(0, 2000);
        ++compared;
        EXPECT_EQ((*object)["type"], node.mesh ? "MESH" : "EMPTY");
        if (std::string(format) != "obj") {
          EXPECT_EQ((*object)["parent"], node.parent.empty() ? Json() : Json(node.parent));
          EXPECT_TRUE(NearRows((*object)["matrix_world"], Mul(Mul(left, node.world), right), "world matrix"));
        }
        if (!node.mesh) continue;
        // The bounds, turned to +Z up: (x, y, z) -> (x, -z, y).
        const Json& bounds = (*object)["bounds"];
        ASSERT_TRUE(bounds.is_array() && bounds.size() == 2) << object->dump();
        EXPECT_TRUE(NearValue(bounds[0][0], node.low[0], "min x"));
        EXPECT_TRUE(NearValue(bounds[0][1], -node.high[2], "min y"));
        EXPECT_TRUE(NearValue(bounds[0][2], node.low[1], "min z"));
        EXPECT_TRUE(NearValue(bounds[1][0], node.high[0], "max x"));
        EXPECT_TRUE(NearValue(bounds[1][1], -node.low[2], "max y"));
        EXPECT_TRUE(NearValue(bounds[1][2], node.high[1], "max z"));
        // Triangles per material. Blender keeps each triangle as a polygon but orders them by the
        // file's primitives or material groups, so the counts are compared rather than the order.
        const std::string data = (*object)["data"].is_string() ? (*object)["data"].get<std::string>() : "";
        ASSERT_TRUE(report["meshes"].contains(data)) << data;
        EXPECT_EQ(Counts(report["meshes"][data]["polygon_materials"]), node.triangles);
        // Normals and texture coordinates at their vertices (Blender keeps custom normals to about
        // 1e-4). FBX keeps the mesh in its own space, in the file's unit; glTF's importer turns
        // the mesh itself to +Z up. OBJ's vertices are in world space and are left out here.
        const Json& mesh = report["meshes"][data];
        if (std::string(format) != "obj") {
          const bool fbx = std::string(format) == "fbx";
          double metres = 1;
          Rows axes = kIdentity;
          if (fbx) {
            ASSERT_TRUE(FbxHeader(stem, metres, axes));
          }
          const Moments want = MomentsOf(*node.data, fbx ? kIdentity : kYUpToZUp, fbx ? 1 / metres : 1);
          if (want[0]) {
            EXPECT_EQ(mesh["custom_normals"], true);
          }
          for (std::size_t r = 0; r < 5; ++r) {
            if (!want[r]) continue;
            const Json& got = r < 3 ? mesh["normal_moment"][r] : mesh["uv_moment"][r - 3];
            for (std::size_t j = 0; j < 3; ++j)
              EXPECT_NEAR(Num(got[j]), (*want[r])[j], 1e-3 * std::max(1.0, std::abs((*want[r])[j])))
                  << (r < 3 ? "normal " : "uv ") << r % 3 << " x position " << j;
          }
        }
      }
      // No extra meshes or empties.
      std::size_t shown = 0;
      for (const auto& o : report["objects"]) shown += o["type"] == "MESH" || o["type"] == "EMPTY";
      EXPECT_EQ(shown, compared);
      // The camera: OBJ has none.
      if (std::string(format) == "obj" || !scene.camera) {
        EXPECT_TRUE(report["cameras"].empty()) << report["cameras"].dump();
        continue;
      }
      ASSERT_TRUE(report["cameras"].contains(scene.cameraNode)) << report["cameras"].dump();
      const Json& camera = report["cameras"][scene.cameraNode];
      EXPECT_EQ(camera["type"], scene.camera->orthographic ? "ORTHO" : "PERSP");
      if (!scene.camera->orthographic) {
        EXPECT_TRUE(NearValue(camera["angle_y"], scene.camera->yfov, "vertical angle"));
      }
      EXPECT_TRUE(NearValue(camera["clip_start"], scene.camera->znear, "clip start"));
      EXPECT_TRUE(NearValue(camera["clip_end"], scene.camera->zfar, "clip end"));
    }
  // The showroom has a camera, empties and a child mesh, so all of the above was exercised.
  const auto& showroom = expected.at("showroom");
  EXPECT_TRUE(showroom.camera.has_value());
  EXPECT_TRUE(std::any_of(showroom.nodes.begin(), showroom.nodes.end(), [](const auto& n) { return n.empty; }));
  EXPECT_TRUE(std::any_of(showroom.nodes.begin(), showroom.nodes.end(), [](const auto& n) { return n.mesh && !n.parent.empty(); }));
}

TEST_F(SceneReaders, ThreeJsShowsNamesParentsTransformsMaterialsAndTheCamera) {
  if (!OnPath("node") || !fs::exists(kSource / "tools" / "node_modules" / "three" / "package.json"))
    GTEST_SKIP() << "node or tools/node_modules/three is missing (scripts/setup.sh installs them)";
  ASSERT_TRUE(Ready());
  const auto& reports = Three();
  for (const char* format : {"gltf", "fbx"})
    for (const char* stem : kStems) {
      SCOPED_TRACE(std::string(format) + " " + stem);
      ASSERT_TRUE(reports.contains(format) && reports.at(format).contains(stem)) << threeRun.output.substr(0, 2000);
      const Json& report = reports.at(format).at(stem);
      ASSERT_FALSE(report.contains("error")) << report.dump();
      const auto& scene = expected.at(stem);
      // three.js keeps +Y up for both. FBXLoader does not apply the file's unit: its translations
      // are in the file's units (ours divided by the metres per unit), its rotations ours.
      double metres = 1;
      Rows axes = kIdentity;
      if (std::string(format) == "fbx") {
        ASSERT_TRUE(FbxHeader(stem, metres, axes));
        ASSERT_EQ(axes, kYUpToZUp) << "the comparison below assumes a +Y up FBX";
      }
      const Json root = report["root"];
      for (const auto& node : scene.nodes) {
        SCOPED_TRACE(node.name);
        const Json* object = Object(report, node.name);
        ASSERT_NE(object, nullptr) << report["objects"].dump().substr(0, 2000);
        // A root node's parent is the loader's container (GLTFLoader's scene, FBXLoader's group),
        // reported as "root".
        const Json parent = (*object)["parent"] == root ? Json() : (*object)["parent"];
        EXPECT_EQ(parent, node.parent.empty() ? Json() : Json(node.parent));
        EXPECT_TRUE(NearRows((*object)["matrixWorld"], Mul(Mul(Scaling(1 / metres), node.world), Scaling(metres)),
                             "world matrix"));
        if (!node.mesh) continue;
        // GLTFLoader makes a mesh of several primitives a Group of one Mesh per primitive, named
        // after the node with _1, _2, ...; FBXLoader one Mesh with a material group per material.
        std::map<std::string, int> triangles;
        auto add = [&](const Json& o) {
          for (const auto& g : o["groups"]) triangles[g["material"].is_string() ? g["material"].get<std::string>() : ""] += g["count"].get<int>() / 3;
        };
        if ((*object)["type"] == "Group") {
          for (const auto& o : report["objects"])
            if (o["parent"] == node.name && o["type"] == "Mesh" && o["name"].get<std::string>().rfind(node.name + "_", 0) == 0) add(o);
        } else {
          EXPECT_EQ((*object)["type"], "Mesh");
          add(*object);
        }
        EXPECT_EQ(triangles, node.triangles);
        // FBXLoader keeps the mesh in the file's space and unit, with v from the bottom.
        if (std::string(format) != "fbx") continue;
        const Moments want = MomentsOf(*node.data, kIdentity, 1 / metres);
        for (std::size_t r = 0; r < 5; ++r) {
          if (!want[r]) continue;
          const Json& got = r < 3 ? (*object)["normalMoment"][r] : (*object)["uvMoment"][r - 3];
          for (std::size_t j = 0; j < 3; ++j)
            EXPECT_NEAR(Num(got[j]), (*want[r])[j], 1e-4 * std::max(1.0, std::abs((*want[r])[j])))
                << (r < 3 ? "normal " : "uv ") << r % 3 << " x position " << j;
        }
      }
      if (!scene.camera) {
        EXPECT_TRUE(report["cameras"].empty()) << report["cameras"].dump();
        continue;
      }
      ASSERT_EQ(report["cameras"].size(), 1u) << report["cameras"].dump();
      const Json& camera = report["cameras"][0];
      EXPECT_EQ(camera["name"], scene.cameraNode);
      EXPECT_EQ(camera["type"], scene.camera->orthographic ? "OrthographicCamera" : "PerspectiveCamera");
      if (!scene.camera->orthographic) {
        EXPECT_TRUE(NearValue(camera["fov"], scene.camera->yfov * 180 / std::numbers::pi, "fov"));
      }
      // FBXLoader divides NearPlane and FarPlane (file units) by 1000.
      const double clip = std::string(format) == "fbx" ? 1 / metres / 1000 : 1;
      EXPECT_TRUE(NearValue(camera["near"], scene.camera->znear * clip, "near"));
      EXPECT_TRUE(NearValue(camera["far"], scene.camera->zfar * clip, "far"));
    }
}

}  // namespace
