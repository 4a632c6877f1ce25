#include <QLTDavDPEther.h>
#include <QLTDiags.h>
#include <QLTReopenable.h>
#include <QLTSimSerial.h>
#include <QLTSimSocket.h>
#include <QLTestMethod.h>
#include <QLTestSiteManager.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SiteManagerFixture.h"
#include "support/Plist.h"
#include "support/PluginBundle.h"
#include "support/SerialLine.h"

// What the stages of loading make: instruments, sites and flows.

using namespace test::plist;
using test::kHeader;
using test::PluginBundle;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

class QLTestSiteManagerBuildTest : public test::SiteManagerFixture {
 protected:
  static std::string pathOf(const PluginBundle& files) {
    return std::filesystem::canonical(files.path()).string();
  }
};

/// A suite that takes the configuration away while it is being read; so do its methods.
class GreedySuite : public QLTestSuite {
 public:
  explicit GreedySuite(std::string siteName) : QLTestSuite(std::move(siteName)) { take("Sites"); }
  static std::shared_ptr<QLTObject> createInstrument(const QLTDictionary&, QLTError*) {
    take("Instruments");
    return std::make_shared<QLTObject>();
  }
  static void take(const char* key) { QLTestSiteManager::sharedInstance()->config().remove(key); }
};

class GreedyTest : public QLTestMethod {
 public:
  GreedyTest(const std::shared_ptr<QLTestSuite>& suite, std::shared_ptr<QLTResources> resources,
             std::optional<std::string> displayName, SubTestInfos infos)
      : QLTestMethod(suite, std::move(resources), std::move(displayName), std::move(infos)) {
    GreedySuite::take("Flows");
    QLTestSiteManager::sharedInstance()->setSuite(std::make_shared<QLTestSuite>("another"),
                                                  suite->siteName());
  }
};

class OwnDelay : public QLTestMethod {
 public:
  using QLTestMethod::QLTestMethod;
};

QLT_CLASS(GreedySuite);
QLT_CLASS(GreedyTest);
/// The name is one of the framework's as well.
const QLTClass* const ownDelay =
    QLTClass::registerClass("QLTestMethodDelay", quillon::internal::operationsOf<OwnDelay>());

// Instruments.

TEST_F(QLTestSiteManagerBuildTest, SkipsAnInstrumentThatFailsToComeUp) {
  setTesterConfig(kHeader + "dut,QLTDiags,0,bsdPath=/no/such/port\nmeter,PlugInMeter,0,a=b\n");
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig(
      key("Sites", dict(key("left", dict(key("Resources", dict(key("m", text("meter")))))))) +
      kEmptyFlows);
  QLTError error;
  ASSERT_TRUE(load(files, &error));
  EXPECT_EQ(error.code(), ENOENT);
  EXPECT_EQ(error.description(),
            "Error opening serial port at /no/such/port. Details: No such file or directory");
  EXPECT_THAT(log_.lines(), Contains("error loading instrument dut:" + *error.description()));
  EXPECT_THAT(manager().siteNames(), ElementsAre("left"));
  EXPECT_TRUE(load(files));
}

TEST_F(QLTestSiteManagerBuildTest, AsksThePluginForInstrumentsThatItDoesNotKnow) {
  setTesterConfig(kHeader + "meter,PlugInMeter,0,addr=22\n");
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig(
      key("Sites", dict(key("left", dict(key("Resources", dict(key("m", text("meter")))))))) +
      kEmptyFlows);
  QLTError error("earlier", 1, {});
  ASSERT_TRUE(load(files, &error));
  EXPECT_EQ(error.domain(), "earlier");
  EXPECT_EQ(manager().suiteForSite("left")->resource<QLTObject>("m")->className(), "PlugInMeter");
}

TEST_F(QLTestSiteManagerBuildTest, FailsOnAnInstrumentThatNobodyKnows) {
  setTesterConfig(kHeader + "meter,Unheard,0,a=b\n");
  const std::string expected =
      "load instruments failed. Tests can not be run. Details: unknown instrument type Unheard";
  for (const char* principal : {"HookedSuite", "PlainSuite", "NoSuchClass"}) {
    const PluginBundle files(STATION_PLUGIN, principal);
    files.setConfig("");
    EXPECT_EQ(failureOf(files, -70000), expected);
  }
}

