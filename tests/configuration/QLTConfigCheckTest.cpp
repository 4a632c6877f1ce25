#include <QLTConfigCheck.h>
#include <QLTestSiteManager.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>

#include "support/ConsoleLog.h"
#include "support/Plist.h"
#include "support/PluginBundle.h"

using namespace test::plist;
using test::PluginBundle;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using Severity = QLTConfigFinding::Severity;

namespace {

constexpr const char* kTesterConfig = "/vault/Quillon/TesterConfig_oc.csv";
const std::string kHeader = "name,class,sim,attributes\n";
const std::string kConsole = kHeader + "dut,QLTDiags,1,bsdPath=/dev/sim\n";
const std::string kGoodTest = testOf(
    "PowerTest", key("displayName", text("Power")) +
                     subTests(dict(key("name", text("VBUS")) + key("lowLimit", "<real>4.5</real>") +
                                   key("highLimit", "<real>5.5</real>"))));

class QLTConfigCheckTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(std::filesystem::is_directory("/vault/Quillon"))
        << "run this test with station/quillon-with-vault";
  }
  void TearDown() override {
    QLTestSiteManager::releaseSharedInstance();
    std::filesystem::remove(kTesterConfig);
  }

  static void setTesterConfig(const std::string& content) {
    std::ofstream(kTesterConfig, std::ios::binary) << content;
  }

  /// Checks a configuration, and holds the check to loading: it finds an error exactly where
  /// loading fails.
  std::vector<QLTConfigFinding> check(const std::string& config,
                                      const std::string& principal = "HookedSuite") {
    const PluginBundle files(STATION_PLUGIN, principal);
    if (config != kMissing) files.setConfig(config);
    const QLTBundle* bundle = files.open();
    EXPECT_NE(bundle, nullptr);
    auto findings = QLTConfigCheck::check(*bundle, kTesterConfig);
    bool refuses = false;
    for (const QLTConfigFinding& finding : findings) refuses |= finding.severity == Severity::Error;
    QLTError error;
    EXPECT_EQ(QLTestSiteManager::sharedInstance()->loadConfig(*bundle, {}, &error), !refuses)
        << config << "\nloading: " << error.description().value_or("(none)")
        << "\nfound: " << testing::PrintToString(texts(findings));
    QLTestSiteManager::releaseSharedInstance();
    return findings;
  }

  /// Severity, place within the file, message and advice of each finding, for short.
  static std::vector<std::string> texts(const std::vector<QLTConfigFinding>& findings) {
    std::vector<std::string> result;
    for (const QLTConfigFinding& finding : findings) {
      result.push_back(std::string(finding.severity == Severity::Error ? "E " : "W ") +
                       (finding.key.empty() ? "" : finding.key + ": ") + finding.message +
                       (finding.advice.empty() ? "" : " | " + finding.advice));
    }
    return result;
  }
  std::vector<std::string> findingsOf(const std::string& config,
                                      const std::string& principal = "HookedSuite") {
    return texts(check(config, principal));
  }

  static constexpr const char* kMissing = "(no file)";
  test::ConsoleLog log_;
};

TEST_F(QLTConfigCheckTest, FindsNothingInAGoodConfiguration) {
  setTesterConfig(kConsole);
  EXPECT_THAT(
      findingsOf(
          key("stationAttributes", dict(key("line", text("4")))) +
          key("Sites", dict(key("left", dict(key("Resources", dict(key("c", text("dut")))))))) +
          key("Flows", dict(key("main", array(kGoodTest)))) + key("defaultFlow", text("main"))),
      IsEmpty());
}

TEST_F(QLTConfigCheckTest, NamesFileLineColumnAndKey) {
  setTesterConfig(kConsole);
  const auto findings = check(flowOf(testOf("PowerTest", key("displayName", dict("")))));
  ASSERT_EQ(findings.size(), 1U);
  EXPECT_THAT(findings[0].file, EndsWith("/T.bundle/Contents/Resources/TestConfig.plist"));
  EXPECT_EQ(findings[0].line, 5);
  EXPECT_EQ(findings[0].column, 23);
  EXPECT_EQ(findings[0].key, "Flows/main/0/displayName");
  EXPECT_EQ(findings[0].message, "expected a text");
  EXPECT_EQ(findings[0].text(),
            findings[0].file + ":5:23: Flows/main/0/displayName: expected a text");
}

