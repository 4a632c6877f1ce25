#include <QLTDiags.h>
#include <QLTPropertyList.h>
#include <QLTestMethod.h>
#include <QLTestSiteManager.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <thread>

#include "SiteManagerFixture.h"
#include "support/Plist.h"
#include "support/PluginBundle.h"

using namespace test::plist;
using test::kHeader;
using test::kTesterConfig;
using test::PluginBundle;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

class QLTestSiteManagerTest : public test::SiteManagerFixture {};

// The shared manager and the run counter.

/// A suite that enters a null flow under the name of the default flow.
class HollowSuite : public QLTestSuite {
 public:
  explicit HollowSuite(std::string siteName) : QLTestSuite(std::move(siteName)) {
    setFlow(nullptr, "main");
  }
};

QLT_CLASS(HollowSuite);

TEST_F(QLTestSiteManagerTest, IsOnePerProcess) {
  EXPECT_EQ(QLTestSiteManager::sharedInstance(), QLTestSiteManager::sharedInstance());
}

TEST_F(QLTestSiteManagerTest, StartsEmpty) {
  EXPECT_THAT(manager().siteNames(), IsEmpty());
  EXPECT_EQ(manager().suiteForSite("left"), nullptr);
  EXPECT_TRUE(manager().stationAttributes().empty());
  EXPECT_TRUE(manager().config().empty());
  EXPECT_EQ(manager().infoForSites(), std::nullopt);
  EXPECT_EQ(manager().nextAvailableSite(), std::nullopt);
}

TEST_F(QLTestSiteManagerTest, CountsRunsFromOne) {
  EXPECT_EQ(manager().nextRunIndex(), 1U);
  EXPECT_EQ(manager().nextRunIndex(), 2U);
  EXPECT_EQ(manager().nextRunIndex(), 3U);
}

TEST_F(QLTestSiteManagerTest, ASecondInitGivesNoneAndGivesUpTheSharedOne) {
  const auto earlier = QLTestSiteManager::sharedInstance();
  earlier->setSuite(std::make_shared<QLTestSuite>("left"), "left");
  EXPECT_EQ(QLTestSiteManager::init(), nullptr);
  const auto later = QLTestSiteManager::sharedInstance();
  EXPECT_NE(later, earlier);
  EXPECT_THAT(later->siteNames(), IsEmpty());
  EXPECT_THAT(earlier->siteNames(), ElementsAre("left"));
}

TEST_F(QLTestSiteManagerTest, AGivenUpManagerLivesOnThoughNobodyHoldsIt) {
  const std::weak_ptr<QLTestSiteManager> earlier = QLTestSiteManager::sharedInstance();
  const auto suite = std::make_shared<QLTestSuite>("left");
  earlier.lock()->setSuite(suite, "left");
  EXPECT_EQ(QLTestSiteManager::init(), nullptr);
  ASSERT_FALSE(earlier.expired());
  EXPECT_EQ(earlier.lock()->suiteForSite("left"), suite);
  EXPECT_THAT(QLTestSiteManager::sharedInstance()->siteNames(), IsEmpty());
}

TEST_F(QLTestSiteManagerTest, TheFirstInitMakesTheSharedOne) {
  const auto made = QLTestSiteManager::init();
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(QLTestSiteManager::sharedInstance(), made);
}

TEST_F(QLTestSiteManagerTest, ADestroyedManagerEmptiesTheSharedSlotWhicheverItIs) {
  auto earlier = QLTestSiteManager::sharedInstance();
  QLTestSiteManager::releaseSharedInstance();
  const auto later = QLTestSiteManager::sharedInstance();
  earlier.reset();
  EXPECT_NE(QLTestSiteManager::sharedInstance(), later);
}

