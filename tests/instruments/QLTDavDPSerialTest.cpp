#include <QLTDavDPSerial.h>

#include <chrono>
#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QLTSimSerial.h>
#include <QLTUtil.h>

#include "support/ConsoleLog.h"
#include "support/Errors.h"
#include "support/Pty.h"
#include "support/ScriptedPort.h"

namespace {

using test::earlierError;
using test::IsError;
using test::isUntouched;
using test::ScriptedPort;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Optional;

const char* const kWakeUpLine = "sending @ to init communication with DAVDP /dev/scripted";

/// A unit that is neither woken nor asked for its revisions when it is made, so it is there at
/// once.
class QuickUnit : public QLTDavDPSerial {
 public:
  explicit QuickUnit(std::shared_ptr<QLTSerial> port) : QLTDavDPSerial(std::move(port)) {}
};

class QLTDavDPSerialTest : public ::testing::Test {
 protected:
  const test::ConsoleLog log;
  std::shared_ptr<ScriptedPort> port = std::make_shared<ScriptedPort>();
};

TEST_F(QLTDavDPSerialTest, CreationWakesTheUnitAndAsksForItsRevisions) {
  port->replies = {"P,1.1,2.2,3.3,4.4\r\n"};
  const auto start = std::chrono::steady_clock::now();

  const auto unit = QLTDavDPSerial::initWithPort(port);

  ASSERT_TRUE(unit);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  EXPECT_THAT(port->calls, ElementsAre("flush", "write @", "write &1,0000\n", "readLine 5"));
  EXPECT_THAT(log.lines(),
              ElementsAre(kWakeUpLine, "{DAVDP_Read /dev/scripted}: P,1.1,2.2,3.3,4.4"));
  EXPECT_EQ(unit->com(), port);
  EXPECT_EQ(unit->timeOutInSeconds(), 5.0);
  EXPECT_EQ(unit->revFPGA(), "1.1");
  EXPECT_EQ(unit->revDPRx(), "2.2");
  EXPECT_EQ(unit->revHDMIRx(), "3.3");
  EXPECT_EQ(unit->revPIC(), "4.4");
}

TEST_F(QLTDavDPSerialTest, CreationFailsAndGivesThePortBackWhenTheUnitIsSilent) {
  EXPECT_FALSE(QLTDavDPSerial::initWithPort(port));

  EXPECT_THAT(log.lines(), ElementsAre(kWakeUpLine, "nil string returned from DAVDP",
                                       "error sending &1 to DAVDP"));
  EXPECT_EQ(port.use_count(), 1);
}

TEST_F(QLTDavDPSerialTest, CreationFailsOnAnOddVersionReply) {
  port->replies = {"P,1,2,3\n"};

  EXPECT_FALSE(QLTDavDPSerial::initWithPort(port));

  EXPECT_THAT(log.lines().back(), ::testing::StartsWith("unexpected result from &1 "));
}

TEST_F(QLTDavDPSerialTest, CreationGivesNoneForNoPort) {
  EXPECT_FALSE(QLTDavDPSerial::initWithPort(nullptr));
}

TEST_F(QLTDavDPSerialTest, PortThatCannotBeFlushedGetsNoWakeUp) {
  port->flushFails = true;
  port->replies = {"P,1,2,3,4\n"};

  const auto unit = QLTDavDPSerial::initWithPort(port);

  ASSERT_TRUE(unit);
  EXPECT_THAT(port->calls, ElementsAre("flush", "write &1,0000\n", "readLine 5"));
  EXPECT_EQ(log.lines().front(), "error flushing buffer of serial port /dev/scripted:flush failed");
}

TEST_F(QLTDavDPSerialTest, InitCommReportsAFailedFlush) {
  QuickUnit unit(port);
  port->flushFails = true;
  QLTError error = earlierError();

  unit.initComm(&error);

  EXPECT_THAT(error, IsError("Port Domain", 5, "flush failed"));
  EXPECT_THAT(port->calls, ElementsAre("flush"));
}

TEST_F(QLTDavDPSerialTest, InitCommIgnoresAFailedWriteAndReadsNothing) {
  QuickUnit unit(port);
  port->writeFails = true;
  QLTError error = earlierError();

  unit.initComm(&error);

  EXPECT_THAT(port->calls, ElementsAre("flush", "write @"));
  EXPECT_THAT(error, isUntouched());
  EXPECT_THAT(log.lines(), ElementsAre(kWakeUpLine));
}

TEST_F(QLTDavDPSerialTest, SendCommandExchangesOneLine) {
  QuickUnit unit(port);
  port->replies = {"\r\n OK,P,1.2 \r\n"};
  QLTError error = earlierError();

  EXPECT_THAT(unit.sendCommand("&7,0001", 3, &error), Optional(ElementsAre("OK", "P", "1.2")));

  EXPECT_THAT(port->calls, ElementsAre("write &7,0001\n", "readLine 3"));
  EXPECT_THAT(log.lines(), ElementsAre("{DAVDP_Read /dev/scripted}: OK,P,1.2"));
  EXPECT_THAT(error, isUntouched());
}

TEST_F(QLTDavDPSerialTest, SendCommandThatCannotBeWrittenReadsNothing) {
  QuickUnit unit(port);
  port->writeFails = true;
  QLTError error = earlierError();

  EXPECT_EQ(unit.sendCommand("&7,0001", 3, &error), std::nullopt);
  EXPECT_EQ(unit.sendCommand("&7,0001", 3), std::nullopt);

  EXPECT_THAT(error, IsError("Port Domain", 5, "write failed"));
  EXPECT_THAT(port->calls, ElementsAre("write &7,0001\n", "write &7,0001\n"));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(QLTDavDPSerialTest, FailedReadGivesNoneAndThePortsError) {
  QuickUnit unit(port);
  QLTError error = earlierError();

  EXPECT_EQ(unit.sendCommand("&7,0001", 3, &error), std::nullopt);
  EXPECT_EQ(unit.sendCommand("&7,0001", 3), std::nullopt);

  EXPECT_THAT(error, IsError("Port Domain", 5, "read failed"));
  EXPECT_THAT(log.lines(),
              ElementsAre("nil string returned from DAVDP", "nil string returned from DAVDP"));
  QLTError checked = earlierError();
  EXPECT_FALSE(unit.checkReturn(unit.sendCommand("&7,0001", 3), 1, &checked));
  EXPECT_THAT(checked, isUntouched());
}

TEST_F(QLTDavDPSerialTest, ResetCommunicationReopensAndWakesTheUnitOnly) {
  QuickUnit unit(port);
  port->closeFails = true;
  QLTError error = earlierError();

  EXPECT_TRUE(unit.resetCommunication(&error));

  EXPECT_THAT(port->calls, ElementsAre("close", "open", "flush", "write @"));
  EXPECT_THAT(error, isUntouched());
}

TEST_F(QLTDavDPSerialTest, ResetCommunicationSucceedsWhenTheWakeUpDoesNot) {
  QuickUnit unit(port);
  port->flushFails = true;
  QLTError error = earlierError();

  EXPECT_TRUE(unit.resetCommunication(&error));

  EXPECT_THAT(error, isUntouched());
  EXPECT_THAT(log.lines(),
              ElementsAre("error flushing buffer of serial port /dev/scripted:flush failed"));
}

TEST_F(QLTDavDPSerialTest, ResetCommunicationFailsWhenThePortDoesNotOpen) {
  QuickUnit unit(port);
  port->openFails = true;
  QLTError error = earlierError();

  EXPECT_FALSE(unit.resetCommunication(&error));
  EXPECT_FALSE(unit.resetCommunication());

  EXPECT_THAT(error, IsError("Port Domain", 5, "open failed"));
  EXPECT_THAT(port->calls, ElementsAre("close", "open", "close", "open"));
}

TEST_F(QLTDavDPSerialTest, DestructionReleasesThePortWithoutClosingIt) {
  { QuickUnit unit(port); }

  EXPECT_EQ(port.use_count(), 1);
  EXPECT_THAT(port->calls, IsEmpty());
}

TEST_F(QLTDavDPSerialTest, LineSettingsAreThoseOfTheUnit) {
  QLTDavDPSerial::setUpLine(*port);

  EXPECT_EQ(port->baudRate(), 19200u);
  EXPECT_EQ(port->interCharDelayInMicroSeconds(), 3000u);
  EXPECT_EQ(port->timeOutInSeconds(), 2u);
  EXPECT_EQ(port->parity(), 0);
  EXPECT_EQ(port->byteSize(), 3);
  EXPECT_EQ(port->stopBits(), 0);
}

TEST_F(QLTDavDPSerialTest, DeviceThatIsMissingGivesNoneAndALine) {
  EXPECT_FALSE(QLTDavDPSerial::init("/dev/quillon-no-such-device"));

  EXPECT_EQ(log.lines().back(), "error opening comport for diag: No such file or directory");
}

TEST_F(QLTDavDPSerialTest, SimulatedUnitAnswersTheVersionQuery) {
  QLTSimSerial::setResponseMap({{"&1,0000\n", "P,1,2,3,4\r\n"}});
  const auto sim = std::make_shared<QLTSimSerial>("/dev/sim");
  ASSERT_TRUE(sim->open());

  const auto unit = QLTDavDPSerial::initWithPort(sim);

  ASSERT_TRUE(unit);
  EXPECT_EQ(unit->revPIC(), "4");
}

std::vector<std::string> unitAnswer(const std::string& line) {
  if (line == "@&1,0000") return {"P,1.1,2.", "2,3.3,4.4\r\n"};
  if (line == "&7,0001") return {"OK,P,1.2\r\n"};
  return {"?\r\n"};
}

TEST(QLTDavDPSerialOnAPtyTest, InitOpensTheLineWithTheUnitsSettingsAndWakesIt) {
  test::Pty pty;
  const test::Device device(pty.master(), unitAnswer);
  const std::size_t descriptors = test::openDescriptors();

  auto unit = QLTDavDPSerial::init(pty.path());

  ASSERT_TRUE(unit);
  EXPECT_EQ(pty.lineSpeed(), 19200u);
  EXPECT_EQ(unit->com()->interCharDelayInMicroSeconds(), 3000u);
  EXPECT_EQ(unit->revFPGA(), "1.1");
  EXPECT_EQ(unit->revDPRx(), "2.2");
  EXPECT_EQ(unit->revHDMIRx(), "3.3");
  EXPECT_EQ(unit->revPIC(), "4.4");
  EXPECT_THAT(unit->sendCommand("&7,0001", 5), Optional(ElementsAre("OK", "P", "1.2")));
  EXPECT_EQ(unit->com().use_count(), 1);
  unit.reset();
  EXPECT_EQ(test::openDescriptors(), descriptors);
}

TEST(QLTDavDPSerialOnAPtyTest, WhatTheUnitSentBeforeTheWakeUpIsDiscarded) {
  test::Pty pty;
  const auto port = std::make_shared<QLTSerial>(pty.path());
  ASSERT_TRUE(port->open());
  pty.master().send("power on\r\n");
  const test::Device device(pty.master(), unitAnswer);

  const auto unit = QLTDavDPSerial::initWithPort(port);

  ASSERT_TRUE(unit);
  EXPECT_EQ(unit->revFPGA(), "1.1");
}

TEST(QLTDavDPSerialOnAPtyTest, SilentUnitIsATimeOut) {
  test::Pty pty;
  const auto port = std::make_shared<QLTSerial>(pty.path());
  port->setTimeOutInSeconds(0);
  ASSERT_TRUE(port->open());
  QuickUnit unit(port);
  QLTError error = earlierError();

  EXPECT_EQ(unit.sendCommand("&7,0001", 0, &error), std::nullopt);

  EXPECT_THAT(error,
              IsError(QLTFrameworkErrorDomain, -10001, "timeout trying to read from serial port"));
  EXPECT_EQ(pty.master().receivePending(), "&7,0001\n");
}

TEST(QLTDavDPSerialOnAPtyTest, ResetCommunicationSendsTheWakeUpCharacterAlone) {
  test::Pty pty;
  const auto port = std::make_shared<QLTSerial>(pty.path());
  ASSERT_TRUE(port->open());
  QuickUnit unit(port);

  EXPECT_TRUE(unit.resetCommunication());

  EXPECT_EQ(pty.master().receivePending(), "@");
}

}  // namespace
