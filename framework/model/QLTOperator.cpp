#include "QLTOperator.h"

#include <utility>

#include <QLTConsoleLog.h>
#include <QLTErrorCodes.h>
#include <QLTValue.h>

#include "common/Format.h"
#include "common/Text.h"
#include "platform/Failed.h"

using quillon::internal::failWith;
using quillon::internal::format;
using quillon::internal::numberIn;
using quillon::internal::trimmed;

namespace {

using Kind = QLTQuestion::Kind;

QLTQuestion questionOf(Kind kind, const QLTText& text, const QLTAskOptions& options) {
  return {.kind = kind,
          .text = text.orEmpty(),
          .image = options.image.text(),
          .timeOutInSeconds = options.timeOutInSeconds};
}

QLTError recordOf(std::int32_t code, std::string description) {
  return QLTError::withDescription(QLTFrameworkErrorDomain, code, std::move(description));
}

/// Why nobody can answer the question; absent when somebody can.
std::optional<std::string> mistakeOf(const QLTQuestion& question) {
  if (question.timeOutInSeconds && !(*question.timeOutInSeconds > 0)) {
    return "its time-out is not above 0";
  }
  if (question.kind == Kind::Choose && question.choices.empty()) return "it has no choices";
  // Not "low > high": limits that are not numbers are a mistake, too.
  if (question.kind == Kind::EnterNumber && !(question.lowLimit <= question.highLimit)) {
    return "no number is within its limits";
  }
  return std::nullopt;
}

double shareOf(double fraction) {
  if (!(fraction > 0)) return 0;
  return fraction < 1 ? fraction : 1;
}

}  // namespace

bool QLTOperator::confirm(const QLTText& text, const QLTAskOptions& options, QLTError* error) {
  return answerTo(questionOf(Kind::Confirm, text, options), error).has_value();
}

std::optional<std::string> QLTOperator::choose(const QLTText& text,
                                               const std::vector<std::string>& choices,
                                               const QLTAskOptions& options, QLTError* error) {
  QLTQuestion question = questionOf(Kind::Choose, text, options);
  question.choices = choices;
  return answerTo(question, error);
}

std::optional<std::string> QLTOperator::enterText(const QLTText& text, const QLTText& pattern,
                                                  const QLTAskOptions& options, QLTError* error) {
  QLTQuestion question = questionOf(Kind::EnterText, text, options);
  question.pattern = pattern.text();
  return answerTo(question, error);
}

std::optional<double> QLTOperator::enterNumber(const QLTText& text, double lowLimit,
                                               double highLimit, const QLTAskOptions& options,
                                               QLTError* error) {
  QLTQuestion question = questionOf(Kind::EnterNumber, text, options);
  question.lowLimit = lowLimit;
  question.highLimit = highLimit;
  const std::optional<std::string> answer = answerTo(question, error);
  return answer ? numberIn<double>(trimmed(*answer)) : std::nullopt;
}

bool QLTOperator::show(const QLTText& text, const QLTText& image, QLTError* error) {
  QLTLog(format("{Operator_Show}: %@", text.orEmpty()));
  return showText(text.orEmpty(), image.text(), error);
}

bool QLTOperator::progress(double fraction, const QLTText& text, QLTError* error) {
  return showProgress(shareOf(fraction), text.orEmpty(), error);
}

QLTError QLTOperator::failure(std::int32_t code, const QLTQuestion& question) {
  std::string reason = "there is nobody to ask";
  if (code == kQLTErrorOperatorCancelled) reason = "the run was stopped before an answer came";
  if (code == kQLTErrorOperatorTimedOut) {
    const QLTValue seconds(question.timeOutInSeconds.value_or(0));
    reason = format("nobody answered within %@ s", seconds.text());
  }
  return recordOf(code, reason + ": " + question.text);
}

QLTError QLTOperator::unfit(const QLTQuestion& question, const std::string& answer,
                            const std::string& reason) {
  return recordOf(kQLTErrorOperatorAnswerUnfit,
                  format("the answer \"%@\" is %@: %@", answer, reason, question.text));
}

/// The answer, which fits the question. Only here, so that no implementation need be trusted.
std::optional<std::string> QLTOperator::answerTo(const QLTQuestion& question, QLTError* error) {
  if (const auto mistake = mistakeOf(question)) {
    return failWith(error, recordOf(kQLTErrorQuestionWrong,
                                    format("a question that nobody can answer, for %@: %@",
                                           *mistake, question.text)));
  }
  QLTLog(format("{Operator_Ask}: %@", question.text));
  QLTError problem;
  std::optional<std::string> answer = ask(question, &problem);
  if (answer) {
    QLTLog(format("{Operator_Answer}: %@", *answer));
    const std::optional<std::string> objection = question.objection(*answer);
    if (!objection) return answer;
    problem = unfit(question, *answer, *objection);
  } else if (!problem) {
    problem = failure(kQLTErrorOperatorAbsent, question);
  }
  QLTLog(problem.description().value_or("the question failed"));
  return failWith(error, std::move(problem));
}
