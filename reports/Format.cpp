#include "Format.h"

#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <ctime>

#include "common/Format.h"
#include "common/TimeStamp.h"

namespace reports {
namespace {

constexpr std::int64_t kSecond = 1'000'000;

std::string local(std::int64_t microseconds, const char* form) {
  const auto seconds = static_cast<std::time_t>(
      std::chrono::floor<std::chrono::seconds>(std::chrono::microseconds(microseconds)).count());
  std::tm time{};
  localtime_r(&seconds, &time);
  std::array<char, 64> text{};
  return {text.data(), std::strftime(text.data(), text.size(), form, &time)};
}

template <typename... Form>
std::string charsOf(double number, Form... form) {
  std::array<char, 64> text{};
  const auto end = std::to_chars(text.data(), text.data() + text.size(), number, form...);
  return {text.data(), end.ptr};
}

}  // namespace

std::string exactText(double number) { return charsOf(number); }

std::string roundedText(double number) {
  return charsOf(number == 0 ? 0.0 : number, std::chars_format::general, 6);
}

std::string shareText(double share) {
  // 100 % and 0 % are said of nothing less.
  double percent = std::round(share * 1e4) / 1e2;
  if (share < 1 && percent >= 100) percent = 99.99;
  if (share > 0 && percent <= 0) percent = 0.01;
  return quillon::internal::fixedText(percent, 2) + " %";
}

std::string localTime(std::int64_t microseconds) { return local(microseconds, "%F %T"); }

std::string localDay(std::int64_t microseconds) { return local(microseconds, "%F"); }

std::string exactTime(std::int64_t microseconds) {
  const auto whole =
      std::chrono::floor<std::chrono::seconds>(std::chrono::microseconds(microseconds));
  const std::int64_t rest = microseconds - whole.count() * kSecond;
  return quillon::internal::utcText(std::chrono::sys_seconds(whole), 'T') + "." +
         std::to_string(kSecond + rest).substr(1) + "Z";
}

std::string shownText(const Cell& cell, Kind kind) {
  if (cell.isAbsent()) return "-";
  if (cell.text() != nullptr) return *cell.text();
  if (const auto* const count = cell.count()) {
    return kind == Kind::Time ? localTime(*count) : grouped(*count);
  }
  const double number = *cell.number();
  if (kind == Kind::Share) return shareText(number);
  if (kind == Kind::Index) return quillon::internal::fixedText(number, 2);
  if (kind == Kind::Rough) return charsOf(number, std::chars_format::general, 3);
  if (kind == Kind::Seconds) return roundedText(std::round(number * 1e3) / 1e3);
  return roundedText(number);
}

std::string exactText(const Cell& cell, Kind kind) {
  if (cell.isAbsent()) return "";
  if (cell.text() != nullptr) return *cell.text();
  if (const auto* const count = cell.count()) {
    return kind == Kind::Time ? exactTime(*count) : std::to_string(*count);
  }
  return exactText(*cell.number());
}

std::string counted(std::int64_t number, const std::string& what) {
  return grouped(number) + " " + what + (number == 1 ? "" : "s");
}

std::string grouped(std::int64_t number) {
  std::string text = std::to_string(number);
  const std::size_t sign = number < 0 ? 1 : 0;
  for (std::size_t place = text.size(); place > sign + 3;) {
    place -= 3;
    text.insert(place, ",");
  }
  return text;
}

}  // namespace reports
