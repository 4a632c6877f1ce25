#include <QLTStationPlan.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include <fstream>

#include "support/ConsoleLog.h"
#include "support/Plist.h"
#include "support/PluginBundle.h"
#include "support/TemporaryFolder.h"

using namespace test::plist;
using test::PluginBundle;
using testing::EndsWith;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

const std::string kTest = testOf(
    "PowerTest",
    key("displayName", text("Power")) + key("params", dict(key("volts", text("5")))) +
        key("retest", "<true/>") + key("timeLimit", "<integer>20</integer>") +
        subTests(dict(key("name", text("VBUS")) + key("priority", "<integer>3</integer>") +
                      key("lowLimit", "<real>4.5</real>") + key("highLimit", "<real>5.5</real>")) +
                 dict(key("name", text("version")) + key("expected", text("2.4")) +
                      key("optional", "<true/>"))));

class QLTStationPlanTest : public testing::Test {
 protected:
  QLTStationPlan planOf(const std::string& config, const QLTDictionary& stationInfo = {}) {
    files_.setConfig(config);
    return QLTStationPlan::read(*files_.open(), testerConfig(), stationInfo);
  }
  std::filesystem::path testerConfig() const { return folder_.path() / "tester.csv"; }
  void setTesterConfig(const std::string& lines) const {
    std::ofstream(testerConfig()) << "name,class,sim,attributes\n" << lines;
  }

  test::ConsoleLog log_;
  test::TemporaryFolder folder_;
  PluginBundle files_{STATION_PLUGIN};
};

TEST_F(QLTStationPlanTest, HoldsWhatTheConfigurationSays) {
  setTesterConfig("dut,Nothing,0,a=b\ndut,QLTDiags,0,bsdPath=/dev/ttyS7\n");
  const QLTStationPlan plan = planOf(
      key("stationAttributes", dict(key("line", text("4")))) +
      key("Sites", dict(key("left", dict(key("Resources", dict(key("console", text("dut")))))) +
                        key("spare", dict(key("disable", "<true/>"))))) +
      key("Flows", dict(key("main", array(kTest + testOf("QLTestMethodDelay"))))) +
      key("defaultFlow", text("main")));
  EXPECT_EQ(plan.firstError(), nullptr);
  EXPECT_THAT(plan.configFile, EndsWith("/T.bundle/Contents/Resources/TestConfig.plist"));
  EXPECT_EQ(plan.testerConfig, testerConfig());
  EXPECT_EQ(plan.stationAttributes, (QLTDictionary{{"line", "4"}}));

  ASSERT_THAT(plan.instruments, SizeIs(1));
  const QLTStationPlan::Instrument& dut = plan.instruments.at("dut");
  EXPECT_EQ(dut.entry,
            (QLTDictionary{{"class", "QLTDiags"}, {"sim", "0"}, {"bsdPath", "/dev/ttyS7"}}));
  EXPECT_EQ(dut.position.line, 3);
  EXPECT_EQ(dut.missingAttribute, "");

  ASSERT_THAT(plan.sites, SizeIs(2));
  EXPECT_EQ(plan.sites[0].name, "left");
  EXPECT_GT(plan.sites[0].position.line, 0);
  ASSERT_THAT(plan.sites[0].resources, SizeIs(1));
  EXPECT_EQ(plan.sites[0].resources[0].name, "console");
  EXPECT_EQ(plan.sites[0].resources[0].instrument, "dut");
  EXPECT_TRUE(plan.isUsable(plan.sites[0]));
  EXPECT_FALSE(plan.sites[1].isEnabled);
  EXPECT_FALSE(plan.isUsable(plan.sites[1]));

  EXPECT_EQ(plan.defaultFlow, "main");
  ASSERT_THAT(plan.flows, SizeIs(1));
  ASSERT_THAT(plan.flows[0].tests, SizeIs(2));
  const QLTStationPlan::Test& power = plan.flows[0].tests[0];
  EXPECT_EQ(power.className, "PowerTest");
  EXPECT_EQ(power.cls, files_.open()->classNamed("PowerTest"));
  EXPECT_EQ(power.displayName, "Power");
  EXPECT_EQ(power.params, QLTValue(QLTDictionary{{"volts", "5"}}));
  EXPECT_EQ(power.retest, true);
  EXPECT_EQ(power.stopOnFail, std::nullopt);
  EXPECT_EQ(power.timeLimit, 20.0);
  ASSERT_THAT(power.subTests, SizeIs(2));
  EXPECT_EQ(power.subTests[0]->name(), "VBUS");
  EXPECT_EQ(power.subTests[0]->priority(), 3);
  EXPECT_EQ(power.subTests[0]->lowLimit(), 4.5);
  EXPECT_EQ(power.subTests[0]->highLimit(), 5.5);
  EXPECT_EQ(power.subTests[1]->expected(), "2.4");
  EXPECT_FALSE(power.subTests[1]->hasLimits());
  EXPECT_FALSE(power.subTests[0]->isOptional());
  EXPECT_TRUE(power.subTests[1]->isOptional());
  const QLTStationPlan::Test& delay = plan.flows[0].tests[1];
  EXPECT_EQ(&delay.cls->bundle(), &QLTBundle::frameworkBundle());
  EXPECT_EQ(delay.timeLimit, std::nullopt);
}

