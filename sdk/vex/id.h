// Identifiers: reverse-domain id strings, and interned ids whose identity is
// one canonical entry in the host's id table (compared by address, dispatched
// by hash first).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace vex {

/// FNV-1a, 64 bit: the hash the host's id table gives every interned id.
constexpr std::uint64_t HashId(std::string_view text) {
  std::uint64_t h = 0xcbf29ce484222325ull;
  for (const char c : text) {
    h ^= static_cast<unsigned char>(c);
    h *= 0x100000001b3ull;
  }
  return h;
}

/// A plain id string ("net.kelvo.material.portbundle.gltf"). An empty id is unpopulated.
class Id {
 public:
  Id() = default;
  Id(std::string text) : text_(std::move(text)) {}  // NOLINT: ids convert from strings freely
  Id(const char* text) : text_(text) {}              // NOLINT
  Id(std::string_view text) : text_(text) {}         // NOLINT

  bool IsPopulated() const { return !text_.empty(); }
  const std::string& Str() const { return text_; }
  std::string_view View() const { return text_; }
  bool operator==(const Id&) const = default;
  auto operator<=>(const Id&) const = default;
  bool operator==(std::string_view other) const { return text_ == other; }
  bool operator==(const char* other) const { return text_ == other; }
  bool operator==(const std::string& other) const { return text_ == other; }

 private:
  std::string text_;
};

/// One entry of the id table: the text and its hash.
struct IdEntry {
  std::string text;
  std::uint64_t hash = 0;
};

/// An interned id. Two interned ids are the same id exactly when they share an entry;
/// `Hash()` allows a cheap first test. `MakeUninterned` builds an id that has the text and
/// hash of choice but is not the table's entry (a colliding id, for tests and for foreign data).
class InternedId {
 public:
  InternedId() = default;

  /// Interns through the bound host's id table (the host must be bound).
  static InternedId Intern(std::string_view text);
  /// An id outside the table: equal to no interned id, whatever its hash.
  static InternedId MakeUninterned(std::string text, std::uint64_t hash);
  /// Wraps an entry owned by an id table (the host's table uses this).
  static InternedId FromTableEntry(const IdEntry* entry) {
    InternedId id;
    id.entry_ = entry;
    return id;
  }

  bool IsPopulated() const { return entry_ != nullptr; }
  std::uint64_t Hash() const { return entry_ ? entry_->hash : 0; }
  std::string_view View() const { return entry_ ? std::string_view(entry_->text) : std::string_view(); }
  std::string Str() const { return std::string(View()); }
  /// Identity, not text: an uninterned id never equals an interned one.
  bool operator==(const InternedId& other) const { return entry_ == other.entry_; }

 private:
  const IdEntry* entry_ = nullptr;
  std::shared_ptr<const IdEntry> owner_;  // only for uninterned ids
};

}  // namespace vex

template <>
struct std::hash<vex::Id> {
  std::size_t operator()(const vex::Id& id) const noexcept { return static_cast<std::size_t>(vex::HashId(id.View())); }
};
