#include <benchmark/benchmark.h>

#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Comparison.h"
#include "results/Store.h"
#include "results/central/CentralSchema.h"
#include "results/central/ForwardState.h"
#include "results/central/Forwarder.h"
#include "support/PostgresServer.h"
#include "support/TemporaryFolder.h"

namespace {

constexpr int kRuns = 500;
constexpr int kRecords = 200;  // of a run
constexpr int kSteps = 4;

/// A station's store with runs of production.
void fill(const std::filesystem::path& file) {
  results::StoreOptions options;
  options.file = file;
  options.stationName = "line 3";
  results::Store store(options);
  for (int i = 0; i < kRuns; ++i) {
    results::Run run;
    run.site = "left";
    run.serial = "QB2601-" + std::to_string(i);
    run.part = "QB-A";
    const std::string id =
        store.beginRun(run, {"", "board-test", "1.2", "0.1.0", "Production", std::string(64, 'c')})
            .id;
    for (int step = 1; step <= kSteps; ++step) {
      results::Step row;
      row.runId = id;
      row.step = step;
      row.number = step;
      row.test = "Voltages";
      row.startedUs = step;
      row.endedUs = step + 1;
      row.verdict = results::Verdict::Pass;
      store.putStep(row);
    }
    for (int record = 1; record <= kRecords; ++record) {
      results::Measurement row;
      row.runId = id;
      row.sequence = record;
      row.step = 1 + record % kSteps;
      row.value = 5.0 + record * 1e-4 + i * 1e-6;
      row.verdict = results::Mark::Pass;
      results::Spec spec;
      spec.bundle = "board-test";
      spec.flow = "Production";
      spec.number = "3." + std::to_string(record);
      spec.test = "Voltages";
      spec.subTest = "V" + std::to_string(record);
      spec.kind = results::SpecKind::Range;
      spec.low = 4.75;
      spec.high = 5.25;
      store.addMeasurement(row, spec);
    }
    store.finishRun(id, {results::Verdict::Pass, {}, {}, 0});
  }
}

/// Forwarding a store, beside COPY of the same rows into the same tables from memory, by one
/// connection, one transaction for all.
void forwarding(benchmark::State& state) {
  const test::TemporaryFolder folder;
  const std::filesystem::path store = folder.path() / "results.db";
  fill(store);
  test::PostgresServer::Options options;
  options.fsync = true;
  options.settings = {"shared_buffers = 256MB", "max_wal_size = 4GB"};
  const test::PostgresServer server(options);
  const results::ServerAddress address(server.url());
  results::Server connection(address);
  results::prepare(connection);
  const std::vector<std::string> tables{"run", "step", "measurement"};
  const auto clear = [&] { connection.run("TRUNCATE run, step, measurement; CHECKPOINT"); };

  std::vector<std::pair<std::string, std::string>> rows;  // by table
  bench::Comparison comparison;
  for (auto _ : state) {
    std::filesystem::remove(results::ForwardState::fileOf(store));
    const auto forwarded = bench::timeOf([&] {
      results::Forwarder({store, address, "0.1.0"}).pass();
    });
    if (server.ask("SELECT count(*) FROM measurement") != std::to_string(kRuns * kRecords) + "\n") {
      state.SkipWithError("rows are missing");
      return;
    }
    if (rows.empty()) {
      for (const std::string& table : tables) {
        const std::filesystem::path file = server.socketFolder() / table;
        connection.run("COPY (SELECT * FROM " + table + ") TO '" + file.string() + "'");
        rows.emplace_back(table, test::contentOf(file));
      }
    }
    clear();
    const auto copied = bench::timeOf([&] {
      connection.transaction([&] {
        for (const auto& [table, text] : rows) {
          results::Server::Copy copy(connection, table);
          constexpr std::size_t kChunk = 64U << 10U;
          for (std::size_t at = 0; at < text.size(); at += kChunk) {
            copy.add(std::string_view(text).substr(at, kChunk));
          }
          copy.end();
        }
      });
    });
    clear();
    comparison.add(state, forwarded, copied);
  }
  comparison.report(state, std::size_t{kRuns} * kRecords);
  const double median = state.counters["median_us"];
  state.counters["rows_per_second"] = median > 0 ? 1e6 / median : 0;
}
BENCHMARK(forwarding)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(7);

}  // namespace
