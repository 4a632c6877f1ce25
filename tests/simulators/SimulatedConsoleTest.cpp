#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QLTDiags.h>
#include <QLTSimSerial.h>

#include "SimulatorProcess.h"
#include "support/ConsoleLog.h"
#include "support/Errors.h"

namespace {

using test::IsError;
using test::SimulatorProcess;
using testing::ElementsAre;
using testing::Optional;
using namespace std::string_literals;

class SimulatedConsoleTest : public testing::Test {
 protected:
  const test::ConsoleLog log_;
};

TEST_F(SimulatedConsoleTest, AnswersItsDriverFromTheSampleFile) {
  const SimulatorProcess sim(
      {"console", "--pty", "--echo", "--replies", test::samplePath("console.replies")});
  const auto port = test::openPort(sim.readPath());
  const auto diags = QLTDiags::initWithPort(port);
  ASSERT_TRUE(diags);

  EXPECT_TRUE(diags->open());
  EXPECT_THAT(diags->sendCommand("version"),
              Optional(ElementsAre("version", "firmware 2.4.1", "bootloader 1.7", ":-)")));
  EXPECT_THAT(diags->sendCommand("adc 3V3"),
              Optional(ElementsAre("adc 3V3", "3V3 3.318 V", ":-)")));
  EXPECT_THAT(diags->sendCommand("adc"),
              Optional(ElementsAre("adc", "ERR unknown command", ":-)")));
}

TEST_F(SimulatedConsoleTest, EchoesNothingUnlessTold) {
  const SimulatorProcess sim({"console", "--pty"}, "\"version\" -> \"1.2\"\n");
  const auto diags = QLTDiags::initWithPort(test::openPort(sim.readPath()));
  ASSERT_TRUE(diags);

  EXPECT_TRUE(diags->open());
  EXPECT_THAT(diags->sendCommand("version"), Optional(ElementsAre("1.2", ":-)")));
}

TEST_F(SimulatedConsoleTest, AnswersAfterThePortWasClosedAndOpenedAgain) {
  const SimulatorProcess sim({"console", "--pty"}, "\"version\" -> \"1.2\"\n");
  const auto diags = QLTDiags::initWithPort(test::openPort(sim.readPath()));
  ASSERT_TRUE(diags);

  for (int i = 0; i < 3; ++i) {
    EXPECT_THAT(diags->sendCommand("version"), Optional(ElementsAre("1.2", ":-)")));
    EXPECT_TRUE(diags->resetCommunication());
  }
}

TEST_F(SimulatedConsoleTest, AnswersSeveralDriversOneAfterTheOther) {
  const SimulatorProcess sim({"console", "--pty"}, "\"version\" -> \"1.2\"\n");
  const std::string path = sim.readPath();

  for (int i = 0; i < 3; ++i) {
    const auto diags = QLTDiags::init(path);
    ASSERT_TRUE(diags);
    EXPECT_THAT(diags->sendCommand("version"), Optional(ElementsAre("1.2", ":-)")));
  }
}

TEST_F(SimulatedConsoleTest, SilenceMakesTheDriverTimeOut) {
  const SimulatorProcess sim({"console", "--pty", "--silent"});
  const auto diags = QLTDiags::initWithPort(test::openPort(sim.readPath()));
  ASSERT_TRUE(diags);
  diags->com()->setTimeOutInSeconds(0);
  diags->com()->open();
  diags->setTimeOutInSeconds(0.1);
  QLTError error;

  EXPECT_FALSE(diags->sendCommand("version", &error));
  EXPECT_EQ(error.code(), -10001);
  EXPECT_FALSE(diags->open(&error));
  EXPECT_EQ(error.code(), 15000);
}

TEST_F(SimulatedConsoleTest, PiecesOfAPromptReachTheDriverAsOneAnswer) {
  const SimulatorProcess sim({"console", "--pty", "--split", "1,4,6", "--pause", "20"},
                             "\"version\" -> \"1.2\"\n");
  const auto diags = QLTDiags::initWithPort(test::openPort(sim.readPath()));
  ASSERT_TRUE(diags);

  EXPECT_THAT(diags->sendCommand("version"), Optional(ElementsAre("1.2", ":-)")));
}

// Byte by byte, over TCP.

class SimulatedConsoleBytesTest : public testing::Test {
 protected:
  /// Sends `bytes` and gives what comes back in `count` bytes, and more if there is more.
  static std::string exchange(const SimulatorProcess& sim, const std::string& bytes,
                              std::size_t count) {
    const test::Endpoint line = test::connectTo(sim.readPort());
    EXPECT_TRUE(line.send(bytes));
    const std::string reply = line.receive(count);
    return reply + line.receivePending();
  }
};

TEST_F(SimulatedConsoleBytesTest, EveryLineEndsInCrLfAndThePromptDoesNot) {
  const SimulatorProcess sim({"console", "--tcp", "0"}, "\"help\" -> \"a\" \"b\"\n");

  EXPECT_EQ(exchange(sim, "help\n", 9), "a\r\nb\r\n:-)");
}

TEST_F(SimulatedConsoleBytesTest, AnEmptyLineIsAnsweredWithThePromptAlone) {
  const SimulatorProcess sim({"console", "--tcp", "0"});

  EXPECT_EQ(exchange(sim, "\n", 3), ":-)");
}

TEST_F(SimulatedConsoleBytesTest, AnUnknownCommandIsNamed) {
  const SimulatorProcess sim({"console", "--tcp", "0"});

  EXPECT_EQ(exchange(sim, "dance\n", 31), "ERR unknown command: dance\r\n:-)");
}

TEST_F(SimulatedConsoleBytesTest, CarriageReturnLineFeedAndThePairEndALineOnce) {
  const SimulatorProcess sim({"console", "--tcp", "0"}, "\"a\" -> \"A\"\n");

  EXPECT_EQ(exchange(sim, "a\ra\na\r\na\n\n", 27), "A\r\n:-)A\r\n:-)A\r\n:-)A\r\n:-):-)");
}

TEST_F(SimulatedConsoleBytesTest, EchoComesBeforeTheReply) {
  const SimulatorProcess sim({"console", "--tcp", "0", "--echo"}, "\"a\" -> \"A\"\n");

  EXPECT_EQ(exchange(sim, "a\n\n", 14), "a\r\nA\r\n:-)\r\n:-)");
}

TEST_F(SimulatedConsoleBytesTest, EchoDoesNotWaitForTheEndOfTheLine) {
  const SimulatorProcess sim({"console", "--tcp", "0", "--echo"});

  EXPECT_EQ(exchange(sim, "ver", 3), "ver");
}

TEST_F(SimulatedConsoleBytesTest, PromptAndLineEndCanBeChosen) {
  const SimulatorProcess sim({"console", "--tcp", "0", "--prompt", "\\x01> ", "--line-end", "lf"},
                             "\"a\" -> \"A\"\n");

  EXPECT_EQ(exchange(sim, "a\n", 5), "A\n\x01> ");
}

}  // namespace
