#include "results/central/Forwarder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include "central/Fleet.h"
#include "results/Clock.h"
#include "results/Content.h"
#include "results/ReportQueries.h"
#include "results/Sha256.h"
#include "results/Uuid.h"
#include "results/central/ForwardQueue.h"
#include "results/central/ForwardState.h"
#include "support/Eventually.h"
#include "support/TcpPeer.h"

namespace {

using results::Forwarder;
using results::ForwardState;
using results::ForwardStatus;
using results::Parked;
using results::Store;
using results::Verdict;
using test::CentralServer;
using test::FleetStation;
using test::testDevice;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class Forwarding : public testing::Test {
 protected:
  void pass() { Forwarder(station.forwarding(server.url("station"))).pass(); }
  std::vector<Parked> parked() {
    return ForwardState(station.folder.options.file, name()).parked();
  }
  std::string name() const { return results::ServerAddress(server.url("station")).name(); }
  /// Changes the store behind the station's back.
  void damage(const std::string& statement) const {
    sqlite3* opened = nullptr;
    ASSERT_EQ(sqlite3_open(station.folder.options.file.c_str(), &opened), SQLITE_OK);
    const std::unique_ptr<sqlite3, int (*)(sqlite3*)> file(opened, sqlite3_close);
    char* error = nullptr;
    EXPECT_EQ(sqlite3_exec(opened, statement.c_str(), nullptr, nullptr, &error), SQLITE_OK)
        << error;
    sqlite3_free(error);
  }

  CentralServer server;
  FleetStation station;
};

std::string column(const std::optional<std::string>& field) { return field.value_or("(null)"); }

TEST_F(Forwarding, BringsARunWithAllThatBelongsToIt) {
  Store store(station.folder.options);
  const std::string id = testDevice(store, "QB-1", 3, [](results::Run& run) {
    run.operatorName = "Ann \"the\" \\ 'first'\t\n";
    run.part = "";
  });
  store.recordEvent({"", 0, 0, "answered", "left", id, "Ann", "yes"});
  pass();
  const results::RunContent content = station.folder.content(id);
  EXPECT_EQ(server.ask("SELECT id, serial, operator, part, batch IS NULL, sha256, records, verdict "
                       "FROM run",
                       "reader"),
            id + "|QB-1|" + column(content.run.operatorName) + "||t|" + column(content.run.sha256) +
                "|3|PASS\n");
  EXPECT_EQ(server.ask("SELECT count(*) FROM measurement m JOIN spec s ON s.id = m.spec_id "
                       "WHERE m.value = m.sequence / 7.0::double precision AND s.low = 4.75"),
            "3\n");
  EXPECT_EQ(server.ask("SELECT value FROM attribute"), "tab\there, \\ and\nline\n");
  EXPECT_EQ(server.ask("SELECT i.model, u.state FROM run_instrument u JOIN instrument i "
                       "ON i.id = u.instrument_id"),
            "meter|valid\n");
  EXPECT_EQ(server.ask("SELECT p.bundle, t.name, e.sequence, e.text FROM run r "
                       "JOIN plan p ON p.id = r.plan_id JOIN station t ON t.id = r.station_id "
                       "JOIN event e ON e.run_id = r.id"),
            "board-test|line 1|1|yes\n");
  EXPECT_EQ(server.ask("SELECT waiting, parked, runs, last_run_id, version FROM station_state"),
            "0|0|1|" + id + "|0.1.0\n");
}

TEST_F(Forwarding, SendsNothingTwiceAndRunsOnlyWhenTheyHaveEnded) {
  Store store(station.folder.options);
  const std::string open = store.beginRun(test::sampleRun("QB-open"), test::samplePlan()).id;
  testDevice(store, "QB-1");
  store.recordEvent({"", 0, 0, "stopped", {}, {}, {}, "all"});
  pass();
  const std::string first = test::tablesOf(server);
  EXPECT_EQ(server.ask("SELECT serial FROM run"), "QB-1\n");
  pass();
  EXPECT_EQ(test::tablesOf(server), first);
  // The memory of what was sent is no more than that.
  for (const char* const part : {"", "-wal", "-shm"}) {
    std::filesystem::remove(ForwardState::fileOf(station.folder.options.file).string() + part);
  }
  store.finishRun(open, {Verdict::Fail, {}, {}, 0});
  testDevice(store, "QB-2");
  pass();
  EXPECT_EQ(server.ask("SELECT serial, verdict FROM run ORDER BY serial"),
            "QB-1|PASS\nQB-2|PASS\nQB-open|FAIL\n");
  EXPECT_EQ(server.ask("SELECT count(*) FROM event"), "1\n");
  EXPECT_EQ(server.ask("SELECT runs FROM station_state"), "3\n");
}

TEST_F(Forwarding, ARunThatEndsAfterLaterOnesIsNotForgotten) {
  Store store(station.folder.options);
  const std::string open = store.beginRun(test::sampleRun("QB-open"), test::samplePlan()).id;
  testDevice(store, "QB-1");
  pass();
  store.finishRun(open, {Verdict::Fail, {}, {}, 0});
  pass();
  EXPECT_EQ(server.ask("SELECT serial FROM run ORDER BY serial"), "QB-1\nQB-open\n");
}

TEST_F(Forwarding, AnotherContentOfTheSameRunIsParkedAndNeverOverwritten) {
  Store store(station.folder.options);
  const std::string id = testDevice(store, "QB-1");
  server.ask("SELECT make_month(now_us())");
  server.ask(
      "INSERT INTO run (id, station_id, site, run_index, serial, plan_id, kind, started_us, "
      "verdict, records, sha256) VALUES ('" +
      id + "', 's', 'left', 1, 'QB-other', 'p', 'production', 0, 'PASS', 0, 'x')");
  testDevice(store, "QB-2");
  pass();
  EXPECT_EQ(server.ask("SELECT serial FROM run ORDER BY serial"), "QB-2\nQB-other\n");
  ASSERT_EQ(parked().size(), 1U);
  EXPECT_EQ(parked()[0].runId, id);
  EXPECT_THAT(parked()[0].reason, HasSubstr("ALARM"));
  EXPECT_EQ(server.ask("SELECT parked, waiting FROM station_state"), "0|0\n");
  // A person takes care of it, and has it tried again.
  server.ask("DELETE FROM run WHERE id = '" + id + "'");
  EXPECT_EQ(ForwardState(station.folder.options.file, name()).retry({id}), 1);
  pass();
  EXPECT_THAT(parked(), IsEmpty());
  EXPECT_EQ(server.ask("SELECT serial FROM run ORDER BY serial"), "QB-1\nQB-2\n");
}

TEST_F(Forwarding, WhatWasChangedInTheStoreIsParkedAndTheOthersGo) {
  std::vector<std::string> ids;
  {
    Store store(station.folder.options);
    for (int i = 0; i < 8; ++i) ids.push_back(testDevice(store, "QB-" + std::to_string(i)));
  }
  damage("UPDATE measurement SET value = 9 WHERE run_id = '" + ids[2] + "' AND sequence = 1");
  damage("UPDATE run SET verdict = 'MAYBE' WHERE id = '" + ids[3] + "'");
  damage("UPDATE run SET sha256 = NULL WHERE id = '" + ids[4] + "'");
  pass();
  EXPECT_EQ(server.ask("SELECT string_agg(serial, ' ' ORDER BY serial) FROM run"),
            "QB-0 QB-1 QB-5 QB-6 QB-7\n");
  std::map<std::string, std::string> reasons;
  for (const Parked& parked : parked()) reasons[parked.runId] = parked.reason;
  EXPECT_EQ(reasons.size(), 3U);
  EXPECT_THAT(reasons[ids[2]], HasSubstr("not what its sum says"));
  EXPECT_THAT(reasons[ids[3]], HasSubstr("MAYBE"));
  EXPECT_THAT(reasons[ids[4]], HasSubstr("no sum"));
  EXPECT_EQ(server.ask("SELECT count(*) FROM measurement"), "15\n");
}

TEST_F(Forwarding, AnIdThatIsNoneKeepsNoOtherBack) {
  {
    Store store(station.folder.options);
    for (int i = 0; i < 4; ++i) testDevice(store, "QB-" + std::to_string(i));
  }
  damage("UPDATE run SET id = CAST(X'7DFF22' AS TEXT) WHERE serial = 'QB-1'");
  damage("UPDATE run SET id = 'a' || char(0) || 'b' WHERE serial = 'QB-2'");
  pass();
  EXPECT_EQ(server.ask("SELECT serial FROM run ORDER BY serial"), "QB-0\nQB-3\n");
  ASSERT_EQ(parked().size(), 2U);
  EXPECT_THAT(parked()[0].reason, HasSubstr("its id tells no time"));
}

TEST_F(Forwarding, AnEventThatCannotGoIsParkedAndTriedAgain) {
  Store store(station.folder.options);
  testDevice(store, "QB-1");
  for (const char* const text : {"first", "second", "third"}) {
    store.recordEvent({"", 0, 0, "stopped", {}, {}, {}, text});
  }
  damage("UPDATE event SET text = CAST(X'FF' AS TEXT) WHERE text <> 'first'");
  const std::string texts = "SELECT string_agg(text, ' ' ORDER BY sequence) FROM event";
  pass();
  EXPECT_EQ(server.ask(texts), "first\n");
  ASSERT_EQ(parked().size(), 2U);
  EXPECT_THAT(parked()[0].runId, testing::StartsWith("event 2 of "));
  EXPECT_THAT(parked()[0].reason, HasSubstr("no UTF-8"));

  damage("UPDATE event SET text = 'mended' || sequence WHERE text <> 'first'");
  // A person asks for one of them while a pass is under way, which has looked for such already.
  bool isAsked = false;
  testDevice(store, "QB-2");
  Forwarder forwarder(station.forwarding(server.url("station")), [&](const ForwardStatus& status) {
    if (isAsked || status.sent == 0) return;
    isAsked = true;
    ForwardState state(station.folder.options.file, name());
    EXPECT_EQ(state.retry({state.parked().at(0).runId}), 1);
  });
  forwarder.pass();
  EXPECT_TRUE(isAsked);
  forwarder.pass();
  EXPECT_EQ(server.ask(texts), "first mended2 mended3\n");
  EXPECT_THAT(parked(), IsEmpty()) << "the other one went with it";
  EXPECT_EQ(forwarder.status().parked, 0);
}

TEST_F(Forwarding, ASubTestThatWasChangedParksItsRuns) {
  {
    Store store(station.folder.options);
    testDevice(store, "QB-1", 1);
    testDevice(store, "QB-2", 2);
  }
  damage("UPDATE spec SET low = 0 WHERE number = '1.2'");
  pass();
  EXPECT_EQ(server.ask("SELECT serial FROM run"), "QB-1\n");
  ASSERT_EQ(parked().size(), 1U);
  EXPECT_THAT(parked()[0].reason, HasSubstr("its spec"));
}

TEST_F(Forwarding, OneRunThatTheServerRefusesKeepsNoOtherBack) {
  Store store(station.folder.options);
  std::string longOne;  // than an entry of an index may be
  for (int i = 0; i < 200; ++i) longOne += results::sha256(std::to_string(i));
  for (int i = 0; i < 20; ++i) testDevice(store, i == 13 ? longOne : std::to_string(i));
  pass();
  EXPECT_EQ(server.ask("SELECT count(*), max(length(serial)) FROM run"), "19|2\n");
  ASSERT_EQ(parked().size(), 1U);
  EXPECT_THAT(parked()[0].reason, HasSubstr("index row"));
  EXPECT_EQ(server.ask("SELECT count(*) FROM measurement"), "57\n");
}

TEST_F(Forwarding, ClocksMayBeOff) {
  constexpr std::int64_t kYear = 365LL * 86'400'000'000;
  Store store(station.folder.options);
  testDevice(store, "QB-1", 1, [](results::Run& run) { run.startedUs = 1000; });
  testDevice(store, "QB-2", 1,
             [](results::Run& run) { run.startedUs = results::microsecondsNow() + 3 * kYear; });
  pass();
  EXPECT_THAT(parked(), IsEmpty());
  // Each is found among the ids of its time.
  EXPECT_EQ(server.ask("SELECT serial FROM run, run_ids(0, 2000) i WHERE id >= i.low AND id < "
                       "i.high AND started_us < 2000"),
            "QB-1\n");
  EXPECT_EQ(server.ask("SELECT serial FROM run, run_ids(now_us() + 86400000000 * 900, NULL) i "
                       "WHERE id >= i.low AND id < i.high AND started_us > now_us()"),
            "QB-2\n");
}

TEST_F(Forwarding, RunsOfADroppedMonthAreNotWantedAnyMore) {
  Store store(station.folder.options);
  testDevice(store, "QB-1");
  pass();
  server.ask("SELECT drop_month(to_char(now() AT TIME ZONE 'UTC', 'YYYY_MM'))");
  std::filesystem::remove(ForwardState::fileOf(station.folder.options.file));
  testDevice(store, "QB-2");
  pass();
  EXPECT_THAT(parked(), IsEmpty());
  EXPECT_EQ(server.ask("SELECT count(*) FROM run"), "0\n");
}

TEST_F(Forwarding, AMonthThatIsDroppedMeanwhileStaysAway) {
  Store store(station.folder.options);
  testDevice(store, "QB-1");
  Forwarder forwarder(station.forwarding(server.url("station")));
  forwarder.pass();
  server.ask("SELECT drop_month(to_char(now() AT TIME ZONE 'UTC', 'YYYY_MM'))");
  testDevice(store, "QB-2");
  forwarder.pass();
  forwarder.pass();
  EXPECT_THAT(parked(), IsEmpty());
  EXPECT_EQ(forwarder.status().waiting, 0);
  EXPECT_EQ(server.ask("SELECT count(*) FROM run"), "0\n");
  EXPECT_EQ(server.ask("SELECT runs, parked FROM station_state"), "1|0\n");
  // Between looking for the month and adding to it: it is looked for once more.
  EXPECT_FALSE(results::ServerError("no partition", "23514").isOfData());
}

TEST_F(Forwarding, RunsArriveInTheOrderInWhichTheyBegan) {
  Store store(station.folder.options);
  std::string serials;
  for (int i = 0; i < 9; ++i) {
    testDevice(store, "QB-" + std::to_string(9 - i));
    serials += "QB-" + std::to_string(9 - i) + '\n';
  }
  auto options = station.forwarding(server.url("station"));
  options.batchRuns = 2;
  Forwarder(options).pass();
  EXPECT_EQ(server.ask("SELECT serial FROM run ORDER BY tableoid, ctid"), serials);
}

TEST_F(Forwarding, ARunThatEndedLateIsMissedWhenTheServerHasLostIt) {
  Store store(station.folder.options);
  const std::string open = store.beginRun(test::sampleRun("QB-open"), test::samplePlan()).id;
  testDevice(store, "QB-1");
  pass();
  store.finishRun(open, {Verdict::Fail, {}, {}, 0});
  pass();
  server.ask("DELETE FROM run WHERE serial = 'QB-open'");  // as a copy of an hour ago lacks it
  pass();
  EXPECT_EQ(server.ask("SELECT serial FROM run ORDER BY serial"), "QB-1\nQB-open\n");
}

TEST_F(Forwarding, AServerThatLostRunsGetsThemAgain) {
  Store store(station.folder.options);
  testDevice(store, "QB-1");
  pass();
  testDevice(store, "QB-2");
  pass();
  const std::string all = test::tablesOf(server);
  server.ask(
      "DELETE FROM run; DELETE FROM measurement; DELETE FROM step; DELETE FROM attribute; "
      "DELETE FROM run_instrument");
  pass();
  EXPECT_EQ(test::tablesOf(server), all);
}

TEST_F(Forwarding, AnotherStoreInTheSamePlaceIsSentFromItsBeginning) {
  {
    Store store(station.folder.options);
    testDevice(store, "QB-1");
    store.recordEvent({"", 0, 0, "stopped", {}, {}, {}, "first"});
  }
  pass();
  for (const char* const part : {"", "-wal", "-shm"}) {
    std::filesystem::remove(station.folder.options.file.string() + part);
  }
  Store store(station.folder.options);
  testDevice(store, "QB-2");
  store.recordEvent({"", 0, 0, "stopped", {}, {}, {}, "second"});
  pass();
  EXPECT_EQ(server.ask("SELECT serial FROM run ORDER BY serial"), "QB-1\nQB-2\n");
  EXPECT_EQ(server.ask("SELECT sequence, text FROM event ORDER BY sequence"),
            "1|first\n2|second\n");
}

TEST_F(Forwarding, AClockThatWasSetBackLeavesNoTimeToCome) {
  const Store store(station.folder.options);
  ForwardState state(station.folder.options.file, name());
  state.enter(results::ForwardNote{0, "", 0, results::microsecondsNow() + 86'400'000'000});
  pass();
  EXPECT_LE(state.note().reachedUs, results::microsecondsNow());
}

TEST_F(Forwarding, AServerThatWasNeverReachedIsRememberedOnlyWhereItIsTriedForEver) {
  const auto& file = station.folder.options.file;
  Store store(station.folder.options);
  testDevice(store, "QB-1");
  const auto wrong = station.forwarding("postgresql://station@/nowhere?host=/nowhere");
  EXPECT_THROW(Forwarder(wrong).pass(), results::ServerError);
  EXPECT_THAT(ForwardState::serversOf(file), IsEmpty());
  pass();
  EXPECT_THAT(ForwardState::serversOf(file), testing::ElementsAre(name()));
  Forwarder forwarder(wrong);
  const std::jthread thread([&](const std::stop_token& stop) { forwarder.follow(stop); });
  EXPECT_TRUE(test::eventually([&] { return ForwardState::serversOf(file).size() == 2; }));
}

/// Somebody else on the station's computer.
TEST_F(Forwarding, WhoMayOnlyReadSeesWhatIsParked) {
  const auto& file = station.folder.options.file;
  {
    Store store(station.folder.options);
    testDevice(store, "QB-1");
    testDevice(store, "QB-2");
  }
  damage("UPDATE run SET sha256 = NULL WHERE serial = 'QB-1'");
  pass();
  EXPECT_EQ(std::filesystem::file_size(ForwardState::fileOf(file).string() + "-wal"), 0U);
  const auto serials = [&] {
    std::string all;
    for (const auto& queue : results::forwardQueues(file)) {
      for (const auto& run : queue.parked) all += queue.status.server + ' ' + run.serial;
    }
    return all;
  };
  EXPECT_EQ(serials(), name() + " QB-1");
  const std::filesystem::path folder = file.parent_path();
  using std::filesystem::perms;
  std::filesystem::permissions(folder, perms::owner_write, std::filesystem::perm_options::remove);
  std::filesystem::permissions(
      folder, perms::group_read | perms::group_exec | perms::others_read | perms::others_exec,
      std::filesystem::perm_options::add);
  EXPECT_EXIT(
      {
        constexpr uid_t kNobody = 65534;
        if (geteuid() == 0 && setuid(kNobody) != 0) std::_Exit(2);
        try {
          std::cerr << serials() << '\n';
        } catch (const std::exception& error) {
          std::cerr << error.what() << '\n';
        }
        std::_Exit(0);
      },
      testing::ExitedWithCode(0), "QB-1");
  std::filesystem::permissions(folder, perms::owner_all);
}

TEST_F(Forwarding, TwoForwardersOfAStoreAreOneTooMany) {
  const Store store(station.folder.options);
  const Forwarder first(station.forwarding(server.url("station")));
  EXPECT_THAT(test::errorOf([&] { pass(); }),
              HasSubstr("is forwarded already, by process " + std::to_string(getpid())));
}

TEST_F(Forwarding, APasswordComesFromItsFileAndIsNeverTold) {
  Store store(station.folder.options);
  testDevice(store, "QB-1");
  server.ask("ALTER ROLE station PASSWORD 'hunter2'");
  std::string access = server.ask("SHOW hba_file");
  access.pop_back();
  std::ofstream(access) << "local all station scram-sha-256\nlocal all all trust\n";
  server.ask("SELECT pg_reload_conf()");
  const auto reason = [&]() -> std::string {
    try {
      pass();
    } catch (const results::ServerError& error) {
      return error.what();
    }
    return "";
  };
  const auto passwords = [&](const std::string& password) {
    const auto file = station.folder.folder.write("passwords", "*:*:*:station:" + password + '\n');
    std::filesystem::permissions(file, std::filesystem::perms::owner_read);
    setenv("PGPASSFILE", file.c_str(), 1);
  };
  ASSERT_TRUE(test::eventually([&] { return !reason().empty(); }));
  EXPECT_THAT(reason(), HasSubstr("no password supplied"));
  passwords("hunter3");
  EXPECT_THAT(reason(),
              AllOf(HasSubstr("password authentication failed"), Not(HasSubstr("hunter"))));
  std::filesystem::remove(station.folder.folder.path() / "passwords");
  testDevice(store, "QB-2");
  passwords("hunter2");
  EXPECT_EQ(reason(), "");
  unsetenv("PGPASSFILE");
  EXPECT_EQ(server.ask("SELECT count(*) FROM run"), "2\n");
}

TEST(ForwardingLine, AServerThatSaysNothingIsGivenUpAndAStopIsHeard) {
  const test::TcpPeer peer;
  const results::ServerAddress address(
      "postgresql://line@127.0.0.1:" + std::to_string(peer.port()) + "/quillon?sslmode=disable");
  results::Server::Limits limits;
  limits.silence = std::chrono::milliseconds(100);
  const auto reason = [&]() -> std::string {
    try {
      const results::Server server(address, limits);
    } catch (const results::ServerError& error) {
      return error.what();
    }
    return "";
  };
  EXPECT_THAT(reason(), HasSubstr("no answer for 0.1 s"));
  limits.silence = std::chrono::hours(1);
  std::stop_source stop;
  limits.stop = stop.get_token();
  const std::jthread stopper([&] { stop.request_stop(); });
  EXPECT_THAT(reason(), HasSubstr("stopped"));
}

TEST(ForwardingLine, SaysNothingInPlainTextWhereTheAddressWantsTls) {
  const auto talk = [](const std::function<void(const std::string&)>& connect) {
    const test::TcpPeer peer;
    std::string heard;
    std::string reason;
    {
      const std::jthread serving([&] {
        const test::Endpoint client = peer.accept();
        heard = client.receive(8);
        client.send("N");  // no TLS here
        heard += client.receive(1);
      });
      try {
        connect("postgresql://line@127.0.0.1:" + std::to_string(peer.port()) +
                "/quillon?sslmode=require");
      } catch (const std::exception& error) {
        reason = error.what();
      }
    }
    EXPECT_EQ(heard, std::string("\0\0\0\x08\x04\xd2\x16\x2f", 8)) << "the question for TLS";
    return reason;
  };
  EXPECT_THAT(talk([](const std::string& url) {
                const results::Server server{results::ServerAddress(url)};
              }),
              HasSubstr("SSL was required"));
  EXPECT_THAT(talk([](const std::string& url) { results::ReportQueries queries(url); }),
              HasSubstr("SSL was required"));
}

/// What a forwarder says when it may not, or cannot.
TEST_F(Forwarding, SaysWhatKeepsItFromSending) {
  Store store(station.folder.options);
  testDevice(store, "QB-1");
  const auto trouble = [&](const std::string& user) -> std::string {
    ForwardStatus seen;
    Forwarder forwarder(station.forwarding(server.url(user)),
                        [&](const ForwardStatus& status) { seen = status; });
    std::jthread thread([&](const std::stop_token& stop) { forwarder.follow(stop); });
    EXPECT_TRUE(test::eventually(
        [&] { return !ForwardState(station.folder.options.file, name()).note().trouble.empty(); }));
    thread.request_stop();
    thread.join();
    EXPECT_EQ(seen.waiting, 1);
    EXPECT_TRUE(seen.oldestEndedUs);
    EXPECT_GT(seen.sinceUs, 0);
    std::string reason = seen.trouble;
    ForwardState(station.folder.options.file, name()).enter(results::ForwardNote{});
    return reason;
  };
  server.ask("CREATE ROLE stranger LOGIN");
  EXPECT_THAT(trouble("stranger"),
              AllOf(HasSubstr("permission denied"), HasSubstr("'GRANT quillon_station TO'")));
  EXPECT_THAT(trouble("nobody_at_all"), HasSubstr("does not exist"));
  server.ask("INSERT INTO schema_version VALUES (99, 0)");
  EXPECT_THAT(trouble("station"), HasSubstr("newer"));
  server.ask("DELETE FROM schema_version WHERE version = 99");
  server.ask("ALTER ROLE station SET default_transaction_read_only = on");
  EXPECT_THAT(trouble("station"), HasSubstr("read-only"));
  server.ask("ALTER ROLE station RESET default_transaction_read_only");
  server.stop();
  EXPECT_THAT(trouble("station"), AllOf(HasSubstr("No such file"), Not(HasSubstr("Is the server")),
                                        Not(HasSubstr("  "))));
  server.start();
  pass();
  EXPECT_EQ(server.ask("SELECT serial FROM run"), "QB-1\n");
}

}  // namespace
