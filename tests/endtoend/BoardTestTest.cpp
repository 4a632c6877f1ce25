#include <algorithm>
#include <fstream>
#include <regex>
#include <sstream>

#include "StationProcess.h"

// The board test of the examples, as `./demo` runs it.

namespace {

using test::StationProcess;
using testing::ElementsAre;
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

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

constexpr const char* kHeader =
    "station,VeltroQLTBundleVersion,runIndex, sn,site,test,subtest,number,expected,value,PF,fail "
    "message,nominal,reply,\n";

/// The lines of one board that passes the flow main.
std::string mainLines(const std::string& start, const std::string& volts, const std::string& amps) {
  return start + "Power up,supply voltage,1.1,from 4.900000 to 5.100000," + volts +
         ",P,\"\",5.00 V,(null),\n" +  //
         start + "Idle current,current,2.1,from 0.100000 to 0.600000," + amps + ",P,\"\",\n" +
         start + "Wait for start-up,seconds,3.1,from 0.000000 to 5.000000,0.200000,P,\"\",\n" +
         start + "Firmware,firmware,4.1,2.4.1,1,P,\"\",\n" +  //
         start + "Firmware,bootloader,4.2,1.7,1,P,\"\",\n" +  //
         start +
         "Voltage rails,VBUS,5.1,from 4.750000 to 5.250000,5.012000,P,\"\",5.00 V,5.012 V,\n" +
         start +
         "Voltage rails,3V3,5.2,from 3.135000 to 3.465000,3.318000,P,\"\",3.30 V,3.318 V,\n" +
         start + "Video output,receiver firmware,6.1,DP3.0,1,P,\"\",\n" +  //
         start + "Video output,test pattern,6.2,P,1,P,\"\",\n";
}

}  // namespace

TEST_F(BoardTest, showsAndLogsABoardThatPasses) {
  StationProcess station({"run", BOARD_TEST_BUNDLE, "--site", "left", "--sn", "left=QB1"});
  EXPECT_EQ(station.wait(), 0);
  EXPECT_EQ(station.steadyOutput(),
            "Site spare is disabled in the station's configuration.\n"
            "left  PASS  Power up           0.0 s\n"
            "left  PASS  Idle current       0.0 s  (second attempt)\n"
            "left  PASS  Wait for start-up  0.0 s\n"
            "left  PASS  Firmware           0.0 s\n"
            "left  PASS  Voltage rails      0.0 s\n"
            "left  PASS  Video output       0.0 s\n"
            "left  PASS  device QB1 in 0.0 s\n"
            "\n"
            "Site  Serial number  Result      Time   First failure\n"
            "left  QB1            PASS        0.0 s\n"
            "\n"
            "1 passed, 0 failed, 0 broken off\n"
            "Results:     logs/board-test_STAMP.csv\n"
            "Diagnostics: logs/board-test_STAMP.log\n");
  EXPECT_EQ(station.errors(), "");
  EXPECT_EQ(station.results(),
            kHeader + mainLines("BT-1,1.2.0,1,QB1,left,", "5.012000", "0.312000"));
  EXPECT_THAT(station.diagnostics(), HasSubstr("[left] {Sim_Serial_Write /dev/ttyUSB0}: version"));
}

TEST_F(BoardTest, testsBothSitesAtOnceIntoOneLog) {
  StationProcess station(
      {"run", BOARD_TEST_BUNDLE, "--flow", "main", "--sn", "left=QB1", "--sn", "right=QB2"});
  EXPECT_EQ(station.wait(), 0);
  EXPECT_THAT(station.steadyOutput(),
              HasSubstr("Site   Serial number  Result      Time   First failure\n"
                        "left   QB1            PASS        0.0 s\n"
                        "right  QB2            PASS        0.0 s\n"
                        "\n"
                        "2 passed, 0 failed, 0 broken off\n"));
  // Sites that start at the same instant may have the same run index.
  const std::string results = station.results();
  const std::regex runIndex("^BT-1,1\\.2\\.0,[12],");
  std::vector<std::string> lines = linesOf(results);
  for (std::string& line : lines) line = std::regex_replace(line, runIndex, "");
  EXPECT_THAT(lines, UnorderedElementsAreArray(
                         linesOf(kHeader + mainLines("QB1,left,", "5.012000", "0.312000") +
                                 mainLines("QB2,right,", "5.004000", "0.447000"))));
}

TEST_F(BoardTest, auditShowsWhatFailedAndGoesOn) {
  StationProcess station(
      {"run", BOARD_TEST_BUNDLE, "--flow", "audit", "--site", "right", "--sn", "right=QB2"});
  EXPECT_EQ(station.wait(), 1);
  EXPECT_EQ(station.steadyOutput(),
            "Site spare is disabled in the station's configuration.\n"
            "right  PASS  Power up       0.0 s\n"
            "right  FAIL  Idle current   0.0 s  (second attempt)  current: 0.447, limits 0.1 to "
            "0.4 (compare with the golden board)\n"
            "right  FAIL  Temperature    0.0 s  edge: the console says: sensor 2 does not answer\n"
            "right  PASS  Voltage rails  0.0 s\n"
            "right  FAIL  device QB2 in 0.0 s\n"
            "\n"
            "Site   Serial number  Result      Time   First failure\n"
            "right  QB2            FAIL        0.0 s  Idle current / current: 0.447, limits 0.1 "
            "to 0.4 (compare with the golden board)\n"
            "\n"
            "0 passed, 1 failed, 0 broken off\n"
            "Results:     logs/board-test_STAMP.csv\n"
            "Diagnostics: logs/board-test_STAMP.log\n");
  const std::string start = "BT-1,1.2.0,1,QB2,right,";
  EXPECT_EQ(
      station.results(),
      kHeader + start +
          "Power up,supply voltage,1.1,from 4.950000 to 5.050000,5.004000,P,\"\",5.00 V,(null),\n" +
          start +
          "Idle current,current,2.1,from 0.100000 to 0.400000,0.447000,F,\"compare with the golden "
          "board\",\n" +
          start +
          "Temperature,soc,3.1,from 20.000000 to 60.000000,41.500000,P,\"\",(null),41.5 C,\n" +
          start +
          "Temperature,edge,3.2,from 20.000000 to 45.000000,run time error,F,\"the console says: "
          "sensor 2 does not answer\",\n" +
          start +
          "Voltage rails,VBUS,4.1,from 4.900000 to 5.100000,5.012000,P,\"\",(null),5.012 V,\n");
}

TEST_F(BoardTest, aSupplyThatIsNotSimulatedEndsTheLoad) {
  test::writeTesterConfig("supply-left,BenchSupply,0,volts=5\n");
  StationProcess station({"run", BOARD_TEST_BUNDLE, "--sn", "left=QB1"});
  EXPECT_EQ(station.wait(), 2);
  EXPECT_THAT(station.errors(),
              HasSubstr("load instruments failed. Tests can not be run. Details: BenchSupply needs "
                        "sim 1: there is only a simulated one\n"));
}
