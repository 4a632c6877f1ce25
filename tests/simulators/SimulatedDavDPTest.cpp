#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QLTDavDPEther.h>
#include <QLTDavDPSerial.h>

#include "SimulatorProcess.h"
#include "support/ConsoleLog.h"

namespace {

using test::SimulatorProcess;
using testing::Contains;
using testing::ElementsAre;
using testing::Optional;

class SimulatedDavDPTest : public testing::Test {
 protected:
  static std::shared_ptr<QLTDavDPEther> unitOver(const SimulatorProcess& sim) {
    return QLTDavDPEther::initWithSocket(QLTSocket::init("127.0.0.1", sim.readPort()));
  }

  const test::ConsoleLog log_;
};

TEST_F(SimulatedDavDPTest, AnswersItsDriverOverTcpFromTheSampleFile) {
  const SimulatorProcess sim(
      {"davdp", "--tcp", "0", "--replies", test::samplePath("davdp.replies")});

  const auto unit = unitOver(sim);

  ASSERT_TRUE(unit);
  EXPECT_EQ(unit->revFPGA(), "F1.12");
  EXPECT_EQ(unit->revDPRx(), "DP3.0");
  EXPECT_EQ(unit->revHDMIRx(), "HD2.1");
  EXPECT_EQ(unit->revPIC(), "P1.8");
  EXPECT_THAT(unit->sendCommand("&7,0001", 5), Optional(ElementsAre("&7", "0001", "P")));
  EXPECT_THAT(unit->sendCommand("&7,0002", 5), Optional(ElementsAre("&7", "0002", "F")));
}

TEST_F(SimulatedDavDPTest, AnswersItsDriverOverASerialLineOnceItIsAwake) {
  const SimulatorProcess sim({"davdp", "--pty"}, "\"&7,0001\" -> \"&7,0001,P\"\n");

  const auto unit = QLTDavDPSerial::initWithPort(test::openPort(sim.readPath()));

  ASSERT_TRUE(unit);
  EXPECT_EQ(unit->revFPGA(), "F1.0");
  EXPECT_EQ(unit->revDPRx(), "DP1.0");
  EXPECT_EQ(unit->revHDMIRx(), "HD1.0");
  EXPECT_EQ(unit->revPIC(), "P1.0");
  EXPECT_THAT(unit->sendCommand("&7,0001", 5), Optional(ElementsAre("&7", "0001", "P")));
}

TEST_F(SimulatedDavDPTest, HasAVersionOfItsOwnAndKnowsNoOtherCommand) {
  const SimulatorProcess sim({"davdp", "--tcp", "0"});

  const auto unit = unitOver(sim);

  ASSERT_TRUE(unit);
  EXPECT_EQ(unit->revFPGA(), "F1.0");
  EXPECT_THAT(unit->sendCommand("&9", 5), Optional(ElementsAre("ERR", "unknown command")));
}

TEST_F(SimulatedDavDPTest, AVersionReplyOfFourFieldsIsRefusedByTheDriver) {
  const SimulatorProcess sim({"davdp", "--tcp", "0"}, "\"&1,0000\" -> \"&1,1,2,3\"\n");

  EXPECT_FALSE(unitOver(sim));
  EXPECT_THAT(log_.lines(), Contains(testing::StartsWith("unexpected result from &1 ")));
}

// Byte by byte.

TEST(SimulatedDavDPBytesTest, ASleepingUnitHearsNothingUntilTheWakeUp) {
  const SimulatorProcess sim({"davdp", "--pty"});
  const test::Endpoint line = test::openTerminal(sim.readPath());

  EXPECT_TRUE(line.send("&1,0000\n&1,0000\n@&9\n&8\n"));

  EXPECT_EQ(line.receiveUntil('\n'), "ERR,unknown command\r\n");
  EXPECT_EQ(line.receiveUntil('\n'), "ERR,unknown command\r\n");
  EXPECT_EQ(line.receivePending(), "");
}

TEST(SimulatedDavDPBytesTest, TheWakeUpIsNoPartOfTheCommandBehindIt) {
  const SimulatorProcess sim({"davdp", "--pty"});
  const test::Endpoint line = test::openTerminal(sim.readPath());

  EXPECT_TRUE(line.send("@@&1,0000\n"));
  EXPECT_EQ(line.receiveUntil('\n'), "&1,F1.0,DP1.0,HD1.0,P1.0\r\n");
  EXPECT_TRUE(line.send("noise@&1,0000\n"));
  EXPECT_EQ(line.receiveUntil('\n'), "&1,F1.0,DP1.0,HD1.0,P1.0\r\n");
}

TEST(SimulatedDavDPBytesTest, EmptyLinesAreIgnored) {
  const SimulatorProcess sim({"davdp", "--tcp", "0"});
  const test::Endpoint line = test::connectTo(sim.readPort());

  EXPECT_TRUE(line.send("\n\n&9\n"));

  EXPECT_EQ(line.receiveUntil('\n'), "ERR,unknown command\r\n");
  EXPECT_EQ(line.receivePending(), "");
}

TEST(SimulatedDavDPBytesTest, AUnitAtATerminalCanBeAwake) {
  const SimulatorProcess sim({"davdp", "--pty", "--awake"});
  const test::Endpoint line = test::openTerminal(sim.readPath());

  EXPECT_TRUE(line.send("&9\n"));

  EXPECT_EQ(line.receiveUntil('\n'), "ERR,unknown command\r\n");
}

TEST(SimulatedDavDPBytesTest, AUnitThatWasAwaySleepsAgain) {
  const SimulatorProcess sim({"davdp", "--tcp", "0", "--asleep"},
                             "\"&5\" -> \"bye\" hang-up 3 away 0\n");
  const std::uint16_t port = sim.readPort();
  const test::Endpoint first = test::connectTo(port);
  EXPECT_TRUE(first.send("@&5\n"));
  EXPECT_EQ(first.receive(100), "bye");

  const test::Endpoint second = test::connectLater(port);
  EXPECT_TRUE(second.send("&1,0000\n@&9\n"));

  EXPECT_EQ(second.receiveUntil('\n'), "ERR,unknown command\r\n");
}

TEST(SimulatedDavDPBytesTest, ALostConnectionAloneDoesNotSendItToSleep) {
  const SimulatorProcess sim({"davdp", "--tcp", "0", "--asleep"});
  const std::uint16_t port = sim.readPort();
  test::Endpoint first = test::connectTo(port);
  EXPECT_TRUE(first.send("@&9\n"));
  EXPECT_EQ(first.receiveUntil('\n'), "ERR,unknown command\r\n");
  first.close();

  const test::Endpoint second = test::connectTo(port);
  EXPECT_TRUE(second.send("&1,0000\n"));

  EXPECT_EQ(second.receiveUntil('\n'), "&1,F1.0,DP1.0,HD1.0,P1.0\r\n");
}

}  // namespace
