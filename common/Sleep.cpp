#include "Sleep.h"

#include <cerrno>
#include <cstdint>

#include <sys/prctl.h>
#include <time.h>

namespace quillon::internal {

void sleepFor(std::chrono::nanoseconds duration) {
  if (duration.count() <= 0) return;
  // An absolute end keeps the length right however often a signal interrupts the sleep.
  timespec end{};
  clock_gettime(CLOCK_MONOTONIC, &end);
  constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;
  end.tv_sec += duration.count() / nanosecondsPerSecond;
  end.tv_nsec += duration.count() % nanosecondsPerSecond;
  if (end.tv_nsec >= nanosecondsPerSecond) {
    ++end.tv_sec;
    end.tv_nsec -= nanosecondsPerSecond;
  }
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) == EINTR) {
  }
}

void sleepForSeconds(double seconds) {
  constexpr double longest = 4e9;  // more than a century, well inside the clock's range
  if (!(seconds > 0)) return;
  const double limited = seconds < longest ? seconds : longest;
  sleepFor(std::chrono::nanoseconds(static_cast<std::int64_t>(limited * 1e9)));
}

ExactSleeps::ExactSleeps() : earlierSlack_(prctl(PR_GET_TIMERSLACK)) {
  prctl(PR_SET_TIMERSLACK, 1UL);  // ns; 0 would mean the default
}

ExactSleeps::~ExactSleeps() {
  if (earlierSlack_ > 0) prctl(PR_SET_TIMERSLACK, static_cast<unsigned long>(earlierSlack_));
}

}  // namespace quillon::internal
