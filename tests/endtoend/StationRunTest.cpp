#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "StationProcess.h"
#include "TroubleBundle.h"

// How tests run, what becomes of those that fail, and what the log has of it.

namespace {

using test::StationProcess;
using test::TroubleBundle;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

std::string entry(const std::string& name, const std::string& params,
                  const std::string& more = "") {
  return TroubleBundle::test(name, params, more);
}
std::string flag(const std::string& key, bool value = true) {
  return TroubleBundle::flag(key, value);
}
std::string text(const std::string& key, const std::string& value) {
  return TroubleBundle::text(key, value);
}

class StationRun : public testing::Test {
 protected:
  void SetUp() override { ASSERT_NO_THROW(test::writeTesterConfig("")); }

  std::string calls() const { return (folder_.path() / "calls").string(); }
  std::string callsAttribute() const { return text("calls", calls()); }
  std::vector<std::string> callsMade() const {
    std::vector<std::string> lines;
    std::ifstream file(calls());
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
  }
  /// The command line of a run at one site.
  std::vector<std::string> atLeft(const std::vector<std::string>& more = {}) const {
    std::vector<std::string> arguments{"run", bundle_.path(), "--site", "left", "--sn", "left=A"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }
  std::vector<std::string> atBoth() const {
    return {"run", bundle_.path(), "--sn", "left=A", "--sn", "right=B"};
  }

  test::TemporaryFolder folder_;
  TroubleBundle bundle_{TROUBLE_PLUGIN};
};

constexpr const char* kHeader =
    "runIndex, sn,site,test,subtest,number,expected,value,PF,fail message,\n";
constexpr const char* kLimits = "from 1.000000 to 2.000000";

/// The line that a device leaves which was broken off.
std::string brokenOff(const std::string& start, const std::string& reason) {
  return start + ",device,runtime error,0.0,,run time error,F,\"" + reason + "\",\n";
}

/// The line of one record of the sub-test "volts".
std::string line(const std::string& start, const std::string& test, const std::string& number,
                 const std::string& value, const std::string& ending) {
  return start + "," + test + ",volts," + number + "," + kLimits + "," + value + "," + ending +
         ",\n";
}

}  // namespace

TEST_F(StationRun, callsTheHooksOfADeviceInOrder) {
  bundle_.configure(entry("Volts", ""), callsAttribute());
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 0);
  EXPECT_THAT(callsMade(),
              ElementsAre("left onDUTStart A default 1", "left onDUTFinished", "onUnload"));
}

TEST_F(StationRun, aFailureStopsTheFlowWhereTheTestSaysSo) {
  bundle_.configure(entry("First", text("value", "0.5"), flag("stopOnFail", false)) +
                        entry("Second", text("value", "7")) + entry("Third", ""),
                    callsAttribute());
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 1);
  EXPECT_EQ(station.results(),
            kHeader + line("1,A,left", "First", "1.1", "0.500000", "F,\"failed volts\"") +
                line("1,A,left", "Second", "2.1", "7.000000", "F,\"failed volts\""));
  EXPECT_THAT(station.steadyOutput(),
              AllOf(HasSubstr("left  FAIL  Second  0.0 s  volts: 7, limits 1 to 2\n"),
                    HasSubstr("left  A              FAIL        0.0 s  First / volts: 0.5, limits "
                              "1 to 2\n")));
  EXPECT_THAT(callsMade(),
              ElementsAre("left onDUTStart A default 1", "left onDUTFail", "onUnload"));
}

