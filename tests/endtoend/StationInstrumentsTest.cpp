#include <csignal>
#include <fstream>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

#include "StationProcess.h"
#include "TroubleBundle.h"
#include "support/Eventually.h"
#include "support/SerialLine.h"

// What becomes of devices and sites when instruments go, and when they come back.

namespace {

using test::StationProcess;
using test::TroubleBundle;
using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

/// The site "left" has a console on a real line. Its first test is "Waiting", until `goOn`; the
/// second one, "Console", asks it.
class StationLostInstrument : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NO_THROW(
        test::writeTesterConfig("console-left,QLTDiags,0,bsdPath=" + line_.path() + "\n"));
    configure();
  }
  void configure(const std::string& moreTests = "") {
    bundle_.configure(
        TroubleBundle::test("Waiting", TroubleBundle::text("await", gate_) + atLeft()) +
            TroubleBundle::test("Console", TroubleBundle::text("asks", "console") + atLeft()) +
            moreTests,
        "", "<key>Resources</key><dict><key>console</key><string>console-left</string></dict>");
  }
  static std::string atLeft() { return TroubleBundle::text("at", "left"); }
  /// Takes the line away in the middle of the first device of the site "left".
  void loseTheLine() {
    ASSERT_TRUE(test::waitForFile(gate_ + ".left"));
    line_.unplug();
    std::ofstream(gate_).close();
  }

  test::PluggedLine line_;
  test::TemporaryFolder folder_;
  const std::string gate_ = (folder_.path() / "gate").string();
  TroubleBundle bundle_{TROUBLE_PLUGIN};
};

}  // namespace

TEST_F(StationLostInstrument, breaksItsDeviceOffAndTheSiteGoesOnWhenItIsBack) {
  StationProcess station(
      {"run", bundle_.path(), "--site", "left", "--sn", "left=A", "--repeat", "2"});
  loseTheLine();
  ASSERT_TRUE(station.waitForErrors("Warning: left waits for console, " + line_.path() + ": "));
  EXPECT_THAT(station.errors(), HasSubstr("No such file or directory"));
  EXPECT_THAT(station.output(), HasSubstr("BROKEN OFF  device A in "));
  line_.plugIn();
  const std::jthread device([this] {
    line_.device().receiveUntil('\n');
    line_.device().send("\n:-)");
  });
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(
      station.steadyOutput(),
      AllOf(HasSubstr("instrument lost: console, " + line_.path() + "\n"),
            HasSubstr("left  PASS  Console"), HasSubstr("1 passed, 0 failed, 1 broken off\n")));
  EXPECT_THAT(station.results(), HasSubstr("instrument lost: console, " + line_.path()));
  EXPECT_THAT(station.diagnostics(),
              HasSubstr("[left] opened again: console, " + line_.path() + "\n"));
}

TEST_F(StationLostInstrument, delaysNoOtherSite) {
  StationProcess station(
      {"run", bundle_.path(), "--sn", "left=A", "--sn", "right=B", "--repeat", "2"});
  loseTheLine();
  ASSERT_TRUE(station.waitForErrors("left waits for console"));
  const auto passes = [&] {
    const std::string pass = "right  PASS  device B";
    const std::string output = station.output();
    const auto first = output.find(pass);
    return first != std::string::npos && output.find(pass, first + 1) != std::string::npos;
  };
  EXPECT_TRUE(test::eventually(passes));
  station.send(SIGINT);
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.output(), HasSubstr("2 passed, 0 failed, 1 broken off\n"));
}

TEST_F(StationLostInstrument, keepsNoWorkerAliveThatATestBlocks) {
  const auto atRight = TroubleBundle::text("at", "right");
  const std::string second = (folder_.path() / "second").string();
  const std::string never = (folder_.path() / "never").string();
  configure(TroubleBundle::test("Slow", TroubleBundle::text("await", second) + atRight) +
            TroubleBundle::test("Hanging", TroubleBundle::text("await", never) + atRight,
                                "<key>timeLimit</key><real>0.1</real>"));
  StationProcess station(
      {"run", bundle_.path(), "--sn", "left=A", "--sn", "right=B", "--repeat", "2"});
  loseTheLine();
  ASSERT_TRUE(station.waitForErrors("left waits for console"));
  std::ofstream(second).close();
  ASSERT_TRUE(station.waitForOutput("right  BROKEN OFF  device B"));
  station.send(SIGINT);
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.output(), HasSubstr("Hanging exceeded its time limit of 0.1 s\n"));
}

