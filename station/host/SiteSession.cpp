#include "SiteSession.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <stop_token>
#include <thread>
#include <utility>
#include <variant>

#include <QLTErrorCodes.h>

#include "Signals.h"
#include "Text.h"
#include "ThreadName.h"
#include "TimeLimit.h"
#include "view/ResultText.h"

namespace station {
namespace {

bool hasFailed(const std::shared_ptr<QLTestResult>& record) {
  return record->result() == kQLTestResultFail;
}

/// In words; empty when none has failed.
std::string firstFailure(const QLTestResults& records) {
  const auto failed = std::find_if(records.begin(), records.end(), hasFailed);
  return failed == records.end() ? "" : failureText(**failed);
}

std::string notRecorded(Verdict verdict) {
  return verdict == Verdict::Pass ? "passed, but not recorded: " : "not recorded: ";
}

std::string nameOf(const TestStarted& test) {
  return "test " + std::to_string(test.index) + " " + test.name;
}

// How long a worker may be between two tests or hooks, in seconds: where the station has no time
// limit, and at least, since an instrument may be in the hands of another site.
constexpr double kBetween = 60;
constexpr double kLeastBetween = 1.5;

}  // namespace

struct SiteSession::Device {
  Outcome outcome;
  std::optional<RunRecorder> run;
  SiteEvents::Clock::time_point started = SiteEvents::Clock::now();
  TimeLimit limit;  // of the test or hook in progress
  int runIndex = 0;
  std::optional<TestStarted> test;  // in progress
  QLTestResults reported;           // of it
  QLTestResults recorded;           // failures
  std::vector<FinishedTest> tests;
  std::vector<std::jthread> questions;  // each waits for an answer
  std::optional<std::string> hook;      // in progress
  std::atomic<bool> isStopped = false;  // while a question was open
  bool hasEndHooks = true;
  bool confirmed = false;
  bool done = false;
};

SiteSession::SiteSession(std::string site, const Station& station)
    : site_(std::move(site)), station_(station) {}

void SiteSession::run() {
  for (int round = 1; station_.devices == 0 || round <= station_.devices; ++round) {
    // Where the results of one device were lost, those of the next would be.
    if (Signals::stopRequested() || !canRecord()) break;
    putBack_ = false;
    if (!testNext(round) && !putBack_) break;
    complete_ = round == station_.devices;
  }
  view().siteIs(site_, SiteState::Ended);
  station_.face.devices().leave(site_);
}

bool SiteSession::canRecord() const {
  return !station_.results.failed() && !storeFailure_ && !station_.store.store.failure();
}

/// False when no device can be tested any more, or the fixture may not be safe and nobody says that
/// it is: the site is not used then.
bool SiteSession::isSafe() const {
  view().siteIs(site_, SiteState::Waiting);
  if (!station_.engine.awaitWorker()) return false;
  while (const auto reason = station_.engine.safety().reason(site_)) {
    view().siteIs(site_, SiteState::Unsafe);
    const auto who = station_.face.devices().whoMadeSafe(site_, *reason);
    if (!who) return false;
    station_.engine.safety().acknowledge(site_, *who);
  }
  return true;
}

/// Waits until a worker can begin with a device at this site, and its instruments are there. False
/// when none can any more.
bool SiteSession::reserve() {
  // A worker that ends meanwhile has a safe state run, which may fail.
  while (isSafe()) {
    if (station_.engine.reserve(site_)) {
      if (station_.engine.safety().reason(site_)) continue;
      return false;
    }
    station_.engine.tell(Prepare{site_});
    const auto event = station_.engine.next(site_, std::nullopt);
    const Prepared* const prepared = std::get_if<Prepared>(&*event);
    const bool isReady = prepared != nullptr && prepared->isReady;
    if (isReady) identities_ = prepared->identities;
    if (isReady && station_.engine.begin(site_)) return true;
    station_.engine.end(site_);
    if (prepared != nullptr && !isReady) {
      putBack_ = !Signals::stopRequested();
      return false;
    }
  }
  return false;
}

bool SiteSession::testNext(int round) {
  if (!isSafe()) return false;
  view().siteIs(site_, SiteState::Empty);
  const auto next = station_.face.devices().next(site_);
  if (!next) return false;
  view().siteIs(site_, SiteState::Waiting);
  const bool begun = reserve();
  if (begun) {
    Device device;
    device.outcome.site = site_;
    device.outcome.serialNumber = next->serialNumber;
    device.outcome.purpose = next->purpose;
    device.outcome.round = round;
    view().deviceStarted(device.outcome);
    test(device);
    view().deviceDone(device.outcome, device.tests);
    if (!device.hasEndHooks) confirm(device);
    station_.engine.end(site_);
    tellOutcome(device.outcome);
    if (station_.devices != 0) outcomes_.push_back(std::move(device.outcome));
  }
  station_.face.devices().release(site_);
  return begun;
}

void SiteSession::test(Device& device) {
  Outcome& outcome = device.outcome;
  try {
    device.run.emplace(station_.store, site_, NextDevice{outcome.serialNumber, outcome.purpose},
                       identities_);
  } catch (const results::StoreError& problem) {
    storeFailure_ = problem.what();
    outcome.brokenOff = std::string("not tested, for it cannot be recorded: ") + problem.what();
    recordBreakOff(device);
    return;
  }
  outcome.run = device.run->id();
  tell("testing " + outcome.serialNumber + ", run " + device.run->id());
  station_.engine.tell(
      TestDevice{site_, outcome.serialNumber, outcome.round, station_.traffic.fileOf(outcome.run),
                 station_.traffic.headOf(outcome.run, site_, outcome.serialNumber)});
  isBetween(device, "what comes before onDUTStart");
  while (!device.done) {
    const auto event = station_.engine.next(site_, device.limit.deadline());
    if (!event) {
      onTimeLimit(device);
      continue;
    }
    try {
      std::visit([&](const auto& told) { on(device, told); }, *event);
    } catch (const results::StoreError& problem) {
      storeFailure_ = problem.what();
      breakOff(device, problem.what());
    }
  }
  device.questions.clear();  // cancelled
  finish(device);
  outcome.traffic = station_.traffic.ended(outcome);
  outcome.seconds =
      std::chrono::duration<double>(SiteEvents::Clock::now() - device.started).count();
}

/// A worker that stands still altogether is ended, too.
void SiteSession::isBetween(Device& device, const std::string& where) const {
  device.limit.start(where, std::max(station_.timeLimit.value_or(kBetween), kLeastBetween));
}

void SiteSession::onTimeLimit(Device& device) {
  const std::string reason = device.limit.excess();
  device.limit.stop();
  if (device.confirmed) {
    hookFailed(device, reason);
  } else {
    breakOff(device, reason);
  }
  station_.engine.endOverdue(site_);
}

void SiteSession::on(Device& device, const HookStarted& event) const {
  device.hook = event.name;
  device.limit.start(event.name, station_.timeLimit);
}

void SiteSession::on(Device& device, const DeviceStarted& event) {
  device.hook.reset();
  device.runIndex = event.runIndex;
  device.hasEndHooks = event.hasEndHooks;
  device.run->deviceStarted(event.runIndex);
  isBetween(device, "what comes after onDUTStart");
}

void SiteSession::on(Device& device, const TestStarted& event) {
  device.test = event;
  device.reported.clear();
  device.limit.start(nameOf(event), event.timeLimit ? event.timeLimit : station_.timeLimit);
  device.run->testStarted(event);
  view().testStarted(event);
}

void SiteSession::on(Device& device, const Reported& event) {
  device.reported.insert(device.reported.end(), event.records.begin(), event.records.end());
  view().reported(event);
}

void SiteSession::on(Device& device, const Tested& event) {
  const bool isLast = !event.passed || (device.test && device.test->index == device.test->count);
  device.test.reset();
  device.limit.stop();
  device.run->tested(event);
  if (isLast) hurry(device);
  const std::string failure = firstFailure(event.records);
  std::copy_if(event.records.begin(), event.records.end(), std::back_inserter(device.recorded),
               hasFailed);
  if (!event.passed && !device.outcome.firstFailure) {
    device.outcome.firstFailure = event.name + " / " + failure;
  }
  auto lost = station_.results.log(event.records);
  if (lost) breakOff(device, *lost);
  if (!lost) lost = event.notLogged;
  if (!lost) lost = device.outcome.brokenOff;  // too late
  // What is not recorded is not shown as passed.
  const Verdict passed = lost ? Verdict::BrokenOff : Verdict::Pass;
  device.tests.push_back({.site = site_,
                          .test = event.name,
                          .verdict = event.passed ? passed : Verdict::Fail,
                          .retested = event.retested,
                          .seconds = event.seconds,
                          .failure = failure.empty() ? lost.value_or("") : failure,
                          .index = event.index,
                          .records = event.records});
  view().testDone(device.tests.back());
  tellTest(event);
  isBetween(device, "what comes after test " + std::to_string(event.index) + " " + event.name);
}

void SiteSession::on(Device& device, const Asked& event) {
  device.limit.pause();
  device.questions.emplace_back([this, event, &device](const std::stop_token& cancelled) {
    threadName() = site_;
    const auto asked = SiteEvents::Clock::now();
    const Answered answer = station_.face.questions().answer(event, cancelled);
    answered(event, answer,
             std::chrono::duration<double>(SiteEvents::Clock::now() - asked).count());
    if (answer.code == kQLTErrorOperatorCancelled) device.isStopped = true;
    station_.engine.tell(answer);
    station_.engine.add(site_, QuestionEnded{});
  });
}

void SiteSession::on(Device& device, const QuestionEnded&) { device.limit.resume(); }

void SiteSession::on(Device&, const Shown& event) { station_.face.questions().show(event); }

void SiteSession::on(Device&, const Progressed& event) { station_.face.questions().show(event); }

/// Every question that was answered, or not, passes here.
void SiteSession::answered(const Asked& question, const Answered& answer, double seconds) const {
  const std::string what = answer.answer ? "\"" + *answer.answer + "\"" : "nothing";
  station_.events.add("answered", site_,
                      "asked \"" + question.text + "\": answered " + what + " after " +
                          secondsText(seconds) +
                          (answer.code == 0 ? "" : ", code " + std::to_string(answer.code)));
}

void SiteSession::on(Device& device, const FlowEnded& event) {
  view().siteIs(site_, SiteState::Saving);
  Outcome& outcome = device.outcome;
  if (!outcome.brokenOff) outcome.brokenOff = event.brokenOff;
  // A test that was not answered, since somebody stopped it, tells nothing of the device.
  if (!outcome.brokenOff && device.isStopped) outcome.brokenOff = kStoppedOnRequest;
  // No pass with a test that was seen to fail, whatever the plug-in's process says.
  const Verdict verdict = outcome.firstFailure ? Verdict::Fail : event.verdict;
  outcome.verdict = outcome.brokenOff ? Verdict::BrokenOff : verdict;
  recordBreakOff(device);
  if (!device.hasEndHooks) {
    device.done = true;
    return;
  }
  save(device);
  confirm(device);
  isBetween(device, "what comes before the last hook");
}

/// Lets the worker go on.
void SiteSession::confirm(Device& device) const {
  device.confirmed = true;
  station_.engine.tell(Confirmed{site_, device.outcome.verdict});
}

void SiteSession::on(Device& device, const HookEnded& event) {
  device.done = true;
  if (event.problem) hookFailed(device, *event.problem);
}

/// What went wrong in a hook at the end. A failed device stays failed.
void SiteSession::hookFailed(Device& device, const std::string& problem) {
  Outcome& outcome = device.outcome;
  std::optional<std::string>& told =
      outcome.verdict == Verdict::Fail ? outcome.hookProblem : outcome.brokenOff;
  told = told ? *told + "; " + problem : problem;
  if (outcome.verdict != Verdict::Pass) return;
  outcome.verdict = Verdict::BrokenOff;
  recordBreakOff(device);
}

void SiteSession::on(Device& device, const WorkerEnded& event) {
  device.done = true;
  Outcome& outcome = device.outcome;
  std::string reason = event.reason;
  const std::string in = event.isElsewhere ? "; this device was in " : " in ";
  if (device.test) {
    reason += in + nameOf(*device.test);
  } else if (device.hook) {
    reason += in + *device.hook;
  }
  if (device.confirmed && outcome.verdict == Verdict::Fail) {
    if (!outcome.hookProblem) outcome.hookProblem = reason;
    return;
  }
  outcome.verdict = Verdict::BrokenOff;
  if (!outcome.brokenOff) outcome.brokenOff = reason;
  if (device.test) {
    device.run->testBrokenOff(device.reported);
    device.tests.push_back({.site = site_,
                            .test = device.test->name,
                            .verdict = Verdict::BrokenOff,
                            .failure = reason,
                            .index = device.test->index,
                            .records = device.reported});
    static_cast<void>(station_.results.log(device.reported));  // broken off either way
  }
  recordBreakOff(device);
}

/// Has the store work while the result log is written. What no hook waits for is made durable with
/// the verdict.
void SiteSession::hurry(Device& device) {
  if (device.hasEndHooks) {
    device.run->hurry();
  } else {
    device.run->expectEnd();
  }
}

/// Before the verdict counts, or a hook of the plug-in acts on it, everything is on disk.
void SiteSession::save(Device& device) {
  try {
    device.run->flush();
  } catch (const results::StoreError& problem) {
    storeFailure_ = problem.what();
    Outcome& outcome = device.outcome;
    if (!outcome.brokenOff) {
      outcome.brokenOff = notRecorded(outcome.verdict) + problem.what();
    }
    outcome.verdict = Verdict::BrokenOff;
    recordBreakOff(device);
  }
}

void SiteSession::finish(Device& device) {
  Outcome& outcome = device.outcome;
  try {
    device.run->finish(outcome);
  } catch (const results::StoreError& problem) {
    storeFailure_ = problem.what();
    device.run.reset();  // it is over
    if (!outcome.brokenOff) {
      // Without a hook that waited for it, nothing of the end was recorded before.
      outcome.brokenOff = (device.hasEndHooks ? "the verdict could not be recorded: "
                                              : notRecorded(outcome.verdict)) +
                          problem.what();
    }
    outcome.verdict = Verdict::BrokenOff;
    recordBreakOff(device);
  }
}

void SiteSession::tell(const std::string& line) const { station_.diagnostics.write(site_, line); }

void SiteSession::tellOutcome(const Outcome& outcome) const {
  tell(outcome.serialNumber + ": " + outcomeText(outcome));
  if (outcome.traffic) tell("what its instruments said: " + *outcome.traffic);
}

/// A finished test with its values, in the diagnostics.
void SiteSession::tellTest(const Tested& test) const {
  const std::string name = "test " + std::to_string(test.index) + " " + test.name;
  std::vector<std::string> lines;
  for (const auto& record : test.superseded) {
    lines.push_back(name + ", first attempt: " + recordText(*record));
  }
  for (const auto& record : test.records) lines.push_back(name + ": " + recordText(*record));
  lines.push_back(name + ": " + (test.passed ? "PASS" : "FAIL") + " in " +
                  secondsText(test.seconds) + (test.retested ? ", second attempt" : ""));
  station_.diagnostics.write(site_, lines);
}

/// Ends a device that the worker still tests.
void SiteSession::breakOff(Device& device, const std::string& reason) {
  if (!device.outcome.brokenOff) device.outcome.brokenOff = reason;
  station_.engine.tell(Stop{site_, reason});
  for (std::jthread& question : device.questions) question.request_stop();
}

/// Leaves a record that nobody can take for a pass, unless there is one that tells the same.
void SiteSession::recordBreakOff(Device& device) {
  const Outcome& outcome = device.outcome;
  if (!outcome.brokenOff) return;
  const auto tellsTheSame = [&](const auto& record) {
    return record->failMessage() == outcome.brokenOff;
  };
  if (std::any_of(device.recorded.begin(), device.recorded.end(), tellsTheSame)) return;
  const auto record =
      brokenOffRecord(site_, outcome.serialNumber, device.runIndex, *outcome.brokenOff);
  if (device.test) {
    record->setTestName(device.test->name);
    record->setTestNumberWithMajor(device.test->index, 0);
  }
  device.recorded.push_back(record);
  // It is shown as broken off either way.
  if (!station_.results.failed()) static_cast<void>(station_.results.log({record}));
  if (device.run) device.run->add(record);
}

}  // namespace station
