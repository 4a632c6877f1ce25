#include <algorithm>
#include <filesystem>
#include <fstream>

#include "StationProcess.h"
#include "TroubleBundle.h"

// The station on a terminal: its prompts, its colours.

namespace {

using test::StationProcess;
using test::TroubleBundle;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class StationTerminal : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NO_THROW(test::writeTesterConfig(""));
    bundle_.configure(TroubleBundle::test("Volts", ""));
  }

  /// Waits until the site's number is asked for, and `text` stands above.
  static bool isAsked(StationProcess& station, const std::string& site,
                      const std::string& text = "") {
    return station.waitForScreen([&](const test::TerminalModel& screen) {
      return screen.lines().back() == "Serial number of the device at site " + site + ":" &&
             screen.text().find(text) != std::string::npos;
    });
  }

  test::TemporaryFolder folder_;
  TroubleBundle bundle_{TROUBLE_PLUGIN};
};

}  // namespace

TEST_F(StationTerminal, asksForEachSerialNumberThatIsNotGiven) {
  StationProcess station({"run", bundle_.path(), "--sn", "right=B"},
                         StationProcess::Input::Terminal);
  ASSERT_TRUE(isAsked(station, "left"));
  station.type(" SN7 \n");
  EXPECT_EQ(station.wait(), 0);
  EXPECT_THAT(station.output(), Not(HasSubstr("at site right: ")));
  EXPECT_THAT(station.results(),
              AllOf(HasSubstr(",SN7,left,Volts,"), HasSubstr(",B,right,Volts,")));
}

TEST_F(StationTerminal, asksAgainForWhatCannotBeASerialNumber) {
  StationProcess station({"run", bundle_.path(), "--site", "left"},
                         StationProcess::Input::Terminal);
  ASSERT_TRUE(isAsked(station, "left"));
  station.type("\n");
  ASSERT_TRUE(isAsked(station, "left", "A serial number is needed. (Ctrl-D ends.)"));
  station.type("A,B\n");
  ASSERT_TRUE(isAsked(station, "left", "must not contain commas"));
  station.type("A\n");
  EXPECT_EQ(station.wait(), 0);
}

TEST_F(StationTerminal, asksAgainForANumberAgainstThePattern) {
  bundle_.configure(TroubleBundle::test("Volts", ""),
                    TroubleBundle::text("serialPattern", "QB[0-9]+"));
  StationProcess station({"run", bundle_.path(), "--site", "left"},
                         StationProcess::Input::Terminal);
  ASSERT_TRUE(station.waitForOutput("site left: "));
  station.type("XQB1\n");
  ASSERT_TRUE(station.waitForOutput(
      "XQB1 is no serial number of these devices, which match QB[0-9]+. (Ctrl-D ends.)"));
  ASSERT_TRUE(station.waitForOutput("site left: ", 2));
  station.type("QB1\n");
  EXPECT_EQ(station.wait(), 0);
}

TEST_F(StationTerminal, asksInTheOrderOfTheConfigurationFile) {
  bundle_.bundle().setConfig(
      "<key>Sites</key><dict><key>upper</key><dict/><key>middle</key><dict/><key>lower</key><dict/>"
      "</dict><key>defaultFlow</key><string>main</string><key>Flows</key><dict><key>main</key>"
      "<array>" +
      TroubleBundle::test("Volts", "") + "</array></dict>");
  StationProcess station({"run", bundle_.path()}, StationProcess::Input::Terminal);
  for (const std::string site : {"upper", "middle", "lower"}) {
    ASSERT_TRUE(station.waitForOutput("at site "));
    ASSERT_TRUE(station.waitForOutput("at site " + site + ": "));
    station.type(site + "1\n");
  }
  EXPECT_EQ(station.wait(), 0);
  const std::string table = station.output().substr(station.output().find("Serial number  Res"));
  EXPECT_LT(table.find("upper1"), table.find("middle1"));
  EXPECT_LT(table.find("middle1"), table.find("lower1"));
}

