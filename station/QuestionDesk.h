#pragma once

#include <optional>
#include <stop_token>
#include <string>

#include "link/Messages.h"

namespace station {

/// Where the questions of tests are answered, and what tests show is seen. Sites may call at once.
class QuestionDesk {
 public:
  QuestionDesk() = default;
  virtual ~QuestionDesk() = default;
  QuestionDesk(const QuestionDesk&) = delete;
  QuestionDesk& operator=(const QuestionDesk&) = delete;

  /// Waits for the answer, which fits the question; or tells why there is none.
  virtual Answered answer(const Asked& asked, const std::stop_token& cancelled) = 0;
  virtual void show(const Shown& shown) = 0;
  virtual void show(const Progressed& progressed) = 0;
};

}  // namespace station