TEST_F(QLTestSiteManagerTest, LosesNoRunOfSeveralThreads) {
  constexpr std::uint32_t threads = 8;
  constexpr std::uint32_t runs = 500;
  QLTestSiteManager& shared = manager();
  std::atomic<std::uint32_t> highest = 0;
  {
    std::vector<std::jthread> sites;
    for (std::uint32_t t = 0; t < threads; ++t) {
      sites.emplace_back([&] {
        std::uint32_t last = 0;
        for (std::uint32_t i = 0; i < runs; ++i) {
          const std::uint32_t mine = shared.nextRunIndex();
          EXPECT_GT(mine, last);
          last = mine;
        }
        for (std::uint32_t seen = highest;
             seen < last && !highest.compare_exchange_weak(seen, last);) {
        }
      });
    }
  }
  EXPECT_EQ(highest, threads * runs);
  EXPECT_EQ(shared.nextRunIndex(), threads * runs + 1);
}

TEST_F(QLTestSiteManagerTest, KeepsTheHostsInfoForSites) {
  manager().setInfoForSites(QLTDictionary{{"a", 1}});
  EXPECT_EQ(manager().infoForSites(), (QLTDictionary{{"a", 1}}));
  manager().setInfoForSites(std::nullopt);
  EXPECT_EQ(manager().infoForSites(), std::nullopt);
}

TEST_F(QLTestSiteManagerTest, ReplacesASiteOfTheSameName) {
  const auto second = std::make_shared<QLTestSuite>("left");
  manager().setSuite(std::make_shared<QLTestSuite>("left"), "left");
  manager().setSuite(second, "left");
  EXPECT_EQ(manager().suiteForSite("left"), second);
  EXPECT_THAT(manager().siteNames(), ElementsAre("left"));
}

// The tester-config file.

std::optional<QLTDictionary> parse(const std::string& content, QLTError* error = nullptr) {
  return QLTestSiteManager::parseTesterConfig(content, "T.csv", error);
}

TEST_F(QLTestSiteManagerTest, ReadsAnInstrumentListOfTheTester) {
  EXPECT_EQ(
      parse("name,class,sim,attributes\n"
            "dut,QLTDiags,0,bsdPath=/dev/ttyS1\n"
            "video,QLTDavDPEther,1,ip=10.0.0.20\n"
            "meter,PlugInMeter,0,bsdPath=/dev/ttyS2;addr=22\n"),
      (QLTDictionary{
          {"dut", QLTDictionary{{"class", "QLTDiags"}, {"sim", "0"}, {"bsdPath", "/dev/ttyS1"}}},
          {"video", QLTDictionary{{"class", "QLTDavDPEther"}, {"sim", "1"}, {"ip", "10.0.0.20"}}},
          {"meter", QLTDictionary{{"class", "PlugInMeter"},
                                  {"sim", "0"},
                                  {"bsdPath", "/dev/ttyS2"},
                                  {"addr", "22"}}}}));
}

