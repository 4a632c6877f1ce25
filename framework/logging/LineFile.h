#pragma once

// Internal: not installed.

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <QLTError.h>

#include "common/Descriptor.h"

namespace quillon::internal {

/// An open file to which several threads append lines that must be on the disk. The lines of all
/// who come while others are being written go to the disk together, with one write and one flush:
/// one of them does it for all, the others wait for it.
///
/// A line never mixes with another, and each that fails is lost alone: what was broken off is ended
/// first, and the next line is tried. Each cause of a failure gives one console line.
class LineFile {
 public:
  LineFile(Descriptor descriptor, std::string path);

  /// Appends the lines of `text`, each of which ends where `ends` says, and returns when they are
  /// on the disk or lost: the first failure that touched them. A pipe or a device, which has
  /// nothing to flush, counts as a disk.
  QLTError append(std::string_view text, std::span<const std::size_t> ends);

 private:
  /// What one caller wants written, and what became of it: errno values, 0 where nothing is wrong.
  struct Request {
    std::string_view text;
    std::span<const std::size_t> ends;
    int writeProblem = 0;
    int flushProblem = 0;
    bool done = false;
  };
  class LineCursor;

  void writeWaiting(std::unique_lock<std::mutex>& lock);
  void writeTaken() noexcept;
  int writeSome(std::string_view text, std::size_t& position);
  QLTError report(const char* action, int problem);

  const Descriptor descriptor_;
  const std::string path_;
  const bool hasReader_;

  std::mutex mutex_;                 // guards what follows
  std::condition_variable changed_;  // nobody writes any more
  std::vector<Request*> waiting_;    // what is written next, together
  bool writing_ = false;             // somebody writes what was taken
  std::set<int> reported_;

  // Belong to whoever writes.
  std::vector<Request*> taken_;
  std::string joined_;
  bool amidLine_;  // the file ends with a line that was broken off
};

}  // namespace quillon::internal
