#pragma once

#include <optional>
#include <string>
#include <vector>

#include <QLTError.h>
#include <QLTExport.h>
#include <QLTText.h>

/// Reading of line-oriented text files, for test plug-ins. Stateless; any thread.
class QLT_EXPORT QLTFileUtil {
 public:
  /// The lines of a file of 7-bit ASCII text, in order, each without white space at its ends; empty
  /// ones are included. LF, VT, FF and CR each separate two lines, so CR LF gives an empty line in
  /// between, and a newline at the end of the file an empty last line.
  ///
  /// Absent when the file cannot be read: domain `kQLTPosixErrorDomain`, code errno (EILSEQ for a
  /// byte over 127), the description names the file and, for such a byte, its line.
  static std::optional<std::vector<std::string>> readLines(const QLTText& path,
                                                           QLTError* error = nullptr);
  /// `lines` without the empty ones at the start and at the end; those in between stay.
  static std::vector<std::string> trimEmptyLines(const std::vector<std::string>& lines);
};
