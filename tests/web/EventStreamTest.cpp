#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/Eventually.h"
#include "support/Watchdog.h"
#include "web/Server.h"
#include "web/TestSite.h"

namespace {

using test::Event;
using test::HttpClient;
using test::Reply;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using Json = nlohmann::json;
using std::chrono::milliseconds;

/// A page's view of the state, made of the events that it gets.
class Page {
 public:
  explicit Page(const std::string& address, const std::string& lastEventId = "", int buffer = 0)
      : client_(address, buffer) {
    client_.request("GET", "/api/1/events",
                    lastEventId.empty() ? "" : "Last-Event-ID: " + lastEventId);
    header_ = client_.header();
  }

  /// Takes the next event that changes the state.
  Event next() {
    Event event = client_.event();
    while (event.name != "snapshot" && event.name != "delta") event = client_.event();
    if (event.name == "snapshot") {
      state_ = event.json();
    } else {
      state_.merge_patch(event.json());
    }
    id_ = event.id;
    return event;
  }

  /// Takes events until the state has this value.
  void until(const std::string& name, const Json& value) {
    while (state_.value(name, Json()) != value) next();
  }

  HttpClient& client() { return client_; }
  const Reply& header() const { return header_; }
  const Json& state() const { return state_; }
  const std::string& id() const { return id_; }

 private:
  HttpClient client_;
  Reply header_;
  Json state_ = Json::object();
  std::string id_;
};

class EventStream : public testing::Test {
 protected:
  static web::Options options() {
    web::Options options = test::testOptions();
    options.limits.heartbeat = milliseconds(20);
    return options;
  }