TEST_F(QLTestSiteManagerBuildTest, PassesThePluginsOwnErrorOn) {
  setTesterConfig(kHeader + "meter,FailingWithError,0,a=b\n");
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig("");
  EXPECT_EQ(failureOf(files, 7),
            "load instruments failed. Tests can not be run. Details: meter is broken");
}

TEST_F(QLTestSiteManagerBuildTest, DoesNotTakeAnEarlierInstrumentsErrorForThePlugins) {
  setTesterConfig(kHeader + "a dut,QLTDiags,0,bsdPath=/no/such/port\nmeter,Unheard,0,a=b\n");
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig("");
  EXPECT_EQ(
      failureOf(files, -70000),
      "load instruments failed. Tests can not be run. Details: unknown instrument type Unheard");
}

TEST_F(QLTestSiteManagerBuildTest, EndsTheLoadWhenAHookThrows) {
  setTesterConfig(kHeader + "meter,Throwing,0,a=b\n");
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig("");
  const std::string place =
      std::filesystem::canonical(files.path()).string() + ": class HookedSuite: ";
  EXPECT_EQ(failureOf(files, -40006), "load instruments failed. Tests can not be run. Details: " +
                                          place + "createInstrument threw: no such meter");
  EXPECT_EQ(failureOf(files, -40006, {{"throw in customizeConfig", "bad day"}}),
            place + "customizeConfig threw: bad day");
}

TEST_F(QLTestSiteManagerBuildTest, OutlivesAPluginThatChangesTheConfigurationWhileItIsRead) {
  const QLTClass* const principalClass = QLTClass::of<GreedySuite>();
  const QLTDictionary instrument{{"class", "Unheard"}};
  const QLTDictionary site{{"Resources", QLTDictionary{{"a", "one"}, {"b", "other"}}}};
  const QLTArray flow{QLTDictionary{{"class", "GreedyTest"}},
                      QLTDictionary{{"class", "GreedyTest"}}};
  manager().config() = {{"Instruments", QLTDictionary{{"one", instrument}, {"other", instrument}}},
                        {"Sites", QLTDictionary{{"left", site}, {"right", site}}},
                        {"Flows", QLTDictionary{{"audit", flow}, {"main", flow}}},
                        {"defaultFlow", "main"}};
  EXPECT_TRUE(manager().loadInstruments(principalClass, {}));
  EXPECT_TRUE(manager().loadSites(principalClass));
  const auto left = manager().suiteForSite("left");
  const auto right = manager().suiteForSite("right");
  ASSERT_TRUE(left && right);
  EXPECT_TRUE(manager().loadFlows(QLTBundle::mainBundle()));
  EXPECT_EQ(right->flowForName("audit")->size(), 2U);
  EXPECT_EQ(right->flowForName("default")->size(), 2U);
  EXPECT_EQ(left->resources()->size(), 3U);
}

// Sites.

TEST_F(QLTestSiteManagerBuildTest, LoadsWithoutSitesAndWithoutADefaultFlow) {
  setTesterConfig(kHeader);
  const PluginBundle files(STATION_PLUGIN, "NoSuchClass");
  files.setConfig("");
  EXPECT_TRUE(load(files));
  EXPECT_THAT(manager().siteNames(), IsEmpty());
}

TEST_F(QLTestSiteManagerBuildTest, LeavesDisabledSitesOut) {
  setTesterConfig(kHeader);
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig(
      key("Sites",
          dict(key("a", dict(key("disable", "<true/>"))) +
               key("b", dict(key("disable", text("YES")) + key("Resources", text("odd")))) +
               key("c", dict(key("disable", "<false/>"))) +
               key("d", dict(key("disable", text("NO")))) + key("e", dict("")))) +
      kEmptyFlows);
  ASSERT_TRUE(load(files));
  EXPECT_THAT(manager().siteNames(), testing::UnorderedElementsAre("c", "d", "e"));
  EXPECT_THAT(manager().disabledSiteNames(), testing::ElementsAre("a", "b"));
  EXPECT_THAT(log_.lines(), Contains("site a is disabled. Skipping load..."));
  EXPECT_THAT(log_.lines(), Contains("site b is disabled. Skipping load..."));
}

