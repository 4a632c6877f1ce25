#include <cmath>
#include <limits>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "station/link/Channel.h"
#include "station/link/Messages.h"
#include "station/link/RecordMessage.h"

namespace {

using station::BrokenMessage;
using station::Channel;
using station::Message;
using testing::Optional;

class TwoChannels : public testing::Test {
 protected:
  explicit TwoChannels(Channel::Pair pair = Channel::makePair())
      : raw_(pair.first.get()), first_(std::move(pair.first)), second_(std::move(pair.second)) {}

  void sendRaw(const std::string& bytes) const {
    ASSERT_EQ(send(raw_, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
  }

  static void sendWhole(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t count = send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (count <= 0) return;
      bytes.remove_prefix(static_cast<std::size_t>(count));
    }
  }

  const int raw_;
  Channel first_;
  Channel second_;
};

TEST_F(TwoChannels, aMessageComesAsItWasSent) {
  const Message message{{"type", "x"},
                        {"bytes", "\xff\x00 caf\xe9"},
                        {"number", 0.1},
                        {"large", std::numeric_limits<std::int64_t>::min()},
                        {"list", {1, 2.5, true, nullptr}}};
  ASSERT_TRUE(first_.send(message));
  EXPECT_TRUE(second_.receive() == message);  // not printed: the bytes are no UTF-8
}

TEST_F(TwoChannels, messagesThatManyThreadsSendStayWhole) {
  constexpr int kEach = 200;
  std::vector<std::jthread> threads;
  for (int number = 0; number < 4; ++number) {
    threads.emplace_back([this, number] {
      for (int i = 0; i < kEach; ++i) {
        first_.send({{"from", number}, {"count", i}, {"long", std::string(5000, 'x')}});
      }
    });
  }
  std::vector<int> counts(4);
  for (int i = 0; i < 4 * kEach; ++i) {
    const Message message = *second_.receive();
    EXPECT_EQ(message.at("count"), counts.at(message.at("from"))++);
  }
}

TEST_F(TwoChannels, readingWithoutWaitingGivesWhatIsThere) {
  EXPECT_TRUE(second_.read(false));
  EXPECT_EQ(second_.next(), std::nullopt);
  sendRaw(std::string("\x02\0\0\0\x61", 5));  // the first byte of two
  EXPECT_TRUE(second_.read(false));
  EXPECT_EQ(second_.next(), std::nullopt);
  sendRaw("a");
  EXPECT_TRUE(second_.read(false));
  EXPECT_THAT(second_.next(), Optional(Message("a")));
}

TEST_F(TwoChannels, whatIsNoMessageIsRefused) {
  sendRaw(std::string("\x02\0\0\0\xff\xff", 6));
  EXPECT_THROW(second_.receive(), BrokenMessage);
}

TEST_F(TwoChannels, aListThatIsSaidToBeLongerThanAnyIsRefused) {
  sendRaw(std::string("\x09\0\0\0\x9b\x7f", 6) + std::string(7, '\xff'));
  EXPECT_THROW(second_.receive(), BrokenMessage);
}

TEST_F(TwoChannels, whatIsNestedBeyondAllReasonIsRefused) {
  Channel& sending = first_;
  std::jthread thread([&] {
    const std::string length("\0\0\x10\0", 4);
    const std::string lists(1U << 20U, '\x81');  // each holds the next
    sendWhole(sending.descriptor(), length + lists);
  });
  EXPECT_THROW(second_.receive(), BrokenMessage);
}

TEST_F(TwoChannels, aMessageBeyondTheLimitIsRefusedBeforeItComes) {
  sendRaw(std::string("\x01\0\0\x04", 4));
  EXPECT_THROW(second_.receive(), BrokenMessage);
}

TEST_F(TwoChannels, theEndOfThePeerIsTheEnd) {
  shutdown(raw_, SHUT_RDWR);
  EXPECT_EQ(second_.receive(), std::nullopt);
  EXPECT_FALSE(second_.isLost());
  EXPECT_FALSE(second_.send({{"type", "x"}}));
}

TEST_F(TwoChannels, anEndThatSomebodyClosesIsLostEvenWhileItWaits) {
  const int descriptor = second_.descriptor();
  std::jthread closing([descriptor] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    close(descriptor);
  });
  EXPECT_EQ(second_.receive(), std::nullopt);
  EXPECT_TRUE(second_.isLost());
}

TEST_F(TwoChannels, aPeerThatDoesNotReadIsNotWaitedForLongerThanSaid) {
  first_.limitSending(1);
  const std::string large(1U << 20U, 'x');
  bool sent = true;
  for (int i = 0; i < 8 && sent; ++i) sent = first_.send(large);
  EXPECT_FALSE(sent);
  EXPECT_FALSE(first_.send("small"));  // there is half a message before it
}

TEST_F(TwoChannels, aForkedProcessCannotSend) {
  const pid_t child = fork();
  if (child == 0) _exit(first_.send("from the child") ? 1 : 0);
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(second_.read(false));
  EXPECT_EQ(second_.next(), std::nullopt);
}

TEST(Messages, recordsComeBackAsTheyWere) {
  QLTestResult record;
  record.setRunIndex(7);
  record.setTestName("Power \xff");
  record.setSubTestName("");
  record.setActual("1");
  record.setLowLimit("0.100000");
  record.setFailMessage(nullptr);
  record.setResult(kQLTestResultNA);
  record.setValue(0.1);
  record.setLow(-std::numeric_limits<double>::infinity());
  record.setHigh(std::numeric_limits<double>::denorm_min());
  record.setUnit("V");
  record.setExtras(QLTDictionary{{"data", QLTData{0, 255}},
                                 {"date", QLTDate(std::chrono::milliseconds(-1))},
                                 {"whole", std::int64_t{1} << 60},
                                 {"real", 2.0},
                                 {"yes", true},
                                 {"date-like", QLTDictionary{{"date", 1}}},
                                 {"list", QLTArray{1, "two", QLTDictionary{{"three", 3.5}}}}});
  const Message message = station::messageOf(record);
  const auto back = station::recordIn(Message::from_cbor(Message::to_cbor(message)));
  EXPECT_EQ(back->runIndex(), 7);
  EXPECT_EQ(back->testName(), "Power \xff");
  EXPECT_EQ(back->subTestName(), "");
  EXPECT_EQ(back->siteName(), std::nullopt);
  EXPECT_EQ(back->failMessage(), std::nullopt);
  EXPECT_EQ(back->value(), record.value());
  EXPECT_EQ(back->low(), record.low());
  EXPECT_EQ(back->high(), record.high());
  EXPECT_EQ(back->extras(), record.extras());
  EXPECT_EQ(back->description(), record.description());
  record.setValue(std::nan(""));
  EXPECT_TRUE(std::isnan(
      *station::recordIn(Message::from_cbor(Message::to_cbor(station::messageOf(record))))
           ->value()));
}

TEST(Messages, aPartThatIsMissingOrOfAWrongKindIsToldWithItsMessage) {
  const auto complaint = [](const Message& message) -> std::string {
    try {
      station::take<station::TestStarted>(message);
    } catch (const BrokenMessage& problem) {
      return problem.what();
    }
    return "taken";
  };
  Message message = station::messageFrom(station::TestStarted{"left", 1, 2, "Power"});
  EXPECT_EQ(complaint(message), "taken");
  message["index"] = "one";
  EXPECT_THAT(complaint(message), testing::StartsWith("testStarted: "));
  message.erase("index");
  EXPECT_THAT(complaint(message), testing::HasSubstr("'index' not found"));
  EXPECT_THROW(station::take<station::Confirmed>({{"site", "left"}, {"verdict", 9}}),
               BrokenMessage);
  EXPECT_EQ(station::typeOf(Message::array()), "");
}

}  // namespace