TEST_F(QLTConfigCheckTest, NamesTheOffsetInABinaryList) {
  setTesterConfig(kConsole);
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig("");
  const QLTBundle* const bundle = files.open();
  ASSERT_NE(bundle, nullptr);
  // The dictionary {Sites: VALUE}, whose value stands at offset 17, and {Sites: VALUE, Sites:
  // VALUE}.
  const auto textFor = [&](const std::string& objects, char tableOffset) {
    std::ofstream(bundle->path() / "Contents/Resources/TestConfig.plist", std::ios::binary)
        << "bplist00" << objects << std::string(6, '\0') << "\1\1" << std::string(7, '\0') << '\3'
        << std::string(15, '\0') << tableOffset;
    const auto findings = QLTConfigCheck::check(*bundle, kTesterConfig);
    if (findings.empty()) return std::string();
    EXPECT_EQ(findings[0].line, 0);
    EXPECT_GT(findings[0].offset, 0);
    EXPECT_EQ(findings[0].text().find(findings[0].file), 0U);
    return findings[0].text().substr(findings[0].file.size());
  };
  EXPECT_EQ(textFor("\xd1\1\2\x55Sites\x09\x08\x0b\x11", 18),
            ":offset 17: Sites: expected a dictionary");
  EXPECT_EQ(textFor("\xd1\1\2\x55Sites\x70\x08\x0b\x11", 18),
            ":offset 17: Sites: unknown kind of object 0x70");
}

TEST_F(QLTConfigCheckTest, FindsAllProblemsAtOnce) {
  setTesterConfig(kHeader + "dut\nmeter,PlugInMeter,0,addr\n");
  EXPECT_THAT(
      findingsOf(key("Sites", dict(key("left", dict(key("disabel", "<true/>"))))) +
                 key("Flows",
                     dict(key("main", array(testOf("PowrTest", key("displayName", text("A"))) +
                                            testOf("PowerTest", key("displayName", text("B")) +
                                                                    key("retest", array(""))))))) +
                 key("defaultFlow", text("mian"))),
      ElementsAre(
          "E expected the four fields name,class,sim,attributes, found 1: dut",
          "E attribute \"addr\" has no \"=\": meter,PlugInMeter,0,addr",
          "W Sites/left/disabel: unknown key; loading ignores it | did you mean \"disable\"?",
          "E Flows/main/0/class: unrecognized test method class PowrTest | did you mean "
          "\"PowerTest\"?",
          "E Flows/main/1/retest: expected a boolean",
          "E defaultFlow: there is no flow \"mian\"; the flows are: main"));
}

TEST_F(QLTConfigCheckTest, TellsThatTheConfigurationIsMissingOrMalformed) {
  setTesterConfig(kHeader);
  EXPECT_THAT(
      findingsOf(kMissing),
      ElementsAre(AllOf(HasSubstr("E cannot be read: "), HasSubstr("No such file or directory"),
                        HasSubstr("every plug-in needs the resource"))));
  const auto findings = check("<key>Sites</key><real>4,5</real>");
  EXPECT_THAT(texts(findings), ElementsAre("E Sites: not a number: '4,5'"));
  EXPECT_EQ(findings[0].line, 2);
  EXPECT_EQ(findings[0].column, 17);
}

TEST_F(QLTConfigCheckTest, WarnsOfUnknownKeysEverywhere) {
  setTesterConfig(kConsole);
  EXPECT_THAT(
      findingsOf(
          key("Flow", dict("")) + key("elsewhere", text("x")) +
          key("Sites", dict(key("left", dict(key("resources", dict("")))))) +
          key("Flows",
              dict(key("main",
                       array(testOf("PowerTest",
                                    key("displayName", text("A")) + key("stopOnFale", "<true/>") +
                                        subTests(dict(key("name", text("n")) +
                                                      key("lowlimit", "<real>1</real>")))))))) +
          key("defaultFlow", text("main"))),
      ElementsAre(
          "W Flow: unknown key; loading ignores it | did you mean \"Flows\"?",
          "W elsewhere: unknown key; loading ignores it | the keys are: stationAttributes, "
          "Instruments, "
          "Sites, Flows, defaultFlow",
          "W Sites/left/resources: unknown key; loading ignores it | did you mean \"Resources\"?",
          "W Flows/main/0/stopOnFale: unknown key; loading ignores it | did you mean "
          "\"stopOnFail\"?",
          "W Flows/main/0/subTestInfos/0/lowlimit: unknown key; loading ignores it | did you mean "
          "\"lowLimit\"?"));
}

