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

  test::TemporaryFolder folder_;
  TroubleBundle bundle_{TROUBLE_PLUGIN};
};

}  // namespace

TEST_F(StationTerminal, asksForEachSerialNumberThatIsNotGiven) {
  StationProcess station({"run", bundle_.path(), "--sn", "right=B"},
                         StationProcess::Input::Terminal);
  ASSERT_TRUE(station.waitForOutput("Serial number of the device at site left: "));
  station.type(" SN7 \n");
  EXPECT_EQ(station.wait(), 0);
  EXPECT_THAT(station.output(), Not(HasSubstr("at site right: ")));
  EXPECT_THAT(station.results(),
              AllOf(HasSubstr(",SN7,left,Volts,"), HasSubstr(",B,right,Volts,")));
}

TEST_F(StationTerminal, asksAgainForWhatCannotBeASerialNumber) {
  StationProcess station({"run", bundle_.path(), "--site", "left"},
                         StationProcess::Input::Terminal);
  ASSERT_TRUE(station.waitForOutput("site left: "));
  station.type("\n");
  ASSERT_TRUE(station.waitForOutput("A serial number is needed. (Ctrl-D ends.)"));
  ASSERT_TRUE(station.waitForOutput("site left: ", 2));
  station.type("A,B\n");
  ASSERT_TRUE(station.waitForOutput("must not contain commas"));
  ASSERT_TRUE(station.waitForOutput("site left: ", 3));
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
  ASSERT_TRUE(station.waitForOutput("site left: "));
  station.type("A1\n");
  ASSERT_TRUE(station.waitForOutput("site left: ", 2));
  station.type("A2\n");
  EXPECT_EQ(station.wait(), 0);
  EXPECT_THAT(station.results(),
              AllOf(HasSubstr("1,A1,left,Volts,"), HasSubstr("2,A2,left,Volts,")));
}

TEST_F(StationTerminal, aSerialNumberThatIsBeingTestedIsAskedAgain) {
  const std::string gate = (folder_.path() / "gate").string();
  bundle_.configure(TroubleBundle::test("Volts", TroubleBundle::text("await", gate)));
  StationProcess station({"run", bundle_.path()}, StationProcess::Input::Terminal);
  ASSERT_TRUE(station.waitForOutput("site left: "));
  station.type("A\n");
  ASSERT_TRUE(station.waitForOutput("site right: "));
  station.type("A\n");
  ASSERT_TRUE(station.waitForOutput("A is being tested at site left. (Ctrl-D ends.)"));
  ASSERT_TRUE(station.waitForOutput("site right: ", 2));
  station.type("B\n");
  std::ofstream(gate).close();
  EXPECT_EQ(station.wait(), 0);
}

TEST_F(StationTerminal, aSiteTakesItsNextDeviceWhileAnotherIsAtWork) {
  const std::string gate = (folder_.path() / "gate").string();
  bundle_.configure(TroubleBundle::test(
      "Volts", TroubleBundle::text("await", gate) + TroubleBundle::text("at", "left")));
  StationProcess station({"run", bundle_.path(), "--repeat", "2"}, StationProcess::Input::Terminal);
  ASSERT_TRUE(station.waitForOutput("site left: "));
  station.type("A\n");
  for (const int time : {1, 2}) {
    ASSERT_TRUE(station.waitForOutput("site right: ", time));
    station.type("B" + std::to_string(time) + "\n");
    ASSERT_TRUE(station.waitForOutput("device B" + std::to_string(time) + " in "));
  }
  std::ofstream(gate).close();
  ASSERT_TRUE(station.waitForOutput("site left: ", 2));
  station.type("A2\n");
  EXPECT_EQ(station.wait(), 0);
}

TEST_F(StationTerminal, whatWasTypedBeforeTheQuestionIsDropped) {
  const std::string gate = (folder_.path() / "gate").string();
  bundle_.configure(TroubleBundle::test("Volts", TroubleBundle::text("await", gate)));
  StationProcess station({"run", bundle_.path(), "--site", "left", "--repeat", "2"},
                         StationProcess::Input::Terminal);
  ASSERT_TRUE(station.waitForOutput("site left: "));
  station.type("A\nEARLY1\n");
  ASSERT_TRUE(test::waitForFile(gate + ".left"));
  station.type("EARLY2\n");
  std::ofstream(gate).close();
  ASSERT_TRUE(station.waitForOutput("site left: ", 2));
  station.type("LATE\n");
  EXPECT_EQ(station.wait(), 0);
  EXPECT_THAT(station.results(), AllOf(HasSubstr(",LATE,"), Not(HasSubstr("EARLY"))));
}

TEST_F(StationTerminal, ctrlCAndCtrlDAtThePromptEndTheProgram) {
  for (const char* const key : {"\x03", "\x04"}) {
    StationProcess station({"run", bundle_.path(), "--repeat", "2"},
                           StationProcess::Input::Terminal);
    ASSERT_TRUE(station.waitForOutput("site left: "));
    station.type(key);
    EXPECT_EQ(station.wait(), 1);
    EXPECT_THAT(station.output(), AllOf(HasSubstr("No device was tested."),
                                        Not(HasSubstr("site right: ")), HasSubstr("Results: ")));
  }
}

TEST_F(StationTerminal, endingTheSeriesAtThePromptKeepsItsTable) {
  StationProcess station({"run", bundle_.path(), "--site", "left", "--repeat", "9"},
                         StationProcess::Input::Terminal);
  ASSERT_TRUE(station.waitForOutput("site left: "));
  station.type("A\n");
  ASSERT_TRUE(station.waitForOutput("site left: ", 2));
  station.type("\x04");
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.output(), HasSubstr("1 passed, 0 failed, 0 broken off"));
}

TEST_F(StationTerminal, coloursAreForTerminalsOnly) {
  StationProcess terminal({"run", bundle_.path(), "--site", "left", "--sn", "left=A"},
                          StationProcess::Input::Terminal);
  EXPECT_EQ(terminal.wait(), 0);
  EXPECT_THAT(terminal.output(), HasSubstr("\x1b[32mPASS\x1b[0m  Volts"));
  StationProcess file({"run", bundle_.path(), "--site", "left", "--sn", "left=A"});
  EXPECT_EQ(file.wait(), 0);
  EXPECT_THAT(file.output(), Not(HasSubstr("\x1b")));
}
