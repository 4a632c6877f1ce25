#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "StationProcess.h"
#include "TroubleBundle.h"
#include "common/Sanitizers.h"
#include "results/Content.h"
#include "results/Queries.h"
#include "results/Store.h"

// What a run leaves in the results store, and what it does without one.

namespace {

using results::Mark;
using results::RunContent;
using results::Verdict;
using test::StationProcess;
using test::TroubleBundle;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Optional;
using testing::StartsWith;
using testing::UnorderedElementsAre;

class StationStore : public testing::Test {
 protected:
  void SetUp() override { ASSERT_NO_THROW(test::writeTesterConfig("")); }

  std::vector<std::string> atLeft(const std::vector<std::string>& more = {}) const {
    std::vector<std::string> arguments{"run", bundle_.path(), "--site", "left", "--sn", "left=A"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }
  static std::filesystem::path storeOf(const StationProcess& station) {
    return station.folder() / "logs" / "results.db";
  }
  static void removeStoreOf(const StationProcess& station) {
    for (const char* const ending : {"", "-wal", "-shm"}) {
      std::filesystem::remove(storeOf(station).string() + ending);
    }
  }
  /// All runs of a serial number, with their rows.
  static std::vector<RunContent> runsOf(const std::filesystem::path& store,
                                        const std::string& serial) {
    results::Queries queries(store);
    std::vector<RunContent> runs;
    for (const results::Run& run : queries.runsOf(serial)) runs.push_back(*queries.run(run.id));
    return runs;
  }
  static RunContent runOf(const StationProcess& station, const std::string& serial = "A") {
    const std::vector<RunContent> runs = runsOf(storeOf(station), serial);
    EXPECT_EQ(runs.size(), 1U);
    return runs.empty() ? RunContent{} : runs.front();
  }

  /// The lines of all CSV files in a folder that contain `text`, in any order.
  static std::vector<std::string> linesOf(const std::filesystem::path& folder,
                                          const std::string& text) {
    std::vector<std::string> lines;
    for (const auto& file : std::filesystem::directory_iterator(folder)) {
      if (file.path().extension() != ".csv") continue;
      std::ifstream stream(file.path());
      for (std::string line; std::getline(stream, line);) {
        if (line.find(text) != std::string::npos) lines.push_back(line);
      }
    }
    return lines;
  }

  test::TemporaryFolder folder_;
  TroubleBundle bundle_{TROUBLE_PLUGIN};
  TroubleBundle plain_{TROUBLE_PLUGIN, "PlainSuite"};
};

}  // namespace

TEST_F(StationStore, keepsARunWithAllThatBelongsToIt) {
  bundle_.configure(TroubleBundle::test("Volts", TroubleBundle::text("value", "0.1234567890123")),
                    TroubleBundle::text("part", "P7") + TroubleBundle::text("revision", "C"));
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 1);
  const RunContent content = runOf(station);
  EXPECT_EQ(content.run.verdict, Verdict::Fail);
  EXPECT_EQ(content.run.site, "left");
  EXPECT_EQ(content.run.runIndex, 1);
  EXPECT_THAT(content.run.part, Optional(std::string("P7")));
  EXPECT_THAT(content.run.revision, Optional(std::string("C")));
  EXPECT_THAT(content.run.firstFailure, Optional(1));
  EXPECT_EQ(content.run.records, 1);
  EXPECT_GE(*content.run.endedUs, content.run.startedUs);
  EXPECT_EQ(content.plan.flow, "main");
  EXPECT_THAT(content.plan.bundleVersion, Optional(std::string("7.1")));
  EXPECT_EQ(content.plan.frameworkVersion, QUILLON_VERSION);
  EXPECT_EQ(content.plan.configSha256.size(), 64U);
  ASSERT_EQ(content.steps.size(), 1U);
  EXPECT_EQ(content.steps[0].test, "Volts");
  EXPECT_EQ(content.steps[0].verdict, Verdict::Fail);
  ASSERT_EQ(content.measurements.size(), 1U);
  EXPECT_THAT(content.measurements[0].value, Optional(0.1234567890123));  // not six decimals
  EXPECT_EQ(content.measurements[0].verdict, Mark::Fail);
  EXPECT_THAT(content.measurements[0].message, Optional(std::string("failed volts")));
  ASSERT_EQ(content.specs.size(), 1U);
  EXPECT_EQ(content.specs[0].kind, results::SpecKind::Range);
  EXPECT_THAT(content.specs[0].low, Optional(1.0));
  EXPECT_THAT(content.specs[0].high, Optional(2.0));
  const auto has = [&](std::int64_t sequence, const std::string& name, const std::string& value) {
    return std::any_of(content.attributes.begin(), content.attributes.end(), [&](const auto& row) {
      return row.sequence == sequence && row.name == name && row.value == value;
    });
  };
  EXPECT_TRUE(has(0, "station", "S1"));
  EXPECT_TRUE(has(1, "note", "n"));
}

