// The reference host's scene model: open documents, their objects (type, name,
// parameter container, hierarchy, animation tracks) and render settings.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "vex/scene.h"

namespace host {

/// The reference host's camera object: it looks down its own -Z axis with +Y up, placed by the
/// object transform (903/904/905) like any other object. Its parameters; absent ones take the
/// defaults in brackets.
inline constexpr std::int32_t kCameraObjectType = 1200;
inline constexpr std::int32_t kCameraProjection = 960;   ///< int32: 0 perspective [0], 1 orthographic
inline constexpr std::int32_t kCameraFieldOfView = 961;  ///< float64: vertical field of view, radians [0.6911]
inline constexpr std::int32_t kCameraAspect = 962;       ///< float64: width / height [1.5]
inline constexpr std::int32_t kCameraOrthoHeight = 963;  ///< float64: orthographic view height, document units [2]
inline constexpr std::int32_t kCameraNearClip = 964;     ///< float64: document units [0.1]
inline constexpr std::int32_t kCameraFarClip = 965;      ///< float64: document units [1000]

class Document;
class MaterialStore;  // host/materials.h

class SceneObject final : public vex::ISceneObject {
 public:
  explicit SceneObject(std::int32_t type) : type_(type) {}

  std::int32_t GetType() const override { return type_; }
  std::string GetName() const override { return name_; }
  void SetName(std::string name) override { name_ = std::move(name); }
  vex::Result<vex::Data> GetParameter(std::int32_t id) const override;
  /// Refuses an empty value, and a value whose type differs from the one the parameter holds
  /// (a parameter keeps its type once set).
  vex::Result<void> SetParameter(std::int32_t id, const vex::Data& value) override;
  const vex::ParamContainer& Parameters() const override { return parameters_; }
  vex::IDocument* GetDocument() const override;
  vex::ISceneObject* GetParent() const override { return parent_; }
  std::vector<vex::ISceneObject*> GetChildren() const override;
  std::vector<vex::AnimationTrack> GetTracks() const override { return tracks_; }
  vex::Result<void> SetKey(vex::TrackId track, vex::AnimationKey key) override;
  bool RemoveTrack(vex::TrackId track) override;

  /// Host-side access, without the type rule of SetParameter (loading files, tests).
  vex::ParamContainer& MutableParameters() { return parameters_; }
  const std::vector<std::shared_ptr<SceneObject>>& Children() const { return children_; }
  const vex::AnimationTrack* FindTrack(vex::TrackId track) const;

 private:
  friend class Document;
  std::int32_t type_;
  std::string name_;
  vex::ParamContainer parameters_;
  std::vector<vex::AnimationTrack> tracks_;
  Document* document_ = nullptr;
  SceneObject* parent_ = nullptr;
  std::vector<std::shared_ptr<SceneObject>> children_;
};

class Document final : public vex::IDocument {
 public:
  explicit Document(std::string name) : name_(std::move(name)) {}

  std::string GetName() const override { return name_; }
  void SetName(std::string name) override { name_ = std::move(name); }
  std::string GetPath() const override { return path_; }
  void SetPath(std::string path) override { path_ = std::move(path); }
  vex::ParamContainer& Settings() override { return settings_; }
  const vex::ParamContainer& Settings() const { return settings_; }
  vex::ParamContainer GetDataContainer() const override { return data_; }
  void SetDataContainer(const vex::ParamContainer& data) override { data_ = data; }
  bool IsChanged() const override { return changed_; }
  void SetChanged(bool changed) override { changed_ = changed; }
  std::vector<vex::ISceneObject*> GetObjects() const override;
  /// Accepts only objects this host created that are not inserted yet; `parent` must belong to
  /// this document. Marks the document changed.
  vex::Result<vex::ISceneObject*> InsertObject(vex::SceneObjectRef object, vex::ISceneObject* parent) override;
  vex::RenderData* GetActiveRenderData() override;
  /// Detaches an object of this document (with its children); it may be inserted again.
  vex::Result<void> RemoveObject(vex::ISceneObject* object) override;

  const std::vector<std::shared_ptr<SceneObject>>& Objects() const { return objects_; }
  /// Every object, depth first, parents before their children.
  std::vector<SceneObject*> AllObjects() const;
  /// The first object of that name, depth first; nullptr when there is none.
  SceneObject* FindObject(std::string_view name) const;

  std::vector<vex::RenderData>& RenderSettings() { return renderData_; }
  const std::vector<vex::RenderData>& RenderSettings() const { return renderData_; }
  /// Index of the active render setting, -1 when the document has none.
  int ActiveRenderIndex() const { return activeRender_; }
  /// Makes a render setting active; fails for an index outside the list.
  vex::Result<void> SetActiveRenderIndex(int index);
  /// Appends a render setting; the first one appended becomes active.
  vex::RenderData& AddRenderData(vex::RenderData data);

  /// The document's materials and the Substance assets they link to (host/materials.h).
  MaterialStore& Materials();
  const MaterialStore* MaterialsIfAny() const { return materials_.get(); }

 private:
  std::string name_;
  std::string path_;
  vex::ParamContainer settings_;
  vex::ParamContainer data_;
  bool changed_ = false;
  std::vector<std::shared_ptr<SceneObject>> objects_;
  std::vector<vex::RenderData> renderData_;
  int activeRender_ = -1;
  std::shared_ptr<MaterialStore> materials_;
};

class Documents final : public vex::IDocuments {
 public:
  std::vector<vex::IDocument*> GetDocuments() const override;
  vex::IDocument* GetActiveDocument() const override { return active_; }
  /// Any type id is accepted: the reference host has no object plug-ins to consult.
  vex::Result<vex::SceneObjectRef> CreateObject(std::int32_t type) override;

  /// Opens a new empty document and makes it active.
  Document& NewDocument(std::string name);
  /// Closes one document (the active one passes to the last remaining document).
  bool Close(const Document* document);
  void CloseAll();
  void SetActive(Document* document) { active_ = document; }
  Document* Active() const { return active_; }

  // Files and the document list on behalf of modules (host/document_files.cpp). Only the native
  // scene format is saved; the save and load flags are recorded, the reference host has no use
  // for them.
  vex::Result<void> SaveDocument(vex::IDocument& document, std::string_view path, std::int32_t format,
                                 std::int32_t flags) override;
  vex::Result<std::unique_ptr<vex::IDocument>> LoadDocument(std::string_view path, std::int32_t flags) override;
  vex::IDocument* InsertDocument(std::unique_ptr<vex::IDocument> document) override;
  void SetActiveDocument(vex::IDocument* document) override;
  bool CloseDocument(vex::IDocument* document) override;
  void Refresh() override { ++refreshes; }
  /// Every save and load a module asked for, in order.
  struct FileRecord {
    std::string operation;  ///< "save" or "load"
    std::string path;
    std::int32_t format = 0;
    std::int32_t flags = 0;
    bool ok = false;
    std::string error;  ///< why a failed operation failed (one line)
  };
  std::vector<FileRecord> fileLog;
  int refreshes = 0;

 private:
  std::vector<std::unique_ptr<Document>> documents_;
  Document* active_ = nullptr;
};

}  // namespace host
