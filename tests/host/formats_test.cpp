// The file-format units in-process: the preview mesh, and the round trips through OBJ and FBX
// into the import conversions that the material importer calls (reached here directly, since
// the command line reaches them only through the importer).
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <unistd.h>

#include "cli/files_support.h"
#include "host/formats/catalogue.h"
#include "host/formats/conversion.h"
#include "host/formats/formats.h"
#include "host/formats/readers.h"
#include "host/paramset_json.h"
#include "host/staged_output.h"
#include "vex/ports.h"
#include "material/mapping/mapping_import.h"
#include "test_host.h"

namespace fs = std::filesystem;
namespace formats = host::formats;

namespace {

TEST(FormatsPreviewMesh, SphereIsClosedOutwardFacingAndMapped) {
  const auto mesh = formats::MakeUvSphere(8, 4);
  EXPECT_EQ(mesh.VertexCount(), 9u * 5u);
  EXPECT_EQ(mesh.TriangleCount(), 8u * 4u * 2u - 2u * 8u);  // no degenerate pole triangles
  for (std::size_t i = 0; i < mesh.VertexCount(); ++i) {
    const float* n = &mesh.normals[3 * i];
    EXPECT_NEAR(n[0] * n[0] + n[1] * n[1] + n[2] * n[2], 1.0f, 1e-5f);
    EXPECT_GE(mesh.uvs[2 * i], 0.0f);
    EXPECT_LE(mesh.uvs[2 * i + 1], 1.0f);
    const float* t = &mesh.tangents[4 * i];
    EXPECT_NEAR(t[0] * n[0] + t[1] * n[1] + t[2] * n[2], 0.0f, 1e-5f);  // tangent in the surface
  }
  for (std::size_t f = 0; f < mesh.TriangleCount(); ++f) {
    const float* a = &mesh.positions[3 * mesh.indices[3 * f]];
    const float* b = &mesh.positions[3 * mesh.indices[3 * f + 1]];
    const float* c = &mesh.positions[3 * mesh.indices[3 * f + 2]];
    const float u[3] = {b[0] - a[0], b[1] - a[1], b[2] - a[2]};
    const float v[3] = {c[0] - a[0], c[1] - a[1], c[2] - a[2]};
    const float cross[3] = {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]};
    const float area = std::sqrt(cross[0] * cross[0] + cross[1] * cross[1] + cross[2] * cross[2]);
    ASSERT_GT(area, 1e-6f) << "triangle " << f;
    // Counter-clockwise seen from outside: the face normal points away from the centre.
    EXPECT_GT(cross[0] * (a[0] + b[0] + c[0]) + cross[1] * (a[1] + b[1] + c[1]) + cross[2] * (a[2] + b[2] + c[2]),
              0.0f)
        << "triangle " << f;
  }
}

class FormatsRoundTrip : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = fs::temp_directory_path() / ("formats_test_" + std::to_string(getpid()));
    fs::remove_all(dir);
    files_test::WriteCorvaneInputs(dir);
  }
  void TearDown() override { fs::remove_all(dir); }

  /// corvane_plain.json written as `format` and read back into the format's bundle.
  vex::ParameterSet ThroughFile(std::string_view name) {
    auto& h = testing_support::Host();
    const auto* row = formats::FindFormat(name);
    EXPECT_NE(row, nullptr);
    host::json::ReadOptions read{&h.bundles(), &h.images(), &h.ids()};
    auto set = host::json::ReadParameterSetFile((dir / "corvane_plain.json").string(), read);
    EXPECT_TRUE(set.has_value()) << set.error().message;
    auto formatSet = formats::ToWriterBundle(std::make_shared<const vex::ParameterSet>(*set), *row);
    EXPECT_TRUE(formatSet.has_value()) << formatSet.error().message;
    const fs::path out = dir / std::string(name);
    host::StagedOutput staged;
    formats::WriteOptions options;
    options.fbxAscii = true;  // the form Assimp, the FBX reader, reads back
    auto written = formats::WriteFormatFile(*row, formats::PreviewScene("plain", formatSet->set), out.string(), "plain",
                                            h.bundles(), options, staged);
    EXPECT_TRUE(written.has_value()) << written.error().message;
    auto read_back = formats::ReadFormatFile((out / ("plain" + std::string(row->suffixes.front()))).string(), h.bundles());
    EXPECT_TRUE(read_back.has_value()) << read_back.error().message;
    EXPECT_EQ(read_back->materials.size(), 1u);
    return *read_back->materials.front().set;
  }

  static vex::Color ColorOf(const vex::ParameterSet& set, std::string_view port) {
    return *set.Find(port)->Constant()->Get<vex::Color>();
  }
  static double NumberOf(const vex::ParameterSet& set, std::string_view port) {
    return *set.Find(port)->Constant()->Get<double>();
  }
  static void ExpectColor(const vex::Color& c, double r, double g, double b) {
    EXPECT_NEAR(c.r, r, 1e-6);
    EXPECT_NEAR(c.g, g, 1e-6);
    EXPECT_NEAR(c.b, b, 1e-6);
  }

  fs::path dir;
};

