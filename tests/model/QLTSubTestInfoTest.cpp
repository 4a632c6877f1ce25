#include <gtest/gtest.h>

#include <QLTSubTestInfo.h>

#include "support/CommaLocale.h"

namespace {

TEST(QLTSubTestInfoTest, NewSpecificationPassesNothingInParticular) {
  const QLTSubTestInfo info;
  EXPECT_EQ(info.name(), std::nullopt);
  EXPECT_EQ(info.priority(), 0);
  EXPECT_EQ(info.lowLimit(), 0.0);
  EXPECT_EQ(info.highLimit(), 0.0);
  EXPECT_EQ(info.expected(), "");
  EXPECT_EQ(info.failMessage(), std::nullopt);
  EXPECT_FALSE(info.hasLimits());
  EXPECT_FALSE(info.isOptional());
}

TEST(QLTSubTestInfoTest, MadeFromNameAndPriority) {
  const auto info = QLTSubTestInfo::subTestInfo("VBUS", 2);
  EXPECT_EQ(info->name(), "VBUS");
  EXPECT_EQ(info->priority(), 2);
  EXPECT_EQ(info->expected(), "");
  EXPECT_FALSE(info->hasLimits());
  EXPECT_EQ(info->lowLimit(), 0.0);
  EXPECT_EQ(info->highLimit(), 0.0);
  EXPECT_EQ(info->failMessage(), std::nullopt);
}

TEST(QLTSubTestInfoTest, MadeWithAFailMessage) {
  const auto info = QLTSubTestInfo::subTestInfo("VBUS", 2, "too low");
  EXPECT_EQ(info->name(), "VBUS");
  EXPECT_EQ(info->priority(), 2);
  EXPECT_EQ(info->failMessage(), "too low");
  EXPECT_EQ(info->expected(), "");
}

TEST(QLTSubTestInfoTest, MadeWithAnExpectedText) {
  const auto info = QLTSubTestInfo::subTestInfo("State", 1, "OK", "not ready");
  EXPECT_EQ(info->name(), "State");
  EXPECT_EQ(info->priority(), 1);
  EXPECT_EQ(info->expected(), "OK");
  EXPECT_EQ(info->failMessage(), "not ready");
  EXPECT_FALSE(info->hasLimits());
}

TEST(QLTSubTestInfoTest, MadeWithAbsentTexts) {
  const auto info = QLTSubTestInfo::subTestInfo(std::nullopt, 1, std::nullopt, std::nullopt);
  EXPECT_EQ(info->name(), std::nullopt);
  EXPECT_EQ(info->expected(), std::nullopt);
  EXPECT_EQ(info->failMessage(), std::nullopt);
}

TEST(QLTSubTestInfoTest, MadeWithLimits) {
  const auto info = QLTSubTestInfo::subTestinfo("VBUS", 2, 1, 2, "out of range");
  EXPECT_EQ(info->name(), "VBUS");
  EXPECT_EQ(info->priority(), 2);
  EXPECT_EQ(info->lowLimit(), 1.0);
  EXPECT_EQ(info->highLimit(), 2.0);
  EXPECT_TRUE(info->hasLimits());
  EXPECT_EQ(info->expected(), "from 1.000000 to 2.000000");
  EXPECT_EQ(info->failMessage(), "out of range");
}

TEST(QLTSubTestInfoTest, LimitsKeepDoublePrecision) {
  QLTSubTestInfo info;
  info.setLimits(16777217.0, 0.1);
  EXPECT_EQ(info.lowLimit(), 16777217.0);
  EXPECT_EQ(info.highLimit(), 0.1);
  EXPECT_EQ(info.expected(), "from 16777217.000000 to 0.100000");
}

TEST(QLTSubTestInfoTest, LimitsPhraseHasAPointInACommaLocale) {
  const test::CommaLocale locale;
  if (!locale.isSet()) GTEST_SKIP() << "no locale with a decimal comma, and none can be made";
  QLTSubTestInfo info;
  info.setLimits(1.5, 1234567.25);
  EXPECT_EQ(info.expected(), "from 1.500000 to 1234567.250000");
}

TEST(QLTSubTestInfoTest, UpperLimitAloneIsNoLimit) {
  QLTSubTestInfo info;
  info.setHighLimit(5);
  EXPECT_EQ(info.highLimit(), 5.0);
  EXPECT_FALSE(info.hasLimits());
  EXPECT_EQ(info.expected(), "");
}

TEST(QLTSubTestInfoTest, LowerLimitAloneMakesLimits) {
  QLTSubTestInfo info;
  info.setLowLimit(0);
  EXPECT_TRUE(info.hasLimits());
  EXPECT_EQ(info.lowLimit(), 0.0);
  EXPECT_EQ(info.highLimit(), 0.0);
  EXPECT_EQ(info.expected(), "");
}

TEST(QLTSubTestInfoTest, LimitsAndExpectedTextReplaceEachOthersText) {
  QLTSubTestInfo info;
  info.setExpected("OK");
  info.setLimits(1, 2);
  EXPECT_EQ(info.expected(), "from 1.000000 to 2.000000");
  info.setExpected("OK");
  EXPECT_EQ(info.expected(), "OK");
  EXPECT_EQ(info.lowLimit(), 1.0);
  EXPECT_EQ(info.highLimit(), 2.0);
  EXPECT_TRUE(info.hasLimits());
}

TEST(QLTSubTestInfoTest, ReversedLimitsAreStoredAsGiven) {
  QLTSubTestInfo info;
  info.setLimits(2, 1);
  EXPECT_EQ(info.lowLimit(), 2.0);
  EXPECT_EQ(info.highLimit(), 1.0);
  EXPECT_EQ(info.expected(), "from 2.000000 to 1.000000");
}

TEST(QLTSubTestInfoTest, GivingUpFreesTheTexts) {
  const auto info = QLTSubTestInfo::subTestinfo("VBUS", 2, 1, 2, "out of range");
  info->deaclloc();
  EXPECT_EQ(info->name(), std::nullopt);
  EXPECT_EQ(info->expected(), std::nullopt);
  EXPECT_EQ(info->failMessage(), std::nullopt);
}

TEST(QLTSubTestInfoTest, DefaultFailMessageNamesTheSubTest) {
  EXPECT_EQ(QLTSubTestInfo::defaultFailMessage("VBUS"), "failed VBUS");
  EXPECT_EQ(QLTSubTestInfo::defaultFailMessage(std::nullopt), "failed (null)");
}

}  // namespace