TEST_F(QLTConfigCheckTest, WarnsOfLimitsThatAreNotMeantSo) {
  setTesterConfig(kConsole);
  const auto limits = [&](const std::string& entries) {
    return findingsOf(
        flowOf(testOf("PowerTest", key("displayName", text("A")) +
                                       subTests(dict(key("name", text("n")) + entries)))));
  };
  const std::string place = "Flows/main/0/subTestInfos/0/";
  EXPECT_THAT(
      limits(key("highLimit", "<real>5</real>")),
      ElementsAre("W " + place +
                  "highLimit: without lowLimit no limits are set; only the value 0 passes | "
                  "give a lowLimit, too"));
  EXPECT_THAT(
      limits(key("lowLimit", "<real>-5</real>")),
      ElementsAre("W " + place +
                  "lowLimit: without highLimit the upper limit is 0 | give a highLimit, too"));
  EXPECT_THAT(
      limits(key("lowLimit", "<real>5</real>") + key("highLimit", text("4.5"))),
      ElementsAre("W " + place +
                  "lowLimit: the low limit 5.000000 is above the high limit 4.500000; no value "
                  "passes"));
  EXPECT_THAT(
      limits(key("lowLimit", "<real>4</real>") + key("highLimit", "<real>5</real>") +
             key("expected", text("x"))),
      ElementsAre("W " + place + "expected: the limits take the place of the expected text"));
  EXPECT_THAT(limits(key("lowLimit", text("4,5")) + key("highLimit", text("5 V"))),
              ElementsAre("E " + place + "lowLimit: expected a number, found '4,5'",
                          "E " + place + "highLimit: expected a number, found '5 V'"));
}

TEST_F(QLTConfigCheckTest, WarnsOfTextsThatReadAsFalse) {
  setTesterConfig(kConsole);
  EXPECT_THAT(
      findingsOf(key("Sites", dict(key("left", dict(key("disable", text("on")))))) +
                 key("Flows", dict(key("main", array(testOf("PowerTest",
                                                            key("displayName", text("A")) +
                                                                key("retest", text("enabled")) +
                                                                key("stopOnFail", text("NO"))))))) +
                 key("defaultFlow", text("main"))),
      ElementsAre(
          "W Sites/left/disable: the text 'on' reads as false | write <true/> or <false/>",
          "W Flows/main/0/retest: the text 'enabled' reads as false | write <true/> or <false/>"));
}

TEST_F(QLTConfigCheckTest, ChecksTheTesterConfigFile) {
  const std::string config = flowOf(kGoodTest);
  std::filesystem::remove(kTesterConfig);
  EXPECT_THAT(findingsOf(config),
              ElementsAre(AllOf(HasSubstr("E cannot be read"), HasSubstr("No such file"))));
  setTesterConfig("\xef\xbb\xbf" + kHeader + "d\xc3\xa4t,QLTDiags,0,bsdPath=/dev/x\n");
  EXPECT_THAT(findingsOf(config),
              ElementsAre("E begins with a byte-order mark | save the file as plain ASCII text, "
                          "without byte-order mark",
                          "E byte 0xc3 is not 7-bit ASCII | use plain ASCII characters only"));
  setTesterConfig("dut,QLTDiags,0,bsdPath=/dev/x\n");
  EXPECT_THAT(findingsOf(config),
              ElementsAre("W the first line is never read, but looks like an instrument | put a "
                          "header line above it: name,class,sim,attributes"));
  setTesterConfig("\n" + kHeader + "dut,QLTDiags,1,bsdPath=/dev/x\n");
  EXPECT_THAT(findingsOf(config), testing::Contains("E attribute \"attributes\" has no \"=\": "
                                                    "name,class,sim,attributes"));
  setTesterConfig("\ndut,QLTDiags,1,bsdPath=/dev/x\n");
  EXPECT_THAT(findingsOf(config),
              ElementsAre("W the first line is empty, and counts as header | a header below it is "
                          "read as an instrument; remove the empty line"));
}

TEST_F(QLTConfigCheckTest, ChecksInstrumentLines) {
  const auto line = [&](const std::string& content) {
    setTesterConfig(kHeader + content + "\n");
    auto findings = check(flowOf(kGoodTest));
    for (const auto& finding : findings) {
      EXPECT_EQ(finding.file, kTesterConfig);
      EXPECT_GE(finding.line, 2);
    }
    return texts(findings);
  };
  EXPECT_THAT(
      line("a,QLTDiags,yes,bsdPath=/dev/x"),
      ElementsAre(
          "W sim is \"yes\", which means real hardware | write 1 for simulated, 0 for real"));
  EXPECT_THAT(
      line("a,QLTDiags,01,bsdPath=/dev/x"),
      ElementsAre("W sim is \"01\", which means simulated | write 1 for simulated, 0 for real"));
  EXPECT_THAT(
      line("a,QLTDiags,1,bsdPath=/dev/x,addr=2"),
      ElementsAre("W the fields after the fourth are ignored | separate attributes by \";\""));
  EXPECT_THAT(
      line("a,QLTDiags,1,bsdPath=/dev/x=y"),
      ElementsAre("W of \"bsdPath=/dev/x=y\" everything after the second \"=\" is dropped"));
  EXPECT_THAT(line("a,QLTDiags,1,bsdPath =/dev/x; k= v"),
              ElementsAre("W the blanks in \"bsdPath =/dev/x\" become part of key or value | "
                          "remove the blanks around "
                          "\"=\" and \";\"",
                          "W the blanks in \" k= v\" become part of key or value | remove the "
                          "blanks around \"=\" and "
                          "\";\"",
                          "W no bsdPath attribute config for QLTDiags instrument; loading skips it "
                          "| add bsdPath=..."));
  EXPECT_THAT(line(",QLTDiags,1,bsdPath=/dev/x"), ElementsAre("W the instrument has no name"));
  EXPECT_THAT(line("a,QLTDiags,1,bsdPath=/dev/x\na,QLTDiags,1,bsdPath=/dev/y"),
              ElementsAre("W takes the place of line 2, which has the same name \"a\""));
}

