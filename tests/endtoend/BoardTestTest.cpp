#include "BoardTestResults.h"
#include "StationProcess.h"

// The board test of the examples, as `./demo` runs it.

namespace {

using test::StationProcess;
using testing::AllOf;
using testing::HasSubstr;
using testing::UnorderedElementsAreArray;

class BoardTest : public testing::Test {
 protected:
  void SetUp() override {
    // The example file itself, so that it stays one that works.
    const std::string example =
        test::contentOf(std::string(BOARD_TEST_SOURCES) + "/TesterConfig_oc.csv");
    const std::string header = "name,class,sim,attributes\n";
    ASSERT_TRUE(example.starts_with(header));
    ASSERT_NO_THROW(test::writeTesterConfig(example.substr(header.size())));
  }
};

}  // namespace

TEST_F(BoardTest, showsAndLogsABoardThatPasses) {
  StationProcess station({"run", BOARD_TEST_BUNDLE, "--site", "left", "--sn", "left=QB1"});
  EXPECT_EQ(station.wait(), 0);
  EXPECT_EQ(station.steadyOutput(), test::mainOutput("board-test"));
  EXPECT_EQ(station.errors(), "");
  EXPECT_EQ(station.results(), test::kBoardTestHeader + test::mainLines("BT-1,1.2.0,1,QB1,left,",
                                                                        "5.012000", "0.312000"));
  EXPECT_THAT(station.diagnostics(), HasSubstr("[left] {Sim_Serial_Write /dev/ttyUSB0}: version"));
}

TEST_F(BoardTest, testsBothSitesAtOnceIntoOneLog) {
  StationProcess station(
      {"run", BOARD_TEST_BUNDLE, "--flow", "main", "--sn", "left=QB1", "--sn", "right=QB2"});
  EXPECT_EQ(station.wait(), 0);
  EXPECT_THAT(station.steadyOutput(), HasSubstr(test::kBothPassed));
  EXPECT_THAT(test::linesWithoutRunIndex(station.results()),
              UnorderedElementsAreArray(test::linesWithoutRunIndex(
                  test::kBoardTestHeader + test::mainLines("QB1,left,", "5.012000", "0.312000") +
                  test::mainLines("QB2,right,", "5.004000", "0.447000"))));
}

TEST_F(BoardTest, auditShowsWhatFailedAndGoesOn) {
  StationProcess station(
      {"run", BOARD_TEST_BUNDLE, "--flow", "audit", "--site", "right", "--sn", "right=QB2"});
  EXPECT_EQ(station.wait(), 1);
  EXPECT_EQ(station.steadyOutput(), test::auditOutput("board-test"));
  EXPECT_EQ(station.results(),
            test::kBoardTestHeader + test::auditLines("BT-1,1.2.0,1,QB2,right,"));
}

TEST_F(BoardTest, aCrashCostsARetestAndSwitchesTheSuppliesOff) {
  StationProcess station({"run", BOARD_TEST_BUNDLE, "--flow", "crash", "--repeat", "2", "--sn",
                          "left=QB1", "--sn", "right=QB2"});
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(
      station.steadyOutput(),
      AllOf(HasSubstr("left   QB1            BROKEN OFF  0.0 s  the plug-in crashed: aborted "
                      "in test 3 Crash\n"),
            HasSubstr("left   QB1            PASS        0.0 s\n"),
            HasSubstr("right  QB2            PASS        0.0 s\n")));
  EXPECT_EQ(station.errors(), "");
  const std::string diagnostics = station.diagnostics();
  for (const std::string site : {"[left] ", "[right] "}) {
    const auto safe = diagnostics.find(site + "in its safe state\n");
    EXPECT_NE(safe, diagnostics.npos);
    EXPECT_LT(diagnostics.find(site + "{BenchSupply}: output off\n"), safe);
  }
}

TEST_F(BoardTest, looksAsksTheOperator) {
  StationProcess station({"run", BOARD_TEST_BUNDLE, "--flow", "looks", "--answers",
                          BOARD_TEST_SOURCES "/looks.answers", "--sn", "left=QB1", "--sn",
                          "right=QB2"});
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.results(), AllOf(HasSubstr("QB1,left,Looks,power LED,1.1,green,1,P,"),
                                       HasSubstr("QB1,left,Looks,status LED,1.2,blue,1,P,"),
                                       HasSubstr("QB2,right,Looks,power LED,1.1,green,1,P,"),
                                       HasSubstr("QB2,right,Looks,status LED,1.2,blue,0,F,")));
}

TEST_F(BoardTest, aSupplyThatIsNotSimulatedEndsTheLoad) {
  test::writeTesterConfig("supply-left,BenchSupply,0,volts=5;amps=1\n");
  StationProcess station({"run", BOARD_TEST_BUNDLE, "--sn", "left=QB1"});
  EXPECT_EQ(station.wait(), 2);
  EXPECT_THAT(station.errors(),
              HasSubstr("load instruments failed. Tests can not be run. Details: BenchSupply needs "
                        "sim 1: there is only a simulated one\n"));
}
