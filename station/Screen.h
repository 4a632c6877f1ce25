#pragma once

#include <mutex>
#include <string>
#include <string_view>

namespace station {

enum class Colour { Plain, Green, Red, Yellow };

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
  /// A question on standard error, without a line end: standard output may go elsewhere.
  void prompt(std::string_view text);

  /// `text` in colour, as a part of a line for standard output.
  std::string coloured(const std::string& text, Colour colour) const;

 private:
  void write(int descriptor, std::string_view text);

  std::mutex mutex_;
  const int output_;
  const int errors_;
  bool colourOutput_;
  bool colourErrors_;
};

}  // namespace station
