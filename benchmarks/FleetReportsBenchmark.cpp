#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "Comparison.h"
#include "reports/Reports.h"
#include "results/central/CentralSchema.h"
#include "results/central/Server.h"
#include "support/PostgresServer.h"

namespace {

using results::Server;
using results::ServerAddress;

constexpr int kStations = 200;

/// How many devices all stations have tested, of 200 values each. 50,000 make ten million values,
/// and take minutes to enter.
int devices() {
  const char* const text = std::getenv("QUILLON_FLEET_DEVICES");
  return text == nullptr ? 5'000 : std::stoi(text);
}

/// Three months of a factory.
void fill(Server& server) {
  const std::string count = std::to_string(devices());
  server.run(
      "INSERT INTO station SELECT md5('st' || i), 'FT-' || lpad(i::text, 3, '0'), 'm' || i, NULL "
      "FROM generate_series(0, 199) i;"
      "INSERT INTO plan VALUES (md5('plan'), 'board-test', '1.2', '0.1.0', 'Production', "
      "md5('c') || md5('d'));"
      "INSERT INTO spec SELECT md5('spec' || i), 'board-test', 'Production', "
      "(i / 20 + 1) || '.' || (i % 20 + 1), 'Test ' || (i / 20 + 1), 'V' || i, 'range', 4.75, "
      "5.25, NULL, 'V', 3 FROM generate_series(0, 199) i;"
      "SELECT make_month(1795132800000000 + i * 2592000000000) FROM generate_series(0, 4) i");
  server.run(
      "INSERT INTO run SELECT run_id_at(us) || '-7000-8000-' || lpad(to_hex(d), 12, '0'), "
      "md5('st' || d % " +
      std::to_string(kStations) +
      "), 'site ' || d % 8, 1, NULL, 'QB26-' || (CASE WHEN d % 40 = 0 THEN d / 2 ELSE d "
      "END), 'QB26', 'C', 'final', 'Ada', md5('plan'), 'production', NULL, NULL, us, "
      "us + 50000000, CASE WHEN d % 17 = 0 THEN 'FAIL' ELSE 'PASS' END, "
      "CASE WHEN d % 17 = 0 THEN d % 200 + 1 END, NULL, 200, 'sum' "
      "FROM (SELECT d, 1795132800000000 + d * (7776000000000 / " +
      count + ") AS us FROM generate_series(0, " + count + " - 1) d) devices");
  server.run(
      "INSERT INTO step SELECT r.id, s, 1, s, 'Test ' || s, started_us + s * 1000000, "
      "started_us + s * 1000000 + 900000, 'PASS' FROM run r, generate_series(1, 10) s;"
      "INSERT INTO measurement SELECT r.id, i + 1, i / 20 + 1, 1, 0, md5('spec' || i), "
      "CASE WHEN first_failure = i + 1 THEN 7.123 ELSE 4.9 + i / 1000.0 END, NULL, "
      "CASE WHEN first_failure = i + 1 THEN 'FAIL' ELSE 'PASS' END, NULL "
      "FROM run r, generate_series(0, 199) i");
  server.run("VACUUM ANALYZE");
}

/// The server, made once for all benchmarks.
const test::PostgresServer& server() {
  static const auto made = [] {
    auto server = std::make_unique<test::PostgresServer>();
    results::Server::Limits limits;
    limits.silence = std::chrono::hours(1);
    Server connection(ServerAddress(server->url()), limits);
    results::prepare(connection);
    fill(connection);
    return server;
  }();
  return *made;
}

/// First-pass yield by something, as bare SQL.
std::string yieldBy(const std::string& what) {
  return "SELECT " + what +
         ", count(*), count(*) FILTER (WHERE verdict = 'PASS') FROM (SELECT r.*, row_number() "
         "OVER (PARTITION BY serial, process ORDER BY started_us, id) AS nth FROM run r "
         "WHERE verdict IN ('PASS', 'FAIL') AND kind IN ('production', 'retest')) counted "
         "WHERE nth = 1 GROUP BY 1";
}

void compare(benchmark::State& state, const std::vector<std::string>& questions) {
  const std::string url = server().url();
  bench::Comparison comparison;
  for (auto _ : state) {
    const auto reported = bench::timeOf([&] {
      results::ReportQueries queries(url);
      benchmark::DoNotOptimize(
          reports::yieldReport(queries, {"the server", {}},
                               {reports::By::Day, reports::By::Station, reports::By::Site}));
    });
    comparison.add(state, reported, bench::timeOf([&] {
                     Server connection{ServerAddress(url)};
                     for (const std::string& question : questions) connection.ask(question);
                   }));
  }
  comparison.report(state);
}

/// Beside the first-pass yields of the same four tables.
void yieldOfAFleet(benchmark::State& state) {
  compare(state, {yieldBy("process"), yieldBy("started_us / 86400000000"), yieldBy("station_id"),
                  yieldBy("station_id || site")});
}
BENCHMARK(yieldOfAFleet)->UseManualTime()->Iterations(9);

/// Beside the first of them alone.
void yieldOfAFleetBesideOneTable(benchmark::State& state) { compare(state, {yieldBy("process")}); }
BENCHMARK(yieldOfAFleetBesideOneTable)->UseManualTime()->Iterations(9);

}  // namespace