TEST_F(QLTestSiteManagerBuildTest, DisablesASiteWhoseResourceIsMissing) {
  setTesterConfig(kHeader);
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig(
      key("Sites", dict(key("left", dict(key("Resources", dict(key("console", text("dut")))))) +
                        key("right", dict("")))) +
      kEmptyFlows);
  QLTError error;
  EXPECT_TRUE(load(files, &error));
  EXPECT_EQ(error.code(), -80001);
  EXPECT_EQ(error.domain(), QLTFrameworkErrorDomain);
  EXPECT_EQ(error.description(),
            "resource console for site left does not exist! This site will be disabled");
  EXPECT_THAT(manager().siteNames(), ElementsAre("right"));
  EXPECT_EQ(manager().suiteForSite("left"), nullptr);
  EXPECT_TRUE(load(files));
}

TEST_F(QLTestSiteManagerBuildTest, TellsWhyAResourceIsMissingWhoseInstrumentDidNotComeUp) {
  setTesterConfig(kHeader + "dut,QLTDiags,0,bsdPath=/no/such/port\n");
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig(
      key("Sites", dict(key("left", dict(key("Resources", dict(key("console", text("dut")))))))) +
      kEmptyFlows);
  QLTError error;
  EXPECT_TRUE(load(files, &error));
  EXPECT_EQ(error.code(), -80001);
  EXPECT_EQ(error.underlyingError().description(),
            "Error opening serial port at /no/such/port. Details: No such file or directory");
  // What kept it away at an earlier loading is no reason at a later one, which does not list it.
  setTesterConfig(kHeader);
  EXPECT_TRUE(load(files, &error));
  EXPECT_EQ(error.code(), -80001);
  EXPECT_FALSE(error.underlyingError());
}

TEST_F(QLTestSiteManagerBuildTest, KeepsLostInstrumentsWhenAsked) {
  test::PluggedLine line;
  line.unplug();
  setTesterConfig(kHeader + "dut,QLTDiags,0,bsdPath=" + line.path() +
                  "\nserial,QLTDavDPSerial,0,bsdPath=/no/such/port\n"
                  "ether,QLTDavDPEther,0,ip=127.7.6.5\n");
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig(
      key("Sites", dict(key("left", dict(key("Resources",
                                             dict(key("a", text("dut")) + key("b", text("serial")) +
                                                  key("c", text("ether")))))))) +
      kEmptyFlows);
  manager().setKeepsLostInstruments(true);
  QLTError error;
  ASSERT_TRUE(load(files, &error));
  EXPECT_FALSE(error);
  EXPECT_THAT(manager().instrumentFailures(), IsEmpty());
  const auto suite = manager().suiteForSite("left");
  ASSERT_NE(suite, nullptr);
  const auto lineOf = [&](const char* name) {
    return dynamic_cast<QLTReopenable*>(suite->resources()->at(name).get());
  };
  for (const char* const name : {"a", "b", "c"}) EXPECT_TRUE(lineOf(name)->isLost()) << name;
  EXPECT_FALSE(lineOf("b")->reopen(&error));
  EXPECT_FALSE(lineOf("c")->reopen(&error));
  EXPECT_TRUE(lineOf("c")->isLost());
  line.plugIn();
  EXPECT_TRUE(lineOf("a")->reopen(&error));
  EXPECT_FALSE(lineOf("a")->isLost());
}

TEST_F(QLTestSiteManagerBuildTest, SkipsAnInstrumentOfThePluginsWhenLostOnesAreKept) {
  setTesterConfig(kHeader + "dut,Unheard,0,a=b\n");
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig(
      key("Sites", dict(key("left", dict(key("Resources", dict(key("console", text("dut")))))) +
                        key("right", dict("")))) +
      kEmptyFlows);
  EXPECT_FALSE(load(files));
  manager().setKeepsLostInstruments(true);
  EXPECT_TRUE(load(files));
  EXPECT_THAT(manager().siteNames(), ElementsAre("right"));
  EXPECT_TRUE(manager().instrumentFailures().contains("dut"));
}

TEST_F(QLTestSiteManagerBuildTest, LooksNoFurtherThanASitesFirstMissingResource) {
  manager().config().set(
      "Sites",
      QLTDictionary{
          {"left", QLTDictionary{{"Resources", QLTDictionary{{"a", "dut"}, {"b", "meter"}}}}}});
  EXPECT_TRUE(manager().loadSites(QLTClass::of<GreedySuite>()));
  EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr("for site left does not exist!")));
}

