#pragma once

// Internal: not installed.

#include <string>
#include <string_view>

namespace quillon::internal {

/// Appends a field of a CSV line as RFC 4180 has it: in double quotes, those within it doubled,
/// when it holds a comma, a double quote or a line end, or is empty though present.
void appendCsvField(std::string& line, std::string_view field);

/// What ends a line of such a file.
inline constexpr std::string_view kCsvLineEnd = "\r\n";

}  // namespace quillon::internal