TEST_F(QLTConfigCheckTest, ChecksInstrumentClasses) {
  setTesterConfig(kHeader + "a,QLTDiag,1,bsdPath=/dev/x\n");
  EXPECT_THAT(
      findingsOf(flowOf(kGoodTest), "PlainSuite"),
      ElementsAre(
          "E unknown instrument type QLTDiag; the plug-in makes no instruments | did you mean "
          "\"QLTDiags\"?"));
  setTesterConfig(kHeader + "a,PlugInMeter,1,x=y\n");
  EXPECT_THAT(findingsOf(flowOf(kGoodTest)), IsEmpty());
  EXPECT_THAT(
      findingsOf(flowOf(kGoodTest), "PlainSuite"),
      ElementsAre("E unknown instrument type PlugInMeter; the plug-in makes no instruments"));
}

TEST_F(QLTConfigCheckTest, HoldsAPluginsInstrumentsToTheirDescriptions) {
  const auto findings = [&](const std::string& line) {
    setTesterConfig(kHeader + "a," + line + "\n");
    return findingsOf(flowOf(kGoodTest), "DescribedSuite");
  };
  EXPECT_THAT(findings("LanMeter,0,address=10.0.0.5:5025;timeOut=0.5"), IsEmpty());
  EXPECT_THAT(
      findings("LanMeter,0,timeOut=2s"),
      ElementsAre("E no address attribute config for LanMeter instrument | add "
                  "address=host:port, such as 10.0.0.5:5025 or [::1]:5025: where it listens",
                  "E timeOut \"2s\" of LanMeter is not a number of seconds, 0.1 to 60 | longest "
                  "wait"));
  EXPECT_THAT(findings("LanMeter,0,address=10.0.0.5:5025;timeout=1"),
              ElementsAre("W LanMeter has no attribute timeout | did you mean \"timeOut\"?"));
  EXPECT_THAT(findings("LanMetre,0,address=10.0.0.5:5025"),
              ElementsAre("E unknown instrument type LanMetre; there are LanMeter, QLTDavDPEther, "
                          "QLTDiags, QLTDavDPSerial | did you mean \"LanMeter\"?"));
  // Who describes some describes all.
  EXPECT_THAT(findings("QLTDavDPEthernet,0,ip=10.0.0.5"),
              ElementsAre("E unknown instrument type QLTDavDPEthernet; there are QLTDavDPEther, "
                          "QLTDavDPSerial, LanMeter, QLTDiags | did you mean \"QLTDavDPEther\"?"));
  EXPECT_THAT(findings("Toaster,0,colour=red"),
              ElementsAre(StartsWith("E unknown instrument type Toaster; there are ")));
}

TEST_F(QLTConfigCheckTest, TellsWhereTheDescriptionsAndWhichAttributeNothingReads) {
  setTesterConfig(kHeader + "\na,LanMeter,0,address=10.0.0.5:5025;timeout=1\n");
  const PluginBundle files(STATION_PLUGIN, "DescribedSuite");
  files.setConfig(flowOf(kGoodTest));
  const auto findings = QLTConfigCheck::check(*files.open(), kTesterConfig);
  ASSERT_EQ(findings.size(), 1U);
  EXPECT_EQ(findings[0].file, kTesterConfig);
  EXPECT_EQ(findings[0].line, 3);
  EXPECT_EQ(findings[0].unknownKey, "timeout");
}

