#include "common/TimeStamp.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using quillon::internal::timeStamp;
using quillon::internal::utcText;

constexpr std::chrono::sys_seconds kMoment(1794694590s);

TEST(TimeStamp, IsInUniversalTime) {
  EXPECT_EQ(utcText(kMoment), "2026-11-14 22:16:30");
  EXPECT_EQ(utcText(kMoment, '_'), "2026-11-14_22:16:30");
}

TEST(TimeStamp, HasFourDigitsOfYear) {
  EXPECT_EQ(utcText(std::chrono::sys_days(std::chrono::year(33) / 1 / 2)), "0033-01-02 00:00:00");
}

TEST(TimeStamp, HasMilliseconds) {
  EXPECT_EQ(timeStamp(kMoment + 7999us), "2026-11-14 22:16:30.007");
  EXPECT_EQ(timeStamp(kMoment), "2026-11-14 22:16:30.000");
  EXPECT_EQ(timeStamp(std::chrono::sys_seconds(0s) - 1ms), "1969-12-31 23:59:59.999");
}

}  // namespace
