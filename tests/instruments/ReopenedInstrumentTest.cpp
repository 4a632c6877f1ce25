// Drivers whose line is lost and opened again.

#include <cerrno>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QLTAsciiReadWriteSimDevice.h>
#include <QLTDavDPEther.h>
#include <QLTDavDPSerial.h>
#include <QLTDiags.h>
#include <QLTErrorCodes.h>
#include <QLTReopenable.h>
#include <QLTScpiInstrument.h>
#include <QLTSimSerial.h>

#include "support/Endpoint.h"
#include "support/Errors.h"
#include "support/Eventually.h"
#include "support/SerialLine.h"
#include "support/TcpPeer.h"

namespace {

using test::isUntouched;

std::shared_ptr<QLTSerial> openPort(const std::string& path) {
  auto port = std::make_shared<QLTSerial>(path);
  port->setInterCharDelayInMicroSeconds(0);
  EXPECT_TRUE(port->open());
  return port;
}

/// A unit that is woken without a wait.
class QuickUnit : public QLTDavDPSerial {
 public:
  explicit QuickUnit(std::shared_ptr<QLTSerial> port) : QLTDavDPSerial(std::move(port)) {}
  void initComm(QLTError*) override { com()->write("@\n"); }
};

class ReopenedInstrumentTest : public testing::Test {
 protected:
  test::PluggedLine line_;
  QLTError error_ = test::earlierError();
};

TEST_F(ReopenedInstrumentTest, StationFindsWhatCanBeReopened) {
  const std::shared_ptr<QLTObject> console = QLTDiags::initWithPort(openPort(line_.path()));
  const auto line = std::dynamic_pointer_cast<QLTReopenable>(console);
  ASSERT_TRUE(line);
  EXPECT_FALSE(line->isLost());
  EXPECT_EQ(line->where(), line_.path());
}

TEST_F(ReopenedInstrumentTest, ConsoleComesBackWithItsLine) {
  const auto console = QLTDiags::initWithPort(openPort(line_.path()));
  line_.unplug();
  EXPECT_TRUE(console->isLost());
  EXPECT_FALSE(console->reopen(&error_));
  EXPECT_EQ(error_.code(), ENOENT);
  EXPECT_TRUE(console->isLost());
  line_.plugIn();
  error_ = test::earlierError();
  EXPECT_TRUE(console->reopen(&error_));  // whether or not a device answers
  EXPECT_FALSE(console->isLost());
  const test::Device device(line_.device(), [](const std::string& command) {
    return std::vector<std::string>{command + "\n2.4.1\n:-)"};
  });
  EXPECT_EQ(console->sendCommand("version"), (std::vector<std::string>{"version", "2.4.1", ":-)"}));
  EXPECT_THAT(error_, isUntouched());
}

TEST_F(ReopenedInstrumentTest, SimulatedConsoleIsNeverLost) {
  const auto port = std::make_shared<QLTSimSerial>("/dev/ttyUSB7");
  const auto console = QLTDiags::initWithPort(port);
  EXPECT_FALSE(console->isLost());
  EXPECT_TRUE(console->reopen());
  EXPECT_EQ(console->where(), "/dev/ttyUSB7");
}

TEST_F(ReopenedInstrumentTest, MeterComesBackAndTellsWhoItIs) {
  std::optional<test::Device> device;
  const auto answerAs = [&](const std::string& identity) {
    device.emplace(
        line_.device(),
        [identity](const std::string& query) {
          if (query != "*IDN?") return std::vector<std::string>{"3.3\n"};
          return std::vector<std::string>{identity + "\n"};
        },
        '\r');
  };
  answerAs("ACME,M1,001,1.0");
  const auto meter = QLTScpiInstrument::initWithDevice(openPort(line_.path()));
  ASSERT_TRUE(meter);
  EXPECT_FALSE(meter->isLost());
  EXPECT_EQ(meter->where(), line_.path());
  EXPECT_EQ(meter->who(), (QLTIdentity{"ACME", "M1", "001", "1.0"}));
  device.reset();
  line_.unplug();
  EXPECT_TRUE(meter->isLost());
  EXPECT_FALSE(meter->reopen(&error_));
  EXPECT_EQ(error_.code(), ENOENT);
  EXPECT_EQ(meter->identityAtCreation(), "ACME,M1,001,1.0\n");

  line_.plugIn();
  answerAs("ACME,M1,002,1.0");
  error_ = test::earlierError();
  EXPECT_TRUE(meter->reopen(&error_));
  EXPECT_FALSE(meter->isLost());
  EXPECT_EQ(meter->identityAtCreation(), "ACME,M1,002,1.0\n");
  EXPECT_EQ(meter->who(), (QLTIdentity{"ACME", "M1", "002", "1.0"}));
  EXPECT_EQ(meter->query("READ?"), "3.3\n");
  EXPECT_THAT(error_, isUntouched());
}

/// A device that can be asked nothing.
class MuteDevice : public QLTAsciiReadWriteDevice {
 public:
  std::optional<std::string> read(std::int32_t, QLTError* error) override {
    if (isMute && error != nullptr) *error = QLTError::withDescription("Device Domain", 1, "mute");
    return isMute ? std::nullopt : std::optional<std::string>("ACME,M1,001,1.0");
  }
  bool write(const std::string&, QLTError*) override { return true; }
  bool close(QLTError*) override { return true; }

