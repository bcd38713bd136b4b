#include "host/component_system.h"

#include <set>

#include "host/services.h"

namespace host {

vex::Result<void> ComponentSystem::AddModule(const std::string& module, const vex::ModuleFramework& framework,
                                             Configuration& config) {
  if (framework.glueVersion != vex::ModuleFramework::kGlueVersion)
    return VEX_FAIL(vex::ErrorKind::IllegalState,
                    module + ": framework glue version " + std::to_string(framework.glueVersion) +
                        " does not match the host's " + std::to_string(vex::ModuleFramework::kGlueVersion));
  std::set<std::string, std::less<>> interfaces;
  for (const auto& d : framework.Declarations())
    if (d.kind == vex::DeclarationKind::Interface) interfaces.insert(d.id);
  {
    std::lock_guard lock(mutex_);
    for (const auto& [name, state] : modules_)
      for (const auto& d : state.declarations)
        if (d.kind == vex::DeclarationKind::Interface) interfaces.insert(d.id);
  }
  for (const auto& d : framework.Declarations()) {
    if (d.id.empty())
      return VEX_FAIL(vex::ErrorKind::IllegalState, module + ": a declaration without an id");
    if (d.kind == vex::DeclarationKind::Component) {
      if (d.factory == nullptr)
        return VEX_FAIL(vex::ErrorKind::IllegalState, module + ": class " + d.id + " has no factory");
      if (!interfaces.contains(d.related))
        return VEX_FAIL(vex::ErrorKind::NotFound,
                        module + ": class " + d.id + " implements the unknown interface " + d.related);
    }
  }
  for (const auto& d : framework.Declarations())
    if (d.kind == vex::DeclarationKind::Setting) VEX_TRY(config.Register(d.id, d.related, ""));
  std::lock_guard lock(mutex_);
  auto& state = modules_[module];
  state.declarations = framework.Declarations();
  state.initialised = false;
  for (const auto& d : state.declarations)
    if (d.kind == vex::DeclarationKind::DataType) dataTypes_[d.id] = {module, d.related};
  return {};
}

vex::Result<void> ComponentSystem::InitialiseModule(const std::string& module) {
  std::lock_guard lock(mutex_);
  const auto it = modules_.find(module);
  if (it == modules_.end()) return VEX_FAIL(vex::ErrorKind::NotFound, "Unknown module: " + module);
  if (it->second.initialised) return {};
  // Triples: the component gives the factory, the class object binds it, the published class
  // makes it visible. A class whose triple is incomplete stays unpublished.
  std::map<std::string, ClassObject, std::less<>> components;
  std::set<std::string, std::less<>> classObjects;
  for (const auto& d : it->second.declarations) {
    switch (d.kind) {
      case vex::DeclarationKind::Component:
        components[d.id] = {module, d.factory};
        if (!d.registry.empty()) registries_[d.registry].push_back({module, {d.id, d.record}});
        break;
      case vex::DeclarationKind::ClassObject:
        if (components.contains(d.id)) classObjects.insert(d.id);
        break;
      case vex::DeclarationKind::PublishedClass:
        if (classObjects.contains(d.id)) published_[d.id] = components[d.id];
        break;
      case vex::DeclarationKind::RegistryEntry:
        registries_[d.related].push_back({module, {d.id, {}}});
        break;
      default:
        break;
    }
  }
  it->second.initialised = true;
  return {};
}

void ComponentSystem::RemoveModule(const std::string& module) {
  std::lock_guard lock(mutex_);
  modules_.erase(module);
  std::erase_if(published_, [&](const auto& e) { return e.second.module == module; });
  for (auto& [id, entries] : registries_) std::erase_if(entries, [&](const auto& e) { return e.first == module; });
  std::erase_if(dataTypes_, [&](const auto& e) { return e.second.first == module; });
}

std::vector<vex::Declaration> ComponentSystem::Declarations(const std::string& module) const {
  std::lock_guard lock(mutex_);
  const auto it = modules_.find(module);
  return it == modules_.end() ? std::vector<vex::Declaration>{} : it->second.declarations;
}

vex::Result<vex::ComponentRef> ComponentSystem::CreateInstance(std::string_view classId) {
  vex::ComponentFactory factory = nullptr;
  {
    std::lock_guard lock(mutex_);
    const auto it = published_.find(classId);
    if (it == published_.end())
      return VEX_FAIL(vex::ErrorKind::NotFound, "Class not published: " + std::string(classId));
    factory = it->second.factory;
  }
  return factory();
}

bool ComponentSystem::IsClassPublished(std::string_view classId) const {
  std::lock_guard lock(mutex_);
  return published_.contains(classId);
}

std::vector<vex::RegistryEntry> ComponentSystem::GetRegistryEntries(std::string_view registryId) const {
  std::lock_guard lock(mutex_);
  std::vector<vex::RegistryEntry> out;
  if (const auto it = registries_.find(registryId); it != registries_.end())
    for (const auto& e : it->second) out.push_back(e.second);
  return out;
}

std::optional<std::string> ComponentSystem::GetDataTypeName(std::string_view dataTypeId) const {
  std::lock_guard lock(mutex_);
  const auto it = dataTypes_.find(dataTypeId);
  if (it == dataTypes_.end()) return std::nullopt;
  return it->second.second;
}

}  // namespace host
