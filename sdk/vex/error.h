// Errors as values: every operation of the host and of its modules returns a
// Result<T> holding either its value or an Error. Nothing throws across a
// component boundary.
#pragma once

#include <array>
#include <cstdint>
#include <expected>
#include <string>
#include <string_view>
#include <utility>

namespace vex {

/// The kinds of failure the host framework distinguishes.
enum class ErrorKind : std::uint8_t {
  IllegalState,
  IllegalArgument,
  WrongDataType,
  OutOfMemory,
  FileIO,
  NotFound,
  Unknown,
};

inline constexpr std::array<std::string_view, 7> kErrorKindNames = {
    "illegal state", "illegal argument", "wrong data type", "out of memory", "file/IO", "not found", "unknown"};

constexpr std::string_view ErrorKindName(ErrorKind kind) {
  return kErrorKindNames[static_cast<std::size_t>(kind)];
}

/// A failure: its kind, the exact message, and the source unit and line that made it.
/// `unit` is the source file's stem ("materialexport_mmaterial"), never a path.
struct Error {
  ErrorKind kind = ErrorKind::Unknown;
  std::string message;
  std::string unit;
  int line = 0;

  /// "message (unit:line)", the form the host prints.
  std::string Describe() const { return message + " (" + unit + ":" + std::to_string(line) + ")"; }
  bool operator==(const Error&) const = default;
};

template <class T = void>
using Result = std::expected<T, Error>;

using Unexpected = std::unexpected<Error>;

/// The stem of a source path: "/a/b/mapping_corvane_gltfpbr.cpp" -> "mapping_corvane_gltfpbr".
constexpr std::string_view SourceUnit(std::string_view path) {
  const auto slash = path.find_last_of("/\\");
  if (slash != std::string_view::npos) path.remove_prefix(slash + 1);
  const auto dot = path.find('.');
  if (dot != std::string_view::npos) path = path.substr(0, dot);
  return path;
}

inline Error MakeError(ErrorKind kind, std::string message, std::string_view unit, int line) {
  return Error{kind, std::move(message), std::string(unit), line};
}

/// "Illegal state: Condition <cond> not fulfilled. " -- the one place this text is built.
inline Error IllegalStateCondition(std::string_view condition, std::string_view unit, int line) {
  std::string text = "Illegal state: Condition ";
  text.append(condition).append(" not fulfilled. ");
  return MakeError(ErrorKind::IllegalState, std::move(text), unit, line);
}

/// "Illegal argument: Condition <cond> not fulfilled."
inline Error IllegalArgumentCondition(std::string_view condition, std::string_view unit, int line) {
  std::string text = "Illegal argument: Condition ";
  text.append(condition).append(" not fulfilled.");
  return MakeError(ErrorKind::IllegalArgument, std::move(text), unit, line);
}

}  // namespace vex

/// The calling source unit, as errors carry it.
#define VEX_UNIT (::vex::SourceUnit(__FILE__))

/// An Error of the given kind made here.
#define VEX_ERROR(kind, message) (::vex::MakeError((kind), (message), VEX_UNIT, __LINE__))

/// `return VEX_FAIL(kind, message);` from a function returning Result<T>.
#define VEX_FAIL(kind, message) (::std::unexpected(VEX_ERROR((kind), (message))))

/// Returns "Illegal state: Condition <cond> not fulfilled. " unless cond holds.
#define VEX_CHECK_STATE(...)                                                          \
  do {                                                                                \
    if (!static_cast<bool>(__VA_ARGS__))                                              \
      return ::std::unexpected(::vex::IllegalStateCondition(#__VA_ARGS__, VEX_UNIT, __LINE__)); \
  } while (false)

/// Returns "Illegal argument: Condition <cond> not fulfilled." unless cond holds.
#define VEX_CHECK_ARGUMENT(...)                                                          \
  do {                                                                                   \
    if (!static_cast<bool>(__VA_ARGS__))                                                 \
      return ::std::unexpected(::vex::IllegalArgumentCondition(#__VA_ARGS__, VEX_UNIT, __LINE__)); \
  } while (false)

/// Evaluates a Result expression; on error returns the error unchanged.
#define VEX_TRY(expr)                                        \
  do {                                                       \
    auto&& vex_try_result_ = (expr);                         \
    if (!vex_try_result_) return ::std::unexpected(std::move(vex_try_result_).error()); \
  } while (false)

#define VEX_CONCAT_INNER(a, b) a##b
#define VEX_CONCAT(a, b) VEX_CONCAT_INNER(a, b)

/// `VEX_ASSIGN(auto value, ReadSomething());` -- declares `value` from a Result or returns its error.
#define VEX_ASSIGN(decl, expr) VEX_ASSIGN_IMPL(VEX_CONCAT(vex_assign_, __LINE__), decl, expr)
#define VEX_ASSIGN_IMPL(tmp, decl, expr)                              \
  auto tmp = (expr);                                                  \
  if (!tmp) return ::std::unexpected(std::move(tmp).error());         \
  decl = std::move(*tmp)
