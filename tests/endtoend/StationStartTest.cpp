#include <algorithm>
#include <filesystem>

#include "StationProcess.h"
#include "TroubleBundle.h"

// What keeps the station from testing, and how it says so.

namespace {

using test::StationProcess;
using test::TroubleBundle;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class StationStart : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NO_THROW(test::writeTesterConfig(""));
    bundle_.configure(TroubleBundle::test("Volts", ""));
  }

  /// Expects that the station refuses to test, and returns what it says.
  std::string refusal(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"run", bundle_.path()});
    StationProcess station(arguments);
    EXPECT_EQ(station.wait(), 2);
    EXPECT_EQ(station.output(), "");
    EXPECT_EQ(station.results(), "");
    return station.errors();
  }

  const std::vector<std::string> serialNumbers_{"--sn", "left=A", "--sn", "right=B"};
  TroubleBundle bundle_{TROUBLE_PLUGIN};
};

}  // namespace

TEST_F(StationStart, versionAndHelpSucceed) {
  StationProcess version({"--version"});
  EXPECT_EQ(version.wait(), 0);
  EXPECT_EQ(version.output(), "quillon " QUILLON_VERSION " (framework " QUILLON_VERSION ")\n");
  StationProcess help({"run", "--help"});
  EXPECT_EQ(help.wait(), 0);
  EXPECT_THAT(help.output(),
              AllOf(HasSubstr("--flow"), HasSubstr("--site"), HasSubstr("--sn"),
                    HasSubstr("--log-dir"), HasSubstr("--repeat"), HasSubstr("Exit status: 0")));
}

TEST_F(StationStart, aWrongCommandLineIsRefused) {
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{},
                                             {"run"},
                                             {"dance"},
                                             {"run", bundle_.path(), "--repeat", "0"},
                                             {"run", bundle_.path(), "--repeat", "x"},
                                             {"run", bundle_.path(), "--unknown"}}) {
    StationProcess station(arguments);
    EXPECT_EQ(station.wait(), 2);
    EXPECT_NE(station.errors(), "");
  }
}

TEST_F(StationStart, aCommandThatThereIsNotIsAnsweredWithTheExistingOnes) {
  StationProcess misspelt({"runn", bundle_.path()});
  EXPECT_EQ(misspelt.wait(), 2);
  EXPECT_EQ(misspelt.errors(),
            "quillon: there is no command \"runn\"\n"
            "The commands are: run, serve, check, list, new, replay, report, results, forward\n");
  StationProcess below({"results", "shw", "QB-1"});
  EXPECT_EQ(below.wait(), 2);
  EXPECT_EQ(below.errors(),
            "quillon: there is no command \"shw\"\n"
            "The commands are: list, show, export, import, queue, retry, check\n");
}

TEST_F(StationStart, aBundleThatIsNotThereIsNamed) {
  StationProcess station({"run", "nowhere.bundle"});
  EXPECT_EQ(station.wait(), 2);
  EXPECT_THAT(station.errors(),
              StartsWith("quillon: cannot open the plug-in: nowhere.bundle: No such file"));
  EXPECT_FALSE(std::filesystem::exists(station.folder() / "logs"));
}

TEST_F(StationStart, aPrincipalClassThatIsNoSuiteIsNamed) {
  bundle_.bundle().setInfo(test::PluginBundle::info("TroubleTest"));
  EXPECT_THAT(refusal({}), HasSubstr("principal class TroubleTest is not a suite"));
  bundle_.bundle().setInfo(test::PluginBundle::info("Nothing"));
  EXPECT_THAT(refusal({}), HasSubstr("has no class Nothing, its principal class"));
}

TEST_F(StationStart, unknownFlowsAndSitesAreAnsweredWithTheExistingOnes) {
  EXPECT_THAT(refusal({"--flow", "nightly"}),
              StartsWith("quillon: there is no flow \"nightly\" at site left\n"
                         "The flows are: default, main, other\n"));
  EXPECT_THAT(refusal({"--site", "middle"}),
              StartsWith("quillon: there is no site \"middle\" to test at\n"
                         "The sites of this station are: left, right\n"));
  EXPECT_THAT(refusal({"--site", "spare"}), HasSubstr("no site \"spare\" to test at"));
}