TEST_F(QLTestSiteManagerBuildTest, NamesThePrincipalClassThatItCannotUse) {
  setTesterConfig(kHeader);
  const std::string start = "load site failed. Tests can not be run. Details: ";
  const PluginBundle unknown(STATION_PLUGIN, "NoSuchClass");
  unknown.setConfig(kLeftSite + kEmptyFlows);
  EXPECT_EQ(failureOf(unknown, -40006),
            start + pathOf(unknown) +
                ": the principal class NoSuchClass is none of the bundle's classes (is it "
                "registered with QLT_CLASS?)");
  const PluginBundle method(STATION_PLUGIN, "PowerTest");
  method.setConfig(kLeftSite + kEmptyFlows);
  EXPECT_EQ(failureOf(method, -40006),
            start + pathOf(method) + ": the principal class PowerTest is not a suite class");
  const PluginBundle none(STATION_PLUGIN);
  none.setInfo(key("Executable", text("T.so")) + key("FrameworkVersion", text(QUILLON_VERSION)));
  none.setConfig(kLeftSite + kEmptyFlows);
  EXPECT_EQ(failureOf(none, -40006),
            start + pathOf(none) + ": the bundle's Info.plist names no principal class");
  const PluginBundle throwing(STATION_PLUGIN, "ThrowingSuite");
  throwing.setConfig(kLeftSite + kEmptyFlows);
  EXPECT_THAT(failureOf(throwing, -40006),
              EndsWith("class ThrowingSuite: its constructor threw: no site today"));
}

TEST_F(QLTestSiteManagerBuildTest, NamesThePlaceOfAWrongTypeInTheConfiguration) {
  setTesterConfig(kHeader);
  const std::vector<std::pair<std::string, std::string>> cases{
      {key("stationAttributes", text("x")), ":2:29: stationAttributes: expected a dictionary"},
      {key("Sites", text("x")), ":2:17: Sites: expected a dictionary"},
      {key("Sites", dict(key("left", text("x")))), ":2:38: Sites/left: expected a dictionary"},
      {key("Sites", dict(key("left", dict(key("disable", array("")))))),
       ":2:62: Sites/left/disable: expected a boolean"},
      {key("Sites", dict(key("left", dict(key("Resources", array("")))))),
       ":2:64: Sites/left/Resources: expected a dictionary"}};
  for (const auto& [config, complaint] : cases) {
    const PluginBundle files(STATION_PLUGIN);
    files.setConfig(config);
    EXPECT_THAT(failureOf(files, -40003), EndsWith("TestConfig.plist" + complaint));
  }
}

// Flows.

TEST_F(QLTestSiteManagerBuildTest, BuildsFlowsOfTheirOwnForEverySite) {
  setTesterConfig(kHeader);
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig(
      key("Sites", dict(key("left", dict("")) + key("right", dict("")))) +
      key("Flows", dict(key("main", array(testOf("PowerTest") + testOf("ResourcesTest"))) +
                        key("audit", array("")))) +
      key("defaultFlow", text("main")));
  ASSERT_TRUE(load(files));
  const auto left = manager().suiteForSite("left");
  const auto right = manager().suiteForSite("right");
  EXPECT_THAT(left->flowNames(), testing::UnorderedElementsAre("main", "audit", "default"));
  EXPECT_EQ(left->flowForName("default"), left->flowForName("main"));
  EXPECT_TRUE(left->flowForName("audit")->empty());
  const QLTFlow& leftFlow = *left->flowForName("main");
  const QLTFlow& rightFlow = *right->flowForName("main");
  ASSERT_EQ(leftFlow.size(), 2U);
  EXPECT_EQ(leftFlow[0]->className(), "PowerTest");
  EXPECT_EQ(leftFlow[1]->className(), "ResourcesTest");
  EXPECT_NE(leftFlow[0], rightFlow[0]);
  EXPECT_EQ(leftFlow[0]->suite(), left);
  EXPECT_EQ(rightFlow[0]->suite(), right);
  EXPECT_NE(leftFlow[1]->view(), nullptr) << "the initialiser was not given the suite's resources";
}

