#include "Questions.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include <QLTErrorCodes.h>
#include <QLTQuestion.h>

#include "SerialPattern.h"
#include "Text.h"

namespace station {
namespace {

QLTQuestion questionOf(const Asked& asked) {
  return {.kind = static_cast<QLTQuestion::Kind>(asked.kind),
          .text = asked.text,
          .image = asked.image,
          .choices = asked.choices,
          .pattern = asked.pattern,
          .lowLimit = asked.low,
          .highLimit = asked.high,
          .timeOutInSeconds = asked.timeOut};
}

}  // namespace

std::optional<Answered> refusal(const Asked& asked) {
  try {
    if (asked.pattern) SerialPattern{*asked.pattern};
  } catch (const std::invalid_argument& reason) {
    return unanswered(asked, kQLTErrorQuestionWrong,
                      "a question that nobody can answer, for its pattern " + *asked.pattern +
                          " is wrong (" + reason.what() + "): " + asked.text);
  }
  return std::nullopt;
}

Answered unanswered(const Asked& asked, int code, std::string reason) {
  return {asked.site, asked.id, std::nullopt, code, std::move(reason)};
}

std::optional<std::string> objection(const Asked& asked, const std::string& answer) {
  auto problem = questionOf(asked).objection(answer);
  if (problem || !asked.pattern) return problem;
  if (SerialPattern(*asked.pattern).matches(answer)) return std::nullopt;
  return "not of the form " + *asked.pattern;
}

std::string complaintAbout(const Asked& asked, const std::string& answer) {
  const auto problem = objection(asked, answer);
  return problem ? printable(answer) + " is " + printable(*problem) + "." : "";
}

std::optional<std::chrono::steady_clock::time_point> deadlineOf(const Asked& asked) {
  using Clock = std::chrono::steady_clock;
  if (!asked.timeOut) return std::nullopt;
  // A longer one is for ever, and beyond the clock's range.
  constexpr double kLongest = 1e9;
  return Clock::now() + std::chrono::duration_cast<Clock::duration>(
                            std::chrono::duration<double>(std::min(*asked.timeOut, kLongest)));
}

}  // namespace station
