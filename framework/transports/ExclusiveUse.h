#pragma once

// Internal: not installed.

#include <optional>
#include <utility>

#include <sys/types.h>

namespace quillon::internal {

/// A port's share in the exclusive use of its terminal. The system keeps one mark for each
/// terminal, so ports of this process that are open on the same one share it: it is lifted with the
/// last. Several threads may hold shares.
class ExclusiveUse {
 public:
  /// Takes the terminal into exclusive use. False, with errno, when that fails; nothing is held
  /// then.
  bool take(int terminal);
  /// Gives the share up; for a terminal that is about to be closed. Does nothing when none is held.
  void giveUp(int terminal);

 private:
  /// The file system and the device of a terminal's file.
  using Line = std::pair<dev_t, dev_t>;

  std::optional<Line> line_;
};

}  // namespace quillon::internal
