#include <QLTDavDPEther.h>
#include <QLTDiags.h>
#include <QLTPropertyList.h>
#include <QLTSimSerial.h>
#include <QLTSimSocket.h>
#include <QLTestMethod.h>
#include <QLTestSiteManager.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <thread>

#include "support/ConsoleLog.h"
#include "support/Plist.h"
#include "support/PluginBundle.h"

using namespace test::plist;
using test::PluginBundle;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

constexpr const char* kTesterConfig = "/vault/Quillon/TesterConfig_oc.csv";

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

/// A suite that enters a null flow under the name of the default flow.
class HollowSuite : public QLTestSuite {
 public:
  explicit HollowSuite(std::string siteName) : QLTestSuite(std::move(siteName)) {
    setFlow(nullptr, "main");
  }
};

class OwnDelay : public QLTestMethod {
 public:
  using QLTestMethod::QLTestMethod;
};

QLT_CLASS(GreedySuite);
QLT_CLASS(GreedyTest);
QLT_CLASS(HollowSuite);
/// The name is one of the framework's as well.
const QLTClass* const ownDelay =
    QLTClass::registerClass("QLTestMethodDelay", quillon::internal::operationsOf<OwnDelay>());

/// Every test has the process and the folder /vault to itself: the tests run one a process, in a
/// private mount namespace.
class QLTestSiteManagerTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(std::filesystem::is_directory("/vault/Quillon") &&
                std::filesystem::is_empty("/vault/Quillon"))
        << "run this test with station/quillon-with-vault";
  }
  void TearDown() override {
    QLTestSiteManager::releaseSharedInstance();
    std::filesystem::remove(kTesterConfig);
  }

  static void setTesterConfig(const std::string& text) {
    std::ofstream(kTesterConfig, std::ios::binary) << text;
  }

  /// Loads a bundle through the principal class, as a station application does.
  bool load(const PluginBundle& files, QLTError* error = nullptr, const QLTDictionary& info = {}) {
    const QLTBundle* bundle = files.open(error);
    if (bundle == nullptr) return false;
    return manager().loadConfig(*bundle, info, error);
  }
  /// What a load that must fail says.
  std::string failureOf(const PluginBundle& files, std::int64_t code,
                        const QLTDictionary& info = {}) {
    QLTError error;
    EXPECT_FALSE(load(files, &error, info));
    EXPECT_EQ(error.code(), code) << error.description().value_or("(none)");
    EXPECT_FALSE(load(files, nullptr, info));
    return error.description().value_or("(none)");
  }
  static QLTestSiteManager& manager() { return *QLTestSiteManager::sharedInstance(); }

  test::ConsoleLog log_;
};

const std::string kHeader = "name,class,sim,attributes\n";

// The shared manager and the run counter.

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

TEST_F(QLTestSiteManagerTest, TheFirstInitMakesTheSharedOne) {
  const auto made = QLTestSiteManager::init();
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(QLTestSiteManager::sharedInstance(), made);
}