TEST_F(QLTConfigCheckTest, ADescriptionThatThrowsIsAFaultOfThePlugin) {
  const auto isTold =
      AllOf(StartsWith("W "),
            HasSubstr("class ThrowingDescriptionSuite: instrumentClasses threw: no idea"),
            EndsWith("a fault of the plug-in"));
  setTesterConfig(kHeader + "a,Toaster,0,x=y\n");
  EXPECT_THAT(findingsOf(flowOf(kGoodTest), "ThrowingDescriptionSuite"), ElementsAre(isTold));
  // Where nothing is described, the plug-in may make anything.
  setTesterConfig(kHeader + "a,QLTDiag,0,x=y\n");
  EXPECT_THAT(findingsOf(flowOf(kGoodTest), "ThrowingDescriptionSuite"),
              ElementsAre(isTold,
                          "W the framework has no instrument QLTDiag; the plug-in is asked for it "
                          "| did you mean \"QLTDiags\"?"));
}

TEST_F(QLTConfigCheckTest, HandsOutWhatItRead) {
  setTesterConfig(kConsole);
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig(key("stationAttributes", dict(key("line", text("4")))) + flowOf(kGoodTest));
  QLTStationPlan plan;
  EXPECT_THAT(QLTConfigCheck::check(*files.open(), kTesterConfig, {}, &plan), IsEmpty());
  EXPECT_EQ(plan.stationAttributes, (QLTDictionary{{"line", "4"}}));
  EXPECT_TRUE(plan.instruments.contains("dut"));
  ASSERT_EQ(plan.flows.size(), 1U);
  EXPECT_EQ(plan.flows[0].tests[0].displayName, "Power");
  EXPECT_EQ(plan.flows[0].tests[0].subTests.at(0)->name(), "VBUS");
}

TEST_F(QLTConfigCheckTest, OfLinesWithOneNameOnlyTheLastCounts) {
  const std::string config =
      key("Sites", dict(key("left", dict(key("Resources", dict(key("c", text("dut")))))))) +
      key("Flows", dict(key("main", array(kGoodTest)))) + key("defaultFlow", text("main"));
  const std::string replaced = "W takes the place of line 2, which has the same name \"dut\"";
  setTesterConfig(kHeader + "dut,NoSuchClass,1,a=b\ndut,QLTDiags,1,bsdPath=/dev/x\n");
  EXPECT_THAT(findingsOf(config, "PlainSuite"), ElementsAre(replaced));
  setTesterConfig(kHeader + "dut,QLTDiags,1,bsdPath=/dev/x\ndut,NoSuchClass,1,a=b\n");
  EXPECT_THAT(findingsOf(config, "PlainSuite"),
              ElementsAre(replaced,
                          "E unknown instrument type NoSuchClass; the plug-in makes no "
                          "instruments"));
  // What comes below is seen, too.
  setTesterConfig(kHeader + "dut,QLTDiags,1,path=/dev/x\ndut,PlugInMeter,1,a=b\n");
  EXPECT_THAT(findingsOf(flowOf(testOf("Nothing", key("displayName", text("A"))))),
              ElementsAre(replaced, HasSubstr("E Flows/main/0/class: unrecognized test method")));
  EXPECT_THAT(
      findingsOf(
          key("Sites", dict(key("left", dict(key("Resources", dict(key("c", text("dut")))))))) +
          key("Flows", dict(key("main", array(testOf("Nothing", key("displayName", text("A"))))))) +
          key("defaultFlow", text("main"))),
      ElementsAre(replaced, HasSubstr("E Flows/main/0/class: unrecognized test method")));
}

TEST_F(QLTConfigCheckTest, FindsForeignBytesInOnePass) {
  constexpr std::size_t lines = 200000;
  std::string content;
  for (std::size_t i = 0; i < lines; ++i) content += "\xff\r\n";
  setTesterConfig(content);
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig(flowOf(kGoodTest));
  const auto start = std::chrono::steady_clock::now();
  const auto findings = QLTConfigCheck::check(*files.open(), kTesterConfig);
  // A pass for each of them would take minutes.
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
  ASSERT_EQ(findings.size(), lines);
  EXPECT_EQ(findings[0].line, 1);
  EXPECT_EQ(findings.back().line, static_cast<int>(lines));
}

TEST_F(QLTConfigCheckTest, TellsWhichFindingsAreUnknownKeys) {
  setTesterConfig(kConsole);
  std::vector<std::string> keys;
  for (const QLTConfigFinding& finding : check(
           key("a/b", text("x")) + key("Sites", dict(key("left", dict(key("", text("x")))))) +
           key("Flows",
               dict(key("main",
                        array(testOf("PowerTest", key("retest", text("perhaps")) +
                                                      key("tries", "<integer>2</integer>") +
                                                      subTests(dict(key("limit", "<true/>")))))))) +
           key("defaultFlow", text("main")))) {
    if (finding.unknownKey) keys.push_back(finding.key + ": " + *finding.unknownKey);
  }
  EXPECT_THAT(keys, ElementsAre("a/b: a/b", "Sites/left/: ", "Flows/main/0/tries: tries",
                                "Flows/main/0/subTestInfos/0/limit: limit"));
}

