#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/ioctl.h>
#include <termios.h>

#include "SimulatorProcess.h"

namespace {

using test::Endpoint;
using test::SimulatorProcess;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

// Where it is found.

TEST(SimulatorAddressTest, TheFirstLineGivesTheTerminal) {
  const SimulatorProcess sim({"console", "--pty"});

  EXPECT_THAT(sim.readLine(), MatchesRegex("quillon-sim console: bsdPath=/dev/pts/[0-9]+"));
}

TEST(SimulatorAddressTest, TheFirstLineGivesTheAddressAndThePortThatWasFree) {
  const SimulatorProcess sim({"davdp", "--tcp", "0"});

  EXPECT_THAT(sim.readLine(), MatchesRegex("quillon-sim davdp: ip=127.0.0.1;port=[1-9][0-9]*"));
}

TEST(SimulatorAddressTest, TheFirstLineGivesTheLink) {
  const test::TemporaryFolder folder;
  const std::string link = folder.path() / "meter";
  SimulatorProcess sim({"scpi", "--pty", "--link", link});

  EXPECT_EQ(sim.readLine(), "quillon-sim scpi: bsdPath=" + link);
  EXPECT_THAT(std::filesystem::read_symlink(link).string(), StartsWith("/dev/pts/"));

  sim.send(SIGTERM);
  EXPECT_EQ(sim.wait(), 0);
  EXPECT_FALSE(std::filesystem::is_symlink(link));
}

TEST(SimulatorAddressTest, AnyAddressOfTheLoopbackCanBeGiven) {
  const SimulatorProcess sim({"scpi", "--tcp", "127.0.0.7:0"});

  EXPECT_THAT(sim.readLine(), MatchesRegex("quillon-sim scpi: ip=127.0.0.7;port=[1-9][0-9]*"));
}

TEST(SimulatorAddressTest, AnOldLinkIsReplaced) {
  const test::TemporaryFolder folder;
  const std::string link = folder.path() / "meter";
  std::filesystem::create_symlink("/nowhere", link);

  const SimulatorProcess sim({"scpi", "--pty", "--link", link});

  EXPECT_EQ(sim.readPath(), link);
  EXPECT_GE(test::openTerminal(link).descriptor(), 0);
}

TEST(SimulatorAddressTest, AFileInThePlaceOfTheLinkIsLeftAlone) {
  const test::TemporaryFolder folder;
  const std::string link = folder.write("meter", "precious");

  SimulatorProcess sim({"scpi", "--pty", "--link", link});

  EXPECT_EQ(sim.wait(), 1);
  EXPECT_EQ(sim.errors(),
            "quillon-sim: " + link + " is not a symbolic link, and is left as it is\n");
  EXPECT_EQ(test::contentOf(link), "precious");
}

TEST(SimulatorAddressTest, ALinkThatCannotBeMadeEndsTheProgram) {
  SimulatorProcess sim({"scpi", "--pty", "--link", "/nowhere/meter"});

  EXPECT_EQ(sim.readLine(), "");
  EXPECT_EQ(sim.wait(), 1);
  EXPECT_EQ(sim.errors(),
            "quillon-sim: cannot make the link /nowhere/meter: No such file or directory\n");
}

TEST(SimulatorAddressTest, APortThatIsTakenEndsTheProgram) {
  const SimulatorProcess first({"davdp", "--tcp", "0"});
  const std::string port = std::to_string(first.readPort());

  SimulatorProcess second({"davdp", "--tcp", port});

  EXPECT_EQ(second.readLine(), "");
  EXPECT_EQ(second.wait(), 1);
  EXPECT_EQ(second.errors(),
            "quillon-sim: cannot have ip=127.0.0.1;port=" + port + ": Address already in use\n");
}

TEST(SimulatorAddressTest, AnAddressThatIsNoneEndsTheProgram) {
  SimulatorProcess sim({"davdp", "--tcp", "localhost:0"});

  EXPECT_EQ(sim.wait(), 1);
  EXPECT_EQ(sim.errors(), "quillon-sim: 'localhost' is not an IPv4 address\n");
}

TEST(SimulatorAddressTest, RefusesAtFirstAndAcceptsLater) {
  const SimulatorProcess sim({"davdp", "--tcp", "0", "--refuse", "100"});
  const std::uint16_t port = sim.readPort();

  EXPECT_LT(test::connectTo(port).descriptor(), 0);
  EXPECT_GE(test::connectLater(port).descriptor(), 0);
}

TEST(SimulatorAddressTest, AtFirstThereIsNoLink) {
  const test::TemporaryFolder folder;
  const std::string link = folder.path() / "meter";
  const SimulatorProcess sim({"scpi", "--pty", "--link", link, "--refuse", "forever"});

  EXPECT_EQ(sim.readPath(), link);
  EXPECT_FALSE(std::filesystem::is_symlink(link));
}

// The terminal as a device.

TEST(SimulatorTerminalTest, IsRawBeforeAnyDriverSetsItUp) {
  const SimulatorProcess sim({"davdp", "--awake", "--pty"});
  const Endpoint line = test::openTerminal(sim.readPath());
  termios attributes{};
  ASSERT_EQ(tcgetattr(line.descriptor(), &attributes), 0);

  EXPECT_EQ(attributes.c_lflag & tcflag_t{ECHO | ICANON | ISIG | IEXTEN}, 0U);
  EXPECT_EQ(attributes.c_oflag & tcflag_t{OPOST}, 0U);
  EXPECT_EQ(attributes.c_iflag & tcflag_t{ICRNL | INLCR | IXON}, 0U);
  EXPECT_TRUE(line.send("&9\n"));
  EXPECT_EQ(line.receiveUntil('\n'), "ERR,unknown command\r\n");
  EXPECT_EQ(line.receivePending(), "");  // nothing that came back to it was taken for a command
}

TEST(SimulatorTerminalTest, APeerThatWasKilledInItsExclusiveUseDoesNotBlockTheNextOne) {
  const test::TemporaryFolder folder;
  const std::string link = folder.path() / "unit";
  const SimulatorProcess sim({"davdp", "--awake", "--pty", "--link", link});
  Endpoint killed = test::openTerminal(sim.readPath());
  ASSERT_EQ(ioctl(killed.descriptor(), TIOCEXCL), 0);
  EXPECT_TRUE(killed.send("&9\n"));
  EXPECT_EQ(killed.receiveUntil('\n'), "ERR,unknown command\r\n");
  killed.close();

  const Endpoint next = test::openTerminalLater(link);
  EXPECT_TRUE(next.send("&9\n"));

  EXPECT_EQ(next.receiveUntil('\n'), "ERR,unknown command\r\n");
}

TEST(SimulatorTerminalTest, AReplyThatNobodyWaitsForIsLost) {
  const SimulatorProcess sim({"davdp", "--awake", "--pty", "--verbose"},
                             "\"a\" -> \"late\" delay 50\n\"b\" -> \"B\"\n");
  const std::string path = sim.readPath();
  Endpoint first = test::openTerminal(path);
  EXPECT_TRUE(first.send("b\na\n"));
  EXPECT_EQ(first.receiveUntil('\n'), "B\r\n");
  first.close();
  EXPECT_TRUE(sim.waitForErrors("* disconnected\n"));  // once the late reply was due

  const Endpoint second = test::openTerminal(path);
  EXPECT_TRUE(second.send("b\n"));

  EXPECT_EQ(second.receiveUntil('\n'), "B\r\n");
}

TEST(SimulatorTerminalTest, AnUnfinishedLineIsForgottenWithItsPeer) {
  SimulatorProcess sim({"davdp", "--tcp", "0", "--connections", "2"}, "\"b\" -> \"B\"\n");
  const std::uint16_t port = sim.readPort();
  Endpoint first = test::connectTo(port);
  EXPECT_TRUE(first.send("unfinished "));
  first.close();

  Endpoint second = test::connectTo(port);
  EXPECT_TRUE(second.send("b\n"));

  EXPECT_EQ(second.receiveUntil('\n'), "B\r\n");
}

// How it ends.

class SimulatorSignalTest : public testing::TestWithParam<int> {};

INSTANTIATE_TEST_SUITE_P(With, SimulatorSignalTest, testing::Values(SIGINT, SIGTERM),
                         [](const auto& signal) {
                           return std::string(signal.param == SIGINT ? "SIGINT" : "SIGTERM");
                         });

TEST_P(SimulatorSignalTest, EndsWhileItWaitsForAPeer) {
  for (const char* where : {"--pty", "--tcp=0"}) {
    SimulatorProcess sim({"console", where});
    sim.readLine();
    sim.send(GetParam());
    EXPECT_EQ(sim.wait(), 0) << where;
    EXPECT_EQ(sim.errors(), "");
  }
}

TEST_P(SimulatorSignalTest, EndsWhileAPeerSaysNothing) {
  SimulatorProcess sim({"davdp", "--tcp", "0"});
  const Endpoint line = test::connectTo(sim.readPort());
  EXPECT_TRUE(line.send("&9\n"));
  line.receiveUntil('\n');

  sim.send(GetParam());

  EXPECT_EQ(sim.wait(), 0);
}

TEST_P(SimulatorSignalTest, EndsInADelay) {
  SimulatorProcess sim({"davdp", "--tcp", "0", "--split", "1", "--pause", "60000"});
  const Endpoint line = test::connectTo(sim.readPort());
  EXPECT_TRUE(line.send("a\n"));
  EXPECT_EQ(line.receive(1), "E");

  sim.send(GetParam());

  EXPECT_EQ(sim.wait(), 0);
}

TEST_P(SimulatorSignalTest, EndsInAFloodThatNobodyReads) {
  for (const char* where : {"--pty", "--tcp=0"}) {
    SimulatorProcess sim({"davdp", "--awake", where, "--flood", "forever"});
    const std::string address = sim.readLine();
    const std::string value = address.substr(address.rfind('=') + 1);
    const Endpoint line = where == std::string("--pty")
                              ? test::openTerminal(value)
                              : test::connectTo(static_cast<std::uint16_t>(std::stoi(value)));
    EXPECT_TRUE(line.send("a\n"));
    EXPECT_EQ(line.receive(1), "x");

    sim.send(GetParam());

    EXPECT_EQ(sim.wait(), 0) << where;
  }
}

TEST_P(SimulatorSignalTest, EndsWhileItRefuses) {
  SimulatorProcess sim({"davdp", "--tcp", "0", "--refuse", "forever"});
  sim.readLine();

  sim.send(GetParam());

  EXPECT_EQ(sim.wait(), 0);
}

TEST(SimulatorEndTest, EndsAfterSoManyCommandsWithTheirReplies) {
  SimulatorProcess sim({"davdp", "--awake", "--pty", "--exchanges", "2"},
                       "\"a\" -> \"A\"\n\"b\" -> silent\n\"c\" -> \"C\"\n");
  const Endpoint line = test::openTerminal(sim.readPath());

  EXPECT_TRUE(line.send("b\na\nc\n"));

  EXPECT_EQ(line.receive(100), "A\r\n");
  EXPECT_EQ(sim.wait(), 0);
}

TEST(SimulatorEndTest, EndsAfterSoManyTcpPeers) {
  SimulatorProcess sim({"davdp", "--tcp", "0", "--connections", "3"});
  const std::uint16_t port = sim.readPort();

  for (int i = 0; i < 3; ++i) {
    const Endpoint line = test::connectTo(port);
    EXPECT_TRUE(line.send("a\n"));
    EXPECT_EQ(line.receiveUntil('\n'), "ERR,unknown command\r\n");
  }

  EXPECT_EQ(sim.wait(), 0);
  EXPECT_LT(test::connectTo(port).descriptor(), 0);
}

TEST(SimulatorEndTest, EndsAfterSoManyOpeningsOfTheTerminal) {
  SimulatorProcess sim({"davdp", "--awake", "--pty", "--connections", "1"});
  Endpoint line = test::openTerminal(sim.readPath());
  EXPECT_TRUE(line.send("a\n"));
  EXPECT_EQ(line.receiveUntil('\n'), "ERR,unknown command\r\n");

  line.close();

  EXPECT_EQ(sim.wait(), 0);
}

TEST(SimulatorEndTest, APeerThatIsGoneBeforeItsReplyDoesNotEndIt) {
  const SimulatorProcess sim({"davdp", "--tcp", "0"}, "\"a\" -> \"A\" delay 20 byte-delay 1\n");
  const std::uint16_t port = sim.readPort();
  for (int i = 0; i < 3; ++i) {
    const Endpoint line = test::connectTo(port);
    EXPECT_TRUE(line.send("a\na\n"));
  }

  const Endpoint line = test::connectTo(port);
  EXPECT_TRUE(line.send("a\n"));

  EXPECT_EQ(line.receiveUntil('\n'), "A\r\n");
}

// The command line.

TEST(SimulatorCommandLineTest, ShowsWhatComesAndGoes) {
  SimulatorProcess sim({"davdp", "--tcp", "0", "-v", "--connections", "1"},
                       "\"a\\t\" -> \"A\\xff\"\n");
  Endpoint line = test::connectTo(sim.readPort());
  EXPECT_TRUE(line.send("a\t\n"));
  line.receiveUntil('\n');
  line.close();

  EXPECT_EQ(sim.wait(), 0);
  EXPECT_EQ(sim.errors(), "* connected\n< \"a\\x09\"\n> \"A\\xff\\r\\n\"\n* disconnected\n");
}

TEST(SimulatorCommandLineTest, MistakesEndItWithStatus2) {
  const std::vector<std::vector<std::string>> mistakes{
      {},
      {"toaster", "--pty"},
      {"console"},
      {"console", "--pty", "--tcp", "0"},
      {"console", "--tcp", "0", "--link", "/tmp/x"},
      {"console", "--pty", "--refuse", "10"},
      {"console", "--tcp", "65536"},
      {"console", "--tcp", ""},
      {"console", "--pty", "--delay", "soon"},
      {"console", "--pty", "--garbage", "\\q"},
      {"console", "--pty", "--line-end", "lfcr"},
      {"console", "--pty", "--asleep"},
      {"console", "--pty", "--normal"},
      {"scpi", "--pty", "--echo"},
      {"scpi", "--pty", "--reading", "VOLT:DC"},
      {"scpi", "--pty", "--reading", "VOLT:DC=much"},
      {"davdp", "--pty", "--exchanges", "-1"},
      {"davdp", "--pty", "extra"},
  };
  for (const auto& mistake : mistakes) {
    SimulatorProcess sim(mistake);
    EXPECT_EQ(sim.readLine(), "") << testing::PrintToString(mistake);
    EXPECT_EQ(sim.wait(), 2) << testing::PrintToString(mistake);
    EXPECT_NE(sim.errors(), "") << testing::PrintToString(mistake);
  }
}

TEST(SimulatorCommandLineTest, AMistakeIsNamed) {
  SimulatorProcess sim({"console", "--pty", "--delay", "soon"});

  EXPECT_EQ(sim.wait(), 2);
  EXPECT_THAT(sim.errors(),
              StartsWith("--delay: 'soon' is not a whole number from 0 to 86400000\n"));
}

TEST(SimulatorCommandLineTest, HelpNamesTheDevicesAndHasExamples) {
  SimulatorProcess sim({"--help"});

  const std::string help = sim.readRest();

  EXPECT_EQ(sim.wait(), 0);
  EXPECT_THAT(help, StartsWith("Stands in for a device"));
  for (const char* word : {"console", "davdp", "scpi", "Examples:"}) {
    EXPECT_THAT(help, HasSubstr(word));
  }
}

TEST(SimulatorCommandLineTest, TheHelpOfADeviceNamesEveryFault) {
  SimulatorProcess sim({"scpi", "--help"});

  const std::string help = sim.readRest();

  EXPECT_EQ(sim.wait(), 0);
  for (const char* fault : {"delay", "byte-delay", "split", "pause", "garbage", "flood", "no-end",
                            "silent", "hang-up", "away", "refuse"}) {
    EXPECT_THAT(help, HasSubstr(std::string("  --") + fault + " "));
  }
}

TEST(SimulatorCommandLineTest, HasAVersion) {
  SimulatorProcess sim({"--version"});

  EXPECT_EQ(sim.readLine(), "quillon-sim " QUILLON_VERSION);
  EXPECT_EQ(sim.wait(), 0);
}

}  // namespace
