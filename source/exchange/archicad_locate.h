// Finding the ArchiCAD installation through the current user's registry.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

#include "vex/registry.h"

namespace interop::exchange {

inline constexpr std::string_view kArchiCad64Key = "Software\\Graphisoft\\ArchiCAD-64";
inline constexpr std::string_view kArchiCad32Key = "Software\\Graphisoft\\ArchiCAD";
inline constexpr std::string_view kLastStartedVersion = "Last Started Version";
/// Size of the buffer that receives the program path.
inline constexpr std::size_t kProgramPathSize = 1022;

/// Looks for ArchiCAD: the 64-bit key first, the other only when it is missing.
///
/// With `checkOnly`, found means the opened key holds a value named exactly
/// "Last Started Version"; nothing else is read and `programPath` is untouched.
/// Otherwise the version's sub-key is opened and its default value is read into `programPath`
/// (NUL-terminated on success; never written beyond its 1022 bytes). When the enumeration ends
/// without meeting that name, the data of the last value enumerated serves as the version.
///
/// Every key is closed again except when reading the default value fails: that path returns
/// with both keys still open. This is the routine's established behaviour and is kept as it is.
bool LocateArchiCad(vex::IRegistry& registry, bool checkOnly, std::span<char, kProgramPathSize> programPath);

}  // namespace interop::exchange