TEST_F(QLTConfigCheckTest, WantsATimeLimitAboveZero) {
  setTesterConfig(kConsole);
  const auto with = [&](const std::string& value) {
    return findingsOf(
        flowOf(testOf("PowerTest", key("displayName", text("A")) + key("timeLimit", value))));
  };
  for (const char* const good : {"<integer>30</integer>", "<real>0.5</real>",
                                 "<string> 1.5e1 </string>", "<integer>1000000000</integer>"}) {
    EXPECT_THAT(with(good), IsEmpty()) << good;
  }
  const std::string wrong =
      "E Flows/main/0/timeLimit: expected a number of seconds, above 0 and at most 1000000000";
  EXPECT_THAT(with("<integer>0</integer>"), ElementsAre(wrong + ", found '0'"));
  EXPECT_THAT(with("<real>-2.5</real>"), ElementsAre(wrong + ", found '-2.5'"));
  EXPECT_THAT(with("<integer>1000000001</integer>"), ElementsAre(wrong + ", found '1000000001'"));
  EXPECT_THAT(with(text("30 s")), ElementsAre(wrong + ", found '30 s'"));
  EXPECT_THAT(with(text("1e999")), ElementsAre(wrong + ", found '1e999'"));
  EXPECT_THAT(with(text("nan")), ElementsAre(wrong + ", found 'nan'"));
  EXPECT_THAT(with(text("")), ElementsAre(wrong + ", found ''"));
  EXPECT_THAT(with("<true/>"), ElementsAre(StartsWith(wrong + ", found '")));
  EXPECT_THAT(with(array("")), ElementsAre(wrong));
}

TEST_F(QLTConfigCheckTest, ReadsOptionalAsOtherBooleans) {
  setTesterConfig(kConsole);
  const auto with = [&](const std::string& value) {
    return findingsOf(flowOf(testOf(
        "PowerTest", key("displayName", text("A")) +
                         subTests(dict(key("name", text("VREF")) + key("optional", value))))));
  };
  EXPECT_THAT(with("<true/>"), IsEmpty());
  EXPECT_THAT(with(text("no")), IsEmpty());
  EXPECT_THAT(with(text("perhaps")),
              ElementsAre("W Flows/main/0/subTestInfos/0/optional: the text 'perhaps' reads as "
                          "false | write <true/> or <false/>"));
  EXPECT_THAT(with(dict("")),
              ElementsAre("E Flows/main/0/subTestInfos/0/optional: expected a boolean"));
}

TEST_F(QLTConfigCheckTest, WarnsOfAUnitThatIsNoText) {
  setTesterConfig(kHeader);
  const auto findings = check(
      key("Sites", dict(key("left", dict("")))) + key("defaultFlow", text("main")) +
      key("Flows",
          dict(key("main",
                   array(testOf(
                       "PowerTest",
                       key("displayName", text("Power")) +
                           subTests(dict(key("name", text("VBUS")) + key("unit", text("V"))) +
                                    dict(key("name", text("n")) + key("unit", array(""))))))))));
  EXPECT_THAT(
      texts(findings),
      ElementsAre("W Flows/main/0/subTestInfos/1/unit: expected a text; loading ignores it"));
}

TEST_F(QLTConfigCheckTest, WarnsOfTextsThatShiftTheColumnsOfTheResultLog) {
  setTesterConfig(kHeader);
  const auto subTest = [](const std::string& name, const std::string& more) {
    return dict(key("name", text(name)) + more);
  };
  const auto findings = check(
      key("Sites",
          dict(key("left, upper", dict("")) + key("off, too", dict(key("disable", "<true/>"))))) +
      key("Flows",
          dict(key("main",
                   array(testOf(
                       "PowerTest",
                       key("displayName", text("Power, all")) +
                           subTests(subTest("5 \"V\"", key("expected", text("a\nb"))) +
                                    subTest("n", key("lowLimit", "<real>1</real>") +
                                                     key("highLimit", "<real>2</real>") +
                                                     key("failMessage", text("no, not"))))))))) +
      key("defaultFlow", text("main")));
  const std::string tail =
      ", which shifts the columns of the result log | write it without commas, double quotes and "
      "line ends";
  const std::string subTest0 = "W Flows/main/0/subTestInfos/0/";
  EXPECT_THAT(texts(findings),
              ElementsAre("W Sites/left, upper: holds a comma" + tail,
                          "W Flows/main/0/displayName: holds a comma" + tail,
                          subTest0 + "name: holds a double quote" + tail,
                          subTest0 + "expected: holds a line end" + tail,
                          "W Flows/main/0/subTestInfos/1/failMessage: holds a comma" + tail));
  for (const QLTConfigFinding& finding : findings) EXPECT_GT(finding.line, 0);
}