TEST_F(StationStore, keepsWhoTestsAndWhatFor) {
  bundle_.configure(TroubleBundle::test("Volts", ""));
  StationProcess station(
      atLeft({"--operator", "Ann", "--kind", "golden", "--reason", "after the repair"}));
  EXPECT_EQ(station.wait(), 0) << station.errors();
  const RunContent content = runOf(station);
  EXPECT_EQ(content.run.kind, results::RunKind::Golden);
  EXPECT_THAT(content.run.operatorName, Optional(std::string("Ann")));
  EXPECT_THAT(content.run.reason, Optional(std::string("after the repair")));
}

TEST_F(StationStore, keepsWhatMeasured) {
  test::writeTesterConfig(
      "meter-7,Instrument,0,assetSerial=A123;calibrationDue=2099-01-31\nsupply-1,Instrument,1,x="
      "1\n");
  bundle_.configure(TroubleBundle::test("Volts", ""), "",
                    "<key>Resources</key><dict><key>meter</key><string>meter-7</string>"
                    "<key>supply</key><string>supply-1</string></dict>");
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 0) << station.errors();
  const RunContent content = runOf(station);
  ASSERT_EQ(content.runInstruments.size(), 2U);
  EXPECT_EQ(content.runInstruments[0].name, "meter");
  EXPECT_EQ(content.runInstruments[0].state, results::Calibration::Valid);
  EXPECT_THAT(content.runInstruments[0].dueUs, Optional(4073500800'000'000));
  EXPECT_EQ(content.runInstruments[1].name, "supply");
  EXPECT_EQ(content.runInstruments[1].state, results::Calibration::Simulated);
  const bool hasMeter = std::any_of(
      content.instruments.begin(), content.instruments.end(),
      [](const auto& row) { return row.model == "Instrument" && row.serial == "A123"; });
  EXPECT_TRUE(hasMeter);
}

TEST_F(StationStore, keepsWhoMeasuredAsTheInstrumentTells) {
  const std::string identity = (folder_.path() / "identity").string();
  const std::string next = (folder_.path() / "next").string();
  std::ofstream(identity) << "ACME, M1,4711 ,1.2,beta\n";
  test::writeTesterConfig("meter-7,Instrument,0,assetSerial=A123;identity=" + identity +
                          "\nmeter-8,Instrument,0,assetSerial=A124;identity=/nonexistent\n");
  bundle_.configure(TroubleBundle::test("Volts", ""),
                    TroubleBundle::text("waits", "onDUTFinished " + next),
                    "<key>Resources</key><dict><key>meter</key><string>meter-7</string>"
                    "<key>other</key><string>meter-8</string></dict>");
  StationProcess station(atLeft({"--repeat", "2"}));
  ASSERT_TRUE(test::waitForFile(next + ".hook"));
  std::ofstream(identity) << "ACME,M1,4712\n";  // another one, for the second device
  std::ofstream(next) << "";
  EXPECT_EQ(station.wait(), 0) << station.errors();

  std::vector<RunContent> runs = runsOf(storeOf(station), "A");
  ASSERT_EQ(runs.size(), 2U);
  std::sort(runs.begin(), runs.end(),
            [](const auto& a, const auto& b) { return a.run.id < b.run.id; });
  const auto told = [](const RunContent& content, std::size_t place) {
    const results::RunInstrument& use = content.runInstruments.at(place);
    const auto instrument =
        std::find_if(content.instruments.begin(), content.instruments.end(),
                     [&](const auto& row) { return row.id == use.instrumentId; });
    return std::vector<std::string>{use.name, instrument->vendor.value_or("-"),
                                    instrument->model.value_or("-"),
                                    instrument->serial.value_or("-"), use.firmware.value_or("-")};
  };
  EXPECT_THAT(told(runs[0], 0), ElementsAre("meter", "ACME", "M1", "4711", "1.2,beta"));
  EXPECT_THAT(told(runs[1], 0), ElementsAre("meter", "ACME", "M1", "4712", "-"));
  EXPECT_THAT(told(runs[0], 1), ElementsAre("other", "-", "Instrument", "A124", "-"));
  EXPECT_THAT(station.diagnostics(), HasSubstr("other does not tell who it is: it is broken"));
}

