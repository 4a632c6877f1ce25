#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "StationProcess.h"
#include "TroubleBundle.h"

// `quillon list`: what a plug-in holds, as text and as JSON.

namespace {

using nlohmann::json;
using test::StationProcess;
using test::TroubleBundle;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

struct Said {
  int status;
  std::string output;
  std::string errors;
};

constexpr const char* kConfig = R"(
<key>Sites</key><dict>
  <key>left</key><dict><key>Resources</key><dict>
    <key>dut</key><string>console</string>
    <key>scale</key><string>gone</string></dict></dict>
  <key>spare</key><dict><key>disable</key><string>YES</string></dict></dict>
<key>defaultFlow</key><string>main</string>
<key>Flows</key><dict>
  <key>empty</key><array/>
  <key>main</key><array>
    <dict><key>class</key><string>TroubleTest</string>
      <key>displayName</key><string>Volts</string>
      <key>retest</key><true/><key>stopOnFail</key><integer>0</integer>
      <key>timeLimit</key><string>2.5</string>
      <key>subTestInfos</key><array>
        <dict><key>name</key><string>VBUS</string><key>priority</key><integer>2</integer>
          <key>lowLimit</key><string>4.75</string><key>highLimit</key><real>5.25</real>
          <key>unit</key><string>V</string></dict>
        <dict><key>name</key><string>version</string><key>expected</key><string>2.4.1</string>
          <key>failMessage</key><string>flash it</string><key>optional</key><true/></dict>
        <dict><key>highLimit</key><integer>9</integer></dict></array></dict>
    <dict><key>class</key><string>QLTestMethodDelay</string>
      <key>stopOnFail</key><true/></dict></array></dict>
)";

class StationList : public testing::Test {
 protected:
  void SetUp() override {
    bundle_.bundle().setConfig(kConfig);
    folder_.write("tester.csv",
                  "name,class,sim,attributes\n"
                  "console,QLTDiags,1,bsdPath=/dev/ttyS1\n"
                  "other,Instrument,0,calls=x;addr=22\n");
  }

  std::string testerConfig() const { return (folder_.path() / "tester.csv").string(); }

  static Said call(const std::vector<std::string>& arguments) {
    StationProcess station(arguments);
    const int status = station.wait();
    return {status, station.output(), station.errors()};
  }
  Said list(const std::vector<std::string>& more = {}) const {
    std::vector<std::string> arguments{"list", bundle_.path(), "--tester-config", testerConfig()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return call(arguments);
  }
  /// Expects that the plug-in cannot be listed, and returns what is said.
  std::string refusal(const std::string& config) const {
    bundle_.bundle().setConfig(config);
    const Said said = list({"--json"});
    EXPECT_EQ(said.status, 2);
    EXPECT_EQ(said.output, "");
    return said.errors;
  }

  test::TemporaryFolder folder_;
  TroubleBundle bundle_{TROUBLE_PLUGIN};
};

}  // namespace

TEST_F(StationList, showsSitesInstrumentsFlowsAndTests) {
  const Said said = list();
  EXPECT_EQ(said.status, 0);
  EXPECT_EQ(said.errors, "");
  EXPECT_EQ(said.output,
            "test.plugin 7.1\n"
            "  Bundle:           " +
                std::filesystem::canonical(bundle_.path()).string() +
                "\n"
                "  Built for:        framework " QUILLON_VERSION ", running is " QUILLON_VERSION
                "\n"
                "  Principal class:  TroubleSuite\n"
                "  Its own hooks:    customizeConfig, createInstrument, onUnload\n"
                "  Suite classes:    PlainSuite, TroubleSuite\n"
                "  Test methods:     TroubleTest\n"
                "  Instruments of:   " +
                testerConfig() +
                "\n"
                "\n"
                "Site left\n"
                "  dut    console  QLTDiags, simulated, bsdPath=/dev/ttyS1\n"
                "  scale  gone     not on this tester: the site is left out\n"
                "\n"
                "Site spare (disabled)\n"
                "  (no resources)\n"
                "\n"
                "Flow empty\n"
                "  (no tests)\n"
                "\n"
                "Flow main (default)\n"
                "  1  Volts      TroubleTest, retest, goes on after a failure, at most 2.5 s\n"
                "     1.1  VBUS       4.75 to 5.25 V  priority 2\n"
                "     1.2  version    \"2.4.1\"         priority 0, optional\n"
                "     1.3  (no name)  no limits       priority 0\n"
                "  2  (no name)  QLTestMethodDelay (framework), stops on fail\n"
                "\n"
                "Of the plug-in only customizeConfig has run; no instrument was made.\n");
}

