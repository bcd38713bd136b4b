// Number formatting and text escaping of the Allplan XML writer: the one place
// where values become the characters of the file.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace interop::exchange::allplan {

/// Longest text FormatNumber writes (sign, digits of the largest double, point, three decimals).
inline constexpr std::size_t kMaxNumberChars = 330;

/// Writes `value` in fixed-point form with at most three decimals: no exponent, trailing zeros
/// and a trailing point dropped, never "-0". The value is rounded to the nearest thousandth,
/// halves away from zero; the rounding is done on the thousandfold value computed in double
/// precision, which for values typed with up to about twelve significant digits equals rounding
/// the typed decimal (0.0005 -> "0.001", 1.0005 -> "1.001", -0.0005 -> "-0.001"). A value that
/// is not finite is written as "0" (the walk refuses such points before they get here).
/// Writes at most kMaxNumberChars characters from `out` and returns the end.
char* FormatNumber(double value, char* out);

/// FormatNumber into a string (for tests and rare paths).
std::string FormatNumber(double value);

/// Appends `text` (UTF-8) to `out` as the value of an XML attribute in an ISO-8859-1 document:
/// markup characters as entities (&amp; &lt; &gt; &quot; &apos;), characters U+00A0..U+00FF as
/// their Latin-1 byte, tab, line feed, carriage return, U+007F..U+009F and everything above
/// U+00FF as numeric character references, and characters XML cannot hold (other control
/// characters, malformed UTF-8, surrogates, U+FFFE/U+FFFF) as the replacement character U+FFFD.
void AppendAttributeText(std::string_view text, std::string& out);

}  // namespace interop::exchange::allplan
