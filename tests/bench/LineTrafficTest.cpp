// What is told of the traffic on a line, and a recording that speaks in its device's place.

#include <QLTBenchTcp.h>
#include <QLTErrorCodes.h>

#include <cerrno>
#include <cstdint>
#include <optional>

#include <gmock/gmock.h>

#include "bench/TrafficWatchers.h"
#include "support/TcpPeer.h"

namespace {

using testing::ElementsAre;
using Kind = QLTTrafficAnswer::Kind;

TEST(QLTBenchLineTraffic, isToldAsItIsOnTheLine) {
  test::Listener listener;
  const test::TcpPeer peer;
  QLTBenchTcp line({"127.0.0.1", static_cast<std::uint16_t>(peer.port())});
  line.setTimeOutInSeconds(0.03);
  ASSERT_TRUE(line.open());
  {
    const test::Endpoint device = peer.accept();
    ASSERT_TRUE(device.send("1\n2\n"));
    EXPECT_EQ(line.query("A?"), "1");
    EXPECT_EQ(line.readLine(), "2");
    EXPECT_EQ(line.readLine(), std::nullopt);
    EXPECT_EQ(device.receive(3), "A?\n");
  }
  line.setTimeOutInSeconds(5);
  QLTError error;
  EXPECT_EQ(line.readLine(&error), std::nullopt);
  EXPECT_EQ(error.description(), line.where() + ": the other end is gone");
  line.close();
  EXPECT_THAT(listener.events, ElementsAre("opened", "sent A?\n", "received 1\n2\n", "silent",
                                           "failed 0", "closed"));
}

TEST(QLTBenchLineTraffic, aRecordingSpeaksInTheDevicesPlace) {
  test::Recording recording;
  recording.expected = {"A?\n"};
  recording.answers = {
      {Kind::Bytes, "1"}, {Kind::Bytes, "2\n3\n"}, {Kind::Silent}, {Kind::Failed, "", ECONNRESET}};
  QLTBenchTcp line({"no-such-host.invalid", 1});
  ASSERT_TRUE(line.open());
  EXPECT_EQ(line.query("A?"), "12");
  EXPECT_EQ(line.readLine(), "3");
  QLTError error;
  EXPECT_EQ(line.readLine(&error), std::nullopt);
  EXPECT_EQ(error.code(), kQLTErrorLineTimedOut);
  EXPECT_FALSE(line.isLost());
  EXPECT_EQ(line.readLine(&error), std::nullopt);
  EXPECT_EQ(error.underlyingError().code(), ECONNRESET);
  EXPECT_FALSE(line.write("B?\n", &error));
  EXPECT_EQ(error.underlyingError().code(), EPROTO);
  recording.isLost = true;
  EXPECT_TRUE(line.isLost());
  recording.openCode = ECONNREFUSED;
  EXPECT_FALSE(line.reopen(&error));
  EXPECT_EQ(error.code(), kQLTErrorLineOpen);
  EXPECT_EQ(error.underlyingError().code(), ECONNREFUSED);
}

}  // namespace