TEST_F(QLTestSiteManagerTest, NumbersTheLinesOfALongListInOnePass) {
  // Counting anew for each line would take minutes here.
  std::string list = "h\r\n";
  for (int i = 0; i < 100'000; ++i) list += "dut,QLTDiags,0,k=v\r\n\n\r";
  QLTError error;
  EXPECT_EQ(parse(list + "dut", &error), std::nullopt);
  EXPECT_EQ(error.description(),
            "T.csv:300002: expected the four fields name,class,sim,attributes, found 1: dut");
  EXPECT_EQ(parse(list)->find("dut")->position().line, 299'999);
}

TEST_F(QLTestSiteManagerTest, AHeaderAloneListsNoInstruments) {
  EXPECT_EQ(parse(kHeader), QLTDictionary());
  EXPECT_EQ(parse(""), QLTDictionary());
}

TEST_F(QLTestSiteManagerTest, TrimsLinesAndFieldsButNotAttributes) {
  EXPECT_EQ(
      parse("h\n \t dut , QLTDiags , 0 , bsdPath=/dev/x \t\n"),
      (QLTDictionary{
          {"dut", QLTDictionary{{"class", "QLTDiags"}, {"sim", "0"}, {"bsdPath", "/dev/x"}}}}));
  EXPECT_EQ(parse("h\na,b,c, k = v ; l =w\n"),
            (QLTDictionary{
                {"a", QLTDictionary{{"class", "b"}, {"sim", "c"}, {"k ", " v "}, {" l ", "w"}}}}));
}

TEST_F(QLTestSiteManagerTest, SplitsAtEveryNewlineCharacterAndSkipsEmptyLines) {
  const QLTDictionary expected{{"a", QLTDictionary{{"class", "b"}, {"sim", "c"}, {"k", "v"}}},
                               {"d", QLTDictionary{{"class", "e"}, {"sim", "f"}, {"k", "v"}}}};
  EXPECT_EQ(parse("h\r\na,b,c,k=v\r\n\r\n \t\r\nd,e,f,k=v\r\n"), expected);
  EXPECT_EQ(parse("h\ra,b,c,k=v\rd,e,f,k=v"), expected);
  EXPECT_EQ(parse("h\va,b,c,k=v\fd,e,f,k=v"), expected);
}

TEST_F(QLTestSiteManagerTest, NeverInterpretsTheFirstLine) {
  EXPECT_EQ(parse("dut,QLTDiags,0,bsdPath=/dev/x\n"), QLTDictionary());
  EXPECT_EQ(parse("\nname,class,sim,a=b\n")->begin()->first, "name");
}

TEST_F(QLTestSiteManagerTest, IgnoresFieldsAfterTheFourthAndPartsAfterASecondEqualsSign) {
  EXPECT_EQ(parse("h\na,b,c,k=v=w,further,fields\n"),
            (QLTDictionary{{"a", QLTDictionary{{"class", "b"}, {"sim", "c"}, {"k", "v"}}}}));
}

TEST_F(QLTestSiteManagerTest, AttributesOverrideClassAndSim) {
  EXPECT_EQ(parse("h\na,b,c,class=C;sim=1\n"),
            (QLTDictionary{{"a", QLTDictionary{{"class", "C"}, {"sim", "1"}}}}));
  EXPECT_EQ(parse("h\na,b,c,k=\n"),
            (QLTDictionary{{"a", QLTDictionary{{"class", "b"}, {"sim", "c"}, {"k", ""}}}}));
}

TEST_F(QLTestSiteManagerTest, ALaterLineReplacesAnEarlierOneOfTheSameName) {
  EXPECT_EQ(parse("h\na,b,c,k=v\na,d,e,l=w\n"),
            (QLTDictionary{{"a", QLTDictionary{{"class", "d"}, {"sim", "e"}, {"l", "w"}}}}));
}

TEST_F(QLTestSiteManagerTest, NamesAMalformedLineByItsNumber) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {"h\na,b,c,k=v\ndut,QLTDiags\n",
       "T.csv:3: expected the four fields name,class,sim,attributes, found 2: dut,QLTDiags"},
      {"h\r\n\r\na,b,c\r\n",
       "T.csv:3: expected the four fields name,class,sim,attributes, found 3: a,b,c"},
      {"h\na,b,c,\n", "T.csv:2: empty attribute, expected key=value: a,b,c,"},
      {"h\na,b,c,k=v;\n", "T.csv:2: empty attribute, expected key=value: a,b,c,k=v;"},
      {"h\na,b,c,k=v;;l=w\n", "T.csv:2: empty attribute, expected key=value: a,b,c,k=v;;l=w"},
      {"h\na,b,c,/dev/x\n", "T.csv:2: attribute \"/dev/x\" has no \"=\": a,b,c,/dev/x"}};
  for (const auto& [content, complaint] : cases) {
    QLTError error;
    EXPECT_EQ(parse(content, &error), std::nullopt);
    EXPECT_EQ(error.code(), -40002);
    EXPECT_EQ(error.domain(), QLTFrameworkErrorDomain);
    EXPECT_EQ(error.description(), complaint);
    EXPECT_EQ(parse(content), std::nullopt);
  }
}

TEST_F(QLTestSiteManagerTest, LeavesTheInstrumentsAloneWhenALineIsMalformed) {
  manager().config().set("Instruments", QLTDictionary{{"x", 1}});
  setTesterConfig("h\nbroken\n");
  QLTError error;
  EXPECT_FALSE(manager().loadTesterConfig(&error));
  EXPECT_THAT(*error.description(), StartsWith(std::string(kTesterConfig) + ":2: "));
  EXPECT_EQ(*manager().config().find("Instruments"), QLTValue(QLTDictionary{{"x", 1}}));
}