TEST_F(StationTerminal, asksInEachRound) {
  StationProcess station({"run", bundle_.path(), "--site", "left", "--repeat", "2"},
                         StationProcess::Input::Terminal);
  ASSERT_TRUE(isAsked(station, "left"));
  station.type("A1\n");
  ASSERT_TRUE(isAsked(station, "left", "\u2550 A1 \u2550"));
  station.type("A2\n");
  EXPECT_EQ(station.wait(), 0);
  EXPECT_THAT(station.results(),
              AllOf(HasSubstr("1,A1,left,Volts,"), HasSubstr("2,A2,left,Volts,")));
}

TEST_F(StationTerminal, aSerialNumberThatIsBeingTestedIsAskedAgain) {
  const std::string gate = (folder_.path() / "gate").string();
  bundle_.configure(TroubleBundle::test("Volts", TroubleBundle::text("await", gate)));
  StationProcess station({"run", bundle_.path()}, StationProcess::Input::Terminal);
  ASSERT_TRUE(isAsked(station, "left"));
  station.type("A\n");
  ASSERT_TRUE(isAsked(station, "right"));
  station.type("A\n");
  ASSERT_TRUE(isAsked(station, "right", "A is being tested at site left. (Ctrl-D ends.)"));
  station.type("B\n");
  std::ofstream(gate).close();
  EXPECT_EQ(station.wait(), 0);
}

TEST_F(StationTerminal, aSerialNumberThatIsGivenForAnotherSiteIsAskedAgain) {
  const std::string gate = (folder_.path() / "gate").string();
  bundle_.configure(TroubleBundle::test("Volts", TroubleBundle::text("await", gate)));
  StationProcess station({"run", bundle_.path(), "--sn", "right=B"},
                         StationProcess::Input::Terminal);
  ASSERT_TRUE(test::waitForFile(gate + ".right"));
  ASSERT_TRUE(isAsked(station, "left"));
  station.type("B\n");
  ASSERT_TRUE(isAsked(station, "left", "B is being tested at site right. (Ctrl-D ends.)"));
  station.type("A\n");
  std::ofstream(gate).close();
  EXPECT_EQ(station.wait(), 0);
}

TEST_F(StationTerminal, aSiteTakesItsNextDeviceWhileAnotherIsAtWork) {
  const std::string gate = (folder_.path() / "gate").string();
  bundle_.configure(TroubleBundle::test(
      "Volts", TroubleBundle::text("await", gate) + TroubleBundle::text("at", "left")));
  StationProcess station({"run", bundle_.path(), "--repeat", "2"}, StationProcess::Input::Terminal);
  ASSERT_TRUE(isAsked(station, "left"));
  station.type("A\n");
  for (const int time : {1, 2}) {
    ASSERT_TRUE(isAsked(station, "right", time == 1 ? "" : "\u2550 B1 \u2550"));
    station.type("B" + std::to_string(time) + "\n");
    ASSERT_TRUE(station.waitForOutput("\u2550 B" + std::to_string(time) + " \u2550"));
  }
  std::ofstream(gate).close();
  ASSERT_TRUE(isAsked(station, "left", "\u2550 A \u2550"));
  station.type("A2\n");
  EXPECT_EQ(station.wait(), 0);
}

TEST_F(StationTerminal, whatWasTypedBeforeTheQuestionIsDropped) {
  const std::string gate = (folder_.path() / "gate").string();
  bundle_.configure(TroubleBundle::test("Volts", TroubleBundle::text("await", gate)));
  StationProcess station({"run", bundle_.path(), "--site", "left", "--repeat", "2"},
                         StationProcess::Input::Terminal);
  ASSERT_TRUE(isAsked(station, "left"));
  station.type("A\nEARLY1\n");
  ASSERT_TRUE(test::waitForFile(gate + ".left"));
  station.type("EARLY2\n");
  std::ofstream(gate).close();
  ASSERT_TRUE(isAsked(station, "left", "\u2550 A \u2550"));
  station.type("LATE\n");
  EXPECT_EQ(station.wait(), 0);
  EXPECT_THAT(station.results(), AllOf(HasSubstr(",LATE,"), Not(HasSubstr("EARLY"))));
}

