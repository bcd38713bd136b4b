// The reference host's classic plug-in registry and menus.
#pragma once

#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "vex/plugins.h"

namespace host {

class PluginRegistry final : public vex::IPluginRegistry {
 public:
  PluginRegistry();
  bool RegisterSceneSaver(const vex::SceneSaverRegistration& registration) override;
  bool RegisterCommand(const vex::CommandRegistration& registration) override;
  bool RegisterSceneHook(const vex::SceneHookRegistration& registration) override;
  vex::MenuEntry* FindMenu(std::string_view id) override;

  /// A registration attempt, accepted or refused, in call order.
  struct Attempt {
    std::string kind;  ///< "saver", "command", "hook"
    std::int32_t id = 0;
    std::string name;
    bool accepted = false;
  };
  std::vector<Attempt> Attempts() const;
  const std::vector<vex::SceneSaverRegistration>& Savers() const { return savers_; }
  const std::vector<vex::CommandRegistration>& Commands() const { return commands_; }
  const std::vector<vex::SceneHookRegistration>& Hooks() const { return hooks_; }
  const vex::SceneSaverRegistration* FindSaver(std::string_view formatOrSuffix) const;
  const vex::CommandRegistration* FindCommand(std::int32_t id) const;
  /// Plug-in ids the host refuses (for tests of failing start-ups).
  std::set<std::int32_t> refuse;
  /// Drops every plug-in object (before the module that made them is unloaded).
  void Clear();
  /// The menus as indented text.
  std::string DescribeMenus() const;

 private:
  bool Record(const char* kind, std::int32_t id, const std::string& name);
  mutable std::mutex mutex_;
  std::vector<Attempt> attempts_;
  std::vector<vex::SceneSaverRegistration> savers_;
  std::vector<vex::CommandRegistration> commands_;
  std::vector<vex::SceneHookRegistration> hooks_;
  std::vector<vex::MenuEntry> menus_;
};

}  // namespace host
