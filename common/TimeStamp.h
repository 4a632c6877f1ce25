#pragma once

// Internal: not installed.

#include <chrono>
#include <string>

namespace quillon::internal {

/// A moment in UTC, in whole seconds: "2026-11-14 22:16:30", with another character between date
/// and time when one is given. Whatever the process locale is.
std::string utcText(std::chrono::sys_seconds moment, char between = ' ');

/// A moment in UTC as a log has it, to the millisecond: "2026-11-14 22:16:30.123".
std::string timeStamp(
    std::chrono::system_clock::time_point moment = std::chrono::system_clock::now());

}  // namespace quillon::internal
