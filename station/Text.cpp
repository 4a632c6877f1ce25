#include "Text.h"

#include <array>
#include <charconv>

#include <QLTUtil.h>

namespace station {

std::string printable(std::string_view text) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string result;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte != 0x7f) {
      result += c;
    } else if (c == '\n') {
      result += "\\n";
    } else if (c == '\r') {
      result += "\\r";
    } else if (c == '\t') {
      result += "\\t";
    } else {
      result += "\\x";
      result += digits[byte >> 4U];
      result += digits[byte & 0xfU];
    }
  }
  return result;
}

std::size_t widthOf(std::string_view text) {
  std::size_t width = 0;
  for (const char c : text) {
    const bool continuesCharacter = (static_cast<unsigned char>(c) & 0xc0U) == 0x80U;
    if (!continuesCharacter) ++width;
  }
  return width;
}

std::string padded(std::string text, std::size_t width) {
  const std::size_t present = widthOf(text);
  if (present < width) text.append(width - present, ' ');
  return text;
}

std::string secondsText(double seconds) {
  // Not printf: a plug-in may have set a locale with a decimal comma.
  std::array<char, 64> digits{};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), seconds,
                                 std::chars_format::fixed, 1);
  return std::string(digits.data(), end.ptr) + " s";
}

std::string shortNumber(const std::string& text) {
  double value = 0;
  const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), value);
  const bool isNumber = status == std::errc{} && end == text.data() + text.size();
  if (!isNumber || text.find_first_not_of("+-.0123456789") != std::string::npos) return text;
  if (text.find('.') == std::string::npos) return text;
  const std::string significant = text.substr(0, text.find_last_not_of('0') + 1);
  return significant.back() == '.' ? significant.substr(0, significant.size() - 1) : significant;
}

std::string listOf(const std::vector<std::string>& names) {
  return QLTUtil::arrayToString(names, ", ");
}

std::string describe(const QLTError& error) {
  return error.description().value_or(error.domain() + ", code " + std::to_string(error.code()));
}

}  // namespace station
