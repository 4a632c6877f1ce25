#include <chrono>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QLTDiags.h>
#include <QLTSerial.h>
#include <QLTSocket.h>

#include "SimulatorProcess.h"
#include "support/ConsoleLog.h"
#include "support/Errors.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using test::Endpoint;
using test::SimulatorProcess;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Optional;
using namespace std::string_literals;

/// A device that answers "a" with "hello" and CR LF as told, and "b" with "B" as it should be.
class SimulatorFaultsTest : public testing::TestWithParam<std::string> {
 protected:
  static std::string replies(const std::string& faults) {
    return "\"a\" -> \"hello\" " + faults + "\n\"b\" -> \"B\"\n";
  }
  static constexpr const char* kAnswerToB = "B\r\n";

  bool isPty() const { return GetParam() == "pty"; }
  std::vector<std::string> arguments() const {
    if (isPty()) return {"davdp", "--awake", "--pty"};
    return {"davdp", "--tcp", "0"};
  }
  Endpoint lineTo(const SimulatorProcess& sim) const {
    return isPty() ? test::openTerminal(sim.readPath()) : test::connectTo(sim.readPort());
  }
};

INSTANTIATE_TEST_SUITE_P(Over, SimulatorFaultsTest, testing::Values("pty", "tcp"),
                         [](const auto& transport) { return transport.param; });

TEST_P(SimulatorFaultsTest, WithoutAFaultTheReplyComesWhole) {
  const SimulatorProcess sim(arguments(), replies(""));
  const Endpoint line = lineTo(sim);

  EXPECT_TRUE(line.send("a\nb\n"));

  EXPECT_EQ(line.receive(10), "hello\r\nB\r\n");
}

TEST_P(SimulatorFaultsTest, ADelayComesBeforeTheReply) {
  const SimulatorProcess sim(arguments(), replies("delay 60"));
  const Endpoint line = lineTo(sim);
  const auto start = steady_clock::now();

  EXPECT_TRUE(line.send("a\n"));

  EXPECT_EQ(line.receive(1), "h");
  EXPECT_GE(steady_clock::now() - start, milliseconds(60));
  EXPECT_EQ(line.receive(6), "ello\r\n");
}

TEST_P(SimulatorFaultsTest, BytesComeOneByOneWithTheirDelay) {
  const SimulatorProcess sim(arguments(), replies("byte-delay 10"));
  const Endpoint line = lineTo(sim);
  const auto start = steady_clock::now();

  EXPECT_TRUE(line.send("a\n"));

  EXPECT_EQ(line.receive(7), "hello\r\n");
  EXPECT_GE(steady_clock::now() - start, milliseconds(60));
}

TEST_P(SimulatorFaultsTest, AByteDelayHoldsBackAllButTheFirst) {
  const SimulatorProcess sim(arguments(), replies("byte-delay 60000"));
  const Endpoint line = lineTo(sim);

  EXPECT_TRUE(line.send("a\n"));

  EXPECT_EQ(line.receive(1), "h");
  EXPECT_EQ(line.receivePending(), "");
}

TEST_P(SimulatorFaultsTest, ASplitReplyPausesAfterEachOfItsPieces) {
  for (std::size_t at = 1; at < 7; ++at) {
    const SimulatorProcess sim(arguments(), replies("pause 60000 split " + std::to_string(at)));
    const Endpoint line = lineTo(sim);

    EXPECT_TRUE(line.send("a\n"));

    EXPECT_EQ(line.receive(at), "hello\r\n"s.substr(0, at));
    EXPECT_EQ(line.receivePending(), "");
  }
}

TEST_P(SimulatorFaultsTest, ASplitReplyIsCompleteInTheEnd) {
  const SimulatorProcess sim(arguments(), replies("split 6,1,3,90 pause 5"));
  const Endpoint line = lineTo(sim);
  const auto start = steady_clock::now();

  EXPECT_TRUE(line.send("a\nb\n"));

  EXPECT_EQ(line.receive(10), "hello\r\nB\r\n");
  EXPECT_GE(steady_clock::now() - start, milliseconds(15));
}

