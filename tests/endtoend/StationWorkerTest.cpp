#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <thread>

#include "StationProcess.h"
#include "TroubleBundle.h"
#include "common/Sanitizers.h"
#include "support/Eventually.h"

// What becomes of the station when a plug-in takes its process along, and of the plug-in when the
// station goes.

namespace {

using test::StationProcess;
using test::TroubleBundle;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class StationWorker : public testing::Test {
 protected:
  void SetUp() override { ASSERT_NO_THROW(test::writeTesterConfig("")); }

  static std::string dying(const std::string& how, const std::string& more = "") {
    return TroubleBundle::test("Voltages", TroubleBundle::text("dies", how) + more);
  }
  /// What a process has used so far.
  static double processorSeconds(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/schedstat");
    double nanoseconds = 0;
    file >> nanoseconds;
    return nanoseconds / 1e9;
  }
  static std::string passing() { return TroubleBundle::test("Supply", ""); }
  std::vector<std::string> atLeft(const std::vector<std::string>& more = {}) const {
    std::vector<std::string> arguments{"run", bundle_.path(), "--site", "left", "--sn", "left=A"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }

  test::TemporaryFolder folder_;
  TroubleBundle bundle_{TROUBLE_PLUGIN};
};

struct Death {
  const char* how;
  const char* told;
};

class StationWorkerDeath : public StationWorker, public testing::WithParamInterface<Death> {};

}  // namespace

TEST_P(StationWorkerDeath, costsTheDeviceAndTellsTheTest) {
  bundle_.configure(passing() + dying(GetParam().how));
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 1);
  const std::string told = std::string(GetParam().told) + " in test 2 Voltages";
  EXPECT_THAT(station.steadyOutput(),
              AllOf(HasSubstr("left  PASS  Supply "),
                    HasSubstr("left  A              BROKEN OFF  0.0 s  " + told),
                    HasSubstr("0 passed, 0 failed, 1 broken off\n")));
  EXPECT_THAT(station.results(), AllOf(HasSubstr("1,A,left,Supply,volts,1.1,"),
                                       HasSubstr("1,A,left,Voltages,runtime error,2.0,,run time "
                                                 "error,F,\"" +
                                                 told)));
  EXPECT_THAT(station.diagnostics(), HasSubstr(GetParam().told));
}

INSTANTIATE_TEST_SUITE_P(
    Each, StationWorkerDeath,
    testing::Values(
        Death{"segfault", "the plug-in crashed: segmentation fault"},
        Death{"abort", "the plug-in crashed: aborted"},
        Death{"kill", "the plug-in crashed: killed"},
        Death{"thread", "the plug-in crashed: aborted"},
        Death{"exit", "the plug-in ended its process, with exit status 3"},
        Death{"exit 0", "the plug-in ended its process, with exit status 0"},
        Death{"descriptors", "the plug-in closed the station's connection"},
        Death{"fork", "the plug-in crashed: segmentation fault"},
        Death{"half a message",
              "the plug-in broke the station's connection: bytes that are no message"},
        Death{"no message",
              "the plug-in broke the station's connection: bytes that are no message"},
        Death{"huge message",
              "the plug-in broke the station's connection: a message of 4294967295 bytes"},
        Death{"false message",
              "the plug-in broke the station's connection: a message of the unknown "
              "type \"secret\""}),
    [](const auto& info) {
      std::string name = info.param.how;
      std::replace(name.begin(), name.end(), ' ', '_');
      return name;
    });

TEST_F(StationWorker, aFreshOneTestsTheNextDevice) {
  const std::string once = (folder_.path() / "once").string();
  bundle_.configure(dying("segfault", TroubleBundle::text("unless", once)));
  StationProcess station(atLeft({"--repeat", "2"}));
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.steadyOutput(),
              AllOf(HasSubstr("left  A              BROKEN OFF  0.0 s  the plug-in crashed: "),
                    HasSubstr("left  A              PASS        0.0 s\n"),
                    HasSubstr("1 passed, 0 failed, 1 broken off\n")));
}

