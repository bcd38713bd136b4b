#include "cli/allplan_options.h"

#include <cmath>
#include <cstdlib>

#include "host/input_files.h"

namespace cli {


vex::Result<void> ApplyAllplanOption(const std::string& text, vex::ParamContainer& settings) {
  const auto eq = text.find('=');
  const std::string name = text.substr(0, eq);
  const std::string value = eq == std::string::npos ? "" : text.substr(eq + 1);
  struct Known {
    const char* name;
    std::int32_t id;
  };
  static constexpr Known kKnown[] = {{"prepare", 2000}, {"edges", 2001}, {"faces", 2004}, {"volumes", 2006},
                                     {"packed", 2007},  {"weld", 2008}};
  std::int32_t id = 0;
  for (const auto& k : kKnown)
    if (name == k.name || name == std::to_string(k.id)) id = k.id;
  if (id == 0)
    return VEX_FAIL(vex::ErrorKind::IllegalArgument,
                    "--options " + host::Quoted(text) + ": unknown option (prepare, edges, faces, volumes, packed, weld=TOLERANCE)");
  if (id == 2008) {
    char* end = nullptr;
    const double tolerance = std::strtod(value.c_str(), &end);
    if (value.empty() || *end != '\0' || !std::isfinite(tolerance))
      return VEX_FAIL(vex::ErrorKind::IllegalArgument, "--options " + host::Quoted(text) + ": expected weld=TOLERANCE (a number)");
    settings.Set(id, tolerance);
    return {};
  }
  if (!value.empty() && value != "true" && value != "false")
    return VEX_FAIL(vex::ErrorKind::IllegalArgument, "--options " + host::Quoted(text) + ": expected " + name + "[=true|false]");
  settings.Set(id, value != "false");
  return {};
}

}  // namespace cli