TEST_P(SimulatorFaultsTest, GarbageOfAnyBytesComesBeforeTheReply) {
  const SimulatorProcess sim(arguments(), replies(R"(garbage "\x00\xff\x80?\"\r")"));
  const Endpoint line = lineTo(sim);

  EXPECT_TRUE(line.send("a\n"));

  EXPECT_EQ(line.receive(13), "\x00\xff\x80?\"\rhello\r\n"s);
}

TEST_P(SimulatorFaultsTest, AReplyHoldsAnyBytes) {
  const SimulatorProcess sim(arguments(), R"("a" -> "\x00x\0\x7f\xfe\n\t\\" # all of them)");
  const Endpoint line = lineTo(sim);

  EXPECT_TRUE(line.send("a\n"));

  EXPECT_EQ(line.receive(10), "\0x\0\x7f\xfe\n\t\\\r\n"s);
}

TEST_P(SimulatorFaultsTest, TheLineEndCanBeMissing) {
  const SimulatorProcess sim(arguments(), replies("no-end"));
  const Endpoint line = lineTo(sim);

  EXPECT_TRUE(line.send("a\nb\n"));

  EXPECT_EQ(line.receive(8), "helloB\r\n");
}

TEST_P(SimulatorFaultsTest, AFloodComesBeforeTheReply) {
  const SimulatorProcess sim(arguments(), replies("flood 70001"));
  const Endpoint line = lineTo(sim);

  EXPECT_TRUE(line.send("a\n"));

  EXPECT_EQ(line.receive(70001), std::string(70001, 'x'));
  EXPECT_EQ(line.receive(7), "hello\r\n");
}

TEST_P(SimulatorFaultsTest, AnEndlessFloodEndsWithItsPeer) {
  SimulatorProcess sim(
      [&] {
        auto all = arguments();
        all.insert(all.end(), {"--connections", "1"});
        return all;
      }(),
      replies("flood forever"));
  Endpoint line = lineTo(sim);

  EXPECT_TRUE(line.send("a\n"));
  EXPECT_EQ(line.receive(200000), std::string(200000, 'x'));
  line.close();

  EXPECT_EQ(sim.wait(), 0);
}

TEST_P(SimulatorFaultsTest, ASilentDeviceStillHearsTheNextCommand) {
  const SimulatorProcess sim(arguments(), replies("silent"));
  const Endpoint line = lineTo(sim);

  EXPECT_TRUE(line.send("a\nb\n"));

  EXPECT_EQ(line.receiveUntil('\n'), kAnswerToB);
}

TEST_P(SimulatorFaultsTest, HangsUpAfterAnyNumberOfBytes) {
  for (const std::size_t count : {0, 1, 4, 6, 7, 8}) {
    const SimulatorProcess sim(arguments(), replies("hang-up " + std::to_string(count)));
    const Endpoint line = lineTo(sim);

    EXPECT_TRUE(line.send("a\n"));

    EXPECT_EQ(line.receive(100), "hello\r\n"s.substr(0, count));
  }
}

TEST_P(SimulatorFaultsTest, FaultsCombine) {
  const SimulatorProcess sim(arguments(),
                             replies("garbage \"ab\" flood 3 split 1 pause 1 delay 1 hang-up 4"));
  const Endpoint line = lineTo(sim);

  EXPECT_TRUE(line.send("a\n"));

  EXPECT_EQ(line.receive(100), "xxxabhe");
}

TEST_P(SimulatorFaultsTest, OptionsAreFaultsOfEveryReplyThatNormalLifts) {
  std::vector<std::string> all = arguments();
  all.insert(all.end(), {"--garbage", "\\xfe", "--no-end"});
  const SimulatorProcess sim(all,
                             "\"a\" -> \"A\"\n\"b\" -> \"B\" normal\n"
                             "\"c\" -> \"C\" garbage \"!\"\n");
  const Endpoint line = lineTo(sim);

  EXPECT_TRUE(line.send("a\nb\nc\n&1,0000\n"));

  EXPECT_EQ(line.receive(32),
            "\xfe"
            "AB\r\n!C\xfe&1,F1.0,DP1.0,HD1.0,P1.0");
}

// Hanging up.

TEST(SimulatorHangUpTest, ATcpPeerCanConnectAgainAtOnce) {
  const SimulatorProcess sim({"davdp", "--tcp", "0"}, "\"a\" -> \"x\" hang-up 0\n");
  const std::uint16_t port = sim.readPort();

  for (int i = 0; i < 5; ++i) {
    const Endpoint line = test::connectTo(port);
    ASSERT_GE(line.descriptor(), 0);
    EXPECT_TRUE(line.send("a\n"));
    EXPECT_EQ(line.receive(1), "");
  }
}

TEST(SimulatorHangUpTest, WhileAwayATcpPortRefuses) {
  const SimulatorProcess sim({"davdp", "--tcp", "0"},
                             "\"a\" -> \"hello\" hang-up 2 away forever\n");
  const std::uint16_t port = sim.readPort();
  const Endpoint line = test::connectTo(port);

  EXPECT_TRUE(line.send("a\n"));
  EXPECT_EQ(line.receive(100), "he");

  EXPECT_LT(test::connectTo(port).descriptor(), 0);
}

TEST(SimulatorHangUpTest, ATcpPortComesBackLater) {
  const SimulatorProcess sim({"davdp", "--tcp", "0"}, "\"a\" -> \"A\" away 80\n\"b\" -> \"B\"\n");
  const std::uint16_t port = sim.readPort();
  const Endpoint line = test::connectTo(port);
  EXPECT_TRUE(line.send("a\n"));
  EXPECT_EQ(line.receive(100), "A\r\n");
  const auto start = steady_clock::now();

  const Endpoint again = test::connectLater(port);

  EXPECT_GE(steady_clock::now() - start, milliseconds(40));  // 80 from a little earlier on
  EXPECT_TRUE(again.send("b\n"));
  EXPECT_EQ(again.receive(3), "B\r\n");
}

TEST(SimulatorHangUpTest, APtyComesBackBehindItsLinkAndTheDriverRecovers) {
  const test::ConsoleLog log;
  const test::TemporaryFolder folder;
  const std::string link = folder.path() / "dut";
  const SimulatorProcess sim({"console", "--pty", "--link", link},
                             "\"reboot\" -> \"restarting\" hang-up 4 away 100\n\"v\" -> \"1\"\n");
  EXPECT_EQ(sim.readPath(), link);
  const auto diags = QLTDiags::initWithPort(test::openPort(link));
  ASSERT_TRUE(diags);
  diags->setTimeOutInSeconds(0.3);
  EXPECT_THAT(diags->sendCommand("v"), Optional(ElementsAre("1", ":-)")));

  QLTError error;
  EXPECT_FALSE(diags->sendCommand("reboot", &error));
  EXPECT_EQ(error.code(), -10001);
  const auto end = steady_clock::now() + std::chrono::seconds(10);
  while (!diags->resetCommunication() && steady_clock::now() < end) {
  }

  diags->setTimeOutInSeconds(5);
  EXPECT_THAT(diags->sendCommand("v"), Optional(ElementsAre("1", ":-)")));
}

TEST(SimulatorHangUpTest, WhileAwayThereIsNoLink) {
  const test::TemporaryFolder folder;
  const std::string link = folder.path() / "dut";
  const SimulatorProcess sim({"davdp", "--awake", "--pty", "--link", link},
                             "\"a\" -> away forever\n");
  const Endpoint line = test::openTerminal(sim.readPath());

  EXPECT_TRUE(line.send("a\n"));
  line.receive(100);

  EXPECT_FALSE(std::filesystem::is_symlink(link));
  EXPECT_LT(test::openTerminal(link).descriptor(), 0);
}

TEST(SimulatorHangUpTest, APtyThatHangsUpAnswersAtOnceOnANewTerminal) {
  const test::TemporaryFolder folder;
  const std::string link = folder.path() / "dut";
  const SimulatorProcess sim({"davdp", "--awake", "--pty", "--link", link},
                             "\"a\" -> \"A\" hang-up 1\n\"b\" -> \"B\"\n");
  const Endpoint line = test::openTerminal(sim.readPath());
  EXPECT_TRUE(line.send("a\n"));
  EXPECT_EQ(line.receive(100), "A");

  const Endpoint again = test::openTerminalLater(link);

  EXPECT_TRUE(again.send("b\n"));
  EXPECT_EQ(again.receive(3), "B\r\n");
}

// What the framework's transports make of it.

class SimulatorFaultsAtTransportTest : public testing::Test {
 protected:
  /// A port whose reads do not wait.
  static std::shared_ptr<QLTSerial> portOf(const SimulatorProcess& sim) {
    auto port = test::openPort(sim.readPath());
    port->setTimeOutInSeconds(0);
    return port->open() ? port : nullptr;
  }

  const test::ConsoleLog log_;
};

TEST_F(SimulatorFaultsAtTransportTest, ASerialPortTurnsBytesOver127IntoQuestionMarks) {
  const SimulatorProcess sim({"davdp", "--awake", "--pty"},
                             "\"a\" -> \"\\xe9t\\xe9\" garbage \"\\0\\0\"\n");
  const auto port = test::openPort(sim.readPath());
  ASSERT_TRUE(port);

  EXPECT_TRUE(port->write("a\n"));

  EXPECT_EQ(port->readLine(5), "?t?\r\n");
}

TEST_F(SimulatorFaultsAtTransportTest, ASerialPortGivesUpAFlood) {
  const SimulatorProcess sim({"davdp", "--awake", "--pty", "--flood", "forever"});
  const auto port = test::openPort(sim.readPath());
  ASSERT_TRUE(port);
  QLTError error;

  EXPECT_TRUE(port->write("a\n"));

  EXPECT_FALSE(port->readLine(5, &error));
  EXPECT_THAT(error.description(), Optional(HasSubstr("read too many bytes")));
  EXPECT_TRUE(port->close());
}

TEST_F(SimulatorFaultsAtTransportTest, ASerialPortTimesOutWithoutALineEnd) {
  const SimulatorProcess sim({"davdp", "--awake", "--pty", "--no-end"});
  const auto port = portOf(sim);
  ASSERT_TRUE(port);
  QLTError error;

  EXPECT_TRUE(port->write("a\n"));

  EXPECT_FALSE(port->readLine(0, &error));
  EXPECT_THAT(error.description(), Optional("timeout trying to read from serial port"s));
}

TEST_F(SimulatorFaultsAtTransportTest, ASocketAssemblesAnySplit) {
  for (int at = 1; at < 7; ++at) {
    const SimulatorProcess sim({"davdp", "--tcp", "0", "--pause", "15"},
                               "\"a\" -> \"hello\" split " + std::to_string(at) + "\n");
    const auto socket = QLTSocket::init("127.0.0.1", sim.readPort());
    ASSERT_TRUE(socket);

    EXPECT_TRUE(socket->write("a\n"));

    EXPECT_EQ(socket->readUntil("\r\n"), "hello\r\n");
  }
}

TEST_F(SimulatorFaultsAtTransportTest, ASocketFailsAtOnceWhenTheDeviceHangsUpInALine) {
  const SimulatorProcess sim({"davdp", "--tcp", "0", "--hang-up", "3"});
  const auto socket = QLTSocket::init("127.0.0.1", sim.readPort());
  ASSERT_TRUE(socket);
  QLTError error;

  EXPECT_TRUE(socket->write("a\n"));

  EXPECT_FALSE(socket->readLine(&error));
  EXPECT_EQ(error.code(), -20001);
  EXPECT_EQ(error.description(), "Error reading socket");
}

TEST_F(SimulatorFaultsAtTransportTest, ASocketIsRefusedByADeviceThatIsNotThere) {
  const SimulatorProcess sim({"davdp", "--tcp", "0", "--refuse", "forever"});

  const std::int32_t port = sim.readPort();
  EXPECT_FALSE(QLTSocket::init("127.0.0.1", port));

  EXPECT_THAT(log_.lines(), ElementsAre("unable to connect to remote socket",
                                        "no connection to 127.0.0.1:" + std::to_string(port) +
                                            ": Connection refused"));
}

}  // namespace
