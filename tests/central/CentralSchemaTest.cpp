#include "results/central/CentralSchema.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "results/Samples.h"
#include "results/central/Server.h"
#include "support/PostgresServer.h"

namespace {

using results::Prepared;
using results::Server;
using results::ServerAddress;
using results::ServerError;
using test::PostgresServer;
using testing::HasSubstr;

constexpr long long kNovember2026 = 1'793'491'200'000'000;  // its first microsecond

/// A server that is prepared.
class CentralSchema : public testing::Test {
 protected:
  CentralSchema() {
    Server connection(ServerAddress(server.url()));
    results::prepare(connection);
    server.ask("CREATE ROLE station LOGIN IN ROLE quillon_station");
    server.ask("CREATE ROLE reader LOGIN IN ROLE quillon_reader");
  }

  std::string errorOf(const std::string& statement, const std::string& user) const {
    try {
      server.ask(statement, user);
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "";
  }

  PostgresServer server;
};

std::string stateOf(const std::function<void()>& work) {
  try {
    work();
  } catch (const ServerError& error) {
    return error.state() + ' ' + error.what();
  }
  return "";
}

std::string insertRun(const std::string& id) {
  return "INSERT INTO run (id, station_id, site, run_index, serial, plan_id, kind, started_us, "
         "verdict, records) VALUES ('" +
         id + "', 's', 'left', 1, 'QB-1', 'p', 'production', 0, 'PASS', 0)";
}

TEST(PostgresServer, GoesOnAfterItWasKilled) {
  PostgresServer server;
  server.ask("CREATE TABLE kept (a int); INSERT INTO kept VALUES (7)");
  server.kill();
  EXPECT_THROW(server.ask("SELECT 1"), std::runtime_error);
  server.start();
  EXPECT_EQ(server.ask("SELECT a FROM kept"), "7\n");
}

TEST_F(CentralSchema, IsMadeOnce) {
  Server connection(ServerAddress(server.url()));
  const Prepared again = results::prepare(connection);
  const int present = results::centralMigrations().back().version;
  EXPECT_EQ(again.before, present);
  EXPECT_EQ(again.after, present);
  EXPECT_EQ(server.ask("SELECT count(*), count(applied_us) FROM schema_version"),
            std::to_string(present) + '|' + std::to_string(present) + '\n');
}

TEST_F(CentralSchema, HasTheTablesOfAStationsStore) {
  const test::StoreFolder folder;
  const results::Store store(folder.options);
  sqlite3* opened = nullptr;
  ASSERT_EQ(sqlite3_open(folder.options.file.c_str(), &opened), SQLITE_OK);
  const std::unique_ptr<sqlite3, int (*)(sqlite3*)> file(opened, sqlite3_close);
  std::string columns;
  const auto add = [](void* all, int, char** fields, char**) {
    *static_cast<std::string*>(all) += std::string(fields[0]) + '\n';
    return 0;
  };
  ASSERT_EQ(sqlite3_exec(opened,
                         "SELECT t.name || '|' || c.name || '|' || lower(c.type) || '|' || "
                         "(c.\"notnull\" OR c.pk > 0) FROM sqlite_master t "
                         "JOIN pragma_table_info(t.name) c WHERE t.type = 'table' "
                         "AND t.name NOT IN ('session', 'running', 'schema_version') "
                         "ORDER BY t.name, c.cid",
                         add, &columns, nullptr),
            SQLITE_OK);
  EXPECT_EQ(server.ask("SELECT c.table_name, c.column_name, c.data_type, "
                       "(c.is_nullable = 'NO')::int FROM information_schema.columns c "
                       "WHERE c.table_schema = 'public' AND c.table_name IN ('station', 'plan', "
                       "'spec', 'run', 'step', 'measurement', 'attribute', 'instrument', "
                       "'run_instrument', 'event') "
                       "AND NOT (c.table_name = 'event' AND c.column_name = 'sha256') "
                       "ORDER BY c.table_name COLLATE \"C\", c.ordinal_position"),
            columns);
  EXPECT_EQ(server.ask("SELECT count(*) FROM pg_attribute a JOIN pg_class c ON c.oid = a.attrelid "
                       "JOIN pg_namespace n ON n.oid = c.relnamespace WHERE n.nspname = 'public' "
                       "AND c.relkind IN ('r', 'p') AND a.atttypid = 'text'::regtype "
                       "AND a.attcollation <> '\"C\"'::regcollation"),
            "0\n");
}

TEST_F(CentralSchema, IsBroughtToItsNextVersionWholeOrNotAtAll) {
  auto steps = results::centralMigrations();
  const int next = steps.back().version + 1;
  steps.push_back({next, {"ALTER TABLE run ADD COLUMN colour text", "SELECT 1 / 0"}});
  Server connection(ServerAddress(server.url()));
  EXPECT_THROW(results::prepare(connection, steps), ServerError);
  EXPECT_THAT(errorOf("SELECT colour FROM run", "postgres"), HasSubstr("colour"));
  EXPECT_EQ(stateOf([&] { results::requireCentralSchema(connection); }), "");

  steps.back().statements.pop_back();
  EXPECT_EQ(results::prepare(connection, steps).after, next);
  EXPECT_EQ(server.ask("SELECT colour FROM run"), "");
  // The stations of today see that they are too old for it.
  EXPECT_THAT(stateOf([&] { results::requireCentralSchema(connection); }),
              HasSubstr("a newer one is needed here"));
  EXPECT_THAT(stateOf([&] { results::prepare(connection); }),
              HasSubstr("a newer one is needed here"));
}

TEST_F(CentralSchema, StationsMayAddAndNothingElse) {
  const std::string id = "019a3d25-0000-7000-8000-000000000001";
  server.ask("SELECT make_month(1762000000000000)", "station");
  EXPECT_EQ(server.ask(insertRun(id) + " ON CONFLICT (id) DO NOTHING RETURNING id", "station"),
            id + '\n');
  EXPECT_EQ(server.ask(insertRun(id) + " ON CONFLICT (id) DO NOTHING RETURNING id", "station"), "");
  for (const std::string statement :
       {"UPDATE run SET serial = 'QB-2'", "DELETE FROM run", "TRUNCATE run",
        "UPDATE run SET sha256 = '' WHERE id = ''", "DROP TABLE run", "DELETE FROM event",
        "UPDATE spec SET low = 0", "SELECT serial FROM run", "SELECT value FROM measurement",
        "DELETE FROM run_2025_11", "INSERT INTO month (name) VALUES ('')",
        "UPDATE station SET name = ''", "UPDATE month SET from_us = 0",
        "INSERT INTO station_state VALUES ('')", "SELECT drop_month('2025_11')",
        "CREATE TABLE mine (a int)", "ALTER TABLE run ADD COLUMN mine text",
        "INSERT INTO run SELECT * FROM run ON CONFLICT (id) DO UPDATE SET serial = 'QB-2'"}) {
    EXPECT_THAT(errorOf(statement, "station"),
                testing::AnyOf(HasSubstr("permission denied"), HasSubstr("must be owner")))
        << statement;
  }
  EXPECT_EQ(server.ask("SELECT serial FROM run", "reader"), "QB-1\n");
  for (const std::string statement :
       {"UPDATE run SET serial = 'QB-2'", "DELETE FROM run", "SELECT make_month(0)",
        "SELECT station_heard('{}')", "INSERT INTO event VALUES ('', 0, 0, '')"}) {
    EXPECT_THAT(errorOf(statement, "reader"), HasSubstr("permission denied")) << statement;
  }
}

TEST_F(CentralSchema, RunsStandInTheMonthThatTheirIdTells) {
  const auto at = [&](long long us) { return "SELECT make_month(" + std::to_string(us) + ")"; };
  EXPECT_EQ(server.ask(at(kNovember2026), "station"), "t\n");
  EXPECT_EQ(server.ask(at(kNovember2026 - 1), "station"), "t\n");
  EXPECT_EQ(server.ask(at(kNovember2026 + 1), "station"), "t\n");
  EXPECT_EQ(server.ask("SELECT run_id_at(" + std::to_string(kNovember2026) + ")"),
            "01a19467-e800\n")
      << "how the first ids of that millisecond begin";
  server.ask(insertRun("01a19467-e7ff-7000-8000-000000000001"), "station");
  server.ask(insertRun("01a19467-e800-7000-8000-000000000001"), "station");
  EXPECT_EQ(server.ask("SELECT tableoid::regclass FROM run ORDER BY id"),
            "run_2026_10\nrun_2026_11\n");
}

TEST_F(CentralSchema, ReadersLearnBetweenWhichIdsTheRunsOfATimeAre) {
  constexpr long long kHour = 3'600'000'000;
  server.ask("SELECT make_month(" + std::to_string(kNovember2026 - 1) + "), make_month(" +
             std::to_string(kNovember2026) + ")");
  const auto ids = [&](long long since, long long until) {
    return server.ask("SELECT m.name, n.name FROM run_ids(" + std::to_string(since) + ", " +
                          std::to_string(until) +
                          ") i JOIN month m ON m.low = i.low JOIN month n ON n.high = i.high",
                      "reader");
  };
  const long long tenth = kNovember2026 + 240 * kHour;
  EXPECT_EQ(ids(tenth, tenth + kHour), "2026_11|2026_11\n");
  EXPECT_EQ(ids(kNovember2026 + kHour, tenth), "2026_10|2026_11\n") << "an id may be a day off";
  // A clock was set: a run of November with an id of October.
  server.ask(
      "SELECT widen_month('01a19467-e7ff-7000-8000-000000000001', " + std::to_string(tenth) + ")",
      "station");
  EXPECT_EQ(ids(tenth, tenth + kHour), "2026_10|2026_11\n");
  EXPECT_EQ(ids(tenth + 1, tenth + kHour), "2026_11|2026_11\n");
}

TEST_F(CentralSchema, AMonthIsDroppedForGood) {
  server.ask("SELECT make_month(" + std::to_string(kNovember2026) + ")", "station");
  server.ask("SELECT drop_month('2026_11')");
  EXPECT_EQ(server.ask("SELECT count(*) FROM pg_class WHERE relname LIKE '%_2026_11%'"), "0\n");
  EXPECT_EQ(server.ask("SELECT make_month(" + std::to_string(kNovember2026) + ")", "station"),
            "f\n");
  EXPECT_THAT(errorOf("SELECT drop_month('2026_11')", "postgres"), HasSubstr("no month 2026_11"));
}

TEST_F(CentralSchema, YearsThatNoClockCanMeanAreRefused) {
  Server connection(ServerAddress(server.url("station")));
  for (const std::string us : {"-1", "4102444800000000", "9000000000000000000"}) {
    EXPECT_THAT(stateOf([&] { connection.ask("SELECT make_month($1)", {us}); }),
                testing::StartsWith("22008"))
        << us;
  }
  EXPECT_EQ(connection.ask("SELECT make_month(0)").at(0).at(0), "t") << "a clock without battery";
}

TEST_F(CentralSchema, ATransactionSeesWhatOthersHaveCommittedWhateverTheRolesDefault) {
  server.ask("ALTER ROLE station SET default_transaction_isolation = 'serializable'");
  Server connection(ServerAddress(server.url("station")));
  connection.transaction([&] {
    EXPECT_EQ(connection.ask("SHOW transaction_isolation").at(0).at(0), "read committed");
  });
}

TEST_F(CentralSchema, TheServerTellsWhenAStationWasHeardOf) {
  const std::string say =
      R"(SELECT station_heard('{"id": "s1", "name": "line 3", "machine_id": "m", "now_us": 5,
      "waiting": 3, "oldest_age_us": 7, "parked": 1, "version": "0.1.0", "added": 2,
      "last_run_id": "r2"}'))";
  server.ask(say, "station");
  server.ask(say, "station");
  EXPECT_EQ(
      server.ask(
          "SELECT station_us, waiting, oldest_age_us, parked, version, runs, "
          "last_run_id, abs(now_us() - heard_us) < 60000000, arrived_us - heard_us < 60000000 "
          "FROM station_state JOIN station ON id = station_id",
          "reader"),
      "5|3|7|1|0.1.0|4|r2|t|t\n");
}

TEST(CentralSchemaOfOthers, IsLeftAlone) {
  const PostgresServer server;
  Server connection(ServerAddress(server.url()));
  EXPECT_THAT(stateOf([&] { results::requireCentralSchema(connection); }),
              HasSubstr("not prepared yet"));
  server.ask("CREATE TABLE run (mine int)");
  EXPECT_THAT(stateOf([&] { results::prepare(connection); }), HasSubstr("something else"));
  EXPECT_EQ(server.ask("SELECT count(*) FROM pg_roles WHERE rolname LIKE 'quillon%'"), "0\n");
  server.ask("CREATE ROLE stranger LOGIN CREATEROLE; CREATE ROLE weak LOGIN");
  EXPECT_THAT(stateOf([&] {
                Server other(ServerAddress(server.url("weak", "template1")));
                results::prepare(other);
              }),
              HasSubstr("must be allowed to make roles"));
  EXPECT_THAT(stateOf([&] {
                Server other(ServerAddress(server.url("stranger", "template1")));
                results::prepare(other);
              }),
              HasSubstr("must own the database: permission denied"));
  server.ask("CREATE DATABASE latin ENCODING 'LATIN1' TEMPLATE template0");
  Server latin(ServerAddress(server.url("postgres", "latin")));
  EXPECT_THAT(stateOf([&] { results::prepare(latin); }), HasSubstr("LATIN1"));
}

}  // namespace
