#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <barrier>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Comparison.h"
#include "results/Content.h"
#include "results/Schema.h"
#include "results/Store.h"
#include "results/Uuid.h"
#include "support/TemporaryFolder.h"

namespace {

constexpr int kSites = 8;
constexpr int kRecords = 200;  // of a device
constexpr int kSpecs = 50;

results::Spec specOf(int record) {
  results::Spec spec;
  spec.bundle = "board-test";
  spec.flow = "Production";
  spec.number = "3." + std::to_string(record % kSpecs);
  spec.test = "Voltages";
  spec.subTest = "VBUS" + std::to_string(record % kSpecs);
  spec.kind = results::SpecKind::Range;
  spec.low = 4.75;
  spec.high = 5.25;
  spec.unit = "V";
  return spec;
}

results::Measurement measurementOf(const std::string& runId, int record) {
  results::Measurement measurement;
  measurement.runId = runId;
  measurement.sequence = record + 1;
  measurement.step = 3;
  measurement.value = 5.0 + record * 1e-4;
  measurement.verdict = results::Mark::Pass;
  return measurement;
}

void require(int result) {
  if (result != SQLITE_OK && result != SQLITE_DONE) throw std::runtime_error("SQLite");
}

/// The same rows in the same tables with the database's own interface and nothing else: one thread
/// writes what the sites have queued, in one transaction, and wakes those who wait for it.
class BareStore {
 public:
  explicit BareStore(const std::string& path) {
    require(sqlite3_open(path.c_str(), &database_));
    execute("PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL");
    for (const std::string& statement : results::migrations().front().statements) {
      execute(statement.c_str());
    }
    execute("INSERT INTO station VALUES ('s', 'line 3', 'm', NULL)");
    execute("INSERT INTO plan VALUES ('p', 'board-test', '1', '1', 'Production', 'c')");
    for (int i = 0; i < kSpecs; ++i) {
      const results::Spec spec = specOf(i);
      specIds_.push_back(results::idOf(spec));
      execute(("INSERT INTO spec VALUES ('" + specIds_.back() +
               "', 'board-test', 'Production', '3', 'Voltages', 'VBUS', 'range', 4.75, 5.25, "
               "NULL, 'V', 3)")
                  .c_str());
    }
    execute("PRAGMA foreign_keys = ON");
    begin_ = prepare(
        "INSERT INTO run (id, station_id, site, run_index, serial, plan_id, kind, started_us, "
        "verdict, records) VALUES (?, 's', 'left', 1, 'QB', 'p', 'production', 1, 'RUNNING', 0)");
    insert_ = prepare("INSERT INTO measurement VALUES (?, ?, 3, 1, 0, ?, ?, NULL, 'PASS', NULL)");
    finish_ = prepare("UPDATE run SET verdict = 'PASS', ended_us = 2 WHERE id = ?");
    thread_ = std::thread([this] { work(); });
  }
  ~BareStore() {
    {
      const std::lock_guard lock(mutex_);
      ending_ = true;
    }
    changed_.notify_all();
    thread_.join();
    for (sqlite3_stmt* statement : {begin_, insert_, finish_}) sqlite3_finalize(statement);
    sqlite3_close(database_);
  }
  BareStore(const BareStore&) = delete;
  BareStore& operator=(const BareStore&) = delete;

  void testDevice() {
    const std::string id = results::newUuid();
    queue({Row::Begin, id, 0, 0}, true);
    for (int i = 0; i < kRecords; ++i) queue({Row::Record, id, i, 5.0 + i * 1e-4}, false);
    queue({Row::Finish, id, 0, 0}, true);
  }

 private:
  struct Row {
    enum Kind { Begin, Record, Finish } kind;
    std::string runId;
    int record;
    double value;
  };

  void execute(const char* statement) {
    require(sqlite3_exec(database_, statement, nullptr, nullptr, nullptr));
  }
  sqlite3_stmt* prepare(const char* statement) {
    sqlite3_stmt* prepared = nullptr;
    require(sqlite3_prepare_v2(database_, statement, -1, &prepared, nullptr));
    return prepared;
  }

  void queue(Row row, bool wait) {
    std::unique_lock lock(mutex_);
    queued_.push_back(std::move(row));
    if (!wait) return;
    const std::uint64_t own = gathering_;
    ++waiting_;
    changed_.notify_all();
    changed_.wait(lock, [&] { return written_ >= own; });
  }

  void work() {
    std::unique_lock lock(mutex_);
    while (true) {
      changed_.wait(lock, [&] { return waiting_ > 0 || ending_; });
      if (ending_) return;
      std::vector<Row> rows;
      rows.swap(queued_);
      waiting_ = 0;
      const std::uint64_t group = gathering_++;
      lock.unlock();
      execute("BEGIN IMMEDIATE");
      for (const Row& row : rows) write(row);
      execute("COMMIT");
      lock.lock();
      written_ = group;
      changed_.notify_all();
    }
  }

