#include "station/SerialPattern.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>
#include <string>

namespace {

using namespace std::chrono_literals;
using station::SerialPattern;
using testing::HasSubstr;
using testing::StartsWith;

std::string refusalOf(const std::string& pattern) {
  try {
    const SerialPattern compiled(pattern);
  } catch (const std::invalid_argument& reason) {
    return reason.what();
  }
  return "accepted";
}

/// Whether it matches, which must take less than a second however slow the machine is.
bool matchesSoon(const std::string& pattern, const std::string& number) {
  const auto start = std::chrono::steady_clock::now();
  const bool matches = SerialPattern(pattern).matches(number);
  EXPECT_LT(std::chrono::steady_clock::now() - start, 1s) << pattern;
  return matches;
}

std::string repeated(const std::string& text, int count) {
  std::string all;
  for (int i = 0; i < count; ++i) all += text;
  return all;
}

constexpr int kLong = 4096;

}  // namespace

TEST(SerialPattern, matchesTheWholeNumber) {
  const SerialPattern pattern("QB[0-9]{4}-[0-9]{4}");
  EXPECT_TRUE(pattern.matches("QB2601-0001"));
  for (const char* const wrong :
       {"", "QB2601-001", "QB2601-00011", " QB2601-0001", "QB2601-0001\n", "xQB2601-0001"}) {
    EXPECT_FALSE(pattern.matches(wrong)) << wrong;
  }
  EXPECT_EQ(pattern.text(), "QB[0-9]{4}-[0-9]{4}");
}

TEST(SerialPattern, bothSidesOfAnAlternativeAreTheWholeNumber) {
  const SerialPattern pattern("A|B[0-9]+");
  EXPECT_TRUE(pattern.matches("A"));
  EXPECT_TRUE(pattern.matches("B12"));
  EXPECT_FALSE(pattern.matches("AB12"));
  EXPECT_FALSE(pattern.matches("A12"));
}

TEST(SerialPattern, anchorsOfItsOwnDoNoHarm) {
  EXPECT_TRUE(SerialPattern("^SN\\d+$").matches("SN1"));
  EXPECT_TRUE(SerialPattern("(?i)sn\\d+").matches("SN1"));
}

TEST(SerialPattern, readsUtf8) {
  EXPECT_TRUE(SerialPattern(".{2}").matches("\u00c4\u2082"));
  EXPECT_FALSE(SerialPattern(".*").matches("\xff"));
  EXPECT_FALSE(SerialPattern("a.*").matches(std::string("a\xe2\x82", 3)));
}

TEST(SerialPattern, aCopyMatchesAsWell) {
  SerialPattern pattern("a+");
  const SerialPattern copy = pattern;
  pattern = SerialPattern("b+");
  EXPECT_TRUE(copy.matches("aa"));
  EXPECT_TRUE(pattern.matches("bb"));
}

TEST(SerialPattern, tellsWhatIsWrongWithIt) {
  EXPECT_EQ(refusalOf(""), "it is empty");
  EXPECT_EQ(refusalOf("(SN"), "missing ): (SN");
  EXPECT_EQ(refusalOf("[0-9"), "missing ]: [0-9");
  EXPECT_THAT(refusalOf("*"), HasSubstr("no argument for repetition operator"));
  EXPECT_THAT(refusalOf("(a)\\1"), HasSubstr("invalid escape sequence"));
  EXPECT_THAT(refusalOf("(?=a)a"), HasSubstr("invalid perl operator"));
  EXPECT_EQ(refusalOf("\xff"), "invalid UTF-8");
  EXPECT_EQ(refusalOf(std::string(4096, 'a')), "accepted");
  EXPECT_EQ(refusalOf(std::string(4097, 'a')), "it is longer than 4096 bytes");
}

TEST(SerialPattern, aHostilePatternTakesNoLongTime) {
  const std::string letters(kLong, 'a');
  for (const char* const pattern :
       {"(a+)+b", "(a*)*b", "(a|aa)+b", "(a|a?)+b", "((a*)*)*b", "(.*.*.*.*)*=", "(.{1,30}){1,30}b",
        "a{0,500}a{0,500}b", "[ab]*a[ab]{300}b"}) {
    EXPECT_FALSE(matchesSoon(pattern, letters)) << pattern;
  }
  EXPECT_TRUE(matchesSoon("(a+)+", letters));
  EXPECT_TRUE(matchesSoon(repeated("a?", 100) + "a*", letters));
}

TEST(SerialPattern, aPatternThatGrowsBeyondAllBoundsIsRefused) {
  EXPECT_THAT(refusalOf("((a{100}){100}){100}"), StartsWith("invalid repetition size"));
  EXPECT_THAT(refusalOf("[ab]{1000}[ab]{1000}" + repeated("(\\pL{100}\\pN{100})", 20)),
              StartsWith("pattern too large"));
}

TEST(SerialPattern, aPatternOfDeepBracketsEndsNoProgram) {
  const std::string opened = repeated("(", 800);
  EXPECT_THAT(refusalOf(opened), StartsWith("missing )"));
  EXPECT_TRUE(matchesSoon(opened + "a" + repeated(")", 800), "a"));
  EXPECT_FALSE(matchesSoon(opened + "a" + repeated("b?)+", 800) + "c", std::string(kLong, 'a')));
}

TEST(SerialPattern, aLongNumberTakesNoLongTime) {
  const std::string number = "SN" + repeated("0123456789abcdef", kLong / 16);
  EXPECT_TRUE(matchesSoon("SN[0-9a-f]+", number));
  EXPECT_FALSE(matchesSoon("SN[0-9]+", number));
  EXPECT_FALSE(matchesSoon("(SN)?([0-9a-f]{2}-?)+z", number));
}
