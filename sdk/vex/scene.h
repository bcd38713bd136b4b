// The host's scene model as modules reach it: parameter containers, documents
// and scene objects. The host owns every document and object; modules hold
// plain pointers for the length of a call, and shared references to objects
// they create until they hand them to a document.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "vex/data.h"
#include "vex/error.h"

namespace vex {

/// A container of parameters keyed by 32-bit ids (an object's, a document's, a saver's settings).
class ParamContainer {
 public:
  const Data* Find(std::int32_t id) const {
    for (const auto& e : entries_)
      if (e.first == id) return &e.second;
    return nullptr;
  }
  bool Contains(std::int32_t id) const { return Find(id) != nullptr; }
  void Set(std::int32_t id, Data value) {
    for (auto& e : entries_)
      if (e.first == id) {
        e.second = std::move(value);
        return;
      }
    entries_.emplace_back(id, std::move(value));
  }
  bool Erase(std::int32_t id) {
    return std::erase_if(entries_, [id](const auto& e) { return e.first == id; }) > 0;
  }
  /// Typed reads with the default used when the id is absent or of another type.
  bool GetBool(std::int32_t id, bool fallback = false) const { return Typed<bool>(id, fallback); }
  std::int32_t GetInt32(std::int32_t id, std::int32_t fallback = 0) const { return Typed<std::int32_t>(id, fallback); }
  std::int64_t GetInt64(std::int32_t id, std::int64_t fallback = 0) const { return Typed<std::int64_t>(id, fallback); }
  double GetFloat(std::int32_t id, double fallback = 0.0) const { return Typed<double>(id, fallback); }
  std::string GetString(std::int32_t id, std::string fallback = {}) const { return Typed<std::string>(id, std::move(fallback)); }
  const std::vector<std::pair<std::int32_t, Data>>& Entries() const { return entries_; }
  bool IsEmpty() const { return entries_.empty(); }

 private:
  template <class T>
  T Typed(std::int32_t id, T fallback) const {
    const Data* d = Find(id);
    const T* v = d ? d->Get<T>() : nullptr;
    return v ? *v : fallback;
  }
  std::vector<std::pair<std::int32_t, Data>> entries_;
};

// ---------------------------------------------------------------------------------------------
// Ids the host defines for every object and document

/// Host object types of the host's own objects (renderer objects bring their own ids).
inline constexpr std::int32_t kGroupObjectType = 1000;  ///< an empty object that groups its children
inline constexpr std::int32_t kLightObjectType = 1001;  ///< the host's generic light

/// The relative transform of every object, Vector3d each, relative to the parent.
/// Rotation is in radians about x, y and z, applied in that order (x first); scale is per axis.
inline constexpr std::int32_t kObjectRelativePosition = 903;
inline constexpr std::int32_t kObjectRelativeRotation = 904;
inline constexpr std::int32_t kObjectRelativeScale = 905;

/// Document setting: the document's length unit, a UnitScale (vex/units.h).
inline constexpr std::int32_t kDocumentLengthUnit = 2117;

// ---------------------------------------------------------------------------------------------
// Animation

/// One key of a track: the time in seconds and the value.
struct AnimationKey {
  double time = 0;
  double value = 0;
  bool operator==(const AnimationKey&) const = default;
};

/// Names a track: the animated parameter and its component (0 x, 1 y, 2 z, 3 w; -1 the whole value).
struct TrackId {
  std::int32_t parameter = 0;
  std::int32_t component = -1;
  bool operator==(const TrackId&) const = default;
  auto operator<=>(const TrackId&) const = default;
};

/// The keys of one animated parameter component, sorted by time, at most one key per time.
struct AnimationTrack {
  TrackId id;
  std::vector<AnimationKey> keys;
  bool operator==(const AnimationTrack&) const = default;
};

// ---------------------------------------------------------------------------------------------
// Render data

/// One entry of a render setting's post-effect list: its type (for example the Corvane
/// renderer's settings, 1036219) and its parameters.
struct PostEffect {
  std::int32_t type = 0;
  ParamContainer parameters;
};

/// One render setting of a document: its name, its own parameters and its post effects in order.
struct RenderData {
  std::string name;
  ParamContainer settings;
  std::vector<PostEffect> postEffects;