TEST_F(StationTerminal, ctrlCAndCtrlDAtThePromptEndTheProgram) {
  for (const char* const key : {"\x03", "\x04"}) {
    StationProcess station({"run", bundle_.path(), "--repeat", "2"},
                           StationProcess::Input::Terminal);
    ASSERT_TRUE(isAsked(station, "left"));
    station.type(key);
    EXPECT_EQ(station.wait(), 1);
    EXPECT_THAT(station.output(), AllOf(HasSubstr("No device was tested."),
                                        Not(HasSubstr("site right: ")), HasSubstr("Results: ")));
  }
}

TEST_F(StationTerminal, asksForNoDeviceThatCannotBeTestedAnyMore) {
  bundle_.configure(TroubleBundle::test("Volts", TroubleBundle::text("dies", "segfault")));
  StationProcess station({"run", bundle_.path(), "--site", "left", "--repeat", "9"},
                         StationProcess::Input::Terminal);
  for (int i = 1; i <= 4; ++i) {
    ASSERT_TRUE(station.waitForOutput("Serial number of the device at site left: ", i));
    station.type("A\n");
  }
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.output(), AllOf(HasSubstr("no device can be tested any more"),
                                      HasSubstr("0 passed, 0 failed, 4 broken off")));
}

TEST_F(StationTerminal, anOpenQuestionEndsWhenNothingCanBeTestedAnyMore) {
  bundle_.configure(TroubleBundle::test("Volts", TroubleBundle::text("dies", "segfault")));
  StationProcess station({"run", bundle_.path(), "--sn", "left=A", "--repeat", "9"},
                         StationProcess::Input::Terminal);
  ASSERT_TRUE(isAsked(station, "right"));
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.errors() + station.output(),
              HasSubstr("that was the 4th time within 10 minutes"));
}

TEST_F(StationTerminal, endingTheSeriesAtThePromptKeepsItsTable) {
  StationProcess station({"run", bundle_.path(), "--site", "left", "--repeat", "9"},
                         StationProcess::Input::Terminal);
  ASSERT_TRUE(isAsked(station, "left"));
  station.type("A\n");
  ASSERT_TRUE(isAsked(station, "left", "\u2550 A \u2550"));
  station.type("\x04");
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.output(), HasSubstr("1 passed, 0 failed, 0 broken off"));
}

TEST_F(StationTerminal, isNotForThePlugin) {
  bundle_.configure(TroubleBundle::test("Password", TroubleBundle::flag("readsTerminal")));
  StationProcess station({"run", bundle_.path(), "--site", "left", "--sn", "left=A"},
                         StationProcess::Input::Terminal);
  EXPECT_EQ(station.wait(), 0);
  EXPECT_THAT(station.diagnostics(), HasSubstr("[left] no terminal\n"));
}

TEST_F(StationTerminal, coloursAreForTerminalsOnly) {
  StationProcess terminal({"run", bundle_.path(), "--site", "left", "--sn", "left=A"},
                          StationProcess::Input::Terminal);
  EXPECT_EQ(terminal.wait(), 0);
  EXPECT_THAT(terminal.output(),
              HasSubstr("\x1b[30;42m\u2550\u2550 \u2713 PASS \u2550\u2550 left"));
  StationProcess file({"run", bundle_.path(), "--site", "left", "--sn", "left=A"});
  EXPECT_EQ(file.wait(), 0);
  EXPECT_THAT(file.output(), Not(HasSubstr("\x1b")));
}

