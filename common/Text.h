#pragma once

// Internal: not installed.

#include <charconv>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace quillon::internal {

inline constexpr std::string_view kBlanks = " \t";
inline constexpr std::string_view kNewlines = "\n\v\f\r";
inline constexpr std::string_view kWhiteSpaceAndNewlines = " \t\n\v\f\r";

/// The pieces of `text` between the characters of `separators`, untrimmed, empty ones included: one
/// more piece than there are separators.
std::vector<std::string> split(std::string_view text, std::string_view separators);

/// `text` without the `characters` at both ends.
std::string trimmed(std::string_view text, std::string_view characters = kWhiteSpaceAndNewlines);

/// The letters a to z in capitals, all else as it is.
std::string upperCase(std::string_view text);
/// The letters A to Z small, all else as it is.
std::string lowerCase(std::string_view text);

/// Appends the two hexadecimal digits of a byte.
void appendHex(std::string& text, unsigned char byte);

/// How many bytes the well-formed UTF-8 character at the front of `text` has; 0 when there is none.
std::size_t utf8Length(std::string_view text);

/// `text` fit for one line of a log or a terminal, in UTF-8: control characters, as device texts
/// carry them, and bytes that are no UTF-8 as escapes (`\n`, `\x1b`, `\xe9`).
std::string printable(std::string_view text);

/// The number that the whole of `text` is, without blanks and a plus sign; absent when it is none
/// or does not fit.
template <typename Number, typename... Base>
std::optional<Number> numberIn(std::string_view text, Base... base) {
  Number value{};
  const char* const end = text.data() + text.size();
  const auto [stop, status] = std::from_chars(text.data(), end, value, base...);
  if (status != std::errc{} || stop != end) return std::nullopt;
  return value;
}

}  // namespace quillon::internal
