#include "SiteRunner.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <optional>
#include <stdexcept>
#include <utility>

#include "Lines.h"
#include "Text.h"
#include "Unmeasured.h"

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

/// What is told of a site without one of its instruments; absent when all are there.
std::optional<std::string> lostInstrument(const QLTestSuite& suite) {
  std::optional<std::string> lost;
  auto problem = problemOf("looking for lost instruments", [&] { lost = lostLine(suite); });
  if (problem) return problem;
  return lost ? std::optional("instrument lost: " + *lost) : std::nullopt;
}

constexpr const char* kLogger = "the plug-in's logger";

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

bool hasFailed(const std::shared_ptr<QLTestResult>& record) {
  return record->result() == kQLTestResultFail;
}

/// A code that nobody knows is no pass.
bool hasPassed(const std::shared_ptr<QLTestResult>& record) {
  return record->result() == kQLTestResultPass || record->result() == kQLTestResultNA;
}

/// A record for a test that failed without one, so that the log never shows a failed test as
/// passed. An absent text would shift the columns of the CSV file.
std::shared_ptr<QLTestResult> failureRecord(const QLTestMethod& method, std::int32_t index,
                                            const std::string& message) {
  auto record =
      QLTestResult::resultWithValues(method, kQLTestRuntimeErrorName, "", index, 0, std::nullopt,
                                     kQLTestRuntimeErrorValue, kQLTestResultFail);
  record->setPriority(0);
  record->setFailMessage(message);
  return record;
}

}  // namespace

/// What one test of the flow came to.
struct SiteRunner::TestRun {
  bool passed = false;
  bool retested = false;
  double firstSeconds = 0;  // of the attempt before a retest
  QLTestResults records;
  QLTestResults superseded;
  QLTError error;                        // that it left
  std::string reason;                    // of a failure that left no record
  std::optional<std::string> exception;  // ends the device's run
};

SiteRunner::SiteRunner(std::shared_ptr<QLTestSuite> suite, bool hasEndHooks, std::string flowName,
                       OwnLoggers& loggers, SiteLink& host, Traffic* traffic)
    : suite_(std::move(suite)),
      hasEndHooks_(hasEndHooks),
      flowName_(std::move(flowName)),
      loggers_(loggers),
      host_(host),
      traffic_(traffic) {
  learnIdentities(*suite_, identities_);
}

std::string SiteRunner::nameOf(const QLTestMethod& method, std::int32_t index) {
  return method.displayName().value_or("test " + std::to_string(index));
}

SafeStateDone SiteRunner::makeSafe(QLTestSuite& suite, const SafeState& wanted) {
  const auto lost = lostInstrument(suite);
  if (lost && !wanted.inTest) return {wanted.site, std::nullopt, lost};
  auto problem = problemOfHook(suite, "onSafeState", &QLTestSuite::onSafeState);
  // Whatever became of the hook: it may not know of an instrument, or may have switched one on.
  std::optional<std::string> unsafe;
  const auto thrown =
      problemOf("making instruments safe", [&] { unsafe = makeInstrumentsSafe(suite); });
  for (const auto& more : {unsafe, thrown}) {
    if (more) problem = problem ? *problem + "; " + *more : more;
  }
  if (!lost) return {wanted.site, problem};
  return {wanted.site, *lost + (problem ? "; " + *problem : "")};
}

void SiteRunner::prepare() {
  constexpr std::chrono::seconds kPause{1};
  bool isTold = false;
  bool isStopped = false;
  while (!isStopped) {
    std::optional<std::string> missing;
    const auto problem =
        problemOf("opening instruments again", [&] { missing = reopenLines(*suite_); });
    if (problem) missing = problem;
    if (!missing) break;
    if (!std::exchange(isTold, true)) host_.tell(Waiting{host_.site(), *missing});
    isStopped = host_.isStoppedWithin(kPause);
  }
  learnIdentities(*suite_, identities_);  // another instrument may be there now
  host_.tell(Prepared{host_.site(), !isStopped, identities_});
}

void SiteRunner::test(const TestDevice& device) {
  if (traffic_ != nullptr) traffic_->deviceStarts(device);
  FlowEnded ended{.site = host_.site()};
  ended.brokenOff = problemOf("onDUTStart", [&] { start(device); });
  if (ended.brokenOff) {
    if (const auto lost = lostInstrument(*suite_))
      ended.brokenOff = *lost + "; " + *ended.brokenOff;
  }
  host_.tell(DeviceStarted{host_.site(), suite_->currentIndex(), hasEndHooks_});
  if (!ended.brokenOff) {
    ended.brokenOff = problemOf("the flow", [&] { ended.verdict = runFlow(); });
  }
  if (!hasEndHooks_) endTraffic();  // the host takes what follows for the end
  host_.tell(ended);
  const auto confirmed = take<Confirmed>(host_.wait());
  if (!hasEndHooks_) return;
  const auto problem = end(confirmed.verdict);
  endTraffic();
  host_.tell(HookEnded{host_.site(), problem});
}

