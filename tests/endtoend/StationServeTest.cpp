#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>

#include "StationProcess.h"
#include "TroubleBundle.h"
#include "results/Queries.h"
#include "results/central/CentralSchema.h"
#include "results/central/Server.h"
#include "support/PostgresServer.h"
#include "web/HttpClient.h"

// `quillon serve`: the station behind the operator's page, by what the page says and hears.

namespace {

using nlohmann::json;
using test::HttpClient;
using test::Reply;
using test::StationProcess;
using test::TroubleBundle;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class StationServe : public testing::Test {
 protected:
  void SetUp() override { ASSERT_NO_THROW(test::writeTesterConfig("")); }

  /// Starts the station, and waits for its page.
  void serve(const std::vector<std::string>& more = {}) {
    std::vector<std::string> arguments{"serve", bundle_.path(), "--listen", "127.0.0.1:0"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    station_ = std::make_unique<StationProcess>(arguments);
    const std::string mark = "The page is at http://";
    std::string output;
    ASSERT_TRUE(soon([&] {
      output = station_->output();
      return output.find("/\n") != std::string::npos;
    })) << station_->errors();
    const std::size_t start = output.find(mark) + mark.size();
    address_ = output.substr(start, output.find("/\n") - start);
    token_ = HttpClient(address_).get("/api/1/session").json()["token"].get<std::string>();
  }
  /// As `serve`, and waits until devices can be tested.
  void serveReady(const std::vector<std::string>& more = {}) {
    ASSERT_NO_FATAL_FAILURE(serve(more));
    ASSERT_TRUE(becomes("left", "EMPTY")) << state().dump() << station_->errors();
    ASSERT_TRUE(becomes("right", "EMPTY"));
  }

  static bool soon(const std::function<bool()>& condition) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (std::chrono::steady_clock::now() < until) {
      if (condition()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  }
  json state() const { return HttpClient(address_).get("/api/1/state").json(); }
  json site(const std::string& name) const {
    const json sites = state()["sites"];
    return sites.contains(name) ? sites[name] : json::object();
  }
  bool becomes(const std::string& name, const std::string& word) const {
    return soon([&] { return site(name).value("state", "") == word; });
  }

  Reply reply(json command) {
    command["id"] = "c" + std::to_string(++commands_);
    return HttpClient(address_).post("/api/1/commands",
                                     "Content-Type: application/json\nX-Quillon-Token: " + token_,
                                     command.dump());
  }
  /// What the station says to a command: "" when it does it.
  std::string order(const json& command) {
    const Reply said = reply(command);
    return said.status == 200 ? "" : said.json()["message"].get<std::string>();
  }
  std::string scan(const std::string& text) { return order({{"command", "scan"}, {"text", text}}); }
  results::RunContent run(const std::string& serial) const {
    results::Queries queries(station_->folder() / "logs" / "results.db");
    const auto runs = queries.runsOf(serial);
    return runs.empty() ? results::RunContent{} : *queries.run(runs.back().id);
  }
  /// A test that waits for a file, at both sites.
  std::string slow() const {
    return TroubleBundle::test("First", TroubleBundle::text("await", release())) +
           TroubleBundle::test("Second", "");
  }
  std::string release() const { return (folder_.path() / "release").string(); }

  test::TemporaryFolder folder_;
  TroubleBundle bundle_{TROUBLE_PLUGIN};
  std::unique_ptr<StationProcess> station_;
  std::string address_;
  std::string token_;
  int commands_ = 0;
};

}  // namespace

TEST_F(StationServe, testsADeviceFromScanToVerdict) {
  bundle_.configure(TroubleBundle::test("Volts", TroubleBundle::text("value", "2.7")));
  serveReady();
  EXPECT_EQ(state()["station"]["state"], "ready");
  EXPECT_EQ(scan("A"), "");
  ASSERT_TRUE(becomes("left", "FAIL"));
  const json left = site("left");
  EXPECT_EQ(left["verdict"]["serial"], "A");
  EXPECT_EQ(left["verdict"]["verdict"], "FAIL");
  EXPECT_EQ(left["verdict"]["firstFailure"], "Volts / volts: 2.7, limits 1 to 2");
  EXPECT_EQ(left["todo"], "Failed: put it aside, and scan the next device.");
  EXPECT_EQ(state()["today"], json::parse(R"({"brokenOff":0,"failed":1,"passed":0,"yield":0.0})"));

  const std::string id = left["verdict"]["run"].get<std::string>();
  const json run = HttpClient(address_).get("/api/1/runs/" + id).json();
  EXPECT_EQ(run["serial"], "A");
  EXPECT_EQ(run["verdict"], "FAIL");
  EXPECT_THAT(run["firstFailure"].get<std::string>(),
              HasSubstr("Volts / volts: 2.7, limits 1 to 2"));
  EXPECT_EQ(run["measurements"][0]["value"], 2.7);
  EXPECT_EQ(run["measurements"][0]["high"], 2.0);
  EXPECT_EQ(run["steps"][0]["test"], "Volts");
  EXPECT_EQ(HttpClient(address_).get("/api/1/runs").json()["runs"][0]["id"], id);
  EXPECT_EQ(HttpClient(address_).get("/api/1/runs?serial=A").json()["runs"][0]["id"], id);
  EXPECT_EQ(HttpClient(address_).get("/api/1/runs?serial=B").json()["runs"], json::array());
  EXPECT_EQ(HttpClient(address_).get("/api/1/runs/none").status, 404);
  EXPECT_EQ(state()["recent"][0]["id"], id);
  EXPECT_THAT(HttpClient(address_).get("/metrics").body,
              AllOf(HasSubstr("quillon_devices_total{site=\"left\",verdict=\"FAIL\"} 1\n"),
                    HasSubstr("quillon_site_state{site=\"right\",state=\"EMPTY\"} 1\n")));
  EXPECT_THAT(HttpClient(address_).get("/api/1/log?lines=2").body, HasSubstr("A: FAIL in"));

  const Reply report = HttpClient(address_).get("/reports/yield?since=7d");
  EXPECT_EQ(report.status, 200);
  EXPECT_THAT(report.body, AllOf(HasSubstr("<title>"), HasSubstr("Yield")));
  EXPECT_THAT(report.field("CONTENT-SECURITY-POLICY"), HasSubstr("script-src 'unsafe-inline'"));
  const Reply versions = HttpClient(address_).get("/reports/versions?since=7d");
  EXPECT_EQ(versions.status, 200);
  EXPECT_THAT(versions.body, AllOf(HasSubstr("Versions"), HasSubstr("7.1")));
  EXPECT_EQ(HttpClient(address_).get("/reports/horoscope").status, 404);
  EXPECT_EQ(HttpClient(address_).get("/reports/yield?since=soon").status, 400);
  EXPECT_EQ(HttpClient(address_).get("/reports/yield?site=middle").status, 404);

  EXPECT_EQ(scan("B"), "");  // the site that has had no device comes first
  EXPECT_TRUE(becomes("right", "FAIL"));
  EXPECT_EQ(scan("C"), "");
  EXPECT_TRUE(soon([&] {
    const json left = site("left");
    return left.contains("verdict") && left["verdict"]["serial"] == "C";
  }));
  station_->send(SIGTERM);
  EXPECT_EQ(station_->wait(), 0) << station_->errors();
}

TEST_F(StationServe, refusesScansWithTheReason) {
  bundle_.configure(slow(), TroubleBundle::text("serialPattern", "[A-Z]"));
  serveReady();
  EXPECT_EQ(scan(""), "A serial number is needed.");
  EXPECT_EQ(scan("a1"), "a1 is no serial number of these devices, which match [A-Z].");
  EXPECT_EQ(scan(" A \n"), "");
  ASSERT_TRUE(becomes("left", "RUNNING"));
  EXPECT_EQ(scan("A"), "A is being tested at site left.");
  EXPECT_EQ(order({{"command", "serial"}, {"site", "left"}, {"serial", "B"}}),
            "Site left is not free: it is RUNNING.");
  EXPECT_EQ(order({{"command", "serial"}, {"site", "middle"}, {"serial", "B"}}),
            "There is no site middle.");
  EXPECT_EQ(order({{"command", "serial"}, {"site", "spare"}, {"serial", "B"}}),
            "Site spare is not free: it is DISABLED.");
  EXPECT_EQ(scan("B"), "");
  ASSERT_TRUE(becomes("right", "RUNNING"));
  EXPECT_EQ(scan("C"), "No site is free for C.");
  EXPECT_EQ(reply({{"command", "scan"}}).status, 400);
  EXPECT_EQ(reply({{"command", "dance"}}).status, 400);
}

TEST_F(StationServe, aLabelChoosesTheSiteAndStartCanBePressed) {
  bundle_.configure(
      TroubleBundle::test("Volts", ""),
      TroubleBundle::text("scan", "site") + TroubleBundle::flag("startOnScan", false));
  serveReady();
  EXPECT_EQ(scan("A"), "Scan the label of a site first.");
  const json labelled = reply({{"command", "scan"}, {"text", "right"}}).json();
  EXPECT_EQ(labelled["site"], "right");
  EXPECT_EQ(labelled["expects"], "device");
  EXPECT_EQ(scan("A"), "");
  ASSERT_TRUE(becomes("right", "READY"));
  EXPECT_EQ(site("right")["serial"], "A");
  EXPECT_EQ(site("right")["todo"], "Press Start.");
  EXPECT_EQ(scan("right"), "Site right has A already.");
  EXPECT_EQ(order({{"command", "start"}, {"site", "left"}}),
            "Site left has no device that waits for its start.");
  EXPECT_EQ(order({{"command", "clear"}, {"site", "right"}}), "");
  ASSERT_TRUE(becomes("right", "EMPTY"));
  EXPECT_EQ(order({{"command", "serial"}, {"site", "right"}, {"serial", "A"}}), "");
  EXPECT_EQ(order({{"command", "start"}, {"site", "right"}}), "");
  EXPECT_TRUE(becomes("right", "PASS"));
}

TEST_F(StationServe, aQuestionIsAnsweredThere) {
  bundle_.configure(TroubleBundle::test("Question", TroubleBundle::text("ask", "choose")));
  serveReady();
  EXPECT_EQ(scan("A"), "");
  ASSERT_TRUE(becomes("left", "ASKING"));
  const json question = site("left")["question"];
  EXPECT_EQ(question["kind"], "choose");
  EXPECT_EQ(question["choices"], json::parse(R"(["red","green"])"));
  const auto answer = [&](const std::string& text) {
    return order(
        {{"command", "answer"}, {"site", "left"}, {"question", question["id"]}, {"answer", text}});
  };
  EXPECT_EQ(answer("blue"), "blue is not one of: red, green.");
  EXPECT_EQ(answer("green"), "");
  ASSERT_TRUE(becomes("left", "PASS"));
  EXPECT_EQ(answer("red"), "The question is not open any more.");
  EXPECT_THAT(station_->results(), HasSubstr(",green,P,"));
}

TEST_F(StationServe, stopEndsADeviceAndTheSiteGoesOn) {
  bundle_.configure(TroubleBundle::test("Question", TroubleBundle::text("ask", "confirm")));
  serveReady();
  EXPECT_EQ(order({{"command", "stop"}, {"site", "left"}}),
            "Site left has no device that could be stopped: it is EMPTY.");
  EXPECT_EQ(scan("A"), "");
  ASSERT_TRUE(becomes("left", "ASKING"));
  EXPECT_EQ(order({{"command", "stop"}, {"site", "left"}}), "");
  ASSERT_TRUE(becomes("left", "BROKEN OFF")) << site("left").dump();
  EXPECT_EQ(order({{"command", "serial"}, {"site", "left"}, {"serial", "B"}}), "");
  EXPECT_TRUE(becomes("left", "ASKING"));
}

TEST_F(StationServe, stopNowEndsAllSitesAndAFreshWorkerGoesOn) {
  bundle_.configure(slow());
  serveReady();
  EXPECT_EQ(order({{"command", "stopNow"}}), "No device is in progress.");
  EXPECT_EQ(scan("A"), "");
  EXPECT_EQ(scan("B"), "");
  ASSERT_TRUE(becomes("left", "RUNNING"));
  ASSERT_TRUE(becomes("right", "RUNNING"));
  EXPECT_EQ(order({{"command", "stopNow"}}), "");
  ASSERT_TRUE(becomes("left", "BROKEN OFF"));
  ASSERT_TRUE(becomes("right", "BROKEN OFF"));
  EXPECT_EQ(site("left")["todo"], "Not tested to its end: scan it again.");
  EXPECT_EQ(run("A").run.verdict, results::Verdict::BrokenOff);
  folder_.write("release", "");
  EXPECT_TRUE(soon([&] { return scan("C").empty(); }));
  EXPECT_TRUE(becomes("left", "PASS")) << site("left").dump();
}

TEST_F(StationServe, aSiteOutOfUseStaysSo) {
  bundle_.configure(TroubleBundle::test("Volts", ""));
  const std::string logs = (folder_.path() / "logs").string();
  serveReady({"--log-dir", logs});
  EXPECT_EQ(order({{"command", "disable"}, {"site", "left"}, {"reason", " "}}),
            "A reason is needed.");
  EXPECT_EQ(order({{"command", "operator"}, {"name", "Ann"}}), "");
  EXPECT_EQ(order({{"command", "disable"}, {"site", "left"}, {"reason", "worn pins"}}), "");
  ASSERT_TRUE(becomes("left", "DISABLED"));
  EXPECT_EQ(site("left")["reason"], "worn pins");
  EXPECT_EQ(scan("A"), "");
  EXPECT_TRUE(becomes("right", "PASS"));
  station_->send(SIGTERM);
  EXPECT_EQ(station_->wait(), 0);

  serve({"--log-dir", logs});
  ASSERT_TRUE(becomes("left", "DISABLED"));
  EXPECT_EQ(order({{"command", "enable"}, {"site", "left"}, {"who", "Bob"}}), "");
  ASSERT_TRUE(becomes("left", "EMPTY"));
  results::Queries queries(logs + "/results.db");
  const auto events = queries.lastEvents(queries.runsOf("A").front().stationId, 9);
  ASSERT_EQ(events.size(), 2U);
  EXPECT_EQ(events[0].kind, "enabled");
  EXPECT_EQ(events[0].who, "Bob");
  EXPECT_EQ(events[1].kind, "disabled");
  EXPECT_EQ(events[1].who, "Ann");
  EXPECT_EQ(events[1].text, "worn pins");
}

TEST_F(StationServe, whoTestsAndWhatForGoIntoTheStore) {
  bundle_.configure(TroubleBundle::test("Volts", ""));
  serveReady();
  EXPECT_EQ(order({{"command", "mode"}, {"kind", "retest"}}), "Devices are not tested for retest.");
  EXPECT_EQ(order({{"command", "mode"}, {"kind", "study"}, {"reason", "gauge"}}), "");
  EXPECT_EQ(order({{"command", "operator"}, {"name", "Ann"}}), "");
  EXPECT_EQ(state()["station"]["kind"], "study");
  EXPECT_EQ(state()["station"]["operator"], "Ann");
  EXPECT_EQ(scan("A"), "");
  ASSERT_TRUE(becomes("left", "PASS"));
  const results::Run run = this->run("A").run;
  EXPECT_EQ(run.kind, results::RunKind::Study);
  EXPECT_EQ(run.operatorName, "Ann");
  EXPECT_EQ(run.reason, "gauge");
  EXPECT_EQ(state()["today"]["passed"], 0);  // no production
}

TEST_F(StationServe, anUnsafeSiteIsAcknowledgedByName) {
  bundle_.configure(TroubleBundle::test("Volts", TroubleBundle::text("dies", "segfault")),
                    TroubleBundle::text("fails", "onSafeState"));
  serveReady();
  EXPECT_EQ(scan("A"), "");
  ASSERT_TRUE(becomes("left", "UNSAFE")) << state().dump();
  EXPECT_EQ(order({{"command", "acknowledge"}, {"site", "left"}, {"who", ""}}),
            "A name is needed.");
  EXPECT_EQ(order({{"command", "acknowledge"}, {"site", "left"}, {"who", "Ann"}}), "");
  EXPECT_TRUE(becomes("left", "BROKEN OFF"));
  EXPECT_EQ(order({{"command", "acknowledge"}, {"site", "left"}, {"who", "Ann"}}),
            "Site left is not unsafe.");
}

TEST_F(StationServe, thePageTellsWhyNothingCanBeTested) {
  serve({"--flow", "none"});
  ASSERT_TRUE(soon([&] { return state()["station"]["state"] == "broken"; }));
  EXPECT_THAT(state()["station"]["problem"]["text"].get<std::string>(), Not(testing::IsEmpty()));
  EXPECT_EQ(scan("A"), "The station is not ready.");
  bundle_.configure(TroubleBundle::test("Volts", ""));
  EXPECT_EQ(order({{"command", "reload"}}), "");
  EXPECT_TRUE(soon([&] { return state()["station"]["state"] == "broken"; }));
  station_->send(SIGTERM);
  EXPECT_EQ(station_->wait(), 0);
}

TEST_F(StationServe, aPluginThatCrashesAgainAndAgainWaitsForAPerson) {
  bundle_.configure(TroubleBundle::test("Volts", TroubleBundle::text("dies", "segfault")));
  serveReady();
  constexpr int kAllowed = 3;
  for (int crash = 0; crash <= kAllowed; ++crash) {
    const std::string serial = "A" + std::to_string(crash);
    ASSERT_TRUE(soon([&] { return scan(serial).empty(); })) << state().dump();
    ASSERT_TRUE(soon([&] { return run(serial).run.verdict == results::Verdict::BrokenOff; }));
  }
  ASSERT_TRUE(soon([&] { return state()["station"]["state"] == "broken"; })) << state().dump();
  EXPECT_THAT(state()["station"]["problem"]["text"].get<std::string>(),
              HasSubstr("that was the 4th time within 10 minutes"));
  EXPECT_EQ(scan("B"), "The station is not ready.");
  EXPECT_EQ(order({{"command", "reload"}}), "");
  EXPECT_TRUE(becomes("left", "EMPTY"));
}

TEST_F(StationServe, aStoreThatCannotBeWrittenIsToldAndCanBeTriedAgain) {
  bundle_.configure(TroubleBundle::test("Volts", ""));
  const std::filesystem::path logs = folder_.path() / "logs";
  serveReady({"--log-dir", logs.string()});
  const std::filesystem::path aside = folder_.path() / "aside";
  std::filesystem::rename(logs, aside);
  EXPECT_EQ(scan("A"), "");
  ASSERT_TRUE(soon([&] { return state()["station"]["state"] == "broken"; })) << state().dump();
  EXPECT_EQ(state()["today"]["passed"], 0);
  EXPECT_THAT(state()["station"]["problem"].dump(),
              HasSubstr("results.db: was deleted while in use"));
  std::filesystem::remove_all(logs);
  std::filesystem::rename(aside, logs);
  EXPECT_EQ(order({{"command", "reload"}}), "");
  ASSERT_TRUE(becomes("left", "EMPTY"));
  EXPECT_EQ(scan("A"), "");
  EXPECT_TRUE(becomes("left", "PASS"));
}

TEST_F(StationServe, showsPicturesOfThePluginAndNothingElse) {
  const std::filesystem::path resources = bundle_.bundle().path() / "Contents" / "Resources";
  bundle_.configure(TroubleBundle::test(
      "Looks", TroubleBundle::text("ask", "show") + TroubleBundle::flag("thenHangs")));
  std::ofstream(resources / "j4.png") << "picture";
  serveReady();
  EXPECT_EQ(HttpClient(address_).get("/api/1/images/left").status, 404);
  EXPECT_EQ(HttpClient(address_).get("/api/1/images/none").status, 404);
  EXPECT_EQ(scan("A"), "");
  ASSERT_TRUE(soon([this] { return site("left").contains("progress"); }));
  EXPECT_EQ(site("left")["progress"], json::parse(R"({"fraction":0.5,"text":"half"})"));
  EXPECT_EQ(site("left")["shown"]["text"], "Look at the fixture.");
  const std::string image = site("left")["shown"]["image"].get<std::string>();
  const Reply picture = HttpClient(address_).get(image);
  EXPECT_EQ(picture.body, "picture");
  EXPECT_EQ(picture.field("CONTENT-TYPE"), "image/png");
  std::filesystem::remove(resources / "j4.png");
  std::filesystem::create_symlink("/etc/hostname", resources / "j4.png");
  EXPECT_EQ(HttpClient(address_).get(image).status, 404);
}

namespace {

/// The names of all members, however deep.
void gatherNames(const json& value, std::set<std::string>& names) {
  for (const auto& [name, member] : value.items()) {
    if (value.is_object()) names.insert(name);
    if (member.is_structured()) gatherNames(member, names);
  }
}

}  // namespace

TEST_F(StationServe, itsDocumentNamesEachMemberOfTheState) {
  bundle_.configure(TroubleBundle::test("Volts", "") +
                        TroubleBundle::test("Question", TroubleBundle::text("ask", "choose") +
                                                            TroubleBundle::text("timeOut", "60")) +
                        TroubleBundle::test("Amps", TroubleBundle::text("value", "2.7")),
                    TroubleBundle::text("part", "P7") + TroubleBundle::text("process", "final"));
  serveReady({"--operator", "Ann"});
  EXPECT_EQ(scan("A"), "");
  ASSERT_TRUE(becomes("left", "ASKING"));
  std::set<std::string> names;
  gatherNames(state(), names);
  EXPECT_EQ(order({{"command", "answer"},
                   {"site", "left"},
                   {"question", site("left")["question"]["id"]},
                   {"answer", "red"}}),
            "");
  ASSERT_TRUE(becomes("left", "FAIL"));
  gatherNames(state(), names);
  names.erase("left");
  names.erase("right");
  names.erase("spare");
  EXPECT_THAT(names, testing::IsSupersetOf({"question", "verdict", "last", "operator", "today"}));
  std::ifstream file(STATION_API);
  const std::string document{std::istreambuf_iterator<char>(file), {}};
  for (const std::string& name : names) EXPECT_THAT(document, HasSubstr("`" + name + "`"));
}

TEST_F(StationServe, forwardsWhileItTestsAndTellsHowItStands) {
  test::PostgresServer server;
  results::Server owner{results::ServerAddress(server.url())};
  results::prepare(owner);
  server.ask("CREATE ROLE station LOGIN IN ROLE quillon_station");
  bundle_.configure(TroubleBundle::test("Volts", TroubleBundle::text("value", "1.7")));
  serveReady({"--forward-to", server.url("station")});
  EXPECT_EQ(scan("A"), "");
  ASSERT_TRUE(becomes("left", "PASS"));
  ASSERT_TRUE(soon([&] { return server.ask("SELECT serial FROM run") == "A\n"; }));
  EXPECT_EQ(server.ask("SELECT count(*) FROM measurement"), "1\n");

  server.kill();
  EXPECT_EQ(scan("B"), "");
  ASSERT_TRUE(soon([&] {
    const json forwarding = state()["forwarding"];
    return forwarding.contains("trouble") && forwarding["waiting"] == 1;
  })) << state()["forwarding"].dump();
  std::ifstream file(STATION_API);
  const std::string document{std::istreambuf_iterator<char>(file), {}};
  const json forwarding = state()["forwarding"];
  EXPECT_GT(forwarding["oldestAt"], 0);
  for (const auto& [name, value] : forwarding.items()) {
    EXPECT_THAT(document, HasSubstr("`" + name + "`"));
  }
  EXPECT_THAT(state()["notices"].dump(), HasSubstr("nothing is lost"));
  EXPECT_THAT(
      HttpClient(address_).get("/metrics").body,
      AllOf(HasSubstr("quillon_forward_up 0\n"), HasSubstr("quillon_forward_waiting_runs 1\n"),
            testing::ContainsRegex("quillon_forward_oldest_seconds [0-9.e-]*[1-9]"),
            HasSubstr("quillon_forward_parked_runs 0\n"),
            HasSubstr("quillon_forward_sent_total 1\n")));

  server.start();
  ASSERT_TRUE(soon([&] { return server.ask("SELECT count(*) FROM run") == "2\n"; }));
  ASSERT_TRUE(soon([&] { return !state()["forwarding"].contains("trouble"); }));
  EXPECT_EQ(state()["forwarding"]["waiting"], 0);
  station_->send(SIGTERM);
  EXPECT_EQ(station_->wait(), 0);
}

TEST_F(StationServe, knowsEachCommandOfItsDocument) {
  bundle_.configure(TroubleBundle::test("Volts", ""));
  serveReady();
  std::ifstream document(STATION_API);
  std::string line;
  while (std::getline(document, line) && !line.starts_with("| command | parts")) {
  }
  std::getline(document, line);
  int known = 0;
  while (std::getline(document, line) && line.starts_with("| `")) {
    const std::string names = line.substr(0, line.find('|', 2));
    for (std::size_t start = 0; (start = names.find('`', start)) != std::string::npos;) {
      const std::size_t end = names.find('`', start + 1);
      const std::string name = names.substr(start + 1, end - start - 1);
      EXPECT_THAT(reply({{"command", name}}).body, Not(HasSubstr("there is no command"))) << name;
      ++known;
      start = end + 1;
    }
  }
  EXPECT_EQ(known, 13);
}

TEST_F(StationServe, refusesAnAddressThatIsTaken) {
  bundle_.configure(TroubleBundle::test("Volts", ""));
  serve();
  StationProcess second({"serve", bundle_.path(), "--listen", address_});
  EXPECT_EQ(second.wait(), 2);
  EXPECT_THAT(second.errors(), HasSubstr("quillon: cannot serve the page: "));
  StationProcess open({"serve", bundle_.path(), "--listen", "0.0.0.0:0"});
  EXPECT_EQ(open.wait(), 2);
  EXPECT_THAT(open.errors(), HasSubstr("token"));
}
