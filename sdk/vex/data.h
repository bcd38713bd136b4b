// Plain values of the host's data system: small math types, the Data variant,
// arrays and data dictionaries (ordered maps from id strings to Data), and
// custom data types identified by their data-type id.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "vex/error.h"
#include "vex/id.h"

namespace vex {

struct Vector2d {
  double x = 0, y = 0;
  bool operator==(const Vector2d&) const = default;
};
struct Vector3d {
  double x = 0, y = 0, z = 0;
  bool operator==(const Vector3d&) const = default;
};
struct Vector4d {
  double x = 0, y = 0, z = 0, w = 0;
  bool operator==(const Vector4d&) const = default;
};
struct Color {
  double r = 0, g = 0, b = 0;
  bool operator==(const Color&) const = default;
};
struct ColorA {
  double r = 0, g = 0, b = 0, a = 0;
  bool operator==(const ColorA&) const = default;
};

/// Base of every custom data type carried in a Data value. The data-type id is the
/// identity (no RTTI crosses the module boundary).
class CustomData {
 public:
  virtual ~CustomData() = default;
  virtual std::string_view TypeId() const = 0;
};

template <class T>
class CustomValue final : public CustomData {
 public:
  explicit CustomValue(T v) : value(std::move(v)) {}
  std::string_view TypeId() const override { return T::kDataTypeId; }
  T value;
};

struct Data;
using DataArray = std::vector<Data>;

/// Ordered map from key strings to Data; insertion order is kept (it is what the user wrote).
class DataDictionary {
 public:
  bool Contains(std::string_view key) const { return Index(key) >= 0; }
  const Data* Find(std::string_view key) const;
  Data* Find(std::string_view key);
  /// Inserts or replaces.
  void Set(std::string key, Data value);
  bool Erase(std::string_view key);
  std::size_t Size() const { return keys_.size(); }
  bool IsEmpty() const { return keys_.empty(); }
  const std::string& KeyAt(std::size_t i) const { return keys_[i]; }
  const Data& ValueAt(std::size_t i) const;
  bool operator==(const DataDictionary& other) const;

 private:
  std::ptrdiff_t Index(std::string_view key) const {
    for (std::size_t i = 0; i < keys_.size(); ++i)
      if (keys_[i] == key) return static_cast<std::ptrdiff_t>(i);
    return -1;
  }
  std::vector<std::string> keys_;
  std::vector<Data> values_;
};

/// One value of the host's data system.
struct Data {
  using Custom = std::shared_ptr<const CustomData>;
  using Variant = std::variant<std::monostate, bool, std::int32_t, std::int64_t, double, std::string, Id, InternedId,
                               Vector2d, Vector3d, Vector4d, Color, ColorA, DataArray, DataDictionary, Custom>;
  Variant value;

  Data() = default;
  template <class T>
    requires std::is_constructible_v<Variant, T>
  Data(T v) : value(std::move(v)) {}  // NOLINT: Data converts from every plain value
  Data(const char* s) : value(std::string(s)) {}  // NOLINT

  /// Wraps a custom data type (one with a static kDataTypeId).
  template <class T>
  static Data MakeCustom(T v) {
    Data d;
    d.value = Custom(std::make_shared<CustomValue<T>>(std::move(v)));
    return d;
  }

  bool IsEmpty() const { return std::holds_alternative<std::monostate>(value); }
  template <class T>
  bool Is() const {
    if constexpr (requires { T::kDataTypeId; }) return GetCustom<T>() != nullptr;
    else return std::holds_alternative<T>(value);
  }
  template <class T>
  const T* Get() const {
    if constexpr (requires { T::kDataTypeId; }) return GetCustom<T>();
    else return std::get_if<T>(&value);
  }
  /// The data-type id of a custom value, empty for plain values.
  std::string_view CustomTypeId() const {
    const auto* c = std::get_if<Custom>(&value);
    return (c && *c) ? (*c)->TypeId() : std::string_view();
  }
  bool operator==(const Data& other) const;

 private:
  template <class T>
  const T* GetCustom() const {
    const auto* c = std::get_if<Custom>(&value);
    if (!c || !*c || (*c)->TypeId() != T::kDataTypeId) return nullptr;
    return &static_cast<const CustomValue<T>*>(c->get())->value;
  }
};

inline const Data* DataDictionary::Find(std::string_view key) const {
  const auto i = Index(key);
  return i < 0 ? nullptr : &values_[static_cast<std::size_t>(i)];
}
inline Data* DataDictionary::Find(std::string_view key) {
  const auto i = Index(key);
  return i < 0 ? nullptr : &values_[static_cast<std::size_t>(i)];
}
inline void DataDictionary::Set(std::string key, Data value) {
  const auto i = Index(key);
  if (i >= 0) {
    values_[static_cast<std::size_t>(i)] = std::move(value);
    return;
  }
  keys_.push_back(std::move(key));
  values_.push_back(std::move(value));
}
inline bool DataDictionary::Erase(std::string_view key) {
  const auto i = Index(key);
  if (i < 0) return false;
  keys_.erase(keys_.begin() + i);
  values_.erase(values_.begin() + i);
  return true;
}
inline const Data& DataDictionary::ValueAt(std::size_t i) const { return values_[i]; }
inline bool DataDictionary::operator==(const DataDictionary& other) const {
  return keys_ == other.keys_ && values_ == other.values_;
}
inline bool Data::operator==(const Data& other) const {
  if (value.index() != other.value.index()) return false;
  if (const auto* c = std::get_if<Custom>(&value)) return c->get() == std::get<Custom>(other.value).get();
  return value == other.value;
}

/// Typed read of a dictionary key: NotFound when missing, WrongDataType when of another type.
template <class T>
Result<T> GetDataAs(const DataDictionary& dict, std::string_view key) {
  const Data* d = dict.Find(key);
  if (!d) return VEX_FAIL(ErrorKind::NotFound, "Key not found: " + std::string(key));
  const T* v = d->Get<T>();
  if (!v) return VEX_FAIL(ErrorKind::WrongDataType, "Wrong data type for key: " + std::string(key));
  return *v;
}

}  // namespace vex