  const test::Watchdog watchdog_;
  test::TestSite site_;
  web::Server server_{options(), site_};
};

TEST_F(EventStream, BeginsWithTheWholeState) {
  site_.set("a", 1);
  Page page(server_.address());
  EXPECT_EQ(page.header().status, 200);
  EXPECT_EQ(page.header().field("Content-Type"), "text/event-stream");
  EXPECT_EQ(page.header().field("Cache-Control"), "no-store");
  const Event first = page.next();
  EXPECT_EQ(first.name, "snapshot");
  EXPECT_EQ(page.state()["a"], 1);
  EXPECT_EQ(first.id, page.state()["epoch"].get<std::string>() + ".1");
}

TEST_F(EventStream, GoesOnWithWhatChanged) {
  site_.set("a", Json({{"x", 1}, {"y", 1}}));
  Page page(server_.address());
  page.next();
  site_.set("a", Json({{"x", 2}}));
  const Event delta = page.next();
  EXPECT_EQ(delta.name, "delta");
  Json patch = delta.json();
  EXPECT_GT(patch["now"], 0);
  patch.erase("now");
  EXPECT_EQ(patch, Json({{"a", {{"x", 2}, {"y", nullptr}}}, {"sequence", 2}}));
  EXPECT_EQ(delta.id, page.state()["epoch"].get<std::string>() + ".2");
  Json now = HttpClient(server_.address()).get("/api/1/state").json();
  now["now"] = page.state()["now"];
  EXPECT_EQ(page.state(), now);
}

TEST_F(EventStream, IsTheSameForEveryPage) {
  Page first(server_.address());
  first.next();
  site_.set("a", 1);
  first.until("a", 1);
  Page second(server_.address());
  second.next();
  for (int i = 2; i < 30; ++i) {
    site_.set("a", i);
    site_.set("b" + std::to_string(i % 3), i);
  }
  site_.set("last", true);
  first.until("last", true);
  second.until("last", true);
  EXPECT_EQ(first.state(), second.state());
  EXPECT_EQ(first.id(), second.id());
}

TEST_F(EventStream, ContinuesWhereItWasBrokenOff) {
  std::string id;
  {
    Page page(server_.address());
    page.next();
    for (int i = 1; i <= 3; ++i) {
      site_.set("a", i);
      page.until("a", i);
      if (i == 1) id = page.id();
    }
  }
  ASSERT_TRUE(test::eventually([this] { return server_.counts().streams == 0; }));
  site_.set("a", 4);
  Page page(server_.address(), id);
  for (int i = 2; i <= 4; ++i) {
    const Event event = page.next();
    EXPECT_EQ(event.name, "delta");
    EXPECT_EQ(event.json()["a"], i);
  }
}

TEST_F(EventStream, ThatMissedNothingGetsNothingAnew) {
  site_.set("a", 1);
  std::string id;
  {
    Page page(server_.address());
    id = page.next().id;
  }
  Page page(server_.address(), id);
  EXPECT_EQ(page.client().event().name, "heartbeat");
  site_.set("a", 2);
  EXPECT_EQ(page.next().json()["a"], 2);
}

TEST_F(EventStream, BeginsAnewAfterEventsOfAnotherServer) {
  site_.set("a", 1);
  std::string id;
  {
    const web::Server other(options(), site_);
    id = Page(other.address()).next().id;
  }
  const std::string own = Page(server_.address()).next().id;
  const std::string epoch = own.substr(0, own.find('.') + 1);
  EXPECT_NE(id, own);
  for (const std::string& after :
       {id, epoch + "7", epoch + "-1", epoch + "x", epoch, std::string("x")}) {
    EXPECT_EQ(Page(server_.address(), after).next().name, "snapshot") << after;
  }
}

TEST(EventStreamRing, ForgetsWhatIsTooOldOrTooMuch) {
  const test::Watchdog watchdog;
  for (const bool byCount : {true, false}) {
    test::TestSite site;
    web::Options options = test::testOptions();
    (byCount ? options.limits.keptDeltas : options.limits.keptDeltaBytes) = byCount ? 3 : 3 * 1100;
    const web::Server server(options, site);
    std::vector<std::string> ids;
    Page page(server.address());
    page.next();
    for (int i = 0; i < 5; ++i) {
      site.set("a", std::string(1000, static_cast<char>('a' + i)));
      ids.push_back(page.next().id);
    }
    EXPECT_EQ(Page(server.address(), ids[0]).next().name, "snapshot");
    EXPECT_EQ(Page(server.address(), ids[1]).next().name, "delta");
  }
}

TEST_F(EventStream, HasAHeartbeatWhenNothingHappens) {
  Page page(server_.address());
  std::int64_t last = 0;
  for (int i = 0; i < 3; ++i) {
    const Event beat = page.client().event("heartbeat");
    EXPECT_EQ(beat.id, "");
    EXPECT_GT(beat.json()["now"], last);
    last = beat.json()["now"];
  }
}

TEST_F(EventStream, CarriesTheRunningLog) {
  site_.log("before anybody listened");
  Page page(server_.address());
  page.next();
  site_.log("one");
  const Event event = page.client().event("log");
  EXPECT_EQ(event.id, "");
  EXPECT_EQ(event.json(), Json({{"lines", {"one"}}}));
  for (int i = 0; i < 1000; ++i) site_.log(std::to_string(i));
  std::string last;
  while (last != "999") {
    const Json lines = page.client().event("log").json()["lines"];
    EXPECT_LE(lines.size(), 200U);
    last = lines.back();
  }
}

TEST_F(EventStream, MakesAtMostOneDeltaInItsTime) {
  web::Options slow = options();
  slow.limits.delta = milliseconds(100);
  const web::Server server(slow, site_);
  Page page(server.address());
  page.next();
  const auto start = std::chrono::steady_clock::now();
  std::thread changing([this] {
    for (int i = 0; i < 100; ++i) {
      site_.set("a", i);
      std::this_thread::sleep_for(milliseconds(3));
    }
  });
  page.until("a", 99);
  changing.join();
  const auto took = std::chrono::steady_clock::now() - start;
  // One more at each end of the time.
  EXPECT_LE(server.counts().deltas, static_cast<std::uint64_t>(took / milliseconds(100)) + 2);
}

TEST_F(EventStream, GoesToAHundredPagesAtOnce) {
  std::vector<std::unique_ptr<Page>> pages;
  for (int i = 0; i < 120; ++i) pages.push_back(std::make_unique<Page>(server_.address()));
  EXPECT_EQ(server_.counts().streams, 120U);
  for (int i = 0; i < 20; ++i) {
    site_.set("a", i);
    site_.set("b", std::string(1000, 'b'));
    for (const auto& page : pages) page->until("a", i);
  }
  // Others are still served.
  EXPECT_EQ(HttpClient(server_.address()).get("/page.js").status, 200);
  pages.clear();
  EXPECT_TRUE(test::eventually([this] { return server_.counts().connections == 0; }));
  EXPECT_EQ(server_.counts().dropped, 0U);
}

TEST(EventStreamLimits, DropAPageThatDoesNotReadWhileOthersGoOn) {
  const test::Watchdog watchdog;
  test::TestSite site;
  web::Options options = test::testOptions();
  options.limits.queuedBytes = 64 * 1024;
  const web::Server server(options, site);
  Page reading(server.address());
  Page stuck(server.address(), "", 4096);
  int rounds = 0;
  while (server.counts().dropped == 0) {
    ++rounds;
    site.set("round", rounds);
    site.set("load", std::string(60'000, static_cast<char>('a' + rounds % 26)));
    reading.until("round", rounds);
  }
  EXPECT_EQ(server.counts().streams, 1U);
  EXPECT_TRUE(stuck.client().ends());
  site.set("round", "last");
  reading.until("round", "last");
}

TEST(EventStreamLimits, DropAPageThatTakesNothingForTooLong) {
  const test::Watchdog watchdog;
  test::TestSite site;
  web::Options options = test::testOptions();
  options.limits.send = milliseconds(30);
  options.limits.queuedBytes = std::size_t{1} << 30;
  const web::Server server(options, site);
  Page stuck(server.address(), "", 4096);
  site.set("load", std::string(10'000'000, 'x'));
  EXPECT_TRUE(test::eventually([&server] { return server.counts().dropped == 1; }));
}

TEST(EventStreamLimits, RefuseMoreStreamsThanThereMayBe) {
  const test::Watchdog watchdog;
  test::TestSite site;
  web::Options options = test::testOptions();
  options.limits.streams = 2;
  const web::Server server(options, site);
  auto first = std::make_unique<Page>(server.address());
  Page second(server.address());
  HttpClient third(server.address());
  const Reply refused = third.get("/api/1/events");
  EXPECT_EQ(refused.status, 503);
  EXPECT_THAT(refused.json()["message"], HasSubstr("Too many"));
  EXPECT_EQ(third.get("/icon.svg").status, 200);
  first.reset();
  EXPECT_TRUE(test::eventually([&server] { return server.counts().streams == 1; }));
  EXPECT_EQ(Page(server.address()).header().status, 200);
}

TEST_F(EventStream, SurvivesAStateThatCannotBeHad) {
  Page page(server_.address());
  page.next();
  site_.breakState(true);
  EXPECT_TRUE(test::eventually([this] { return server_.counts().failures > 0; }));
  site_.breakState(false);
  site_.set("a", 1);
  page.until("a", 1);
}

TEST_F(EventStream, EndsWithTheLastState) {
  Page page(server_.address());
  page.next();
  site_.set("station", "stopping");
  server_.stop();
  page.until("station", "stopping");
  EXPECT_TRUE(page.client().ends());
}

TEST_F(EventStream, TellsOfACommandAtOnce) {
  web::Options slow = options();
  slow.limits.delta = std::chrono::hours(1);
  const web::Server server(slow, site_);
  Page page(server.address());
  page.next();
  HttpClient client(server.address());
  client.post("/api/1/commands", test::pageFields(server.address()), test::commandText("a", "b"));
  EXPECT_EQ(page.next().json()["commands"], 1);
}

}  // namespace
