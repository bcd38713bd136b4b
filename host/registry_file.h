// A registry described in a regedit-style ".reg" text file: the reference
// host's registry on systems without one, so that tests and users describe an
// installation in a file. Keys and value names compare case-insensitively, as
// the Windows registry does; values enumerate in the order the file gives them.
#pragma once

#include <cstdint>
#include <map>
#include <unordered_map>
#include <string>
#include <string_view>
#include <vector>

#include "vex/registry.h"

namespace host {

class RegistryFile final : public vex::IRegistry {
 public:
  /// Value types as regedit writes them.
  enum class Type : std::uint32_t { String = 1, ExpandString = 2, Binary = 3, Dword = 4, MultiString = 7 };

  /// Reads a ".reg" file ("Windows Registry Editor Version 5.00" or "REGEDIT4"; UTF-8 or UTF-16
  /// with a byte-order mark) and applies it to this registry. Errors name the file and the line.
  vex::Result<void> LoadFile(const std::string& path);
  vex::Result<void> Parse(std::string_view text, const std::string& source);

  /// Writes a value (an empty name is the key's default value), making the key and its parents.
  /// `keyPath` starts with the hive ("HKEY_CURRENT_USER\\Software\\...").
  void SetValue(std::string_view keyPath, std::string_view name, Type type, std::string data);
  void SetString(std::string_view keyPath, std::string_view name, std::string_view text);
  /// Removes a key with its sub-keys; false when it did not exist.
  bool DeleteKey(std::string_view keyPath);

  vex::Result<vex::RegistryKey> OpenCurrentUserKey(std::string_view path) override;
  vex::Result<vex::RegistryValue> EnumValue(vex::RegistryKey key, std::uint32_t index) override;
  vex::Result<std::size_t> QueryValue(vex::RegistryKey key, std::string_view name, std::span<char> buffer) override;
  void CloseKey(vex::RegistryKey key) override;

  /// Every path OpenCurrentUserKey was asked for, in order, and whether it opened.
  struct OpenAttempt {
    std::string path;
    bool opened = false;
  };
  const std::vector<OpenAttempt>& OpenAttempts() const { return attempts_; }
  /// Keys opened and not closed yet.
  std::size_t OpenKeyCount() const { return open_.size(); }
  bool IsEmpty() const { return keys_.empty(); }

 private:
  struct Value {
    std::string name;
    Type type = Type::String;
    std::string data;
    bool removed = false;  ///< deleted by a later line of the file being read
  };
  struct Key {
    std::string path;  ///< as first written
    std::vector<Value> values;
    /// Position in `values` by lower-case name: setting and querying stay constant-time, so a
    /// key with many values reads in linear time.
    std::unordered_map<std::string, std::size_t> byName;
    bool swept = true;  ///< false while values marked removed are still in `values`
    void Reindex();
  };
  Key& MakeKey(std::string_view keyPath);
  std::map<std::string, Key> keys_;  ///< by lower-case full path
  std::map<vex::RegistryKey, std::string> open_;
  vex::RegistryKey next_ = 0x100;
  std::vector<OpenAttempt> attempts_;
};

}  // namespace host
