#pragma once

#include <optional>
#include <string>

#include "Screen.h"

namespace station {

/// Asks the operator on the terminal.
///
/// For one thread.
class SerialNumberPrompt {
 public:
  explicit SerialNumberPrompt(Screen& screen) : screen_(screen) {}

  /// True when there is a terminal to ask on.
  static bool isPossible();

  /// Asks until the answer can serve as a serial number. Absent when the operator ends the program
  /// instead, by a signal (Ctrl-C) or the end of input (Ctrl-D).
  std::optional<std::string> ask(const std::string& site);

 private:
  std::optional<std::string> readLine();

  Screen& screen_;
  std::string pending_;  // read, but belonging to the next lines
};

}  // namespace station
