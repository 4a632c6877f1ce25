#include <QLTByteStream.h>
#include <QLTSocket.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "support/ConsoleLog.h"
#include "support/Errors.h"
#include "support/SignalStorm.h"
#include "support/SystemCalls.h"
#include "support/TcpPeer.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using test::isUntouched;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using namespace std::string_literals;

constexpr const char* loopback = "127.0.0.1";

void expectError(const QLTError& error, std::int64_t code, const std::string& description) {
  EXPECT_EQ(error.domain(), "Quillon Framework Error Domain");
  EXPECT_EQ(error.code(), code);
  EXPECT_EQ(error.userInfo(), (QLTDictionary{{"description", description}}));
}

/// Waits until the condition holds, for not too long.
template <typename Condition>
bool eventually(Condition condition) {
  const auto end = steady_clock::now() + seconds(5);
  while (!condition()) {
    if (steady_clock::now() > end) return false;
    std::this_thread::sleep_for(milliseconds(1));
  }
  return true;
}

/// Polls that find nothing as often as `times` says.
auto nothingFor(int times) {
  return [left = times]() mutable { return left-- > 0 ? std::optional(0) : std::nullopt; };
}

/// Polls that are counted.
auto counting(int& polls) {
  return [&polls] {
    ++polls;
    return std::optional<int>();
  };
}

/// A socket whose wait for the connection is the test's.
class WaitingSocket : public QLTSocket {
 public:
  using Wait = std::function<bool(WaitingSocket&, QLTWriteStream&)>;

  static std::shared_ptr<WaitingSocket> init(const std::string& address, std::int32_t port,
                                             Wait wait) {
    std::shared_ptr<WaitingSocket> socket(new WaitingSocket(address, std::move(wait)));
    return socket->connect(port) ? socket : nullptr;
  }
  bool WaitForConnection(QLTWriteStream& stream) override { return wait_(*this, stream); }
  bool inheritedWait(QLTWriteStream& stream) { return QLTSocket::WaitForConnection(stream); }

 private:
  WaitingSocket(const std::string& address, Wait wait)
      : QLTSocket(address), wait_(std::move(wait)) {}

  Wait wait_;
};

/// Creating a socket, with and without success.
class QLTSocketInitTest : public testing::Test {
 protected:
  test::ConsoleLog log_;
  std::size_t descriptors_ = test::openDescriptors();
};

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
  std::shared_ptr<QLTSocket> socket_ = QLTSocket::init(loopback, peer_.port());
  test::Endpoint device_ = peer_.accept();
  QLTError error_ = test::earlierError();
};

// Connecting.

TEST_F(QLTSocketInitTest, ConnectsToAListener) {
  const test::TcpPeer peer;
  const std::shared_ptr<QLTSocket> socket = QLTSocket::init(loopback, peer.port());
  ASSERT_NE(socket, nullptr);
  EXPECT_EQ(socket->strIPAddr(), loopback);
  EXPECT_EQ(socket->timeOutInSeconds(), 10);
  const test::Endpoint device = peer.accept();
  EXPECT_TRUE(socket->write("hello"));
  EXPECT_EQ(device.receive(5), "hello");
}

TEST_F(QLTSocketInitTest, PortGoesOutMostSignificantByteFirst) {
  const test::TcpPeer peer(5025);
  ASSERT_NE(QLTSocket::init(test::TcpPeer::ownAddress(), 5025), nullptr);
  const test::Endpoint device = peer.accept();
  sockaddr_in called{};
  socklen_t size = sizeof called;
  ASSERT_EQ(getsockname(device.descriptor(), reinterpret_cast<sockaddr*>(&called), &size), 0);
  std::array<unsigned char, 2> bytes{};
  std::memcpy(bytes.data(), &called.sin_port, bytes.size());
  EXPECT_THAT(bytes, ElementsAre(0x13, 0xA1));
}

TEST_F(QLTSocketInitTest, SocketIsAResource) {
  const test::TcpPeer peer;
  const std::shared_ptr<QLTObject> socket = QLTSocket::init(loopback, peer.port());
  ASSERT_NE(socket, nullptr);
  EXPECT_EQ(socket->className(), "QLTSocket");
}

