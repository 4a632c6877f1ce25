#pragma once

#include <cstdint>
#include <string>

namespace results {

/// One process of this machine, told from all that had or will have its number.
struct ProcessIdentity {
  std::string bootId;  ///< of this start of the machine
  std::int64_t pid = 0;
  std::int64_t processStarted = 0;  ///< in ticks since that start

  static ProcessIdentity ofThisProcess();
  /// Whether it still runs, not counting one that has ended and waits for its parent.
  bool isAlive() const;
};

}  // namespace results
