#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include "StationProcess.h"
#include "TroubleBundle.h"
#include "common/Sanitizers.h"
#include "results/Queries.h"
#include "support/SerialLine.h"
#ifdef BENCH_TEST_BUNDLE
#include "simulators/SimulatorProcess.h"
#endif

// What instruments said, kept, and played back to the same plug-in without them.

namespace {

using test::StationProcess;
using test::TroubleBundle;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

std::string contentOf(const std::filesystem::path& file) {
  std::ostringstream text;
  text << std::ifstream(file).rdbuf();
  return text.str();
}

std::vector<std::filesystem::path> recordingsOf(const StationProcess& station) {
  std::vector<std::filesystem::path> files;
  const auto folder = station.folder() / "logs" / "traffic";
  if (!std::filesystem::is_directory(folder)) return files;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    files.push_back(entry.path());
  }
  return files;
}

/// Replays the only device that `station` has tested.
StationProcess replayOf(const StationProcess& station, const std::vector<std::string>& more = {}) {
  std::vector<std::string> arguments{"replay", "A", "--store",
                                     (station.folder() / "logs" / "results.db").string()};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return StationProcess(arguments);
}

/// The site "left" has a console on a real line, which answers "volts" with `volts`.
class StationTraffic : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NO_THROW(
        test::writeTesterConfig("console-left,QLTDiags,0,bsdPath=" + line_.path() + "\n"));
    configure();
  }
  void configure(const std::string& moreTests = "") {
    bundle_.configure(
        TroubleBundle::test("Other", "") +
            TroubleBundle::test("Voltages", TroubleBundle::text("measures", "console") +
                                                TroubleBundle::text("command", "volts")) +
            moreTests,
        "",
        "<key>Resources</key><dict><key>console</key><string>console-left</string>"
        "</dict>");
  }
  std::vector<std::string> run(const std::vector<std::string>& more = {}) const {
    std::vector<std::string> arguments{"run", bundle_.path(), "--site", "left", "--sn", "left=A"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }
  /// Answers once.
  void answer(const std::string& volts) {
    device_ = {};
    device_ = std::jthread([this, volts] {
      if (!line_.device().receiveUntil('\n').empty()) line_.device().send(volts + "\r\n:-)");
    });
  }
  void plugIn() {
    device_ = {};
    line_.plugIn();
  }
  /// From now on nobody is there.
  void unplug() {
    device_ = {};
    line_.unplug();
  }
  /// Changes the only recording of `station`.
  static void change(const StationProcess& station, const std::string& from,
                     const std::string& to) {
    const auto files = recordingsOf(station);
    ASSERT_EQ(files.size(), 1U);
    std::string text = contentOf(files[0]);
    const std::size_t place = text.find(from);
    ASSERT_NE(place, std::string::npos) << text;
    text.replace(place, from.size(), to);
    std::ofstream(files[0]) << text;
  }

  test::PluggedLine line_;
  TroubleBundle bundle_{TROUBLE_PLUGIN};
  std::jthread device_;  // last, so that it has ended before its line goes
};

}  // namespace

TEST_F(StationTraffic, ofADeviceThatFailedIsKeptAndReplayedWithoutIt) {
  answer("9.0");
  StationProcess station(run());
  EXPECT_EQ(station.wait(), 1);
  const auto files = recordingsOf(station);
  ASSERT_EQ(files.size(), 1U);
  const std::string text = contentOf(files[0]);
  EXPECT_THAT(text, AllOf(HasSubstr("\"instrument\":\"console-left\",\"where\":\"" + line_.path()),
                          HasSubstr("\"sent\":\"volts\\n\"}"),
                          HasSubstr("\"test\":2,\"name\":\"Voltages\"}")));
  EXPECT_THAT(station.output(),
              HasSubstr("\nTraffic:     logs/traffic, of 1 device that did not pass\n"));
  EXPECT_THAT(station.diagnostics(), HasSubstr("what its instruments said: logs/traffic/"));

  StationProcess details(
      {"results", "show", "A", "--store", (station.folder() / "logs" / "results.db").string()});
  EXPECT_EQ(details.wait(), 0);
  EXPECT_THAT(details.output(), HasSubstr("Traffic"));

  unplug();
  StationProcess replay = replayOf(station, {"--details"});
  EXPECT_EQ(replay.wait(), 0) << replay.output() << replay.errors();
  EXPECT_THAT(replay.output(), AllOf(HasSubstr(" is the same: traffic, 2 values, verdict FAIL.\n"),
                                     HasSubstr("volts: 9, limits 1 to 2")));
  results::Queries queries(station.folder() / "logs" / "results.db");
  EXPECT_EQ(queries.runsOf("A").size(), 1U);  // the replay is no run
}

