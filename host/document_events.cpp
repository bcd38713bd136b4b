#include "host/document_events.h"

#include <algorithm>

namespace host {

bool SendToHooks(PluginRegistry& plugins, vex::IDocument& document, std::int32_t id, std::int32_t subType,
                 void* data) {
  std::vector<const vex::SceneHookRegistration*> hooks;
  for (const auto& h : plugins.Hooks()) hooks.push_back(&h);
  std::ranges::stable_sort(hooks, [](const auto* a, const auto* b) { return a->priority > b->priority; });
  bool passOn = true;
  for (const auto* h : hooks)
    if (!h->hook->Message(document, id, subType, data)) passOn = false;
  return passOn;
}

void CloseDocumentAsUser(PluginRegistry& plugins, Documents& documents, Document& document) {
  SendToHooks(plugins, document, vex::kMsgDocumentEvent, vex::kDocumentClosing, nullptr);
  documents.Close(&document);
}

vex::UpdateMergeOutcome UpdateMerge(PluginRegistry& plugins, Document& document, const std::string& sourceFile,
                                    std::vector<vex::SceneObjectRef> updated) {
  for (auto& o : updated) {
    auto* own = dynamic_cast<SceneObject*>(o.get());
    if (own != nullptr) own->MutableParameters().Set(vex::kObjectImportSource, vex::Data(sourceFile));
  }
  vex::UpdateMergeData data{sourceFile, updated, {}};
  SendToHooks(plugins, document, vex::kMsgUpdateMerge, 0, &data);
  if (data.outcome.handled) return data.outcome;
  // The host's own merge: new and changed objects come in, nothing is removed.
  vex::UpdateMergeOutcome outcome;
  outcome.handled = false;
  for (auto& o : updated) {
    SceneObject* existing = nullptr;
    for (const auto& c : document.Objects())
      if (c->GetName() == o->GetName() && c->Parameters().GetString(vex::kObjectImportSource) == sourceFile)
        existing = c.get();
    const std::string name = o->GetName();
    if (existing != nullptr && !document.RemoveObject(existing)) continue;
    if (document.InsertObject(o, nullptr)) (existing ? outcome.updated : outcome.added).push_back(name);
  }
  return outcome;
}

std::vector<vex::SceneObjectRef> TakeObjects(Document& from, const std::string& sourceFile) {
  std::vector<vex::SceneObjectRef> out(from.Objects().begin(), from.Objects().end());
  for (auto& o : out) {
    (void)from.RemoveObject(o.get());
    static_cast<SceneObject*>(o.get())->MutableParameters().Set(vex::kObjectImportSource, vex::Data(sourceFile));
  }
  return out;
}

}  // namespace host
