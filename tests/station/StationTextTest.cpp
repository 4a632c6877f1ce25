#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QLTError.h>

#include "station/Text.h"
#include "support/CommaLocale.h"

TEST(StationText, widthCountsCharacters) {
  EXPECT_EQ(station::widthOf(""), 0U);
  EXPECT_EQ(station::widthOf("a\u00b5\u20ac"), 3U);
  EXPECT_EQ(station::padded("\u00b5", 3), "\u00b5  ");
  EXPECT_EQ(station::padded("long", 3), "long");
}

TEST(StationText, widthIsThatOnATerminal) {
  EXPECT_EQ(station::widthOf("e\u0301"), 1U);       // a combining accent
  EXPECT_EQ(station::widthOf("\u96fb\u5727"), 4U);  // wide
  EXPECT_EQ(station::widthOf("\U0001f50b"), 2U);    // a picture
  EXPECT_EQ(station::widthOf("\xff\xc3"), 2U);      // no UTF-8: a column a byte
}

TEST(StationText, whatIsTooLongIsCutWithAnEllipsis) {
  EXPECT_EQ(station::cut("Volts", 5), "Volts");
  EXPECT_EQ(station::cut("Voltage", 5), "Volt\u2026");
  EXPECT_EQ(station::cut("\u00b5\u00b5\u00b5", 2), "\u00b5\u2026");
  EXPECT_EQ(station::cut("\u96fb\u5727\u96fb", 4), "\u96fb\u2026");  // half a character is none
  EXPECT_EQ(station::cut("e\u0301e\u0301e", 2), "e\u0301\u2026");
  EXPECT_EQ(station::cut("Volts", 1), "\u2026");
  EXPECT_EQ(station::cut("Volts", 0), "");
  EXPECT_EQ(station::cutInFront("SN1001", 4), "\u2026001");
  EXPECT_EQ(station::cutInFront("SN1", 4), "SN1");
  EXPECT_EQ(station::cutInFront("a\u96fb\u5727", 4), "\u2026\u5727");
}

TEST(StationText, longTextsAreWrappedAtBlanks) {
  using testing::ElementsAre;
  EXPECT_THAT(station::wrapped("", 5), ElementsAre(""));
  EXPECT_THAT(station::wrapped("one two three", 7), ElementsAre("one two", "three"));
  EXPECT_THAT(station::wrapped("one two three", 8), ElementsAre("one two", "three"));
  EXPECT_THAT(station::wrapped("incomprehensible", 6), ElementsAre("incomp", "rehens", "ible"));
  EXPECT_THAT(station::wrapped("\u96fb\u5727", 1), ElementsAre("\u96fb", "\u5727"));
}

TEST(StationText, secondsHaveOneDecimalAndAPoint) {
  const test::CommaLocale locale;
  EXPECT_EQ(station::secondsText(0), "0.0 s");
  EXPECT_EQ(station::secondsText(1.25), "1.2 s");
  EXPECT_EQ(station::secondsText(123.97), "124.0 s");
}

TEST(StationText, aNumberLosesTheZerosThatEndItsFraction) {
  EXPECT_EQ(station::shortNumber("5.010000"), "5.01");
  EXPECT_EQ(station::shortNumber("-0.500000"), "-0.5");
  EXPECT_EQ(station::shortNumber("1000.000000"), "1000");
  EXPECT_EQ(station::shortNumber("0.000000"), "0");
  for (const char* other : {"", "100", "1.0.0", "v1.20", "1.50 V", "1.0e10", "inf", "nan", "."}) {
    EXPECT_EQ(station::shortNumber(other), other);
  }
}

TEST(StationText, anErrorWithoutADescriptionIsItsDomainAndCode) {
  EXPECT_EQ(station::describe(QLTError::withDescription("test", 3, "away")), "away");
  EXPECT_EQ(station::describe(QLTError("test", 3, {})), "test, code 3");
}

TEST(StationText, causesStandBehindAnErrorThatDoesNotTellThem) {
  const QLTError deepest = QLTError::withDescription("test", 3, "no such file");
  const QLTError wrap("test", 2, {{kQLTErrorDescriptionKey, "no line. Details: no such file"}},
                      deepest);
  const QLTError error("test", 1, {{kQLTErrorDescriptionKey, "no supply"}}, wrap);
  EXPECT_EQ(station::describeWithCauses(deepest), "no such file");
  EXPECT_EQ(station::describeWithCauses(wrap), "no line. Details: no such file");
  EXPECT_EQ(station::describeWithCauses(error), "no supply: no line. Details: no such file");
}

TEST(StationText, namesAreListed) {
  EXPECT_EQ(station::listOf({}), "");
  EXPECT_EQ(station::listOf({"left", "right"}), "left, right");
}
