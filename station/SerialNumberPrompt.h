#pragma once

#include <chrono>
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
  using Clock = std::chrono::steady_clock;

  /// How long to wait for an answer.
  struct Patience {
    std::optional<Clock::time_point> until = {};  ///< absent: for ever
    int cancelled = -1;                           ///< a descriptor that is readable then
    std::string hint = {};                        ///< what a complaint ends with
  };

  explicit SerialNumberPrompt(Screen& screen) : screen_(screen) {}

  /// True when there is a terminal to ask on.
  static bool isPossible();

  /// Asks `question` until there is no complaint about the answer. What was typed or scanned before
  /// a question is dropped. Absent when the operator ends the program instead, by a signal (Ctrl-C)
  /// or the end of input (Ctrl-D), and when his time is up.
  std::optional<std::string> ask(const std::string& question,
                                 const std::function<std::string(const std::string&)>& complaint,
                                 const Patience& patience);

 private:
  std::optional<std::string> readLine(const std::string& question, const Patience& patience);
  std::optional<std::string> readLive(const std::string& question, const Patience& patience);
  /// What has come from the terminal; "" when there will be no answer.
  static std::string read(const Patience& patience);

  Screen& screen_;
};

}  // namespace station
