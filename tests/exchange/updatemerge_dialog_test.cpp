// The update-merge hook: what it finds new, changed and gone, the dialog it
// shows, and how it applies the answer.
#include <gtest/gtest.h>

#include "exchange/updatemerge_dialog.h"
#include "host/document_events.h"
#include "test_host.h"

namespace {

using testing_support::Host;

vex::SceneObjectRef Object(const std::string& name, double x, const std::string& source = "model.ifc") {
  auto o = std::make_shared<host::SceneObject>(1000);
  o->SetName(name);
  o->MutableParameters().Set(903, vex::Data(vex::Vector3d{x, 0, 0}));
  if (!source.empty()) o->MutableParameters().Set(vex::kObjectImportSource, vex::Data(source));
  return o;
}

struct MergeScene {
  host::Document document{"scene"};
  MergeScene() {
    for (auto o : {Object("Walls", 0), Object("Roof", 3), Object("Garden", 5), Object("Sun", 9, "")})
      EXPECT_TRUE(document.InsertObject(o, nullptr));
  }
  vex::UpdateMergeData Updated() {
    return {"model.ifc", {Object("Walls", 0), Object("Roof", 4), Object("Garage", 8)}, {}};
  }
  std::vector<std::string> Names() const {
    std::vector<std::string> out;
    for (auto* o : document.GetObjects()) out.push_back(o->GetName());
    return out;
  }
};

TEST(UpdateMerge, PlanFindsNewChangedAndGoneObjectsOfThatFileOnly) {
  MergeScene s;
  const auto data = s.Updated();
  const auto plan = interop::exchange::PlanMerge(s.document, data);
  ASSERT_EQ(plan.added.size(), 1u);
  EXPECT_EQ(plan.added[0]->GetName(), "Garage");
  ASSERT_EQ(plan.changedCurrent.size(), 1u);
  EXPECT_EQ(plan.changedCurrent[0]->GetName(), "Roof");
  ASSERT_EQ(plan.gone.size(), 1u);
  EXPECT_EQ(plan.gone[0]->GetName(), "Garden");  // "Sun" came from elsewhere
}

TEST(UpdateMerge, DialogPresetsTakeNewAndChangedAndKeepWhatIsGone) {
  Host().dialogs().choiceAnswers.reset();
  Host().dialogs().cancelChoices = false;
  testing_support::ResetHostRecords();
  MergeScene s;
  auto data = s.Updated();
  auto hook = interop::exchange::MakeUpdateMergeHook();
  EXPECT_TRUE(hook->Message(s.document, vex::kMsgUpdateMerge, 0, &data));
  EXPECT_TRUE(data.outcome.handled);
  EXPECT_EQ(data.outcome.added, std::vector<std::string>{"Garage"});
  EXPECT_EQ(data.outcome.updated, std::vector<std::string>{"Roof"});
  EXPECT_EQ(data.outcome.kept, std::vector<std::string>{"Garden"});
  EXPECT_EQ(s.Names(), (std::vector<std::string>{"Walls", "Garden", "Sun", "Garage", "Roof"}));
  const auto* roof = s.document.FindObject("Roof");
  EXPECT_EQ(roof->Parameters().Find(903)->Get<vex::Vector3d>()->x, 4);
  const auto records = Host().dialogs().Records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_NE(records[0].text.find("\"model.ifc\""), std::string::npos);
  EXPECT_NE(records[0].text.find("\n  Garage"), std::string::npos);
  EXPECT_NE(records[0].text.find("[x] StrNotFound (1)\n[x] StrNotFound (1)\n[ ] StrNotFound (1)"), std::string::npos)
      << records[0].text;
}

TEST(UpdateMerge, AnswersAreAppliedAndCancelChangesNothing) {
  testing_support::ResetHostRecords();
  auto hook = interop::exchange::MakeUpdateMergeHook();
  {
    MergeScene s;
    auto data = s.Updated();
    Host().dialogs().choiceAnswers = std::vector<bool>{false, false, true};
    hook->Message(s.document, vex::kMsgUpdateMerge, 0, &data);
    EXPECT_EQ(data.outcome.removed, std::vector<std::string>{"Garden"});
    EXPECT_EQ(data.outcome.kept, std::vector<std::string>{"Roof"});
    EXPECT_EQ(s.Names(), (std::vector<std::string>{"Walls", "Roof", "Sun"}));
  }
  {
    MergeScene s;
    auto data = s.Updated();
    Host().dialogs().cancelChoices = true;
    hook->Message(s.document, vex::kMsgUpdateMerge, 0, &data);
    Host().dialogs().cancelChoices = false;
    EXPECT_TRUE(data.outcome.cancelled);
    EXPECT_EQ(s.Names(), (std::vector<std::string>{"Walls", "Roof", "Garden", "Sun"}));
  }
  {
    // Nothing differs: no dialog at all.
    MergeScene s;
    testing_support::ResetHostRecords();
    vex::UpdateMergeData same{"model.ifc", {Object("Walls", 0), Object("Roof", 3), Object("Garden", 5)}, {}};
    hook->Message(s.document, vex::kMsgUpdateMerge, 0, &same);
    EXPECT_TRUE(same.outcome.handled);
    EXPECT_TRUE(Host().dialogs().Records().empty());
  }
  Host().dialogs().choiceAnswers.reset();
  // Other messages pass through untouched.
  MergeScene s;
  EXPECT_TRUE(hook->Message(s.document, vex::kMsgDocumentEvent, vex::kDocumentClosing, nullptr));
}

}  // namespace
