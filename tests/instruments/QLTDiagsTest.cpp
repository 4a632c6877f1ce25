#include <QLTDiags.h>

#include <chrono>
#include <limits>
#include <memory>
#include <string>
#include <vector>

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
using ::testing::Not;
using ::testing::Optional;

class QLTDiagsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    diags = QLTDiags::initWithPort(port);
    ASSERT_TRUE(diags);
  }

  const test::ConsoleLog log;
  std::shared_ptr<ScriptedPort> port = std::make_shared<ScriptedPort>();
  std::shared_ptr<QLTDiags> diags;
};

TEST_F(QLTDiagsTest, InitWithPortSendsNothing) {
  EXPECT_EQ(diags->com(), port);
  EXPECT_EQ(diags->timeOutInSeconds(), 12.0);
  EXPECT_THAT(port->calls, IsEmpty());
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(QLTDiagsTest, InitWithPortGivesNoneForNoPort) {
  EXPECT_FALSE(QLTDiags::initWithPort(nullptr));
}

TEST_F(QLTDiagsTest, DestructionReleasesThePortWithoutClosingIt) {
  EXPECT_EQ(port.use_count(), 2);

  diags.reset();

  EXPECT_EQ(port.use_count(), 1);
  EXPECT_THAT(port->calls, IsEmpty());
}

TEST_F(QLTDiagsTest, TimeOutCanBeSet) {
  diags->setTimeOutInSeconds(0.25);

  EXPECT_EQ(diags->timeOutInSeconds(), 0.25);
}

TEST_F(QLTDiagsTest, SendCommandWritesTheLineAndReadsUpTo5000Characters) {
  port->replies = {"version\r\n1.2\r\n:-)"};
  QLTError error = earlierError();

  EXPECT_THAT(diags->sendCommand("version", &error),
              Optional(ElementsAre("version", "1.2", ":-)")));

  EXPECT_THAT(port->calls, ElementsAre("write version\n", "read 5000"));
  EXPECT_THAT(error, isUntouched());
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(QLTDiagsTest, SendCommandAssemblesAnAnswerOfSeveralReads) {
  port->replies = {"O", "", "K\n:", "", "-)", "behind the prompt"};

  EXPECT_THAT(diags->sendCommand("go"), Optional(ElementsAre("OK", ":-)")));

  EXPECT_THAT(port->replies, ElementsAre("behind the prompt"));
}

TEST_F(QLTDiagsTest, SendCommandStopsAtAPromptOfThreeCharacters) {
  port->replies = {":-", ")", "behind the prompt"};

  EXPECT_THAT(diags->sendCommand(""), Optional(ElementsAre(":-)")));

  EXPECT_THAT(port->replies, ElementsAre("behind the prompt"));
}

TEST_F(QLTDiagsTest, SendCommandKeepsEmptyLines) {
  port->replies = {"\r\nOK\r\n:-)", "\n\n\n:-)", "x\n:-)\n"};

  EXPECT_THAT(diags->sendCommand("a"), Optional(ElementsAre("", "OK", ":-)")));
  EXPECT_THAT(diags->sendCommand("b"), Optional(ElementsAre("", "", "", ":-)")));
  EXPECT_THAT(diags->sendCommand("c"), Optional(ElementsAre("x", ":-)", "")));
}

TEST_F(QLTDiagsTest, SendCommandTrimsBlanksFromTheWholeAndLineEndsFromEachLine) {
  port->replies = {" \t one \r\n\v\f\r two\t\f\v\r\nthr\ree\n:-) \t "};

  EXPECT_THAT(diags->sendCommand("go"), Optional(ElementsAre("one ", " two\t", "thr\ree", ":-)")));
}

TEST_F(QLTDiagsTest, SendCommandTrimsNoBlanksBehindALineEnd) {
  port->replies = {"\n x\n:-)\t\n"};

  EXPECT_THAT(diags->sendCommand("go"), Optional(ElementsAre("", " x", ":-)\t", "")));
}

TEST_F(QLTDiagsTest, SendCommandDoesNotCutBehindThePrompt) {
  port->replies = {"a :-) b\nc"};

  EXPECT_THAT(diags->sendCommand("go"), Optional(ElementsAre("a :-) b", "c")));
}

TEST_F(QLTDiagsTest, CommandsShareNoState) {
  port->replies = {"one\n:-)", "two\n:-)"};

  EXPECT_THAT(diags->sendCommand("1"), Optional(ElementsAre("one", ":-)")));
  EXPECT_THAT(diags->sendCommand("2"), Optional(ElementsAre("two", ":-)")));
}

TEST_F(QLTDiagsTest, FailedWriteGivesThePortsErrorAndReadsNothing) {
  port->writeFails = true;
  QLTError error = earlierError();

  EXPECT_EQ(diags->sendCommand("go", &error), std::nullopt);
  EXPECT_EQ(diags->sendCommand("go"), std::nullopt);

  EXPECT_THAT(error, IsError("Port Domain", 5, "write failed"));
  EXPECT_THAT(port->calls, ElementsAre("write go\n", "write go\n"));
}

TEST_F(QLTDiagsTest, FailedReadDoesNotEndTheWaitAndItsErrorRemains) {
  port->replies = {"OK\n", std::nullopt, std::nullopt, ":-)"};
  QLTError error = earlierError();

  EXPECT_THAT(diags->sendCommand("go", &error), Optional(ElementsAre("OK", ":-)")));

  EXPECT_THAT(error, IsError("Port Domain", 5, "read failed"));
  port->replies = {std::nullopt, ":-)"};
  EXPECT_THAT(diags->sendCommand("go"), Optional(ElementsAre(":-)")));
}

TEST_F(QLTDiagsTest, SlotThatHoldsAnErrorIsNotTakenForAFailure) {
  port->replies = {"", ":-)"};
  QLTError error = earlierError();

  EXPECT_TRUE(diags->open(&error));

  EXPECT_THAT(error, isUntouched());
}

TEST_F(QLTDiagsTest, NoPromptInTimeIsATimeOut) {
  diags->setTimeOutInSeconds(0.05);
  port->replies = {"OK\n:-", std::nullopt};
  QLTError error = earlierError();
  const auto start = std::chrono::steady_clock::now();

  EXPECT_EQ(diags->sendCommand("go", &error), std::nullopt);

  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));
  EXPECT_THAT(error, IsError(QLTFrameworkErrorDomain, -10001, "timeout trying to read from diags"));
  EXPECT_THAT(log.lines(),
              ElementsAre("timeout reading from diags",
                          "error number is: timeout trying to read from diags (-10001)\n"));
  EXPECT_EQ(diags->sendCommand("go"), std::nullopt);
  EXPECT_EQ(log.lines().size(), 4u);
}

