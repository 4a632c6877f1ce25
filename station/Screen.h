#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "view/LiveArea.h"

namespace station {

enum class Colour { Plain, Green, Red, Yellow };

/// A warning or a problem, as it is shown.
struct Notice {
  bool isProblem = false;
  std::string text;
  std::string advice;  ///< may be empty
};

/// What the operator sees: results and progress on standard output, problems on standard error.
/// Each call writes whole lines in one go, so lines of several sites never mix. Colours appear
/// only on a terminal, and not when the environment has NO_COLOR. Any thread.
class Screen {
 public:
  Screen();                        ///< the program's own
  Screen(int output, int errors);  ///< on other descriptors, which stay the caller's

  /// Writes one line (or several, when the text holds line ends) to standard output.
  void line(std::string_view text);
  /// "Warning: ..." on standard error.
  void warning(const std::string& text);
  /// "quillon: ..." on standard error, with the advice, if any, on the lines below.
  void problem(const std::string& problem, const std::string& advice);
  /// Has `observer` called with each warning and problem, in the thread that it comes from. To be
  /// called before there are several threads.
  void observe(std::function<void(const Notice&)> observer) { observer_ = std::move(observer); }
  /// A question on standard error, without a line end: standard output may go elsewhere.
  void prompt(std::string_view text);

  /// True when standard output is a terminal on which lines can be drawn in place.
  bool canBeLive() const { return canBeLive_; }
  /// Draws `lines` below all else until `stopLive`.
  void startLive(LiveArea::Lines lines);
  void stopLive();
  bool isLive() const;
  /// The line of a question below all else, when it is live; absent: none any more.
  void ask(std::optional<std::string> question);

  /// The columns of the terminal that a line may fill; 0 when standard output is none.
  std::size_t width() const;

  /// Whether standard output is a terminal.
  bool isTerminal() const;
  /// `text` in colour, as a part of a line for standard output.
  std::string coloured(const std::string& text, Colour colour) const;
  /// Likewise, on a background of that colour.
  std::string highlighted(const std::string& text, Colour colour) const;

 private:
  void write(int descriptor, std::string_view text);

  std::function<void(const Notice&)> observer_;
  mutable std::mutex mutex_;  // keeps lines whole, and guards `live_`
  std::unique_ptr<LiveArea> live_;
  const int output_;
  const int errors_;
  bool colourOutput_;
  bool colourErrors_;
  bool canBeLive_;
  bool isOneTerminal_;  // both descriptors
};

}  // namespace station
