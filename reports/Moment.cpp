#include "Moment.h"

#include <chrono>
#include <cstddef>
#include <ctime>
#include <string_view>

#include "common/Text.h"

namespace reports {
namespace {

using quillon::internal::numberIn;

constexpr std::int64_t kSecond = 1'000'000;

std::optional<std::int64_t> microsecondsOf(std::tm local) {
  local.tm_isdst = -1;
  const std::tm wanted = local;
  const std::time_t seconds = std::mktime(&local);
  // A day that there is not, as the 31st of June, becomes another one.
  if (seconds == -1 || local.tm_mday != wanted.tm_mday || local.tm_mon != wanted.tm_mon) {
    return std::nullopt;
  }
  return seconds * kSecond;
}

std::int64_t midnight(std::int64_t nowUs, int daysBefore) {
  const auto now = static_cast<std::time_t>(nowUs / kSecond);
  std::tm day{};
  localtime_r(&now, &day);
  day.tm_hour = day.tm_min = day.tm_sec = 0;
  day.tm_mday -= daysBefore;
  day.tm_isdst = -1;
  return std::mktime(&day) * kSecond;
}

/// The number that stands at a place of the text, of so many digits, at most `most`.
std::optional<int> digits(std::string_view text, std::size_t place, std::size_t count, int most) {
  if (place + count > text.size()) return std::nullopt;
  const std::string_view part = text.substr(place, count);
  if (part.find_first_not_of("0123456789") != std::string_view::npos) return std::nullopt;
  const auto number = numberIn<int>(part);
  return number && *number <= most ? number : std::nullopt;
}

std::optional<std::int64_t> calendarMoment(const std::string& text) {
  const std::string_view form = "0000-00-00T00:00:00";
  if (text.size() != 10 && text.size() != 16 && text.size() != 19) return std::nullopt;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (form[i] != '0' && text[i] != form[i] && !(i == 10 && text[i] == ' ')) return std::nullopt;
  }
  const auto year = digits(text, 0, 4, 9999);
  const auto month = digits(text, 5, 2, 12);
  const auto day = digits(text, 8, 2, 31);
  const auto hour = text.size() > 10 ? digits(text, 11, 2, 23) : 0;
  const auto minute = text.size() > 10 ? digits(text, 14, 2, 59) : 0;
  const auto second = text.size() > 16 ? digits(text, 17, 2, 59) : 0;
  if (!year || !month || !day || !hour || !minute || !second) return std::nullopt;
  if (*year < 1970 || *month < 1 || *day < 1) return std::nullopt;
  std::tm local{};
  local.tm_year = *year - 1900;
  local.tm_mon = *month - 1;
  local.tm_mday = *day;
  local.tm_hour = *hour;
  local.tm_min = *minute;
  local.tm_sec = *second;
  return microsecondsOf(local);
}

}  // namespace

std::optional<std::int64_t> momentOf(const std::string& text, std::int64_t nowUs) {
  if (text == "today") return midnight(nowUs, 0);
  if (text == "yesterday") return midnight(nowUs, 1);
  if (text.size() > 1 && (text.back() == 'd' || text.back() == 'h')) {
    constexpr std::int64_t kHour = 3600 * kSecond;
    const auto count = numberIn<std::int64_t>(text.substr(0, text.size() - 1));
    if (!count || *count < 0 || *count > 1'000'000) return std::nullopt;
    return nowUs - *count * (text.back() == 'd' ? 24 * kHour : kHour);
  }
  return calendarMoment(text);
}

}  // namespace reports
