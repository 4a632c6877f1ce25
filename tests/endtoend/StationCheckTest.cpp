#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "StationProcess.h"
#include "TroubleBundle.h"

// `quillon check`: what it says, as text and as JSON, and how it ends.

namespace {

using nlohmann::json;
using test::StationProcess;
using test::TroubleBundle;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// What one call said.
struct Said {
  int status;
  std::string output;
  std::string errors;
};

class StationCheck : public testing::Test {
 protected:
  void SetUp() override {
    writeInstruments("");
    bundle_.addEmptyFlow();  // a warning
    bundle_.configure(TroubleBundle::test("Volts", ""));
  }

  void writeInstruments(const std::string& lines) const {
    folder_.write("tester.csv", "name,class,sim,attributes\n" + lines);
  }
  std::string testerConfig() const { return (folder_.path() / "tester.csv").string(); }
  /// The files as they are named in what is found.
  std::string contents() const {
    return std::filesystem::canonical(bundle_.path()).string() + "/Contents/";
  }
  std::string config() const { return contents() + "Resources/TestConfig.plist"; }

  static Said call(const std::vector<std::string>& arguments) {
    StationProcess station(arguments);
    const int status = station.wait();
    return {status, station.output(), station.errors()};
  }
  Said check(const std::vector<std::string>& more = {}) const {
    std::vector<std::string> arguments{"check", bundle_.path(), "--tester-config", testerConfig()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return call(arguments);
  }

  test::TemporaryFolder folder_;
  TroubleBundle bundle_{TROUBLE_PLUGIN};
};

/// A configuration with one flow of one test.
constexpr const char* kOneTest =
    "<key>Sites</key><dict><key>left</key><dict/></dict>"
    "<key>defaultFlow</key><string>main</string>"
    "<key>Flows</key><dict><key>main</key><array><dict>\n"
    "<key>class</key><string>TroubleTest</string>\n"
    "<key>displayName</key><string>Volts</string>\n"
    "</dict></array></dict>";

}  // namespace

TEST_F(StationCheck, findsNothingInAGoodConfiguration) {
  bundle_.bundle().setConfig(kOneTest);
  const Said said = check();
  EXPECT_EQ(said.status, 0);
  EXPECT_EQ(said.output,
            "Nothing found. The station loads, provided that its instruments come up.\n");
  EXPECT_EQ(said.errors, "");
}

TEST_F(StationCheck, warningsAloneGiveStatusOne) {
  const Said said = check();  // the flow "empty"
  EXPECT_EQ(said.status, 1);
  EXPECT_THAT(said.output, StartsWith("Warnings\n" + config() + ":"));
  EXPECT_THAT(
      said.output,
      HasSubstr(": Flows/empty: has no tests; a device that passed it would not have been tested\n"
                "\nNo errors: the station loads, provided that its instruments come up. 1 "
                "warning.\n"));
}

TEST_F(StationCheck, showsErrorsAndWarningsApartEachWithPlaceAndAdvice) {
  bundle_.bundle().setConfig(
      "<key>Sites</key><dict><key>left</key><dict>\n"
      "<key>disabled</key><false/></dict></dict>\n"
      "<key>defaultFlow</key><string>main</string>\n"
      "<key>Flows</key><dict><key>main</key><array><dict>\n"
      "<key>class</key><string>TrubleTest</string>\n"
      "<key>displayName</key><string>Volts</string></dict></array></dict>");
  writeInstruments("meter,Instrument\n");
  const Said said = check();
  EXPECT_EQ(said.status, 2);
  EXPECT_EQ(said.output,
            "Errors\n" + testerConfig() +
                ":2: expected the four fields name,class,sim,attributes, found 2: "
                "meter,Instrument\n" +  //
                config() +
                ":6:17: Flows/main/0/class: unrecognized test method class TrubleTest\n"
                "    did you mean \"TroubleTest\"?\n"
                "\n"
                "Warnings\n" +
                config() +
                ":3:20: Sites/left/disabled: unknown key; loading ignores it\n"
                "    did you mean \"disable\"?\n"
                "\n"
                "2 errors: the station does not load. 1 warning.\n");
  EXPECT_EQ(said.errors, "");
}

TEST_F(StationCheck, writesJsonForTools) {
  bundle_.bundle().setConfig(
      "<key>Sites</key><dict><key>left</key><dict/></dict>\n"
      "<key>defaultFlow</key><string>main</string>\n"
      "<key>Flows</key><dict><key>main</key><array><dict>\n"
      "<key>class</key><string>TrubleTest</string></dict></array></dict>");
  const Said said = check({"--json"});
  EXPECT_EQ(said.status, 2);
  EXPECT_EQ(said.errors, "");
  const json expected = {{"format", 1},
                         {"bundle", bundle_.path()},
                         {"testerConfig", testerConfig()},
                         {"errors", 1},
                         {"warnings", 1},
                         {"findings",
                          {{{"severity", "warning"},
                            {"file", config()},
                            {"line", 4},
                            {"column", 45},
                            {"offset", nullptr},
                            {"key", "Flows/main/0"},
                            {"message", "has no displayName; its columns in the result log shift"},
                            {"advice", "give it a displayName"},
                            {"unknownKey", nullptr}},
                           {{"severity", "error"},
                            {"file", config()},
                            {"line", 5},
                            {"column", 17},
                            {"offset", nullptr},
                            {"key", "Flows/main/0/class"},
                            {"message", "unrecognized test method class TrubleTest"},
                            {"advice", "did you mean \"TroubleTest\"?"},
                            {"unknownKey", nullptr}}}}};
  EXPECT_EQ(json::parse(said.output), expected);
  // Tools may show it as it stands: the order is that of the documentation.
  EXPECT_THAT(said.output, StartsWith("{\n  \"format\": 1,\n  \"bundle\": \""));
}

TEST_F(StationCheck, whatIsNotKnownIsNullInJson) {
  const Said said = call({"check", bundle_.path(), "--tester-config", "nowhere.csv", "--json"});
  EXPECT_EQ(said.status, 2);
  const json finding = json::parse(said.output).at("findings").at(0);
  EXPECT_EQ(finding.at("file"), "nowhere.csv");
  for (const char* key : {"line", "column", "offset", "key"})
    EXPECT_TRUE(finding.at(key).is_null()) << key;
  bundle_.bundle().setConfig(kOneTest);
  EXPECT_EQ(json::parse(check({"--json"}).output).at("findings"), json::array());
}

TEST_F(StationCheck, aBundleThatDoesNotOpenIsAnErrorOfItsOwn) {
  const Said said = call({"check", "nowhere.bundle", "--json"});
  EXPECT_EQ(said.status, 2);
  const json document = json::parse(said.output);
  EXPECT_EQ(document.at("errors"), 1);
  EXPECT_EQ(document.at("testerConfig"), "/vault/Quillon/TesterConfig_oc.csv");
  EXPECT_EQ(document.at("findings").at(0).at("file"), "nowhere.bundle");
  EXPECT_EQ(document.at("findings").at(0).at("message"), "No such file or directory");
  EXPECT_EQ(call({"check", "nowhere.bundle"}).output,
            "Errors\n"
            "nowhere.bundle: No such file or directory\n"
            "    BUNDLE must be the folder of a test plug-in, NAME.bundle, with "
            "Contents/Info.plist in it.\n"
            "\n"
            "1 error: the station does not load.\n");
}

TEST_F(StationCheck, aFaultOfInfoPlistIsShownAtItsPlace) {
  bundle_.bundle().setInfo("<key>FrameworkVersion</key><integer>3</integer>");
  json finding = json::parse(check({"--json"}).output).at("findings").at(0);
  EXPECT_EQ(finding.at("file"), contents() + "Info.plist");
  EXPECT_EQ(finding.at("line"), 2);
  EXPECT_EQ(finding.at("column"), 28);
  EXPECT_EQ(finding.at("key"), "FrameworkVersion");
  EXPECT_EQ(finding.at("message"), "expected a text");

  bundle_.bundle().setInfo("<key>FrameworkVersion</key>\n<integer>x</integer>");
  finding = json::parse(check({"--json"}).output).at("findings").at(0);
  EXPECT_EQ(finding.at("file"), contents() + "Info.plist");
  EXPECT_EQ(finding.at("line"), 3);
  EXPECT_EQ(finding.at("key"), "FrameworkVersion");

  bundle_.bundle().setInfo(
      "<key>FrameworkVersion</key><string>99.1</string><key>Executable</key><string>T.so</string>");
  EXPECT_THAT(
      check().output,
      HasSubstr(": built for framework version 99.1, which framework version " QUILLON_VERSION
                " cannot run; rebuild the plug-in\n"));
}

TEST_F(StationCheck, aBinaryInfoListThatIsBrokenIsNamedWithItsOffset) {
  // Whole but for the kind of its only object.
  const std::string list = std::string("bplist00\x7f\x08", 10) + std::string(6, '\0') +
                           std::string("\1\1", 2) + std::string(7, '\0') + '\1' +
                           std::string(15, '\0') + '\x09';
  std::ofstream(bundle_.path() + "/Contents/Info.plist", std::ios::binary) << list;
  EXPECT_THAT(check().output, StartsWith("Errors\n" + contents() +
                                         "Info.plist:offset 8: unknown kind of object 0x7f\n"));
}

TEST_F(StationCheck, aPrincipalClassThatIsNoSuiteIsAnErrorAlsoWithoutSites) {
  bundle_.bundle().setConfig("");
  bundle_.bundle().setInfo(test::PluginBundle::info("TroubleTest"));
  Said said = check();
  EXPECT_EQ(said.status, 2);
  EXPECT_THAT(said.output, StartsWith("Errors\n" + contents() +
                                      "Info.plist:5:26: PrincipalClass: TroubleTest is not a suite "
                                      "class\n    It must name a class derived from QLTestSuite"));
  EXPECT_THAT(said.output, HasSubstr("its classes are: PlainSuite, TroubleSuite, TroubleTest\n"));
  bundle_.bundle().setInfo(test::PluginBundle::info("Nothing"));
  EXPECT_THAT(check().output, HasSubstr("PrincipalClass: the plug-in has no class Nothing\n"));
}

TEST_F(StationCheck, aPrincipalClassThatIsNoSuiteIsOneErrorHoweverManySitesThereAre) {
  bundle_.configure(TroubleBundle::test("Volts", ""));
  bundle_.bundle().setInfo(test::PluginBundle::info("Nothing"));
  const Said said = check();
  EXPECT_EQ(said.status, 2);
  EXPECT_THAT(said.output,
              AllOf(StartsWith("Errors\n" + contents() +
                               "Info.plist:5:26: PrincipalClass: the principal class Nothing is "
                               "none of the bundle's classes"),
                    HasSubstr("\n1 error: the station does not load.")));
}

TEST_F(StationCheck, columnKeysThatRunRefusesAreErrors) {
  bundle_.configure(TroubleBundle::test("Volts", ""), TroubleBundle::text("csvExtraKeys", "note"));
  const std::string text = "must be an array of texts; quillon run refuses anything else\n";
  Said said = check();
  EXPECT_EQ(said.status, 2);
  EXPECT_THAT(said.output, HasSubstr("stationAttributes/csvExtraKeys: " + text));
  bundle_.configure(TroubleBundle::test("Volts", ""),
                    "<key>csvAttributeKeys</key><array><string>a</string><integer>1</integer>"
                    "</array>");
  EXPECT_THAT(check().output, HasSubstr("stationAttributes/csvAttributeKeys: " + text));
  bundle_.configure(TroubleBundle::test("Volts", ""),
                    "<key>csvAttributeKeys</key><array><string>a</string></array>");
  EXPECT_EQ(check().status, 1);  // the flow "empty"
}

TEST_F(StationCheck, theStationsWordsHaveTypes) {
  bundle_.configure(TroubleBundle::test("Volts", ""),
                    "<key>part</key><array/>\n" + TroubleBundle::text("serialPattern", "QB[0-9") +
                        TroubleBundle::text("timeLimit", "soon"));
  const Said said = check();
  EXPECT_EQ(said.status, 2);
  EXPECT_THAT(said.output,
              HasSubstr("stationAttributes/part: must be a text or a number; quillon run refuses "
                        "anything else\n    It is the part number of the devices, for their "
                        "records.\n"));
  EXPECT_THAT(said.output, HasSubstr("stationAttributes/serialPattern: must be a regular "
                                     "expression (missing ]: [0-9); quillon run refuses"));
  EXPECT_THAT(said.output, HasSubstr("stationAttributes/timeLimit: must be a number of seconds, "
                                     "above 0 and at most 1000000000; quillon run refuses"));
  EXPECT_THAT(said.output, HasSubstr("3 errors: the station does not load."));
}

TEST_F(StationCheck, keysOfThePluginsOwnAreNotTakenForMisspelt) {
  const std::string subTests =
      "<key>subTestsInfos</key><array/><key>colour</key><string>red</string>"
      "<key>subTestInfos</key><array><dict><key>name</key><string>n</string>"
      "<key>colour</key><string>red</string><key>limit</key><integer>1</integer></dict></array>";
  const auto unknownKeys = [&](const std::string& attributes) {
    bundle_.configure(
        "<dict><key>class</key><string>TroubleTest</string>"
        "<key>displayName</key><string>Volts</string>" +
            subTests + "</dict>",
        attributes);
    std::vector<std::string> keys;
    const json document = json::parse(check({"--json"}).output);
    for (const json& finding : document.at("findings")) {
      const json& key = finding.at("unknownKey");
      if (key.is_null()) continue;
      EXPECT_EQ(finding.at("severity"), "warning");
      EXPECT_THAT(finding.at("key").get<std::string>(),
                  testing::EndsWith("/" + key.get<std::string>()));
      keys.push_back(key);
    }
    return keys;
  };
  using testing::ElementsAre;
  EXPECT_THAT(unknownKeys(""), ElementsAre("colour", "subTestsInfos", "colour", "limit"));
  EXPECT_THAT(unknownKeys("<key>ownKeys</key><array><string>colour</string><string>Limit</string>"
                          "</array>"),
              ElementsAre("subTestsInfos", "limit"));
  EXPECT_THAT(unknownKeys(TroubleBundle::text("ownKeys", "colour")),
              ElementsAre("colour", "subTestsInfos", "colour", "limit"));
}

TEST_F(StationCheck, makesNoInstrumentAndWritesNothing) {
  const std::string calls = (folder_.path() / "calls").string();
  writeInstruments("meter,Instrument,0,calls=" + calls + "\n");
  StationProcess station({"check", bundle_.path(), "--tester-config", testerConfig()});
  EXPECT_EQ(station.wait(), 1);
  EXPECT_FALSE(std::filesystem::exists(calls));
  EXPECT_FALSE(std::filesystem::exists(station.folder() / "logs"));
}

TEST_F(StationCheck, theConsoleLogGoesToStandardErrorOnlyWhenAsked) {
  bundle_.configure(TroubleBundle::test("Volts", ""), TroubleBundle::text("talks", "good day"));
  const Said quiet = check({"--json"});
  EXPECT_TRUE(json::accept(quiet.output));
  // What the plug-in prints by itself is kept off standard output all the same.
  EXPECT_EQ(quiet.errors, "good day, printed\n");
  const Said verbose = check({"--json", "--verbose"});
  EXPECT_EQ(verbose.output, quiet.output);
  EXPECT_THAT(verbose.errors, AllOf(HasSubstr("good day, logged"), HasSubstr("good day, printed")));
}

TEST_F(StationCheck, aPluginThatEndsTheProgramIsAnErrorToo) {
  for (const auto& [trouble, reason] : std::vector<std::pair<std::string, std::string>>{
           {"crashes", "the plug-in ended the program, by a signal: Killed"},
           {"exits", "the plug-in ended the program, with exit status 0"}}) {
    bundle_.configure(TroubleBundle::test("Volts", ""), TroubleBundle::text(trouble, "yes"));
    const Said said = check({"--json"});
    EXPECT_EQ(said.status, 2);
    const json finding = json::parse(said.output).at("findings").at(0);
    EXPECT_EQ(finding.at("severity"), "error");
    EXPECT_EQ(finding.at("file"), bundle_.path());
    EXPECT_EQ(finding.at("message"), reason);
    EXPECT_THAT(finding.at("advice").get<std::string>(), HasSubstr("customizeConfig"));
  }
}

TEST_F(StationCheck, textsThatAreNotUtf8AreReplacedInJson) {
  writeInstruments("meter,Instrument,0,\"\\x1b\xff\n");
  const Said said = check({"--json"});
  EXPECT_EQ(said.status, 2);
  EXPECT_TRUE(json::accept(said.output));
}

TEST_F(StationCheck, aWrongCommandLineIsRefused) {
  for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
           {"check"}, {"check", "a", "b"}, {"check", "a", "--x"}}) {
    const Said said = call(arguments);
    EXPECT_EQ(said.status, 2);
    EXPECT_EQ(said.output, "");
    EXPECT_NE(said.errors, "");
  }
  EXPECT_THAT(
      call({"check", "--help"}).output,
      AllOf(HasSubstr("--tester-config"), HasSubstr("--json"), HasSubstr("--verbose"),
            HasSubstr("Exit status: 0 nothing found; 1 warnings only"), Not(HasSubstr("--flow"))));
}
