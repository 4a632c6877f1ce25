#include "TerminalDesk.h"

#include <cstddef>
#include <optional>

#include <QLTErrorCodes.h>
#include <QLTQuestion.h>
#include <QLTValue.h>

#include "Questions.h"
#include "Signals.h"
#include "Text.h"

namespace station {
namespace {

using Kind = QLTQuestion::Kind;

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

Answered TerminalDesk::answer(const Asked& asked, const std::stop_token& cancelled) {
  if (auto refused = refusal(asked)) return *refused;
  return answers_ ? answerFromFile(asked) : answerFromTerminal(asked, cancelled);
}

Answered TerminalDesk::answerFromFile(const Asked& asked) const {
  const auto answer = answers_->next(asked.site, asked.text);
  if (!answer) {
    screen_.warning(printable(answers_->path().string()) + " has no answer for site " +
                    printable(asked.site) + " to: " + printable(asked.text));
    return unanswered(asked, kQLTErrorOperatorAbsent);
  }
  const auto problem = objection(asked, *answer);
  return {asked.site, asked.id, answer, problem ? kQLTErrorOperatorAnswerUnfit : 0,
          problem.value_or("")};
}

Answered TerminalDesk::answerFromTerminal(const Asked& asked, const std::stop_token& cancelled) {
  if (!SerialNumberPrompt::isPossible()) return unanswered(asked, kQLTErrorOperatorAbsent);
  SerialNumberPrompt::Patience patience;
  patience.until = deadlineOf(asked);
  const auto typed = terminal_.answerTo(
      promptOf(asked),
      [&](const std::string& text) { return complaintAbout(asked, chosen(asked, text)); }, patience,
      cancelled);
  if (typed) return {asked.site, asked.id, chosen(asked, *typed), 0, ""};
  const bool isLate = patience.until && SerialNumberPrompt::Clock::now() >= *patience.until &&
                      !Signals::stopRequested() && !cancelled.stop_requested();
  return unanswered(asked, isLate ? kQLTErrorOperatorTimedOut : kQLTErrorOperatorCancelled);
}

void TerminalDesk::show(const Shown& shown) {
  if (!screen_.isTerminal()) return;
  screen_.line("Site " + printable(shown.site) + ": " + printable(shown.text) +
               (shown.image ? " (image " + printable(*shown.image) + ")" : ""));
}

void TerminalDesk::show(const Progressed& progressed) {
  if (!screen_.isTerminal()) return;
  screen_.line("Site " + printable(progressed.site) + ": " +
               std::to_string(static_cast<int>(progressed.fraction * 100)) + " %  " +
               printable(progressed.text));
}

void TerminalDesk::warnOfUnused() const {
  if (!answers_) return;
  const auto lines = answers_->unusedLines();
  if (lines.empty()) return;
  screen_.warning(std::to_string(lines.size()) + (lines.size() == 1 ? " answer" : " answers") +
                  " of " + printable(answers_->path().string()) +
                  " nobody asked for, the first in line " + std::to_string(lines.front()));
}

}  // namespace station
