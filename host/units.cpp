#include "host/units.h"

#include <array>
#include <cmath>
#include <string>

namespace host {
namespace {

struct KnownUnit {
  std::string_view name;
  double metres;
};

constexpr std::array<KnownUnit, 10> kUnits = {{
    {"km", 1000.0},
    {"m", 1.0},
    {"cm", 0.01},
    {"mm", 0.001},
    {"um", 1e-6},
    {"nm", 1e-9},
    {"mi", 1609.344},
    {"yd", 0.9144},
    {"ft", 0.3048},
    {"in", 0.0254},
}};

bool IsValid(const vex::UnitScale& u) { return std::isfinite(u.metresPerUnit) && u.metresPerUnit > 0.0; }

}  // namespace

vex::Result<double> Units::GetTranslationScale(const vex::UnitScale& from, const vex::UnitScale& to) const {
  for (const auto* u : {&from, &to})
    if (!IsValid(*u))
      return VEX_FAIL(vex::ErrorKind::IllegalArgument,
                      "Illegal argument: unit \"" + u->unit + "\" has no positive size in metres");
  return from.metresPerUnit / to.metresPerUnit;
}

std::optional<vex::UnitScale> Units::FindUnit(std::string_view name) const {
  for (const auto& u : kUnits)
    if (u.name == name) return vex::UnitScale{std::string(u.name), u.metres};
  return std::nullopt;
}

}  // namespace host
