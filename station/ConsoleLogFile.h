#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace station {

/// Takes the console log, the diagnostics of framework and plug-in, to a file as long as it lives.
/// A line is "2026-11-14 22:16:30.123 [left] message"; the name is that of the thread that logged,
/// see `threadName`. Any thread may log.
class ConsoleLogFile {
 public:
  /// Keeps the lines until the file is open. `alsoShown`: they go to standard error as well.
  explicit ConsoleLogFile(bool alsoShown);
  ~ConsoleLogFile();
  ConsoleLogFile(const ConsoleLogFile&) = delete;
  ConsoleLogFile& operator=(const ConsoleLogFile&) = delete;

  /// Makes the file at `path`. False when there is one already; `CannotRun` when it cannot be made.
  bool create(const std::string& path);

  /// Adds a line of its own, in the name of a site for example. Any thread.
  void write(std::string_view name, std::string_view message) const;
  void write(std::string_view name, const std::vector<std::string>& messages) const;  ///< at once

 private:
  class File;
  std::shared_ptr<File> file_;  // shared with calls that are under way on other threads
};

}  // namespace station