  bool isMute = false;
};

TEST_F(ReopenedInstrumentTest, MeterOnADeviceOfAnotherKindIsAskedOnly) {
  const auto device = std::make_shared<MuteDevice>();
  const auto meter = QLTScpiInstrument::initWithDevice(device);
  EXPECT_FALSE(meter->isLost());
  EXPECT_THAT(meter->where(), testing::EndsWith("MuteDevice"));
  EXPECT_TRUE(meter->reopen(&error_));
  EXPECT_THAT(error_, isUntouched());
  device->isMute = true;
  EXPECT_FALSE(meter->reopen());
  EXPECT_FALSE(meter->reopen(&error_));
  EXPECT_THAT(error_, test::IsError("Device Domain", 1, "mute"));
  EXPECT_EQ(meter->identityAtCreation(), "ACME,M1,001,1.0");
}

std::vector<std::string> revisions(const std::string& command) {
  if (command != "&1,0000") return {};
  return {"&1,F1.12,DP3.0,HD2.1,P1.8\n"};
}

TEST_F(ReopenedInstrumentTest, SerialUnitComesBackAndTellsItsRevisions) {
  QuickUnit unit(openPort(line_.path()));
  EXPECT_EQ(unit.where(), line_.path());
  EXPECT_FALSE(unit.isLost());
  line_.unplug();
  EXPECT_TRUE(unit.isLost());
  EXPECT_FALSE(unit.reopen(&error_));
  EXPECT_EQ(error_.code(), ENOENT);
  line_.plugIn();
  const test::Device device(line_.device(), revisions);
  error_ = test::earlierError();
  EXPECT_TRUE(unit.reopen(&error_));
  EXPECT_FALSE(unit.isLost());
  EXPECT_EQ(unit.revFPGA(), "F1.12");
  EXPECT_THAT(error_, isUntouched());
}

TEST_F(ReopenedInstrumentTest, SerialUnitThatAnswersWronglyIsNotBack) {
  QuickUnit unit(openPort(line_.path()));
  const test::Device device(line_.device(),
                            [](const std::string&) { return std::vector<std::string>{"?\n"}; });
  EXPECT_FALSE(unit.reopen());
  EXPECT_FALSE(unit.reopen(&error_));
  EXPECT_THAT(error_, test::IsError(QLTFrameworkErrorDomain, kQLTErrorDavDPReply,
                                    "no revisions from the DAVDP at " + line_.path()));
}

TEST_F(ReopenedInstrumentTest, EthernetUnitComesBackAndTellsItsRevisions) {
  constexpr int kPort = 9760;
  std::optional<test::TcpPeer> peer(kPort);
  auto socket = QLTSocket::init(test::TcpPeer::ownAddress(), kPort);
  ASSERT_TRUE(socket);
  std::optional<test::Endpoint> end(peer->accept());
  std::optional<test::Device> device;
  device.emplace(*end, revisions);
  const auto unit = QLTDavDPEther::initWithSocket(std::move(socket));
  ASSERT_TRUE(unit);
  EXPECT_EQ(unit->where(), test::TcpPeer::ownAddress() + ":9760");
  EXPECT_FALSE(unit->isLost());

  device.reset();
  end->close();
  peer->refuse();
  EXPECT_TRUE(test::eventually([&] { return unit->isLost(); }));
  EXPECT_FALSE(unit->reopen(&error_));
  EXPECT_EQ(error_.code(), ECONNREFUSED);
  EXPECT_TRUE(unit->isLost());

  peer.emplace(kPort);
  error_ = test::earlierError();
  std::jthread answering([&] {
    end.emplace(peer->accept());
    device.emplace(*end, [](const std::string& command) {
      auto answer = revisions(command);
      if (!answer.empty()) answer[0].replace(answer[0].find("F1.12"), 5, "F1.13");
      return answer;
    });
  });
  EXPECT_TRUE(unit->reopen(&error_));
  answering.join();
  EXPECT_FALSE(unit->isLost());
  EXPECT_EQ(unit->revFPGA(), "F1.13");
  EXPECT_THAT(error_, isUntouched());
}

}  // namespace