  void write(const Row& row) {
    sqlite3_stmt* const statement = row.kind == Row::Begin    ? begin_
                                    : row.kind == Row::Record ? insert_
                                                              : finish_;
    sqlite3_bind_text(statement, 1, row.runId.data(), static_cast<int>(row.runId.size()), nullptr);
    if (row.kind == Row::Record) {
      const std::string& spec = specIds_[static_cast<std::size_t>(row.record % kSpecs)];
      sqlite3_bind_int64(statement, 2, row.record + 1);
      sqlite3_bind_text(statement, 3, spec.data(), static_cast<int>(spec.size()), nullptr);
      sqlite3_bind_double(statement, 4, row.value);
    }
    require(sqlite3_step(statement));
    sqlite3_reset(statement);
  }

  sqlite3* database_ = nullptr;
  sqlite3_stmt* begin_ = nullptr;
  sqlite3_stmt* insert_ = nullptr;
  sqlite3_stmt* finish_ = nullptr;
  std::vector<std::string> specIds_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Row> queued_;
  std::uint64_t gathering_ = 1;
  std::uint64_t written_ = 0;
  int waiting_ = 0;
  bool ending_ = false;
  std::thread thread_;
};

void testDevice(results::Store& store) {
  results::Run run;
  run.site = "left";
  run.serial = "QB";
  const std::string id = store.beginRun(run, {"", "board-test", "1", "1", "Production", "c"}).id;
  for (int i = 0; i < kRecords; ++i) store.addMeasurement(measurementOf(id, i), specOf(i));
  store.finishRun(id, {results::Verdict::Pass, {}, {}, 0});
}

/// Devices at several sites at once; the times are those of a record, all sites taken together.
void recordsOfSeveralSites(benchmark::State& state) {
  const test::TemporaryFolder folder;
  results::StoreOptions options;
  options.file = folder.path() / "results.db";
  options.stationName = "line 3";
  results::Store store(options);
  BareStore bare((folder.path() / "bare.db").string());

  std::function<void()> turn;
  std::barrier step(kSites + 1);
  std::vector<std::thread> threads;
  for (int site = 0; site < kSites; ++site) {
    threads.emplace_back([&] {
      for (step.arrive_and_wait(); turn; step.arrive_and_wait()) {
        turn();
        step.arrive_and_wait();
      }
    });
  }
  const auto timeOf = [&](std::function<void()> next) {
    turn = std::move(next);
    return bench::timeOf([&] {
      step.arrive_and_wait();
      step.arrive_and_wait();
    });
  };
  bench::Comparison comparison;
  bench::Clock::duration all{};
  std::int64_t records = 0;
  for (auto _ : state) {
    const auto stored = timeOf([&] { testDevice(store); });
    comparison.add(state, stored, timeOf([&] { bare.testDevice(); }));
    all += stored;
    records += kSites * kRecords;
  }
  turn = nullptr;
  step.arrive_and_wait();
  for (std::thread& thread : threads) thread.join();
  comparison.report(state, static_cast<std::size_t>(kSites * kRecords));
  state.counters["records_per_s"] =
      static_cast<double>(records) / std::chrono::duration<double>(all).count();
}
BENCHMARK(recordsOfSeveralSites)->UseManualTime()->Iterations(60);

/// From the last record of a device to the word that all of it is on disk, beside a flush of as
/// many bytes by the system.
void lastRecordToVerdict(benchmark::State& state) {
  const test::TemporaryFolder folder;
  results::StoreOptions options;
  options.file = folder.path() / "results.db";
  options.stationName = "line 3";
  results::Store store(options);
  const int file = ::open((folder.path() / "bare").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
  const std::string bytes(8192, 'x');
  bench::Comparison comparison;
  std::vector<double> ratios;
  for (auto _ : state) {
    results::Run run;
    run.site = "left";
    run.serial = "QB";
    const std::string id = store.beginRun(run, {"", "board-test", "1", "1", "Production", "c"}).id;
    for (int i = 0; i + 1 < kRecords; ++i) store.addMeasurement(measurementOf(id, i), specOf(i));
    store.flush(id);
    const auto stored = bench::timeOf([&] {
      store.addMeasurement(measurementOf(id, kRecords - 1), specOf(kRecords - 1));
      store.flush(id);
      store.finishRun(id, {results::Verdict::Pass, {}, {}, 0});
    });
    const auto bare = bench::timeOf([&] {
      if (::write(file, bytes.data(), bytes.size()) < 0 || ::fdatasync(file) != 0) std::abort();
    });
    comparison.add(state, stored, bare);
    ratios.push_back(std::chrono::duration<double>(stored) / std::chrono::duration<double>(bare));
  }
  ::close(file);
  comparison.report(state);
  std::sort(ratios.begin(), ratios.end());
  state.counters["p99_ratio"] = ratios[ratios.size() * 99 / 100];
}
BENCHMARK(lastRecordToVerdict)->UseManualTime()->Iterations(300);

}  // namespace
