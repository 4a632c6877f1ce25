#pragma once

// Internal: not installed.

#include <chrono>
#include <cstddef>
#include <string>

#include <poll.h>

namespace quillon::bench {

using Deadline = std::chrono::steady_clock::time_point;

/// So many seconds from now; a number that is none, or is negative, is now.
Deadline deadlineIn(double seconds);
/// A time-out for people: "0.05 s".
std::string secondsText(double seconds);

/// Waits until `descriptor` can do one of `events` (as `poll` has them) or has failed: true; false
/// when `deadline` has passed, or the system does not let it wait, with errno as the reason then,
/// else 0. Signals do not end the wait. To the microsecond, not in steps.
bool awaitReady(int descriptor, short events, Deadline deadline);
/// The same of several, as `poll` takes them; negative descriptors are not waited for.
bool awaitReady(pollfd* lines, std::size_t count, Deadline deadline);

// `QLTBenchLine::receive` and `send` for a descriptor that does not block.

std::ptrdiff_t receiveFrom(int descriptor, char* bytes, std::size_t size, Deadline deadline);
/// To a terminal or a pipe; SIGPIPE is the caller's affair.
std::ptrdiff_t writeTo(int descriptor, const char* bytes, std::size_t size, Deadline deadline);
/// To a socket; SIGPIPE does not come of it.
std::ptrdiff_t sendTo(int descriptor, const char* bytes, std::size_t size, Deadline deadline);

}  // namespace quillon::bench
