// The host's port-bundle registry: every bundle's vocabulary (ports with their
// types) and default parameter set, kept as data in data/port_bundles.json.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "vex/host.h"

namespace host {

class PortBundles final : public vex::IPortBundles {
 public:
  /// The bundles compiled into the host (data/port_bundles.json).
  static vex::Result<PortBundles> Builtin();
  /// Bundles from a JSON text of the same form.
  static vex::Result<PortBundles> Parse(std::string_view json, const std::string& source);

  vex::Result<const vex::PortBundle*> Find(std::string_view bundleId) const override;
  std::vector<std::string> Ids() const override;

 private:
  std::vector<vex::PortBundle> bundles_;
};

}  // namespace host
