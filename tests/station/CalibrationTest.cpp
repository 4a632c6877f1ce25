#include "Calibration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using station::Calibration;
using station::calibrationOf;
using State = Calibration::State;

std::chrono::sys_days day(const std::string& text) { return *station::calibrationDay(text); }

State stateOn(const std::string& today, const std::string& due, const char* sim = "0") {
  return calibrationOf({{"sim", sim}, {"calibrationDue", due}}, day(today)).state;
}

}  // namespace

TEST(CalibrationDay, isADateAsAWhole) {
  EXPECT_TRUE(station::calibrationDay("2028-02-29"));
  for (const char* const text : {"", "2027-02-29", "2027-13-01", "2027-1-01", "2027-01-01 ",
                                 "01.01.2027", "2027-01-0x", "-027-01-01"}) {
    EXPECT_FALSE(station::calibrationDay(text)) << text;
  }
}

TEST(CalibrationState, followsTheDay) {
  EXPECT_EQ(stateOn("2027-01-31", "2027-02-14"), State::Valid);
  EXPECT_EQ(stateOn("2027-02-01", "2027-02-14"), State::DueSoon);
  EXPECT_EQ(stateOn("2027-02-14", "2027-02-14"), State::DueSoon);
  EXPECT_EQ(stateOn("2027-02-15", "2027-02-14"), State::Overdue);
  EXPECT_EQ(stateOn("2027-02-15", "2027-02-14", "1"), State::Simulated);
  EXPECT_EQ(stateOn("2027-02-15", "soon", "1"), State::Malformed);
  EXPECT_EQ(calibrationOf({{"sim", "0"}}, day("2027-02-15")).state, State::Unknown);
}
