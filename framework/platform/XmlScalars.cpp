#include "XmlScalars.h"

#include <array>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <system_error>

namespace quillon::internal {
namespace {

constexpr std::string_view kWhiteSpace = " \t\n\r";

}  // namespace

std::string_view stripped(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kWhiteSpace);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kWhiteSpace) - first + 1);
}

std::optional<std::int64_t> wholeNumber(std::string_view text) {
  bool negative = false;
  if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
    negative = text.front() == '-';
    text.remove_prefix(1);
  }
  int base = 10;
  if (text.starts_with("0x") || text.starts_with("0X")) {
    base = 16;
    text.remove_prefix(2);
  }
  std::uint64_t magnitude = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, status] = std::from_chars(text.data(), end, magnitude, base);
  if (text.empty() || status != std::errc{} || stop != end) return std::nullopt;
  constexpr std::uint64_t highest = INT64_MAX;
  if (magnitude > highest + (negative ? 1 : 0)) return std::nullopt;
  return negative ? static_cast<std::int64_t>(-magnitude) : static_cast<std::int64_t>(magnitude);
}

std::optional<double> realNumber(std::string_view text) {
  if (!text.empty() && text.front() == '+') {
    text.remove_prefix(1);
    if (!text.empty() && text.front() == '-') return std::nullopt;
  }
  double value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, status] = std::from_chars(text.data(), end, value);
  if (text.empty() || status != std::errc{} || stop != end) return std::nullopt;
  return value;
}

std::optional<QLTDate> dateOf(std::string_view text) {
  constexpr std::string_view pattern = "0000-00-00T00:00:00Z";
  if (text.size() != pattern.size()) return std::nullopt;
  std::array<int, 6> fields{};
  std::size_t field = 0;
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    if (pattern[i] != '0') {
      if (text[i] != pattern[i]) return std::nullopt;
      ++field;
    } else {
      if (text[i] < '0' || text[i] > '9') return std::nullopt;
      fields[field] = fields[field] * 10 + (text[i] - '0');
    }
  }
  const std::chrono::year_month_day day{std::chrono::year(fields[0]),
                                        std::chrono::month(static_cast<unsigned>(fields[1])),
                                        std::chrono::day(static_cast<unsigned>(fields[2]))};
  if (!day.ok() || fields[3] > 23 || fields[4] > 59 || fields[5] > 60) return std::nullopt;
  return QLTDate(std::chrono::sys_days(day) + std::chrono::hours(fields[3]) +
                 std::chrono::minutes(fields[4]) + std::chrono::seconds(fields[5]));
}

namespace {

int base64Digit(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  return -1;
}

}  // namespace

std::optional<QLTData> dataOf(std::string_view text) {
  QLTData data;
  std::uint32_t bits = 0;
  int digits = 0;
  int padding = 0;
  for (const char c : text) {
    if (kWhiteSpace.find(c) != std::string_view::npos) continue;
    if (c == '=') {
      ++padding;
      continue;
    }
    const int digit = base64Digit(c);
    if (digit < 0 || padding > 0) return std::nullopt;
    bits = bits << 6U | static_cast<std::uint32_t>(digit);
    if (++digits % 4 == 0) {
      for (const unsigned shift : {16U, 8U, 0U}) {
        data.push_back(static_cast<std::uint8_t>(bits >> shift));
      }
      bits = 0;
    }
  }
  const int rest = digits % 4;
  if (rest == 1 || padding != (rest == 0 ? 0 : 4 - rest)) return std::nullopt;
  if (rest >= 2) {
    bits <<= static_cast<unsigned>(6 * (4 - rest));
    data.push_back(static_cast<std::uint8_t>(bits >> 16U));
    if (rest == 3) data.push_back(static_cast<std::uint8_t>(bits >> 8U));
  }
  return data;
}

}  // namespace quillon::internal