TEST_F(StationStore, keepsBothAttemptsOfARetest) {
  bundle_.configure(TroubleBundle::test("Volts", TroubleBundle::flag("secondTime"),
                                        TroubleBundle::flag("retest")));
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 0);
  const RunContent content = runOf(station);
  EXPECT_EQ(content.run.verdict, Verdict::Pass);
  EXPECT_EQ(content.run.firstFailure, std::nullopt);
  ASSERT_EQ(content.steps.size(), 2U);
  EXPECT_EQ(content.steps[0].verdict, Verdict::Fail);
  EXPECT_EQ(content.steps[1].verdict, Verdict::Pass);
  ASSERT_EQ(content.measurements.size(), 2U);
  EXPECT_TRUE(content.measurements[0].superseded);
  EXPECT_EQ(content.measurements[0].attempt, 1);
  EXPECT_THAT(content.measurements[0].value, Optional(9.0));
  EXPECT_FALSE(content.measurements[1].superseded);
  EXPECT_EQ(content.measurements[1].attempt, 2);
}

TEST_F(StationStore, keepsWhatACrashedTestHadReported) {
  bundle_.configure(TroubleBundle::test("Supply", "") +
                    TroubleBundle::test("Voltages", TroubleBundle::text("dies", "segfault")));
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 1);
  const RunContent content = runOf(station);
  EXPECT_EQ(content.run.verdict, Verdict::BrokenOff);
  EXPECT_THAT(content.run.message,
              Optional(std::string("the plug-in crashed: segmentation fault in test 2 Voltages")));
  ASSERT_EQ(content.steps.size(), 2U);
  EXPECT_EQ(content.steps[0].verdict, Verdict::Pass);
  EXPECT_EQ(content.steps[1].verdict, Verdict::BrokenOff);
  ASSERT_EQ(content.measurements.size(), 3U);
  EXPECT_EQ(content.measurements[1].verdict, Mark::Pass);
  EXPECT_EQ(content.measurements[1].step, 2);
  EXPECT_EQ(content.measurements[2].verdict, Mark::Fail);
  EXPECT_THAT(station.results(), HasSubstr("1,A,left,Voltages,volts,2.1,"));
}

TEST_F(StationStore, tellsTheEndOfAWorkerAsAnEvent) {
  bundle_.configure(TroubleBundle::test("Voltages", TroubleBundle::text("dies", "segfault")));
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 1);
  results::Queries queries(storeOf(station));
  const RunContent content = runOf(station);
  const std::vector<results::Event> events = queries.lastEvents(content.run.stationId, 9);
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].kind, "worker_ended");
  if (quillon::internal::kIsSanitized) return;  // it sees the crash itself
  EXPECT_THAT(events[0].site, Optional(std::string("left")));
  EXPECT_THAT(events[0].text,
              Optional(std::string("the plug-in crashed at site left: segmentation fault")));
}

TEST_F(StationStore, keepsWhoWantedToTestWithAnOverdueCalibration) {
  test::writeTesterConfig("meter,Instrument,0,calibrationDue=2024-02-29\n");
  bundle_.configure(TroubleBundle::test("Volts", ""), "",
                    "<key>Resources</key><dict><key>m</key><string>meter</string></dict>");
  StationProcess station(atLeft({"--calibration-override", "Mary:only a trial"}));
  EXPECT_EQ(station.wait(), 0);
  results::Queries queries(storeOf(station));
  const auto events = queries.lastEvents(runOf(station).run.stationId, 9);
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].kind, "calibration_override");
  EXPECT_THAT(events[0].who, Optional(std::string("Mary")));
  EXPECT_THAT(events[0].text,
              Optional(std::string("the calibration of instrument meter was due on 2024-02-29; "
                                   "tested all the same: only a trial")));
}

TEST_F(StationStore, theHookOfAPassComesWhenEverythingIsRecorded) {
  bundle_.configure(TroubleBundle::test("Volts", ""),
                    TroubleBundle::text("fails", "onDUTFinished"));
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 1);
  const RunContent content = runOf(station);
  EXPECT_EQ(content.run.verdict, Verdict::BrokenOff);
  EXPECT_THAT(content.run.message,
              Optional(std::string("onDUTFinished failed: the database is away")));
  EXPECT_THAT(station.results(), HasSubstr(",device,runtime error,0.0,,run time error,F,"));
}