TEST_F(StationRun, aSubTestWithoutANameIsToldByItsNumber) {
  const auto nameless = [](const std::string& test, const std::string& params,
                           const std::string& expected) {
    return "<dict><key>class</key><string>TroubleTest</string><key>displayName</key><string>" +
           test + "</string><key>stopOnFail</key><false/><key>params</key><dict>" + params +
           "</dict><key>subTestInfos</key><array><dict>" + expected + "</dict></array></dict>";
  };
  bundle_.configure(
      nameless("Volts", text("value", "0"),
               "<key>lowLimit</key><integer>1</integer><key>highLimit</key><integer>2</integer>") +
      nameless("Word", text("text", "bad"), text("expected", "good")));
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.results(), AllOf(HasSubstr("0.000000,F,\"failed (null)\",\n"),
                                       HasSubstr("\"Failed (null); Actual value is: bad;\",\n")));
  EXPECT_THAT(station.steadyOutput(),
              AllOf(HasSubstr("Volts  0.0 s  sub-test 1.1 (no name): 0, limits 1 to 2\n"),
                    HasSubstr("Word   0.0 s  sub-test 2.1 (no name): Actual value is: bad; "
                              "(expected: good)\n"),
                    Not(HasSubstr("(null)"))));
}

TEST_F(StationRun, aSubTestNumberOutsideTheListIsToldInWords) {
  bundle_.configure(entry("Volts", text("number", "2")));
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(
      station.steadyOutput(),
      HasSubstr("Volts threw an exception: sub-test 2 of Volts: they count from 1, there is "
                "1\n"));
}

TEST_F(StationRun, aRetestThatPassesTakesThePlaceOfTheFailure) {
  bundle_.configure(entry("Volts", flag("secondTime"), flag("retest")));
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 0);
  EXPECT_EQ(station.results(), kHeader + line("1,A,left", "Volts", "1.1", "1.500000", "P,\"\""));
  EXPECT_THAT(station.steadyOutput(), HasSubstr("left  PASS  Volts  0.0 s  (second attempt)\n"));
}

TEST_F(StationRun, aTestIsRetestedOnceAndOnlyWhereAllowed) {
  bundle_.configure(entry("Volts", text("value", "9") + text("log", "attempt"), flag("retest")) +
                    entry("Never", ""));
  StationProcess allowed(atLeft());
  EXPECT_EQ(allowed.wait(), 1);
  const std::string log = allowed.diagnostics();
  const std::size_t first = log.find("[left] attempt\n");
  ASSERT_NE(first, std::string::npos);
  const std::size_t second = log.find("[left] attempt\n", first + 1);
  ASSERT_NE(second, std::string::npos);
  EXPECT_EQ(log.find("[left] attempt\n", second + 1), std::string::npos);

  bundle_.configure(entry("Volts", flag("secondTime")));
  StationProcess forbidden(atLeft());
  EXPECT_EQ(forbidden.wait(), 1);
}

TEST_F(StationRun, aFailedRecordFailsTheTestWhateverRunSays) {
  bundle_.configure(entry("Volts", flag("lie") + text("value", "9")));
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.steadyOutput(), HasSubstr("left  FAIL  Volts"));
}

TEST_F(StationRun, aFailureWithoutARecordLeavesOneInTheLog) {
  bundle_.configure(entry("Error", flag("failWithError"), flag("stopOnFail", false)) +
                    entry("Silent", flag("failSilently"), flag("stopOnFail", false)) +
                    entry("Refused", flag("refuse"), flag("stopOnFail", false)) +
                    entry("Taken", flag("failDidRun"), flag("stopOnFail", false)) +
                    entry("Lost", flag("loseRecords") + text("value", "9")));
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 1);
  const auto failure = [](const std::string& test, const std::string& number,
                          const std::string& message) {
    return "1,A,left," + test + ",runtime error," + number + ",,run time error,F,\"" + message +
           "\",\n";
  };
  EXPECT_EQ(station.results(), kHeader + failure("Error", "1.0", "no answer\nfrom the device") +
                                   failure("Silent", "2.0", "failed without giving a reason") +
                                   failure("Refused", "3.0", "the door is open") +
                                   line("1,A,left", "Taken", "4.1", "1.500000", "P,\"\"") +
                                   failure("Taken", "4.0", "records are gone") +
                                   failure("Lost", "5.0", "failed without giving a reason"));
  // On the screen a message stays on its line.
  EXPECT_THAT(station.steadyOutput(),
              HasSubstr("left  FAIL  Error    0.0 s  no answer\\nfrom the device\n"));
}

