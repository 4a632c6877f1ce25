#include "QuestionDesk.h"

#include <chrono>
#include <cstddef>
#include <optional>
#include <stdexcept>

#include <QLTErrorCodes.h>
#include <QLTQuestion.h>
#include <QLTValue.h>

#include "SerialPattern.h"
#include "Signals.h"
#include "Text.h"

namespace station {
namespace {

using Kind = QLTQuestion::Kind;

QLTQuestion questionOf(const Asked& asked) {
  return {.kind = static_cast<Kind>(asked.kind),
          .text = asked.text,
          .image = asked.image,
          .choices = asked.choices,
          .pattern = asked.pattern,
          .lowLimit = asked.low,
          .highLimit = asked.high,
          .timeOutInSeconds = asked.timeOut};
}

Answered failed(const Asked& asked, int code, std::string reason = {}) {
  return {asked.site, asked.id, std::nullopt, code, std::move(reason)};
}

/// What is wrong with an answer, in words; absent when it fits.
std::optional<std::string> objection(const Asked& asked, const std::string& answer) {
  auto problem = questionOf(asked).objection(answer);
  if (problem || !asked.pattern) return problem;
  if (SerialPattern(*asked.pattern).matches(answer)) return std::nullopt;
  return "not of the form " + *asked.pattern;
}

/// A choice may be given by its number, too.
std::string chosen(const Asked& asked, const std::string& typed) {
  if (static_cast<Kind>(asked.kind) != Kind::Choose) return typed;
  for (std::size_t i = 0; i < asked.choices.size(); ++i) {
    if (typed == asked.choices[i]) return typed;
  }
  const auto number = quillon::internal::numberIn<std::size_t>(typed);
  const bool isOne = number && *number >= 1 && *number <= asked.choices.size();
  return isOne ? asked.choices[*number - 1] : typed;
}

std::string promptOf(const Asked& asked) {
  std::string text = "Site " + printable(asked.site) + ": " + printable(asked.text);
  if (asked.image) text += " (image " + printable(*asked.image) + ")";
  switch (static_cast<Kind>(asked.kind)) {
    case Kind::Confirm:
      return text + " [Enter when done] ";
    case Kind::Choose:
      for (std::size_t i = 0; i < asked.choices.size(); ++i) {
        text += "\n  " + std::to_string(i + 1) + "  " + printable(asked.choices[i]);
      }
      return text + "\nWhich one? ";
    case Kind::EnterText:
      return text + " ";
    case Kind::EnterNumber:
      return text + " [" + QLTValue(asked.low).text() + " to " + QLTValue(asked.high).text() + "] ";
  }
  return text;
}

}  // namespace

Answered QuestionDesk::answer(const Asked& asked, const std::stop_token& cancelled) {
  try {
    if (asked.pattern) SerialPattern{*asked.pattern};
  } catch (const std::invalid_argument& reason) {
    return failed(asked, kQLTErrorQuestionWrong,
                  "a question that nobody can answer, for its pattern " + *asked.pattern +
                      " is wrong (" + reason.what() + "): " + asked.text);
  }
  return answers_ ? answerFromFile(asked) : answerFromTerminal(asked, cancelled);
}

Answered QuestionDesk::answerFromFile(const Asked& asked) const {
  const auto answer = answers_->next(asked.site, asked.text);
  if (!answer) {
    screen_.warning(printable(answers_->path().string()) + " has no answer for site " +
                    printable(asked.site) + " to: " + printable(asked.text));
    return failed(asked, kQLTErrorOperatorAbsent);
  }
  const auto problem = objection(asked, *answer);
  return {asked.site, asked.id, answer, problem ? kQLTErrorOperatorAnswerUnfit : 0,
          problem.value_or("")};
}

Answered QuestionDesk::answerFromTerminal(const Asked& asked, const std::stop_token& cancelled) {
  if (!SerialNumberPrompt::isPossible()) return failed(asked, kQLTErrorOperatorAbsent);
  SerialNumberPrompt::Patience patience;
  if (asked.timeOut) {
    // A longer one is for ever, and beyond the clock's range.
    constexpr double kLongest = 1e9;
    patience.until = SerialNumberPrompt::Clock::now() +
                     std::chrono::duration_cast<SerialNumberPrompt::Clock::duration>(
                         std::chrono::duration<double>(std::min(*asked.timeOut, kLongest)));
  }
  const auto typed = terminal_.answerTo(
      promptOf(asked),
      [&](const std::string& text) {
        const auto problem = objection(asked, chosen(asked, text));
        return problem ? printable(text) + " is " + printable(*problem) + "." : "";
      },
      patience, cancelled);
  if (typed) return {asked.site, asked.id, chosen(asked, *typed), 0, ""};
  const bool isLate = patience.until && SerialNumberPrompt::Clock::now() >= *patience.until &&
                      !Signals::stopRequested() && !cancelled.stop_requested();
  return failed(asked, isLate ? kQLTErrorOperatorTimedOut : kQLTErrorOperatorCancelled);
}

void QuestionDesk::show(const Shown& shown) {
  if (!screen_.isTerminal()) return;
  screen_.line("Site " + printable(shown.site) + ": " + printable(shown.text) +
               (shown.image ? " (image " + printable(*shown.image) + ")" : ""));
}

void QuestionDesk::show(const Progressed& progressed) {
  if (!screen_.isTerminal()) return;
  screen_.line("Site " + printable(progressed.site) + ": " +
               std::to_string(static_cast<int>(progressed.fraction * 100)) + " %  " +
               printable(progressed.text));
}

void QuestionDesk::warnOfUnused() const {
  if (!answers_) return;
  const auto lines = answers_->unusedLines();
  if (lines.empty()) return;
  screen_.warning(std::to_string(lines.size()) + (lines.size() == 1 ? " answer" : " answers") +
                  " of " + printable(answers_->path().string()) +
                  " nobody asked for, the first in line " + std::to_string(lines.front()));
}

}  // namespace station
