#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <future>

#include "station/ConsoleLogFile.h"
#include "station/page/PageDevices.h"
#include "support/TemporaryFolder.h"

namespace {

using station::PageDevices;
using testing::StartsWith;

class PageDevicesTest : public testing::Test {
 protected:
  PageDevices::Options options(std::chrono::milliseconds endAfter) const {
    return {.sites = {"left", "right"},
            .pattern = {},
            .disabledFile = folder_.path() / "disabled-sites.json",
            .endAfter = std::chrono::system_clock::now() + endAfter};
  }

  test::TemporaryFolder folder_;
  station::ConsoleLogFile diagnostics_{false};
  station::EventLog events_{diagnostics_};
  station::PageState state_{"S1", "1"};
};

TEST_F(PageDevicesTest, ASessionEndsAfterItsTimeWhenNoSiteHasADevice) {
  PageDevices devices(options(std::chrono::milliseconds(0)), state_, events_);
  EXPECT_EQ(devices.next("left"), std::nullopt);
  EXPECT_TRUE(devices.hasEnded());
  EXPECT_THAT(devices.serial("left", "A"), StartsWith("Site left is not free"));
}

TEST_F(PageDevicesTest, ASessionWaitsForItsDevices) {
  PageDevices devices(options(std::chrono::milliseconds(50)), state_, events_);
  auto right = std::async(std::launch::async, [&] { return devices.next("right"); });
  auto first = std::async(std::launch::async, [&] { return devices.next("left"); });
  while (!devices.serial("left", "A").empty()) std::this_thread::yield();
  EXPECT_EQ(first.get().value().serialNumber, "A");
  EXPECT_EQ(right.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
  EXPECT_FALSE(devices.hasEnded());
  devices.release("left");
  EXPECT_EQ(right.get(), std::nullopt);
  EXPECT_EQ(devices.next("left"), std::nullopt);
}

}  // namespace
