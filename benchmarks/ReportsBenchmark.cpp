#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <sys/resource.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "Comparison.h"
#include "reports/Reports.h"
#include "results/Content.h"
#include "results/Import.h"
#include "results/Schema.h"
#include "support/TemporaryFolder.h"

namespace {

constexpr int kDevices = 5000;
constexpr int kSubTests = 200;

void require(int result) {
  if (result != SQLITE_OK && result != SQLITE_DONE && result != SQLITE_ROW) {
    throw std::runtime_error("SQLite");
  }
}

/// A connection of the database's own interface.
class Bare {
 public:
  explicit Bare(const std::string& path) { require(sqlite3_open(path.c_str(), &database_)); }
  ~Bare() { sqlite3_close(database_); }
  Bare(const Bare&) = delete;
  Bare& operator=(const Bare&) = delete;

  void execute(const std::string& text) {
    require(sqlite3_exec(database_, text.c_str(), nullptr, nullptr, nullptr));
  }
  sqlite3_stmt* prepare(const std::string& text) {
    sqlite3_stmt* statement = nullptr;
    require(sqlite3_prepare_v2(database_, text.c_str(), -1, &statement, nullptr));
    return statement;
  }
  /// Reads all rows that a question gives.
  void ask(const std::string& text) {
    sqlite3_stmt* const statement = prepare(text);
    int result = SQLITE_ROW;
    while ((result = sqlite3_step(statement)) == SQLITE_ROW) {
    }
    sqlite3_finalize(statement);
    require(result);
  }

