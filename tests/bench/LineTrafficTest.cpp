// What is told of the traffic on a line, and a recording that speaks in its device's place.

#include <QLTBenchTcp.h>
#include <QLTErrorCodes.h>
#include <QLTTraffic.h>

#include <cerrno>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "support/TcpPeer.h"

namespace {

using testing::ElementsAre;
using Strings = std::vector<std::string>;
using Kind = QLTTrafficAnswer::Kind;

class Listener : public QLTTrafficWatcher {
 public:
  Listener() { QLTSetTrafficWatcher(this); }
  ~Listener() override { QLTSetTrafficWatcher(nullptr); }

  void happened(const QLTTrafficLine&, QLTTrafficEvent event, std::string_view bytes,
                int code) override {
    errno = ENOTTY;  // which a line is not to notice
    constexpr const char* kWords[] = {"opened", "sent ",   "received ",
                                      "silent", "failed ", "closed"};
    const auto index = static_cast<std::size_t>(event);
    events.push_back(kWords[index] + std::string(bytes) +
                     (event == QLTTrafficEvent::Failed ? std::to_string(code) : ""));
  }

  Strings events;
};

/// Answers from a list, and keeps what was sent.
class Recording : public QLTTrafficWatcher {
 public:
  Recording() { QLTSetTrafficWatcher(this); }
  ~Recording() override { QLTSetTrafficWatcher(nullptr); }
  void happened(const QLTTrafficLine&, QLTTrafficEvent, std::string_view, int) override {
    ADD_FAILURE() << "told of a line with a stand-in";
  }
  std::unique_ptr<QLTTrafficStandIn> standIn(const QLTTrafficLine&) override {
    return std::make_unique<Speaker>(*this);
  }

  std::deque<QLTTrafficAnswer> answers;
  std::deque<std::string> expected;
  bool isLost = false;
  int openCode = 0;

 private:
  class Speaker : public QLTTrafficStandIn {
   public:
    explicit Speaker(Recording& recording) : recording_(recording) {}
    int open() override { return recording_.openCode; }
    int write(std::string_view bytes) override {
      const bool isAsRecorded =
          !recording_.expected.empty() && recording_.expected.front() == bytes;
      if (isAsRecorded) recording_.expected.pop_front();
      return isAsRecorded ? 0 : EPROTO;
    }
    QLTTrafficAnswer read(std::size_t, std::chrono::nanoseconds) override {
      if (recording_.answers.empty()) return {Kind::Silent};
      QLTTrafficAnswer answer = recording_.answers.front();
      recording_.answers.pop_front();
      return answer;
    }
    bool isLost() const override { return recording_.isLost; }
    void close() override {}

   private:
    Recording& recording_;
  };
};

TEST(QLTBenchLineTraffic, isToldAsItIsOnTheLine) {
  Listener listener;
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
  Recording recording;
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
