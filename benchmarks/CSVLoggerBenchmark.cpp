// What a line of the CSV result log costs, beside writing and flushing the same bytes bare. The
// folder for temporary files (TMPDIR) decides which disk it is.

#include <QLTCSVLogger.h>
#include <QLTestResult.h>

#include <barrier>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include "Comparison.h"
#include "support/TemporaryFolder.h"

namespace {

std::shared_ptr<QLTestResult> record() {
  auto record = std::make_shared<QLTestResult>();
  record->setRunIndex(3);
  record->setSerialNumber("C02X1234");
  record->setSiteName("site1");
  record->setTestName("Power");
  record->setSubTestName("VBUS");
  record->setTestNumber("1.2");
  record->setExpected("(4.75,5.25)");
  record->setActual("5.01");
  record->setResult(kQLTestResultPass);
  return record;
}

std::string pathIn(const test::TemporaryFolder& folder, const char* name) {
  return (folder.path() / name).string();
}

/// What the logger writes for `record()`.
std::string lineOf(const std::shared_ptr<QLTestResult>& record) {
  const test::TemporaryFolder folder;
  QLTCSVLogger logger(pathIn(folder, "log.csv"));
  logger.open({}, {});
  const std::size_t header = test::contentOf(*logger.path()).size();
  logger.log(record);
  return test::contentOf(*logger.path()).substr(header);
}

/// A file that is written to in bare system calls.
class BareFile {
 public:
  explicit BareFile(const std::string& path)
      : descriptor_(open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600)) {}
  ~BareFile() { close(descriptor_); }
  BareFile(const BareFile&) = delete;
  BareFile& operator=(const BareFile&) = delete;

  void append(const std::string& text) {
    benchmark::DoNotOptimize(write(descriptor_, text.data(), text.size()));
    benchmark::DoNotOptimize(fdatasync(descriptor_));
  }

 private:
  const int descriptor_;
};

/// One line, on the disk.
void csvLine(benchmark::State& state) {
  const test::TemporaryFolder folder;
  QLTCSVLogger logger(pathIn(folder, "log.csv"));
  logger.open({}, {});
  const auto result = record();
  const std::string line = lineOf(result);
  BareFile bare(pathIn(folder, "bare.csv"));
  bench::Comparison comparison;
  for (auto _ : state) {
    const auto framework = bench::timeOf([&] { logger.log(result); });
    const auto floor = bench::timeOf([&] { bare.append(line); });
    comparison.add(state, framework, floor);
  }
  comparison.report(state);
}
BENCHMARK(csvLine)->UseManualTime()->Iterations(1000);

/// The records of one test at once.
void csvLinesAtOnce(benchmark::State& state) {
  const test::TemporaryFolder folder;
  QLTCSVLogger logger(pathIn(folder, "log.csv"));
  logger.open({}, {});
  const std::vector<std::shared_ptr<const QLTestResult>> results(10, record());
  std::string lines;
  for (std::size_t i = 0; i < results.size(); ++i) lines += lineOf(record());
  BareFile bare(pathIn(folder, "bare.csv"));
  bench::Comparison comparison;
  for (auto _ : state) {
    const auto framework = bench::timeOf([&] { logger.logAll(results); });
    const auto floor = bench::timeOf([&] { bare.append(lines); });
    comparison.add(state, framework, floor);
  }
  comparison.report(state);
}
BENCHMARK(csvLinesAtOnce)->UseManualTime()->Iterations(500);

/// Puts a line together with nothing but the language.
std::string bareLine(const QLTestResult& result) {
  std::string line = std::to_string(result.runIndex()) + ",";
  for (const auto* text :
       {&result.serialNumber(), &result.siteName(), &result.testName(), &result.subTestName(),
        &result.testNumber(), &result.expected(), &result.actual()}) {
    if (*text) line += **text + ",";
  }
  line += result.result() == kQLTestResultPass ? "P," : "F,";
  line += "\"" + *result.failMessage() + "\",\n";
  return line;
}

/// Making a line: it goes where nothing is written.
void csvLineToNowhere(benchmark::State& state) {
  constexpr int kLines = 100;
  QLTCSVLogger logger("/dev/null");
  logger.open({}, {});
  const auto result = record();
  if (bareLine(*result) != lineOf(result)) state.SkipWithError("the floor makes another line");
  BareFile bare("/dev/null");
  bench::Comparison comparison;
  for (auto _ : state) {
    const auto framework = bench::timeOf([&] {
      for (int i = 0; i < kLines; ++i) logger.log(result);
    });
    const auto floor = bench::timeOf([&] {
      for (int i = 0; i < kLines; ++i) bare.append(bareLine(*result));
    });
    comparison.add(state, framework, floor);
  }
  comparison.report(state, kLines);
}
BENCHMARK(csvLineToNowhere)->UseManualTime()->Iterations(2000);

/// A bare group commit: whoever finds nobody writing writes the lines of all who came meanwhile.
class GroupCommit {
 public:
  explicit GroupCommit(const std::string& path) : file_(path) {}

  void append(const std::string& line) {
    std::unique_lock lock(mutex_);
    gathered_ += line;
    const int own = gathering_;
    while (written_ < own) {
      if (writing_) {
        changed_.wait(lock);
        continue;
      }
      writing_ = true;
      taken_.clear();
      taken_.swap(gathered_);
      const int group = gathering_++;
      lock.unlock();
      file_.append(taken_);
      lock.lock();
      written_ = group;
      writing_ = false;
      changed_.notify_all();
    }
  }

 private:
  BareFile file_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::string gathered_;
  std::string taken_;
  int gathering_ = 1;
  int written_ = 0;
  bool writing_ = false;
};

/// The lines of several sites in one file; the times are those of a line, all sites taken together.
void csvLineOfSeveralSites(benchmark::State& state) {
  constexpr int kLines = 20;
  const auto sites = static_cast<int>(state.range(0));
  const test::TemporaryFolder folder;
  QLTCSVLogger logger(pathIn(folder, "log.csv"));
  logger.open({}, {});
  GroupCommit bare(pathIn(folder, "bare.csv"));
  const auto result = record();
  const std::string line = lineOf(result);

  // Each site logs its lines between two steps; which way, is the turn's.
  enum class Turn { Framework, Floor, End };
  Turn turn = Turn::End;
  std::barrier step(sites + 1);
  std::vector<std::thread> threads;
  for (int site = 0; site < sites; ++site) {
    threads.emplace_back([&] {
      for (step.arrive_and_wait(); turn != Turn::End; step.arrive_and_wait()) {
        for (int i = 0; i < kLines; ++i) {
          turn == Turn::Framework ? logger.log(result) : bare.append(line);
        }
        step.arrive_and_wait();
      }
    });
  }
  const auto timeOf = [&](Turn next) {
    turn = next;
    return bench::timeOf([&] {
      step.arrive_and_wait();
      step.arrive_and_wait();
    });
  };
  bench::Comparison comparison;
  for (auto _ : state) {
    const auto framework = timeOf(Turn::Framework);
    comparison.add(state, framework, timeOf(Turn::Floor));
  }
  turn = Turn::End;
  step.arrive_and_wait();
  for (std::thread& thread : threads) thread.join();
  comparison.report(state, static_cast<std::size_t>(kLines * sites));
}
BENCHMARK(csvLineOfSeveralSites)->Arg(4)->Arg(16)->UseManualTime()->Iterations(100);

}  // namespace