TEST_F(StationStore, aSuiteWithoutHooksIsRecordedAsAnyOther) {
  plain_.configure(TroubleBundle::test("Supply", "") +
                   TroubleBundle::test("Volts", TroubleBundle::text("at", "right") +
                                                    TroubleBundle::text("value", "2.5")));
  StationProcess station({"run", plain_.path(), "--sn", "left=A", "--sn", "right=B", "--repeat",
                          "2", "--record-traffic"});
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.errors(), IsEmpty());
  EXPECT_THAT(station.output(), HasSubstr("2 passed, 2 failed, 0 broken off\n"));
  for (const auto& [serial, verdict] : {std::pair("A", Verdict::Pass), {"B", Verdict::Fail}}) {
    const std::vector<RunContent> runs = runsOf(storeOf(station), serial);
    ASSERT_EQ(runs.size(), 2U) << serial;
    for (const RunContent& content : runs) {
      EXPECT_EQ(content.run.verdict, verdict);
      EXPECT_EQ(content.run.message, std::nullopt);
      EXPECT_EQ(content.run.records, 2);
      EXPECT_EQ(content.measurements.size(), 2U);
      EXPECT_EQ(content.steps.size(), 2U);
      EXPECT_EQ(content.run.sha256, results::sha256Of(content));
    }
  }
  // The header, and two lines for each device.
  const std::string lines = station.results();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 9) << lines;
  EXPECT_THAT(station.diagnostics(),
              AllOf(HasSubstr("[left] A: PASS"), HasSubstr("[right] B: FAIL")));
}

TEST_F(StationStore, aSuiteWithoutHooksThatIsStoppedEndsAfterItsTest) {
  const std::string gate = (folder_.path() / "gate").string();
  plain_.configure(TroubleBundle::test("Waiting", TroubleBundle::text("await", gate)) +
                   TroubleBundle::test("Volts", ""));
  StationProcess station(
      {"run", plain_.path(), "--site", "left", "--sn", "left=A", "--repeat", "3"});
  ASSERT_TRUE(test::waitForFile(gate + ".left"));
  station.send(SIGINT);
  ASSERT_TRUE(station.waitForErrors());
  std::ofstream(gate).close();
  station.wait();
  const RunContent content = runOf(station);
  EXPECT_EQ(content.run.verdict, Verdict::BrokenOff);
  EXPECT_EQ(content.steps.size(), 1U);
  EXPECT_THAT(content.run.message, Optional(std::string("stopped on request before Volts")));
}