TEST_F(StationTraffic, ofADeviceThatPassedIsKeptOnRequest) {
  {
    answer("1.5");
    StationProcess station(run());
    EXPECT_EQ(station.wait(), 0);
    EXPECT_TRUE(recordingsOf(station).empty());
    StationProcess replay = replayOf(station);
    EXPECT_EQ(replay.wait(), 2);
    EXPECT_THAT(replay.errors(), AllOf(HasSubstr("there is no recording of the run "),
                                       HasSubstr("--record-traffic")));
  }
  plugIn();
  answer("1.5");
  StationProcess station(run({"--record-traffic"}));
  EXPECT_EQ(station.wait(), 0);
  EXPECT_EQ(recordingsOf(station).size(), 1U);
  EXPECT_THAT(station.output(), Not(HasSubstr("Traffic:")));
  unplug();
  StationProcess replay = replayOf(station);
  EXPECT_EQ(replay.wait(), 0) << replay.output() << replay.errors();
}

TEST_F(StationTraffic, isNotKeptWhereNobodyWantsIt) {
  answer("9.0");
  StationProcess station(run({"--no-traffic"}));
  EXPECT_EQ(station.wait(), 1);
  EXPECT_FALSE(std::filesystem::exists(station.folder() / "logs" / "traffic"));
}

TEST_F(StationTraffic, replayedNamesTheFirstDifference) {
  answer("9.0");
  StationProcess station(run());
  EXPECT_EQ(station.wait(), 1);
  unplug();
  change(station, "9.0", "8.0");
  {
    StationProcess replay = replayOf(station);
    EXPECT_EQ(replay.wait(), 1);
    EXPECT_THAT(replay.output(),
                AllOf(HasSubstr(" is DIFFERENT.\n"), Not(HasSubstr("Traffic: ")),
                      HasSubstr("Results: value 2.1 Voltages / volts: was 9, FAIL; is 8, FAIL\n")));
  }
  change(station, "volts\\n", "amps\\n");
  StationProcess replay = replayOf(station);
  EXPECT_EQ(replay.wait(), 1);
  EXPECT_THAT(replay.output(),
              AllOf(HasSubstr("Traffic: console-left (" + line_.path() + "), line "),
                    HasSubstr(" of the recording: expected to send \"amps\\n\", but sent "
                              "\"volts\\n\"; in test 2 Voltages, after ")));
}

TEST_F(StationTraffic, thatIsCutOffIsReplayedThatFar) {
  answer("9.0");
  StationProcess station(run());
  EXPECT_EQ(station.wait(), 1);
  unplug();
  const auto file = recordingsOf(station).at(0);
  const std::string text = contentOf(file);
  std::ofstream(file) << text.substr(0, text.find("\"received\"") + 3);
  StationProcess replay = replayOf(station);
  EXPECT_EQ(replay.wait(), 1);
  EXPECT_THAT(replay.output(), HasSubstr(": the recording is cut off here, but more was read; in "
                                         "test 2 Voltages, after "));
}

TEST_F(StationTraffic, ofAnotherConfigurationIsRefused) {
  answer("1.5");
  StationProcess station(run({"--record-traffic"}));
  EXPECT_EQ(station.wait(), 0);
  unplug();
  configure(TroubleBundle::test("More", ""));
  {
    StationProcess replay = replayOf(station);
    EXPECT_EQ(replay.wait(), 2);
    EXPECT_THAT(replay.errors(),
                AllOf(HasSubstr("the recording was made with another configuration"),
                      HasSubstr("--anyway")));
  }
  {
    StationProcess replay = replayOf(station, {"--anyway"});
    EXPECT_EQ(replay.wait(), 1);
    EXPECT_THAT(replay.output(), HasSubstr("Results: there were 2 values, and are 3\n"));
  }
  configure();
  std::string info = test::PluginBundle::info("TroubleSuite");
  info.replace(info.find("7.1"), 3, "7.2");
  bundle_.bundle().setInfo(info);
  StationProcess replay = replayOf(station);
  EXPECT_EQ(replay.wait(), 2);
  EXPECT_THAT(replay.errors(), HasSubstr("the recording was made with version 7.1 of the "
                                         "plug-in, this is 7.2"));
}