TEST_F(StationRun, aTestWhoseResultsAreLostFailsWhateverRunSays) {
  bundle_.configure(
      entry("Kept nowhere", flag("ownWillRun") + flag("passWithError"), flag("stopOnFail", false)) +
      entry("Lost", flag("loseRecords")));
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 1);
  EXPECT_EQ(station.results(),
            std::string(kHeader) +
                "1,A,left,Kept nowhere,runtime error,1.0,,run time error,F,\"passed without a list "
                "of results\",\n"
                "1,A,left,Lost,runtime error,2.0,,run time error,F,\"passed without a list of "
                "results\",\n");
}

TEST_F(StationRun, aResultOfAnUnknownKindIsNoPass) {
  bundle_.configure(entry("Odd", text("code", "3"), flag("stopOnFail", false)) +
                    entry("Not applicable", text("code", "2")));
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.results(),
              AllOf(HasSubstr(line("1,A,left", "Odd", "1.1", "odd", "\"\"")),
                    HasSubstr("1,A,left,Odd,runtime error,1.0,,run time error,F,\"passed with a "
                              "result that is no pass\",\n")));
  EXPECT_THAT(station.steadyOutput(),
              AllOf(HasSubstr("left  FAIL  Odd"), HasSubstr("left  PASS  Not applicable")));
}

TEST_F(StationRun, aFlowThatHasLostItsTestsPassesNoDevice) {
  for (const char* what : {"flow", "tests"}) {
    bundle_.configure(entry("Volts", ""), text("takesAway", what));
    StationProcess station(atLeft());
    EXPECT_EQ(station.wait(), 1) << what;
    EXPECT_THAT(station.steadyOutput(),
                HasSubstr("left  A              BROKEN OFF  0.0 s  the plug-in has taken the "
                          "flow's tests away\n"))
        << what;
  }
}

TEST_F(StationRun, aLoggerThatTakesTheFlowAwayStopsEverything) {
  bundle_.configure(entry("Volts", ""), text("loggerTakesAway", "flow"));
  StationProcess withoutFlow(atBoth());
  EXPECT_EQ(withoutFlow.wait(), 2);
  EXPECT_THAT(withoutFlow.errors(),
              StartsWith("quillon: there is no flow \"default\" at site left\n"));
  EXPECT_EQ(withoutFlow.results(), "");

  bundle_.configure(entry("Volts", ""), text("loggerTakesAway", "tests"));
  StationProcess withoutTests(atBoth());
  EXPECT_EQ(withoutTests.wait(), 2);
  EXPECT_THAT(withoutTests.errors(), StartsWith("quillon: the flow \"default\" has no tests\n"));
}

TEST_F(StationRun, anErrorThatAPassedTestLeavesDoesNotCount) {
  bundle_.configure(entry("Volts", flag("passWithError")));
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 0);
}