TEST_F(QLTestSiteManagerBuildTest, FindsTheFrameworksOwnMethods) {
  setTesterConfig(kHeader);
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig(flowOf(testOf("QLTestMethodDelay")));
  ASSERT_TRUE(load(files));
  EXPECT_EQ(manager().suiteForSite("left")->flowForName("main")->front()->className(),
            "QLTestMethodDelay");
}

TEST_F(QLTestSiteManagerBuildTest, PrefersThePluginsMethodsToTheFrameworks) {
  ASSERT_NE(ownDelay, nullptr);
  const auto suite = std::make_shared<QLTestSuite>("left");
  manager().setSuite(suite, "left");
  manager().config() = {
      {"Flows", QLTDictionary{{"main", QLTArray{QLTDictionary{{"class", "QLTestMethodDelay"}}}}}},
      {"defaultFlow", "main"}};
  ASSERT_TRUE(manager().loadFlows(QLTBundle::mainBundle()));
  EXPECT_NE(std::dynamic_pointer_cast<OwnDelay>(suite->flowForName("main")->front()), nullptr);
}

TEST_F(QLTestSiteManagerBuildTest, KeepsAMethodsDefaultsWhereTheConfigurationIsSilent) {
  setTesterConfig(kHeader);
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig(flowOf(testOf("PowerTest") + testOf("ResourcesTest")));
  ASSERT_TRUE(load(files));
  const QLTFlow& flow = *manager().suiteForSite("left")->flowForName("main");
  EXPECT_EQ(flow[0]->displayName(), std::nullopt);
  EXPECT_EQ(flow[0]->params(), std::nullopt);
  EXPECT_FALSE(flow[0]->allowRetest());
  EXPECT_TRUE(flow[0]->shouldStopOnFail());
  EXPECT_TRUE(flow[0]->subTests().empty());
  EXPECT_TRUE(flow[1]->allowRetest());
  EXPECT_FALSE(flow[1]->shouldStopOnFail());
}

TEST_F(QLTestSiteManagerBuildTest, TakesAMethodsSettings) {
  setTesterConfig(kHeader);
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig(
      flowOf(testOf("PowerTest", key("displayName", text("Power")) +
                                     key("params", dict(key("volts", "<real>5.5</real>"))) +
                                     key("retest", "<true/>") + key("stopOnFail", text("NO"))) +
             testOf("PowerTest", key("params", array("<integer>1</integer>")) +
                                     key("retest", "<integer>0</integer>"))));
  ASSERT_TRUE(load(files));
  const QLTFlow& flow = *manager().suiteForSite("left")->flowForName("main");
  EXPECT_EQ(flow[0]->displayName(), "Power");
  EXPECT_EQ(flow[0]->param("volts")->doubleValue(), 5.5);
  EXPECT_TRUE(flow[0]->allowRetest());
  EXPECT_FALSE(flow[0]->shouldStopOnFail());
  EXPECT_EQ(flow[1]->params(), QLTValue(QLTArray{1}));
  EXPECT_EQ(flow[1]->param("volts"), nullptr);
  EXPECT_FALSE(flow[1]->allowRetest());
}

TEST_F(QLTestSiteManagerBuildTest, TakesSubTests) {
  setTesterConfig(kHeader);
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig(flowOf(
      testOf("PowerTest",
             subTests(dict(key("name", text("VBUS")) + key("priority", "<integer>2</integer>") +
                           key("lowLimit", "<real>4.5</real>") + key("highLimit", text("5.5")) +
                           key("expected", text("replaced"))) +
                      dict(key("name", text("version")) + key("expected", text("1.2")) +
                           key("failMessage", text(""))) +
                      dict(key("name", text("open")) + key("highLimit", "<integer>3</integer>")) +
                      dict(key("name", text("half")) + key("lowLimit", "<integer>3</integer>")) +
                      dict(key("expected", "<integer>5</integer>"))))));
  ASSERT_TRUE(load(files));
  const auto& infos = manager().suiteForSite("left")->flowForName("main")->front()->subTests();
  ASSERT_EQ(infos.size(), 5U);
  EXPECT_EQ(infos[0]->name(), "VBUS");
  EXPECT_EQ(infos[0]->priority(), 2);
  EXPECT_TRUE(infos[0]->hasLimits());
  EXPECT_EQ(infos[0]->lowLimit(), 4.5);
  EXPECT_EQ(infos[0]->highLimit(), 5.5);
  EXPECT_EQ(infos[0]->expected(), "from 4.500000 to 5.500000");
  EXPECT_EQ(infos[0]->failMessage(), "failed VBUS");
  EXPECT_EQ(infos[1]->priority(), 0);
  EXPECT_EQ(infos[1]->expected(), "1.2");
  EXPECT_EQ(infos[1]->failMessage(), "");
  EXPECT_FALSE(infos[1]->hasLimits());
  EXPECT_FALSE(infos[2]->hasLimits());
  EXPECT_EQ(infos[2]->expected(), "");
  EXPECT_EQ(infos[2]->highLimit(), 0.0);
  EXPECT_TRUE(infos[3]->hasLimits());
  EXPECT_EQ(infos[3]->highLimit(), 0.0);
  EXPECT_EQ(infos[4]->name(), std::nullopt);
  EXPECT_EQ(infos[4]->expected(), "5");
  EXPECT_EQ(infos[4]->failMessage(), "failed (null)");
}