TEST_F(StationLostInstrument, aSiteThatWaitsGoesOnWaitingWhenAnotherOneCrashes) {
  const auto atRight = TroubleBundle::text("at", "right");
  const std::string second = (folder_.path() / "second").string();
  const std::string once = (folder_.path() / "once").string();
  configure(TroubleBundle::test("Slow", TroubleBundle::text("await", second) + atRight) +
            TroubleBundle::test("Dying", TroubleBundle::text("dies", "segfault") + atRight +
                                             TroubleBundle::text("unless", once)));
  StationProcess station(
      {"run", bundle_.path(), "--sn", "left=A", "--sn", "right=B", "--repeat", "2"});
  loseTheLine();
  const std::string waits = "left waits for console, " + line_.path();
  ASSERT_TRUE(station.waitForErrors(waits));
  std::ofstream(second).close();
  ASSERT_TRUE(test::eventually([&] {
    const std::string errors = station.errors();
    return errors.find(waits) != errors.rfind(waits);
  }));
  ASSERT_TRUE(test::eventually(
      [&] { return station.output().find("right  PASS  device B") != std::string::npos; }));
  line_.plugIn();
  const std::jthread device([this] {
    line_.device().receiveUntil('\n');
    line_.device().send("\n:-)");
  });
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.output(), AllOf(HasSubstr("left   PASS  Console"),
                                      HasSubstr("2 passed, 0 failed, 2 broken off\n")));
  EXPECT_THAT(station.errors(), Not(HasSubstr("UNSAFE")));
}

TEST_F(StationLostInstrument, aBusyOneIsToldWithTheProcessThatHasIt) {
  const std::string once = (folder_.path() / "once").string();
  test::writeTesterConfig("meter,Instrument,0,absentAfter=" + once + ";busy=" + line_.path() +
                          "\n");
  const int held = open(line_.path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  bundle_.configure(
      TroubleBundle::test("Dying", TroubleBundle::text("dies", "segfault") + atLeft() +
                                       TroubleBundle::text("unless", once)),
      "", "<key>Resources</key><dict><key>m</key><string>meter</string></dict>");
  StationProcess station(
      {"run", bundle_.path(), "--sn", "left=A", "--sn", "right=B", "--repeat", "2"});
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.errors(),
              ContainsRegex("left is UNSAFE: its instruments did not come up again for its safe "
                            "state; instrument meter: no line.*\\(process " +
                            std::to_string(getpid()) + "\\) has it\n"));
  close(held);
}

TEST_F(StationLostInstrument, aSiteThatIsNotLoadedAgainSaysWhy) {
  const auto atRight = TroubleBundle::text("at", "right");
  const std::string second = (folder_.path() / "second").string();
  const std::string once = (folder_.path() / "once").string();
  test::writeTesterConfig("console-left,QLTDiags,0,bsdPath=" + line_.path() +
                          "\nmeter,Instrument,0,absentAfter=" + once + "\n");
  bundle_.configure(
      TroubleBundle::test("Waiting", TroubleBundle::text("await", gate_) + atLeft()) +
          TroubleBundle::test("Console", TroubleBundle::text("asks", "console") + atLeft()) +
          TroubleBundle::test("Slow", TroubleBundle::text("await", second) + atRight) +
          TroubleBundle::test("Dying", TroubleBundle::text("dies", "segfault") + atRight +
                                           TroubleBundle::text("unless", once)),
      "",
      "<key>Resources</key><dict><key>console</key><string>console-left</string><key>m</key>"
      "<string>meter</string></dict>");
  StationProcess station(
      {"run", bundle_.path(), "--sn", "left=A", "--sn", "right=B", "--repeat", "2"});
  loseTheLine();
  ASSERT_TRUE(station.waitForErrors("left waits for console"));
  std::ofstream(second).close();
  EXPECT_EQ(station.wait(), 1);
  const std::string told =
      "takes no more devices: its instruments did not come up again; instrument meter: no such "
      "meter\n";
  EXPECT_THAT(station.errors(), HasSubstr("Warning: site left " + told));
  EXPECT_THAT(station.diagnostics(), HasSubstr("[left] " + told));
  EXPECT_THAT(station.output(), HasSubstr("1 passed, 0 failed, 2 broken off\n"));
}