TEST_F(StationWorker, theDevicesOfTheOtherSitesAreBrokenOffAsWell) {
  const std::string gate = (folder_.path() / "gate").string();
  bundle_.configure(TroubleBundle::test("Waiting", TroubleBundle::text("await", gate) +
                                                       TroubleBundle::text("at", "right")) +
                    dying("after " + gate + ".right", TroubleBundle::text("at", "left")));
  StationProcess station({"run", bundle_.path(), "--sn", "left=A", "--sn", "right=B"});
  EXPECT_EQ(station.wait(), 1);
  const std::string elsewhere = quillon::internal::kIsSanitized
                                    ? ": segmentation fault in "
                                    : " at site left: segmentation fault; this device was in ";
  EXPECT_THAT(station.steadyOutput(),
              AllOf(HasSubstr("left   A              BROKEN OFF  0.0 s  the plug-in crashed: "
                              "segmentation fault in test 2 Voltages\n"),
                    HasSubstr("right  B              BROKEN OFF  0.0 s  the plug-in crashed" +
                              elsewhere + "test 1 Waiting\n")));
  EXPECT_THAT(station.diagnostics(),
              HasSubstr(quillon::internal::kIsSanitized
                            ? "[station] the plug-in crashed: segmentation fault\n"
                            : "[left] the plug-in crashed at site left: "
                              "segmentation fault\n"));
}

// Sanitizers have handlers of their own.
TEST_F(StationWorker, aCrashIsToldToItsSiteWhateverItIs) {
  if (quillon::internal::kIsSanitized) GTEST_SKIP();
  for (const auto& [how, told] :
       {std::pair{"fault", "segmentation fault"}, std::pair{"stack", "segmentation fault"},
        std::pair{"abort", "aborted"}}) {
    const std::string gate = (folder_.path() / how).string();
    bundle_.configure(TroubleBundle::test("Waiting", TroubleBundle::text("await", gate) +
                                                         TroubleBundle::text("at", "left")) +
                      TroubleBundle::test("Follows", TroubleBundle::text("await", gate + ".left") +
                                                         TroubleBundle::text("at", "right")) +
                      dying(how, TroubleBundle::text("at", "right")));
    StationProcess station({"run", bundle_.path(), "--sn", "left=A", "--sn", "right=B"});
    EXPECT_EQ(station.wait(), 1);
    EXPECT_THAT(
        station.output(),
        AllOf(HasSubstr("the plug-in crashed: " + std::string(told) + " in test 3 Voltages\n"),
              HasSubstr("the plug-in crashed at site right: " + std::string(told) +
                        "; this device was in test 1 Waiting\n")));
  }
}

TEST_F(StationWorker, aHandlerOfThePluginsOwnIsItsOwn) {
  bundle_.configure(dying("handled fault"));
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.output(),
              HasSubstr("the plug-in ended its process, with exit status 7 in test 1 Voltages\n"));
}

TEST_F(StationWorker, severalCrashesInAShortTimeEndTheSeries) {
  bundle_.configure(dying("segfault"));
  StationProcess station(atLeft({"--repeat", "9"}));
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.errors(),
              HasSubstr("quillon: no device can be tested any more: the plug-in crashed: "
                        "segmentation fault; that was the 4th time within 10 minutes\n"));
  EXPECT_THAT(station.output(), HasSubstr("0 passed, 0 failed, 4 broken off\n"));
}

TEST_F(StationWorker, aFloodOfLogLinesIsKept) {
  bundle_.configure(TroubleBundle::test("Flood", TroubleBundle::text("flood", "20000")));
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 0);
  EXPECT_THAT(station.diagnostics(),
              AllOf(HasSubstr("[left] line 0."), HasSubstr("[left] line 19999.")));
}