TEST_F(StationTraffic, ofACrashIsThereToTheLastByte) {
  if (quillon::internal::kIsSanitized) GTEST_SKIP() << "sanitizers see crashes themselves";
  configure(TroubleBundle::test("Crash", TroubleBundle::text("dies", "kill")));
  answer("1.5");
  StationProcess station(run());
  EXPECT_EQ(station.wait(), 1);
  const auto files = recordingsOf(station);
  ASSERT_EQ(files.size(), 1U);
  EXPECT_THAT(contentOf(files[0]),
              AllOf(HasSubstr("\"received\":\"1.5"), HasSubstr("\"test\":3,\"name\":\"Crash\"}"),
                    Not(HasSubstr("\"end\""))));
  unplug();
  StationProcess replay = replayOf(station);
  EXPECT_EQ(replay.wait(), 0) << replay.output() << replay.errors();
  EXPECT_THAT(replay.output(), HasSubstr("verdict BROKEN_OFF.\n"));
}

TEST_F(StationTraffic, thatCannotBeWrittenCostsNoVerdict) {
  answer("1.5");
  const test::TemporaryFolder folder;
  std::ofstream(folder.path() / "traffic") << "in the way";
  StationProcess station(run({"--log-dir", folder.path().string(), "--record-traffic"}));
  EXPECT_EQ(station.wait(), 0);
  EXPECT_THAT(station.errors(), HasSubstr("the traffic of this device is not recorded: "));
  EXPECT_THAT(station.errors(), HasSubstr("Not a directory"));
}

#ifdef BENCH_TEST_BUNDLE
TEST(StationTrafficOfABench, isReplayedWithoutAnyOfItsInstruments) {
  const int process = getpid();
  // Tests that run at the same time must not meet at the unit's fixed port.
  const std::string address = "127." + std::to_string(process / 250 % 250 + 1) + "." +
                              std::to_string(process % 250 + 1) + ".5";
  std::filesystem::path folder;
  std::unique_ptr<StationProcess> station;
  {
    const std::string replies = BENCH_TEST_SOURCES;
    const test::SimulatorProcess video(
        {"davdp", "--tcp", address + ":9760", "--replies", replies + "/video.replies"});
    video.readLine();  // it can be reached
    const test::SimulatorProcess console(
        {"console", "--pty", "--echo", "--replies", replies + "/console.replies"});
    const test::SimulatorProcess meter({"scpi", "--pty", "--replies", replies + "/meter.replies",
                                        "--reading", "VOLT:DC=5.012", "--reading",
                                        "CURR:DC=0.312"});
    test::writeTesterConfig("console-left,QLTDiags,0,bsdPath=" + console.readPath() +
                            "\nvideo-left,QLTDavDPEther,0,ip=" + address +
                            "\nmeter-left,BenchMeter,0,bsdPath=" + meter.readPath() + "\n");
    station = std::make_unique<StationProcess>(std::vector<std::string>{
        "run", BENCH_TEST_BUNDLE, "--site", "left", "--sn", "left=A", "--record-traffic"});
    EXPECT_EQ(station->wait(), 0) << station->output() << station->errors();
  }
  const auto files = recordingsOf(*station);
  ASSERT_EQ(files.size(), 1U) << station->output() << station->errors();
  EXPECT_THAT(contentOf(files[0]),
              AllOf(HasSubstr("\"instrument\":\"meter-left\",\"where\":\"/dev/pts/"),
                    HasSubstr("\"instrument\":\"video-left\",\"where\":\"" + address + ":9760\""),
                    HasSubstr("\"instrument\":\"console-left\",\"where\":\"/dev/pts/")));
  StationProcess replay = replayOf(*station);
  EXPECT_EQ(replay.wait(), 0) << replay.output() << replay.errors();
}
#endif
