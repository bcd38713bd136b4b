// PENDING: the writer lands with the Allplan issue.
#include "exchange/allplan_main.h"

#include "vex/host.h"

namespace interop::exchange {
namespace {

class AllplanSaver final : public vex::ISceneSaver {
 public:
  std::int32_t Save(const vex::ParamContainer&, const std::string&, vex::IDocument&) override { return -1; }
};

}  // namespace

std::shared_ptr<vex::ISceneSaver> AllocateAllplanSaver() { return std::make_shared<AllplanSaver>(); }

}  // namespace interop::exchange