TEST_F(StationTerminal, eachSiteHasALineWhileItTests) {
  const std::string gate = (folder_.path() / "gate").string();
  bundle_.configure(TroubleBundle::test("First", "") +
                    TroubleBundle::test("Volts", TroubleBundle::text("await", gate)));
  StationProcess station({"run", bundle_.path(), "--sn", "left=A"},
                         StationProcess::Input::Terminal);
  ASSERT_TRUE(isAsked(station, "right"));
  ASSERT_TRUE(test::waitForFile(gate + ".left"));
  station.type("SN_");
  ASSERT_TRUE(station.waitForScreen([](const test::TerminalModel& screen) {
    return screen.text().find("2/2  Volts") != std::string::npos &&
           screen.lines().back() == "Serial number of the device at site right: SN_";
  }));
  const auto lines = station.screen().lines();
  ASSERT_EQ(lines.size(), 5U) << station.screen().text();
  EXPECT_EQ(lines[0], "Site spare is disabled in the station's configuration.");
  EXPECT_THAT(lines[1],
              testing::MatchesRegex("left   \u25b6 RUNNING     A  2/2  Volts +[0-9.]+ s"));
  EXPECT_EQ(lines[2], "right  \u00b7 EMPTY");
  EXPECT_EQ(lines[3],
            "This run: 0 passed, 0 failed, 0 broken off.  Today: 0 passed, 0 failed, 0 broken off");

  std::ofstream(gate).close();  // the line of the other site goes above the question
  ASSERT_TRUE(station.waitForScreen([](const test::TerminalModel& screen) {
    return screen.text().find("PASS \u2550\u2550 left") != std::string::npos &&
           screen.lines().back() == "Serial number of the device at site right: SN_";
  }));
  station.type("7\n");
  EXPECT_EQ(station.wait(), 0);
  const std::string text = station.screen().text();
  EXPECT_THAT(text, AllOf(HasSubstr("PASS \u2550\u2550 right \u2550\u2550 SN_7"),
                          HasSubstr("Put the device with the passed ones."),
                          HasSubstr("2 passed, 0 failed, 0 broken off"), Not(HasSubstr("RUNNING")),
                          Not(HasSubstr("This run:")), Not(HasSubstr("Serial number of the"))));
}

TEST_F(StationTerminal, aVerdictSaysWhyAndWhatToDo) {
  bundle_.configure(TroubleBundle::test("Volts", TroubleBundle::text("value", "7") +
                                                     TroubleBundle::text("at", "left")) +
                    TroubleBundle::test(
                        "Amps", TroubleBundle::flag("throw") + TroubleBundle::text("at", "right")));
  StationProcess station({"run", bundle_.path(), "--sn", "left=A", "--sn", "right=B"},
                         StationProcess::Input::Terminal);
  EXPECT_EQ(station.wait(), 1);
  const test::TerminalModel screen = station.screen();
  EXPECT_FALSE(screen.hasWrapped()) << screen.text();
  EXPECT_THAT(screen.unknown(), testing::IsEmpty());
  EXPECT_THAT(screen.text(), AllOf(HasSubstr("left   FAIL  Volts: volts: 7, limits 1 to 2\n"),
                                   HasSubstr("\u2717 FAIL \u2550\u2550 left \u2550\u2550 A"),
                                   HasSubstr("   Volts / volts: 7, limits 1 to 2\n"
                                             "   Put the device with the failed ones.\n"),
                                   HasSubstr("! BROKEN OFF \u2550\u2550 right \u2550\u2550 B"),
                                   HasSubstr("   Test this device again.\n")));
}

TEST_F(StationTerminal, quietHasNoLinesOfSites) {
  StationProcess station({"run", bundle_.path(), "--quiet", "--sn", "left=A"},
                         StationProcess::Input::Terminal);
  ASSERT_TRUE(isAsked(station, "right"));
  station.type("B\n");
  EXPECT_EQ(station.wait(), 0);
  EXPECT_THAT(station.output(), AllOf(HasSubstr("\u2713 PASS"), Not(HasSubstr("RUNNING")),
                                      Not(HasSubstr("This run:"))));
}

