#pragma once

#include <cstdint>

namespace test {

/// While it lives, files that SQLite opens in this process are on a disk that this object decides
/// of: a write, truncation or flush that fails as it does on a full disk. One at a time, and no
/// store may outlive it.
class FailingDisk {
 public:
  FailingDisk();
  ~FailingDisk();
  FailingDisk(const FailingDisk&) = delete;
  FailingDisk& operator=(const FailingDisk&) = delete;

  /// From the `n`-th write on (1: the next), all of them fail.
  static void fillAfter(std::int64_t n);
  /// The `n`-th flush and all that follow fail.
  static void failFlushesAfter(std::int64_t n);
  /// There is room again.
  static void clear();
  /// How many writes there were since `fillAfter` or `clear`.
  static std::int64_t writes();
  static std::int64_t flushes();
};

}  // namespace test