TEST_F(QLTestSiteManagerBuildTest, GivesTheSubTestsOfEverySiteTheirUnits) {
  setTesterConfig(kHeader);
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig(
      key("Sites", dict(key("left", dict("")) + key("right", dict("")))) +
      key("defaultFlow", text("main")) +
      key("Flows",
          dict(key("main", array(testOf("PowerTest", subTests(dict(key("name", text("VBUS")) +
                                                                   key("lowLimit", text("4.5")) +
                                                                   key("unit", text("V"))) +
                                                              dict(key("name", text("wrong")) +
                                                                   key("unit", array(""))))))))));
  ASSERT_TRUE(load(files));
  for (const char* const site : {"left", "right"}) {
    const auto& infos = manager().suiteForSite(site)->flowForName("main")->front()->subTests();
    ASSERT_EQ(infos.size(), 2U);
    EXPECT_EQ(infos[0]->unit(), "V") << site;
    EXPECT_EQ(infos[0]->expected(), "from 4.500000 to 0.000000") << site;
    EXPECT_EQ(infos[1]->unit(), std::nullopt) << site;
  }
}

TEST_F(QLTestSiteManagerBuildTest, GivesTheTestsOfEverySiteTheirTimeLimitsAndOptionalSubTests) {
  setTesterConfig(kHeader);
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig(
      key("Sites", dict(key("left", dict("")) + key("right", dict("")))) +
      key("defaultFlow", text("main")) +
      key("Flows", dict(key("main", array(testOf("PowerTest",
                                                 key("timeLimit", text("2.5")) +
                                                     subTests(dict(key("optional", text("YES"))) +
                                                              dict(key("optional", "<false/>")) +
                                                              dict(""))) +
                                          testOf("PowerTest"))))));
  ASSERT_TRUE(load(files));
  for (const char* const site : {"left", "right"}) {
    const QLTFlow& flow = *manager().suiteForSite(site)->flowForName("main");
    EXPECT_EQ(flow[0]->timeLimit(), 2.5) << site;
    EXPECT_EQ(flow[1]->timeLimit(), std::nullopt) << site;
    const auto& infos = flow[0]->subTests();
    ASSERT_EQ(infos.size(), 3U);
    EXPECT_TRUE(infos[0]->isOptional()) << site;
    EXPECT_FALSE(infos[1]->isOptional()) << site;
    EXPECT_FALSE(infos[2]->isOptional()) << site;
  }
}

TEST_F(QLTestSiteManagerBuildTest, FailsOnAClassThatDoesNotExist) {
  setTesterConfig(kHeader);
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig(flowOf(testOf("PowerTest") + testOf("powertest")));
  EXPECT_EQ(
      failureOf(files, -40001),
      "load flow failed. Tests can not be run. Details: unrecognized test method class powertest");
  // Registered before it was filled: what came before the failure stays.
  EXPECT_EQ(manager().suiteForSite("left")->flowForName("main")->size(), 1U);
  EXPECT_EQ(manager().suiteForSite("left")->flowForName("default"), nullptr);
  const PluginBundle none(STATION_PLUGIN);
  none.setConfig(flowOf(dict("")));
  EXPECT_EQ(
      failureOf(none, -40001),
      "load flow failed. Tests can not be run. Details: unrecognized test method class (null)");
}

