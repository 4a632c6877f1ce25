#include <filesystem>
#include <fstream>
#include <sstream>

#include "BoardTestResults.h"
#include "StationProcess.h"

// The bench test of the examples, run by its own script: stand-in devices on pseudo terminals and
// TCP, a multimeter that the plug-in makes, and for the rest the board test.

namespace {

using test::StationProcess;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::UnorderedElementsAreArray;

class BenchTest : public testing::Test {
 protected:
  StationProcess::Program run(const std::vector<std::string>& options,
                              const std::string& build = BUILD) const {
    std::vector<std::string> arguments{"/usr/bin/env", mark_, "QUILLON_BUILD=" + build,
                                       RUN_BENCH_TEST};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return {std::move(arguments)};
  }

  /// The processes that the script left behind.
  std::vector<std::string> leftProcesses() const {
    std::vector<std::string> left;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
      std::ostringstream environment;
      environment << std::ifstream(entry.path() / "environ").rdbuf();
      if (environment.str().find(mark_) != std::string::npos) {
        left.push_back(test::contentOf(entry.path() / "cmdline"));
      }
    }
    return left;
  }

  std::vector<std::string> leftFiles() const {
    std::vector<std::string> left;
    for (const auto& entry : std::filesystem::directory_iterator(temporary_.path())) {
      left.push_back(entry.path());
    }
    return left;
  }

 private:
  test::TemporaryFolder temporary_;
  // The script's temporary files go into a folder of their own, which also marks its processes.
  std::string mark_ = "TMPDIR=" + temporary_.path().string();
};

}  // namespace

TEST_F(BenchTest, showsAndLogsWhatTheBoardTestDoes) {
  StationProcess station(run({"--site", "left", "--sn", "left=QB1"}));
  EXPECT_EQ(station.wait(), 0) << station.errors();
  EXPECT_THAT(station.steadyOutput(), EndsWith("\n\n" + test::mainOutput("bench-test")));
  EXPECT_EQ(station.errors(), "");
  EXPECT_EQ(station.results(), test::kBoardTestHeader + test::mainLines("BT-1,1.2.0,1,QB1,left,",
                                                                        "5.012000", "0.312000"));
}

TEST_F(BenchTest, writesTheTesterConfigFileFromWhatTheStandInsPrint) {
  StationProcess station(run({"--site", "left", "--sn", "left=QB1"}));
  EXPECT_EQ(station.wait(), 0) << station.errors();
  const std::string output = station.output();
  EXPECT_THAT(output.substr(0, output.find("\n\n") + 1),
              MatchesRegex("The tester-config file:\n"
                           "  name,class,sim,attributes\n"
                           "  console-left,QLTDiags,0,bsdPath=/dev/pts/[0-9]+\n"
                           "  console-right,QLTDiags,0,bsdPath=/dev/pts/[0-9]+\n"
                           "  video-left,QLTDavDPEther,0,ip=127[.0-9]+;port=9760\n"
                           "  video-right,QLTDavDPEther,0,ip=127[.0-9]+;port=9760\n"
                           "  meter-left,BenchMeter,0,bsdPath=/dev/pts/[0-9]+\n"
                           "  meter-right,BenchMeter,0,bsdPath=/dev/pts/[0-9]+\n"));
}

TEST_F(BenchTest, talksToItsDevicesOverRealLines) {
  StationProcess station(run({"--site", "left", "--sn", "left=QB1"}));
  EXPECT_EQ(station.wait(), 0) << station.errors();
  const std::string diagnostics = station.diagnostics();
  EXPECT_THAT(diagnostics, HasSubstr("[left] {Serial_Write /dev/pts/"));
  EXPECT_THAT(diagnostics, HasSubstr("}: MEAS:CURR:DC?\\r\n"));
  EXPECT_THAT(diagnostics, HasSubstr("[left] {DAVDP_Read 127."));
}

TEST_F(BenchTest, testsBothSitesAtOnceIntoOneLog) {
  StationProcess station(run({"--sn", "left=QB1", "--sn", "right=QB2"}));
  EXPECT_EQ(station.wait(), 0) << station.errors();
  EXPECT_THAT(station.steadyOutput(), HasSubstr(test::kBothPassed));
  EXPECT_THAT(test::linesWithoutRunIndex(station.results()),
              UnorderedElementsAreArray(test::linesWithoutRunIndex(
                  test::kBoardTestHeader + test::mainLines("QB1,left,", "5.012000", "0.312000") +
                  test::mainLines("QB2,right,", "5.004000", "0.447000"))));
}

TEST_F(BenchTest, auditFailsAsInTheBoardTest) {
  StationProcess station(run({"--flow", "audit", "--site", "right", "--sn", "right=QB2"}));
  EXPECT_EQ(station.wait(), 1) << station.errors();
  EXPECT_THAT(station.steadyOutput(), EndsWith("\n\n" + test::auditOutput("bench-test")));
  EXPECT_EQ(station.results(),
            test::kBoardTestHeader + test::auditLines("BT-1,1.2.0,1,QB2,right,"));
}

TEST_F(BenchTest, leavesNothingBehind) {
  StationProcess station(run({"--site", "left", "--sn", "left=QB1"}));
  ASSERT_TRUE(test::waitForFile(station.folder() / "logs"));
  EXPECT_THAT(leftProcesses(), testing::Not(IsEmpty()));  // it is how they are found
  EXPECT_EQ(station.wait(), 0) << station.errors();
  EXPECT_THAT(leftProcesses(), IsEmpty());
  EXPECT_THAT(leftFiles(), IsEmpty());
}

TEST_F(BenchTest, passesOnTheStatusOfAStationThatCannotRun) {
  StationProcess station(run({"--flow", "nightly", "--sn", "left=QB1", "--sn", "right=QB2"}));
  EXPECT_EQ(station.wait(), 2);
  EXPECT_THAT(station.errors(), HasSubstr("nightly"));
  EXPECT_THAT(leftProcesses(), IsEmpty());
  EXPECT_THAT(leftFiles(), IsEmpty());
}

TEST_F(BenchTest, saysWhatHasNotBeenBuilt) {
  StationProcess station(run({"--sn", "left=QB1"}, "/nonexistent"));
  EXPECT_EQ(station.wait(), 2);
  EXPECT_EQ(
      station.errors(),
      "run: /nonexistent/bin/quillon is missing; build Quillon first, or set QUILLON_BUILD\n");
}