TEST_F(QLTestSiteManagerTest, ReplacesTheInstrumentsWhole) {
  manager().config().set("Instruments", QLTDictionary{{"x", 1}});
  setTesterConfig(kHeader);
  QLTError error("earlier", 1, {});
  EXPECT_TRUE(manager().loadTesterConfig(&error));
  EXPECT_EQ(error.domain(), "earlier");
  EXPECT_EQ(*manager().config().find("Instruments"), QLTValue(QLTDictionary{}));
}

TEST_F(QLTestSiteManagerTest, TellsThatTheTesterConfigFileIsMissing) {
  QLTError error;
  EXPECT_FALSE(manager().loadTesterConfig(&error));
  EXPECT_EQ(error.domain(), "POSIX");
  EXPECT_EQ(error.code(), ENOENT);
  EXPECT_EQ(error.description(), std::string(kTesterConfig) + ": No such file or directory");
  EXPECT_FALSE(manager().loadTesterConfig());
}

TEST_F(QLTestSiteManagerTest, RefusesATesterConfigFileThatIsNotAscii) {
  setTesterConfig("h\na,b,c,k=v\nb\xc3\xa4r,b,c,k=v\n");
  QLTError error;
  EXPECT_FALSE(manager().loadTesterConfig(&error));
  EXPECT_EQ(error.code(), EILSEQ);
  EXPECT_THAT(*error.description(), StartsWith(std::string(kTesterConfig) + ":3: "));
  setTesterConfig("\xef\xbb\xbfname,class,sim,attributes\n");
  EXPECT_FALSE(manager().loadTesterConfig(&error));
  EXPECT_THAT(*error.description(), StartsWith(std::string(kTesterConfig) + ":1: "));
}

// The whole load.

TEST_F(QLTestSiteManagerTest, LoadsAStation) {
  setTesterConfig(kHeader + "dut,QLTDiags,1,bsdPath=/dev/sim\nmeter,PlugInMeter,0,addr=22\n");
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig(
      key("Sites", dict(key("left", dict(key("Resources", dict(key("console", text("dut")) +
                                                               key("meter", text("meter")))))) +
                        key("right", dict(key("Resources", dict(key("console", text("dut")))))))) +
      key("Flows", dict(key("main", array(testOf("PowerTest"))) + key("audit", array("")))) +
      key("defaultFlow", text("main")));
  QLTError error("earlier", 1, {});
  ASSERT_TRUE(load(files, &error)) << *error.description();
  EXPECT_EQ(error.domain(), "earlier");
  EXPECT_THAT(manager().siteNames(), testing::UnorderedElementsAre("left", "right"));
  const auto left = manager().suiteForSite("left");
  const auto right = manager().suiteForSite("right");
  EXPECT_EQ(left->className(), "HookedSuite");
  EXPECT_EQ(left->siteName(), "left");
  EXPECT_NE(left->resource<QLTDiags>("console"), nullptr);
  EXPECT_EQ(left->resource<QLTDiags>("console"), right->resource<QLTDiags>("console"));
  EXPECT_EQ(left->resource<QLTObject>("meter")->className(), "PlugInMeter");
  EXPECT_EQ(right->resource<QLTObject>("meter"), nullptr);
  EXPECT_NE(left->resource<QLTObject>("sleeper"), nullptr);
  EXPECT_EQ(manager().nextAvailableSite(), std::nullopt);
  EXPECT_EQ(left->flowForName("main")->size(), 1U);
}

TEST_F(QLTestSiteManagerTest, GoesThroughThePrincipalClassesOnLoad) {
  setTesterConfig(kHeader);
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig(key("stationAttributes", dict(key("line", text("4")))));
  const QLTClass* cls = files.open()->principalClass();
  QLTError error;
  EXPECT_TRUE(cls->operations().onLoad(*cls, {{"station", "st1"}}, &error));
  EXPECT_EQ(manager().stationAttributes().find("line")->text(), "4");
  EXPECT_EQ(*manager().config().find("customized with"),
            QLTValue(QLTDictionary{{"station", "st1"}}));
}