TEST_F(StationList, writesJsonForTools) {
  const Said said = list({"--json"});
  EXPECT_EQ(said.status, 0);
  const json expected = {{"format", 1},
                         {"bundle", std::filesystem::canonical(bundle_.path()).string()},
                         {"identifier", "test.plugin"},
                         {"version", "7.1"},
                         {"builtForFramework", QUILLON_VERSION},
                         {"runningFramework", QUILLON_VERSION},
                         {"principalClass", "TroubleSuite"},
                         {"hooks", {"customizeConfig", "createInstrument", "onUnload"}},
                         {"suiteClasses", {"PlainSuite", "TroubleSuite"}},
                         {"methodClasses", {"TroubleTest"}},
                         {"instrumentClasses", json::array()},
                         {"testerConfig", testerConfig()},
                         {"sites",
                          {{{"name", "left"},
                            {"enabled", true},
                            {"resources",
                             {{{"name", "dut"},
                               {"instrument", "console"},
                               {"entry",
                                {{"class", "QLTDiags"},
                                 {"simulated", true},
                                 {"attributes", {{"bsdPath", "/dev/ttyS1"}}}}}},
                              {{"name", "scale"}, {"instrument", "gone"}, {"entry", nullptr}}}}},
                           {{"name", "spare"}, {"enabled", false}, {"resources", json::array()}}}},
                         {"defaultFlow", "main"},
                         {"flows",
                          {{{"name", "empty"}, {"default", false}, {"tests", json::array()}},
                           {{"name", "main"},
                            {"default", true},
                            {"tests",
                             {{{"number", 1},
                               {"displayName", "Volts"},
                               {"class", "TroubleTest"},
                               {"ofFramework", false},
                               {"retest", true},
                               {"stopOnFail", false},
                               {"timeLimit", 2.5},
                               {"subTests",
                                {{{"number", 1},
                                  {"name", "VBUS"},
                                  {"priority", 2},
                                  {"lowLimit", 4.75},
                                  {"highLimit", 5.25},
                                  {"expected", nullptr},
                                  {"failMessage", "failed VBUS"},
                                  {"unit", "V"},
                                  {"optional", false}},
                                 {{"number", 2},
                                  {"name", "version"},
                                  {"priority", 0},
                                  {"lowLimit", nullptr},
                                  {"highLimit", nullptr},
                                  {"expected", "2.4.1"},
                                  {"failMessage", "flash it"},
                                  {"unit", nullptr},
                                  {"optional", true}},
                                 {{"number", 3},
                                  {"name", nullptr},
                                  {"priority", 0},
                                  {"lowLimit", nullptr},
                                  {"highLimit", nullptr},
                                  {"expected", ""},
                                  {"failMessage", "failed (null)"},
                                  {"unit", nullptr},
                                  {"optional", false}}}}},
                              {{"number", 2},
                               {"displayName", nullptr},
                               {"class", "QLTestMethodDelay"},
                               {"ofFramework", true},
                               {"retest", nullptr},
                               {"stopOnFail", true},
                               {"timeLimit", nullptr},
                               {"subTests", json::array()}}}}}}}};
  EXPECT_EQ(json::parse(said.output), expected);
  EXPECT_THAT(said.output, StartsWith("{\n  \"format\": 1,\n  \"bundle\": \""));
}

TEST_F(StationList, showsWhichInstrumentsThePluginMakes) {
  const test::PluginBundle described(STATION_PLUGIN, "DescribedSuite");
  described.setConfig("");
  const std::string path = described.path().string();
  std::ofstream(testerConfig())
      << "name,class,sim,attributes\na,LanMeter,0,address=10.0.0.5:5025\n";
  EXPECT_THAT(call({"list", path, "--tester-config", testerConfig()}).output,
              AllOf(HasSubstr("\n  Makes:            LanMeter\n"),
                    HasSubstr("only customizeConfig and instrumentClasses have run")));
  const Said said = call({"list", path, "--tester-config", testerConfig(), "--json"});
  EXPECT_EQ(json::parse(said.output)["instrumentClasses"],
            json({{{"name", "LanMeter"},
                   {"kind", "multimeter on the network"},
                   {"attributes",
                    {{{"name", "address"},
                      {"needed", true},
                      {"oneOf", nullptr},
                      {"form", "host:port, such as 10.0.0.5:5025 or [::1]:5025"},
                      {"standard", nullptr},
                      {"meaning", "where it listens"}},
                     {{"name", "timeOut"},
                      {"needed", false},
                      {"oneOf", nullptr},
                      {"form", "a number of seconds, 0.1 to 60"},
                      {"standard", "2"},
                      {"meaning", "longest wait"}}}}}}));
}