TEST_F(QLTDiagsTest, WaitPausesBeforeEachRead) {
  diags->setTimeOutInSeconds(0.05);

  EXPECT_EQ(diags->sendCommand("go"), std::nullopt);

  EXPECT_EQ(port->calls.front(), "write go\n");
  EXPECT_LE(port->calls.size(), 1u + 6u);  // one read in 10 ms, the last when the time has passed
}

TEST_F(QLTDiagsTest, TimeOutThatIsNoNumberEndsTheWait) {
  diags->setTimeOutInSeconds(std::numeric_limits<double>::quiet_NaN());

  EXPECT_EQ(diags->sendCommand("go"), std::nullopt);
}

TEST_F(QLTDiagsTest, HandshakeSendsOneBareLineEnd) {
  port->replies = {"\n:-)"};
  QLTError error = earlierError();

  EXPECT_TRUE(diags->open(&error));

  EXPECT_THAT(port->calls, ElementsAre("write \n", "read 5000"));
  EXPECT_THAT(error, isUntouched());
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(QLTDiagsTest, HandshakeFailsWhenTheLastLineIsNotThePrompt) {
  for (const char* answer : {":-)\n", ":-)\r\n", "> :-)", ":-) >", ":-)\nx"}) {
    port->replies = {answer};
    QLTError error = earlierError();
    EXPECT_FALSE(diags->open(&error)) << answer;
    EXPECT_THAT(error, IsError(QLTFrameworkErrorDomain, 15000, "No diags prompot found")) << answer;
    EXPECT_EQ(log.lines().back(), "error number is: No diags prompot found (15000)\n") << answer;
  }
  port->replies = {":-)\n"};
  EXPECT_FALSE(diags->open());
}

TEST_F(QLTDiagsTest, HandshakeWithASilentDeviceReportsTheMissingPromptInPlaceOfTheTimeOut) {
  diags->setTimeOutInSeconds(0.02);
  QLTError error;

  EXPECT_FALSE(diags->open(&error));

  EXPECT_THAT(error, IsError(QLTFrameworkErrorDomain, 15000, "No diags prompot found"));
  EXPECT_FALSE(error.underlyingError());
  EXPECT_THAT(log.lines(),
              ElementsAre("timeout reading from diags",
                          "error number is: timeout trying to read from diags (-10001)\n",
                          "error number is: No diags prompot found (15000)\n"));
}

TEST_F(QLTDiagsTest, HandshakeReportsTheMissingPromptInPlaceOfAFailedWrite) {
  port->writeFails = true;
  QLTError error;

  EXPECT_FALSE(diags->open(&error));

  EXPECT_THAT(error, IsError(QLTFrameworkErrorDomain, 15000, "No diags prompot found"));
}

TEST_F(QLTDiagsTest, ResetCommunicationReopensThePortWithoutAHandshake) {
  QLTError error = earlierError();

  EXPECT_TRUE(diags->resetCommunication(&error));

  EXPECT_THAT(port->calls, ElementsAre("close", "open"));
  EXPECT_THAT(error, isUntouched());
}

TEST_F(QLTDiagsTest, ResetCommunicationReportsThatThePortDoesNotOpen) {
  port->openFails = true;
  QLTError error = earlierError();

  EXPECT_FALSE(diags->resetCommunication(&error));
  EXPECT_FALSE(diags->resetCommunication());

  EXPECT_THAT(error, IsError("Port Domain", 5, "open failed"));
}

TEST_F(QLTDiagsTest, ResetCommunicationSucceedsWhateverClosingReports) {
  port->closeFails = true;
  QLTError error = earlierError();

  EXPECT_TRUE(diags->resetCommunication(&error));

  EXPECT_THAT(port->calls, ElementsAre("close", "open"));
  EXPECT_THAT(error, isUntouched());
}

TEST(QLTDiagsOnASimulatedPortTest, FindsItsPromptInTheFallbackReply) {
  QLTSimSerial::setResponseMap({});
  const auto port = std::make_shared<QLTSimSerial>("/dev/sim");
  ASSERT_TRUE(port->open());
  const auto diags = QLTDiags::initWithPort(port);

  EXPECT_TRUE(diags->open());
  EXPECT_THAT(diags->sendCommand("anything"), Optional(ElementsAre("", ":-)")));
}

TEST(QLTDiagsOnASimulatedPortTest, WaitsForAReplyThatIsHeldBack) {
  QLTSimSerial::setResponseMap({{"temp\n", "temp\r\n41\r\n:-)"}});
  const auto port = std::make_shared<QLTSimSerial>("/dev/sim");
  ASSERT_TRUE(port->open());
  port->setDelayTimeInSeconds(0.05);
  const auto diags = QLTDiags::initWithPort(port);

  EXPECT_THAT(diags->sendCommand("temp"), Optional(ElementsAre("temp", "41", ":-)")));
}

TEST(QLTDiagsOnASimulatedPortTest, ClosedPortFailsTheCommand) {
  const auto diags = QLTDiags::initWithPort(std::make_shared<QLTSimSerial>("/dev/sim"));
  QLTError error;

  EXPECT_EQ(diags->sendCommand("temp", &error), std::nullopt);

  EXPECT_THAT(error, IsError(QLTFrameworkErrorDomain, -10000, "sim serial port is not open!"));
}

std::vector<std::string> consoleAnswer(const std::string& command) {
  if (command.empty()) return {"\r\n:-)"};
  return {command + "\r", "\nOK\r\n", ":", "-)"};
}

TEST(QLTDiagsOnAPtyTest, InitOpensThePortAndSendsNothing) {
  test::Pty pty;
  const std::size_t descriptors = test::openDescriptors();

  auto diags = QLTDiags::init(pty.path());

  ASSERT_TRUE(diags);
  EXPECT_EQ(diags->com()->bsdPath(), pty.path());
  EXPECT_EQ(diags->com()->baudRate(), 115200u);
  EXPECT_EQ(pty.lineSpeed(), 115200u);
  EXPECT_EQ(diags->timeOutInSeconds(), 12.0);
  EXPECT_EQ(diags->com().use_count(), 1);
  EXPECT_EQ(pty.master().receivePending(), "");
  diags.reset();
  EXPECT_EQ(test::openDescriptors(), descriptors);
}

TEST(QLTDiagsOnAPtyTest, InitOnAMissingDeviceGivesNoneAndALine) {
  const test::ConsoleLog log;

  EXPECT_FALSE(QLTDiags::init("/dev/quillon-no-such-device"));

  EXPECT_EQ(log.lines().back(), "error opening comport for diag: No such file or directory");
}

TEST(QLTDiagsOnAPtyTest, TalksToAConsoleThatEchoesInPieces) {
  test::Pty pty;
  const test::Device device(pty.master(), consoleAnswer);
  const auto diags = QLTDiags::init(pty.path());
  ASSERT_TRUE(diags);
  QLTError error = earlierError();

  EXPECT_TRUE(diags->open(&error));
  EXPECT_THAT(diags->sendCommand("version", &error), Optional(ElementsAre("version", "OK", ":-)")));
  EXPECT_TRUE(diags->resetCommunication(&error));
  EXPECT_THAT(diags->sendCommand("again", &error), Optional(ElementsAre("again", "OK", ":-)")));

  EXPECT_THAT(error, isUntouched());
}

TEST(QLTDiagsOnAPtyTest, SilentConsoleIsATimeOut) {
  test::Pty pty;
  const auto port = std::make_shared<QLTSerial>(pty.path());
  port->setTimeOutInSeconds(0);
  ASSERT_TRUE(port->open());
  const auto diags = QLTDiags::initWithPort(port);
  diags->setTimeOutInSeconds(0.05);
  QLTError error;

  EXPECT_EQ(diags->sendCommand("version", &error), std::nullopt);

  EXPECT_THAT(error, IsError(QLTFrameworkErrorDomain, -10001, "timeout trying to read from diags"));
  EXPECT_EQ(pty.master().receivePending(), "version\n");
}

TEST(QLTDiagsOnAPtyTest, LineThatIsGoneIsATimeOutToo) {
  test::Pty pty;
  const auto diags = QLTDiags::init(pty.path());
  ASSERT_TRUE(diags);
  diags->setTimeOutInSeconds(0.05);
  pty.master().close();
  QLTError error;

  EXPECT_EQ(diags->sendCommand("", &error), std::nullopt);

  EXPECT_THAT(error, IsError(QLTFrameworkErrorDomain, -10001, "timeout trying to read from diags"));
}

}  // namespace
