#include "common/Format.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "support/CommaLocale.h"

namespace {

using namespace quillon::internal;

TEST(Format, NumbersHaveAPointAndTheirDecimalsInEveryLocale) {
  const test::CommaLocale locale;
  EXPECT_EQ(fixedText(1.25, 1), "1.2");
  EXPECT_EQ(fixedText(-0.5, 3), "-0.500");
  EXPECT_EQ(sixDecimals(1.0 / 3), "0.333333");
}

TEST(Format, NumbersThatAreNoneHaveNames) {
  using Limits = std::numeric_limits<double>;
  EXPECT_EQ(fixedText(std::copysign(Limits::quiet_NaN(), -1.0), 1), "nan");
  EXPECT_EQ(sixDecimals(-Limits::infinity()), "-inf");
  EXPECT_EQ(sixDecimals(Limits::max()).size(), 309u + 7);
}

TEST(Format, FillsPlaceholdersInOrder) {
  EXPECT_EQ(format("%@ has %d of %04x", "rack", 3, 0xabU), "rack has 3 of 00ab");
  EXPECT_EQ(format("%@ 100%%", std::optional<std::string>()), "(null) 100%");
}

TEST(Format, ATextIsNeverAFormatItself) { EXPECT_EQ(format("<%@>", "%@ %s"), "<%@ %s>"); }

TEST(Format, KnowsTheLengthOfADecimalNumber) {
  EXPECT_EQ(decimalLength("-1.5e3V"), 6u);
  EXPECT_EQ(decimalLength("1.5e"), 3u);
  EXPECT_EQ(decimalLength("."), 0u);
  EXPECT_EQ(decimalLength("V1"), 0u);
}

}  // namespace
