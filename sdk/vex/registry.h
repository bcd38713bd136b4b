// The platform registry as a module reads it: keys of the current user's hive,
// their values in the registry's order, and a key's value read into a buffer
// the caller owns. On Windows the host passes the system registry through; other
// hosts may describe one (the reference host reads a regedit ".reg" file).
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "vex/error.h"

namespace vex {

/// An open key. Every key a successful OpenCurrentUserKey returned stays open until CloseKey.
using RegistryKey = std::uintptr_t;

/// One value of a key as enumeration yields it. `data` holds the raw bytes; a string value
/// carries its terminating NUL as the registry stores it.
struct RegistryValue {
  std::string name;
  std::string data;
};

class IRegistry {
 public:
  virtual ~IRegistry() = default;
  /// Opens a key of the current user's hive; `path` is relative to the hive, components separated
  /// by "\" ("Software\\Maker\\Product"). NotFound when the key does not exist.
  virtual Result<RegistryKey> OpenCurrentUserKey(std::string_view path) = 0;
  /// The value at `index` (0 upward) of an open key. NotFound past the last value; any other
  /// failure is another error kind. Enumeration order is the order the registry keeps.
  virtual Result<RegistryValue> EnumValue(RegistryKey key, std::uint32_t index) = 0;
  /// Reads the data of a value (an empty name reads the key's default value) into `buffer` and
  /// returns the number of bytes written. Nothing beyond buffer.size() is ever written: data that
  /// does not fit fails with IllegalArgument ("more data"); a missing value fails with NotFound.
  virtual Result<std::size_t> QueryValue(RegistryKey key, std::string_view name, std::span<char> buffer) = 0;
  virtual void CloseKey(RegistryKey key) = 0;
};

}  // namespace vex