  /// The first post effect of this type in list order, or nullptr.
  const PostEffect* FindPostEffect(std::int32_t type) const {
    for (const auto& e : postEffects)
      if (e.type == type) return &e;
    return nullptr;
  }
};

class IDocument;

/// One object of a scene.
class ISceneObject {
 public:
  virtual ~ISceneObject() = default;
  /// The host's object type id (e.g. 1036751 for the renderer's light).
  virtual std::int32_t GetType() const = 0;
  virtual std::string GetName() const = 0;
  virtual void SetName(std::string name) = 0;
  /// The value of a parameter; NotFound when the object does not hold it.
  virtual Result<Data> GetParameter(std::int32_t id) const = 0;
  /// Sets a parameter; fails when the host refuses the value.
  virtual Result<void> SetParameter(std::int32_t id, const Data& value) = 0;
  /// The whole parameter container (read-only view).
  virtual const ParamContainer& Parameters() const = 0;
  /// The document the object is inserted in, or nullptr.
  virtual IDocument* GetDocument() const = 0;
  virtual ISceneObject* GetParent() const = 0;
  virtual std::vector<ISceneObject*> GetChildren() const = 0;

  /// The object's animation tracks in the order they were made. Objects that cannot be animated
  /// have none.
  virtual std::vector<AnimationTrack> GetTracks() const { return {}; }
  /// Sets one key on a track, making the track on its first key. A key at the time of an existing
  /// key replaces that key; keys stay sorted by time. Fails when the object cannot be animated.
  virtual Result<void> SetKey(TrackId track, AnimationKey key) {
    (void)track;
    (void)key;
    return VEX_FAIL(ErrorKind::IllegalState, "Object cannot be animated");
  }
  /// Removes a track with all its keys; false when the object has no such track.
  virtual bool RemoveTrack(TrackId track) {
    (void)track;
    return false;
  }
};

using SceneObjectRef = std::shared_ptr<ISceneObject>;

/// One open scene.
class IDocument {
 public:
  virtual ~IDocument() = default;
  virtual std::string GetName() const = 0;
  virtual void SetName(std::string name) = 0;
  /// The directory of the scene file (empty for an unsaved document).
  virtual std::string GetPath() const = 0;
  virtual void SetPath(std::string path) = 0;
  /// Document settings (units 2117, setting 2204, ...).
  virtual ParamContainer& Settings() = 0;
  /// The document's data container (marks such as 50010), returned as a copy;
  /// SetDataContainer stores a changed copy back.
  virtual ParamContainer GetDataContainer() const = 0;
  virtual void SetDataContainer(const ParamContainer& data) = 0;
  virtual bool IsChanged() const = 0;
  virtual void SetChanged(bool changed) = 0;
  /// Top-level objects in order.
  virtual std::vector<ISceneObject*> GetObjects() const = 0;
  /// Inserts an object created by the host's object factory (under `parent` when given).
  virtual Result<ISceneObject*> InsertObject(SceneObjectRef object, ISceneObject* parent = nullptr) = 0;
  /// The active render setting, or nullptr for a document without render settings.
  virtual RenderData* GetActiveRenderData() { return nullptr; }
  /// Takes a top-level object (with its children) out of the document.
  virtual Result<void> RemoveObject(ISceneObject* object) {
    (void)object;
    return VEX_FAIL(ErrorKind::IllegalState, "Objects cannot be removed from this document");
  }
};

/// The host's list of open documents.
class IDocuments {
 public:
  virtual ~IDocuments() = default;
  virtual std::vector<IDocument*> GetDocuments() const = 0;
  virtual IDocument* GetActiveDocument() const = 0;
  /// Creates a host object of the given type, not yet inserted anywhere.
  virtual Result<SceneObjectRef> CreateObject(std::int32_t type) = 0;

  /// Host format id of the native scene file (suffix "vex").
  static constexpr std::int32_t kNativeSceneFormat = 1001026;
  /// Saves a document to `path` in a format (`kNativeSceneFormat`) with the host's save flags. The
  /// document keeps its name and path; its changed state is cleared.
  virtual Result<void> SaveDocument(IDocument& document, std::string_view path, std::int32_t format,
                                    std::int32_t flags) {
    (void)document, (void)path, (void)format, (void)flags;
    return VEX_FAIL(ErrorKind::IllegalState, "This host cannot save documents");
  }
  /// Loads a scene file with the host's load flags into a new document that is not yet in the list.
  virtual Result<std::unique_ptr<IDocument>> LoadDocument(std::string_view path, std::int32_t flags) {
    (void)path, (void)flags;
    return VEX_FAIL(ErrorKind::IllegalState, "This host cannot load documents");
  }
  /// Puts a document made by LoadDocument into the list (last); returns it.
  virtual IDocument* InsertDocument(std::unique_ptr<IDocument> document) {
    (void)document;
    return nullptr;
  }
  virtual void SetActiveDocument(IDocument* document) { (void)document; }
  /// Closes a document without asking anyone; false when it is not in the list.
  virtual bool CloseDocument(IDocument* document) {
    (void)document;
    return false;
  }
  /// Asks the host to redraw and update its views after a change.
  virtual void Refresh() {}
};

}  // namespace vex