void SiteRunner::endTraffic() {
  if (traffic_ == nullptr) return;
  const auto lost = traffic_->deviceEnds(host_.site());
  if (lost) host_.tell(Warned{*lost});
}

void SiteRunner::start(const TestDevice& device) {
  host_.tell(HookStarted{host_.site(), "onDUTStart"});
  suite_->setCurrentSN(device.serialNumber);
  const auto problem = problemOf(kLogger, [&] { loggers_.startDevice(*suite_); });
  if (problem) throw BrokenOff(*problem);
  QLTError error;
  suite_->onDUTStart({{"serialNumber", device.serialNumber},
                      {"siteName", host_.site()},
                      {"flow", flowName_},
                      {"round", device.round}},
                     &error);
  if (error) throw BrokenOff("onDUTStart failed: " + describe(error));
}

Verdict SiteRunner::runFlow() {
  const std::shared_ptr<QLTFlow> flow = suite_->flowForName(flowName_);
  // It had tests when the series began; without any, the device would pass untested.
  if (!flow || flow->empty()) throw BrokenOff("the plug-in has taken the flow's tests away");
  Verdict verdict = Verdict::Pass;
  TestStarted next{.site = host_.site(), .count = static_cast<int>(flow->size())};
  // A copy: a test may change the flow.
  for (const auto& method : QLTFlow(*flow)) {
    ++next.index;
    next.name = nameOf(*method, next.index);
    next.timeLimit = method->timeLimit();
    if (const auto reason = host_.stopReason()) throw BrokenOff(*reason + " before " + next.name);
    host_.tell(next);
    if (traffic_ != nullptr) traffic_->testStarts(next);
    if (runTest(*method, next.index)) continue;
    verdict = Verdict::Fail;
    if (method->shouldStopOnFail()) break;
  }
  return verdict;
}

bool SiteRunner::runTest(QLTestMethod& method, std::int32_t index) {
  const auto started = std::chrono::steady_clock::now();
  const TestRun test = run(method, index);
  Tested tested{.site = host_.site(),
                .index = index,
                .name = nameOf(method, index),
                .passed = test.passed,
                .retested = test.retested,
                .records = test.records,
                .superseded = test.superseded};
  if (test.retested) tested.firstSeconds = test.firstSeconds;
  if (test.error) {
    tested.errorDomain = test.error.domain();
    tested.errorCode = test.error.code();
    tested.errorText = describe(test.error);
  }
  tested.notLogged = problemOf(kLogger, [&] {
    const auto lost = loggers_.log(*suite_, test.records);
    if (lost) throw BrokenOff(*lost);
  });
  tested.seconds = secondsSince(started);
  host_.tell(tested);
  // No failure of the device.
  const auto lost = test.passed ? std::nullopt : lostInstrument(*suite_);
  if (lost) throw BrokenOff(*lost);
  if (test.exception) throw BrokenOff(*test.exception);
  if (tested.notLogged) throw BrokenOff(*tested.notLogged);
  return test.passed;
}

SiteRunner::TestRun SiteRunner::run(QLTestMethod& method, std::int32_t index) const {
  const auto begun = std::chrono::steady_clock::now();
  TestRun test;
  bool started = false;
  QLTError error;
  test.exception = problemOf(nameOf(method, index), [&] {
    started = method.willRun(index, &error);
    if (!started) return;
    test.passed = method.run(index, &error);
    test.retested = !test.passed && method.allowRetest() && !host_.stopReason();
    if (test.retested) {
      test.firstSeconds = secondsSince(begun);
      error = {};
      test.passed = method.retest(index, &error);
    }
  });
  // What a test leaves that passed does not count.
  if (!test.passed) test.error = error;
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
  test.superseded = method.supersededResults();
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
  } else if (test.passed) {
    const QLTestResults missing = unmeasured(method, index, test.records);
    test.passed = std::none_of(missing.begin(), missing.end(), hasFailed);
    test.records.insert(test.records.end(), missing.begin(), missing.end());
  }
}

/// Calls the hook for a verdict that the host knows; gives what went wrong.
std::optional<std::string> SiteRunner::end(Verdict verdict) {
  const auto call = [&](const std::string& name, bool (QLTestSuite::*hook)(QLTError*)) {
    host_.tell(HookStarted{host_.site(), name});
    return problemOfHook(*suite_, name, hook);
  };
  if (verdict == Verdict::Fail) return call("onDUTFail", &QLTestSuite::onDUTFail);
  std::optional<std::string> problem;
  if (verdict == Verdict::Pass) {
    problem = call("onDUTFinished", &QLTestSuite::onDUTFinished);
    if (!problem) return std::nullopt;
  }
  const auto another = call("onException", &QLTestSuite::onException);
  if (!another) return problem;
  return problem ? *problem + "; " + *another : another;
}

}  // namespace station
