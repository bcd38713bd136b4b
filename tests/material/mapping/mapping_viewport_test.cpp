// The runner the viewport mappings share: the dispatch policies, which body a
// type runs, the last step, the runner's own failures at the mapping's place,
// and each of the four mappings' policy row seen from outside.
#include <gtest/gtest.h>

#include <source_location>
#include <string>
#include <vector>

#include "material/mapping/mapping_viewport.h"
#include "viewport_mapping_support.h"

namespace {

using namespace viewport_test;
using namespace interop::mapping::viewport;

TEST(ViewportRunner, PoliciesSelectTheBodies) {
  const auto known = [](std::string_view name) { return std::optional(vex::InternedId::Intern(name)); };
  const std::optional<vex::InternedId> absent;
  const auto unknown = known("glass");
  const std::optional colliding(Colliding("metal"));
  const struct {
    TypePolicy policy;
    Selected absent, unknown;
  } rows[] = {
      {{OnAbsentType::Reject, OnUnknownType::Reject}, Selected::Reject, Selected::Reject},
      {{OnAbsentType::AsDielectric, OnUnknownType::AsDielectric}, Selected::Dielectric, Selected::Dielectric},
      {{OnAbsentType::OwnBody, OnUnknownType::AsDielectric}, Selected::Absent, Selected::Dielectric},
      {{OnAbsentType::OwnBody, OnUnknownType::Reject}, Selected::Absent, Selected::Reject},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Select(known("constant"), row.policy), Selected::Constant);
    EXPECT_EQ(Select(known("metal"), row.policy), Selected::Metal);
    EXPECT_EQ(Select(known("dielectric"), row.policy), Selected::Dielectric);
    EXPECT_EQ(Select(absent, row.policy), row.absent);
    EXPECT_EQ(Select(unknown, row.policy), row.unknown);
    // A colliding id converts nothing under every policy.
    EXPECT_EQ(Select(colliding, row.policy), Selected::Nothing);
  }
}

/// What a test mapping's bodies saw.
struct Trace {
  std::vector<std::string> calls;
};

vex::Result<void> Traced(Run<Trace>& run, std::string name) {
  run.context.calls.push_back(name + ":" + std::to_string(static_cast<int>(run.type)));
  VEX_ASSIGN(const auto color, run.in.Take<vex::Color>(vp::base_color, "out"));
  return interop::mapping::SetConstant(run.target, "out", color.value);
}
vex::Result<void> ConstantBody(Run<Trace>& run) { return Traced(run, "constant"); }
vex::Result<void> MetalBody(Run<Trace>& run) { return Traced(run, "metal"); }
vex::Result<void> DielectricBody(Run<Trace>& run) { return Traced(run, "dielectric"); }
vex::Result<void> AbsentBody(Run<Trace>& run) { return Traced(run, "absent"); }
/// The last step records what the bodies did, so the result shows it.
vex::Result<void> Finish(Run<Trace>& run) {
  std::string all;
  for (const auto& call : run.context.calls) all += call + ";";
  return interop::mapping::SetConstant(run.target, "trace", all);
}

const ViewportMapping<Trace> kOwnAbsent{
    .target = vex::ports::gltf::kId,
    .policy = {.absent = OnAbsentType::OwnBody, .unknown = OnUnknownType::AsDielectric},
    .bodies = {.constant = ConstantBody, .metal = MetalBody, .dielectric = DielectricBody, .absent = AbsentBody},
    .finish = Finish,
    .where = std::source_location::current()};
const int kRejectingLine = __LINE__ + 5;
const ViewportMapping<Trace> kRejecting{
    .target = vex::ports::gltf::kId,
    .policy = {.absent = OnAbsentType::Reject, .unknown = OnUnknownType::Reject},
    .bodies = {.constant = ConstantBody, .metal = MetalBody, .dielectric = DielectricBody},
    .where = std::source_location::current()};

