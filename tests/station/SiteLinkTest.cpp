#include <chrono>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "station/worker/SiteLink.h"

namespace {

using std::chrono::milliseconds;
using testing::Optional;

class SiteLink : public testing::Test {
 protected:
  template <typename T>
  void deliver(const T& told) {
    link_.deliver(station::messageFrom(told));
  }

  station::Channel channel_{station::Channel::makePair().first};
  station::SiteLink link_{channel_, "left"};
};

}  // namespace

TEST_F(SiteLink, aStopThatComesJustBeforeADeviceIsForThatDevice) {
  deliver(station::Stop{"left", "stopped on request"});
  deliver(station::Prepare{"left"});
  EXPECT_TRUE(link_.isStoppedWithin(milliseconds(0)));
  deliver(station::TestDevice{"left", "A", 1});
  EXPECT_THAT(link_.stopReason(), Optional(std::string("stopped on request")));
}

TEST_F(SiteLink, aStopIsNotForTheNextDevice) {
  deliver(station::Prepare{"left"});
  deliver(station::TestDevice{"left", "A", 1});
  deliver(station::Stop{"left", "too long"});
  EXPECT_TRUE(link_.isStoppedWithin(milliseconds(0)));
  deliver(station::Confirmed{"left"});
  deliver(station::Prepare{"left"});
  EXPECT_FALSE(link_.isStoppedWithin(milliseconds(0)));
}