TEST_F(StationStore, aStationThatIsKilledLeavesAnIncompleteRunThatTheNextOneTells) {
  const std::string gate = (folder_.path() / "gate").string();
  const std::string calls = (folder_.path() / "calls").string();
  bundle_.configure(TroubleBundle::test("Supply", "") +
                        TroubleBundle::test("Waiting", TroubleBundle::text("await", gate)),
                    TroubleBundle::text("calls", calls));
  const std::string logs = (folder_.path() / "logs").string();
  {
    StationProcess station(atLeft({"--log-dir", logs}));
    ASSERT_TRUE(test::waitForFile(gate + ".left"));
    const auto supplyIsStored = [&] {
      const std::vector<RunContent> runs = runsOf(logs + "/results.db", "A");
      return !runs.empty() && !runs[0].measurements.empty();
    };
    for (int i = 0; i < 500 && !supplyIsStored(); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    station.send(SIGKILL);
    EXPECT_EQ(station.wait(), -SIGKILL);
  }
  std::ofstream(gate).close();
  StationProcess station(
      {"run", bundle_.path(), "--site", "left", "--sn", "left=B", "--log-dir", logs});
  EXPECT_EQ(station.wait(), 0);
  EXPECT_THAT(station.errors(), HasSubstr("the device A at site left was not tested to its end, "
                                          "for the station ended before: test it again\n"));
  // In the CSV file of the earlier session all that it has of the device has passed.
  EXPECT_THAT(
      linesOf(logs, ",A,left,"),
      UnorderedElementsAre("1,A,left,Supply,volts,1.1,from 1.000000 to 2.000000,1.500000,P,\"\",",
                           "0,A,left,device,runtime error,0.0,,run time error,F,"
                           "\"was not tested to its end, for the station ended before\","));
  EXPECT_THAT(station.output(), HasSubstr("1 passed, 0 failed, 0 broken off"));
  const std::vector<RunContent> runs = runsOf(logs + "/results.db", "A");
  ASSERT_EQ(runs.size(), 1U);
  EXPECT_EQ(runs[0].run.verdict, Verdict::Incomplete);
  // Its fixture was left as it was.
  EXPECT_THAT(test::contentOf(calls), HasSubstr("left onSafeState"));
  ASSERT_EQ(runs[0].measurements.size(), 1U);
}

TEST_F(StationStore, aStoreThatCannotBeUsedStopsEverythingBefore) {
  bundle_.configure(TroubleBundle::test("Volts", ""),
                    TroubleBundle::text("calls", (folder_.path() / "calls").string()));
  const std::filesystem::path logs = folder_.path() / "logs";
  std::filesystem::create_directory(logs);
  std::ofstream(logs / "results.db") << std::string(5000, 'x');
  StationProcess station(atLeft({"--log-dir", logs.string()}));
  EXPECT_EQ(station.wait(), 2);
  EXPECT_THAT(
      station.errors(),
      AllOf(StartsWith("quillon: cannot use the results store " + logs.string() + "/results.db: "),
            HasSubstr("Nothing was tested"), HasSubstr("can be moved away")));
  EXPECT_THAT(test::contentOf((folder_.path() / "calls").string()), Not(HasSubstr("onDUTStart")));
}

TEST_F(StationStore, aStoreThatVanishesBreaksTheDeviceOff) {
  for (const TroubleBundle* const bundle : {&bundle_, &plain_}) {
    const test::TemporaryFolder folder;
    const std::string gate = (folder.path() / "gate").string();
    bundle->configure(TroubleBundle::test("Waiting", TroubleBundle::text("await", gate)));
    StationProcess station(
        {"run", bundle->path(), "--site", "left", "--sn", "left=A", "--repeat", "2"});
    ASSERT_TRUE(test::waitForFile(gate + ".left"));
    removeStoreOf(station);
    std::ofstream(gate).close();
    EXPECT_EQ(station.wait(), 1);
    EXPECT_THAT(station.steadyOutput(),
                AllOf(HasSubstr("BROKEN OFF  0.0 s  passed, but not recorded: logs/results.db: "),
                      HasSubstr("0 passed, 0 failed, 1 broken off\n")));
    EXPECT_THAT(station.errors(), HasSubstr("the results store is not complete: "));
    EXPECT_THAT(station.results(), HasSubstr(",F,\"passed, but not recorded: "));
  }
}

TEST_F(StationStore, aLogThatFailsWithTheLastTestLeavesNoPass) {
  const std::uint64_t limit = 16U << 20U;
  const std::uint64_t line = 200'000;
  std::string tests;
  for (std::uint64_t size = 0; size < limit; size += line) {
    tests += TroubleBundle::test("Volts", "");
  }
  for (const TroubleBundle* const bundle : {&bundle_, &plain_}) {
    bundle->configure(tests, "<key>csvAttributeKeys</key><array><string>long</string></array>" +
                                 TroubleBundle::text("long", std::string(line, 'x')));
    StationProcess station({"run", bundle->path(), "--site", "left", "--sn", "left=A"},
                           StationProcess::FileLimit{limit});
    EXPECT_EQ(station.wait(), 1);
    EXPECT_EQ(station.results().size(), limit);
    EXPECT_THAT(station.output(), AllOf(HasSubstr("0 passed, 0 failed, 1 broken off\n"),
                                        Not(HasSubstr("PASS  device"))));
    const results::Run run = runOf(station).run;
    EXPECT_EQ(run.verdict, Verdict::BrokenOff);
    EXPECT_THAT(run.message, Optional(HasSubstr("the result log could not be written: ")));
    // All tests have run: theirs, and the one that tells why.
    EXPECT_EQ(run.records, static_cast<std::int64_t>((limit + line - 1) / line) + 1);
  }
}

TEST_F(StationStore, aVerdictThatCannotBeRecordedIsNotShown) {
  const std::string gate = (folder_.path() / "gate").string();
  bundle_.configure(TroubleBundle::test("Volts", ""),
                    TroubleBundle::text("waits", "onDUTFinished " + gate));
  StationProcess station(atLeft());
  ASSERT_TRUE(test::waitForFile(gate + ".hook"));  // all but the verdict is recorded
  removeStoreOf(station);
  std::ofstream(gate).close();
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.steadyOutput(),
              AllOf(HasSubstr("BROKEN OFF  0.0 s  the verdict could not be recorded: "),
                    HasSubstr("0 passed, 0 failed, 1 broken off\n")));
  EXPECT_THAT(station.results(), HasSubstr("the verdict could not be recorded: "));
}