TEST_F(StationStart, anEmptyFlowIsRefused) {
  bundle_.addEmptyFlow();
  bundle_.configure(TroubleBundle::test("Volts", ""));
  std::vector<std::string> arguments = serialNumbers_;
  arguments.insert(arguments.end(), {"--flow", "empty"});
  EXPECT_THAT(refusal(arguments), HasSubstr("\nquillon: the flow \"empty\" has no tests\n"));
}

TEST_F(StationStart, aSerialNumberThatIsMissingIsRefusedWithoutATerminal) {
  EXPECT_THAT(refusal({"--sn", "left=A"}),
              StartsWith("quillon: no serial number for: right\n"
                         "Give it with --sn right=SERIAL, or start quillon on a terminal"));
}

TEST_F(StationStart, wrongSerialNumbersAreRefused) {
  EXPECT_THAT(refusal({"--sn", "left"}), HasSubstr("--sn left is not of the form SITE=SERIAL"));
  EXPECT_THAT(refusal({"--sn", "=A"}), HasSubstr("not of the form SITE=SERIAL"));
  EXPECT_THAT(refusal({"--sn", "left= "}), HasSubstr("A serial number is needed."));
  EXPECT_THAT(refusal({"--sn", "left=A,B"}), HasSubstr("must not contain commas"));
  EXPECT_THAT(refusal({"--sn", "left=A", "--sn", "left=B"}), HasSubstr("twice for the site left"));
  EXPECT_THAT(refusal({"--sn", "left=A", "--sn", "right=A"}),
              HasSubstr("the sites left and right the same serial number A\n"));
  EXPECT_THAT(refusal({"--sn", "middle=A"}),
              HasSubstr("the site \"middle\", which is not one of those to test at\n"
                        "The sites are: left, right\n"));
  EXPECT_THAT(refusal({"--site", "left", "--sn", "right=B"}), HasSubstr("The sites are: left\n"));
}

TEST_F(StationStart, aSerialNumberAgainstThePatternIsRefused) {
  bundle_.configure(TroubleBundle::test("Volts", ""),
                    TroubleBundle::text("serialPattern", "[A-Z][0-9]{2}"));
  EXPECT_THAT(refusal({"--sn", "left=A12", "--sn", "right=A123"}),
              StartsWith("quillon: --sn right=A123: A123 is no serial number of these devices, "
                         "which match [A-Z][0-9]{2}.\n"));
  StationProcess station({"run", bundle_.path(), "--sn", "left=A12", "--sn", "right=B34"});
  EXPECT_EQ(station.wait(), 0);
}

TEST_F(StationStart, aMissingTesterConfigIsExplained) {
  std::filesystem::remove("/vault/Quillon/TesterConfig_oc.csv");
  EXPECT_THAT(refusal(serialNumbers_),
              AllOf(StartsWith("quillon: cannot load "),
                    HasSubstr("/vault/Quillon/TesterConfig_oc.csv: cannot be read: No such file or "
                              "directory\n"),
                    HasSubstr("\nEach tester needs the list of its instruments in "),
                    HasSubstr("The diagnostics are in logs/T_")));
}

TEST_F(StationStart, aBrokenConfigurationIsShownWithItsPlace) {
  bundle_.bundle().setConfig("<key>Sites</key>\n<strin>x</strin>");
  EXPECT_THAT(refusal(serialNumbers_),
              AllOf(HasSubstr("TestConfig.plist:3:1: "),
                    HasSubstr("TestConfig.plist.\nThe diagnostics are in ")));
  std::filesystem::remove(bundle_.path() + "/Contents/Resources/TestConfig.plist");
  EXPECT_THAT(refusal(serialNumbers_),
              HasSubstr("/Contents/Resources/TestConfig.plist: cannot be read: No such file or "
                        "directory\n    every plug-in needs the resource TestConfig.plist\n"));
}

TEST_F(StationStart, aFaultOfThePluginIsNotBlamedOnCables) {
  bundle_.configure(TroubleBundle::test("Volts", ""), TroubleBundle::flag("refusesToLoad"));
  EXPECT_THAT(
      refusal(serialNumbers_),
      AllOf(HasSubstr("threw: no licence\n    a fault of the plug-in"), Not(HasSubstr("cable"))));
  bundle_.bundle().setConfig("<key>Sites</key><string>left</string><key>Flows</key><dict/>");
  EXPECT_THAT(refusal(serialNumbers_),
              AllOf(HasSubstr("Sites: expected a dictionary"),
                    HasSubstr("/Contents/Resources/TestConfig.plist.\n"), Not(HasSubstr("cable"))));
}

