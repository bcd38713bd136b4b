// What the host does on its own initiative and lets scene hooks see first:
// the user closing a document, and merging an updated import into a scene.
#pragma once

#include <string>
#include <vector>

#include "host/plugins.h"
#include "host/scene.h"
#include "vex/update_merge.h"

namespace host {

/// Sends a scene message to every registered hook, the highest priority first (registration
/// order among equals). Returns false when a hook returned false (the host then skips its default
/// handling).
bool SendToHooks(PluginRegistry& plugins, vex::IDocument& document, std::int32_t id, std::int32_t subType,
                 void* data);

/// The user closes a document: the hooks see "document about to close", then it is closed.
void CloseDocumentAsUser(PluginRegistry& plugins, Documents& documents, Document& document);

/// Merges the updated version of an imported file. The document's top-level objects whose import
/// source is `sourceFile` are the earlier import; `updated` is the new version's top-level objects
/// (detached, see TakeObjects). A hook answers through the outcome; without one the host takes
/// every new and changed object and keeps the ones that are gone.
vex::UpdateMergeOutcome UpdateMerge(PluginRegistry& plugins, Document& document, const std::string& sourceFile,
                                    std::vector<vex::SceneObjectRef> updated);

/// Detaches every top-level object of a document (for an update merge from a loaded scene file),
/// tagging each with `sourceFile` as its import source.
std::vector<vex::SceneObjectRef> TakeObjects(Document& from, const std::string& sourceFile);

}  // namespace host
