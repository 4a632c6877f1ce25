#include "bench/ScpiText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>

#include <fnmatch.h>

#include "common/Text.h"

using quillon::internal::trimmed;
using quillon::internal::upperCase;

namespace quillon::bench {
namespace {

constexpr double kInfinity = 9.9e37;
constexpr double kNotANumber = 9.91e37;

bool isAbout(double value, double marker) { return std::abs(value - marker) < marker * 1e-4; }

std::optional<double> wholeNumber(std::string_view text) {
  const char radix = text.size() > 2 ? text[1] : '\0';
  const int base = radix == 'H' ? 16 : radix == 'Q' ? 8 : radix == 'B' ? 2 : 0;
  if (base == 0) return std::nullopt;
  const auto number = internal::numberIn<std::uint64_t>(text.substr(2), base);
  if (!number) return std::nullopt;
  return static_cast<double>(*number);
}

/// Where the text that begins with a quote at `start` ends: behind its second quote.
std::size_t endOfString(std::string_view text, std::size_t start) {
  for (std::size_t i = start + 1; i < text.size(); ++i) {
    if (text[i] != text[start]) continue;
    if (i + 1 == text.size() || text[i + 1] != text[start]) return i + 1;
    ++i;
  }
  return text.npos;
}

/// Where the block that begins with a # at `start` ends; behind the # where it begins none.
std::size_t endOfBlock(std::string_view text, std::size_t start) {
  const std::size_t digits = start + 1 < text.size() ? text[start + 1] - std::size_t{'0'} : 10;
  if (digits == 0) return text.size();  // as long as the message
  if (digits > 9 || start + 2 + digits > text.size()) return start + 1;
  const auto length = internal::numberIn<std::uint64_t>(text.substr(start + 2, digits));
  if (!length) return start + 1;
  return std::min<std::uint64_t>(start + 2 + digits + *length, text.size());
}

bool isQuote(char letter) { return letter == '"' || letter == '\''; }

}  // namespace

std::optional<double> scpiNumber(std::string_view text) {
  const std::string word = upperCase(trimmed(text));
  constexpr double infinity = std::numeric_limits<double>::infinity();
  if (word == "NAN") return std::numeric_limits<double>::quiet_NaN();
  if (word == "INF" || word == "INFINITY") return infinity;
  if (word == "NINF" || word == "NINFINITY") return -infinity;
  if (word.starts_with('#')) return wholeNumber(word);
  std::string_view digits(word);
  const bool hasPlus = digits.starts_with('+');
  if (hasPlus) digits.remove_prefix(1);
  // A second sign, and the words that the conversion itself would take.
  if (hasPlus && digits.starts_with('-')) return std::nullopt;
  if (digits.find_first_not_of("0123456789.-E+") != digits.npos) return std::nullopt;
  const auto value = internal::numberIn<double>(digits);
  if (!value) return std::nullopt;
  if (isAbout(*value, kNotANumber)) return std::numeric_limits<double>::quiet_NaN();
  if (isAbout(std::abs(*value), kInfinity)) return std::copysign(infinity, *value);
  return value;
}

std::optional<bool> scpiSwitch(std::string_view text) {
  const std::string word = upperCase(trimmed(text));
  if (word == "ON") return true;
  if (word == "OFF") return false;
  const auto number = scpiNumber(word);
  if (!number || (*number != 0 && *number != 1)) return std::nullopt;
  return *number == 1;
}

std::optional<std::string> scpiString(std::string_view text) {
  const std::string whole = trimmed(text);
  if (whole.empty() || !isQuote(whole.front())) return whole;
  if (endOfString(whole, 0) != whole.size()) return std::nullopt;
  std::string content;
  for (std::size_t i = 1; i + 1 < whole.size(); ++i) {
    content += whole[i];
    if (whole[i] == whole.front()) ++i;
  }
  return content;
}

std::optional<std::vector<std::string>> scpiItems(std::string_view text) {
  std::vector<std::string> items;
  std::size_t start = 0;
  std::size_t depth = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (isQuote(text[i])) {
      const std::size_t end = endOfString(text, i);
      if (end == text.npos) return std::nullopt;
      i = end - 1;
    } else if (text[i] == '(') {
      ++depth;
    } else if (text[i] == ')') {
      depth -= depth > 0 ? 1 : 0;
    } else if (text[i] == ',' && depth == 0) {
      items.push_back(trimmed(text.substr(start, i - start)));
      start = i + 1;
    }
  }
  items.push_back(trimmed(text.substr(start)));
  return items;
}

std::optional<ScpiQueueEntry> scpiQueueEntry(std::string_view text) {
  const std::string whole = trimmed(text);
  const std::size_t comma = whole.find(',');
  std::string_view number = std::string_view(whole).substr(0, comma);
  if (number.starts_with('+')) number.remove_prefix(1);
  const auto code = internal::numberIn<std::int32_t>(trimmed(number));
  if (!code) return std::nullopt;
  if (comma == whole.npos) return ScpiQueueEntry{*code, ""};
  const std::string rest = whole.substr(comma + 1);
  return ScpiQueueEntry{*code, scpiString(rest).value_or(trimmed(rest))};
}

bool fitsPattern(std::string_view text, const std::string& pattern) {
  return ::fnmatch(pattern.c_str(), std::string(text).c_str(), FNM_CASEFOLD) == 0;
}

std::string scpiArgument(double value) {
  std::array<char, 32> text{};
  const auto result = std::to_chars(text.data(), text.data() + text.size(), value);
  return {text.data(), result.ptr};
}

bool isScpiArgument(std::string_view argument) {
  return argument.find("nan") == argument.npos && argument.find("inf") == argument.npos;
}

ScpiMessage scpiMessage(std::string_view text) {
  ScpiMessage message;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (isQuote(text[i])) {
      const std::size_t end = std::min(endOfString(text, i), text.size());
      const std::string_view quoted = text.substr(i, end - i);
      message.hasLineEnd |= quoted.find_first_of("\r\n") != quoted.npos;
      i = end - 1;
    } else if (text[i] == '#') {
      i = endOfBlock(text, i) - 1;
    } else {
      message.isQuery |= text[i] == '?';
      message.hasLineEnd |= text[i] == '\r' || text[i] == '\n';
    }
  }
  return message;
}

}  // namespace quillon::bench
