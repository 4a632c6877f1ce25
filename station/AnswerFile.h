#pragma once

#include <cstddef>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace station {

/// Answers to the questions of tests, from a file: one JSON object a line, such as
/// {"site": "left", "question": "LED", "answer": "green"}.
///
/// A question takes the first answer that is not used yet, is for its site ("site" left out: for
/// any), and whose "question" (left out: any) is a part of its text. Any thread.
class AnswerFile {
 public:
  /// Reads the file; `CannotRun` when that fails, or for a line that is not of that form.
  explicit AnswerFile(std::filesystem::path path);

  /// The next answer to a question of that site; absent when there is none. It is used then.
  std::optional<std::string> next(const std::string& site, const std::string& question);
  /// The lines of the answers that nobody asked for.
  std::vector<std::size_t> unusedLines() const;
  const std::filesystem::path& path() const { return path_; }

 private:
  struct Entry {
    std::size_t line = 0;  // from 1
    std::optional<std::string> site;
    std::string question;
    std::string answer;
    bool used = false;
  };

  void add(std::size_t number, const std::string& line);

  const std::filesystem::path path_;
  mutable std::mutex mutex_;  // guards what follows
  std::vector<Entry> entries_;
};

}  // namespace station
