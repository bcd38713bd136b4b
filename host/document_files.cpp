// The document list's file operations for modules: saving in the native scene
// format, loading a scene file into a detached document, inserting, activating
// and closing documents, and taking objects out of a document.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "host/input_files.h"
#include "host/scene.h"
#include "host/scene_file.h"
#include "host/services.h"
#include "vex/host.h"

namespace fs = std::filesystem;

namespace host {

vex::Result<void> Document::RemoveObject(vex::ISceneObject* object) {
  auto* own = dynamic_cast<SceneObject*>(object);
  if (own == nullptr || own->document_ != this)
    return VEX_FAIL(vex::ErrorKind::IllegalArgument, "Illegal argument: the object is not an object of this document");
  auto& list = own->parent_ != nullptr ? own->parent_->children_ : objects_;
  const auto it = std::ranges::find_if(list, [&](const auto& o) { return o.get() == own; });
  if (it == list.end()) return VEX_FAIL(vex::ErrorKind::IllegalState, "Illegal state: the object is not in its list");
  std::vector<SceneObject*> stack{own};
  while (!stack.empty()) {
    SceneObject* o = stack.back();
    stack.pop_back();
    o->document_ = nullptr;
    for (const auto& c : o->children_) stack.push_back(c.get());
  }
  own->parent_ = nullptr;
  list.erase(it);
  changed_ = true;
  return {};
}

vex::Result<void> Documents::SaveDocument(vex::IDocument& document, std::string_view path, std::int32_t format,
                                          std::int32_t flags) {
  const std::string native = NativePath(path);
  FileRecord record{"save", native, format, flags, false};
  auto* own = dynamic_cast<Document*>(&document);
  vex::Result<void> saved;
  if (own == nullptr)
    saved = VEX_FAIL(vex::ErrorKind::IllegalArgument, native + ": the document does not belong to this host");
  else if (format != kNativeSceneFormat)
    saved = VEX_FAIL(vex::ErrorKind::IllegalArgument, native + ": format " + std::to_string(format) +
                                                          " cannot be saved by this host");
  else
    saved = scene_file::Save(*own, native);
  record.ok = saved.has_value();
  fileLog.push_back(std::move(record));
  if (saved) document.SetChanged(false);
  return saved;
}

vex::Result<std::unique_ptr<vex::IDocument>> Documents::LoadDocument(std::string_view path, std::int32_t flags) {
  const std::string native = NativePath(path);
  fileLog.push_back({"load", native, kNativeSceneFormat, flags, false});
  if (auto readable = CheckInputFile(native); !readable) {
    fileLog.back().error = readable.error().message;
    return std::unexpected(readable.error());
  }
  auto document = std::make_unique<Document>(fs::path(native).stem().string());
  document->SetPath(fs::absolute(fs::path(native)).parent_path().string());
  scene_file::ReadOptions options;
  if (vex::IsHostBound()) options.units = vex::Host().units;
  if (auto parsed = scene_file::ParseFile(native, *document, options); !parsed) {
    fileLog.back().error = parsed.error().message;
    return std::unexpected(parsed.error());
  }
  fileLog.back().ok = true;
  return std::unique_ptr<vex::IDocument>(std::move(document));
}

vex::IDocument* Documents::InsertDocument(std::unique_ptr<vex::IDocument> document) {
  auto* own = dynamic_cast<Document*>(document.get());
  if (own == nullptr) return nullptr;
  document.release();
  documents_.push_back(std::unique_ptr<Document>(own));
  return own;
}

void Documents::SetActiveDocument(vex::IDocument* document) {
  for (const auto& d : documents_)
    if (d.get() == document) active_ = d.get();
}

bool Documents::CloseDocument(vex::IDocument* document) { return Close(dynamic_cast<Document*>(document)); }

}  // namespace host
