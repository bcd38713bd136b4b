// Length units: the unit-scale data that documents (setting 2117) and renderer
// settings carry, and the host's service that translates lengths between two
// of them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "vex/error.h"

namespace vex {

/// A length unit: its name and its size in metres. Carried in Data as a custom value
/// (Data::MakeCustom); the host knows it as its custom data type 200000275.
struct UnitScale {
  static constexpr std::string_view kDataTypeId = "net.kelvo.datatype.unitscale";
  static constexpr std::int32_t kHostDataType = 200000275;
  std::string unit;           ///< "m", "cm", "mm", "in", ... (the host's list, see IUnits::FindUnit)
  double metresPerUnit = 1.0; ///< one unit in metres; must be positive
  bool operator==(const UnitScale&) const = default;
};

/// The host's unit service.
class IUnits {
 public:
  virtual ~IUnits() = default;
  /// The factor that turns a length given in `from` units into the same length in `to` units
  /// (from cm to m: 0.01). Fails with IllegalArgument when either unit has a size that is not a
  /// positive finite number.
  virtual Result<double> GetTranslationScale(const UnitScale& from, const UnitScale& to) const = 0;
  /// The host's unit of that name ("km", "m", "cm", "mm", "um", "nm", "mi", "yd", "ft", "in"), or none.
  virtual std::optional<UnitScale> FindUnit(std::string_view name) const = 0;
};

}  // namespace vex
