#pragma once

// Internal: not installed.

#include <chrono>
#include <cstddef>

namespace quillon::bench {

using Deadline = std::chrono::steady_clock::time_point;

/// Waits until `descriptor` can do one of `events` (as `poll` has them) or has failed: true; false
/// when `deadline` has passed, or the system does not let it wait, with errno as the reason then,
/// else 0. Signals do not end the wait. To the microsecond, not in steps.
bool awaitReady(int descriptor, short events, Deadline deadline);

// `QLTBenchLine::receive` and `send` for a descriptor that does not block.

std::ptrdiff_t receiveFrom(int descriptor, char* bytes, std::size_t size, Deadline deadline);
std::ptrdiff_t sendTo(int descriptor, const char* bytes, std::size_t size, Deadline deadline);

}  // namespace quillon::bench
