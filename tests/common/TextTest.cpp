#include "common/Text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>

namespace {

using namespace quillon::internal;
using namespace std::string_view_literals;
using testing::ElementsAre;

TEST(Text, SplitsAtEverySeparator) {
  EXPECT_THAT(split("a,,b;", ",;"), ElementsAre("a", "", "b", ""));
  EXPECT_THAT(split("", ","), ElementsAre(""));
}

TEST(Text, TrimsBothEndsOnly) {
  EXPECT_EQ(trimmed(" \t a b\r\n"), "a b");
  EXPECT_EQ(trimmed(" a\n", kBlanks), "a\n");
  EXPECT_EQ(trimmed(" \t"), "");
}

TEST(Text, CapitalsAreThoseOfAscii) {
  EXPECT_EQ(upperCase("measure:Volt? \u00e9"), "MEASURE:VOLT? \u00e9");
}

TEST(Text, PrintableShowsControlCharactersAsEscapes) {
  EXPECT_EQ(printable("a\r\nb\tc\x1b[2J\x7f\0d"sv), "a\\r\\nb\\tc\\x1b[2J\\x7f\\x00d");
  EXPECT_EQ(printable("\u0085 \u009b"), "\\xc2\\x85 \\xc2\\x9b");
  EXPECT_EQ(printable("a\\b \"c\""), "a\\b \"c\"");
}

TEST(Text, PrintableLeavesOtherCharactersAlone) {
  const std::string text = "5 \u00b5A, \u20ac, \ud7ff, \ue000, \U00010000, \U0010ffff";
  EXPECT_EQ(printable(text), text);
}

TEST(Text, PrintableShowsBytesThatAreNoUtf8AsEscapes) {
  EXPECT_EQ(printable("caf\xe9"), "caf\\xe9");
  EXPECT_EQ(printable("\xe2\x82"), "\\xe2\\x82");
  EXPECT_EQ(printable("\xe2\x82z"), "\\xe2\\x82z");
  EXPECT_EQ(printable("\xff\x80\xc0\xc1"), "\\xff\\x80\\xc0\\xc1");
}

TEST(Text, Utf8LengthKnowsTheBordersOfWellFormedCharacters) {
  EXPECT_EQ(utf8Length(""), 0u);
  EXPECT_EQ(utf8Length("\0"sv), 1u);
  EXPECT_EQ(utf8Length("\u0080x"), 2u);
  EXPECT_EQ(utf8Length("\u0800x"), 3u);
  EXPECT_EQ(utf8Length("\U0010ffffx"), 4u);
  EXPECT_EQ(utf8Length("\xc1\xbf"), 0u) << "longer than needed";
  EXPECT_EQ(utf8Length("\xe0\x9f\xbf"), 0u) << "longer than needed";
  EXPECT_EQ(utf8Length("\xf0\x8f\xbf\xbf"), 0u) << "longer than needed";
  EXPECT_EQ(utf8Length("\xed\xa0\x80"), 0u) << "a surrogate";
  EXPECT_EQ(utf8Length("\xf4\x90\x80\x80"), 0u) << "beyond the last character";
  EXPECT_EQ(utf8Length("\xe2\x82\xc3"), 0u) << "a byte that continues nothing";
}

TEST(Text, NumberInTakesTheWholeTextOrNothing) {
  EXPECT_EQ(numberIn<int>("-12"), -12);
  EXPECT_EQ(numberIn<std::uint64_t>("18446744073709551615"), UINT64_MAX);
  EXPECT_EQ(numberIn<unsigned char>("fF", 16), 255);
  EXPECT_EQ(numberIn<double>("1.5e3"), 1500.0);
  for (const char* const text : {"", " 1", "1 ", "+1", "1x", "0x10", "99999999999"}) {
    EXPECT_EQ(numberIn<int>(text), std::nullopt) << text;
  }
  EXPECT_EQ(numberIn<unsigned>("-1"), std::nullopt);
  EXPECT_EQ(numberIn<double>("1e999"), std::nullopt);
}

}  // namespace
