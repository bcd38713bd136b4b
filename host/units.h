// The reference host's unit service: its list of length units and the
// translation scale between two unit-scale values.
#pragma once

#include <optional>
#include <string_view>

#include "vex/units.h"

namespace host {

class Units final : public vex::IUnits {
 public:
  vex::Result<double> GetTranslationScale(const vex::UnitScale& from, const vex::UnitScale& to) const override;
  std::optional<vex::UnitScale> FindUnit(std::string_view name) const override;
};

}  // namespace host
