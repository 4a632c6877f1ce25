#pragma once

namespace test {

/// For as long as it lives, interrupts the process with a signal a thousand times a second. System
/// calls are not restarted, unless `flags` (those of `sigaction`) say so.
class SignalStorm {
 public:
  explicit SignalStorm(int flags = 0);
  ~SignalStorm();
  SignalStorm(const SignalStorm&) = delete;
  SignalStorm& operator=(const SignalStorm&) = delete;
};

}  // namespace test
