#pragma once

#include <filesystem>
#include <string>

#include "ConsoleLogFile.h"

namespace station {

/// The two files that a run writes.
struct LogFiles {
  std::string results;      ///< not made yet
  std::string diagnostics;  ///< made
};

/// Makes the folder; `CannotRun` when that fails, or when its name begins with "~".
void makeLogFolder(const std::string& folder);

/// Finds names that no other run has, and makes the file for the diagnostics: `name` ("NAME.csv")
/// and NAME.log or, where these are taken, NAME-2.csv and NAME-2.log, and so on. Runs that begin at
/// the same moment get files of their own, without waiting. `CannotRun` when a file cannot be made.
LogFiles makeLogFiles(const std::filesystem::path& folder, const std::filesystem::path& name,
                      ConsoleLogFile& diagnostics);

}  // namespace station
