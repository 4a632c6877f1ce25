#pragma once

#include <cstdint>
#include <string>

#include "reports/Report.h"

namespace reports {

/// All digits of a number, as few as tell it from any other: "0.1".
std::string exactText(double number);
/// As far as people read it: six digits.
std::string roundedText(double number);
/// "98.5 %"
std::string shareText(double share);
/// Local time, "2026-11-21 08:00:00".
std::string localTime(std::int64_t microseconds);
/// Local day, "2026-11-21".
std::string localDay(std::int64_t microseconds);
/// UTC to the microsecond, "2026-11-21T07:00:00.000000Z".
std::string exactTime(std::int64_t microseconds);

/// A field for people; "-" when it is absent.
std::string shownText(const Cell& cell, Kind kind);
/// A field for programs, with all digits; "" when it is absent.
std::string exactText(const Cell& cell, Kind kind);

/// "1 run", "2 runs", "1,234 runs".
std::string counted(std::int64_t number, const std::string& what);
/// "1,234"
std::string grouped(std::int64_t number);

}  // namespace reports
