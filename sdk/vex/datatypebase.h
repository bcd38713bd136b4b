// Typed reads of parameter data, with the data system's exact failure texts.
#pragma once

#include <string_view>

#include "vex/error.h"
#include "vex/material.h"

namespace vex {

inline constexpr std::string_view kInvalidTypedConstant = "Invalid TypedConstantParameter";

/// The T value of a parameter entry. Fails with
/// "Illegal state: Condition parameterDataPtr != nullptr not fulfilled. " when there is no entry and
/// "Invalid TypedConstantParameter" (wrong data type) when the entry is not a constant of type T.
/// Never converts between types.
template <class T>
Result<T> GetTypedConstant(const Parameter* parameterDataPtr) {
  VEX_CHECK_STATE(parameterDataPtr != nullptr);
  const PackedConstantParameter* packed = parameterDataPtr->Constant();
  const T* value = packed ? packed->Get<T>() : nullptr;
  if (value == nullptr) return VEX_FAIL(ErrorKind::WrongDataType, std::string(kInvalidTypedConstant));
  return *value;
}

/// Typed read of a port of a parameter set: a missing port is an error, not a default.
template <class T>
Result<T> ReadTyped(const ParameterSet& set, std::string_view port) {
  return GetTypedConstant<T>(set.Find(port));
}

}  // namespace vex