TEST_F(StationWorker, whatThePluginPrintsIsInTheDiagnostics) {
  bundle_.configure(passing(), TroubleBundle::text("talks", "hello"));
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 0);
  EXPECT_THAT(station.output(), Not(HasSubstr("hello")));
  EXPECT_THAT(station.diagnostics(), AllOf(HasSubstr("[station] hello, logged\n"),
                                           HasSubstr("[output] hello, printed\n")));
}

TEST_F(StationWorker, whatItLogsAtItsVeryEndIsInTheDiagnostics) {
  bundle_.configure(passing(), TroubleBundle::flag("lastWords"));
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 0);
  EXPECT_THAT(station.diagnostics(), HasSubstr("last words\n"));
}

TEST_F(StationWorker, oneThatDoesNotEndIsEndedByAStopAtOnce) {
  const std::string calls = (folder_.path() / "calls").string();
  bundle_.configure(passing(),
                    TroubleBundle::flag("lingers") + TroubleBundle::text("calls", calls));
  StationProcess station(atLeft());
  ASSERT_TRUE(test::eventually(
      [&] { return test::contentOf(calls).find("onUnload") != std::string::npos; }));
  const auto start = std::chrono::steady_clock::now();
  station.send(SIGINT);
  ASSERT_TRUE(station.waitForErrors("Stopping after the running tests"));
  std::this_thread::sleep_for(std::chrono::milliseconds(60));  // no twin of the first one
  station.send(SIGINT);
  EXPECT_EQ(station.wait(), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  EXPECT_THAT(station.errors(), HasSubstr("stopped at once on request, after it was unloaded"));
}

TEST_F(StationWorker, aFloodOfOutputKeepsNoTimeLimitFromEndingIt) {
  bundle_.configure(TroubleBundle::test("Flood", TroubleBundle::flag("printsForEver"),
                                        "<key>timeLimit</key><real>0.1</real>"));
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.output(), HasSubstr("exceeded its time limit of 0.1 s"));
}

TEST_F(StationWorker, aHookHasTheTimeLimitOfTheStation) {
  const std::string never = (folder_.path() / "never").string();
  const std::string limit = "<key>timeLimit</key><real>0.1</real>";
  const auto station = [&](const std::string& hook, const std::string& value) {
    bundle_.configure(TroubleBundle::test("Voltages", TroubleBundle::text("value", value)),
                      limit + TroubleBundle::text("waits", hook + " " + never));
    return std::make_unique<StationProcess>(atLeft());
  };
  const auto starting = station("onDUTStart", "1.5");
  EXPECT_EQ(starting->wait(), 1);
  EXPECT_THAT(starting->output(), AllOf(HasSubstr("onDUTStart exceeded its time limit of 0.1 s\n"),
                                        HasSubstr("0 passed, 0 failed, 1 broken off\n")));
  const auto finishing = station("onDUTFinished", "1.5");
  EXPECT_EQ(finishing->wait(), 1);
  EXPECT_THAT(finishing->output(),
              AllOf(HasSubstr("onDUTFinished exceeded its time limit of 0.1 s\n"),
                    HasSubstr("0 passed, 0 failed, 1 broken off\n")));
  EXPECT_THAT(finishing->results(), HasSubstr("onDUTFinished exceeded its time limit of 0.1 s"));
  const auto failing = station("onDUTFail", "9");
  EXPECT_EQ(failing->wait(), 1);
  EXPECT_THAT(failing->output(), AllOf(HasSubstr("onDUTFail exceeded its time limit of 0.1 s"),
                                       HasSubstr("0 passed, 1 failed, 0 broken off\n")));
}

TEST_F(StationWorker, oneThatStandsStillBetweenTwoTestsIsEnded) {
  const std::string gate = (folder_.path() / "gate").string();
  test::writeTesterConfig("meter,Instrument,0,stopsAfter=" + gate + ".left\n");
  bundle_.configure(TroubleBundle::test("Voltages", TroubleBundle::text("value", "9") +
                                                        TroubleBundle::text("await", gate)),
                    "<key>timeLimit</key><real>1</real>",
                    "<key>Resources</key><dict><key>m</key><string>meter</string></dict>");
  std::ofstream(gate).close();
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(
      station.output(),
      AllOf(HasSubstr("what comes after test 1 Voltages exceeded its time limit of 1.5 s\n"),
            HasSubstr("0 passed, 0 failed, 1 broken off\n")));
}

