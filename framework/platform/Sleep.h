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

}  // namespace quillon::internal