TEST(ViewportRunner, RunsTheSelectedBodyThenTheLastStep) {
  interop::mapping::viewport::KeptInput kept;
  const struct {
    std::shared_ptr<vex::ParameterSet> set;
    std::string trace;
  } cases[] = {{Viewport("constant"), "constant:0;"}, {Viewport("metal"), "metal:1;"},
               {Viewport("dielectric"), "dielectric:2;"}, {Viewport("glass"), "dielectric:2;"},
               {Viewport(), "absent:3;"}};
  for (const auto& c : cases) {
    auto out = RunMapping(c.set, kOwnAbsent, kept);
    ASSERT_TRUE(out) << out.error().Describe();
    EXPECT_EQ(out->target->GetBundle(), vex::bundle::kGltf);
    EXPECT_EQ(Const<std::string>(*out->target, "trace"), c.trace);
    // The bodies' reads fill the defaults table the run returns.
    EXPECT_EQ(RecordedAgainst(out->defaults, "base.color"), "out");
    EXPECT_EQ(out->defaults.capacity, DefaultsCapacity(1));
  }
  // A colliding id runs no body, but the last step still runs.
  auto colliding = Viewport();
  colliding->SetConstant("type", Colliding("constant"));
  auto nothing = RunMapping(colliding, kOwnAbsent, kept);
  ASSERT_TRUE(nothing);
  EXPECT_EQ(Ports(*nothing->target), (std::vector<std::string>{"trace"}));
  EXPECT_EQ(Const<std::string>(*nothing->target, "trace"), "");
  EXPECT_TRUE(nothing->defaults.entries.empty());
  EXPECT_EQ(kept.set, nullptr);  // no dump setting: nothing is kept
}

TEST(ViewportRunner, ItsOwnFailuresCarryTheMappingsPlace) {
  interop::mapping::viewport::KeptInput kept;
  for (auto set : {Viewport(), Viewport("glass")}) {
    auto out = RunMapping(set, kRejecting, kept);
    ASSERT_FALSE(out);
    EXPECT_EQ(out.error().message, "Unknown material type");
    EXPECT_EQ(out.error().kind, vex::ErrorKind::IllegalArgument);
    EXPECT_EQ(out.error().unit, "mapping_viewport_test");
    EXPECT_EQ(out.error().line, kRejectingLine);
  }
  auto none = RunMapping(nullptr, kRejecting, kept);
  ASSERT_FALSE(none);
  EXPECT_EQ(none.error().message, "Illegal state: Condition parametersPtr != nullptr not fulfilled. ");
  EXPECT_EQ(none.error().unit, "mapping_viewport_test");
  EXPECT_EQ(none.error().line, kRejectingLine);

  // An unknown target bundle is the registry's error, returned as it is, before the set is checked.
  ViewportMapping<Trace> nowhere = kRejecting;
  nowhere.target = "net.kelvo.material.portbundle.nowhere";
  auto lost = RunMapping(nullptr, nowhere, kept);
  ASSERT_FALSE(lost);
  EXPECT_EQ(lost.error().kind, vex::ErrorKind::NotFound);
  EXPECT_NE(lost.error().unit, "mapping_viewport_test");
}

TEST(ViewportRunner, EachMappingReportsItsOwnUnitAndPolicy) {
  const struct {
    std::string_view classId;
    std::string_view unit;
    bool absentConverts;   // else "Unknown material type"
    bool recordsTheType;   // an own body for an absent type, which records it
  } mappings[] = {
      {interop::mapping::classid::kViewportToFbxPhong, "mapping_viewport_fbxphong", true, false},
      {interop::mapping::classid::kViewportToStandardSurface, "mapping_viewport_standardsurface", false, false},
      {interop::mapping::classid::kViewportToUsdPreviewSurface, "mapping_viewport_usdpreviewsurface", true, true},
      {interop::mapping::classid::kViewportToGltfPbr, "mapping_viewport_gltfpbr", true, true},
  };
  for (const auto& m : mappings) {
    auto mapping = vex::CreateAs<vex::IMaterialMapping>(m.classId);
    ASSERT_TRUE(mapping) << m.classId;
    EXPECT_EQ((*mapping)->GetDescription().sourceBundle, vex::bundle::kViewport);
    auto none = (*mapping)->MapMaterialData(nullptr);
    ASSERT_FALSE(none);
    EXPECT_EQ(none.error().message, "Illegal state: Condition parametersPtr != nullptr not fulfilled. ");
    EXPECT_EQ(none.error().unit, m.unit);

    auto absent = Map(m.classId, Viewport());
    ASSERT_EQ(absent.has_value(), m.absentConverts) << m.classId;
    if (!absent) {
      EXPECT_EQ(absent.error().message, "Unknown material type");
      EXPECT_EQ(absent.error().unit, m.unit);
      continue;
    }
    EXPECT_EQ(absent->defaults.Find("type") != nullptr, m.recordsTheType) << m.classId;
    // An unknown type converts as a dielectric wherever an absent one converts.
    auto unknown = Map(m.classId, Viewport("glass"));
    auto dielectric = Map(m.classId, Viewport("dielectric"));
    ASSERT_TRUE(unknown);
    ASSERT_TRUE(dielectric);
    EXPECT_EQ(Ports(*unknown->target), Ports(*dielectric->target)) << m.classId;
  }
}

}  // namespace