TEST_F(StationRun, anExceptionBreaksItsDeviceOffAndLeavesTheOtherSiteRunning) {
  const std::string gate = (folder_.path() / "gate").string();
  bundle_.configure(
      entry("Volts", flag("throw") + text("at", "left")) + entry("Later", text("await", gate)),
      callsAttribute());
  StationProcess station(atBoth());
  // The other site is still at work when the exception has come and gone.
  ASSERT_TRUE(test::waitForFile(gate + ".right"));
  ASSERT_TRUE(station.waitForOutput("BROKEN OFF  device A"));
  std::ofstream(gate).close();
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.steadyOutput(),
              AllOf(HasSubstr("left   FAIL  Volts  0.0 s  Volts threw an exception: the cable is "
                              "off\n"),
                    HasSubstr("left   A              BROKEN OFF  0.0 s  Volts threw an exception: "
                              "the cable is off\n"
                              "right  B              PASS        0.0 s\n"
                              "\n"
                              "1 passed, 0 failed, 1 broken off\n")));
  // What was measured before it is in the log, and so is the exception.
  EXPECT_THAT(station.results(),
              AllOf(HasSubstr(",A,left,Volts,volts,1.1,"),
                    HasSubstr(",A,left,Volts,runtime error,1.0,,run time error,F,\"Volts threw an "
                              "exception: the cable is off\",\n"),
                    HasSubstr(",B,right,Later,volts,2.1,")));
  const std::vector<std::string> made = callsMade();
  EXPECT_EQ(std::count(made.begin(), made.end(), "left onException"), 1);
  EXPECT_EQ(std::count(made.begin(), made.end(), "right onDUTFinished"), 1);
  EXPECT_EQ(std::count(made.begin(), made.end(), "left onDUTFail"), 0);
}

TEST_F(StationRun, anExceptionOfAnyKindIsCaught) {
  bundle_.configure(entry("Volts", flag("throwInt")));
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.output(), HasSubstr("Volts threw an exception of an unknown kind"));
}

TEST_F(StationRun, aHookThatFailsBreaksTheDeviceOff) {
  struct Case {
    const char* attribute;
    const char* hook;
    const char* shown;
  };
  for (const Case& c :
       {Case{"fails", "onDUTStart", "onDUTStart failed: the database is away"},
        Case{"throws", "onDUTStart", "onDUTStart threw an exception: hook trouble"},
        Case{"fails", "onDUTFinished", "onDUTFinished failed: the database is away"},
        Case{"returnsFalse", "onDUTFinished", "onDUTFinished failed"},
        Case{"throws", "onDUTFinished", "onDUTFinished threw an exception: hook trouble"}}) {
    SCOPED_TRACE(c.shown);
    std::filesystem::remove(calls());
    bundle_.configure(entry("Volts", ""), callsAttribute() + text(c.attribute, c.hook));
    StationProcess station(atBoth());
    EXPECT_EQ(station.wait(), 1);
    EXPECT_THAT(station.steadyOutput(),
                HasSubstr("left   A              BROKEN OFF  0.0 s  " + std::string(c.shown) +
                          "\nright  B              PASS        0.0 s\n"));
    const std::vector<std::string> made = callsMade();
    EXPECT_EQ(std::count(made.begin(), made.end(), "left onException"), 1);
    EXPECT_EQ(std::count(made.begin(), made.end(), "right onException"), 0);
  }
}

TEST_F(StationRun, aHookThatFailsAfterAFailedTestIsShownWithIt) {
  bundle_.configure(entry("Volts", text("value", "9")), text("throws", "onDUTFail"));
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.steadyOutput(),
              HasSubstr("left  A              FAIL        0.0 s  Volts / volts: 9, limits 1 to 2; "
                        "then onDUTFail threw an exception: hook trouble\n"));
}

TEST_F(StationRun, onExceptionItselfMayFail) {
  bundle_.configure(entry("Volts", flag("throw")), text("throws", "onException"));
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.output(), HasSubstr("Volts threw an exception: the cable is off; onException "
                                          "threw an exception: hook trouble\n"));
}

TEST_F(StationRun, anUnloadThatFailsIsAWarning) {
  bundle_.configure(entry("Volts", ""), text("fails", "onUnload"));
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 0);
  EXPECT_THAT(station.errors(), StartsWith("Warning: the plug-in's onUnload failed"));
}