TEST_F(QLTestSiteManagerTest, ADestroyedManagerEmptiesTheSharedSlotWhicheverItIs) {
  auto earlier = QLTestSiteManager::sharedInstance();
  EXPECT_EQ(QLTestSiteManager::init(), nullptr);
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
  EXPECT_THAT(log_.lines(), ElementsAre("************Error reading plist: " + path + ", format 0",
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

// Instruments.

TEST_F(QLTestSiteManagerTest, SkipsAnInstrumentThatFailsToComeUp) {
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

TEST_F(QLTestSiteManagerTest, AsksThePluginForInstrumentsThatItDoesNotKnow) {
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

TEST_F(QLTestSiteManagerTest, FailsOnAnInstrumentThatNobodyKnows) {
  setTesterConfig(kHeader + "meter,Unheard,0,a=b\n");
  const std::string expected =
      "load instruments failed. Tests can not be run. Details: unknown instrument type Unheard";
  for (const char* principal : {"HookedSuite", "PlainSuite", "NoSuchClass"}) {
    const PluginBundle files(STATION_PLUGIN, principal);
    files.setConfig("");
    EXPECT_EQ(failureOf(files, -70000), expected);
  }
}

TEST_F(QLTestSiteManagerTest, PassesThePluginsOwnErrorOn) {
  setTesterConfig(kHeader + "meter,FailingWithError,0,a=b\n");
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig("");
  EXPECT_EQ(failureOf(files, 7),
            "load instruments failed. Tests can not be run. Details: meter is broken");
}

TEST_F(QLTestSiteManagerTest, DoesNotTakeAnEarlierInstrumentsErrorForThePlugins) {
  setTesterConfig(kHeader + "a dut,QLTDiags,0,bsdPath=/no/such/port\nmeter,Unheard,0,a=b\n");
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig("");
  EXPECT_EQ(
      failureOf(files, -70000),
      "load instruments failed. Tests can not be run. Details: unknown instrument type Unheard");
}

TEST_F(QLTestSiteManagerTest, EndsTheLoadWhenAHookThrows) {
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

TEST_F(QLTestSiteManagerTest, OutlivesAPluginThatChangesTheConfigurationWhileItIsRead) {
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

TEST_F(QLTestSiteManagerTest, LoadsWithoutSitesAndWithoutADefaultFlow) {
  setTesterConfig(kHeader);
  const PluginBundle files(STATION_PLUGIN, "NoSuchClass");
  files.setConfig("");
  EXPECT_TRUE(load(files));
  EXPECT_THAT(manager().siteNames(), IsEmpty());
}

TEST_F(QLTestSiteManagerTest, LeavesDisabledSitesOut) {
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
  EXPECT_THAT(log_.lines(), Contains("site a is disabled. Skipping load..."));
  EXPECT_THAT(log_.lines(), Contains("site b is disabled. Skipping load..."));
}

TEST_F(QLTestSiteManagerTest, DisablesASiteWhoseResourceIsMissing) {
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

TEST_F(QLTestSiteManagerTest, LooksNoFurtherThanASitesFirstMissingResource) {
  manager().config().set(
      "Sites",
      QLTDictionary{
          {"left", QLTDictionary{{"Resources", QLTDictionary{{"a", "dut"}, {"b", "meter"}}}}}});
  EXPECT_TRUE(manager().loadSites(QLTClass::of<GreedySuite>()));
  EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr("for site left does not exist!")));
}

TEST_F(QLTestSiteManagerTest, NeedsAPrincipalClassForTheFirstSite) {
  setTesterConfig(kHeader);
  const PluginBundle unknown(STATION_PLUGIN, "NoSuchClass");
  unknown.setConfig(kLeftSite + kEmptyFlows);
  EXPECT_THAT(
      failureOf(unknown, -40006),
      StartsWith(
          "load site failed. Tests can not be run. Details: the bundle's Info.plist names no "
          "principal class of the bundle"));
  const PluginBundle method(STATION_PLUGIN, "PowerTest");
  method.setConfig(kLeftSite + kEmptyFlows);
  EXPECT_EQ(failureOf(method, -40006),
            "load site failed. Tests can not be run. Details: the bundle's principal class "
            "PowerTest is not a "
            "suite class");
  const PluginBundle throwing(STATION_PLUGIN, "ThrowingSuite");
  throwing.setConfig(kLeftSite + kEmptyFlows);
  EXPECT_THAT(failureOf(throwing, -40006),
              EndsWith("class ThrowingSuite: its constructor threw: no site today"));
}

TEST_F(QLTestSiteManagerTest, NamesThePlaceOfAWrongTypeInTheConfiguration) {
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

TEST_F(QLTestSiteManagerTest, BuildsFlowsOfTheirOwnForEverySite) {
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

TEST_F(QLTestSiteManagerTest, FindsTheFrameworksOwnMethods) {
  setTesterConfig(kHeader);
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig(flowOf(testOf("QLTestMethodDelay")));
  ASSERT_TRUE(load(files));
  EXPECT_EQ(manager().suiteForSite("left")->flowForName("main")->front()->className(),
            "QLTestMethodDelay");
}

TEST_F(QLTestSiteManagerTest, PrefersThePluginsMethodsToTheFrameworks) {
  ASSERT_NE(ownDelay, nullptr);
  const auto suite = std::make_shared<QLTestSuite>("left");
  manager().setSuite(suite, "left");
  manager().config() = {
      {"Flows", QLTDictionary{{"main", QLTArray{QLTDictionary{{"class", "QLTestMethodDelay"}}}}}},
      {"defaultFlow", "main"}};
  ASSERT_TRUE(manager().loadFlows(QLTBundle::mainBundle()));
  EXPECT_NE(std::dynamic_pointer_cast<OwnDelay>(suite->flowForName("main")->front()), nullptr);
}

TEST_F(QLTestSiteManagerTest, KeepsAMethodsDefaultsWhereTheConfigurationIsSilent) {
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

TEST_F(QLTestSiteManagerTest, TakesAMethodsSettings) {
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

TEST_F(QLTestSiteManagerTest, TakesSubTests) {
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

TEST_F(QLTestSiteManagerTest, FailsOnAClassThatDoesNotExist) {
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

TEST_F(QLTestSiteManagerTest, BuildsNothingAfterAClassThatDoesNotExist) {
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

TEST_F(QLTestSiteManagerTest, FailsOnAMethodWhoseConstructorThrows) {
  setTesterConfig(kHeader);
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig(flowOf(testOf("ThrowingTest")));
  EXPECT_THAT(failureOf(files, -40006),
              EndsWith("class ThrowingTest: its constructor threw: cannot be made"));
}

TEST_F(QLTestSiteManagerTest, NamesThePlaceOfAMalformedTest) {
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

TEST_F(QLTestSiteManagerTest, NamesThePlaceOfMalformedFlows) {
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

TEST_F(QLTestSiteManagerTest, FailsWithoutTheDefaultFlow) {
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