TEST_F(StationLostInstrument, isNoSafeStateForAFixtureInTheMiddleOfATest) {
  const auto atRight = TroubleBundle::text("at", "right");
  const std::string second = (folder_.path() / "second").string();
  bundle_.configure(
      TroubleBundle::test("Waiting", TroubleBundle::text("await", gate_) + atLeft()) +
          TroubleBundle::test("Dying", TroubleBundle::text("dies", "after " + second) + atRight),
      "", "<key>Resources</key><dict><key>console</key><string>console-left</string></dict>");
  StationProcess station({"run", bundle_.path(), "--sn", "left=A", "--sn", "right=B"});
  ASSERT_TRUE(test::waitForFile(gate_ + ".left"));
  line_.unplug();
  std::ofstream(second).close();
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.errors(), AllOf(HasSubstr("site left is UNSAFE: instrument lost: console, " +
                                                line_.path() + "\n"),
                                      Not(HasSubstr("site right is UNSAFE"))));
}

TEST_F(StationLostInstrument, theWaitingEndsWithAStop) {
  StationProcess station(
      {"run", bundle_.path(), "--site", "left", "--sn", "left=A", "--repeat", "2"});
  loseTheLine();
  ASSERT_TRUE(station.waitForErrors("left waits for console"));
  station.send(SIGINT);
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.output(), HasSubstr("0 passed, 0 failed, 1 broken off\n"));
}

TEST_F(StationLostInstrument, aDeviceThatFailsWithItsInstrumentsThereHasFailed) {
  bundle_.configure(TroubleBundle::test("Console", TroubleBundle::flag("failWithError")), "",
                    "<key>Resources</key><dict><key>console</key><string>console-left</string>"
                    "</dict>");
  StationProcess station({"run", bundle_.path(), "--site", "left", "--sn", "left=A"});
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.output(), AllOf(HasSubstr("0 passed, 1 failed, 0 broken off\n"),
                                      Not(HasSubstr("instrument lost"))));
}

TEST_F(StationLostInstrument, oneWithAnOverdueCalibrationTestsNothing) {
  test::writeTesterConfig("console-left,QLTDiags,0,bsdPath=" + line_.path() +
                          ";calibrationDue=2024-02-29\n");
  bundle_.configure(TroubleBundle::test("Volts", ""), "",
                    "<key>Resources</key><dict><key>console</key><string>console-left</string>"
                    "</dict>");
  const std::string due = "the calibration of instrument console-left was due on 2024-02-29";
  {
    StationProcess station({"run", bundle_.path(), "--sn", "left=A", "--sn", "right=B"});
    EXPECT_EQ(station.wait(), 1);
    EXPECT_THAT(station.errors(), HasSubstr("site left is NOT AVAILABLE\n  " + due + "\n"));
    EXPECT_THAT(station.output(), HasSubstr("1 passed, 0 failed, 0 broken off\n"));
  }
  StationProcess station({"run", bundle_.path(), "--sn", "left=A", "--sn", "right=B",
                          "--calibration-override", "Mary:only a trial"});
  EXPECT_EQ(station.wait(), 0);
  EXPECT_THAT(station.diagnostics(),
              HasSubstr(due + "; tested all the same, as Mary:only a trial wants it\n"));
}

TEST_F(StationLostInstrument, aCalibrationThatIsNoDateIsAnError) {
  test::writeTesterConfig("console-left,QLTDiags,0,bsdPath=" + line_.path() +
                          ";calibrationDue=2024-02-30\n");
  StationProcess station({"run", bundle_.path(), "--sn", "left=A", "--sn", "right=B"});
  EXPECT_EQ(station.wait(), 2);
  EXPECT_THAT(station.errors(), HasSubstr("must be a date of the form YYYY-MM-DD, not "
                                          "\"2024-02-30\""));
}