TEST_F(StationRun, repeatTestsOneDeviceAfterTheOther) {
  bundle_.configure(entry("Volts", ""), callsAttribute());
  StationProcess station(atLeft({"--repeat", "3"}));
  EXPECT_EQ(station.wait(), 0);
  EXPECT_THAT(callsMade(),
              ElementsAre("left onDUTStart A default 1", "left onDUTFinished",
                          "left onDUTStart A default 2", "left onDUTFinished",
                          "left onDUTStart A default 3", "left onDUTFinished", "onUnload"));
  EXPECT_EQ(station.results(), kHeader + line("1,A,left", "Volts", "1.1", "1.500000", "P,\"\"") +
                                   line("2,A,left", "Volts", "1.1", "1.500000", "P,\"\"") +
                                   line("3,A,left", "Volts", "1.1", "1.500000", "P,\"\""));
  EXPECT_THAT(station.output(), HasSubstr("3 passed, 0 failed, 0 broken off\n"));
}

TEST_F(StationRun, aDisabledSiteIsNotedAndNotTested) {
  bundle_.configure(entry("Volts", ""));
  StationProcess station(atBoth());
  EXPECT_EQ(station.wait(), 0);
  EXPECT_THAT(station.output(),
              StartsWith("Site spare is disabled in the station's configuration.\n"));
  EXPECT_THAT(station.results(), Not(HasSubstr("spare")));
}

TEST_F(StationRun, attributesAndExtrasBecomeColumns) {
  bundle_.configure(
      entry("Volts", ""),
      "<key>csvAttributeKeys</key><array><string>station</string><string>none</string></array>"
      "<key>csvExtraKeys</key><array><string>note</string></array>");
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 0);
  EXPECT_EQ(station.results(),
            "station,none,runIndex, sn,site,test,subtest,number,expected,value,PF,fail "
            "message,note,\nS1,(null),1,A,left,Volts,volts,1.1,from 1.000000 to "
            "2.000000,1.500000,P,\"\",n,\n");
}

TEST_F(StationRun, aLoggerOfThePluginIsOpenedOnceAndGetsTheRecords) {
  bundle_.configure(entry("Volts", ""), text("ownLogger", calls()));
  StationProcess station(atBoth());
  EXPECT_EQ(station.wait(), 0);
  std::vector<std::string> made = callsMade();
  ASSERT_EQ(made.size(), 4U);
  std::sort(made.begin() + 1, made.begin() + 3);
  EXPECT_THAT(made, ElementsAre("open", "log left S1", "log right S1", "close"));
}

TEST_F(StationRun, aLoggerOfThePluginThatCannotBeMadeStopsEverything) {
  bundle_.configure(entry("Volts", ""), text("ownLogger", "throw"));
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 2);
  EXPECT_THAT(station.errors(),
              HasSubstr("the logger of site left threw an exception of an unknown kind"));
}

TEST_F(StationRun, aLoggerOfThePluginThatThrowsBreaksTheDeviceOff) {
  bundle_.configure(entry("Unloggable", flag("lie") + text("value", "9")) + entry("Later", ""),
                    text("ownLogger", calls()));
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.steadyOutput(),
              HasSubstr("left  A              BROKEN OFF  0.0 s  Unloggable / volts: 9, limits 1 "
                        "to 2; then the plug-in's logger threw an exception: the server is "
                        "away\n"));
  EXPECT_EQ(
      station.results(),
      kHeader + line("1,A,left", "Unloggable", "1.1", "9.000000", "F,\"failed volts\"") +
          brokenOff("1,A,left", "the plug-in's logger threw an exception: the server is away"));
}

TEST_F(StationRun, instrumentsAreClosedAtTheEnd) {
  test::writeTesterConfig("meter,Instrument,0,calls=" + calls() + "\n");
  bundle_.configure(entry("Volts", ""), callsAttribute(),
                    "<key>Resources</key><dict><key>m</key><string>meter</string></dict>");
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 0);
  EXPECT_THAT(callsMade(), ElementsAre("left onDUTStart A default 1", "left onDUTFinished",
                                       "onUnload", "instrument closed"));
}

