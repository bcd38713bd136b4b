#include "host/plugins.h"

#include <functional>

namespace host {
namespace {

vex::MenuEntry Command(std::string id) { return {vex::MenuEntry::kCommand, std::move(id), {}}; }
vex::MenuEntry Submenu(std::string id, std::vector<vex::MenuEntry> children) {
  return {vex::MenuEntry::kSubmenu, std::move(id), std::move(children)};
}

}  // namespace

PluginRegistry::PluginRegistry() {
  // The editor's main menu as the host ships it.
  menus_.push_back(Submenu("M_EDITOR", {Submenu("IDM_FILE", {Command("IDM_NEW"), Command("IDM_OPEN"),
                                                             Command("IDM_SAVE"), Command("IDM_MAKEPROJECT"),
                                                             Command("IDM_EXIT")}),
                                        Submenu("IDM_EDIT", {Command("IDM_UNDO"), Command("IDM_REDO")}),
                                        Submenu("IDM_HELP", {Command("IDM_ABOUT")})}));
}

bool PluginRegistry::Record(const char* kind, std::int32_t id, const std::string& name) {
  const bool accepted = !refuse.contains(id);
  attempts_.push_back({kind, id, name, accepted});
  return accepted;
}

bool PluginRegistry::RegisterSceneSaver(const vex::SceneSaverRegistration& registration) {
  std::lock_guard lock(mutex_);
  if (!Record("saver", registration.id, registration.name) || registration.allocate == nullptr) return false;
  savers_.push_back(registration);
  return true;
}

bool PluginRegistry::RegisterCommand(const vex::CommandRegistration& registration) {
  std::lock_guard lock(mutex_);
  if (!Record("command", registration.id, registration.name) || !registration.command) return false;
  commands_.push_back(registration);
  return true;
}

bool PluginRegistry::RegisterSceneHook(const vex::SceneHookRegistration& registration) {
  std::lock_guard lock(mutex_);
  if (!Record("hook", registration.id, registration.name) || !registration.hook) return false;
  hooks_.push_back(registration);
  return true;
}

vex::MenuEntry* PluginRegistry::FindMenu(std::string_view id) {
  for (auto& m : menus_)
    if (m.id == id) return &m;
  return nullptr;
}

std::vector<PluginRegistry::Attempt> PluginRegistry::Attempts() const {
  std::lock_guard lock(mutex_);
  return attempts_;
}

const vex::SceneSaverRegistration* PluginRegistry::FindSaver(std::string_view formatOrSuffix) const {
  for (const auto& s : savers_)
    if (s.formatName == formatOrSuffix || s.suffix == formatOrSuffix) return &s;
  return nullptr;
}

const vex::CommandRegistration* PluginRegistry::FindCommand(std::int32_t id) const {
  for (const auto& c : commands_)
    if (c.id == id) return &c;
  return nullptr;
}

void PluginRegistry::Clear() {
  std::lock_guard lock(mutex_);
  savers_.clear();
  commands_.clear();
  hooks_.clear();
}

std::string PluginRegistry::DescribeMenus() const {
  std::string out;
  std::function<void(const vex::MenuEntry&, int)> walk = [&](const vex::MenuEntry& e, int depth) {
    out.append(static_cast<std::size_t>(depth) * 2, ' ');
    out += (e.kind == vex::MenuEntry::kSubmenu ? "[" + e.id + "]" : e.id) + "\n";
    for (const auto& c : e.children) walk(c, depth + 1);
  };
  for (const auto& m : menus_) walk(m, 0);
  return out;
}

}  // namespace host
