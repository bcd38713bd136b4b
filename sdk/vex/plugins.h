// Classic host plug-ins: scene savers, commands and scene hooks, registered by
// a module at start, and the host's menus they may add entries to.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "vex/error.h"
#include "vex/scene.h"

namespace vex {

/// Writes a document to a file of a foreign format.
class ISceneSaver {
 public:
  virtual ~ISceneSaver() = default;
  /// Returns 0 on success, a host file error code or another negative code on failure.
  virtual std::int32_t Save(const ParamContainer& settings, const std::string& fileName, IDocument& document) = 0;
};

/// A command the user runs from a menu. Messages may be sent to it (for example open requests).
class ICommand {
 public:
  virtual ~ICommand() = default;
  virtual bool Execute(IDocument* document) = 0;
  /// A message addressed to the command; `data` depends on the message.
  virtual bool Message(std::int32_t id, void* data) = 0;
};

/// Scene-hook message for document events; its sub-type says which.
inline constexpr std::int32_t kMsgDocumentEvent = 1001078;
/// Sub-type of kMsgDocumentEvent: the document is about to be closed.
inline constexpr std::int32_t kDocumentClosing = 1008;

/// A hook that sees scene messages before the host's default handling.
class ISceneHook {
 public:
  virtual ~ISceneHook() = default;
  /// Returns the result of the message handling (true: handled or passed on successfully).
  virtual bool Message(IDocument& document, std::int32_t id, std::int32_t subType, void* data) = 0;
};

struct SceneSaverRegistration {
  std::int32_t id = 0;
  std::string name;
  std::int32_t infoFlags = 0;
  std::string suffix;
  std::string formatName;
  std::shared_ptr<ISceneSaver> (*allocate)() = nullptr;
};

struct CommandRegistration {
  std::int32_t id = 0;
  std::string name;
  std::int32_t infoFlags = 0;
  std::string helpText;
  std::shared_ptr<ICommand> command;
};

struct SceneHookRegistration {
  std::int32_t id = 0;
  std::string name;
  std::int32_t infoFlags = 0;
  std::int32_t priority = 0;
  std::int32_t lastOption = 0;
  std::shared_ptr<ISceneHook> hook;
};

/// A node of a host menu: a command entry (kind 3) or a submenu (kind 1).
struct MenuEntry {
  static constexpr std::int32_t kSubmenu = 1;
  static constexpr std::int32_t kCommand = 3;
  std::int32_t kind = kCommand;
  std::string id;  ///< "IDM_MAKEPROJECT", "PLUGIN_CMD_200000215", or a submenu's id
  std::vector<MenuEntry> children;
};

/// Registration of classic plug-ins; each call returns whether the host accepted it.
class IPluginRegistry {
 public:
  virtual ~IPluginRegistry() = default;
  virtual bool RegisterSceneSaver(const SceneSaverRegistration& registration) = 0;
  virtual bool RegisterCommand(const CommandRegistration& registration) = 0;
  virtual bool RegisterSceneHook(const SceneHookRegistration& registration) = 0;
  /// The host's menu tree of that id ("M_EDITOR"), or nullptr.
  virtual MenuEntry* FindMenu(std::string_view id) = 0;
};

}  // namespace vex