TEST_F(QLTestSiteManagerBuildTest, TellsOnceWhereAClassThatDoesNotExistStands) {
  setTesterConfig(kHeader);
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig(flowOf(testOf("powertest")));
  QLTError error;
  EXPECT_FALSE(load(files, &error));
  const std::string file = pathOf(files) + "/Contents/Resources/TestConfig.plist";
  std::vector<std::string> told;
  for (const std::string& line : log_.lines()) {
    if (line.find("powertest") != line.npos) told.push_back(line);
  }
  EXPECT_THAT(told, ElementsAre(StartsWith("error number is: " + file +
                                           ":4:67: Flows/main/0/class: unrecognized test method "
                                           "class powertest (-40001)")));
  const QLTDictionary& place = error.underlyingError().userInfo();
  EXPECT_EQ(place.find("file")->text(), file);
  EXPECT_EQ(place.find("line")->intValue(), 4);
  EXPECT_EQ(place.find("column")->intValue(), 67);
  EXPECT_EQ(place.find("keyPath")->text(), "Flows/main/0/class");
}

TEST_F(QLTestSiteManagerBuildTest, BuildsNothingAfterAClassThatDoesNotExist) {
  setTesterConfig(kHeader);
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig(key("Sites", dict(key("left", dict("")) + key("right", dict("")))) +
                  key("Flows", dict(key("main", array(testOf("Unheard"))) +
                                    key("audit", array(testOf("Unheard"))))) +
                  key("defaultFlow", text("main")));
  EXPECT_FALSE(load(files));
  EXPECT_EQ(manager().suiteForSite("left")->flowNames().size() +
                manager().suiteForSite("right")->flowNames().size(),
            1U);
}

TEST_F(QLTestSiteManagerBuildTest, FailsOnAMethodWhoseConstructorThrows) {
  setTesterConfig(kHeader);
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig(flowOf(testOf("ThrowingTest")));
  EXPECT_THAT(failureOf(files, -40006),
              EndsWith("class ThrowingTest: its constructor threw: cannot be made"));
}

TEST_F(QLTestSiteManagerBuildTest, NamesThePlaceOfAMalformedTest) {
  setTesterConfig(kHeader);
  const auto oneSubTest = [](const std::string& entry) {
    return testOf("PowerTest", subTests(dict(entry)));
  };
  const std::vector<std::pair<std::string, std::string>> cases{
      {testOf("HookedSuite"), "Flows/main/0/class: the class HookedSuite is not a test method"},
      {text("x"), "Flows/main/0: expected a dictionary"},
      {dict(key("class", array(""))), "Flows/main/0/class: expected a text"},
      {testOf("PowerTest", key("displayName", dict(""))),
       "Flows/main/0/displayName: expected a text"},
      {testOf("PowerTest", key("retest", dict(""))), "Flows/main/0/retest: expected a boolean"},
      {testOf("PowerTest", key("stopOnFail", array(""))),
       "Flows/main/0/stopOnFail: expected a boolean"},
      {testOf("PowerTest", key("timeLimit", "<integer>0</integer>")),
       "Flows/main/0/timeLimit: expected a number of seconds, above 0 and at most 1000000000, "
       "found '0'"},
      {oneSubTest(key("optional", array(""))),
       "Flows/main/0/subTestInfos/0/optional: expected a boolean"},
      {testOf("PowerTest", key("subTestInfos", text("x"))),
       "Flows/main/0/subTestInfos: expected an array"},
      {testOf("PowerTest", subTests(text("x"))),
       "Flows/main/0/subTestInfos/0: expected a dictionary"},
      {oneSubTest(key("name", dict(""))), "Flows/main/0/subTestInfos/0/name: expected a text"},
      {oneSubTest(key("priority", dict(""))),
       "Flows/main/0/subTestInfos/0/priority: expected a number"},
      {oneSubTest(key("lowLimit", array(""))),
       "Flows/main/0/subTestInfos/0/lowLimit: expected a number"},
      {oneSubTest(key("lowLimit", text("4,5"))),
       "Flows/main/0/subTestInfos/0/lowLimit: expected a number, found '4,5'"},
      {oneSubTest(key("lowLimit", text(""))),
       "Flows/main/0/subTestInfos/0/lowLimit: expected a number, found ''"},
      {oneSubTest(key("highLimit", text("1e999"))),
       "Flows/main/0/subTestInfos/0/highLimit: expected a number, found '1e999'"},
      {oneSubTest(key("highLimit", text("abc"))),
       "Flows/main/0/subTestInfos/0/highLimit: expected a number, found 'abc'"},
      {oneSubTest(key("failMessage", array(""))),
       "Flows/main/0/subTestInfos/0/failMessage: expected a text"}};
  for (const auto& [test, complaint] : cases) {
    const PluginBundle files(STATION_PLUGIN);
    files.setConfig(flowOf(test));
    const std::string failure = failureOf(files, -40001);
    EXPECT_THAT(failure, StartsWith("load flow failed. Tests can not be run. Details: "));
    EXPECT_THAT(failure, EndsWith(": " + complaint));
    EXPECT_THAT(failure, testing::ContainsRegex("TestConfig.plist:[0-9]+:[0-9]+: Flows"));
  }
}

