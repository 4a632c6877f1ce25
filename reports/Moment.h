#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace reports {

/// The moment that a text names, in microseconds since 1970, UTC: "2026-11-21" (its midnight) or
/// "2026-11-21T08:00", with ":30" for seconds, in local time; "today" or "yesterday", their
/// midnights; "7d", "12h", so long before `nowUs`. Absent when it names none.
std::optional<std::int64_t> momentOf(const std::string& text, std::int64_t nowUs);

/// How they are written, for a message.
inline constexpr const char* kMoments = "2026-11-21, 2026-11-21T08:00, today, yesterday, 7d or 12h";

}  // namespace reports
