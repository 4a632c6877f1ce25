#include "ResultText.h"

#include <string_view>

#include <QLTSubTestInfo.h>

#include "Text.h"
#include "VerdictWords.h"

namespace station {
namespace {

/// A sub-test as people find it in the configuration: by its name, else by its number.
std::string subTestOf(const QLTestResult& record) {
  if (!record.subTestName().value_or("").empty()) return *record.subTestName();
  return record.testNumber() ? "sub-test " + *record.testNumber() + " (no name)"
                             : "a sub-test without name and number";
}

/// Why it failed. The record of a sub-test without a name says "(null)" where its name would stand.
std::string messageOf(const QLTestResult& record) {
  constexpr std::string_view kNameless = "Failed (null); ";
  const std::string message = record.failMessage().value_or("");
  const bool nameless = !record.subTestName() && message.starts_with(kNameless);
  return nameless ? message.substr(kNameless.size()) : message;
}

}  // namespace

std::string markText(const QLTestResult& record) {
  switch (record.result()) {
    case kQLTestResultPass:
      return "PASS";
    case kQLTestResultNA:
      return "NA";
    default:
      return "FAIL";
  }
}

std::string failureText(const QLTestResult& record) {
  const std::string name = subTestOf(record);
  std::string message = messageOf(record);
  if (record.actual() == kQLTestRuntimeErrorValue) {
    if (message.ends_with(kWasNotMeasured)) return message;  // which names the sub-test
    return (name == kQLTestRuntimeErrorName ? "" : name + ": ") +
           (message.empty() ? "no value, for a reason that the test does not tell" : message);
  }
  const bool messageSpeaks =
      !message.empty() && message != QLTSubTestInfo::defaultFailMessage(record.subTestName());
  std::string text = name + ": ";
  if (record.lowLimit() && record.highLimit()) {
    text += shortNumber(record.actual().value_or("no value")) + ", limits " +
            shortNumber(*record.lowLimit()) + " to " + shortNumber(*record.highLimit());
    if (messageSpeaks) text += " (" + message + ")";
    return text;
  }
  const std::string expected = record.expected().value_or("");
  if (messageSpeaks) {
    text += message;
  } else {
    text += record.actual().value_or("no value");
  }
  if (!expected.empty()) text += " (expected: " + expected + ")";
  return text;
}

std::string recordText(const QLTestResult& record) {
  if (record.result() == kQLTestResultFail) return failureText(record) + ", " + markText(record);
  std::string text = subTestOf(record) + ": " + shortNumber(record.actual().value_or("no value"));
  if (record.unit()) text += " " + *record.unit();
  if (record.lowLimit() && record.highLimit()) {
    text +=
        ", limits " + shortNumber(*record.lowLimit()) + " to " + shortNumber(*record.highLimit());
  }
  return text + ", " + markText(record);
}

std::string reasonText(const Outcome& outcome) {
  if (!outcome.brokenOff) {
    const std::string failure = outcome.firstFailure.value_or("");
    return outcome.hookProblem ? failure + "; then " + *outcome.hookProblem : failure;
  }
  if (!outcome.firstFailure) return *outcome.brokenOff;
  // The exception of a test is its failure as well; once is enough.
  if (outcome.firstFailure->ends_with(*outcome.brokenOff)) return *outcome.brokenOff;
  return *outcome.firstFailure + "; then " + *outcome.brokenOff;
}

std::string outcomeText(const Outcome& outcome) {
  const std::string reason = reasonText(outcome);
  return verdictText(outcome.verdict) + " in " + secondsText(outcome.seconds) +
         (reason.empty() ? "" : ", " + reason);
}

}  // namespace station
