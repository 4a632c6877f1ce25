#pragma once

#include <memory>
#include <stop_token>
#include <string>

#include "AnswerFile.h"
#include "Screen.h"
#include "SerialNumberSource.h"
#include "link/Messages.h"

namespace station {

/// Where the questions of tests are answered: from a file or, without one, by the operator at the
/// terminal, whom it shows what tests show. Sites may call at once.
class QuestionDesk {
 public:
  /// `answers` may be null.
  QuestionDesk(std::unique_ptr<AnswerFile> answers, SerialNumberSource& terminal, Screen& screen)
      : answers_(std::move(answers)), terminal_(terminal), screen_(screen) {}

  /// Waits for the answer, which fits the question; or tells why there is none.
  Answered answer(const Asked& asked, const std::stop_token& cancelled);
  void show(const Shown& shown);
  void show(const Progressed& progressed);
  /// Tells which answers of the file nobody asked for.
  void warnOfUnused() const;

 private:
  Answered answerFromFile(const Asked& asked) const;
  Answered answerFromTerminal(const Asked& asked, const std::stop_token& cancelled);

  const std::unique_ptr<AnswerFile> answers_;
  SerialNumberSource& terminal_;
  Screen& screen_;
};

}  // namespace station