TEST_F(QLTestSiteManagerTest, UsesAnOnLoadOfThePluginsOwn) {
  const PluginBundle files(STATION_PLUGIN, "OwnLoadSuite");
  const QLTClass* cls = files.open()->principalClass();
  QLTError error;
  EXPECT_FALSE(cls->operations().onLoad(*cls, {}, &error));
  EXPECT_EQ(error.description(), "own onLoad of OwnLoadSuite");
  EXPECT_FALSE(cls->operations().onUnload(&error));
  EXPECT_EQ(error.description(), "own onUnload");
}

TEST_F(QLTestSiteManagerTest, FailsWithoutAReadableConfiguration) {
  setTesterConfig(kHeader);
  const PluginBundle files(STATION_PLUGIN);
  const std::string path =
      (std::filesystem::canonical(files.path()) / "Contents/Resources/TestConfig.plist").string();
  QLTError error("earlier", 1, {});
  EXPECT_FALSE(load(files, &error));
  EXPECT_EQ(error.domain(), QLTFrameworkErrorDomain);
  EXPECT_EQ(error.code(), -40000);
  EXPECT_EQ(error.description(), std::nullopt);
  EXPECT_THAT(log_.lines(), ElementsAre(StartsWith("opening the plug-in "),
                                        "************Error reading plist: " + path + ", format 0",
                                        path + ": No such file or directory",
                                        "error number is: (null) (-40000)\n"));
  log_.clear();
  files.setConfig("<key>a</key>");
  EXPECT_FALSE(load(files));
  EXPECT_THAT(log_.lines(), Contains(path + ":2:1: a: the key has no value"));
}

TEST_F(QLTestSiteManagerTest, GivesUpTheEarlierConfigurationWithAnUnreadableOne) {
  setTesterConfig(kHeader);
  const PluginBundle good(STATION_PLUGIN);
  good.setConfig("");
  const PluginBundle bad(STATION_PLUGIN);
  EXPECT_TRUE(load(good));
  EXPECT_FALSE(load(bad));
  EXPECT_TRUE(manager().config().empty());
}

TEST_F(QLTestSiteManagerTest, RecordsTheVersionsAndTheStationAttributes) {
  setTesterConfig(kHeader);
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig(key("stationAttributes", dict(key("line", text("4")))) + kLeftSite + kEmptyFlows);
  ASSERT_TRUE(load(files));
  const QLTDictionary expected{{kVeltroQLTAttributeBundleVersion, "7.1"},
                               {kVeltroQLTAttributeFrameworkVersion, QUILLON_VERSION},
                               {"line", "4"}};
  EXPECT_EQ(manager().stationAttributes(), expected);
  EXPECT_EQ(manager().suiteForSite("left")->siteAttributes(), expected);
  EXPECT_EQ(kVeltroQLTAttributeBundleVersion, "VeltroQLTBundleVersion");
  EXPECT_EQ(kVeltroQLTAttributeFrameworkVersion, "VeltroQLTFrameworkVersion");
  EXPECT_EQ(kVeltroQLTMethodPrefix, "VeltroQLTMethod");
}

TEST_F(QLTestSiteManagerTest, StationAttributesOverrideTheVersions) {
  setTesterConfig(kHeader);
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig(key("stationAttributes", dict(key("VeltroQLTBundleVersion", text("mine")))));
  ASSERT_TRUE(load(files));
  EXPECT_EQ(manager().stationAttributes().find("VeltroQLTBundleVersion")->text(), "mine");
}

TEST_F(QLTestSiteManagerTest, CustomisesBeforeTheTesterConfigReplacesTheInstruments) {
  setTesterConfig(kHeader + "dut,QLTDiags,1,bsdPath=/dev/sim\n");
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig(key("Instruments", dict(key("ignored", dict("")))) + kEmptyFlows);
  const QLTDictionary info{{"sites", QLTDictionary{{"made by the hook", QLTDictionary{}}}}};
  ASSERT_TRUE(load(files, nullptr, info));
  EXPECT_EQ(*manager().config().find("customized with"), QLTValue(info));
  const QLTDictionary* instruments = manager().config().find("Instruments")->dictionary();
  EXPECT_EQ(instruments->size(), 1U);
  EXPECT_TRUE(instruments->contains("dut"));
  EXPECT_THAT(manager().siteNames(), ElementsAre("made by the hook"));
}