 private:
  sqlite3* database_ = nullptr;
};

std::string specId(int subTest) {
  return "spec-000000000000000000000000000" + std::to_string(1000 + subTest);
}

/// A week of a line: a million values.
void fill(const std::string& path) {
  { const results::Import made(path); }
  Bare store(path);
  store.execute("PRAGMA synchronous = OFF; BEGIN");
  store.execute("INSERT INTO station VALUES ('station', 'line 3', 'm', NULL)");
  store.execute("INSERT INTO plan VALUES ('plan', 'board-test', '1', '1', 'Production', 'c')");
  for (int i = 0; i < kSubTests; ++i) {
    const std::string name = std::to_string(i / 20 + 1);
    store.execute("INSERT INTO spec VALUES ('" + specId(i) + "', 'board-test', 'Production', '" +
                  name + "." + std::to_string(i % 20 + 1) + "', 'Test " + name + "', 'V" +
                  std::to_string(i) + "', 'range', 4.75, 5.25, NULL, 'V', 3)");
  }
  sqlite3_stmt* const run = store.prepare(
      "INSERT INTO run VALUES (?1, 'station', ?2, 1, NULL, ?3, 'QB26', 'C', 'final', 'Ada', "
      "'plan', 'production', NULL, NULL, ?4, ?4 + 50000000, ?5, ?6, NULL, 200, 'sum')");
  sqlite3_stmt* const value =
      store.prepare("INSERT INTO measurement VALUES (?1, ?2, 1, 1, 0, ?3, ?4, NULL, ?5, NULL)");
  std::mt19937_64 random(7);
  std::normal_distribution<double> normal(5, 0.06);
  for (int device = 0; device < kDevices; ++device) {
    const std::string id = "01a1fee6-ae8e-773f-ab2b-" + std::to_string(100000000000 + device);
    const std::string serial = "QB26-" + std::to_string(device % 40 == 0 ? device / 2 : device);
    const std::string site = "site " + std::to_string(device % 8);
    std::vector<double> values(kSubTests);
    int first = 0;
    for (int i = 0; i < kSubTests; ++i) {
      values[i] = std::round(normal(random) * 1e6) / 1e6;
      const bool isIn = values[i] >= 4.75 && values[i] <= 5.25;
      // Most of what would fail by chance does not, or nothing would pass.
      if (!isIn && random() % 50 != 0) values[i] = 5;
      if ((values[i] < 4.75 || values[i] > 5.25) && first == 0) first = i + 1;
    }
    sqlite3_bind_text(run, 1, id.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_text(run, 2, site.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_text(run, 3, serial.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_int64(run, 4, 1'795'132'800'000'000 + device * std::int64_t{100'000'000});
    sqlite3_bind_text(run, 5, first == 0 ? "PASS" : "FAIL", -1, SQLITE_STATIC);
    if (first == 0) {
      sqlite3_bind_null(run, 6);
    } else {
      sqlite3_bind_int(run, 6, first);
    }
    require(sqlite3_step(run));
    sqlite3_reset(run);
    for (int i = 0; i < kSubTests; ++i) {
      const std::string spec = specId(i);
      sqlite3_bind_text(value, 1, id.c_str(), -1, SQLITE_TRANSIENT);
      sqlite3_bind_int(value, 2, i + 1);
      sqlite3_bind_text(value, 3, spec.c_str(), -1, SQLITE_TRANSIENT);
      sqlite3_bind_double(value, 4, values[i]);
      const bool isIn = values[i] >= 4.75 && values[i] <= 5.25;
      sqlite3_bind_text(value, 5, isIn ? "PASS" : "FAIL", -1, SQLITE_STATIC);
      require(sqlite3_step(value));
      sqlite3_reset(value);
    }
  }
  sqlite3_finalize(run);
  sqlite3_finalize(value);
  store.execute("COMMIT");
}

/// The store, made once for all benchmarks.
const std::string& storePath() {
  static const test::TemporaryFolder folder;
  static const std::string path = [] {
    const std::string made = (folder.path() / "results.db").string();
    fill(made);
    return made;
  }();
  return path;
}

using Make = std::function<reports::Report(results::ReportQueries&, const reports::Request&)>;

void compare(benchmark::State& state, const Make& make, const std::string& question) {
  const std::string path = storePath();
  bench::Comparison comparison;
  for (auto _ : state) {
    const auto reported = bench::timeOf([&] {
      results::ReportQueries queries(path);
      benchmark::DoNotOptimize(make(queries, {path, {}}));
    });
    comparison.add(state, reported, bench::timeOf([&] { Bare(path).ask(question); }));
  }
  comparison.report(state);
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  state.counters["most_MiB"] = static_cast<double>(usage.ru_maxrss) / 1024;
}

void yieldOfAWeek(benchmark::State& state) {
  compare(
      state,
      [](results::ReportQueries& queries, const reports::Request& request) {
        return reports::yieldReport(queries, request, {reports::By::Day, reports::By::Site});
      },
      "SELECT process, count(*), sum(verdict = 'PASS') FROM (SELECT process, verdict, "
      "row_number() OVER (PARTITION BY serial ORDER BY started_us) AS nth FROM run "
      "WHERE verdict IN ('PASS', 'FAIL') AND kind IN ('production', 'retest')) "
      "WHERE nth = 1 GROUP BY process");
}
BENCHMARK(yieldOfAWeek)->UseManualTime()->Iterations(15);

void paretoOfAWeek(benchmark::State& state) {
  compare(
      state,
      [](results::ReportQueries& queries, const reports::Request& request) {
        return reports::paretoReport(queries, request);
      },
      "SELECT s.test, s.sub_test, r.station_id, r.site, count(*) FROM measurement m "
      "JOIN run r ON r.id = m.run_id JOIN spec s ON s.id = m.spec_id "
      "WHERE m.verdict = 'FAIL' AND m.superseded = 0 AND r.verdict IN ('PASS', 'FAIL') "
      "GROUP BY s.test, s.sub_test, r.station_id, r.site");
}
BENCHMARK(paretoOfAWeek)->UseManualTime()->Iterations(15);

void capabilityOfAWeek(benchmark::State& state) {
  compare(
      state,
      [](results::ReportQueries& queries, const reports::Request& request) {
        return reports::capabilityReport(queries, request);
      },
      "WITH counted AS (SELECT s.id, s.low, s.high, m.value, "
      "avg(m.value) OVER (PARTITION BY s.id) AS mean FROM measurement m "
      "JOIN spec s ON s.id = m.spec_id JOIN run r ON r.id = m.run_id "
      "WHERE m.superseded = 0 AND m.value IS NOT NULL AND r.kind = 'production' "
      "AND r.verdict IN ('PASS', 'FAIL')) "
      "SELECT id, low, high, count(*), mean, "
      "sqrt(sum((value - mean) * (value - mean)) / (count(*) - 1)) FROM counted GROUP BY id");
}
BENCHMARK(capabilityOfAWeek)->UseManualTime()->Iterations(5);

}  // namespace