TEST_F(QLTConfigCheckTest, CutsATextThatIsNoNumberInItsMessage) {
  setTesterConfig(kHeader);
  const auto findings = findingsOf(flowOf(testOf(
      "PowerTest",
      key("displayName", text("A")) +
          subTests(dict(key("name", text("n")) + key("lowLimit", text(std::string(200000, '9'))) +
                        key("highLimit", text("1e999")))))));
  ASSERT_EQ(findings.size(), 2U);
  EXPECT_THAT(findings[0],
              AllOf(HasSubstr("lowLimit: expected a number, found '999"), EndsWith("9...'")));
  EXPECT_LT(findings[0].size(), 400U);
  EXPECT_THAT(findings[1], EndsWith("highLimit: expected a number, found '1e999'"));
}

TEST_F(QLTConfigCheckTest, WarnsOfAnInstrumentThatOnlyThePluginCouldKnow) {
  setTesterConfig(kHeader + "a,QLTDavDPether,1,ip=10.0.0.1\n");
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig(flowOf(kGoodTest));
  EXPECT_THAT(texts(QLTConfigCheck::check(*files.open(), kTesterConfig)),
              ElementsAre("W the framework has no instrument QLTDavDPether; the plug-in is asked "
                          "for it | did you mean "
                          "\"QLTDavDPEther\"?"));
}

TEST_F(QLTConfigCheckTest, WarnsOfSitesThatLoadingLeavesOut) {
  setTesterConfig(kHeader + "dut,QLTDiags,1,bsdPath=/dev/sim\nbare,QLTDiags,1,path=/dev/sim\n");
  const auto siteWith = [](const std::string& instrument) {
    return key("Sites",
               dict(key("left", dict("")) +
                    key("right", dict(key("Resources", dict(key("console", text(instrument)))))))) +
           key("Flows", dict(key("main", array(kGoodTest)))) + key("defaultFlow", text("main"));
  };
  EXPECT_THAT(
      findingsOf(siteWith("dud")),
      testing::Contains(
          "W Sites/right/Resources/console: the tester has no instrument \"dud\"; loading leaves "
          "the site right out | did you mean \"dut\"?"));
  EXPECT_THAT(
      findingsOf(siteWith("bare")),
      testing::Contains(
          "W Sites/right/Resources/console: the instrument \"bare\" is skipped; loading leaves the "
          "site right out | mend its line in /vault/Quillon/TesterConfig_oc.csv"));
}

TEST_F(QLTConfigCheckTest, DoesNotCallFlowsWrongThatLoadingNeverReads) {
  setTesterConfig(kHeader);
  EXPECT_THAT(findingsOf(key("Sites", dict(key("left", dict(key("disable", "<true/>")))))),
              ElementsAre("W Sites: no site is left to test at",
                          "W defaultFlow: missing; it must name one of the flows: (none)"));
  EXPECT_THAT(findingsOf(""), testing::Contains("W Sites: missing; there is no site to test at"));
}

TEST_F(QLTConfigCheckTest, WarnsOfWhatTheResultLogOrTheStationWouldSuffer) {
  setTesterConfig(kHeader);
  EXPECT_THAT(
      findingsOf(kLeftSite + key("Instruments", dict("")) +
                 key("Flows", dict(key("main", array(testOf("QLTestMethodDelay") +
                                                     testOf("PowerTest", subTests(dict(""))))) +
                                   key("default", array("")))) +
                 key("defaultFlow", text("main"))),
      ElementsAre(
          "W Instruments: never used: the tester-config file takes its place | remove it, and list "
          "the "
          "instruments in /vault/Quillon/TesterConfig_oc.csv",
          "W Flows/default: has no tests; a device that passed it would not have been tested",
          "W Flows/main/0: has no displayName; its columns in the result log shift | give it a "
          "displayName",
          "W Flows/main/0: QLTestMethodDelay needs a sub-test, whose limits decide whether the "
          "delay "
          "passes",
          "W Flows/main/1: has no displayName; its columns in the result log shift | give it a "
          "displayName",
          "W Flows/main/1/subTestInfos/0: has no name; its columns in the result log shift | give "
          "it a "
          "name",
          "W Flows/default: its place is taken by \"main\", the default flow"));
}

