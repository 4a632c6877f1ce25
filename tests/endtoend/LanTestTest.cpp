#include <string>
#include <utility>
#include <vector>

#include "StationProcess.h"

// The LAN test of the examples, run by its own script: instruments of the bench library, at
// stand-ins.

namespace {

using test::StationProcess;
using testing::ContainsRegex;
using testing::HasSubstr;

StationProcess::Program run(const std::string& volts) {
  const std::string build = BUILD;
  std::vector<std::string> arguments{"/usr/bin/env", "QUILLON_BUILD=" + build, "VBUS=" + volts,
                                     RUN_LAN_TEST};
  arguments.insert(arguments.end(), {"--sn", "bench=QB1"});
  return {std::move(arguments)};
}

}  // namespace

TEST(LanTest, measuresWithItsInstruments) {
  StationProcess station(run("5.012"));
  EXPECT_EQ(station.wait(), 0) << station.errors();
  const std::string output = station.steadyOutput();
  EXPECT_THAT(output, HasSubstr("bench  PASS  Supply"));
  EXPECT_THAT(output, HasSubstr("bench  PASS  Temperature"));
  EXPECT_THAT(station.results(), HasSubstr(",5.012000,"));
  EXPECT_THAT(station.results(), HasSubstr(",23.500000,"));
  EXPECT_THAT(station.diagnostics(), HasSubstr("unit 1: read input registers 100"));

  StationProcess details(
      {"results", "show", "QB1", "--store", (station.folder() / "logs" / "results.db").string()});
  EXPECT_EQ(details.wait(), 0) << details.errors();
  EXPECT_THAT(details.output(), ContainsRegex("meter +QUILLON +SIM-DMM +0 +1.0 "));
}

TEST(LanTest, aFailedDeviceIsSwitchedOffAsWell) {
  StationProcess station(run("4.2"));
  EXPECT_EQ(station.wait(), 1) << station.errors();
  EXPECT_THAT(station.steadyOutput(), HasSubstr("bench  FAIL  Supply"));
}
