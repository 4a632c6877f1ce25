#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <thread>

#include "common/Files.h"
#include "support/Eventually.h"
#include "support/Watchdog.h"
#include "web/Server.h"
#include "web/TestSite.h"

namespace {

using test::commandText;
using test::HttpClient;
using test::Reply;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using Json = nlohmann::json;

class WebServer : public testing::Test {
 protected:
  const test::Watchdog watchdog_;
  test::TestSite site_;
  web::Server server_{test::testOptions(), site_};
  HttpClient client_{server_.address()};
};

TEST_F(WebServer, ServesItsFiles) {
  const Reply script = client_.get("/page.js?v=7");
  EXPECT_EQ(script.status, 200);
  EXPECT_EQ(script.field("Content-Type"), "text/javascript; charset=utf-8");
  EXPECT_EQ(script.body, quillon::internal::readWhole(WEB_TEST_FILES "/page.js"));
  EXPECT_EQ(client_.get("/modules/empty.txt").status, 200);
  EXPECT_EQ(client_.get("/page.html").status, 404);
}

TEST_F(WebServer, GivesAFileOnceToABrowserThatHasIt) {
  const std::string tag = client_.get("/page.js").field("ETag");
  ASSERT_THAT(tag, testing::MatchesRegex("\"[0-9a-f]{16}\""));
  const Reply again = client_.get("/page.js", "If-None-Match: W/" + tag);
  EXPECT_EQ(again.status, 304);
  EXPECT_EQ(client_.get("/page.js", "If-None-Match: \"other\"").status, 200);
}

TEST_F(WebServer, GivesThePageTheTokenOfItsSession) {
  const std::string token = client_.get("/api/1/session").json()["token"];
  EXPECT_THAT(token, testing::MatchesRegex("[0-9a-f]{32}"));
  const Reply page = client_.get("/");
  EXPECT_THAT(page.body, HasSubstr("<meta name=\"quillon-token\" content=\"" + token + "\">"));
  EXPECT_EQ(page.field("Cache-Control"), "no-store");
  EXPECT_EQ(client_.get("/index.html").body, page.body);
  const web::Server other(test::testOptions(), site_);
  EXPECT_THAT(HttpClient(other.address()).get("/").body, Not(HasSubstr(token)));
}

TEST(WebServerPage, WithoutAPlaceForTheTokenIsAMistake) {
  test::TestSite site;
  web::Options options{.address = "127.0.0.1:0", .files = {{"/index.html", "text/html", "<p>"}}};
  EXPECT_THROW(web::Server(options, site), std::invalid_argument);
}

TEST_F(WebServer, TellsBrowsersToBeStrict) {
  for (const char* path : {"/", "/page.js", "/api/1/state", "/none"}) {
    const Reply reply = client_.get(path);
    EXPECT_EQ(reply.field("X-Content-Type-Options"), "nosniff");
    EXPECT_EQ(reply.field("Referrer-Policy"), "no-referrer");
    EXPECT_THAT(reply.field("Content-Security-Policy"),
                StartsWith("default-src 'self'; img-src 'self' data:; frame-ancestors 'none'"));
    EXPECT_THAT(reply.field("Date"), testing::MatchesRegex("..., .. ... 20.. ..:..:.. GMT"));
    for (const auto& [name, value] : reply.fields) {
      EXPECT_THAT(name, Not(StartsWith("ACCESS-CONTROL"))) << value;
    }
  }
  EXPECT_EQ(client_.get("/api/1/state").field("Cache-Control"), "no-store");
}

TEST_F(WebServer, GivesTheState) {
  site_.set("station", {{"name", "line 3 \xe4"}});
  const Reply reply = client_.get("/api/1/state");
  EXPECT_EQ(reply.field("Content-Type"), "application/json");
  const Json state = reply.json();
  EXPECT_EQ(state["station"]["name"], "line 3 \xef\xbf\xbd");
  EXPECT_EQ(state["sequence"], 1);
  EXPECT_GT(state["now"].get<std::int64_t>(), 1'700'000'000'000'000);
  EXPECT_EQ(state["epoch"].get<std::string>().size(), 16U);
}

TEST_F(WebServer, AsksForAStateOnlyWhenItChanged) {
  site_.set("a", 1);
  for (int i = 0; i < 5; ++i) {
    client_.get("/api/1/state");
    std::this_thread::sleep_for(std::chrono::milliseconds(6));
  }
  EXPECT_EQ(site_.asked(), 1U);
}

TEST_F(WebServer, SaysWhyThereIsNoState) {
  site_.breakState(true);
  EXPECT_EQ(client_.get("/api/1/state").status, 500);
  EXPECT_EQ(client_.get("/api/1/state").json()["message"], "there is no state");
  site_.breakState(false);
  EXPECT_EQ(client_.get("/api/1/state").status, 200);
}

TEST_F(WebServer, HandsOtherPathsToTheSite) {
  const Json answer = client_.get("/api/1/runs/a%20b?most=5&serial=Q%26B+1&empty").json();
  EXPECT_EQ(answer["path"], "/api/1/runs/a b");
  EXPECT_EQ(answer["query"], Json({{"most", "5"}, {"serial", "Q&B 1"}, {"empty", ""}}));
  EXPECT_EQ(client_.get("/none").status, 404);
  EXPECT_EQ(client_.get("/throws").status, 500);
  EXPECT_EQ(client_.get("/throws").json()["message"], "the disk is gone");
}

TEST_F(WebServer, AnswersAHeadWithoutABody) {
  client_.request("HEAD", "/page.js");
  const Reply reply = client_.reply(true);
  EXPECT_EQ(reply.status, 200);
  EXPECT_EQ(reply.field("Content-Length"), std::to_string(client_.get("/page.js").body.size()));
  client_.request("HEAD", "/api/1/events");
  EXPECT_EQ(client_.reply(true).field("Content-Type"), "text/event-stream");
  EXPECT_EQ(client_.get("/api/1/state").status, 200);
}

TEST_F(WebServer, AnswersPipelinedRequestsInTheirOrder) {
  for (int i = 0; i < 50; ++i) {
    client_.request("GET", "/api/1/runs/a%20b?n=" + std::to_string(i));
    client_.request("GET", "/icon.svg");
  }
  for (int i = 0; i < 50; ++i) {
    EXPECT_EQ(client_.reply().json()["query"]["n"], std::to_string(i));
    EXPECT_THAT(client_.reply().body, StartsWith("<svg"));
  }
}

TEST_F(WebServer, SpeaksToClientsOfTheOldVersion) {
  client_.send("GET /icon.svg HTTP/1.0\r\nHost: " + server_.address() + "\r\n\r\n");
  const Reply reply = client_.reply();
  EXPECT_EQ(reply.status, 200);
  EXPECT_EQ(reply.field("Connection"), "close");
  EXPECT_TRUE(client_.ends());
}

TEST_F(WebServer, AnswersAClientThatHasEndedItsSide) {
  client_.request("GET", "/icon.svg");
  client_.endSending();
  EXPECT_EQ(client_.reply().status, 200);
  EXPECT_TRUE(client_.ends());
}

TEST_F(WebServer, StaysQuickWhileTheSiteReads) {
  client_.request("GET", "/slow");
  ASSERT_TRUE(test::eventually([this] { return site_.waiting() == 1; }));
  HttpClient other(server_.address());
  EXPECT_EQ(other.get("/api/1/state").status, 200);
  const std::string fields = test::pageFields(server_.address());
  EXPECT_EQ(other.post("/api/1/commands", fields, commandText("1", "go")).status, 200);
  site_.open();
  EXPECT_EQ(client_.reply().json()["path"], "/slow");
}

TEST_F(WebServer, ForgetsAClientThatLeftBeforeItsAnswer) {
  {
    HttpClient leaving(server_.address());
    leaving.request("GET", "/slow");
    ASSERT_TRUE(test::eventually([this] { return site_.waiting() == 1; }));
  }
  site_.open();
  EXPECT_EQ(client_.get("/slow").status, 200);
  EXPECT_TRUE(test::eventually([this] { return server_.counts().connections == 1; }));
}

TEST_F(WebServer, HandsCommandsToTheSite) {
  const std::string fields = test::pageFields(server_.address());
  const Reply reply = client_.post("/api/1/commands", fields, commandText("a", "start"));
  EXPECT_EQ(reply.status, 200);
  EXPECT_EQ(reply.json(), Json({{"done", true}, {"number", 1}}));
  // The state is the one after the command, however soon one asks.
  EXPECT_EQ(client_.get("/api/1/state").json()["commands"], 1);
}

TEST_F(WebServer, DoesACommandOnceHoweverOftenItComes) {
  const std::string fields = test::pageFields(server_.address());
  for (int i = 0; i < 3; ++i) {
    const Reply reply = client_.post("/api/1/commands", fields, commandText("a", "start"));
    EXPECT_EQ(reply.json()["number"], 1);
  }
  EXPECT_EQ(client_.post("/api/1/commands", fields, commandText("b", "start")).json()["number"], 2);
  EXPECT_EQ(site_.commands(), 2U);
}

TEST_F(WebServer, GivesARepeatedCommandThatIsUnderWayTheSameAnswer) {
  const std::string fields = test::pageFields(server_.address());
  HttpClient other(server_.address());
  client_.request("POST", "/api/1/commands", fields, commandText("a", "wait"));
  ASSERT_TRUE(test::eventually([this] { return site_.waiting() == 1; }));
  const auto before = server_.counts().requests;
  other.request("POST", "/api/1/commands", fields, commandText("a", "wait"));
  EXPECT_EQ(HttpClient(server_.address()).get("/api/1/state").status, 200);
  EXPECT_EQ(server_.counts().requests, before + 1);
  site_.open();
  EXPECT_EQ(client_.reply().json()["number"], 1);
  EXPECT_EQ(other.reply().json()["number"], 1);
  EXPECT_EQ(site_.commands(), 1U);
}

TEST_F(WebServer, AnswersACommandThatThrowsAndKeepsThatAnswer) {
  const std::string fields = test::pageFields(server_.address());
  for (int i = 0; i < 2; ++i) {
    const Reply reply = client_.post("/api/1/commands", fields, commandText("a", "throw"));
    EXPECT_EQ(reply.status, 500);
    EXPECT_EQ(reply.json()["message"], "this cannot be done");
  }
}

TEST(WebServerCommands, ForgetsTheOldestAnswers) {
  test::TestSite site;
  web::Options options = test::testOptions();
  options.limits.keptAnswers = 2;
  const web::Server server(options, site);
  HttpClient client(server.address());
  const std::string fields = test::pageFields(server.address());
  for (const char* id : {"a", "b", "c", "b", "a"}) {
    client.post("/api/1/commands", fields, commandText(id, "start"));
  }
  EXPECT_EQ(site.commands(), 4U);
}

TEST(WebServerEnd, AnswersWhatIsUnderWay) {
  const test::Watchdog watchdog;
  test::TestSite site;
  web::Server server(test::testOptions(), site);
  HttpClient client(server.address());
  HttpClient idle(server.address());
  EXPECT_EQ(idle.get("/icon.svg").status, 200);
  client.request("GET", "/slow");
  ASSERT_TRUE(test::eventually([&site] { return site.waiting() == 1; }));
  std::thread opening([&site] { site.open(); });
  server.stop();
  opening.join();
  EXPECT_EQ(client.reply().status, 200);
  EXPECT_TRUE(client.ends());
  EXPECT_TRUE(idle.ends());
  server.stop();
}

TEST(WebServerListening, TellsWhichProcessHasThePort) {
  test::TestSite site;
  const web::Server first(test::testOptions(), site);
  web::Options options = test::testOptions();
  options.address = first.address();
  try {
    const web::Server second(options, site);
    ADD_FAILURE() << "there are two";
  } catch (const web::CannotListen& e) {
    EXPECT_EQ(e.what(), "cannot listen at " + first.address() + ": it is in use by process " +
                            std::to_string(::getpid()) + " (WebServerTest)");
  }
}

TEST(WebServerListening, CanStartAgainWhereOneHasEnded) {
  test::TestSite site;
  web::Options options = test::testOptions();
  {
    web::Server first(options, site);
    options.address = first.address();
    HttpClient client(first.address());
    client.get("/icon.svg");
  }
  const web::Server second(options, site);
  EXPECT_EQ(HttpClient(second.address()).get("/icon.svg").status, 200);
}

TEST(WebServerListening, WorksWithTheOtherInternetProtocol) {
  test::TestSite site;
  web::Options options = test::testOptions();
  options.address = "[::1]:0";
  if (!std::ifstream("/proc/net/if_inet6").good()) GTEST_SKIP() << "there is none here";
  const web::Server server(options, site);
  EXPECT_THAT(server.address(), StartsWith("[::1]:"));
  EXPECT_EQ(HttpClient(server.address()).get("/icon.svg").status, 200);
}

TEST(WebServerListening, SaysWhichAddressIsNone) {
  test::TestSite site;
  for (const char* address : {"8800", "127.0.0.1", "127.0.0.1:x", "127.0.0.1:70000", "::1:8800",
                              "[127.0.0.1]:1", "nobody.example:80", ":80", ""}) {
    web::Options options = test::testOptions();
    options.address = address;
    EXPECT_THAT([&] { web::Server(options, site); },
                testing::ThrowsMessage<web::CannotListen>(HasSubstr("no address to listen at")))
        << address;
  }
  web::Options options = test::testOptions();
  options.address = "192.0.2.1:0";  // nobody's
  options.token = "0123456789abcdef";
  EXPECT_THAT([&] { web::Server(options, site); },
              testing::ThrowsMessage<web::CannotListen>(StartsWith("cannot listen at 192.0.2.1")));
}

}  // namespace
