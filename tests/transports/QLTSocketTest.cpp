#include <QLTSocket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "support/ConsoleLog.h"
#include "support/Errors.h"
#include "support/Eventually.h"
#include "support/SignalStorm.h"
#include "support/SystemCalls.h"
#include "support/TcpPeer.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using test::counting;
using test::eventually;
using test::isUntouched;
using test::nothingFor;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using namespace std::string_literals;

constexpr const char* kLoopback = "127.0.0.1";

void expectError(const QLTError& error, std::int64_t code, const std::string& description) {
  EXPECT_EQ(error.domain(), "Quillon Framework Error Domain");
  EXPECT_EQ(error.code(), code);
  EXPECT_EQ(error.userInfo(), (QLTDictionary{{"description", description}}));
}

/// A socket that is connected to `device_`.
class QLTSocketTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NE(socket_, nullptr);
    log_.clear();
  }

  /// Sends, and waits until all is delivered.
  void arrive(std::string_view bytes) {
    ASSERT_TRUE(device_.send(bytes));
    ASSERT_TRUE(eventually([this] {
      int notAcknowledged = 0;
      return ioctl(device_.descriptor(), SIOCOUTQ, &notAcknowledged) == 0 && notAcknowledged == 0;
    }));
  }
  std::vector<std::string> timeoutLines() const {
    return {"***ERROR*****: timeout reading socket",
            "error number is: timeout reading socket (-20001)\n"};
  }

  test::ConsoleLog log_;
  test::TcpPeer peer_;
  std::shared_ptr<QLTSocket> socket_ = QLTSocket::init(kLoopback, peer_.port());
  test::Endpoint device_ = peer_.accept();
  QLTError error_ = test::earlierError();
};

TEST_F(QLTSocketTest, DestructionHangsUp) {
  const std::size_t before = test::openDescriptors();
  socket_.reset();
  EXPECT_EQ(test::openDescriptors(), before - 1);
  EXPECT_EQ(device_.receive(1), "");
}

TEST_F(QLTSocketTest, DisconnectingHangsUpAndLeavesFailure) {
  const std::size_t before = test::openDescriptors();
  arrive("pending\n");
  socket_->disconnect();
  EXPECT_EQ(test::openDescriptors(), before - 1);
  EXPECT_EQ(device_.receive(1), "");
  EXPECT_FALSE(socket_->write("x", &error_));
  expectError(error_, -20000, "Error writing to socket");
  EXPECT_EQ(socket_->readLine(&error_), std::nullopt);
  expectError(error_, -20001, "Error reading socket");
  socket_->disconnect();
}

TEST_F(QLTSocketTest, SocketThatWasNeverConnectedFails) {
  struct Unconnected : QLTSocket {
    Unconnected() : QLTSocket("10.0.0.9") {}
  };
  Unconnected socket;
  EXPECT_FALSE(socket.write("x", &error_));
  expectError(error_, -20000, "Error writing to socket");
  for (const auto& read : std::vector<std::function<std::optional<std::string>(QLTError*)>>{
           [&](QLTError* error) { return socket.read(error); },
           [&](QLTError* error) { return socket.readUntil("> ", error); },
           [&](QLTError* error) { return socket.readLine(error); }}) {
    EXPECT_EQ(read(&error_), std::nullopt);
    expectError(error_, -20001, "Error reading socket");
  }
  socket.disconnect();
}

// Writing.