TEST_F(QLTConfigCheckTest, ChecksThePluginsClasses) {
  setTesterConfig(kHeader);
  EXPECT_THAT(
      findingsOf(flowOf(kGoodTest), "NoSuchClass"),
      testing::Contains(HasSubstr(
          "E PrincipalClass: the principal class NoSuchClass is none of the bundle's classes")));
  EXPECT_THAT(findingsOf(flowOf(kGoodTest), "PowerTest"),
              testing::Contains(HasSubstr(
                  "E PrincipalClass: the principal class PowerTest is not a suite class")));
  EXPECT_THAT(findingsOf(flowOf(kGoodTest), "ThrowingSuite"),
              testing::Contains(HasSubstr("its constructor threw: no site today")));
  const std::string named = key("displayName", text("A"));
  EXPECT_THAT(findingsOf(flowOf(testOf("ThrowingTest", named))),
              ElementsAre(AllOf(HasSubstr("E Flows/main/0/class: "), HasSubstr("cannot be made"))));
  EXPECT_THAT(findingsOf(flowOf(testOf("HookedSuite", named))),
              ElementsAre("E Flows/main/0/class: the class HookedSuite is not a test method"));
  EXPECT_THAT(findingsOf(flowOf(dict(named))),
              ElementsAre(HasSubstr(
                  "E Flows/main/0: unrecognized test method class (null) | the test methods are: "
                  "PowerTest, ResourcesTest, ThrowingTest, QLTestMethod, QLTestMethodDelay")));
}

TEST_F(QLTConfigCheckTest, ReportsAHookThatThrows) {
  setTesterConfig(kHeader);
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig(flowOf(kGoodTest));
  EXPECT_THAT(texts(QLTConfigCheck::check(*files.open(), kTesterConfig,
                                          {{"throw in customizeConfig", "bad day"}})),
              ElementsAre(AllOf(HasSubstr("customizeConfig threw: bad day"),
                                HasSubstr("a fault of the plug-in"))));
}

TEST_F(QLTConfigCheckTest, AgreesWithLoadingOverACorpusOfBrokenConfigurations) {
  const std::vector<std::string> testers{kConsole,
                                         kHeader,
                                         "",
                                         "x",
                                         kHeader + "a\n",
                                         kHeader + "a,b,c,d\n",
                                         kHeader + "a,b,c,\n",
                                         "\xff",
                                         kHeader + "dut,QLTDiags,1,path=x\n"};
  const std::vector<std::string> configs{
      "",
      "<key>a</key>",
      key("Sites", text("x")),
      key("Sites", dict(key("left", text("x")))),
      key("Sites", dict(key("left", dict(key("disable", array("")))))),
      key("Sites", dict(key("left", dict(key("Resources", text("x")))))),
      key("Sites",
          dict(key("left", dict(key("disable", "<true/>") + key("Resources", text("x")))))),
      key("Sites", dict(key("left", dict(key("Resources", dict(key("c", text("dut")))))))) +
          kEmptyFlows,
      key("Sites", dict(key("left", dict(key("Resources", dict(key("c", dict("")))))))) +
          kEmptyFlows,
      key("stationAttributes", array("")),
      key("stationAttributes", dict(key("x", array("")))),
      kLeftSite,
      kLeftSite + kEmptyFlows,
      kLeftSite + key("Flows", text("x")),
      kLeftSite + key("Flows", dict(key("main", dict("")))) + key("defaultFlow", text("main")),
      kLeftSite + key("Flows", dict(key("main", array("")))) + key("defaultFlow", array("")),
      kLeftSite + key("Flows", dict(key("5", array("")))) +
          key("defaultFlow", "<integer>5</integer>"),
      key("Flows", text("x")),
      key("Flows", dict(key("main", text("x")))),
      key("defaultFlow", dict("")),
      flowOf(text("x")),
      flowOf(dict("")),
      flowOf(testOf("Nothing")),
      flowOf(testOf("ThrowingTest")),
      flowOf(testOf("HookedSuite")),
      flowOf(testOf("PowerTest", key("params", text("x")))),
      flowOf(testOf("PowerTest", key("retest", dict("")))),
      flowOf(testOf("PowerTest", subTests(text("x")))),
      flowOf(testOf("PowerTest", subTests(dict(key("priority", text("high")))))),
      flowOf(testOf("PowerTest", subTests(dict(key("lowLimit", text("")))))),
      flowOf(testOf("PowerTest",
                    subTests(dict(key("highLimit", "<date>2026-01-01T00:00:00Z</date>"))))),
      flowOf(testOf("PowerTest", subTests(dict(key("expected", dict("")))))),
      flowOf(kGoodTest + dict(key("class", dict("")))),
  };
  for (const std::string& tester : testers) {
    setTesterConfig(tester);
    for (const std::string& config : configs) {
      // Only a plug-in can say what it makes itself, so one without a factory of its own is the one
      // to compare.
      check(config, "PlainSuite");
    }
  }
}

}  // namespace