TEST_F(StationWorker, oneThatClosesItsOutputCostsNoTime) {
  const std::string gate = (folder_.path() / "gate").string();
  bundle_.configure(TroubleBundle::test(
      "Waiting", TroubleBundle::flag("closesOutput") + TroubleBundle::text("await", gate)));
  StationProcess station(atLeft());
  ASSERT_TRUE(test::waitForFile(gate + ".left"));
  const double before = processorSeconds(station.process());
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  EXPECT_LT(processorSeconds(station.process()) - before, 0.1);
  std::ofstream(gate).close();
  EXPECT_EQ(station.wait(), 0);
}

TEST_F(StationWorker, noDeviceBeginsWithOneThatIsBeingEnded) {
  const std::string gate = (folder_.path() / "gate").string();
  bundle_.configure(TroubleBundle::test(
      "Slow", TroubleBundle::flag("ignoresTerminate") + TroubleBundle::text("await", gate),
      "<key>timeLimit</key><real>0.2</real>"));
  StationProcess station(atLeft({"--repeat", "2"}));
  ASSERT_TRUE(test::waitForFile(gate + ".left"));
  std::this_thread::sleep_for(std::chrono::milliseconds(400));  // past the limit
  std::ofstream(gate).close();
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.output(), HasSubstr("1 passed, 0 failed, 1 broken off\n"));
  std::istringstream told(test::contentOf(gate + ".left"));
  std::string word;
  pid_t first = 0;
  pid_t second = 0;
  told >> word >> first >> word >> second;
  EXPECT_NE(first, second);
}

TEST_F(StationWorker, aCrashWhileLoadingIsTold) {
  bundle_.configure(passing());
  for (const auto& [dies, told] :
       {std::pair{"kill", "the plug-in crashed: killed, while it was loaded"},
        std::pair{"exit",
                  "the plug-in ended its process, with exit status 0, while it was "
                  "loaded"}}) {
    test::writeTesterConfig(std::string("meter,Instrument,0,dies=") + dies + "\n");
    StationProcess station(atLeft());
    EXPECT_EQ(station.wait(), 2);
    EXPECT_THAT(station.errors(), HasSubstr(told));
  }
}

TEST_F(StationWorker, aFreshOneThatCrashesWhileLoadingIsReplaced) {
  const std::string once = (folder_.path() / "once").string();
  test::writeTesterConfig("meter,Instrument,0,diesAfter=" + once + ";times=2\n");
  bundle_.configure(dying("segfault", TroubleBundle::text("unless", once)));
  StationProcess station(atLeft({"--repeat", "2"}));
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.errors(),
              AllOf(HasSubstr("Warning: the plug-in crashed: killed, while it was "
                              "loaded; it is loaded once more\n"),
                    Not(HasSubstr("UNSAFE"))));
  EXPECT_THAT(station.output(), HasSubstr("1 passed, 0 failed, 1 broken off\n"));
}

TEST_F(StationWorker, freshOnesThatCrashWhileLoadingEndTheSeries) {
  const std::string once = (folder_.path() / "once").string();
  test::writeTesterConfig("meter,Instrument,0,diesAfter=" + once + ";times=9\n");
  bundle_.configure(dying("segfault", TroubleBundle::text("unless", once)));
  StationProcess station(atLeft({"--repeat", "2"}));
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(
      station.errors(),
      AllOf(HasSubstr("no device can be tested any more: the plug-in crashed: killed, while "
                      "it was loaded; that was the 4th time within 10 minutes\n"),
            HasSubstr("site left is UNSAFE: its safe state could not be tried: the plug-in "
                      "crashed: killed, while it was loaded\n")));
  EXPECT_EQ(test::contentOf(once + ".deaths"), "x\nx\nx\n");
}

