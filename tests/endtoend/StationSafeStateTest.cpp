#include <chrono>
#include <csignal>
#include <thread>

#include "StationProcess.h"
#include "TroubleBundle.h"

// What becomes of the fixtures when a plug-in ends in the middle of a test.

namespace {

using test::StationProcess;
using test::TroubleBundle;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class StationSafeState : public testing::Test {
 protected:
  void SetUp() override { ASSERT_NO_THROW(test::writeTesterConfig("")); }

  std::string file(const std::string& name) const { return (folder_.path() / name).string(); }
  std::string calls() const { return test::contentOf(file("calls")); }
  /// A plug-in that crashes with the first device at the site "left".
  void crashOnce(const std::string& attributes = "") {
    configure(TroubleBundle::test("Voltages", TroubleBundle::text("dies", "segfault") +
                                                  TroubleBundle::text("at", "left") +
                                                  TroubleBundle::text("unless", file("once"))),
              attributes);
  }
  void configure(const std::string& tests, const std::string& attributes = "") {
    bundle_.configure(tests, TroubleBundle::text("calls", file("calls")) + attributes);
  }
  std::vector<std::string> run(const std::vector<std::string>& more = {}) const {
    std::vector<std::string> arguments{"run",    bundle_.path(),       "--sn",
                                       "left=A", "--safe-state-limit", "1"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }
  std::vector<std::string> atLeft(const std::vector<std::string>& more = {}) const {
    std::vector<std::string> arguments = run({"--site", "left"});
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }

  test::TemporaryFolder folder_;
  TroubleBundle bundle_{TROUBLE_PLUGIN};
};

}  // namespace

TEST_F(StationSafeState, followsACrashBeforeTheNextDevice) {
  crashOnce();
  StationProcess station(atLeft({"--repeat", "2"}));
  EXPECT_EQ(station.wait(), 1);
  EXPECT_EQ(calls(),
            "left onDUTStart A default 1\nleft onSafeState\nleft onDUTStart A default 2\n"
            "left onDUTFinished\nonUnload\n");
  EXPECT_THAT(station.diagnostics(), HasSubstr("[left] in its safe state\n"));
  EXPECT_THAT(station.errors(), Not(HasSubstr("UNSAFE")));
}

TEST_F(StationSafeState, followsACrashAtTheLastDevice) {
  crashOnce();
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 1);
  EXPECT_EQ(calls(), "left onDUTStart A default 1\nleft onSafeState\nonUnload\n");
}

TEST_F(StationSafeState, followsTheFourthCrashToo) {
  configure(TroubleBundle::test("Voltages", TroubleBundle::text("dies", "segfault")));
  StationProcess station(atLeft({"--repeat", "9"}));
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.errors(), HasSubstr("that was the 4th time within 10 minutes"));
  EXPECT_THAT(calls(),
              testing::EndsWith("left onDUTStart A default 4\nleft onSafeState\nonUnload\n"));
}

TEST_F(StationSafeState, followsAStopAtOnce) {
  configure(TroubleBundle::test("Waiting", TroubleBundle::text("await", file("gate"))));
  StationProcess station(atLeft());
  ASSERT_TRUE(test::waitForFile(file("gate.left")));
  station.send(SIGINT);
  ASSERT_TRUE(station.waitForErrors("Stopping after the running tests"));
  std::this_thread::sleep_for(std::chrono::milliseconds(60));  // no twin of the first one
  station.send(SIGINT);
  EXPECT_EQ(station.wait(), 1);
  EXPECT_EQ(calls(), "left onDUTStart A default 1\nleft onSafeState\nonUnload\n");
  EXPECT_THAT(station.output(), HasSubstr("stopped at once on request in test 1 Waiting"));
}

TEST_F(StationSafeState, isNotForARunThatEndsAsItShould) {
  configure(TroubleBundle::test("Voltages", TroubleBundle::text("value", "9")));
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(calls(), Not(HasSubstr("onSafeState")));
}

