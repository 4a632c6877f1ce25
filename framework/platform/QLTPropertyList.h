#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include <QLTError.h>
#include <QLTValue.h>

/// Reads property lists, XML and binary ones. Structure and numbers are checked strictly; document
/// type definitions that declare entities or attributes are refused, and so is a binary list that
/// unfolds to many times its size and to more than 16 MiB. Arrays and dictionaries may be nested
/// 128 levels deep. A whole number is decimal, or hexadecimal after 0x: `<integer>0x1F</integer>`
/// is 31.
///
/// On failure the error has the framework's domain, code -40004, and a description of the form
/// "TestConfig.plist:41:12: Flows/main/2/subTestInfos/0/lowLimit: not a number: 'x'"
/// (file:line:column: key path: reason); for a binary list, "TestConfig.plist:offset 417:
/// Flows/main: ...". The parts stand in the user information, too: "file", "line" and "column" (0
/// where unknown), "offset" (of binary lists only), "keyPath", "reason". A file that cannot be read
/// gives domain "POSIX" and errno: EISDIR for a folder, EINVAL for a pipe or device, which could
/// keep the reader waiting for ever, EFBIG for a file of more than 256 MiB. Long keys and texts are
/// cut in what is told.
///
/// Every value knows where it stood (`QLTValue::position`): the line and column in XML, the offset
/// in a binary list. Stateless; any thread.
class QLT_EXPORT QLTPropertyList {
 public:
  /// Reads the file at `path`.
  static std::optional<QLTValue> read(const std::filesystem::path& path, QLTError* error = nullptr);
  /// As `read`, for a file whose root must be a dictionary.
  static std::optional<QLTDictionary> readDictionary(const std::filesystem::path& path,
                                                     QLTError* error = nullptr);
  /// Reads a property list that is in memory; `name` stands for the file in messages.
  static std::optional<QLTValue> parse(std::string_view bytes, const std::string& name,
                                       QLTError* error = nullptr);
};
