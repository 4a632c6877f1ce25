#pragma once

namespace test {

/// For as long as it lives, interrupts the process with a signal a thousand times a second; system
/// calls are not restarted.
class SignalStorm {
 public:
  SignalStorm();
  ~SignalStorm();
  SignalStorm(const SignalStorm&) = delete;
  SignalStorm& operator=(const SignalStorm&) = delete;
};

}  // namespace test
