#include "SampleRuns.h"

#include <limits>

#include "reports/Format.h"

namespace test {

std::string SampleStore::add(const SampleRun& sample) {
  results::Run run = sampleRun(sample.serial, sample.site);
  run.startedUs = kFirstDay + sample.day * 24 * 60 * kMinute + minute_++ * kMinute;
  run.process = sample.process;
  run.operatorName = sample.operatorName;
  run.kind = sample.kind;
  results::Plan plan = samplePlan();
  plan.bundleVersion = sample.version;
  const std::string id = store.beginRun(run, plan).id;
  results::Instrument instrument;
  instrument.model = "M1";
  instrument.serial = sample.instrument;
  store.addInstrument({id, "meter", "", {}, {}, results::Calibration::Valid}, instrument);
  std::int64_t sequence = 0;
  const auto specOf = [&](std::size_t place) {
    results::Spec spec = sampleSpec("1." + std::to_string(place + 1));
    spec.subTest = "V" + std::to_string(place + 1);
    spec.low = sample.low;
    spec.high = sample.high;
    return spec;
  };
  const std::int64_t attempt = sample.superseded ? 2 : 1;
  for (std::int64_t each = 1; each <= attempt; ++each) {
    results::Step step = sampleStep(id, 1, each);
    step.startedUs = run.startedUs + (each - 1) * 1'000'000;
    step.endedUs = step.startedUs + 1'000'000;
    step.verdict = each < attempt ? results::Verdict::Fail : sample.verdict;
    store.putStep(step);
  }
  if (sample.superseded) {
    auto measurement = sampleMeasurement(id, ++sequence, *sample.superseded);
    measurement.verdict = results::Mark::Fail;
    store.addMeasurement(measurement, specOf(0));
    store.supersede(id, 1, 1);
  }
  std::optional<std::int64_t> firstFailure;
  for (std::size_t i = 0; i < sample.values.size(); ++i) {
    auto measurement = sampleMeasurement(id, ++sequence, sample.values[i]);
    measurement.attempt = attempt;
    const bool isIn = sample.values[i] >= sample.low && sample.values[i] <= sample.high;
    measurement.verdict = isIn ? results::Mark::Pass : results::Mark::Fail;
    if (sample.firstFailure == i) firstFailure = sequence;
    store.addMeasurement(measurement, specOf(i));
  }
  if (sample.verdict != results::Verdict::Running) {
    store.finishRun(id, {sample.verdict, firstFailure, {}, run.startedUs + 2'000'000});
  } else {
    store.flush(id);
  }
  return id;
}

std::vector<std::map<std::string, reports::Cell>> rowsOf(const reports::Report& report,
                                                         const std::string& key) {
  std::vector<std::map<std::string, reports::Cell>> rows;
  const reports::Table* const table = report.table(key);
  if (table == nullptr) return rows;
  for (const auto& row : table->rows) {
    auto& fields = rows.emplace_back();
    for (std::size_t i = 0; i < row.size(); ++i) fields[table->columns.at(i).key] = row[i];
  }
  return rows;
}

double numberIn(const reports::Cell& cell) {
  if (cell.number() != nullptr) return *cell.number();
  if (cell.count() != nullptr) return static_cast<double>(*cell.count());
  return std::numeric_limits<double>::quiet_NaN();
}

std::string textIn(const reports::Cell& cell) {
  return reports::shownText(cell, reports::Kind::Text);
}

}  // namespace test