TEST_F(QLTSocketInitTest, WhatIsNoAddressGivesNoneSilently) {
  const test::TcpPeer peer;
  for (const char* address :
       {"localhost", "", "127.0.0.256", "1.2.3.4.5", "unit 7", "::1", "255.255.255.255"}) {
    EXPECT_EQ(QLTSocket::init(address, peer.port()), nullptr) << address;
  }
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(QLTSocketInitTest, WhatIsNoPortGivesNoneSilently) {
  EXPECT_EQ(QLTSocket::init(loopback, -1), nullptr);
  EXPECT_EQ(QLTSocket::init(loopback, 65536), nullptr);
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_EQ(test::openDescriptors(), descriptors_);
}

TEST_F(QLTSocketInitTest, RefusalIsLoggedWithoutAWait) {
  test::TcpPeer peer;
  peer.refuse();
  const std::size_t before = test::openDescriptors();
  EXPECT_EQ(QLTSocket::init(loopback, peer.port()), nullptr);
  EXPECT_THAT(log_.lines(), ElementsAre("unable to connect to remote socket"));
  EXPECT_EQ(test::openDescriptors(), before);
}

TEST_F(QLTSocketInitTest, UnreachableAtOnceIsLoggedWithoutAWait) {
  EXPECT_EQ(QLTSocket::init("127.255.255.255", 9), nullptr);  // loopback's broadcast address
  EXPECT_THAT(log_.lines(), ElementsAre("unable to connect to remote socket"));
  EXPECT_EQ(test::openDescriptors(), descriptors_);
}

TEST_F(QLTSocketInitTest, RefusalIsSeenWhenTheWaitDoesNotSeeIt) {
  test::TcpPeer peer;
  peer.refuse();
  const auto noWait = [](WaitingSocket&, QLTWriteStream&) { return true; };
  EXPECT_EQ(WaitingSocket::init(loopback, peer.port(), noWait), nullptr);
  EXPECT_THAT(log_.lines(), ElementsAre("unable to connect to remote socket"));
}

TEST_F(QLTSocketInitTest, RefusalThatComesLateIsSeenWhenTheWaitDoesNotSeeIt) {
  test::TcpPeer peer;
  peer.stopAnswering();
  std::thread listener([&] {
    std::this_thread::sleep_for(milliseconds(50));
    peer.refuse();
  });
  const auto noWait = [](WaitingSocket&, QLTWriteStream& stream) {
    EXPECT_EQ(stream.status(), QLTStreamStatus::Opening);
    return true;
  };
  EXPECT_EQ(WaitingSocket::init(loopback, peer.port(), noWait), nullptr);
  listener.join();
  EXPECT_THAT(log_.lines(), ElementsAre("unable to connect to remote socket"));
}

TEST_F(QLTSocketInitTest, WaitThatGivesUpIsLogged) {
  const test::TcpPeer peer;
  const std::size_t before = test::openDescriptors();
  const auto giveUp = [](WaitingSocket&, QLTWriteStream&) { return false; };
  EXPECT_EQ(WaitingSocket::init(loopback, peer.port(), giveUp), nullptr);
  EXPECT_THAT(log_.lines(), ElementsAre("unable to open the streams for socket"));
  EXPECT_EQ(test::openDescriptors(), before);
}

TEST_F(QLTSocketInitTest, PeerThatDoesNotAnswerIsWaitedForAndGivenUp) {
  test::TcpPeer peer;
  peer.stopAnswering();
  const std::size_t before = test::openDescriptors();
  milliseconds waited{};
  int polls = 0;
  const auto shortWait = [&](WaitingSocket& socket, QLTWriteStream& stream) {
    EXPECT_EQ(socket.timeOutInSeconds(), 10);
    EXPECT_EQ(stream.status(), QLTStreamStatus::Opening);
    socket.setTimeOutInSeconds(1);
    test::SystemCalls calls;
    calls.onPoll = counting(polls);
    const auto start = steady_clock::now();
    const bool connected = socket.inheritedWait(stream);
    waited = std::chrono::duration_cast<milliseconds>(steady_clock::now() - start);
    return connected;
  };
  EXPECT_EQ(WaitingSocket::init(loopback, peer.port(), shortWait), nullptr);
  EXPECT_GE(waited, seconds(1));
  EXPECT_EQ(polls, 100);
  EXPECT_THAT(log_.lines(),
              ElementsAre("Waiting for connection...\n", "unable to open the streams for socket"));
  EXPECT_EQ(test::openDescriptors(), before);
}

TEST_F(QLTSocketInitTest, ConnectionThatComesLateIsWaitedFor) {
  test::TcpPeer peer;
  peer.stopAnswering();
  std::thread listener([&] {
    std::this_thread::sleep_for(milliseconds(50));
    for (std::size_t i = 0; i < peer.queued(); ++i) peer.accept();
  });
  const std::shared_ptr<QLTSocket> socket = QLTSocket::init(loopback, peer.port());
  listener.join();
  EXPECT_NE(socket, nullptr);
  EXPECT_THAT(log_.lines(), ElementsAre("Waiting for connection...\n"));
}

TEST_F(QLTSocketInitTest, WaitIsLoggedAtItsSecondPoll) {
  const test::TcpPeer peer;
  test::SystemCalls calls;
  calls.onPoll = nothingFor(1);
  EXPECT_NE(QLTSocket::init(loopback, peer.port()), nullptr);
  EXPECT_THAT(log_.lines(), IsEmpty());
  const test::TcpPeer another;
  calls.onPoll = nothingFor(2);
  EXPECT_NE(QLTSocket::init(loopback, another.port()), nullptr);
  EXPECT_THAT(log_.lines(), ElementsAre("Waiting for connection...\n"));
}

TEST_F(QLTSocketInitTest, WaitWithoutTimeGivesUpAtOnce) {
  const test::TcpPeer peer;
  const auto noTime = [](WaitingSocket& socket, QLTWriteStream& stream) {
    socket.setTimeOutInSeconds(0);
    return socket.inheritedWait(stream);
  };
  EXPECT_EQ(WaitingSocket::init(loopback, peer.port(), noTime), nullptr);
  EXPECT_THAT(log_.lines(), ElementsAre("unable to open the streams for socket"));
}

TEST_F(QLTSocketInitTest, ConnectionIsClosedOnExecAndHoldsNoCommandBack) {
  const test::TcpPeer peer;
  const int next = dup(STDERR_FILENO);  // the lowest that is free, so the socket's
  close(next);
  const std::shared_ptr<QLTSocket> socket = QLTSocket::init(loopback, peer.port());
  ASSERT_NE(socket, nullptr);
  EXPECT_EQ(fcntl(next, F_GETFD), FD_CLOEXEC);
  int noDelay = 0;
  socklen_t size = sizeof noDelay;
  EXPECT_EQ(getsockopt(next, IPPROTO_TCP, TCP_NODELAY, &noDelay, &size), 0);
  EXPECT_NE(noDelay, 0);
}

TEST_F(QLTSocketInitTest, NoDescriptorLeftGivesNoneSilently) {
  const test::TcpPeer peer;
  test::SystemCalls calls;
  calls.onSocket = [] { return test::failWith(EMFILE); };
  EXPECT_EQ(QLTSocket::init(loopback, peer.port()), nullptr);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(QLTSocketInitTest, ConnectingOutlastsSignals) {
  const test::SignalStorm storm;
  for (int i = 0; i < 20; ++i) {
    test::TcpPeer peer;
    EXPECT_NE(QLTSocket::init(loopback, peer.port()), nullptr);
    peer.refuse();
    EXPECT_EQ(QLTSocket::init(loopback, peer.port()), nullptr);
  }
  EXPECT_EQ(test::openDescriptors(), descriptors_);
}

TEST_F(QLTSocketTest, DestructionHangsUp) {
  const std::size_t before = test::openDescriptors();
  socket_.reset();
  EXPECT_EQ(test::openDescriptors(), before - 1);
  EXPECT_EQ(device_.receive(1), "");
}

// The pair of streams.

TEST(QLTByteStreamTest, PairGoesThroughItsStatuses) {
  const test::TcpPeer peer;
  const std::size_t before = test::openDescriptors();
  QLTStreamPair pair =
      QLTStreamPair::toPeer(INADDR_LOOPBACK, static_cast<std::uint16_t>(peer.port()));
  ASSERT_TRUE(pair.read && pair.write);
  EXPECT_EQ(pair.read->status(), QLTStreamStatus::NotOpen);
  EXPECT_EQ(pair.write->status(), QLTStreamStatus::NotOpen);
  EXPECT_TRUE(pair.read->open());
  EXPECT_FALSE(pair.read->open());
  EXPECT_EQ(pair.write->status(), QLTStreamStatus::NotOpen);
  EXPECT_TRUE(pair.write->open());
  EXPECT_TRUE(eventually([&] { return pair.write->canAcceptBytes(); }));
  EXPECT_EQ(pair.read->status(), QLTStreamStatus::Open);
  EXPECT_EQ(pair.write->status(), QLTStreamStatus::Open);

  test::Endpoint device = peer.accept();
  EXPECT_FALSE(pair.read->hasBytesAvailable());
  char byte = 0;
  EXPECT_EQ(pair.read->read(&byte, 1), -1);
  EXPECT_EQ(pair.read->status(), QLTStreamStatus::Open);
  EXPECT_EQ(pair.write->write("x", 1), 1);
  EXPECT_EQ(device.receive(1), "x");
  device.close();
  EXPECT_TRUE(eventually([&] { return pair.read->hasBytesAvailable(); }));
  EXPECT_EQ(pair.read->read(&byte, 1), 0);
  EXPECT_EQ(pair.read->status(), QLTStreamStatus::AtEnd);

  pair.read->close();
  EXPECT_EQ(pair.read->status(), QLTStreamStatus::Closed);
  EXPECT_EQ(pair.read->read(&byte, 1), -1);
  EXPECT_EQ(pair.write->status(), QLTStreamStatus::Open);
  pair.write->close();
  EXPECT_EQ(pair.write->write("x", 1), -1);
  EXPECT_EQ(test::openDescriptors(), before);
}

TEST(QLTByteStreamTest, ReadingHalfMayCloseTheConnection) {
  const test::TcpPeer peer;
  const std::size_t before = test::openDescriptors();
  QLTStreamPair pair =
      QLTStreamPair::toPeer(INADDR_LOOPBACK, static_cast<std::uint16_t>(peer.port()));
  pair.read->setClosesSocket(true);
  EXPECT_TRUE(pair.read->open());
  EXPECT_TRUE(pair.write->open());
  pair.read.reset();
  EXPECT_EQ(test::openDescriptors(), before);
  EXPECT_EQ(pair.write->status(), QLTStreamStatus::Closed);
  EXPECT_TRUE(pair.write->canAcceptBytes());
  EXPECT_EQ(pair.write->write("x", 1), -1);
}

TEST(QLTByteStreamTest, RefusalIsAnErrorOfBothHalves) {
  test::TcpPeer peer;
  peer.refuse();
  QLTStreamPair pair =
      QLTStreamPair::toPeer(INADDR_LOOPBACK, static_cast<std::uint16_t>(peer.port()));
  EXPECT_TRUE(pair.read->open());
  EXPECT_TRUE(pair.write->open());
  EXPECT_TRUE(eventually([&] { return pair.write->canAcceptBytes(); }));
  EXPECT_EQ(pair.read->status(), QLTStreamStatus::Error);
  EXPECT_EQ(pair.write->status(), QLTStreamStatus::Error);
}

TEST(QLTByteStreamTest, FailureIsAnErrorOfTheHalfThatMetIt) {
  const test::TcpPeer peer;
  QLTStreamPair pair =
      QLTStreamPair::toPeer(INADDR_LOOPBACK, static_cast<std::uint16_t>(peer.port()));
  EXPECT_TRUE(pair.read->open());
  EXPECT_TRUE(pair.write->open());
  EXPECT_TRUE(eventually([&] { return pair.write->canAcceptBytes(); }));
  EXPECT_EQ(pair.read->status(), QLTStreamStatus::Open);
  test::Endpoint device = peer.accept();
  test::TcpPeer::reset(device);
  EXPECT_TRUE(eventually([&] { return pair.read->hasBytesAvailable(); }));
  char byte = 0;
  EXPECT_EQ(pair.read->read(&byte, 1), -1);
  EXPECT_EQ(pair.read->status(), QLTStreamStatus::Error);
  EXPECT_EQ(pair.write->status(), QLTStreamStatus::Open);
  EXPECT_EQ(pair.write->write("x", 1), -1);
  EXPECT_EQ(pair.write->status(), QLTStreamStatus::Error);
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
      const std::shared_ptr<QLTSocket> socket = QLTSocket::init(loopback, peer.port());
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