TEST_F(QLTestSiteManagerBuildTest, NamesThePlaceOfMalformedFlows) {
  setTesterConfig(kHeader);
  for (const auto& [config, complaint] : std::vector<std::pair<std::string, std::string>>{
           {kLeftSite + key("Flows", text("x")), "Flows: expected a dictionary"},
           {kLeftSite + key("Flows", dict(key("main", text("x")))),
            "Flows/main: expected an array"},
           {kLeftSite + key("defaultFlow", array("")), "defaultFlow: expected a text"}}) {
    const PluginBundle files(STATION_PLUGIN);
    files.setConfig(config);
    EXPECT_THAT(failureOf(files, -40001), EndsWith(complaint));
  }
}

TEST_F(QLTestSiteManagerBuildTest, FailsWithoutTheDefaultFlow) {
  setTesterConfig(kHeader);
  const PluginBundle wrong(STATION_PLUGIN);
  wrong.setConfig(kLeftSite + key("Flows", dict(key("main", array("")) + key("audit", array("")))) +
                  key("defaultFlow", text("mian")));
  EXPECT_THAT(failureOf(wrong, -40001),
              EndsWith("defaultFlow: there is no flow \"mian\"; the flows are: audit, main"));
  // Checked after the flows are built.
  EXPECT_NE(manager().suiteForSite("left")->flowForName("audit"), nullptr);
  const PluginBundle missing(STATION_PLUGIN);
  missing.setConfig(kLeftSite + key("Flows", dict(key("main", array("")))));
  EXPECT_THAT(failureOf(missing, -40001),
              EndsWith("defaultFlow: missing; it must name one of the flows: main"));
  const PluginBundle noFlows(STATION_PLUGIN);
  noFlows.setConfig(kLeftSite + key("defaultFlow", text("main")));
  EXPECT_THAT(failureOf(noFlows, -40001), HasSubstr("there is no flow \"main\""));
}

/// A suite that makes two flows of its own, one of them null.
class OwnFlowsSuite : public QLTestSuite {
 public:
  explicit OwnFlowsSuite(std::string siteName) : QLTestSuite(std::move(siteName)) {
    setFlow(std::make_shared<QLTFlow>(), "own");
    setFlow(nullptr, "null");
  }
};
QLT_CLASS(OwnFlowsSuite);

TEST_F(QLTestSiteManagerBuildTest, ADefaultFlowMayBeThePluginsOwnButNotNull) {
  const auto loadsWith = [&](const char* defaultFlow, QLTError* error) {
    manager().config() = {{"Sites", QLTDictionary{{"left", QLTDictionary{}}}},
                          {"defaultFlow", defaultFlow}};
    EXPECT_TRUE(manager().loadSites(QLTClass::of<OwnFlowsSuite>()));
    return manager().loadFlows(QLTBundle::mainBundle(), error);
  };
  EXPECT_TRUE(loadsWith("own", nullptr));
  const auto suite = manager().suiteForSite("left");
  EXPECT_EQ(suite->flowForName("default"), suite->flowForName("own"));
  QLTError error;
  EXPECT_FALSE(loadsWith("null", &error));
  EXPECT_EQ(error.code(), -40001);
  EXPECT_THAT(*error.description(), HasSubstr("defaultFlow: there is no flow \"null\""));
  EXPECT_EQ(manager().suiteForSite("left")->flowForName("default"), nullptr);
}

}  // namespace