TEST_F(QLTSocketTest, WriteSendsTheTextAsItStands) {
  EXPECT_TRUE(socket_->write("&1,0000", &error_));
  EXPECT_TRUE(socket_->write("", &error_));
  socket_.reset();
  EXPECT_EQ(device_.receive(100), "&1,0000");
  EXPECT_THAT(error_, isUntouched());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(QLTSocketTest, WriteOfTextBeyondAsciiSendsAsManyBytesAsCharacters) {
  EXPECT_TRUE(socket_->write("5\u00B5A\u20AC\n"));  // 5 characters, 8 bytes
  socket_.reset();
  EXPECT_EQ(device_.receive(100),
            "5\xC2\xB5"
            "A\xE2");
}

TEST_F(QLTSocketTest, WriteToAPeerThatHungUpFailsWithoutASignal) {
  test::TcpPeer::reset(device_);
  EXPECT_TRUE(eventually([this] { return !socket_->write("x", &error_); }));
  expectError(error_, -20000, "Error writing to socket");
  EXPECT_THAT(log_.lines(), ElementsAre("error number is: Error writing to socket (-20000)\n"));
  EXPECT_FALSE(socket_->write("x", &error_));
  EXPECT_FALSE(socket_->write("x", nullptr));
}

TEST_F(QLTSocketTest, BlockedWriteIsGivenUpAfterTheTimeOut) {
  socket_->setTimeOutInSeconds(1);
  const std::string text(32 * 1024 * 1024, 'x');
  const auto start = steady_clock::now();
  EXPECT_FALSE(socket_->write(text, &error_));
  EXPECT_GE(steady_clock::now() - start, seconds(1));
  expectError(error_, -20000, "Error writing to socket");
  socket_->setTimeOutInSeconds(0);
  EXPECT_FALSE(socket_->write(text, nullptr));
}

TEST_F(QLTSocketTest, WriteMayTakeLongerThanTheTimeOutWhenThePeerKeepsReading) {
  socket_->setTimeOutInSeconds(1);
  const std::string text(32 * 1024 * 1024, 'x');
  std::size_t received = 0;
  std::thread reader([&] {
    // Slow enough that what the system does not keep for the peer goes in more than the time-out.
    const std::size_t piece = text.size() / 200;
    while (received < text.size()) {
      const std::size_t count = device_.receive(std::min(piece, text.size() - received)).size();
      if (count == 0) break;
      received += count;
      std::this_thread::sleep_for(milliseconds(10));
    }
  });
  const auto start = steady_clock::now();
  EXPECT_TRUE(socket_->write(text, &error_));
  EXPECT_GT(steady_clock::now() - start, seconds(1));
  reader.join();
  EXPECT_EQ(received, text.size());
  EXPECT_THAT(error_, isUntouched());
}

TEST_F(QLTSocketTest, WriteGoesOnWhenAPeerTakesItsTime) {
  const std::string text(8 * 1024 * 1024, 'x');
  std::string received;
  std::thread reader([&] {
    std::this_thread::sleep_for(milliseconds(50));
    received = device_.receive(text.size());
  });
  {
    const test::SignalStorm storm;
    EXPECT_TRUE(socket_->write(text, &error_));
  }
  reader.join();
  EXPECT_TRUE(received == text);
  EXPECT_THAT(error_, isUntouched());
}

// Single reads.

TEST_F(QLTSocketTest, ReadGivesWhatHasCome) {
  arrive("OK\r\n> ");
  EXPECT_EQ(socket_->read(&error_), "OK\r\n> ");
  EXPECT_THAT(error_, isUntouched());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(QLTSocketTest, ReadTakes5000BytesAtMost) {
  arrive(std::string(5001, 'x'));
  EXPECT_EQ(socket_->read(), std::string(5000, 'x'));
  EXPECT_EQ(socket_->read(), "x");
}

TEST_F(QLTSocketTest, ReadEndsAtAZeroByteAndDropsNoneInFront) {
  arrive("OK\0rest"s);
  EXPECT_EQ(socket_->read(), "OK");
  arrive("\0OK"s);
  EXPECT_EQ(socket_->read(&error_), "");
  EXPECT_THAT(error_, isUntouched());
}

TEST_F(QLTSocketTest, ReadLogsItsWaitAtTheSecondPoll) {
  arrive("OK");
  test::SystemCalls calls;
  calls.onPoll = nothingFor(1);
  EXPECT_EQ(socket_->read(), "OK");
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(QLTSocketTest, ReadWaitsForWhatIsToCome) {
  std::thread device([this] {
    std::this_thread::sleep_for(milliseconds(60));
    device_.send("late");
  });
  EXPECT_EQ(socket_->read(&error_), "late");
  device.join();
  EXPECT_THAT(error_, isUntouched());
  EXPECT_THAT(log_.lines(), ElementsAre("socket read index=1", "waiting to read from socket"));
}

TEST_F(QLTSocketTest, ReadOfNothingGivesTheEmptyTextAndAnErrorAfterASecond) {
  socket_->setTimeOutInSeconds(0);  // does not matter here
  test::SystemCalls calls;
  int polls = 0;
  calls.onPoll = counting(polls);
  const auto start = steady_clock::now();
  EXPECT_EQ(socket_->read(&error_), "");
  EXPECT_GE(steady_clock::now() - start, seconds(1));
  EXPECT_EQ(polls, 100);
  expectError(error_, -20001, "timeout reading socket");
  EXPECT_THAT(log_.lines(), ElementsAre("socket read index=1", "waiting to read from socket",
                                        "***ERROR*****: timeout reading socket",
                                        "error number is: timeout reading socket (-20001)\n"));
}

TEST_F(QLTSocketTest, ReadOfNothingNeedsNoErrorSlot) { EXPECT_EQ(socket_->read(nullptr), ""); }

TEST_F(QLTSocketTest, ReadsFailAtOnceWhenThePeerHungUp) {
  device_.close();
  EXPECT_EQ(socket_->read(&error_), std::nullopt);
  expectError(error_, -20001, "Error reading socket");
  for (const auto& read : std::vector<std::function<std::optional<std::string>(QLTError*)>>{
           [this](QLTError* error) { return socket_->read(error); },
           [this](QLTError* error) { return socket_->readUntil("> ", error); },
           [this](QLTError* error) { return socket_->readLine(error); }}) {
    log_.clear();
    error_ = {};
    EXPECT_EQ(read(&error_), std::nullopt);
    expectError(error_, -20001, "Error reading socket");
    EXPECT_THAT(log_.lines(), ElementsAre("error number is: Error reading socket (-20001)\n"));
    EXPECT_EQ(read(nullptr), std::nullopt);
  }
}

TEST_F(QLTSocketTest, WhatAPeerSentBeforeHangingUpIsRead) {
  arrive("bye\n");
  device_.close();
  EXPECT_EQ(socket_->readLine(&error_), "bye\n");
  EXPECT_THAT(error_, isUntouched());
  EXPECT_EQ(socket_->readLine(&error_), std::nullopt);
  expectError(error_, -20001, "Error reading socket");
}

TEST_F(QLTSocketTest, ReadFailsWhenThePeerResets) {
  test::TcpPeer::reset(device_);
  EXPECT_EQ(socket_->readLine(&error_), std::nullopt);
  expectError(error_, -20001, "Error reading socket");
}

// Reads up to a terminator.

TEST_F(QLTSocketTest, ReadUntilKeepsTheTerminatorAndWhatFollows) {
  arrive("1.2\r\n> &");
  EXPECT_EQ(socket_->readUntil("> ", &error_), "1.2\r\n> &");
  EXPECT_THAT(error_, isUntouched());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(QLTSocketTest, ReadUntilNeedsNothingForAnEmptyTerminator) {
  arrive("pending");
  EXPECT_EQ(socket_->readUntil("", &error_), "");
  EXPECT_THAT(error_, isUntouched());
  EXPECT_EQ(socket_->read(), "pending");
}

TEST_F(QLTSocketTest, ReadUntilStartsBehindAsManyBytesAsThereAreZeroBytes) {
  arrive("abc> \0x\0"s);
  EXPECT_EQ(socket_->readUntil("> "), "c> ");
}

TEST_F(QLTSocketTest, ReadUntilDoesNotLookBehindAZeroByte) {
  socket_->setTimeOutInSeconds(1);
  arrive("\0abc> "s);
  EXPECT_EQ(socket_->readUntil("> ", &error_), std::nullopt);
  expectError(error_, -20001, "timeout reading socket");
}

TEST_F(QLTSocketTest, ReadUntilTimesOut) {
  socket_->setTimeOutInSeconds(1);
  arrive("no prompt");
  const auto start = steady_clock::now();
  EXPECT_EQ(socket_->readUntil("> ", &error_), std::nullopt);
  EXPECT_GE(steady_clock::now() - start, seconds(1));
  expectError(error_, -20001, "timeout reading socket");
  EXPECT_EQ(log_.lines(), timeoutLines());
}

TEST_F(QLTSocketTest, ReadUntilMakesAHundredPassesASecond) {
  socket_->setTimeOutInSeconds(1);
  test::SystemCalls calls;
  arrive("> ");
  calls.onPoll = nothingFor(99);
  EXPECT_EQ(socket_->readUntil("> ", &error_), "> ");
  EXPECT_THAT(error_, isUntouched());
  calls.onPoll = nullptr;
  arrive("> ");
  calls.onPoll = nothingFor(100);
  EXPECT_EQ(socket_->readUntil("> ", &error_), std::nullopt);
  expectError(error_, -20001, "timeout reading socket");
}

TEST_F(QLTSocketTest, ReadUntilTimesOutOnThePassThatBringsTheTerminator) {
  socket_->setTimeOutInSeconds(0);
  arrive("> ");
  EXPECT_EQ(socket_->readUntil("> ", &error_), std::nullopt);
  expectError(error_, -20001, "timeout reading socket");
  EXPECT_EQ(socket_->readUntil("> ", nullptr), std::nullopt);
}

// Reads of lines.

TEST_F(QLTSocketTest, ReadLineKeepsTheLineEndAndWhatFollows) {
  arrive("OK\r\n");
  EXPECT_EQ(socket_->readLine(&error_), "OK\r\n");
  arrive("a\rb");
  EXPECT_EQ(socket_->readLine(&error_), "a\rb");
  arrive("a\nb");
  EXPECT_EQ(socket_->readLine(&error_), "a\nb");
  arrive("\n");
  EXPECT_EQ(socket_->readLine(&error_), "\n");
  EXPECT_THAT(error_, isUntouched());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(QLTSocketTest, ReadLineDropsZeroBytesInFrontAndEndsAtTheNext) {
  arrive("\0\0OK\0rest\n"s);
  EXPECT_EQ(socket_->readLine(), "OK");
  arrive("\0\n"s);
  EXPECT_EQ(socket_->readLine(), "\n");
}

TEST_F(QLTSocketTest, ReadLineKeepsTextBeyondAscii) {
  arrive("5\u00B5A \xFF\n");
  EXPECT_EQ(socket_->readLine(), "5\u00B5A \xFF\n");
}

TEST_F(QLTSocketTest, ReadLineTimesOutWithWhatHasCome) {
  socket_->setTimeOutInSeconds(1);
  arrive("half a li\0ne"s);
  const auto start = steady_clock::now();
  EXPECT_EQ(socket_->readLine(&error_), std::nullopt);
  EXPECT_GE(steady_clock::now() - start, milliseconds(990));
  expectError(error_, -20001, "timeout reading socket");
  EXPECT_THAT(log_.lines(),
              ElementsAre("***ERROR*****: timeout reading socket, index=101, so far: half a li",
                          "error number is: timeout reading socket (-20001)\n"));
}

TEST_F(QLTSocketTest, ReadLineTimesOutOnThePassThatBringsTheLineEnd) {
  socket_->setTimeOutInSeconds(0);
  arrive("OK\n");
  EXPECT_EQ(socket_->readLine(&error_), std::nullopt);
  expectError(error_, -20001, "timeout reading socket");
  EXPECT_THAT(log_.lines(),
              ElementsAre("***ERROR*****: timeout reading socket, index=1, so far: OK\n",
                          "error number is: timeout reading socket (-20001)\n"));
  EXPECT_EQ(socket_->readLine(nullptr), std::nullopt);
}

TEST_F(QLTSocketTest, RepliesMayBeSplitAnywhere) {
  const std::string reply = "1.2,\u00B5V\r\n> ";
  const std::string line = "1.2345,\u00B5V\n";
  ASSERT_EQ(line.size(), reply.size());
  for (std::size_t cut = 1; cut < reply.size(); ++cut) {
    const test::Device device(device_, [&](const std::string& command) {
      const std::string& text = command == "line?" ? line : reply;
      return std::vector<std::string>{text.substr(0, cut), text.substr(cut)};
    });
    EXPECT_TRUE(socket_->write("read?\n"));
    EXPECT_EQ(socket_->readUntil("> ", &error_), reply) << cut;
    EXPECT_TRUE(socket_->write("line?\n"));
    EXPECT_EQ(socket_->readLine(&error_), line) << cut;
  }
  EXPECT_THAT(error_, isUntouched());
}

TEST_F(QLTSocketTest, LineMayComeByteByByteWhileSignalsInterrupt) {
  const std::string line = "a line in pieces\n";
  std::thread device([&] {
    for (const char byte : line) {
      device_.send({&byte, 1});
      std::this_thread::sleep_for(milliseconds(2));
    }
  });
  {
    const test::SignalStorm storm;
    EXPECT_EQ(socket_->readLine(&error_), line);
  }
  device.join();
  EXPECT_THAT(error_, isUntouched());
}

TEST_F(QLTSocketTest, LongLineIsReadWhole) {
  std::string line(500'000, 'x');
  line.back() = '\n';
  std::thread device([&] { device_.send(line); });
  const std::optional<std::string> text = socket_->readLine(&error_);
  device.join();
  EXPECT_TRUE(text == line);
  EXPECT_THAT(error_, isUntouched());
}

/// Sends without an end until the other side closes.
class Flood {
 public:
  explicit Flood(test::Endpoint& device)
      : thread_([&device](const std::stop_token& stop) {
          const std::string chunk(64 * 1024, 'x');
          while (!stop.stop_requested() &&
                 ::send(device.descriptor(), chunk.data(), chunk.size(), MSG_NOSIGNAL) > 0) {
          }
        }) {}

 private:
  std::jthread thread_;
};

TEST_F(QLTSocketTest, FloodWithoutALineEndFailsAtTheLimit) {
  socket_->setTimeOutInSeconds(1000);
  {
    const Flood flood(device_);
    EXPECT_EQ(socket_->readLine(&error_), std::nullopt);
    socket_.reset();
  }
  expectError(error_, -20001, "Error reading socket");
  EXPECT_THAT(log_.lines(), ElementsAre("error number is: Error reading socket (-20001)\n"));
}

TEST_F(QLTSocketTest, FloodWithoutATerminatorFailsAtTheLimit) {
  socket_->setTimeOutInSeconds(1000);
  const Flood flood(device_);
  EXPECT_EQ(socket_->readUntil("> ", &error_), std::nullopt);
  expectError(error_, -20001, "Error reading socket");
  EXPECT_EQ(socket_->readUntil("> ", nullptr), std::nullopt);
  socket_.reset();
}

TEST_F(QLTSocketTest, FloodEndsAShortTimeOutByItsPasses) {
  socket_->setTimeOutInSeconds(1);
  const Flood flood(device_);
  EXPECT_EQ(socket_->readLine(&error_), std::nullopt);
  expectError(error_, -20001, "timeout reading socket");
  EXPECT_THAT(log_.lines().front(), HasSubstr("timeout reading socket, index=101, so far: xxx"));
  socket_.reset();
}

TEST_F(QLTSocketTest, SeveralSocketsWorkAtOnce) {
  std::vector<std::thread> sites;
  for (int site = 0; site < 4; ++site) {
    sites.emplace_back([site] {
      const test::TcpPeer peer;
      const std::shared_ptr<QLTSocket> socket = QLTSocket::init(kLoopback, peer.port());
      ASSERT_NE(socket, nullptr);
      test::Endpoint connection = peer.accept();
      const std::string answer = "site " + std::to_string(site) + "\n";
      const test::Device device(
          connection, [&](const std::string&) { return std::vector<std::string>{answer}; });
      for (int round = 0; round < 10; ++round) {
        EXPECT_TRUE(socket->write("who\n"));
        EXPECT_EQ(socket->readLine(), answer);
      }
    });
  }
  for (std::thread& site : sites) site.join();
}

}  // namespace
