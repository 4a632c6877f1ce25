#include <QLTByteStream.h>
#include <QLTSocket.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
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
using test::counting;
using test::isUntouched;
using test::nothingFor;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kLoopback = "127.0.0.1";

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
  /// What is told of a peer that is not there.
  static std::string noConnection(const test::TcpPeer& peer, int errnoValue) {
    return "no connection to 127.0.0.1:" + std::to_string(peer.port()) + ": " +
           std::strerror(errnoValue);
  }
  /// The record of a connection that failed: where, and why.
  void expectPeerError(const std::string& address, int port, int errnoValue) const {
    EXPECT_THAT(error_, test::IsError(kQLTPosixErrorDomain, errnoValue, log_.lines().back()));
    EXPECT_EQ(error_.userInfo(),
              (QLTDictionary{
                  {"description", log_.lines().back()}, {"address", address}, {"port", port}}));
  }

  test::ConsoleLog log_;
  QLTError error_ = test::earlierError();
  std::size_t descriptors_ = test::openDescriptors();
};

// Connecting.

TEST_F(QLTSocketInitTest, ConnectsToAListener) {
  const test::TcpPeer peer;
  const std::shared_ptr<QLTSocket> socket = QLTSocket::init(kLoopback, peer.port());
  ASSERT_NE(socket, nullptr);
  EXPECT_EQ(socket->strIPAddr(), kLoopback);
  EXPECT_EQ(socket->timeOutInSeconds(), 10);
  const test::Endpoint device = peer.accept();
  EXPECT_TRUE(socket->write("hello"));
  EXPECT_EQ(device.receive(5), "hello");
}

TEST_F(QLTSocketInitTest, ConnectingLeavesTheErrorAlone) {
  const test::TcpPeer peer;
  EXPECT_NE(QLTSocket::init(kLoopback, peer.port(), &error_), nullptr);
  EXPECT_THAT(error_, isUntouched());
  EXPECT_THAT(log_.lines(), IsEmpty());
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
  const std::shared_ptr<QLTObject> socket = QLTSocket::init(kLoopback, peer.port());
  ASSERT_NE(socket, nullptr);
  EXPECT_EQ(socket->className(), "QLTSocket");
}

TEST_F(QLTSocketInitTest, WhatIsNoAddressIsNamed) {
  const test::TcpPeer peer;
  for (const std::string address :
       {"localhost", "", "127.0.0.256", "1.2.3.4.5", "unit 7", "::1", "255.255.255.255"}) {
    log_.clear();
    EXPECT_EQ(QLTSocket::init(address, peer.port(), &error_), nullptr) << address;
    EXPECT_THAT(log_.lines(), ElementsAre("no connection to \"" + address +
                                          "\": not the IPv4 address of a device, such as "
                                          "10.0.0.20"));
    expectPeerError(address, peer.port(), EINVAL);
    EXPECT_EQ(QLTSocket::init(address, peer.port(), nullptr), nullptr);
  }
  EXPECT_EQ(test::openDescriptors(), descriptors_ + 1);  // the peer's
}

TEST_F(QLTSocketInitTest, WhatIsNoPortIsNamed) {
  for (const std::int32_t port : {-1, 65536}) {
    log_.clear();
    EXPECT_EQ(QLTSocket::init(kLoopback, port, &error_), nullptr);
    EXPECT_THAT(log_.lines(), ElementsAre("no connection to 127.0.0.1:" + std::to_string(port) +
                                          ": not a port, 0 to 65535"));
    expectPeerError(kLoopback, port, EINVAL);
  }
  EXPECT_EQ(test::openDescriptors(), descriptors_);
}

TEST_F(QLTSocketInitTest, RefusalIsLoggedWithoutAWait) {
  test::TcpPeer peer;
  peer.refuse();
  const std::size_t before = test::openDescriptors();
  EXPECT_EQ(QLTSocket::init(kLoopback, peer.port(), &error_), nullptr);
  EXPECT_THAT(log_.lines(),
              ElementsAre("unable to connect to remote socket", noConnection(peer, ECONNREFUSED)));
  expectPeerError(kLoopback, peer.port(), ECONNREFUSED);
  EXPECT_EQ(QLTSocket::init(kLoopback, peer.port(), nullptr), nullptr);
  EXPECT_EQ(test::openDescriptors(), before);
}

TEST_F(QLTSocketInitTest, UnreachableAtOnceIsLoggedWithoutAWait) {
  const char* broadcast = "127.255.255.255";  // of the loopback
  EXPECT_EQ(QLTSocket::init(broadcast, 9, &error_), nullptr);
  EXPECT_THAT(log_.lines(),
              ElementsAre("unable to connect to remote socket",
                          testing::StartsWith("no connection to 127.255.255.255:9: ")));
  EXPECT_GT(error_.code(), 0);
  expectPeerError(broadcast, 9, static_cast<int>(error_.code()));
  EXPECT_EQ(test::openDescriptors(), descriptors_);
}

