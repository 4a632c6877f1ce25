#include "TimeStamp.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <ctime>

namespace quillon::internal {

std::string utcText(std::chrono::sys_seconds moment, char between) {
  const std::time_t seconds = moment.time_since_epoch().count();
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  std::array<char, 80> text{};
  const int length =
      std::snprintf(text.data(), text.size(), "%04d-%02d-%02d%c%02d:%02d:%02d", utc.tm_year + 1900,
                    utc.tm_mon + 1, utc.tm_mday, between, utc.tm_hour, utc.tm_min, utc.tm_sec);
  return {text.data(), static_cast<std::size_t>(length)};
}

std::string timeStamp(std::chrono::system_clock::time_point moment) {
  const auto whole = std::chrono::floor<std::chrono::seconds>(moment);
  const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(moment - whole).count();
  return utcText(whole) + "." + std::to_string(1000 + milliseconds).substr(1);
}

}  // namespace quillon::internal
