#include "exchange/allplan_format.h"

#include <charconv>
#include <cmath>
#include <cstdint>

namespace interop::exchange::allplan {
namespace {

// Below this the thousandfold value and its fraction are exact in a double and fit an int64.
constexpr double kFastLimit = 4503599627370496.0;  // 2^52

/// Decimal digits of n, most significant first.
char* WriteUnsigned(std::uint64_t n, char* out) { return std::to_chars(out, out + 20, n).ptr; }

/// Rare path for magnitudes of 2^52 / 1000 and above: every such double is a whole number of
/// thousandths already, so the exact fixed form with three decimals only loses its zeros.
char* FormatLarge(double value, char* out) {
  char* end = std::to_chars(out, out + kMaxNumberChars, value, std::chars_format::fixed, 3).ptr;
  while (end[-1] == '0') --end;
  if (end[-1] == '.') --end;
  return end;
}

}  // namespace

char* FormatNumber(double value, char* out) {
  if (!std::isfinite(value)) {
    *out = '0';
    return out + 1;
  }
  const double scaled = value * 1000.0;
  if (!(scaled < kFastLimit && scaled > -kFastLimit)) return FormatLarge(value, out);
  // Round half away from zero. The conversion truncates towards zero (no libm call), and
  // scaled - truncated is exact below 2^52.
  auto thousandths = static_cast<std::int64_t>(scaled);
  const double rest = scaled - static_cast<double>(thousandths);
  if (rest >= 0.5) ++thousandths;
  else if (rest <= -0.5) --thousandths;
  if (thousandths == 0) {
    *out = '0';
    return out + 1;
  }
  std::uint64_t magnitude = thousandths < 0 ? static_cast<std::uint64_t>(-thousandths)
                                            : static_cast<std::uint64_t>(thousandths);
  if (thousandths < 0) *out++ = '-';
  out = WriteUnsigned(magnitude / 1000, out);
  auto fraction = static_cast<unsigned>(magnitude % 1000);
  if (fraction == 0) return out;
  *out++ = '.';
  *out++ = static_cast<char>('0' + fraction / 100);
  fraction %= 100;
  if (fraction == 0) return out;
  *out++ = static_cast<char>('0' + fraction / 10);
  fraction %= 10;
  if (fraction == 0) return out;
  *out++ = static_cast<char>('0' + fraction);
  return out;
}

std::string FormatNumber(double value) {
  char buffer[kMaxNumberChars];
  return std::string(buffer, FormatNumber(value, buffer));
}

namespace {

constexpr char32_t kReplacement = 0xFFFD;

/// Decodes one UTF-8 sequence at text[i]; advances i. Malformed input gives kReplacement and
/// consumes one byte.
char32_t DecodeUtf8(std::string_view text, std::size_t& i) {
  const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
  const unsigned char lead = byte(i);
  if (lead < 0x80) {
    ++i;
    return lead;
  }
  std::size_t length = 0;
  char32_t cp = 0;
  char32_t minimum = 0;
  if ((lead & 0xE0) == 0xC0) {
    length = 2, cp = lead & 0x1F, minimum = 0x80;
  } else if ((lead & 0xF0) == 0xE0) {
    length = 3, cp = lead & 0x0F, minimum = 0x800;
  } else if ((lead & 0xF8) == 0xF0) {
    length = 4, cp = lead & 0x07, minimum = 0x10000;
  } else {
    ++i;
    return kReplacement;
  }
  if (i + length > text.size()) {
    ++i;
    return kReplacement;
  }
  for (std::size_t k = 1; k < length; ++k) {
    if ((byte(i + k) & 0xC0) != 0x80) {
      ++i;
      return kReplacement;
    }
    cp = (cp << 6) | (byte(i + k) & 0x3F);
  }
  if (cp < minimum || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
    ++i;
    return kReplacement;
  }
  i += length;
  return cp;
}

void AppendReference(char32_t cp, std::string& out) {
  char digits[16];
  const auto end = std::to_chars(digits, digits + sizeof digits, static_cast<std::uint32_t>(cp)).ptr;
  out += "&#";
  out.append(digits, end);
  out += ';';
}

}  // namespace

void AppendAttributeText(std::string_view text, std::string& out) {
  for (std::size_t i = 0; i < text.size();) {
    char32_t cp = DecodeUtf8(text, i);
    switch (cp) {
      case '&': out += "&amp;"; continue;
      case '<': out += "&lt;"; continue;
      case '>': out += "&gt;"; continue;
      case '"': out += "&quot;"; continue;
      case '\'': out += "&apos;"; continue;
      default: break;
    }
    if ((cp < 0x20 && cp != '\t' && cp != '\n' && cp != '\r') || cp == 0xFFFE || cp == 0xFFFF) cp = kReplacement;
    if (cp >= 0x20 && cp < 0x7F) out += static_cast<char>(cp);
    else if (cp >= 0xA0 && cp <= 0xFF) out += static_cast<char>(static_cast<unsigned char>(cp));
    else AppendReference(cp, out);
  }
}

}  // namespace interop::exchange::allplan