TEST_F(StationTerminal, eightSitesOfAHundredTestsFitTheTerminal) {
  const std::string gate = (folder_.path() / "gate").string();
  std::string sites;
  std::vector<std::string> arguments{"run", bundle_.path()};
  for (int site = 1; site <= 8; ++site) {
    const std::string name = "Tester \u96fb\u5727 no. " + std::to_string(site);
    sites += "<key>" + name + "</key><dict/>";
    arguments.insert(arguments.end(), {"--sn", name + "=SN-2026-000" + std::to_string(site)});
  }
  std::string tests;
  for (int i = 1; i <= 100; ++i) {
    tests += TroubleBundle::test(
        "Ripple of the supply \u00b5V e\u0301talonne\u0301 at full load and at the highest "
        "temperature " +
            std::to_string(i),
        i == 50       ? TroubleBundle::text("await", gate)
        : i % 40 == 0 ? TroubleBundle::text("value", "7")
                      : "",
        TroubleBundle::flag("stopOnFail", false));
  }
  bundle_.bundle().setConfig("<key>Sites</key><dict>" + sites +
                             "</dict><key>defaultFlow</key><string>main</string><key>Flows</key>"
                             "<dict><key>main</key><array>" +
                             tests + "</array></dict>");
  StationProcess station(arguments, StationProcess::Input::Terminal);
  ASSERT_TRUE(station.waitForScreen([](const test::TerminalModel& screen) {
    const auto lines = screen.lines();
    return std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
             return line.find("\u25b6 RUNNING") != std::string::npos &&
                    line.find(" 50/100  Ripple of the supply") != std::string::npos;
           }) == 8;
  })) << station.screen().text();
  EXPECT_THAT(station.screen().text(), HasSubstr("\u2026ster \u96fb\u5727 no. 8  \u25b6 RUNNING"));
  std::ofstream(gate).close();
  EXPECT_EQ(station.wait(), 1);
  const test::TerminalModel screen = station.screen();
  EXPECT_FALSE(screen.hasWrapped()) << screen.text();
  EXPECT_THAT(screen.unknown(), testing::IsEmpty());
  EXPECT_THAT(screen.text(),
              AllOf(HasSubstr("0 passed, 8 failed, 0 broken off"), Not(HasSubstr("RUNNING"))));
}

TEST_F(StationTerminal, theDevicesOfTheDayAreCounted) {
  const std::string gate = (folder_.path() / "gate").string();
  const std::string logs = (folder_.path() / "logs").string();
  const std::vector<std::string> arguments{"run",  bundle_.path(), "--site",    "left",
                                           "--sn", "left=A",       "--log-dir", logs};
  StationProcess earlier(arguments);
  EXPECT_EQ(earlier.wait(), 0);
  bundle_.configure(TroubleBundle::test("Volts", TroubleBundle::text("await", gate)));
  StationProcess station(arguments, StationProcess::Input::Terminal);
  EXPECT_TRUE(station.waitForOutput(
      "This run: 0 passed, 0 failed, 0 broken off.  Today: 1 passed, 0 failed, 0 broken off"));
  std::ofstream(gate).close();
  EXPECT_EQ(station.wait(), 0);
}

TEST_F(StationTerminal, tellsWhatATestUsuallyTakes) {
  const std::string gate = (folder_.path() / "gate").string();
  bundle_.configure(TroubleBundle::test("Volts", TroubleBundle::text("await", gate)));
  const std::vector<std::string> arguments{
      "run",  bundle_.path(), "--site",    "left",
      "--sn", "left=A",       "--log-dir", (folder_.path() / "logs").string()};
  std::ofstream(gate).close();
  EXPECT_EQ(StationProcess(arguments).wait(), 0);
  std::filesystem::remove(gate);
  StationProcess station(arguments, StationProcess::Input::Terminal);
  EXPECT_TRUE(station.waitForScreen([](const test::TerminalModel& screen) {
    return screen.text().find(" s of usually 0.") != std::string::npos;
  }));
  std::ofstream(gate).close();
  EXPECT_EQ(station.wait(), 0);
}
