// PENDING: the hand-over lands with the ArchiCAD issue.
#include "exchange/archicad_exchange.h"

#include <memory>

#include "frame/module.h"
#include "vex/host.h"

namespace interop::exchange {
namespace {

constexpr std::int32_t kCommandId = 200000215;
constexpr std::int32_t kHookId = 200000216;

struct ExchangeState {
  std::string fileName;
};
std::unique_ptr<ExchangeState> g_exchange;

class SendToArchiCad final : public vex::ICommand {
 public:
  bool Execute(vex::IDocument*) override { return false; }
  bool Message(std::int32_t, void*) override { return false; }
};

class ArchiCadHook final : public vex::ISceneHook {
 public:
  bool Message(vex::IDocument&, std::int32_t, std::int32_t, void*) override { return true; }
};

}  // namespace

bool RegisterArchiCadExchange() {
  g_exchange = std::make_unique<ExchangeState>();
  vex::CommandRegistration command;
  command.id = kCommandId;
  command.name = GetString(20000);
  command.infoFlags = 0x10000000;
  command.helpText = "Send To ArchiCAD";
  command.command = std::make_shared<SendToArchiCad>();
  if (!vex::Host().plugins->RegisterCommand(command)) return false;
  vex::SceneHookRegistration hook;
  hook.id = kHookId;
  hook.name = "ArchiExchangeCADHook";
  hook.infoFlags = 0x10000000;
  hook.priority = 5000;
  hook.hook = std::make_shared<ArchiCadHook>();
  return vex::Host().plugins->RegisterSceneHook(hook);
}

void ReleaseArchiCadExchange() { g_exchange.reset(); }
void ArchiCadHandBackAll() {}
void ArchiCadInsertMenu() {}

}  // namespace interop::exchange
