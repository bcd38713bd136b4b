// The Allplan writer's number formatter and attribute escaping.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include <pugixml.hpp>

#include "exchange/allplan_format.h"

namespace {

using interop::exchange::allplan::AppendAttributeText;
using interop::exchange::allplan::FormatNumber;

TEST(AllplanFormat, FixedPointWithAtMostThreeDecimalsAndNoTrailingZeros) {
  EXPECT_EQ(FormatNumber(0.0), "0");
  EXPECT_EQ(FormatNumber(1.0), "1");
  EXPECT_EQ(FormatNumber(125.0), "125");
  EXPECT_EQ(FormatNumber(-2.5), "-2.5");
  EXPECT_EQ(FormatNumber(0.1), "0.1");
  EXPECT_EQ(FormatNumber(0.25), "0.25");
  EXPECT_EQ(FormatNumber(1.125), "1.125");
  EXPECT_EQ(FormatNumber(10.10), "10.1");
  EXPECT_EQ(FormatNumber(1000.0), "1000");
  EXPECT_EQ(FormatNumber(123456.7894), "123456.789");
  EXPECT_EQ(FormatNumber(0.2 + 0.1), "0.3");
  EXPECT_EQ(FormatNumber(1e-9), "0");
  EXPECT_EQ(FormatNumber(1e15), "1000000000000000");
  EXPECT_EQ(FormatNumber(-1.5e20), "-150000000000000000000");
  EXPECT_EQ(FormatNumber(255.0 * 0.6), "153");
}

TEST(AllplanFormat, HalvesRoundAwayFromZeroAndZeroHasNoSign) {
  EXPECT_EQ(FormatNumber(0.0005), "0.001");
  EXPECT_EQ(FormatNumber(0.0015), "0.002");
  EXPECT_EQ(FormatNumber(0.0025), "0.003");
  EXPECT_EQ(FormatNumber(1.0005), "1.001");
  EXPECT_EQ(FormatNumber(2.0625), "2.063");  // an exact binary half
  EXPECT_EQ(FormatNumber(-0.0005), "-0.001");
  EXPECT_EQ(FormatNumber(-2.0625), "-2.063");
  EXPECT_EQ(FormatNumber(0.00049), "0");
  EXPECT_EQ(FormatNumber(0.0004999), "0");
  EXPECT_EQ(FormatNumber(0.9995), "1");
  EXPECT_EQ(FormatNumber(-0.9995), "-1");
  EXPECT_EQ(FormatNumber(-0.0), "0");
  EXPECT_EQ(FormatNumber(-0.0004), "0");
  EXPECT_EQ(FormatNumber(-1e-12), "0");
}

TEST(AllplanFormat, NeverAnExponentAndAlwaysReadableBack) {
  for (double v : {1e-300, 3.0e-4, 7.77e7, 1.0e16, 9.2e18, -4.5e100, std::numeric_limits<double>::max(),
                   std::numeric_limits<double>::lowest(), 12345.6785, 0.3333333}) {
    const std::string text = FormatNumber(v);
    EXPECT_EQ(text.find_first_of("eE"), std::string::npos) << text;
    EXPECT_NE(text, "-0");
    if (!text.empty() && text.find('.') != std::string::npos) {
      EXPECT_NE(text.back(), '0') << text;
      EXPECT_LE(text.size() - text.find('.') - 1, 3u) << text;
    }
    EXPECT_NEAR(std::stod(text), v, std::fabs(v) * 1e-15 + 0.0005) << text;
  }
  EXPECT_EQ(FormatNumber(std::nan("")), "0");
}

std::string Escaped(std::string_view text) {
  std::string out;
  AppendAttributeText(text, out);
  return out;
}

TEST(AllplanFormat, NamesAreEscapedAndEncodedForLatin1) {
  EXPECT_EQ(Escaped("Wall \"A\" & <B> 'c'"), "Wall &quot;A&quot; &amp; &lt;B&gt; &apos;c&apos;");
  EXPECT_EQ(Escaped("Stra\xC3\x9F" "e"), "Stra\xDF" "e");  // U+00DF as its Latin-1 byte
  EXPECT_EQ(Escaped("\xE5\xA3\x81"), "&#22721;");           // a character beyond Latin-1
  EXPECT_EQ(Escaped("\xF0\x9F\x8F\xA0"), "&#127968;");       // beyond the basic plane
  EXPECT_EQ(Escaped("a\tb\nc"), "a&#9;b&#10;c");
  EXPECT_EQ(Escaped("x\x01y"), "x&#65533;y");               // not allowed in XML at all
  EXPECT_EQ(Escaped("bad\xC3"), "bad&#65533;");             // cut-off sequence
  EXPECT_EQ(Escaped("\xED\xA0\x80"), "&#65533;&#65533;&#65533;");  // an encoded surrogate
  EXPECT_EQ(Escaped("\xC2\x85"), "&#133;");

  // Whatever a name holds, the attribute parses and reads back as the name.
  const std::string name = "Haus \"Sch\xC3\xB6n\" & <Co> \xE5\xA3\x81 \xF0\x9F\x8F\xA0";
  const std::string document = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?><a name=\"" + Escaped(name) + "\"/>";
  pugi::xml_document xml;
  ASSERT_TRUE(xml.load_buffer(document.data(), document.size()));
  EXPECT_EQ(std::string(xml.child("a").attribute("name").value()), name);
}

}  // namespace
