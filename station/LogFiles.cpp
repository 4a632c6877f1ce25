#include "LogFiles.h"

#include <system_error>

#include <QLTLogger.h>

#include "CannotRun.h"
#include "Text.h"

namespace station {

void makeLogFolder(const std::string& folder) {
  if (folder.starts_with('~')) {
    // The CSV logger would take it for the home folder, nobody else would.
    throw CannotRun("the log folder " + folder + " begins with a ~ that the shell has left there",
                    "Write --log-dir " + folder +
                        " with a blank, not with =, or give the whole "
                        "path (./" +
                        folder + " for a folder of that name).");
  }
  QLTError error;
  if (QLTLogger::createLogPath(folder, &error)) return;
  throw CannotRun("cannot make the log folder " + folder + ": " + describe(error),
                  "Give a folder that you may write to with --log-dir.");
}

LogFiles makeLogFiles(const std::filesystem::path& folder, const std::filesystem::path& name,
                      ConsoleLogFile& diagnostics) {
  const std::string start = (folder / name.stem()).string();
  for (int number = 1;; ++number) {
    const std::string base = number == 1 ? start : start + "-" + std::to_string(number);
    LogFiles files{base + ".csv", base + ".log"};
    // The result log of a run whose diagnostics are gone is not to be continued.
    std::error_code unknown;
    if (std::filesystem::exists(files.results, unknown)) continue;
    if (diagnostics.create(files.diagnostics)) return files;
  }
}

}  // namespace station
