#pragma once

#include <chrono>

namespace sim {

/// As a time: without end.
inline constexpr std::chrono::milliseconds kForever = std::chrono::milliseconds::max();

/// Thrown by every wait once SIGINT or SIGTERM has come, so that the program ends from wherever it
/// is.
struct Stopped {};

/// Turns SIGINT and SIGTERM into `Stopped`, also one that came before a wait began, and ignores
/// SIGPIPE.
void stopOnSignals();

void sleepFor(std::chrono::milliseconds time);
/// Waits until `descriptor` is ready for one of poll(2)'s `events`, or has failed. Returns what it
/// is ready for; 0 when `time` has passed first.
short waitFor(int descriptor, short events, std::chrono::milliseconds time);

}  // namespace sim