TEST(QLTStationPlanTimeLimitTest, IsANumberOfSecondsAboveZero) {
  EXPECT_EQ(QLTStationPlan::timeLimitOf(2), 2.0);
  EXPECT_EQ(QLTStationPlan::timeLimitOf(0.25), 0.25);
  EXPECT_EQ(QLTStationPlan::timeLimitOf(" 1e3\n"), 1000.0);
  EXPECT_EQ(QLTStationPlan::timeLimitOf(1e9), 1e9);
  const double infinite = std::numeric_limits<double>::infinity();
  for (const QLTValue& wrong :
       {QLTValue(0), QLTValue(-1.5), QLTValue(1e10), QLTValue(infinite), QLTValue(-infinite),
        QLTValue(std::numeric_limits<double>::quiet_NaN()), QLTValue(true), QLTValue("5 s"),
        QLTValue("inf"), QLTValue(""), QLTValue(QLTArray{1}), QLTValue(QLTDictionary{})}) {
    EXPECT_EQ(QLTStationPlan::timeLimitOf(wrong), std::nullopt) << wrong.text();
  }
}

TEST_F(QLTStationPlanTest, TakesTheConfigurationAsThePluginCustomisesIt) {
  setTesterConfig("");
  const QLTStationPlan plan =
      planOf("", {{"sites", QLTDictionary{{"made", QLTDictionary{{"disable", true}}}}}});
  ASSERT_THAT(plan.sites, SizeIs(1));
  EXPECT_EQ(plan.sites[0].name, "made");
  EXPECT_THAT(plan.instruments, IsEmpty());  // the hook's own are replaced
  const QLTStationPlan none = planOf("", {{"throw in customizeConfig", "bad day"}});
  ASSERT_NE(none.firstError(), nullptr);
  EXPECT_THAT(none.firstError()->text(),
              EndsWith("class HookedSuite: customizeConfig threw: bad day"));
}

TEST_F(QLTStationPlanTest, TellsAtWhatLoadingStops) {
  setTesterConfig("bare,QLTDiags,1,path=/dev/x\n");
  const QLTStationPlan plan = planOf(
      key("Sites", dict(key("left", dict("")) +
                        key("right", dict(key("Resources", dict(key("c", text("bare")))))))) +
      key("Flows",
          dict(key("main", array(kTest + testOf("Nothing") +
                                 testOf("Nothing", key("retest", array(""))) + text("x"))) +
               key("odd", text("x")))) +
      key("defaultFlow", array("")));
  EXPECT_EQ(plan.instruments.at("bare").missingAttribute, "bsdPath");
  EXPECT_TRUE(plan.isUsable(plan.sites[0]));
  EXPECT_FALSE(plan.isUsable(plan.sites[1]));
  const auto toldBy = [&](std::optional<std::size_t> index) {
    return index ? plan.findings.at(*index).key + ": " + plan.findings.at(*index).message : "";
  };
  const std::vector<QLTStationPlan::Test>& tests = plan.flows[0].tests;
  EXPECT_EQ(toldBy(tests[0].refusedBy), "");
  EXPECT_EQ(toldBy(tests[1].refusedBy), "");
  EXPECT_EQ(toldBy(tests[1].classRefusedBy),
            "Flows/main/1/class: unrecognized test method class Nothing");
  EXPECT_EQ(toldBy(tests[2].refusedBy), "Flows/main/2/retest: expected a boolean");
  EXPECT_EQ(toldBy(tests[3].refusedBy), "Flows/main/3: expected a dictionary");
  EXPECT_EQ(toldBy(plan.flows[1].refusedBy), "Flows/odd: expected an array");
  EXPECT_EQ(toldBy(plan.defaultFlowRefusedBy), "defaultFlow: expected a text");
  EXPECT_EQ(plan.firstError(), &plan.findings.at(*tests[1].classRefusedBy));
}

TEST_F(QLTStationPlanTest, KnowsNothingOfInstrumentsWithoutATesterConfig) {
  files_.setConfig(
      key("Sites", dict(key("left", dict(key("Resources", dict(key("c", text("dut")))))))) +
      kEmptyFlows);
  const QLTStationPlan plan = QLTStationPlan::read(*files_.open(), std::nullopt);
  EXPECT_EQ(plan.firstError(), nullptr);
  EXPECT_EQ(plan.testerConfig, std::nullopt);
  EXPECT_TRUE(plan.isUsable(plan.sites[0]));
}

}  // namespace
