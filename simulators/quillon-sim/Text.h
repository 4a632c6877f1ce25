#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

/// The bytes that an escaped text stands for: \n \r \t \0 \\ \" and \xHH for any byte. Throws
/// `Problem` for another backslash.
std::string unescaped(std::string_view text);
/// The text for a screen: in quotes, with the escapes of `unescaped` for all that is not printable
/// ASCII.
std::string quoted(std::string_view bytes);

/// A whole number of at most `most`. Throws `Problem` when the text is none.
std::uint64_t numberIn(std::string_view text, std::uint64_t most);

/// The pieces of `text` between the separators that stand outside '...', "..." and (...); always at
/// least one.
std::vector<std::string_view> splitUnquoted(std::string_view text, char separator);

}  // namespace sim
