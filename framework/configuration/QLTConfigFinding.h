#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <QLTError.h>
#include <QLTExport.h>
#include <QLTValue.h>

/// One thing that is wrong, or looks wrong, in a station's configuration, and where.
struct QLT_EXPORT QLTConfigFinding {
  enum class Severity {
    Error,   ///< loading fails
    Warning  ///< loading goes on, but perhaps not as it was meant
  };
  Severity severity = Severity::Error;
  std::string file;
  int line = 0;         ///< from 1; 0 where it is not known
  int column = 0;       ///< from 1; 0 where it is not known
  std::string key;      ///< the key path within the file; "" for the file or line as a whole
  std::string message;  ///< what is wrong, and what loading makes of it
  std::string advice;   ///< what to do; may be ""
  /// In a binary file, which has no lines: in bytes, from 0; -1 where it is not known.
  std::int64_t offset = -1;
  /// The last part of `key`, when the finding is that nothing reads what stands under it; absent
  /// for every other finding.
  std::optional<std::string> unknownKey = std::nullopt;

  /// An error at a place of `file`.
  static QLTConfigFinding errorAt(std::string file, QLTPosition position, std::string key,
                                  std::string message, std::string advice = {});
  /// An error record that tells its place ("file", "line", ... of the user information), as those
  /// of property lists and bundles do. Absent for one that tells none.
  static std::optional<QLTConfigFinding> of(const QLTError& error);

  /// "FILE:LINE:COLUMN: KEY: MESSAGE", or "FILE:offset N: ...", without the parts that are not
  /// known.
  std::string text() const;
};