TEST_F(StationWorker, aCrashWhileTheConfigurationIsCheckedIsTold) {
  for (const auto& [attribute, told] :
       {std::pair{"crashes", "the plug-in ended the program, by a signal: Killed\n"},
        std::pair{"exits", "the plug-in ended the program, with exit status 0\n"}}) {
    bundle_.configure(passing(), TroubleBundle::flag(attribute));
    StationProcess station(atLeft());
    EXPECT_EQ(station.wait(), 2);
    EXPECT_THAT(station.errors(), HasSubstr(told));
  }
}

TEST_F(StationWorker, endsWithItsHost) {
  const std::string gate = (folder_.path() / "gate").string();
  bundle_.configure(TroubleBundle::test("Waiting", TroubleBundle::text("await", gate)));
  StationProcess station(atLeft());
  ASSERT_TRUE(test::waitForFile(gate + ".left"));
  std::ifstream file(gate + ".left");
  std::string word;
  pid_t worker = 0;
  file >> word >> worker;
  ASSERT_EQ(kill(worker, 0), 0);
  station.send(SIGKILL);
  EXPECT_EQ(station.wait(), -SIGKILL);
  EXPECT_TRUE(test::eventually([&] { return test::hasEnded(worker); }));
}

TEST_F(StationWorker, worksWithoutStandardStreams) {
  bundle_.configure(passing());
  StationProcess::Program program{{"/bin/sh", "-c", "exec \"$@\" <&- >&- 2>&-", "sh"}};
  for (const std::string& word : StationProcess::theStation(atLeft()).arguments) {
    program.arguments.push_back(word);
  }
  StationProcess station(program);
  EXPECT_EQ(station.wait(), 0);
  const std::string results = station.results();
  EXPECT_EQ(std::count(results.begin(), results.end(), '\n'), 2) << results;
  EXPECT_THAT(results, HasSubstr("1,A,left,Supply,volts,1.1,"));
}

TEST_F(StationWorker, canBeWrapped) {
  bundle_.configure(passing());
  const std::string seen = (folder_.path() / "seen").string();
  StationProcess station(atLeft(
      {"--wrap", "env WRAPPED='a b' sh -c 'echo \"$WRAPPED\" > " + seen + "; exec \"$@\"' sh"}));
  EXPECT_EQ(station.wait(), 0);
  EXPECT_EQ(test::contentOf(seen), "a b\n");
}

TEST_F(StationWorker, isNotForPeople) {
  StationProcess station({"worker", bundle_.path()});
  EXPECT_EQ(station.wait(), 2);
  EXPECT_THAT(station.errors(), HasSubstr("the worker is started by quillon itself"));
}

TEST_F(StationWorker, tellsWhoWaitsForWhom) {
  test::writeTesterConfig("meter,Instrument,0,x=1\n");
  const std::string gate = (folder_.path() / "gate").string();
  const std::string site =
      "<dict><key>Resources</key><dict><key>m</key><string>meter</string></dict></dict>";
  const std::string test = TroubleBundle::test(
      "Shared", TroubleBundle::flag("exclusive") + TroubleBundle::text("await", gate));
  bundle_.bundle().setConfig("<key>Sites</key><dict><key>left</key>" + site + "<key>right</key>" +
                             site +
                             "</dict><key>defaultFlow</key><string>main</string><key>Flows</key>"
                             "<dict><key>main</key><array>" +
                             test + "</array></dict>");
  StationProcess station({"run", bundle_.path(), "--sn", "left=A", "--sn", "right=B"});
  EXPECT_TRUE(station.waitForOutput(" waits for m, which "));
  std::ofstream(gate).close();
  EXPECT_EQ(station.wait(), 0);
  const std::string output = station.output();
  EXPECT_EQ(output.find(" waits for m, which "), output.rfind(" waits for m, which "));
}