TEST_F(QLTSocketInitTest, RefusalIsSeenWhenTheWaitDoesNotSeeIt) {
  test::TcpPeer peer;
  peer.refuse();
  const auto noWait = [](WaitingSocket&, QLTWriteStream&) { return true; };
  EXPECT_EQ(WaitingSocket::init(kLoopback, peer.port(), noWait), nullptr);
  EXPECT_THAT(log_.lines(),
              ElementsAre("unable to connect to remote socket", noConnection(peer, ECONNREFUSED)));
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
  EXPECT_EQ(WaitingSocket::init(kLoopback, peer.port(), noWait), nullptr);
  listener.join();
  EXPECT_THAT(log_.lines(),
              ElementsAre("unable to connect to remote socket", noConnection(peer, ECONNREFUSED)));
}

TEST_F(QLTSocketInitTest, WaitThatGivesUpIsLogged) {
  const test::TcpPeer peer;
  const std::size_t before = test::openDescriptors();
  const auto giveUp = [](WaitingSocket&, QLTWriteStream&) { return false; };
  EXPECT_EQ(WaitingSocket::init(kLoopback, peer.port(), giveUp), nullptr);
  EXPECT_THAT(log_.lines(),
              ElementsAre("unable to open the streams for socket", noConnection(peer, ETIMEDOUT)));
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
  EXPECT_EQ(WaitingSocket::init(kLoopback, peer.port(), shortWait), nullptr);
  EXPECT_GE(waited, seconds(1));
  EXPECT_EQ(polls, 100);
  EXPECT_THAT(log_.lines(),
              ElementsAre("Waiting for connection...\n", "unable to open the streams for socket",
                          noConnection(peer, ETIMEDOUT)));
  EXPECT_EQ(test::openDescriptors(), before);
}

TEST_F(QLTSocketInitTest, ConnectionThatComesLateIsWaitedFor) {
  test::TcpPeer peer;
  peer.stopAnswering();
  std::thread listener([&] {
    std::this_thread::sleep_for(milliseconds(50));
    for (std::size_t i = 0; i < peer.queued(); ++i) peer.accept();
  });
  const std::shared_ptr<QLTSocket> socket = QLTSocket::init(kLoopback, peer.port());
  listener.join();
  EXPECT_NE(socket, nullptr);
  EXPECT_THAT(log_.lines(), ElementsAre("Waiting for connection...\n"));
}

TEST_F(QLTSocketInitTest, WaitIsLoggedAtItsSecondPoll) {
  const test::TcpPeer peer;
  test::SystemCalls calls;
  calls.onPoll = nothingFor(1);
  EXPECT_NE(QLTSocket::init(kLoopback, peer.port()), nullptr);
  EXPECT_THAT(log_.lines(), IsEmpty());
  const test::TcpPeer another;
  calls.onPoll = nothingFor(2);
  EXPECT_NE(QLTSocket::init(kLoopback, another.port()), nullptr);
  EXPECT_THAT(log_.lines(), ElementsAre("Waiting for connection...\n"));
}

TEST_F(QLTSocketInitTest, WaitWithoutTimeGivesUpAtOnce) {
  const test::TcpPeer peer;
  const auto noTime = [](WaitingSocket& socket, QLTWriteStream& stream) {
    socket.setTimeOutInSeconds(0);
    return socket.inheritedWait(stream);
  };
  EXPECT_EQ(WaitingSocket::init(kLoopback, peer.port(), noTime), nullptr);
  EXPECT_THAT(log_.lines(),
              ElementsAre("unable to open the streams for socket", noConnection(peer, ETIMEDOUT)));
}

TEST_F(QLTSocketInitTest, ConnectionIsClosedOnExecAndHoldsNoCommandBack) {
  const test::TcpPeer peer;
  const int next = dup(STDERR_FILENO);  // the lowest that is free, so the socket's
  close(next);
  const std::shared_ptr<QLTSocket> socket = QLTSocket::init(kLoopback, peer.port());
  ASSERT_NE(socket, nullptr);
  EXPECT_EQ(fcntl(next, F_GETFD), FD_CLOEXEC);
  int noDelay = 0;
  socklen_t size = sizeof noDelay;
  EXPECT_EQ(getsockopt(next, IPPROTO_TCP, TCP_NODELAY, &noDelay, &size), 0);
  EXPECT_NE(noDelay, 0);
}

TEST_F(QLTSocketInitTest, NoDescriptorLeftIsTold) {
  const test::TcpPeer peer;
  test::SystemCalls calls;
  calls.onSocket = [] { return test::failWith(EMFILE); };
  EXPECT_EQ(QLTSocket::init(kLoopback, peer.port(), &error_), nullptr);
  EXPECT_THAT(log_.lines(), ElementsAre(noConnection(peer, EMFILE)));
  expectPeerError(kLoopback, peer.port(), EMFILE);
}

TEST_F(QLTSocketInitTest, ConnectingOutlastsSignals) {
  const test::SignalStorm storm;
  for (int i = 0; i < 20; ++i) {
    test::TcpPeer peer;
    EXPECT_NE(QLTSocket::init(kLoopback, peer.port()), nullptr);
    peer.refuse();
    EXPECT_EQ(QLTSocket::init(kLoopback, peer.port()), nullptr);
  }
  EXPECT_EQ(test::openDescriptors(), descriptors_);
}

}  // namespace
