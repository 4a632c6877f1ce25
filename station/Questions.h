#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "link/Messages.h"

namespace station {

// What holds for questions of tests wherever they are answered.

/// The answer to a question that nobody can answer; absent when it can be answered.
std::optional<Answered> refusal(const Asked& asked);
/// No answer, for this reason: one of the framework's codes.
Answered unanswered(const Asked& asked, int code, std::string reason = {});
/// What is wrong with an answer, "too long" for example; absent when it fits.
std::optional<std::string> objection(const Asked& asked, const std::string& answer);
/// Likewise as a sentence for who gave it; "" when it fits.
std::string complaintAbout(const Asked& asked, const std::string& answer);
/// When its time-out is over; absent when it has none.
std::optional<std::chrono::steady_clock::time_point> deadlineOf(const Asked& asked);

}  // namespace station
