#include "SiteSession.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <utility>
#include <variant>

#include "Signals.h"
#include "Text.h"

namespace station {
namespace {

bool hasFailed(const std::shared_ptr<QLTestResult>& record) {
  return record->result() == kQLTestResultFail;
}

/// In words; empty when none has failed.
std::string firstFailure(const QLTestResults& records) {
  const auto failed = std::find_if(records.begin(), records.end(), hasFailed);
  return failed == records.end() ? "" : Report::failure(**failed);
}

}  // namespace

struct SiteSession::Device {
  Outcome outcome;
  SiteEvents::Clock::time_point started = SiteEvents::Clock::now();
  int runIndex = 0;
  std::optional<TestStarted> test;  // in progress
  QLTestResults recorded;           // failures
  bool confirmed = false;
  bool done = false;
};

SiteSession::SiteSession(std::string site, const Station& station)
    : site_(std::move(site)), station_(station) {}

void SiteSession::run() {
  for (int round = 1; round <= station_.devices; ++round) {
    // Where the results of one device were lost, those of the next would be.
    if (Signals::stopRequested() || station_.results.failed()) break;
    if (!testNext(round)) break;
    complete_ = round == station_.devices;
  }
  station_.serialNumbers.leave(site_);
}

bool SiteSession::testNext(int round) {
  const auto serialNumber = station_.serialNumbers.next(site_);
  if (!serialNumber) return false;
  Device device;
  device.outcome.site = site_;
  device.outcome.serialNumber = *serialNumber;
  device.outcome.round = round;
  const bool begun = !station_.engine.begin({site_, *serialNumber, round});
  if (begun) {
    testUntilItsEnd(device);
    station_.engine.end(site_);
    device.outcome.seconds =
        std::chrono::duration<double>(SiteEvents::Clock::now() - device.started).count();
    station_.report.deviceDone(device.outcome);
    outcomes_.push_back(std::move(device.outcome));
  }
  station_.serialNumbers.release(site_);
  return begun;
}

void SiteSession::testUntilItsEnd(Device& device) {
  while (!device.done) {
    const auto event = station_.engine.next(site_, std::nullopt);
    if (event) std::visit([&](const auto& told) { on(device, told); }, *event);
  }
}

void SiteSession::on(Device& device, const DeviceStarted& event) {
  device.runIndex = event.runIndex;
}

void SiteSession::on(Device& device, const TestStarted& event) { device.test = event; }

void SiteSession::on(Device& device, const Tested& event) {
  device.test.reset();
  const std::string failure = firstFailure(event.records);
  std::copy_if(event.records.begin(), event.records.end(), std::back_inserter(device.recorded),
               hasFailed);
  if (!event.passed && !device.outcome.firstFailure) {
    device.outcome.firstFailure = event.name + " / " + failure;
  }
  auto lost = station_.results.log(event.records);
  if (lost) breakOff(device, *lost);
  if (!lost) lost = event.notLogged;
  // What is not recorded is not shown as passed.
  const Verdict passed = lost ? Verdict::BrokenOff : Verdict::Pass;
  station_.report.testDone({.site = site_,
                            .test = event.name,
                            .verdict = event.passed ? passed : Verdict::Fail,
                            .retested = event.retested,
                            .seconds = event.seconds,
                            .failure = failure.empty() ? lost.value_or("") : failure});
}

void SiteSession::on(Device& device, const FlowEnded& event) {
  Outcome& outcome = device.outcome;
  if (!outcome.brokenOff) outcome.brokenOff = event.brokenOff;
  outcome.verdict = outcome.brokenOff ? Verdict::BrokenOff : event.verdict;
  recordBreakOff(device);
  device.confirmed = true;
  station_.engine.tell(Confirmed{site_, outcome.verdict});
}

void SiteSession::on(Device& device, const HookEnded& event) {
  device.done = true;
  if (!event.problem) return;
  Outcome& outcome = device.outcome;
  if (outcome.verdict == Verdict::Fail) {
    outcome.hookProblem = event.problem;
  } else if (outcome.brokenOff) {
    *outcome.brokenOff += "; " + *event.problem;
  } else {
    outcome.verdict = Verdict::BrokenOff;
    outcome.brokenOff = event.problem;
    recordBreakOff(device);
  }
}

void SiteSession::on(Device& device, const WorkerEnded& event) {
  device.done = true;
  Outcome& outcome = device.outcome;
  std::string reason = event.reason;
  if (device.test) {
    reason += " in test " + std::to_string(device.test->index) + " " + device.test->name;
  } else if (device.confirmed) {
    reason += " in the hook at the end";
  }
  if (device.confirmed && outcome.verdict == Verdict::Fail) {
    outcome.hookProblem = reason;
    return;
  }
  outcome.verdict = Verdict::BrokenOff;
  if (!outcome.brokenOff) outcome.brokenOff = reason;
  recordBreakOff(device);
}

/// Ends a device that the worker still tests.
void SiteSession::breakOff(Device& device, const std::string& reason) {
  if (!device.outcome.brokenOff) device.outcome.brokenOff = reason;
  station_.engine.tell(Stop{site_, reason});
}

/// Leaves a record that nobody can take for a pass, unless there is one that tells the same.
void SiteSession::recordBreakOff(Device& device) {
  const Outcome& outcome = device.outcome;
  if (!outcome.brokenOff || station_.results.failed()) return;
  const auto tellsTheSame = [&](const auto& record) {
    return record->failMessage() == outcome.brokenOff;
  };
  if (std::any_of(device.recorded.begin(), device.recorded.end(), tellsTheSame)) return;
  auto record = std::make_shared<QLTestResult>();
  record->setSerialNumber(outcome.serialNumber);
  record->setSiteName(site_);
  record->setRunIndex(device.runIndex);
  record->setTestName(device.test ? device.test->name : "device");
  record->setTestNumberWithMajor(device.test ? device.test->index : 0, 0);
  record->setSubTestName(kQLTestRuntimeErrorName);
  record->setPriority(0);
  record->setExpected("");
  record->setActual(kQLTestRuntimeErrorValue);
  record->setFailMessage(*outcome.brokenOff);
  static_cast<void>(station_.results.log({record}));  // shown as broken off either way
}

}  // namespace station
