#include "exchange/updatemerge_dialog.h"

#include <algorithm>

#include "frame/module.h"
#include "vex/host.h"

namespace interop::exchange {
namespace {

// Resource strings of the merge dialog.
constexpr std::int32_t kStrTitle = 30001;    // the imported file was updated
constexpr std::int32_t kStrNew = 30002;      // heading of the new objects
constexpr std::int32_t kStrChanged = 30003;  // heading of the changed objects
constexpr std::int32_t kStrGone = 30004;     // heading of the objects no longer in the file
constexpr std::int32_t kStrAdd = 30005;      // check box: add the new objects
constexpr std::int32_t kStrUpdate = 30006;   // check box: take the updated version of changed objects
constexpr std::int32_t kStrRemove = 30007;   // check box: remove the objects that are gone

bool SameParameters(const vex::ParamContainer& a, const vex::ParamContainer& b) {
  if (a.Entries().size() != b.Entries().size()) return false;
  return std::ranges::all_of(a.Entries(), [&](const auto& e) {
    const vex::Data* other = b.Find(e.first);
    return other != nullptr && *other == e.second;
  });
}

bool SameObject(const vex::ISceneObject& a, const vex::ISceneObject& b) {
  if (a.GetType() != b.GetType() || a.GetName() != b.GetName() || !SameParameters(a.Parameters(), b.Parameters()))
    return false;
  const auto ca = a.GetChildren();
  const auto cb = b.GetChildren();
  if (ca.size() != cb.size()) return false;
  for (std::size_t i = 0; i < ca.size(); ++i)
    if (!SameObject(*ca[i], *cb[i])) return false;
  return true;
}

std::vector<vex::ISceneObject*> ImportedFrom(const vex::IDocument& document, const std::string& source) {
  std::vector<vex::ISceneObject*> out;
  for (vex::ISceneObject* o : document.GetObjects())
    if (o->Parameters().GetString(vex::kObjectImportSource) == source) out.push_back(o);
  return out;
}

std::string NameList(std::int32_t heading, const std::vector<std::string>& names) {
  std::string text = "\n" + GetString(heading);
  for (const auto& n : names) text += "\n  " + n;
  return text;
}

template <class List>
std::vector<std::string> Names(const List& objects) {
  std::vector<std::string> out;
  for (const auto& o : objects) out.push_back(o->GetName());
  return out;
}

void Apply(vex::IDocument& document, vex::UpdateMergeData& data, MergePlan& plan, bool add, bool update,
           bool remove) {
  auto& outcome = data.outcome;
  for (auto& o : plan.added) {
    if (!add) continue;
    const std::string name = o->GetName();
    if (document.InsertObject(o)) outcome.added.push_back(name);
  }
  for (std::size_t i = 0; i < plan.changedCurrent.size(); ++i) {
    const std::string name = plan.changedCurrent[i]->GetName();
    // The updated object takes the old one's place as a whole: its parameters and its children.
    if (update && document.RemoveObject(plan.changedCurrent[i]) && document.InsertObject(plan.changedUpdate[i]))
      outcome.updated.push_back(name);
    else
      outcome.kept.push_back(name);
  }
  for (vex::ISceneObject* o : plan.gone) {
    const std::string name = o->GetName();
    if (remove && document.RemoveObject(o))
      outcome.removed.push_back(name);
    else
      outcome.kept.push_back(name);
  }
}

class UpdateMergeHook final : public vex::ISceneHook {
 public:
  bool Message(vex::IDocument& document, std::int32_t id, std::int32_t, void* data) override {
    if (id != vex::kMsgUpdateMerge || data == nullptr) return true;
    auto& merge = *static_cast<vex::UpdateMergeData*>(data);
    merge.outcome = {};
    merge.outcome.handled = true;
    MergePlan plan = PlanMerge(document, merge);
    if (plan.IsEmpty()) return true;  // the scene already matches the file: nothing to ask

    // The three boxes always appear in this order; one with nothing to do is disabled.
    std::string text = GetString(kStrTitle) + " \"" + merge.sourceFile + "\"";
    if (!plan.added.empty()) text += NameList(kStrNew, Names(plan.added));
    if (!plan.changedCurrent.empty()) text += NameList(kStrChanged, Names(plan.changedCurrent));
    if (!plan.gone.empty()) text += NameList(kStrGone, Names(plan.gone));
    const auto box = [](std::int32_t label, std::size_t count, bool preset) {
      return vex::IDialogs::Choice{GetString(label) + " (" + std::to_string(count) + ")", preset && count > 0,
                                   count > 0};
    };
    // Removing is off by default: it would also drop whatever the user did to those objects.
    const std::vector<vex::IDialogs::Choice> choices{box(kStrAdd, plan.added.size(), true),
                                                     box(kStrUpdate, plan.changedCurrent.size(), true),
                                                     box(kStrRemove, plan.gone.size(), false)};
    const auto answer = vex::Host().dialogs->Choose(text, choices);
    if (!answer || answer->size() != choices.size()) {
      merge.outcome.cancelled = true;
      return true;
    }
    const bool take[3] = {choices[0].enabled && (*answer)[0], choices[1].enabled && (*answer)[1],
                          choices[2].enabled && (*answer)[2]};
    Apply(document, merge, plan, take[0], take[1], take[2]);
    vex::Host().documents->Refresh();
    return true;
  }
};

}  // namespace

MergePlan PlanMerge(const vex::IDocument& document, const vex::UpdateMergeData& data) {
  MergePlan plan;
  const auto current = ImportedFrom(document, data.sourceFile);
  for (const auto& u : data.updated) {
    if (!u) continue;
    const auto match = std::ranges::find_if(current, [&](const auto* c) { return c->GetName() == u->GetName(); });
    if (match == current.end()) {
      plan.added.push_back(u);
    } else if (!SameObject(**match, *u)) {
      plan.changedCurrent.push_back(*match);
      plan.changedUpdate.push_back(u);
    }
  }
  for (vex::ISceneObject* c : current) {
    const bool stays = std::ranges::any_of(data.updated, [&](const auto& u) { return u && u->GetName() == c->GetName(); });
    if (!stays) plan.gone.push_back(c);
  }
  return plan;
}

std::shared_ptr<vex::ISceneHook> MakeUpdateMergeHook() { return std::make_shared<UpdateMergeHook>(); }

}  // namespace interop::exchange
