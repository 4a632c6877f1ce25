#include <string>

#include <unistd.h>

#include "StationProcess.h"
#include "simulators/SimulatorProcess.h"

// The bench test with a multimeter that misbehaves or is not there.

namespace {

using test::SimulatorProcess;
using test::StationProcess;
using testing::HasSubstr;

/// What the site "left" needs beside its multimeter.
class OtherInstruments {
 public:
  std::string lines() const {
    return "console-left,QLTDiags,1,bsdPath=console\nvideo-left,QLTDavDPEther,0,ip=" + address_ +
           "\n";
  }

 private:
  static std::string ownAddress() {
    // Tests that run at the same time must not meet at the unit's fixed port.
    const int process = getpid();
    return "127." + std::to_string(process / 250 % 250 + 1) + "." +
           std::to_string(process % 250 + 1) + ".4";
  }

  std::string address_ = ownAddress();
  SimulatorProcess video_{{"davdp", "--tcp", address_ + ":9760"}};
  std::string line_ = video_.readLine();  // it can be reached
};

StationProcess testBoard() {
  return StationProcess({"run", BENCH_TEST_BUNDLE, "--site", "left", "--sn", "left=QB1"});
}

}  // namespace

TEST(BenchMeterTest, aFailedMeasurementShowsTheMultimetersOwnError) {
  const OtherInstruments others;
  const SimulatorProcess meter({"scpi", "--pty"},
                               "\"MEAS:VOLT:DC?\" -> silent\n"
                               "\"SYST:ERR?\" -> \"-240,\\\"Hardware error\\\"\"\n");
  test::writeTesterConfig(others.lines() + "meter-left,BenchMeter,0,bsdPath=" + meter.readPath() +
                          "\n");
  StationProcess station = testBoard();
  EXPECT_EQ(station.wait(), 1) << station.errors();
  EXPECT_THAT(station.steadyOutput(),
              HasSubstr("left  FAIL  Power up           0.0 s  supply voltage: the multimeter "
                        "says: Hardware error\n"));
  EXPECT_THAT(station.results(),
              HasSubstr("supply voltage,1.1,from 4.900000 to 5.100000,run time error,F,\"the "
                        "multimeter says: Hardware error\",\n"));
}

TEST(BenchMeterTest, anOverloadIsNoReading) {
  const OtherInstruments others;
  const SimulatorProcess meter({"scpi", "--pty", "--reading", "VOLT:DC=5000"});
  test::writeTesterConfig(others.lines() + "meter-left,BenchMeter,0,bsdPath=" + meter.readPath() +
                          "\n");
  StationProcess station = testBoard();
  EXPECT_EQ(station.wait(), 1) << station.errors();
  EXPECT_THAT(station.output(), HasSubstr("supply voltage: the multimeter shows an overload\n"));
}

TEST(BenchMeterTest, anAnswerThatIsNoNumberIsShown) {
  const OtherInstruments others;
  const SimulatorProcess meter({"scpi", "--pty", "--line-end", "crlf"},
                               "\"MEAS:VOLT:DC?\" -> \"-----\"\n");
  test::writeTesterConfig(others.lines() + "meter-left,BenchMeter,0,bsdPath=" + meter.readPath() +
                          "\n");
  StationProcess station = testBoard();
  EXPECT_EQ(station.wait(), 1) << station.errors();
  EXPECT_THAT(station.output(), HasSubstr("supply voltage: not a reading: -----\n"));
}

TEST(BenchMeterTest, aLineEndInTwoPiecesDoesNotShiftTheReplies) {
  const OtherInstruments others;
  // The line feed of the identity comes when the line has been read.
  const SimulatorProcess meter({"scpi", "--pty", "--line-end", "crlf", "--reading", "VOLT:DC=6"},
                               "\"*IDN?\" -> \"ACME\" split 5\n");
  test::writeTesterConfig(others.lines() + "meter-left,BenchMeter,0,bsdPath=" + meter.readPath() +
                          "\n");
  StationProcess station = testBoard();
  EXPECT_EQ(station.wait(), 1) << station.errors();
  EXPECT_THAT(station.results(), HasSubstr("from 4.900000 to 5.100000,6.000000,F"));
}

TEST(BenchMeterTest, aSilentMultimeterEndsTheLoad) {
  const SimulatorProcess meter({"scpi", "--pty", "--silent"});
  const std::string path = meter.readPath();
  test::writeTesterConfig("meter-left,BenchMeter,0,bsdPath=" + path + "\n");
  StationProcess station = testBoard();
  EXPECT_EQ(station.wait(), 2);
  EXPECT_THAT(station.errors(), HasSubstr("load instruments failed. Tests can not be run. Details: "
                                          "no multimeter answers at " +
                                          path + "\n"));
}

TEST(BenchMeterTest, aMissingMultimeterEndsTheLoad) {
  test::writeTesterConfig("meter-left,BenchMeter,0,bsdPath=/dev/nonexistent\n");
  StationProcess station = testBoard();
  EXPECT_EQ(station.wait(), 2);
  EXPECT_THAT(station.errors(), HasSubstr("cannot open the multimeter at /dev/nonexistent. "
                                          "Details: No such file or directory\n"));
}

TEST(BenchMeterTest, aLineWithoutThePathEndsTheLoad) {
  test::writeTesterConfig("meter-left,BenchMeter,0,baudRate=9600\n");
  StationProcess station = testBoard();
  EXPECT_EQ(station.wait(), 2);
  EXPECT_THAT(station.errors(), HasSubstr("Details: BenchMeter needs bsdPath=...\n"));
}
