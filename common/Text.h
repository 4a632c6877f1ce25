#pragma once

// Internal: not installed.

#include <string>
#include <string_view>
#include <vector>

namespace quillon::internal {

inline constexpr std::string_view blanks = " \t";
inline constexpr std::string_view newlines = "\n\v\f\r";
inline constexpr std::string_view whiteSpaceAndNewlines = " \t\n\v\f\r";

/// The pieces of `text` between the characters of `separators`, untrimmed, empty ones included: one
/// more piece than there are separators.
std::vector<std::string> split(std::string_view text, std::string_view separators);

/// `text` without the `characters` at both ends.
std::string trimmed(std::string_view text, std::string_view characters = whiteSpaceAndNewlines);

}  // namespace quillon::internal
