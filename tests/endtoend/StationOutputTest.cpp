#include <sstream>

#include <nlohmann/json.hpp>

#include "StationProcess.h"
#include "TroubleBundle.h"

// What `quillon run` shows, as its options ask for it, where there is no terminal.

namespace {

using nlohmann::json;
using test::StationProcess;
using test::TroubleBundle;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class StationOutput : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NO_THROW(test::writeTesterConfig(""));
    bundle_.configure(
        TroubleBundle::test("Volts",
                            TroubleBundle::text("at", "right") + "<key>value</key><real>2.7</real>",
                            TroubleBundle::flag("stopOnFail", false)) +
        TroubleBundle::test("Amps", ""));
  }

  StationProcess run(const std::vector<std::string>& options) const {
    std::vector<std::string> arguments{"run", bundle_.path(), "--sn", "left=A", "--sn", "right=B"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return StationProcess(arguments);
  }

  TroubleBundle bundle_{TROUBLE_PLUGIN};
};

}  // namespace

TEST_F(StationOutput, quietShowsVerdictsAndTheTable) {
  StationProcess station = run({"--quiet"});
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.steadyOutput(),
              AllOf(HasSubstr("left   PASS  device A in 0.0 s\n"),
                    HasSubstr("right  FAIL  device B in 0.0 s\n"),
                    HasSubstr("1 passed, 1 failed, 0 broken off"), Not(HasSubstr("Amps"))));
}

TEST_F(StationOutput, detailsShowsAllValuesAfterEachDevice) {
  StationProcess station = run({"--details", "--site", "right"});
  EXPECT_EQ(station.wait(), 2);  // a serial number for another site
  StationProcess one({"run", bundle_.path(), "--site", "right", "--sn", "right=B", "--details"});
  EXPECT_EQ(one.wait(), 1);
  EXPECT_THAT(one.steadyOutput(),
              HasSubstr("right  FAIL  device B in 0.0 s\n"
                        "  Test   Sub-test  Value  Low  High  Margin  Result\n"
                        "  Volts  volts       2.7    1     2    -0.7  FAIL\n"
                        "  Amps   volts       1.5    1     2     0.5  PASS\n\n"));
}

TEST_F(StationOutput, jsonGivesProgramsOneObjectForEachDevice) {
  StationProcess station = run({"--json", "--repeat", "2"});
  EXPECT_EQ(station.wait(), 1);
  std::istringstream lines(station.output());
  std::string line;
  std::multiset<std::string> devices;
  while (std::getline(lines, line)) {
    const json device = json::parse(line);
    devices.insert(device["serialNumber"].get<std::string>() + " " +
                   std::to_string(device["round"].get<int>()) + " " +
                   device["verdict"].get<std::string>());
    EXPECT_EQ(device["run"].get<std::string>().size(), 36U);
    ASSERT_EQ(device["tests"].size(), 2U);
    const json& record = device["tests"][0]["records"][0];
    EXPECT_EQ(record["value"].get<double>(), device["site"] == "left" ? 1.5 : 2.7);
    EXPECT_EQ(record["extras"], json::parse(R"({"note": "n"})"));
  }
  EXPECT_THAT(devices, testing::ElementsAre("A 1 PASS", "A 2 PASS", "B 1 FAIL", "B 2 FAIL"));
  EXPECT_THAT(station.errors(),
              AllOf(HasSubstr("right  FAIL  Volts"), HasSubstr("2 passed, 2 failed, 0 broken off"),
                    HasSubstr("Results:     logs/")));
}

TEST_F(StationOutput, jsonLeavesStandardOutputEmptyWhenNothingIsTested) {
  StationProcess station({"run", bundle_.path(), "--json", "--flow", "none"});
  EXPECT_EQ(station.wait(), 2);
  EXPECT_EQ(station.output(), "");
  EXPECT_THAT(station.errors(), HasSubstr("none"));
}

TEST_F(StationOutput, whatContradictsItselfIsRefused) {
  for (const char* const other : {"--quiet", "--json"}) {
    StationProcess station = run({"--details", other});
    EXPECT_EQ(station.wait(), 2);
    EXPECT_THAT(station.errors(), HasSubstr("--details"));
  }
  StationProcess station = run({"--quiet", "--json"});
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.errors(), Not(HasSubstr("Volts  0")));
}
