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
};

/// The host's list of open documents.
class IDocuments {
 public:
  virtual ~IDocuments() = default;
  virtual std::vector<IDocument*> GetDocuments() const = 0;
  virtual IDocument* GetActiveDocument() const = 0;
  /// Creates a host object of the given type, not yet inserted anywhere.
  virtual Result<SceneObjectRef> CreateObject(std::int32_t type) = 0;
};

}  // namespace vex
