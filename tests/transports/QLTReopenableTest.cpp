// Lines that are lost and opened again: real pseudo terminals behind a device file, and loopback
// TCP.

#include <QLTReopenable.h>

#include <cerrno>
#include <memory>
#include <optional>
#include <string>

#include <sys/ioctl.h>
#include <termios.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QLTSerial.h>
#include <QLTSimSerial.h>
#include <QLTSimSocket.h>
#include <QLTSocket.h>

#include "support/Errors.h"
#include "support/Eventually.h"
#include "support/SerialLine.h"
#include "support/SystemCalls.h"
#include "support/TcpPeer.h"

namespace {

using test::isUntouched;

class LostSerialTest : public testing::Test {
 protected:
  LostSerialTest() {
    port_.setInterCharDelayInMicroSeconds(0);
    port_.setBaudRate(19200);
  }

  test::PluggedLine line_;
  test::OpenPort port_{line_.path()};
  QLTError error_ = test::earlierError();
};

TEST_F(LostSerialTest, PortThatWasNeverOpenedIsNotLost) {
  EXPECT_FALSE(port_.isLost());
  line_.unplug();
  EXPECT_FALSE(port_.isLost());
  EXPECT_EQ(port_.where(), line_.path());
}

TEST_F(LostSerialTest, OpenPortIsNotLostHoweverSilentItsDeviceIs) {
  ASSERT_TRUE(port_.open());
  EXPECT_FALSE(port_.isLost());
  ASSERT_TRUE(line_.device().send("half a line"));
  EXPECT_FALSE(port_.isLost());
}

TEST_F(LostSerialTest, PortIsLostOnceItsDeviceHasHungUp) {
  ASSERT_TRUE(port_.open());
  line_.device().close();  // the device file still stands there
  EXPECT_TRUE(port_.isLost());
}

TEST_F(LostSerialTest, PortIsLostAlsoWithBytesLeftToRead) {
  ASSERT_TRUE(port_.open());
  ASSERT_TRUE(line_.device().send("last words\n"));
  line_.device().close();
  EXPECT_TRUE(port_.isLost());
}

TEST_F(LostSerialTest, PortIsLostWhenItsDeviceFileIsMissing) {
  ASSERT_TRUE(port_.open());
  std::filesystem::remove(line_.path());
  EXPECT_TRUE(port_.isLost());
}

TEST_F(LostSerialTest, PortThatIsClosedOnPurposeIsNotLost) {
  ASSERT_TRUE(port_.open());
  line_.unplug();
  port_.close();
  EXPECT_FALSE(port_.isLost());
}

TEST_F(LostSerialTest, PortThatCouldNotBeOpenedIsLost) {
  line_.unplug();
  EXPECT_FALSE(port_.open());
  EXPECT_TRUE(port_.isLost());
  line_.plugIn();
  EXPECT_TRUE(port_.isLost());  // until somebody opens it
  EXPECT_TRUE(port_.open());
  EXPECT_FALSE(port_.isLost());
}

TEST_F(LostSerialTest, PortWithAnOpeningThatFailedLateIsLost) {
  {
    test::SystemCalls calls;
    calls.onFlush = [](int) { return test::failWith(EIO); };
    EXPECT_FALSE(port_.open());
  }
  EXPECT_GE(port_.fd(), 0);
  EXPECT_TRUE(port_.isLost());
  EXPECT_TRUE(port_.reopen(&error_));
  EXPECT_FALSE(port_.isLost());
  EXPECT_THAT(error_, isUntouched());
}

TEST_F(LostSerialTest, ReopenFailsAsOpenDoesUntilTheDeviceIsBack) {
  ASSERT_TRUE(port_.open());
  line_.unplug();
  for (int i = 0; i < 2; ++i) {
    QLTError error;
    EXPECT_FALSE(port_.reopen(&error));
    EXPECT_EQ(error.domain(), "QLTSerial Error Domain");
    EXPECT_EQ(error.code(), ENOENT);
    EXPECT_EQ(error.userInfo().text("path"), line_.path());
    EXPECT_FALSE(port_.reopen());
    EXPECT_TRUE(port_.isLost());
  }
  line_.plugIn();
  EXPECT_TRUE(port_.reopen(&error_));
  EXPECT_THAT(error_, isUntouched());
  EXPECT_FALSE(port_.isLost());
}

TEST_F(LostSerialTest, ReopenedPortWorksWithItsSettings) {
  ASSERT_TRUE(port_.open());
  line_.unplug();
  line_.plugIn();
  ASSERT_TRUE(port_.reopen(&error_));
  EXPECT_EQ(cfgetospeed(&port_.options()), speed_t{B19200});
  int exclusive = 0;
  ASSERT_EQ(ioctl(port_.fd(), TIOCGEXCL, &exclusive), 0);
  EXPECT_NE(exclusive, 0);
  EXPECT_TRUE(port_.write("status\n"));
  EXPECT_EQ(line_.device().receiveUntil('\n'), "status\n");
  ASSERT_TRUE(line_.device().send("ready\n"));
  EXPECT_EQ(port_.readLine(5), "ready\n");
  EXPECT_THAT(error_, isUntouched());
}

TEST_F(LostSerialTest, PortsThatShareALineShareItsUseAgain) {
  test::OpenPort other(line_.path());
  ASSERT_TRUE(other.open());
  if (!port_.open()) GTEST_SKIP() << "only root's processes open a line twice";
  line_.unplug();
  EXPECT_TRUE(other.isLost());
  EXPECT_TRUE(port_.isLost());
  line_.plugIn();
  ASSERT_TRUE(port_.reopen());
  ASSERT_TRUE(other.reopen());
  int exclusive = 0;
  port_.close();
  ASSERT_EQ(ioctl(other.fd(), TIOCGEXCL, &exclusive), 0);
  EXPECT_NE(exclusive, 0);
  test::OpenPort last(line_.path());
  ASSERT_TRUE(last.open());
  other.close();
  const int descriptor = last.fd();
  ASSERT_EQ(ioctl(descriptor, TIOCGEXCL, &exclusive), 0);
  EXPECT_NE(exclusive, 0);
}

TEST_F(LostSerialTest, OpenPortThatIsReopenedStartsAfresh) {
  ASSERT_TRUE(port_.open());
  ASSERT_TRUE(line_.device().send("old\n"));
  EXPECT_TRUE(port_.reopen());
  EXPECT_FALSE(port_.isLost());
  ASSERT_TRUE(line_.device().send("new\n"));
  EXPECT_EQ(port_.readLine(5), "new\n");
}

TEST(LostSimSerialTest, SimulatedPortIsNeverLost) {
  QLTSimSerial port("/dev/ttyUSB7");
  EXPECT_FALSE(port.isLost());
  EXPECT_TRUE(port.open());
  EXPECT_FALSE(port.isLost());
  EXPECT_TRUE(port.reopen());
  EXPECT_FALSE(port.isLost());
  EXPECT_TRUE(port.write("x"));  // open, as a closed one would tell
  EXPECT_EQ(port.where(), "/dev/ttyUSB7");
}

constexpr int kPort = 5025;

class LostSocketTest : public testing::Test {
 protected:
  void SetUp() override {
    peer_.emplace(kPort);
    socket_ = QLTSocket::init(test::TcpPeer::ownAddress(), kPort);
    ASSERT_TRUE(socket_);
    device_.emplace(peer_->accept());
  }
  bool becomesLost() {
    return test::eventually([&] { return socket_->isLost(); });
  }