TEST_F(StationList, aMachineWithoutTesterConfigStillListsThePlugin) {
  ASSERT_FALSE(std::filesystem::exists("/vault/Quillon/TesterConfig_oc.csv"))
      << "run this test with station/quillon-with-vault";
  const Said text = call({"list", bundle_.path()});
  EXPECT_EQ(text.status, 0);
  EXPECT_THAT(text.output,
              AllOf(HasSubstr("  Instruments of:   (this machine has no tester-config file)\n"),
                    HasSubstr("Site left\n  dut    console\n  scale  gone\n")));
  const json document = json::parse(call({"list", bundle_.path(), "--json"}).output);
  EXPECT_TRUE(document.at("testerConfig").is_null());
  EXPECT_TRUE(document.at("sites").at(0).at("resources").at(0).at("entry").is_null());
}

TEST_F(StationList, aTesterConfigThatIsAskedForMustBeReadable) {
  const Said missing = call({"list", bundle_.path(), "--tester-config", "nowhere.csv"});
  EXPECT_EQ(missing.status, 2);
  EXPECT_EQ(missing.errors,
            "quillon: the configuration is broken: nowhere.csv: cannot be read: No such file or "
            "directory\n"
            "'quillon check' tells everything that is wrong with it.\n");
  folder_.write("tester.csv", "header\nmeter,Instrument\n");
  EXPECT_THAT(list().errors, HasSubstr("tester.csv:2: expected the four fields"));
  folder_.write("tester.csv", "header\nm\xc3\xa4ter,Instrument,0,a=b\n");
  EXPECT_THAT(list().errors, HasSubstr("tester.csv:2: byte 0xc3 is not 7-bit ASCII\n"));
}

TEST_F(StationList, aBrokenConfigurationIsReferredToTheCheck) {
  const std::string broken = "quillon: the configuration is broken: ";
  const std::string advice = "\n'quillon check' tells everything that is wrong with it.\n";
  EXPECT_THAT(refusal("<key>Sites</key><array/>"),
              AllOf(StartsWith(broken), HasSubstr("TestConfig.plist:2:17: Sites: expected a "
                                                  "dictionary" +
                                                  advice)));
  const std::string site = "<key>Sites</key><dict><key>left</key><dict/></dict>";
  const std::string flow = site + "<key>Flows</key><dict><key>main</key>";
  EXPECT_THAT(refusal(flow + "<dict/></dict>"),
              HasSubstr("Flows/main: expected an array" + advice));
  const auto tested = [&](const std::string& entries) {
    return refusal(flow + "<array><dict>" + entries + "</dict></array></dict>");
  };
  EXPECT_THAT(tested(""),
              HasSubstr("Flows/main/0: unrecognized test method class (null)" + advice));
  EXPECT_THAT(tested("<key>class</key><string>Nothing</string>"),
              HasSubstr("Flows/main/0/class: unrecognized test method class Nothing" + advice));
  EXPECT_THAT(tested("<key>class</key><string>TroubleSuite</string>"),
              HasSubstr("Flows/main/0/class: the class TroubleSuite is not a test method"));
  const std::string cls = "<key>class</key><string>TroubleTest</string>";
  EXPECT_THAT(tested(cls + "<key>retest</key><array/>"),
              HasSubstr("Flows/main/0/retest: expected a boolean"));
  EXPECT_THAT(tested(cls + "<key>displayName</key><dict/>"),
              HasSubstr("Flows/main/0/displayName: expected a text"));
  EXPECT_THAT(tested(cls + "<key>subTestInfos</key><array><dict><key>lowLimit</key>"
                           "<string>4,5</string></dict></array>"),
              HasSubstr("Flows/main/0/subTestInfos/0/lowLimit: expected a number"));
  EXPECT_THAT(refusal(site),
              HasSubstr(": defaultFlow: missing; it must name one of the flows: (none)" + advice));
  EXPECT_THAT(refusal("<key>open"), AllOf(StartsWith(broken), HasSubstr("TestConfig.plist:2:")));
  EXPECT_THAT(refusal("<key>stationAttributes</key><array/>"),
              HasSubstr("stationAttributes: expected a dictionary" + advice));
}

