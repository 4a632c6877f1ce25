#pragma once

// Internal: not installed.

#include <cstdint>
#include <optional>
#include <string_view>

#include <QLTValue.h>

namespace quillon::internal {

// What the text of an element means in an XML property list; absent when it means nothing.

/// `text` without the white space of XML at both ends.
std::string_view stripped(std::string_view text);

/// A whole number of 64 bits, decimal or, after 0x, hexadecimal.
std::optional<std::int64_t> wholeNumber(std::string_view text);

/// A decimal number with fraction and exponent.
std::optional<double> realNumber(std::string_view text);

/// "2026-11-14T22:16:30Z"
std::optional<QLTDate> dateOf(std::string_view text);

/// Base64 with any white space in it.
std::optional<QLTData> dataOf(std::string_view text);

}  // namespace quillon::internal
