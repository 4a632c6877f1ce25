#include "RunRecorder.h"

#include <chrono>
#include <utility>

#include "Calibration.h"
#include "common/Text.h"
#include "results/Clock.h"

using quillon::internal::numberIn;
using results::microsecondsNow;

namespace station {
namespace {

results::Mark markOf(const QLTestResult& record) {
  switch (record.result()) {
    case kQLTestResultPass:
      return results::Mark::Pass;
    case kQLTestResultNA:
      return results::Mark::NotApplicable;
    default:  // what nobody knows is no pass
      return results::Mark::Fail;
  }
}

results::Verdict verdictOf(Verdict verdict) {
  switch (verdict) {
    case Verdict::Pass:
      return results::Verdict::Pass;
    case Verdict::Fail:
      return results::Verdict::Fail;
    case Verdict::BrokenOff:
      break;
  }
  return results::Verdict::BrokenOff;
}

results::Calibration stateOf(Calibration::State state) {
  switch (state) {
    case Calibration::State::Valid:
      return results::Calibration::Valid;
    case Calibration::State::DueSoon:
      return results::Calibration::DueSoon;
    case Calibration::State::Overdue:
      return results::Calibration::Overdue;
    case Calibration::State::Simulated:
      return results::Calibration::Simulated;
    case Calibration::State::Unknown:
    case Calibration::State::Malformed:
      break;
  }
  return results::Calibration::Unknown;
}

results::Spec specOf(const QLTestResult& record, const results::Plan& plan) {
  results::Spec spec;
  spec.bundle = plan.bundle;
  spec.flow = plan.flow;
  spec.number = record.testNumber().value_or("");
  spec.test = record.testName().value_or("");
  spec.subTest = record.subTestName().value_or("");
  spec.unit = record.unit();
  spec.priority = record.priority();
  if (record.low() || record.high()) {
    spec.kind = results::SpecKind::Range;
    spec.low = record.low();
    spec.high = record.high();
  } else if (!record.expected().value_or("").empty()) {
    spec.kind = results::SpecKind::Match;
    spec.expected = record.expected();
  }
  return spec;
}

/// What an instrument told of itself; absent when it did not.
std::optional<std::string> partOf(const QLTDictionary& identities, const std::string& name,
                                  const char* part) {
  const QLTValue* const identity = identities.find(name);
  if (identity == nullptr || identity->dictionary() == nullptr) return std::nullopt;
  const QLTValue* const text = identity->dictionary()->find(part);
  return text != nullptr ? std::optional(text->text()) : std::nullopt;
}

}  // namespace

RunRecorder::RunRecorder(const Session& session, const std::string& site, const NextDevice& device,
                         const QLTDictionary& identities)
    : session_(session), run_(session.run) {
  run_.site = site;
  run_.serial = device.serialNumber;
  run_.kind = device.purpose.kind;
  run_.operatorName = device.purpose.operatorName;
  run_.reason = device.purpose.reason;
  run_ = session_.store.beginRun(std::move(run_), session_.plan);
  for (const auto& [name, value] : session_.stationAttributes) {
    session_.store.addAttribute({run_.id, 0, name, value.text()});
  }
  addInstruments(identities);
}

/// What an instrument tells itself comes before what the tester-config file says of it.
void RunRecorder::addInstruments(const QLTDictionary& identities) {
  const QLTValue* const site = session_.instruments.find(run_.site);
  if (site == nullptr || site->dictionary() == nullptr) return;
  const auto today = std::chrono::floor<std::chrono::days>(std::chrono::system_clock::now());
  for (const auto& [name, entry] : *site->dictionary()) {
    if (entry.dictionary() == nullptr) continue;
    const Calibration calibration = calibrationOf(*entry.dictionary(), today);
    results::Instrument instrument;
    instrument.vendor = partOf(identities, name, "vendor");
    instrument.model = partOf(identities, name, "model");
    if (!instrument.model) instrument.model = entry.dictionary()->text("class");
    instrument.serial = partOf(identities, name, "serial");
    if (!instrument.serial && entry.dictionary()->contains(kAssetSerial)) {
      instrument.serial = entry.dictionary()->text(kAssetSerial);
    }
    if (const auto day = calibrationDay(calibration.due)) {
      instrument.dueUs = std::chrono::microseconds(day->time_since_epoch()).count();
    }
    results::RunInstrument use;
    use.runId = run_.id;
    use.name = name;
    use.firmware = partOf(identities, name, "firmware");
    use.dueUs = instrument.dueUs;
    use.state = stateOf(calibration.state);
    session_.store.addInstrument(std::move(use), std::move(instrument));
  }
}

void RunRecorder::testStarted(const TestStarted& test) {
  results::Step step;
  step.runId = run_.id;
  step.step = test.index;
  step.number = test.index;
  step.test = test.name;
  step.startedUs = microsecondsNow();
  step_ = step;
  session_.store.putStep(std::move(step));
}

void RunRecorder::tested(const Tested& test) {
  if (!step_) return;  // one that never started
  results::Step step = *std::exchange(step_, std::nullopt);
  if (test.firstSeconds) {
    // The attempt that failed; the second one has the rows that count.
    results::Step first = step;
    step.attempt = 2;
    step.startedUs += static_cast<std::int64_t>(*test.firstSeconds * 1e6);
    first.endedUs = step.startedUs;
    first.verdict = results::Verdict::Fail;
    session_.store.putStep(std::move(first));
    addAll(test.superseded, 1, true);
  }
  step.endedUs = microsecondsNow();
  step.verdict = test.passed ? results::Verdict::Pass : results::Verdict::Fail;
  step.errorDomain = test.errorDomain;
  step.errorCode = test.errorCode;
  step.errorText = test.errorText;
  const std::int64_t attempt = step.attempt;
  session_.store.putStep(std::move(step));
  addAll(test.records, attempt, false);
}

void RunRecorder::testBrokenOff(const QLTestResults& reported) {
  if (!step_) return;
  results::Step step = *std::exchange(step_, std::nullopt);
  step.endedUs = microsecondsNow();
  step.verdict = results::Verdict::BrokenOff;
  session_.store.putStep(std::move(step));
  addAll(reported, 1, false);
}

void RunRecorder::add(const std::shared_ptr<QLTestResult>& record) { addAll({record}, 1, false); }

void RunRecorder::addAll(const QLTestResults& records, std::int64_t attempt, bool superseded) {
  for (const auto& record : records) {
    results::Measurement row;
    row.runId = run_.id;
    row.sequence = ++sequence_;
    const std::string number = record->testNumber().value_or("");
    row.step = numberIn<std::int64_t>(number.substr(0, number.find('.'))).value_or(0);
    row.attempt = attempt;
    row.superseded = superseded;
    row.value = record->value();
    if (!row.value) row.text = record->actual();
    row.verdict = markOf(*record);
    row.message = record->failMessage();
    if (row.verdict == results::Mark::Fail && !superseded && !firstFailure_) {
      firstFailure_ = row.sequence;
    }
    session_.store.addMeasurement(row, specOf(*record, session_.plan));
    if (!record->extras()) continue;
    for (const auto& [name, value] : *record->extras()) {
      session_.store.addAttribute({run_.id, row.sequence, name, value.text()});
    }
  }
}

void RunRecorder::hurry() { session_.store.hurry(run_.id); }

void RunRecorder::expectEnd() { session_.store.expectEnd(run_.id); }

void RunRecorder::flush() { session_.store.flush(run_.id); }

void RunRecorder::finish(const Outcome& outcome) {
  results::RunEnd end;
  end.verdict = verdictOf(outcome.verdict);
  end.firstFailure = firstFailure_;
  end.message = outcome.brokenOff ? outcome.brokenOff : outcome.hookProblem;
  end.runIndex = runIndex_;
  session_.store.finishRun(run_.id, std::move(end));
}

}  // namespace station
