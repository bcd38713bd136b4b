#include "host/scene.h"

#include <algorithm>

namespace host {
namespace {

/// Two values have the same type when they hold the same alternative (and, for custom data,
/// the same data type).
bool SameType(const vex::Data& a, const vex::Data& b) {
  return a.value.index() == b.value.index() && a.CustomTypeId() == b.CustomTypeId();
}

}  // namespace

// --- objects ---------------------------------------------------------------------------------

vex::Result<vex::Data> SceneObject::GetParameter(std::int32_t id) const {
  const vex::Data* d = parameters_.Find(id);
  if (d == nullptr) return VEX_FAIL(vex::ErrorKind::NotFound, "Object has no parameter " + std::to_string(id));
  return *d;
}

vex::Result<void> SceneObject::SetParameter(std::int32_t id, const vex::Data& value) {
  if (value.IsEmpty())
    return VEX_FAIL(vex::ErrorKind::IllegalArgument, "Illegal argument: empty value for parameter " + std::to_string(id));
  if (const vex::Data* old = parameters_.Find(id); old != nullptr && !SameType(*old, value))
    return VEX_FAIL(vex::ErrorKind::WrongDataType,
                    "Parameter " + std::to_string(id) + " does not take a value of another type");
  parameters_.Set(id, value);
  if (document_ != nullptr) document_->SetChanged(true);
  return {};
}

vex::IDocument* SceneObject::GetDocument() const { return document_; }

std::vector<vex::ISceneObject*> SceneObject::GetChildren() const {
  std::vector<vex::ISceneObject*> out;
  out.reserve(children_.size());
  for (const auto& c : children_) out.push_back(c.get());
  return out;
}

const vex::AnimationTrack* SceneObject::FindTrack(vex::TrackId track) const {
  for (const auto& t : tracks_)
    if (t.id == track) return &t;
  return nullptr;
}

vex::Result<void> SceneObject::SetKey(vex::TrackId track, vex::AnimationKey key) {
  if (track.component < -1 || track.component > 3)
    return VEX_FAIL(vex::ErrorKind::IllegalArgument,
                    "Illegal argument: track component " + std::to_string(track.component) + " does not exist");
  auto it = std::find_if(tracks_.begin(), tracks_.end(), [&](const auto& t) { return t.id == track; });
  if (it == tracks_.end()) {
    tracks_.push_back({track, {}});
    it = tracks_.end() - 1;
  }
  auto& keys = it->keys;
  const auto at = std::lower_bound(keys.begin(), keys.end(), key.time,
                                   [](const vex::AnimationKey& k, double t) { return k.time < t; });
  if (at != keys.end() && at->time == key.time) *at = key;
  else keys.insert(at, key);
  if (document_ != nullptr) document_->SetChanged(true);
  return {};
}

bool SceneObject::RemoveTrack(vex::TrackId track) {
  return std::erase_if(tracks_, [&](const auto& t) { return t.id == track; }) > 0;
}

// --- documents -------------------------------------------------------------------------------

std::vector<vex::ISceneObject*> Document::GetObjects() const {
  std::vector<vex::ISceneObject*> out;
  out.reserve(objects_.size());
  for (const auto& o : objects_) out.push_back(o.get());
  return out;
}

vex::Result<vex::ISceneObject*> Document::InsertObject(vex::SceneObjectRef object, vex::ISceneObject* parent) {
  VEX_CHECK_ARGUMENT(object != nullptr);
  auto own = std::dynamic_pointer_cast<SceneObject>(object);
  if (!own)
    return VEX_FAIL(vex::ErrorKind::IllegalArgument, "Illegal argument: the object was not created by this host");
  if (own->document_ != nullptr || own->parent_ != nullptr)
    return VEX_FAIL(vex::ErrorKind::IllegalState, "Illegal state: the object is already inserted");
  auto* hostParent = dynamic_cast<SceneObject*>(parent);
  if (parent != nullptr && (hostParent == nullptr || hostParent->document_ != this))
    return VEX_FAIL(vex::ErrorKind::IllegalArgument, "Illegal argument: the parent is not an object of this document");
  std::vector<SceneObject*> stack{own.get()};
  while (!stack.empty()) {
    SceneObject* o = stack.back();
    stack.pop_back();
    o->document_ = this;
    for (const auto& c : o->children_) stack.push_back(c.get());
  }
  own->parent_ = hostParent;
  SceneObject* raw = own.get();
  (hostParent != nullptr ? hostParent->children_ : objects_).push_back(std::move(own));
  changed_ = true;
  return raw;
}

vex::RenderData* Document::GetActiveRenderData() {
  if (activeRender_ < 0) return nullptr;
  return &renderData_[static_cast<std::size_t>(activeRender_)];
}

std::vector<SceneObject*> Document::AllObjects() const {
  std::vector<SceneObject*> out;
  std::vector<SceneObject*> stack;
  for (auto it = objects_.rbegin(); it != objects_.rend(); ++it) stack.push_back(it->get());
  while (!stack.empty()) {
    SceneObject* o = stack.back();
    stack.pop_back();
    out.push_back(o);
    const auto& children = o->Children();
    for (auto it = children.rbegin(); it != children.rend(); ++it) stack.push_back(it->get());
  }
  return out;
}

SceneObject* Document::FindObject(std::string_view name) const {
  for (SceneObject* o : AllObjects())
    if (o->GetName() == name) return o;
  return nullptr;
}

vex::Result<void> Document::SetActiveRenderIndex(int index) {
  if (index < 0 || static_cast<std::size_t>(index) >= renderData_.size())
    return VEX_FAIL(vex::ErrorKind::IllegalArgument,
                    "Illegal argument: render setting " + std::to_string(index) + " does not exist");
  activeRender_ = index;
  return {};
}

vex::RenderData& Document::AddRenderData(vex::RenderData data) {
  renderData_.push_back(std::move(data));
  if (activeRender_ < 0) activeRender_ = 0;
  return renderData_.back();
}

// --- the document list -----------------------------------------------------------------------

std::vector<vex::IDocument*> Documents::GetDocuments() const {
  std::vector<vex::IDocument*> out;
  out.reserve(documents_.size());
  for (const auto& d : documents_) out.push_back(d.get());
  return out;
}

vex::Result<vex::SceneObjectRef> Documents::CreateObject(std::int32_t type) {
  return vex::SceneObjectRef(std::make_shared<SceneObject>(type));
}

Document& Documents::NewDocument(std::string name) {
  documents_.push_back(std::make_unique<Document>(std::move(name)));
  active_ = documents_.back().get();
  return *documents_.back();
}

bool Documents::Close(const Document* document) {
  const auto removed = std::erase_if(documents_, [&](const auto& d) { return d.get() == document; });
  if (removed == 0) return false;
  if (active_ == document) active_ = documents_.empty() ? nullptr : documents_.back().get();
  return true;
}

void Documents::CloseAll() {
  active_ = nullptr;
  documents_.clear();
}

}  // namespace host