TEST_F(StationSafeState, makesInstrumentsSafeAfterTheHookAlsoOneThatFails) {
  const std::string resources =
      "<key>Resources</key><dict><key>m</key><string>meter</string>"
      "<key>n</key><string>other</string></dict>";
  for (const char* how : {"works", "fails"}) {
    const std::string once = file(std::string("once ") + how);
    test::writeTesterConfig("meter,Instrument,0,calls=" + file(how) + ";safe=" + how +
                            "\nother,Instrument,0,calls=" + file(how) + ";safe=works\n");
    bundle_.configure(
        TroubleBundle::test("Voltages", TroubleBundle::text("dies", "segfault") +
                                            TroubleBundle::text("unless", once)),
        TroubleBundle::text("calls", file(how)) + TroubleBundle::text("fails", "onSafeState"),
        resources);
    StationProcess station(atLeft());
    EXPECT_EQ(station.wait(), 1);
    // All are told before the first is asked whether it is safe.
    EXPECT_THAT(test::contentOf(file(how)),
                HasSubstr("left onSafeState\ninstrument told to be safe\n"
                          "instrument told to be safe\ninstrument made safe\n"
                          "instrument made safe\n"));
    const std::string hook = "site left is UNSAFE: onSafeState failed: the database is away";
    EXPECT_THAT(station.errors(),
                HasSubstr(hook + (how == std::string("fails")
                                      ? "; m, cannot be made safe: output 1 stays on\n"
                                      : "\n")));
  }
}

TEST_F(StationSafeState, oneThatFailsTakesItsSiteOutOfUse) {
  crashOnce(TroubleBundle::text("fails", "onSafeState"));
  StationProcess station(run({"--sn", "right=B", "--repeat", "12"}));
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.errors(),
              HasSubstr("quillon: site left is UNSAFE: onSafeState failed: the database is away\n"
                        "Make the fixture safe by hand, then acknowledge.\n"));
  EXPECT_THAT(calls(), AllOf(HasSubstr("right onSafeState\n"), Not(HasSubstr("A default 2")),
                             HasSubstr("right onDUTStart B default 12\n")));
  EXPECT_THAT(station.diagnostics(),
              HasSubstr("[left] UNSAFE: onSafeState failed: the database is away\n"));
}

TEST_F(StationSafeState, oneThatTakesTooLongIsKilledAndCountsAsFailed) {
  crashOnce(TroubleBundle::text("safeState", "hangs"));
  StationProcess station(run({"--sn", "right=B", "--repeat", "12"}));
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.errors(),
              AllOf(HasSubstr("site left is UNSAFE: the plug-in was killed after 1 s in "
                              "onSafeState\n"),
                    Not(HasSubstr("site right is UNSAFE"))));
  EXPECT_THAT(calls(), HasSubstr("right onDUTStart B default 12\n"));
}

TEST_F(StationSafeState, oneThatCrashesCountsAsFailed) {
  crashOnce(TroubleBundle::text("safeState", "crashes"));
  StationProcess station(atLeft({"--repeat", "2"}));
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.errors(), HasSubstr("site left is UNSAFE: the plug-in crashed: segmentation "
                                          "fault in onSafeState\n"));
  EXPECT_THAT(station.output(), HasSubstr("0 passed, 0 failed, 1 broken off\n"));
}

TEST_F(StationSafeState, followsAStopAtOnceInAHook) {
  configure(TroubleBundle::test("Voltages", ""),
            TroubleBundle::text("waits", "onDUTFinished " + file("gate")));
  StationProcess station(atLeft());
  ASSERT_TRUE(test::waitForFile(file("gate.hook")));
  station.send(SIGINT);
  ASSERT_TRUE(station.waitForErrors("Stopping after the running tests"));
  std::this_thread::sleep_for(std::chrono::milliseconds(60));  // no twin of the first one
  station.send(SIGINT);
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.output(), AllOf(HasSubstr("stopped at once on request in onDUTFinished"),
                                      HasSubstr("0 passed, 0 failed, 1 broken off\n")));
  EXPECT_THAT(calls(), HasSubstr("left onSafeState\n"));
}

TEST_F(StationSafeState, aPersonAcknowledgesByName) {
  crashOnce(TroubleBundle::text("fails", "onSafeState"));
  StationProcess station(atLeft({"--repeat", "2"}), StationProcess::Input::Terminal);
  const std::string question = "Make the fixture safe by hand, then type your name: ";
  ASSERT_TRUE(station.waitForOutput(question));
  station.type("\n");
  ASSERT_TRUE(station.waitForOutput(question, 2));
  EXPECT_THAT(calls(), Not(HasSubstr("A default 2")));
  station.type("Mary Smith\n");
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(calls(), HasSubstr("left onDUTStart A default 2\n"));
  EXPECT_THAT(station.diagnostics(),
              HasSubstr("[left] made safe by hand, acknowledged, by Mary Smith\n"));
}