TEST_F(StationStart, anUnknownInstrumentClassIsExplained) {
  test::writeTesterConfig("meter,Voltmeter,0,port=1\n");
  EXPECT_THAT(refusal(serialNumbers_),
              AllOf(HasSubstr("unknown instrument type Voltmeter\n"), HasSubstr("second field")));
}

TEST_F(StationStart, aStationWithoutSitesIsRefused) {
  bundle_.bundle().setConfig("<key>Flows</key><dict/>");
  EXPECT_THAT(refusal({}), HasSubstr("\nquillon: the station has no site to test at\n"));
}

TEST_F(StationStart, aLogFolderThatCannotBeUsedIsRefusedBeforeAnything) {
  StationProcess underFile({"run", bundle_.path(), "--log-dir", "output/logs"});
  EXPECT_EQ(underFile.wait(), 2);
  EXPECT_THAT(underFile.errors(),
              StartsWith("quillon: cannot make the log folder output/logs: output/logs: Not a "
                         "directory\n"));
  StationProcess file({"run", bundle_.path(), "--log-dir", "output"});
  EXPECT_EQ(file.wait(), 2);
  EXPECT_THAT(file.errors(), HasSubstr("cannot write the log output/T_"));
}

TEST_F(StationStart, wrongColumnKeysAreRefused) {
  bundle_.configure(TroubleBundle::test("Volts", ""), TroubleBundle::text("csvExtraKeys", "note"));
  EXPECT_THAT(refusal(serialNumbers_),
              HasSubstr("stationAttributes/csvExtraKeys: must be an array of texts"));
}

TEST_F(StationStart, wrongWordsOfTheStationAreRefused) {
  bundle_.configure(TroubleBundle::test("Volts", ""), TroubleBundle::text("serialPattern", "QB("));
  EXPECT_THAT(refusal(serialNumbers_),
              HasSubstr("stationAttributes/serialPattern: must be a regular expression (missing ): "
                        "QB()"));
}

TEST_F(StationStart, aSiteThatIsNotAvailableTellsEveryCause) {
  test::writeTesterConfig(
      "video,QLTDavDPEther,0,ip=127.0.0.77\nconsole,QLTDiags,0,bsdPath=/nowhere/tty\n");
  bundle_.configure(TroubleBundle::test("Volts", ""), "",
                    "<key>Resources</key><dict><key>v</key><string>video</string><key>c</key>"
                    "<string>console</string><key>m</key><string>meter</string></dict>");
  StationProcess station({"run", bundle_.path(), "--sn", "right=B"});
  EXPECT_EQ(station.wait(), 0);
  const std::string errors = station.errors();
  EXPECT_THAT(errors, AllOf(HasSubstr("Warning: site left is NOT AVAILABLE\n"
                                      "  instrument console, /nowhere/tty: Error opening serial "
                                      "port at /nowhere/tty"),
                            HasSubstr("No such file or directory"),
                            HasSubstr("  instrument meter is not in /vault/"),
                            HasSubstr("  instrument video, 127.0.0.77: error creating socket at "
                                      "127.0.0.77: no connection to 127.0.0.77:9760: Connection "
                                      "refused\n")));
  EXPECT_THAT(station.output(), HasSubstr("1 passed, 0 failed, 0 broken off"));
}

TEST_F(StationStart, aSiteThatWasAskedForAndIsNotAvailableLetsTheOthersRunWithStatus1) {
  bundle_.configure(TroubleBundle::test("Volts", ""), "",
                    "<key>Resources</key><dict><key>meter</key><string>gone</string></dict>");
  for (const std::vector<std::string>& wanted :
       {std::vector<std::string>{"--sn", "left=A"}, {"--site", "left", "--site", "right"}}) {
    std::vector<std::string> arguments{"run", bundle_.path(), "--sn", "right=B"};
    arguments.insert(arguments.end(), wanted.begin(), wanted.end());
    StationProcess station(arguments);
    EXPECT_EQ(station.wait(), 1);
    EXPECT_THAT(station.errors(), HasSubstr("site left is NOT AVAILABLE\n"));
    EXPECT_THAT(station.output(), HasSubstr("1 passed, 0 failed, 0 broken off"));
  }
  EXPECT_THAT(
      refusal({"--site", "left"}),
      HasSubstr("the station has no site to test at\nSite left: instrument gone is not in"));
}

