#include "Format.h"

#include <algorithm>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <limits>

#include <locale.h>

namespace quillon::internal {
namespace {

bool isSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

std::string_view withoutLeadingSpace(std::string_view text) {
  while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
  return text;
}

locale_t pointLocale() {
  static const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
  return locale;
}

}  // namespace

std::size_t decimalLength(std::string_view text) {
  std::size_t i = 0;
  const auto digits = [&] {
    const std::size_t start = i;
    while (i < text.size() && isDigit(text[i])) ++i;
    return i - start;
  };
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
  std::size_t mantissa = digits();
  if (i < text.size() && text[i] == '.') {
    ++i;
    mantissa += digits();
  }
  if (mantissa == 0) return 0;
  const std::size_t end = i;
  if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
    ++i;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
    if (digits() == 0) i = end;
  }
  return i;
}

std::string fixedText(double value, int decimals) {
  if (std::isnan(value)) return "nan";
  std::array<char, std::numeric_limits<double>::max_exponent10 + 16> buffer;
  const auto [end, status] = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value,
                                           std::chars_format::fixed, decimals);
  return {buffer.data(), status == std::errc{} ? end : buffer.data()};
}

std::string sixDecimals(double value) { return fixedText(value, 6); }

bool booleanReading(std::string_view text) {
  text = withoutLeadingSpace(text);
  if (!text.empty() && (text.front() == '+' || text.front() == '-')) text.remove_prefix(1);
  while (!text.empty() && text.front() == '0') text.remove_prefix(1);
  if (text.empty()) return false;
  const char c = text.front();
  return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
}

std::int32_t integerReading(std::string_view text) {
  constexpr std::int64_t lowest = std::numeric_limits<std::int32_t>::min();
  constexpr std::int64_t highest = std::numeric_limits<std::int32_t>::max();
  return static_cast<std::int32_t>(std::clamp(wideIntegerReading(text), lowest, highest));
}

std::int64_t wideIntegerReading(std::string_view text) {
  text = withoutLeadingSpace(text);
  if (!text.empty() && text.front() == '+') {
    text.remove_prefix(1);
    if (!text.empty() && text.front() == '-') return 0;
  }
  std::int64_t value = 0;
  const auto status = std::from_chars(text.data(), text.data() + text.size(), value).ec;
  if (status != std::errc::result_out_of_range) return value;
  return text.front() == '-' ? std::numeric_limits<std::int64_t>::min()
                             : std::numeric_limits<std::int64_t>::max();
}

double realReading(std::string_view text) {
  text = withoutLeadingSpace(text);
  const std::string number(text.substr(0, decimalLength(text)));
  return number.empty() ? 0.0 : strtod_l(number.c_str(), nullptr, pointLocale());
}

std::string formatArguments(std::string_view format, const FormatArgument* arguments,
                            std::size_t count) {
  std::string result;
  std::size_t next = 0;
  for (std::size_t i = 0; i < format.size(); ++i) {
    if (format[i] != '%' || i + 1 == format.size()) {
      result += format[i];
      continue;
    }
    ++i;
    if (format[i] == '%') {
      result += '%';
      continue;
    }
    std::size_t width = 0;
    while (i < format.size() && isDigit(format[i])) {
      width = width * 10 + static_cast<std::size_t>(format[i++] - '0');
    }
    if (next == count || i == format.size()) break;
    const FormatArgument& argument = arguments[next++];
    if (format[i] == 'x') {
      std::array<char, 16> digits{};
      const auto end =
          std::to_chars(digits.data(), digits.data() + digits.size(), argument.bits(), 16).ptr;
      const auto length = static_cast<std::size_t>(end - digits.data());
      if (length < width) result.append(width - length, '0');
      result.append(digits.data(), length);
    } else {
      result += argument.text();
    }
  }
  return result;
}

}  // namespace quillon::internal
