#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "results/Queries.h"
#include "results/Store.h"
#include "support/TemporaryFolder.h"

namespace test {

// Rows of a board's test, and stores in folders of their own.

inline results::Plan samplePlan() {
  return {"", "board-test", "1.2", "0.1.0", "Production", std::string(64, 'c')};
}

inline results::Run sampleRun(const std::string& serial = "QB-1",
                              const std::string& site = "left") {
  results::Run run;
  run.site = site;
  run.serial = serial;
  run.runIndex = 7;
  return run;
}

inline results::Spec sampleSpec(const std::string& number = "1.1") {
  results::Spec spec;
  spec.bundle = "board-test";
  spec.flow = "Production";
  spec.number = number;
  spec.test = "Voltages";
  spec.subTest = "VBUS";
  spec.kind = results::SpecKind::Range;
  spec.low = 4.75;
  spec.high = 5.25;
  spec.unit = "V";
  return spec;
}

inline results::Step sampleStep(const std::string& runId, std::int64_t step = 1,
                                std::int64_t attempt = 1) {
  results::Step row;
  row.runId = runId;
  row.step = step;
  row.attempt = attempt;
  row.number = step;
  row.test = "Voltages";
  row.startedUs = 1000;
  return row;
}

inline results::Measurement sampleMeasurement(const std::string& runId, std::int64_t sequence,
                                              std::optional<double> value = 5.0) {
  results::Measurement row;
  row.runId = runId;
  row.sequence = sequence;
  row.step = 1;
  row.value = value;
  row.verdict = results::Mark::Pass;
  return row;
}

/// A folder for a store, and how it is opened.
class StoreFolder {
 public:
  StoreFolder() {
    options.file = folder.path() / "results.db";
    options.stationName = "line 3";
    options.patience = std::chrono::milliseconds(100);
    options.machineIdFile = folder.write("machine-id", "0123456789abcdef0123456789abcdef\n");
  }

  results::RunContent content(const std::string& runId) const {
    return results::Queries(options.file).run(runId).value();
  }

  const TemporaryFolder folder;
  results::StoreOptions options;
};

/// What a store's operation throws; "" when it does not.
template <typename Operation>
std::string errorOf(Operation operation) {
  try {
    operation();
  } catch (const results::StoreError& error) {
    return error.what();
  }
  return "";
}

}  // namespace test
