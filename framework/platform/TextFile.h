#pragma once

// Internal: not installed.

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <QLTError.h>

#include "common/Text.h"

namespace quillon::internal {

/// The whole content of a file, as it is; absent when it cannot be read, with errno as the error.
std::optional<std::string> readFile(const std::filesystem::path& path, QLTError* error = nullptr);

/// As `readFile`, of a regular file that has at most `most` bytes: anything else could wait or go
/// on for ever. The error is EISDIR for a folder, EINVAL for a pipe or device, EFBIG for a larger
/// file.
std::optional<std::string> readRegularFile(const std::filesystem::path& path, std::size_t most,
                                           QLTError* error = nullptr);

/// The whole content of a file of 7-bit ASCII text; absent when it cannot be read. Errors have the
/// domain `kQLTPosixErrorDomain` and name the file: the errno value of the read, or EILSEQ for a
/// byte over 127, whose description is "PATH:LINE: ...".
std::optional<std::string> readAsciiFile(const std::filesystem::path& path,
                                         QLTError* error = nullptr);

/// The pieces of `text` between its newline characters (LF, VT, FF, CR), untrimmed, empty ones
/// included: one more piece than there are newline characters, so CR LF leaves an empty piece
/// between the two.
std::vector<std::string> splitLines(std::string_view text);

/// The number, from 1, of the line that holds `offset`, as editors count: LF, CR and CR LF each end
/// one line.
int lineNumber(std::string_view text, std::size_t offset);

/// Whether the first character of `rest`, what is left of a text, ends a line in that count: the CR
/// of CR LF does not.
bool endsLine(std::string_view rest);

}  // namespace quillon::internal
