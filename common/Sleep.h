#pragma once

// Internal: not installed.

#include <chrono>

namespace quillon::internal {

/// Suspends the calling thread for the whole time, also when signals interrupt it. A duration of
/// zero or less returns at once.
void sleepFor(std::chrono::nanoseconds duration);

/// As above; NaN and negative values return at once, values beyond the clock's range are limited to
/// it.
void sleepForSeconds(double seconds);

/// For as long as it lives, the sleeps of the thread that made it end without the slack (commonly
/// 50 µs) by which the system delays them to wake threads together. They are never shorter.
class ExactSleeps {
 public:
  ExactSleeps();
  ~ExactSleeps();
  ExactSleeps(const ExactSleeps&) = delete;
  ExactSleeps& operator=(const ExactSleeps&) = delete;

 private:
  int earlierSlack_;
};

}  // namespace quillon::internal