TEST_F(StationList, toleratesWhatLoadingNeverReads) {
  const std::string disabled =
      "<key>Sites</key><dict><key>spare</key><dict><key>disable</key><true/>"
      "<key>Resources</key><string>none yet</string></dict></dict>";
  bundle_.bundle().setConfig(disabled);
  Said said = list();
  EXPECT_EQ(said.status, 0);
  EXPECT_THAT(said.output, HasSubstr("\nSite spare (disabled)\n  (no resources)\n"));
  bundle_.bundle().setConfig(disabled +
                             "<key>defaultFlow</key><dict/><key>Flows</key><dict>"
                             "<key>odd</key><string>x</string><key>main</key><array>"
                             "<string>x</string><dict><key>class</key><string>Nothing</string>"
                             "</dict></array></dict>");
  said = list();
  EXPECT_EQ(said.status, 0);
  EXPECT_THAT(said.output, HasSubstr("Nothing"));
  EXPECT_EQ(list({"--json"}).status, 0);
}

TEST_F(StationList, refusesALimitBeyondTheRangeOfNumbers) {
  const auto limited = [&](const std::string& limit) {
    return refusal(std::string("<key>Sites</key><dict><key>left</key><dict/></dict>"
                               "<key>defaultFlow</key><string>main</string>"
                               "<key>Flows</key><dict><key>main</key><array><dict><key>class</key>"
                               "<string>TroubleTest</string><key>subTestInfos</key><array><dict>"
                               "<key>lowLimit</key><string>") +
                   limit + "</string></dict></array></dict></array></dict>");
  };
  const std::string place = "Flows/main/0/subTestInfos/0/lowLimit: expected a number, found '";
  EXPECT_THAT(limited("1e999"), HasSubstr(place + "1e999'\n"));
  const std::string said = limited(std::string(200000, '9'));
  EXPECT_THAT(
      said, AllOf(StartsWith("quillon: the configuration is broken: "), HasSubstr(place + "999")));
  EXPECT_LT(said.size(), 1000U);
}

TEST_F(StationList, aDefaultFlowOfThePluginsOwnMakingIsTolerated) {
  bundle_.bundle().setConfig("<key>defaultFlow</key><string>own</string>");
  const Said said = list();
  EXPECT_EQ(said.status, 0);
  EXPECT_THAT(said.output,
              HasSubstr("\n(no sites)\n\n(no flows)\n\nThe default flow own is not in the "
                        "configuration; 'quillon check' tells whether the plug-in makes it.\n"));
}

TEST_F(StationList, aPluginThatCannotBeOpenedIsNamed) {
  const Said missing = call({"list", "nowhere.bundle"});
  EXPECT_EQ(missing.status, 2);
  EXPECT_THAT(missing.errors, StartsWith("quillon: cannot open the plug-in: nowhere.bundle: "));
  bundle_.bundle().setInfo(test::PluginBundle::info("TroubleTest"));
  EXPECT_THAT(list().errors, HasSubstr("Info.plist: PrincipalClass: names no suite class"));
}

TEST_F(StationList, makesNoInstrumentAndKeepsStandardOutputClean) {
  const std::string calls = (folder_.path() / "calls").string();
  folder_.write("tester.csv", "header\nmeter,Instrument,0,calls=" + calls + "\n");
  bundle_.configure(TroubleBundle::test("Volts", ""), TroubleBundle::text("talks", "good day"));
  const Said said = list({"--json", "--verbose"});
  EXPECT_EQ(said.status, 0);
  EXPECT_TRUE(json::accept(said.output));
  EXPECT_THAT(said.errors, AllOf(HasSubstr("good day, logged"), HasSubstr("good day, printed")));
  EXPECT_FALSE(std::filesystem::exists(calls));
}

TEST_F(StationList, aPluginThatEndsTheProgramIsReported) {
  bundle_.configure(TroubleBundle::test("Volts", ""), TroubleBundle::text("crashes", "yes"));
  const Said said = list();
  EXPECT_EQ(said.status, 2);
  EXPECT_EQ(said.output, "");
  EXPECT_THAT(said.errors,
              StartsWith("quillon: the plug-in ended the program, by a signal: Killed\n"));
}