TEST_F(QLTestSiteManagerTest, NeedsTheTesterConfigFile) {
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig("");
  QLTError error;
  EXPECT_FALSE(load(files, &error));
  EXPECT_EQ(error.domain(), "POSIX");
  EXPECT_EQ(error.code(), ENOENT);
  EXPECT_EQ(error.description(), "load instruments failed. Tests can not be run. Details: " +
                                     std::string(kTesterConfig) + ": No such file or directory");
  EXPECT_EQ(error.underlyingError().description(),
            std::string(kTesterConfig) + ": No such file or directory");
}

TEST_F(QLTestSiteManagerTest, FailsOnAMalformedTesterConfigLine) {
  setTesterConfig(kHeader + "dut\n");
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig("");
  EXPECT_EQ(
      failureOf(files, -40002),
      "load instruments failed. Tests can not be run. Details: " + std::string(kTesterConfig) +
          ":2: expected the four fields name,class,sim,attributes, found 1: dut");
}

TEST_F(QLTestSiteManagerTest, StartsTheRunCounterAnewWithEveryLoad) {
  setTesterConfig(kHeader);
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig("");
  manager().nextRunIndex();
  ASSERT_TRUE(load(files));
  EXPECT_EQ(manager().nextRunIndex(), 1U);
  EXPECT_EQ(manager().nextRunIndex(), 2U);
  EXPECT_EQ(manager().nextRunIndex(), 3U);
  ASSERT_TRUE(load(files));
  EXPECT_EQ(manager().nextRunIndex(), 1U);
}

TEST_F(QLTestSiteManagerTest, AFailedLoadKeepsTheRunCounter) {
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig("");
  manager().nextRunIndex();
  EXPECT_FALSE(load(files));
  EXPECT_EQ(manager().nextRunIndex(), 2U);
}

TEST_F(QLTestSiteManagerTest, ASecondLoadAddsToTheFirst) {
  setTesterConfig(kHeader);
  const PluginBundle first(STATION_PLUGIN);
  first.setConfig(kLeftSite + kEmptyFlows);
  const PluginBundle second(STATION_PLUGIN);
  second.setConfig(key("Sites", dict(key("right", dict("")))) + kEmptyFlows);
  ASSERT_TRUE(load(first));
  ASSERT_TRUE(load(second));
  EXPECT_THAT(manager().siteNames(), testing::UnorderedElementsAre("left", "right"));
}

TEST_F(QLTestSiteManagerTest, FailsWithADefaultFlowThatWasEnteredAsNull) {
  manager().config() = {{"Sites", QLTDictionary{{"left", QLTDictionary()}}},
                        {"defaultFlow", "main"}};
  ASSERT_TRUE(manager().loadSites(QLTClass::of<HollowSuite>()));
  QLTError error;
  EXPECT_FALSE(manager().loadFlows(QLTBundle::mainBundle(), &error));
  EXPECT_EQ(error.code(), -40001);
  EXPECT_THAT(error.description().value_or(""),
              HasSubstr("there is no flow \"main\"; the flows are: (none)"));
}

TEST_F(QLTestSiteManagerTest, EntersNoSuiteThatIsNull) {
  const auto suite = std::make_shared<QLTestSuite>("left");
  const char* const nameless = nullptr;
  manager().setSuite(suite, "left");
  manager().setSuite(nullptr, "left");
  manager().setSuite(nullptr, "right");
  manager().setSuite(suite, nameless);
  EXPECT_EQ(manager().suiteForSite("left"), suite);
  EXPECT_EQ(manager().suiteForSite(nameless), nullptr);
  EXPECT_THAT(manager().siteNames(), ElementsAre("left"));
  manager().config() = {{"Flows", QLTDictionary{{"main", QLTArray()}}}, {"defaultFlow", "main"}};
  EXPECT_TRUE(manager().loadFlows(QLTBundle::mainBundle()));
}

}  // namespace