TEST_F(StationRun, instrumentsAreClosedAfterARefusal) {
  test::writeTesterConfig("meter,Instrument,0,calls=" + calls() + "\n");
  bundle_.configure(entry("Volts", ""));
  StationProcess station(atLeft({"--flow", "nightly"}));
  EXPECT_EQ(station.wait(), 2);
  EXPECT_THAT(callsMade(), ElementsAre("instrument closed"));
}

TEST_F(StationRun, diagnosticsGoToTheirFileAndWithVerboseToTheScreen) {
  bundle_.configure(entry("Volts", text("log", "measuring")));
  StationProcess quiet(atLeft());
  EXPECT_EQ(quiet.wait(), 0);
  EXPECT_THAT(quiet.diagnostics(), AllOf(HasSubstr("[station] createLogPath called\n"),
                                         HasSubstr("[left] measuring\n")));
  EXPECT_EQ(quiet.errors(), "");
  StationProcess verbose(atLeft({"--verbose"}));
  EXPECT_EQ(verbose.wait(), 0);
  EXPECT_EQ(verbose.errors(), verbose.diagnostics());
}

TEST_F(StationRun, aLogThatCannotBeWrittenBreaksTheDeviceOffAndEndsTheSeries) {
  // Enough to fill the result log, and nothing else: each of its lines has a long attribute.
  const std::uint64_t limit = 16U << 20U;
  std::string tests;
  for (int i = 0; i < 150; ++i) tests += entry("Volts", "");
  const std::string column = "<key>csvAttributeKeys</key><array><string>long</string></array>" +
                             text("long", std::string(200'000, 'x'));
  // It makes no difference what the plug-in does with the console log.
  for (const std::string& attributes : {std::string(), flag("takesSink")}) {
    bundle_.configure(tests, callsAttribute() + column + attributes);
    StationProcess station(atLeft({"--repeat", "3"}), StationProcess::FileLimit{limit});
    EXPECT_EQ(station.wait(), 1);
    EXPECT_EQ(station.results().size(), limit);
    const std::string reason =
        "the result log could not be written: logs/T_STAMP.csv: File too large\n";
    EXPECT_THAT(station.steadyOutput(),
                AllOf(HasSubstr("left  BROKEN OFF  Volts  0.0 s  " + reason),
                      HasSubstr("  " + reason + "\n0 passed, 0 failed, 1 broken off\n")));
    EXPECT_EQ(station.errors(),
              "Warning: the result log is not complete; test the devices that were broken off "
              "again\n");
    EXPECT_THAT(callsMade(), testing::Contains("left onException"));
    EXPECT_THAT(callsMade(), Not(testing::Contains("left onDUTFinished")));
  }
}

TEST_F(StationRun, aLogWhoseHeaderCannotBeWrittenStopsEverything) {
  const std::uint64_t limit = 1U << 20U;
  bundle_.configure(entry("Volts", ""), "<key>csvExtraKeys</key><array><string>" +
                                            std::string(limit, 'x') + "</string></array>");
  StationProcess station(atLeft(), StationProcess::FileLimit{limit});
  EXPECT_EQ(station.wait(), 2);
  EXPECT_THAT(station.errors(), StartsWith("quillon: cannot write the result log logs/T_"));
}

TEST_F(StationRun, aCrashAfterSuchAStopIsAnEventLikeAnyOther) {
  const std::uint64_t limit = 1U << 20U;
  bundle_.configure(entry("Volts", ""), "<key>csvExtraKeys</key><array><string>" +
                                            std::string(limit, 'x') + "</string></array>" +
                                            TroubleBundle::flag("crashesUnloading"));
  StationProcess station(atLeft(), StationProcess::FileLimit{limit});
  EXPECT_EQ(station.wait(), 2);
  EXPECT_THAT(station.errors(), HasSubstr("the plug-in crashed: killed, while it was unloaded"));
  EXPECT_THAT(station.diagnostics(), Not(HasSubstr("the event is not in the store")));
}

TEST_F(StationRun, whatAPluginLogsIsNotTakenForTheResultLogs) {
  bundle_.configure(
      entry("Volts", text("log", "In CSV logger, error writing to file x: No space left")));
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 0);
  EXPECT_EQ(station.errors(), "");
  EXPECT_THAT(station.diagnostics(), HasSubstr("[left] In CSV logger, error writing"));
}

TEST_F(StationRun, aLoggerOfThePluginThatLosesARecordBreaksTheDeviceOff) {
  bundle_.configure(entry("Unrecorded", "") + entry("Later", ""), text("ownLogger", calls()));
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.steadyOutput(),
              HasSubstr("left  A              BROKEN OFF  0.0 s  the plug-in's logger could not be "
                        "written: the server is full\n"));
}

