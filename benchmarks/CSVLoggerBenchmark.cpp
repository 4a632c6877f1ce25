// What a line of the CSV result log costs, beside writing and flushing the same bytes bare. The
// folder for temporary files (TMPDIR) decides which disk it is.

#include <QLTCSVLogger.h>
#include <QLTestResult.h>

#include <memory>
#include <string>

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

void csvLine(benchmark::State& state) {
  const test::TemporaryFolder folder;
  QLTCSVLogger logger((folder.path() / "log.csv").string());
  logger.open({}, {});
  const auto result = record();
  logger.log(result);
  logger.log(result);
  const std::string content = test::contentOf(folder.path() / "log.csv");
  const std::string line = content.substr(content.rfind('\n', content.size() - 2) + 1);

  const int bare =
      open((folder.path() / "bare.csv").c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
  bench::Comparison comparison;
  for (auto _ : state) {
    const auto framework = bench::timeOf([&] { logger.log(result); });
    const auto floor = bench::timeOf([&] {
      benchmark::DoNotOptimize(write(bare, line.data(), line.size()));
      benchmark::DoNotOptimize(fdatasync(bare));
    });
    comparison.add(state, framework, floor);
  }
  close(bare);
  comparison.report(state);
}
BENCHMARK(csvLine)->UseManualTime()->Iterations(1000);

}  // namespace
