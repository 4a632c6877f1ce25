#include "TimeLimit.h"

#include <utility>

#include "Text.h"
#include "common/Format.h"

namespace station {

void TimeLimit::start(std::string what, std::optional<double> seconds) {
  what_ = std::move(what);
  seconds_ = seconds;
  since_ = Clock::now();
  left_ = std::chrono::duration_cast<Clock::duration>(
      std::chrono::duration<double>(seconds_.value_or(0)));
}

void TimeLimit::pause() {
  if (questions_++ == 0) left_ -= Clock::now() - since_;
}

void TimeLimit::resume() {
  if (--questions_ == 0) since_ = Clock::now();
}

std::optional<TimeLimit::Clock::time_point> TimeLimit::deadline() const {
  if (!seconds_ || questions_ > 0) return std::nullopt;
  return since_ + left_;
}

std::string TimeLimit::excess() const {
  return what_ + " exceeded its time limit of " +
         shortNumber(quillon::internal::sixDecimals(seconds_.value_or(0))) + " s";
}

}  // namespace station
