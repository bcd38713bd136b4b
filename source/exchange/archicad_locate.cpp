#include "exchange/archicad_locate.h"

#include <algorithm>
#include <cstdint>
#include <string>

namespace interop::exchange {
namespace {

// String data arrives with the terminating NUL the registry stores; the text ends at the first NUL.
std::string TextOf(const std::string& data) { return data.substr(0, data.find('\0')); }

}  // namespace

bool LocateArchiCad(vex::IRegistry& registry, bool checkOnly, std::span<char, kProgramPathSize> programPath) {
  std::string_view keyPath = kArchiCad64Key;
  auto key = registry.OpenCurrentUserKey(keyPath);
  if (!key) {
    keyPath = kArchiCad32Key;
    key = registry.OpenCurrentUserKey(keyPath);
  }
  if (!key) return false;

  std::string version;
  bool enumerated = false;
  bool met = false;
  for (std::uint32_t index = 0;; ++index) {
    auto value = registry.EnumValue(*key, index);
    if (!value) break;  // the first error, including the end of the list, ends the enumeration
    version = TextOf(value->data);
    enumerated = true;
    if (value->name == kLastStartedVersion) {
      met = true;
      break;
    }
  }
  if (checkOnly) {
    registry.CloseKey(*key);
    return met;
  }
  // In full mode the last value enumerated stands in for a missing "Last Started Version".
  if (!enumerated) {
    registry.CloseKey(*key);
    return false;
  }
  std::string subPath(keyPath);
  subPath += '\\';
  subPath += version;
  auto sub = registry.OpenCurrentUserKey(subPath);
  if (!sub) {
    registry.CloseKey(*key);
    return false;
  }
  auto size = registry.QueryValue(*sub, "", programPath);
  if (!size) return false;  // both keys stay open on this path
  const std::size_t written = std::min(*size, programPath.size());
  const auto end = std::find(programPath.begin(), programPath.begin() + static_cast<std::ptrdiff_t>(written), '\0');
  bool found = true;
  if (end == programPath.begin() + static_cast<std::ptrdiff_t>(written)) {
    // No terminator in the data: terminate after it, when there is room for one.
    if (written < programPath.size())
      programPath[written] = '\0';
    else
      found = false;
  }
  if (found && programPath[0] == '\0') found = false;  // an empty default value names no program
  registry.CloseKey(*sub);
  registry.CloseKey(*key);
  return found;
}

}  // namespace interop::exchange
