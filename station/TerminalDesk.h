#pragma once

#include <memory>
#include <stop_token>
#include <string>

#include "AnswerFile.h"
#include "QuestionDesk.h"
#include "Screen.h"
#include "SerialNumberSource.h"

namespace station {

/// The questions of tests are answered from a file or, without one, by the operator at the
/// terminal, whom it shows what tests show.
class TerminalDesk : public QuestionDesk {
 public:
  /// `answers` may be null.
  TerminalDesk(std::unique_ptr<AnswerFile> answers, SerialNumberSource& terminal, Screen& screen)
      : answers_(std::move(answers)), terminal_(terminal), screen_(screen) {}

  Answered answer(const Asked& asked, const std::stop_token& cancelled) override;
  void show(const Shown& shown) override;
  void show(const Progressed& progressed) override;
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