TEST_F(StationRun, aSignalEndsTheFlowBeforeTheNextTest) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    std::filesystem::remove(calls());
    const std::string gate = (folder_.path() / ("gate" + std::to_string(signal))).string();
    bundle_.configure(entry("First", text("await", gate)) + entry("Second", ""), callsAttribute());
    StationProcess station(atLeft({"--repeat", "2"}));
    ASSERT_TRUE(test::waitForFile(gate + ".left"));
    station.send(signal);
    ASSERT_TRUE(station.waitForErrors());
    std::ofstream(gate).close();
    EXPECT_EQ(station.wait(), 1);
    EXPECT_THAT(station.errors(), HasSubstr("Stopping after the running tests."));
    EXPECT_THAT(station.steadyOutput(),
                AllOf(HasSubstr("left  PASS  First "),
                      HasSubstr("left  A              BROKEN OFF  0.0 s  stopped on request before "
                                "Second\n\n0 passed, 0 failed, 1 broken off\nResults: ")));
    EXPECT_EQ(station.results(), kHeader + line("1,A,left", "First", "1.1", "1.500000", "P,\"\"") +
                                     brokenOff("1,A,left", "stopped on request before Second"));
    EXPECT_THAT(callsMade(),
                ElementsAre("left onDUTStart A default 1", "left onException", "onUnload"));
  }
}

TEST_F(StationRun, aSecondSignalEndsTheRunningTestsAtOnce) {
  const std::string gate = (folder_.path() / "gate").string();
  bundle_.configure(entry("Volts", "") + entry("First", text("await", gate)), callsAttribute());
  StationProcess station(atLeft({"--repeat", "2"}));
  ASSERT_TRUE(test::waitForFile(gate + ".left"));
  station.send(SIGINT);
  ASSERT_TRUE(station.waitForErrors("Once more (Ctrl-C) ends them at once."));
  std::this_thread::sleep_for(
      std::chrono::milliseconds(100));  // a twin of the first one would not count
  station.send(SIGTERM);
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.errors(), HasSubstr("Ending the running tests."));
  EXPECT_THAT(station.steadyOutput(),
              HasSubstr("left  A              BROKEN OFF  0.0 s  stopped at once on request in "
                        "test 2 First\n\n0 passed, 0 failed, 1 broken off\nResults: "));
  EXPECT_EQ(station.results(),
            kHeader + line("1,A,left", "Volts", "1.1", "1.500000", "P,\"\"") +
                "1,A,left,First,runtime error,2.0,,run time error,F,\"stopped at once on request "
                "in test 2 First\",\n");
}

TEST_F(StationRun, aThirdSignalEndsTheProgram) {
  const std::string gate = (folder_.path() / "gate").string();
  bundle_.configure(entry("First", text("await", gate) + flag("ignoresTerminate")));
  StationProcess station(atLeft());
  ASSERT_TRUE(test::waitForFile(gate + ".left"));
  for (const char* const announced : {"ends them at once.", "ends the program as it is."}) {
    station.send(SIGINT);
    ASSERT_TRUE(station.waitForErrors(announced));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  station.send(SIGTERM);
  EXPECT_EQ(station.wait(), -SIGTERM);
}