TEST_F(StationStore, aDeviceThatCannotBeRecordedIsNotTestedAndNotPassed) {
  bundle_.configure(TroubleBundle::test("Volts", ""));
  StationProcess station({"run", bundle_.path(), "--site", "left"},
                         StationProcess::Input::Terminal);
  ASSERT_TRUE(station.waitForOutput("Serial number of the device at site left: "));
  removeStoreOf(station);
  station.type("A\n");
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.output(), HasSubstr("not tested, for it cannot be recorded: "));
  EXPECT_THAT(station.results(), HasSubstr("not tested, for it cannot be recorded: "));
}

TEST_F(StationStore, twoStationsShareOne) {
  bundle_.configure(TroubleBundle::test("Volts", ""));
  const std::string logs = (folder_.path() / "logs").string();
  StationProcess first(atLeft({"--log-dir", logs, "--repeat", "5"}));
  StationProcess second({"run", bundle_.path(), "--site", "right", "--sn", "right=B", "--log-dir",
                         logs, "--repeat", "5"});
  EXPECT_EQ(first.wait(), 0);
  EXPECT_EQ(second.wait(), 0);
  EXPECT_EQ(runsOf(logs + "/results.db", "A").size(), 5U);
  EXPECT_EQ(runsOf(logs + "/results.db", "B").size(), 5U);
}

TEST_F(StationStore, theDiagnosticsTellTheStoryOfADevice) {
  bundle_.configure(TroubleBundle::test("Volts", TroubleBundle::flag("secondTime"),
                                        TroubleBundle::flag("retest")));
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 0);
  const RunContent content = runOf(station);
  EXPECT_THAT(
      station.diagnostics(),
      AllOf(HasSubstr("[left] testing A, run " + content.run.id + "\n"),
            HasSubstr("[left] test 1 Volts, first attempt: volts: 9, limits 1 to 2, FAIL\n"),
            HasSubstr("[left] test 1 Volts: volts: 1.5, limits 1 to 2, PASS\n"),
            HasSubstr("[left] test 1 Volts: PASS in 0."), HasSubstr(" s, second attempt\n"),
            HasSubstr("[left] A: PASS in 0."), Not(HasSubstr("ended its process"))));
}

class TimeLimit : public StationStore, public testing::WithParamInterface<bool> {};

TEST_P(TimeLimit, endsATestThatHangs) {
  const std::string never = (folder_.path() / "never").string();
  bundle_.configure(
      TroubleBundle::test("Quick", "") +
          TroubleBundle::test(
              "Hanging",
              TroubleBundle::text("await", never) +
                  (GetParam() ? TroubleBundle::flag("ignoresTerminate") : std::string()),
              "<key>timeLimit</key><real>0.25</real>"),
      TroubleBundle::text("timeLimit", "60"));
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(runOf(station).run.message,
              Optional(std::string("test 2 Hanging exceeded its time limit of 0.25 s")));
  EXPECT_THAT(station.output(), HasSubstr("test 2 Hanging exceeded its time limit of 0.25 s\n"));
}
INSTANTIATE_TEST_SUITE_P(IgnoringSigterm, TimeLimit, testing::Bool());

TEST_F(StationStore, aTestThatHangsAtOneSiteLetsTheOtherFinishItsDevice) {
  const std::string never = (folder_.path() / "never").string();
  const std::string gate = (folder_.path() / "gate").string();
  bundle_.configure(
      TroubleBundle::test("Hanging",
                          TroubleBundle::text("await", never) + TroubleBundle::text("at", "left"),
                          "<key>timeLimit</key><real>0.1</real>") +
      TroubleBundle::test("Slow",
                          TroubleBundle::text("await", gate) + TroubleBundle::text("at", "right")));
  StationProcess station({"run", bundle_.path(), "--sn", "left=A", "--sn", "right=B"});
  ASSERT_TRUE(test::waitForFile(gate + ".right"));
  std::this_thread::sleep_for(std::chrono::milliseconds(400));  // past the limit
  std::ofstream(gate).close();
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.output(), HasSubstr("1 passed, 0 failed, 1 broken off\n"));
}
