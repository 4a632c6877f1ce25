#include "SiteRunner.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <optional>
#include <stdexcept>
#include <utility>

#include "Signals.h"
#include "Text.h"

namespace station {
namespace {

/// Ends a device's run early.
struct BrokenOff : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// Calls into the plug-in; gives what went wrong, with `place` in front, when it throws.
template <typename Function>
std::optional<std::string> problemOf(const std::string& place, Function&& function) {
  try {
    std::forward<Function>(function)();
    return std::nullopt;
  } catch (const BrokenOff& reason) {
    return reason.what();
  } catch (const std::exception& exception) {
    return place + " threw an exception: " + exception.what();
  } catch (...) {
    return place + " threw an exception of an unknown kind";
  }
}

/// Calls a hook that ends a device's run. One that returns false or leaves an error has failed.
std::optional<std::string> problemOfHook(QLTestSuite& suite, const std::string& name,
                                         bool (QLTestSuite::*hook)(QLTError*)) {
  return problemOf(name, [&] {
    QLTError error;
    const bool succeeded = (suite.*hook)(&error);
    if (!succeeded || error) {
      throw BrokenOff(name + " failed" + (error ? ": " + describe(error) : ""));
    }
  });
}

constexpr const char* kLogger = "the plug-in's logger";

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

bool hasFailed(const std::shared_ptr<QLTestResult>& record) {
  return record->result() == kQLTestResultFail;
}

/// In words; empty when none has failed.
std::string firstFailure(const QLTestResults& records) {
  const auto failed = std::find_if(records.begin(), records.end(), hasFailed);
  return failed == records.end() ? "" : Report::failure(**failed);
}

/// A code that nobody knows is no pass.
bool hasPassed(const std::shared_ptr<QLTestResult>& record) {
  return record->result() == kQLTestResultPass || record->result() == kQLTestResultNA;
}

/// A record for a test that failed without one, so that the log never shows a failed test as
/// passed.
std::shared_ptr<QLTestResult> failureRecord(const QLTestMethod& method, std::int32_t index,
                                            const std::string& message) {
  auto record =
      QLTestResult::resultWithValues(method, kQLTestRuntimeErrorName, std::nullopt, index, 0,
                                     std::nullopt, kQLTestRuntimeErrorValue, kQLTestResultFail);
  record->setPriority(0);
  record->setFailMessage(message);
  return record;
}

}  // namespace

/// What one test of the flow came to.
struct SiteRunner::TestRun {
  bool passed = false;
  bool retested = false;
  QLTestResults records;
  std::string reason;                    // of a failure that left no record
  std::optional<std::string> exception;  // ends the device's run
};

SiteRunner::SiteRunner(std::shared_ptr<QLTestSuite> suite, std::string flowName, LogChain& logs,
                       const Report& report)
    : suite_(std::move(suite)), flowName_(std::move(flowName)), logs_(logs), report_(report) {}

std::string SiteRunner::nameOf(const QLTestMethod& method, std::int32_t index) {
  return method.displayName().value_or("test " + std::to_string(index));
}

Outcome SiteRunner::test(const std::string& serialNumber, int round) {
  Outcome outcome;
  outcome.site = site();
  outcome.serialNumber = serialNumber;
  const auto started = std::chrono::steady_clock::now();
  outcome.brokenOff = problemOf("onDUTStart", [&] { start(serialNumber, round); });
  if (!outcome.brokenOff) {
    outcome.brokenOff = problemOf("the flow", [&] { runFlow(outcome); });
  }
  end(outcome);
  outcome.seconds = secondsSince(started);
  report_.deviceDone(outcome);
  return outcome;
}

void SiteRunner::start(const std::string& serialNumber, int round) {
  suite_->setCurrentSN(serialNumber);
  const auto problem = problemOf(kLogger, [&] { logs_.startDevice(*suite_); });
  if (problem) throw BrokenOff(*problem);
  QLTError error;
  suite_->onDUTStart(
      {{"serialNumber", serialNumber}, {"siteName", site()}, {"flow", flowName_}, {"round", round}},
      &error);
  if (error) throw BrokenOff("onDUTStart failed: " + describe(error));
}

void SiteRunner::runFlow(Outcome& outcome) {
  const std::shared_ptr<QLTFlow> flow = suite_->flowForName(flowName_);
  // It had tests when the series began; without any, the device would pass untested.
  if (!flow || flow->empty()) throw BrokenOff("the plug-in has taken the flow's tests away");
  Verdict verdict = Verdict::Pass;
  std::int32_t index = 0;
  // A copy: a test may change the flow.
  for (const auto& method : QLTFlow(*flow)) {
    ++index;
    if (Signals::stopRequested()) {
      throw BrokenOff("stopped on request before " + nameOf(*method, index));
    }
    if (runTest(*method, index, outcome)) continue;
    verdict = Verdict::Fail;
    if (method->shouldStopOnFail()) break;
  }
  outcome.verdict = verdict;
}

bool SiteRunner::runTest(QLTestMethod& method, std::int32_t index, Outcome& outcome) {
  const auto started = std::chrono::steady_clock::now();
  const std::string name = nameOf(method, index);
  const TestRun test = run(method, index);
  const std::string failure = firstFailure(test.records);
  if (!test.passed && !outcome.firstFailure) outcome.firstFailure = name + " / " + failure;
  const auto lost = problemOf(kLogger, [&] {
    const auto notWritten = logs_.log(*suite_, test.records);
    if (notWritten) throw BrokenOff(*notWritten);
  });
  // What is not recorded is not shown as passed.
  const Verdict passed = lost ? Verdict::BrokenOff : Verdict::Pass;
  report_.testDone({.site = site(),
                    .test = name,
                    .verdict = test.passed ? passed : Verdict::Fail,
                    .retested = test.retested,
                    .seconds = secondsSince(started),
                    .failure = failure.empty() ? lost.value_or("") : failure});
  if (test.exception) throw BrokenOff(*test.exception);
  if (lost) throw BrokenOff(*lost);
  return test.passed;
}

SiteRunner::TestRun SiteRunner::run(QLTestMethod& method, std::int32_t index) const {
  TestRun test;
  bool started = false;
  QLTError error;
  test.exception = problemOf(nameOf(method, index), [&] {
    started = method.willRun(index, &error);
    if (!started) return;
    test.passed = method.run(index, &error);
    test.retested = !test.passed && method.allowRetest() && !Signals::stopRequested();
    if (test.retested) {
      error = {};
      test.passed = method.retest(index, &error);
    }
  });
  test.reason = error     ? describe(error)
                : started ? "failed without giving a reason"
                          : "was not run";
  // Also after an exception: what was measured until then belongs into the log.
  if (started) {
    const auto problem =
        problemOf(nameOf(method, index), [&] { takeRecords(method, index, test); });
    if (!test.exception) test.exception = problem;
  }
  if (test.exception) {
    test.passed = false;
    test.reason = *test.exception;
  }
  if (!test.passed && std::none_of(test.records.begin(), test.records.end(), hasFailed)) {
    test.records.push_back(failureRecord(method, index, test.reason));
  }
  return test;
}

/// Takes over the records of a test that has run. A test that said it passed has failed all the
/// same when they do not bear it out.
void SiteRunner::takeRecords(QLTestMethod& method, std::int32_t index, TestRun& test) {
  QLTError error;
  const std::shared_ptr<QLTestResults> records = method.didRun(index, &error);
  if (records) test.records = *records;
  std::erase(test.records, nullptr);
  const auto fail = [&test](std::string reason) {
    test.passed = false;
    test.reason = std::move(reason);
  };
  if (error) {
    fail(describe(error));
  } else if (test.passed && !records) {
    // As happens when its own willRun does not call the base's: what it reported is lost.
    fail("passed without a list of results");
  } else if (test.passed && !std::all_of(test.records.begin(), test.records.end(), hasPassed)) {
    fail("passed with a result that is no pass");
  }
}

void SiteRunner::end(Outcome& outcome) {
  if (!outcome.brokenOff) {
    outcome.brokenOff = outcome.verdict == Verdict::Pass
                            ? problemOfHook(*suite_, "onDUTFinished", &QLTestSuite::onDUTFinished)
                            : problemOfHook(*suite_, "onDUTFail", &QLTestSuite::onDUTFail);
  }
  if (!outcome.brokenOff) return;
  outcome.verdict = Verdict::BrokenOff;
  const auto problem = problemOfHook(*suite_, "onException", &QLTestSuite::onException);
  if (problem) *outcome.brokenOff += "; " + *problem;
}

}  // namespace station