TEST_F(StationStart, anInstrumentThatNoSiteNeedsIsAWarning) {
  test::writeTesterConfig("console,QLTDiags,0,bsdPath=/nowhere/tty\n");
  StationProcess station({"run", bundle_.path(), "--sn", "left=A", "--sn", "right=B"});
  EXPECT_EQ(station.wait(), 0);
  EXPECT_THAT(station.errors(), AllOf(HasSubstr("Warning: instrument console, /nowhere/tty: "),
                                      HasSubstr(" No site needs it.\n")));
}

TEST_F(StationStart, everyErrorOfTheConfigurationIsShownBeforeAnInstrumentIsMade) {
  test::writeTesterConfig("meter,Instrument,0,dies=kill\n");
  bundle_.configure("<dict>" + TroubleBundle::text("class", "Nothing") + "</dict>" +
                    "<string>no test</string>");
  EXPECT_THAT(refusal(serialNumbers_),
              AllOf(StartsWith("quillon: cannot load " + bundle_.path() + ":\n"),
                    HasSubstr("Flows/main/0/class: unrecognized test method class Nothing\n"),
                    HasSubstr("Flows/main/1"), HasSubstr("\nThe diagnostics are in logs/T_")));
}

TEST_F(StationStart, aKeyThatNothingReadsEndsIt) {
  const std::string misspelt = "<key>subTestsInfos</key><array/>";
  bundle_.configure(TroubleBundle::test("Volts", "", misspelt));
  EXPECT_THAT(
      refusal(serialNumbers_),
      AllOf(StartsWith("quillon: unknown key subTestsInfos in the plug-in's configuration:\n"),
            HasSubstr("Flows/main/0/subTestsInfos: unknown key"),
            HasSubstr("    did you mean \"subTestInfos\"?\n"),
            HasSubstr("\nA misspelt key can leave devices untested. --allow-unknown-keys, or "
                      "ownKeys in stationAttributes, lets it run.\n")));

  std::vector<std::string> arguments{"run", bundle_.path(), "--allow-unknown-keys"};
  arguments.insert(arguments.end(), serialNumbers_.begin(), serialNumbers_.end());
  StationProcess allowed(arguments);
  EXPECT_EQ(allowed.wait(), 0);
  EXPECT_THAT(allowed.errors(),
              AllOf(StartsWith("Warning: "), HasSubstr("Flows/main/0/subTestsInfos: unknown key")));

  bundle_.configure(TroubleBundle::test("Volts", "", misspelt),
                    "<key>ownKeys</key><array><string>subTestsInfos</string></array>");
  arguments.erase(arguments.begin() + 2);
  StationProcess own(arguments);
  EXPECT_EQ(own.wait(), 0);
  EXPECT_EQ(own.errors(), "");
}

TEST_F(StationStart, aFloodOfWarningsIsCapped) {
  std::string tests;
  for (int i = 0; i < 15; ++i) tests += TroubleBundle::test("Volts, " + std::to_string(i), "");
  bundle_.configure(tests);
  StationProcess station({"run", bundle_.path(), "--site", "left", "--sn", "left=A"});
  EXPECT_EQ(station.wait(), 0);
  const std::string errors = station.errors();
  EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 11);
  EXPECT_THAT(errors, HasSubstr("\nWarning: 5 more: quillon check " + bundle_.path() + "\n"));
}

TEST_F(StationStart, theCheckLeavesThePluginAsItWas) {
  test::TemporaryFolder folder;
  const std::string calls = (folder.path() / "calls").string();
  bundle_.configure(TroubleBundle::test("Volts", ""),
                    TroubleBundle::text("talks", "configured") +
                        TroubleBundle::text("countsConfigurations", calls));
  std::vector<std::string> arguments{"run", bundle_.path()};
  arguments.insert(arguments.end(), serialNumbers_.begin(), serialNumbers_.end());
  StationProcess station(arguments);
  EXPECT_EQ(station.wait(), 0);
  // Each is the first one of its process.
  EXPECT_EQ(test::contentOf(calls), "customizeConfig 1\ncustomizeConfig 1\n");
  const std::string log = station.diagnostics();
  EXPECT_EQ(log.find("configured, logged"), log.rfind("configured, logged"));
  EXPECT_EQ(log.find("configured, printed"), log.rfind("configured, printed"));
}
