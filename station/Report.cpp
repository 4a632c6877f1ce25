#include "Report.h"

#include <algorithm>
#include <array>
#include <string_view>

#include <QLTSubTestInfo.h>

#include "Text.h"

namespace station {
namespace {

constexpr std::size_t kVerdictWidth = 10;  // "BROKEN OFF"

std::string verdictText(Verdict verdict) {
  switch (verdict) {
    case Verdict::Pass:
      return "PASS";
    case Verdict::Fail:
      return "FAIL";
    case Verdict::BrokenOff:
      return "BROKEN OFF";
  }
  return {};
}

Colour colourOf(Verdict verdict) {
  switch (verdict) {
    case Verdict::Pass:
      return Colour::Green;
    case Verdict::Fail:
      return Colour::Red;
    case Verdict::BrokenOff:
      return Colour::Yellow;
  }
  return Colour::Plain;
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

std::string withoutTrailingBlanks(std::string line) {
  line.erase(line.find_last_not_of(' ') + 1);
  return line;
}

std::size_t widest(const std::vector<std::string>& texts) {
  std::size_t width = 0;
  for (const std::string& text : texts) width = std::max(width, widthOf(printable(text)));
  return width;
}

}  // namespace

Report::Report(Screen& screen, const std::vector<std::string>& sites,
               const std::vector<std::string>& tests)
    : screen_(screen), siteWidth_(widest(sites)), testWidth_(widest(tests)) {}

void Report::testDone(const TestLine& line) const {
  std::string text = padded(printable(line.site), siteWidth_) + "  " +
                     screen_.coloured(verdictText(line.verdict), colourOf(line.verdict)) + "  " +
                     padded(printable(line.test), testWidth_) + "  " + secondsText(line.seconds);
  if (line.retested) text += "  (second attempt)";
  if (!line.failure.empty()) text += "  " + printable(line.failure);
  screen_.line(text);
}

void Report::deviceDone(const Outcome& outcome) const {
  screen_.line(padded(printable(outcome.site), siteWidth_) + "  " +
               screen_.coloured(verdictText(outcome.verdict), colourOf(outcome.verdict)) +
               "  device " + printable(outcome.serialNumber) + " in " +
               secondsText(outcome.seconds));
}

void Report::table(const std::vector<Outcome>& outcomes) const {
  if (outcomes.empty()) {
    screen_.line("\nNo device was tested.");
    return;
  }
  const std::string site = "Site";
  const std::string serialNumber = "Serial number";
  const std::string time = "Time";
  std::size_t siteWidth = site.size();
  std::size_t serialWidth = serialNumber.size();
  std::size_t timeWidth = time.size();
  std::array<int, 3> counts{};
  for (const Outcome& outcome : outcomes) {
    siteWidth = std::max(siteWidth, widthOf(printable(outcome.site)));
    serialWidth = std::max(serialWidth, widthOf(printable(outcome.serialNumber)));
    timeWidth = std::max(timeWidth, secondsText(outcome.seconds).size());
    ++counts.at(static_cast<std::size_t>(outcome.verdict));
  }
  const auto row = [&](const std::string& first, const std::string& second,
                       const std::string& third, Colour colour, const std::string& fourth,
                       const std::string& fifth) {
    return withoutTrailingBlanks(padded(first, siteWidth) + "  " + padded(second, serialWidth) +
                                 "  " + screen_.coloured(padded(third, kVerdictWidth), colour) +
                                 "  " + padded(fourth, timeWidth) + "  " + fifth) +
           "\n";
  };
  std::string text = "\n" + row(site, serialNumber, "Result", Colour::Plain, time, "First failure");
  for (const Outcome& outcome : outcomes) {
    text += row(printable(outcome.site), printable(outcome.serialNumber),
                verdictText(outcome.verdict), colourOf(outcome.verdict),
                secondsText(outcome.seconds), printable(reasonText(outcome)));
  }
  text += "\n" + std::to_string(counts[0]) + " passed, " + std::to_string(counts[1]) + " failed, " +
          std::to_string(counts[2]) + " broken off";
  screen_.line(text);
}

std::string Report::text(const Outcome& outcome) {
  const std::string reason = reasonText(outcome);
  return verdictText(outcome.verdict) + " in " + secondsText(outcome.seconds) +
         (reason.empty() ? "" : ", " + reason);
}

std::string Report::text(const QLTestResult& record) {
  if (record.result() == kQLTestResultFail) return failure(record) + ", FAIL";
  std::string text = subTestOf(record) + ": " + shortNumber(record.actual().value_or("no value"));
  if (record.unit()) text += " " + *record.unit();
  if (record.lowLimit() && record.highLimit()) {
    text +=
        ", limits " + shortNumber(*record.lowLimit()) + " to " + shortNumber(*record.highLimit());
  }
  return text + (record.result() == kQLTestResultPass ? ", PASS" : ", NA");
}

std::string Report::failure(const QLTestResult& record) {
  const std::string name = subTestOf(record);
  const std::string message = messageOf(record);
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

}  // namespace station
