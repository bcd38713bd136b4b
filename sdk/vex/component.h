// The host's component framework as a module sees it: static declarations of
// classes, interfaces, registries, data types and settings (collected in the
// module's framework state at library load), reference-counted instances, and
// interface lookup by id.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "vex/data.h"
#include "vex/error.h"

namespace vex {

/// Every instance the framework creates. Interfaces are found by their id, never by RTTI
/// (type information does not cross the module boundary).
class IComponent {
 public:
  virtual ~IComponent() = default;
  /// The address of the implemented interface with this id, or nullptr.
  virtual void* QueryInterface(std::string_view interfaceId) = 0;
  /// The class id this instance was created for.
  virtual std::string_view ClassId() const = 0;
};

using ComponentRef = std::shared_ptr<IComponent>;
using ComponentFactory = Result<ComponentRef> (*)();

/// The interface I of an instance, sharing its ownership; nullptr when it does not implement I.
template <class I>
std::shared_ptr<I> Query(const ComponentRef& component) {
  if (!component) return nullptr;
  auto* p = static_cast<I*>(component->QueryInterface(I::kInterfaceId));
  return p ? std::shared_ptr<I>(component, p) : nullptr;
}

/// Implements IComponent for a class that implements the given interfaces.
template <class... Interfaces>
class ComponentBase : public IComponent, public Interfaces... {
 public:
  void* QueryInterface(std::string_view interfaceId) override {
    void* found = nullptr;
    (void)((interfaceId == Interfaces::kInterfaceId ? (found = static_cast<Interfaces*>(this), true) : false) || ...);
    return found;
  }
};

enum class DeclarationKind : std::uint8_t {
  Reference,       ///< the unit uses a host-defined interface or data type
  UnitDependency,  ///< the implementation of a class lives in another unit
  RegistryEntry,   ///< an id entered in a registry
  Component,       ///< class triple, step 1: implementation with its factory
  ClassObject,     ///< class triple, step 2: the class object built on demand
  PublishedClass,  ///< class triple, step 3: the entry others look up
  Interface,
  Registry,
  DataType,
  Setting,  ///< a string configuration value with help text
};

inline constexpr std::array<std::string_view, 10> kDeclarationKindNames = {
    "reference", "unit dependency", "registry entry", "component", "class object",
    "class",     "interface",       "registry",       "data type", "setting"};

constexpr std::string_view DeclarationKindName(DeclarationKind k) {
  return kDeclarationKindNames[static_cast<std::size_t>(k)];
}

/// One static declaration of a module.
struct Declaration {
  DeclarationKind kind = DeclarationKind::Reference;
  std::string id;        ///< the declared id
  std::string unit;      ///< declaring unit ("main", "register", ...)
  std::string related;   ///< Component: implemented interface; RegistryEntry: the registry; DataType: the type
                         ///< name; Setting: the help text; ClassObject/PublishedClass: base class (or empty)
  ComponentFactory factory = nullptr;  ///< Component only
  std::string registry;  ///< Component: the registry the class is entered in (empty: none)
  Data record;           ///< Component: its registry record (e.g. a MaterialMappingDescription)
};

/// The module's framework state, exported as `g_kelvo`. Units append their declarations at
/// library load; the host reads them after loading and builds the classes when it initialises
/// the module's components. The state has no destructor of its own: it must outlive the static
/// destructors of the units that withdraw their declarations, so the list is freed when the last
/// declaration is withdrawn.
struct ModuleFramework {
  static constexpr std::uint32_t kGlueVersion = 1;
  std::uint32_t glueVersion = kGlueVersion;
  std::vector<Declaration>* list = nullptr;

  void Declare(Declaration d) {
    if (list == nullptr) list = new std::vector<Declaration>();
    list->push_back(std::move(d));
  }
  /// Withdraws every declaration of a unit (at static destruction).
  void Withdraw(std::string_view unit) {
    if (list == nullptr) return;
    std::erase_if(*list, [&](const Declaration& d) { return d.unit == unit; });
    if (list->empty()) {
      delete list;
      list = nullptr;
    }
  }
  const std::vector<Declaration>& Declarations() const {
    static const std::vector<Declaration> kNone;
    return list ? *list : kNone;
  }
};

/// Declares the class triple (component, class object, published class) for one class id.
inline void DeclareClass(ModuleFramework& fw, std::string_view unit, std::string_view classId,
                         std::string_view interfaceId, ComponentFactory factory, std::string_view registry = {},
                         Data record = {}, std::string_view baseClass = {}) {
  fw.Declare({DeclarationKind::Component, std::string(classId), std::string(unit), std::string(interfaceId), factory,
              std::string(registry), std::move(record)});
  fw.Declare({DeclarationKind::ClassObject, std::string(classId), std::string(unit), std::string(baseClass), nullptr, {}, {}});
  fw.Declare({DeclarationKind::PublishedClass, std::string(classId), std::string(unit), std::string(baseClass), nullptr, {}, {}});
}

/// Factory for a default-constructible component class.
template <class T>
Result<ComponentRef> MakeComponent() {
  auto p = std::shared_ptr<T>(new (std::nothrow) T());
  if (!p) return VEX_FAIL(ErrorKind::OutOfMemory, "Out of memory");
  return ComponentRef(std::move(p));
}

}  // namespace vex
