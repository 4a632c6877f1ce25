#pragma once

#include <functional>
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

  /// Asks `question` until there is no complaint about the answer. What was typed or scanned before
  /// a question is dropped. Absent when the operator ends the program instead, by a signal (Ctrl-C)
  /// or the end of input (Ctrl-D).
  std::optional<std::string> ask(const std::string& question,
                                 const std::function<std::string(const std::string&)>& complaint);

 private:
  std::optional<std::string> readLine(const std::string& question);
  std::optional<std::string> readLive(const std::string& question);
  /// What has come from the terminal; "" when the operator ends the program.
  static std::string read();

  Screen& screen_;
};

}  // namespace station