  std::optional<test::TcpPeer> peer_;
  std::optional<test::Endpoint> device_;
  std::shared_ptr<QLTSocket> socket_;
  QLTError error_ = test::earlierError();
};

TEST_F(LostSocketTest, TellsWhereItLeads) {
  EXPECT_EQ(socket_->where(), test::TcpPeer::ownAddress() + ":5025");
}

TEST_F(LostSocketTest, ConnectionIsNotLostHoweverSilentItsPeerIs) {
  EXPECT_FALSE(socket_->isLost());
  ASSERT_TRUE(device_->send("half a line"));
  EXPECT_TRUE(socket_->read());
  EXPECT_FALSE(socket_->isLost());
}

TEST_F(LostSocketTest, ConnectionIsLostWhenThePeerHasEndedIt) {
  device_->close();
  EXPECT_TRUE(becomesLost());
  EXPECT_FALSE(socket_->readLine());
  EXPECT_TRUE(socket_->isLost());
}

TEST_F(LostSocketTest, ConnectionIsLostAlsoWithBytesLeftToRead) {
  ASSERT_TRUE(device_->send("last words\n"));
  device_->close();
  EXPECT_TRUE(becomesLost());
  EXPECT_EQ(socket_->readLine(), "last words\n");
}

TEST_F(LostSocketTest, ConnectionIsLostWhenThePeerHasResetIt) {
  test::TcpPeer::reset(*device_);
  EXPECT_TRUE(becomesLost());
  EXPECT_FALSE(socket_->readLine());  // takes the system's error away
  EXPECT_TRUE(socket_->isLost());
}

TEST_F(LostSocketTest, ConnectionThatIsEndedOnPurposeIsNotLost) {
  device_->close();
  socket_->disconnect();
  EXPECT_FALSE(socket_->isLost());
}

TEST_F(LostSocketTest, ReopenFailsAsInitDoesUntilThePeerListens) {
  device_->close();
  peer_->refuse();
  for (int i = 0; i < 2; ++i) {
    QLTError error;
    EXPECT_FALSE(socket_->reopen(&error));
    EXPECT_EQ(error.domain(), kQLTPosixErrorDomain);
    EXPECT_EQ(error.code(), ECONNREFUSED);
    EXPECT_EQ(error.userInfo().integer("port"), kPort);
    EXPECT_FALSE(socket_->reopen());
    EXPECT_TRUE(socket_->isLost());
    EXPECT_FALSE(socket_->readLine());  // fails at once
    EXPECT_FALSE(socket_->write("x"));
  }
  peer_.emplace(kPort);
  EXPECT_TRUE(socket_->reopen(&error_));
  EXPECT_THAT(error_, isUntouched());
  EXPECT_FALSE(socket_->isLost());
}

TEST_F(LostSocketTest, ReopenedConnectionWorksWithItsTimeOut) {
  socket_->setTimeOutInSeconds(7);
  device_->close();
  ASSERT_TRUE(becomesLost());
  ASSERT_TRUE(socket_->reopen(&error_));
  const test::Endpoint device = peer_->accept();
  EXPECT_EQ(socket_->timeOutInSeconds(), 7);
  EXPECT_TRUE(socket_->write("status\n"));
  EXPECT_EQ(device.receiveUntil('\n'), "status\n");
  ASSERT_TRUE(device.send("ready\n"));
  EXPECT_EQ(socket_->readLine(), "ready\n");
  EXPECT_THAT(error_, isUntouched());
}

TEST_F(LostSocketTest, TimeOutStaysWhenNobodyListens) {
  socket_->setTimeOutInSeconds(7);
  device_->close();
  peer_->refuse();
  EXPECT_FALSE(socket_->reopen());
  EXPECT_EQ(socket_->timeOutInSeconds(), 7);
}

TEST_F(LostSocketTest, EndedConnectionCanBeOpenedAgain) {
  socket_->disconnect();
  EXPECT_TRUE(socket_->reopen());
  EXPECT_FALSE(socket_->isLost());
}

TEST(LostSimSocketTest, SimulatedSocketIsNeverLost) {
  const auto socket = QLTSimSocket::init("10.0.0.20", 5025);
  EXPECT_FALSE(socket->isLost());
  EXPECT_TRUE(socket->reopen());
  EXPECT_FALSE(socket->isLost());
  EXPECT_EQ(socket->where(), "10.0.0.20");
}

}  // namespace