TEST_F(FormatsRoundTrip, CorvaneThroughObjKeepsWhatMtlCarries) {
  const auto obj = ThroughFile("obj");
  auto corvane = interop::mapping::ImportObjToCorvane(obj);
  ASSERT_TRUE(corvane.has_value()) << corvane.error().message;
  const auto& c = **corvane;
  ExpectColor(ColorOf(c, "diffuse_color"), 0.72, 0.27, 0.18);
  EXPECT_NEAR(NumberOf(c, "metalness"), 0.6, 1e-6);
  EXPECT_EQ(*c.Find("fresnel_type")->Constant()->Get<std::string>(), "metalness");
  EXPECT_NEAR(NumberOf(c, "reflection_roughness"), 0.35, 1e-6);
  ExpectColor(ColorOf(c, "emission_color"), 0.5, 0.25, 0.125);
  EXPECT_EQ(NumberOf(c, "emission_weight"), 1.0);
  ExpectColor(ColorOf(c, "opacity"), 0.7, 0.7, 0.7);
}

TEST_F(FormatsRoundTrip, CorvaneThroughFbxKeepsColourEmissionOpacityAndRoughness) {
  const auto generic = ThroughFile("fbx");
  auto corvane = interop::mapping::ImportGenericToCorvane(generic);
  ASSERT_TRUE(corvane.has_value()) << corvane.error().message;
  const auto& c = **corvane;
  ExpectColor(ColorOf(c, "diffuse_color"), 0.72, 0.27, 0.18);
  ExpectColor(ColorOf(c, "emission_color"), 0.5, 0.25, 0.125);
  EXPECT_EQ(NumberOf(c, "emission_weight"), 1.0);
  ExpectColor(ColorOf(c, "opacity"), 0.7, 0.7, 0.7);
  EXPECT_NEAR(NumberOf(c, "reflection_roughness"), 0.35, 1e-5);
  EXPECT_FALSE(c.Has("metalness"));  // a Phong surface has none
}

TEST(FormatsWriters, RejectSetsOfBundlesTheyDoNotTake) {
  auto& h = testing_support::Host();
  auto set = std::make_shared<const vex::ParameterSet>(vex::Id(vex::ports::corvane::kId));
  const fs::path target = fs::temp_directory_path() / ("formats_reject_" + std::to_string(getpid())) / "x";
  host::StagedOutput staged;
  auto r = formats::WriteFormatFile(*formats::FindFormat("obj"), formats::PreviewScene("x", set), target.string(), "x",
                                    h.bundles(), {}, staged);
  ASSERT_FALSE(r.has_value());
  EXPECT_NE(r.error().message.find("does not take sets of the bundle net.kelvo.material.portbundle.corvane"),
            std::string::npos);
  EXPECT_FALSE(fs::exists(target.parent_path()));
  EXPECT_EQ(formats::SafeName("a b/c.d"), "a_b_c_d");
  EXPECT_EQ(formats::SafeName(""), "material");
  EXPECT_EQ(formats::FittedSize(2048, 1024, 512, false), (std::pair<std::int64_t, std::int64_t>{512, 256}));
  EXPECT_EQ(formats::FittedSize(300, 200, 0, true), (std::pair<std::int64_t, std::int64_t>{256, 256}));
  EXPECT_EQ(formats::FittedSize(1000, 100, 600, true), (std::pair<std::int64_t, std::int64_t>{512, 64}));
  EXPECT_EQ(formats::FittedSize(3, 1, 0, false), (std::pair<std::int64_t, std::int64_t>{3, 1}));
  EXPECT_NEAR(formats::detail::RoughnessFromPhong(2.0 / std::pow(0.5, 4) - 2.0), 0.5, 1e-12);
}

}  // namespace
