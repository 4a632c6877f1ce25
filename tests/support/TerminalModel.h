#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace test {

/// What a terminal of some size shows after some bytes: text, line ends, movements up, and erasing.
/// Colours are left out.
class TerminalModel {
 public:
  TerminalModel(std::size_t columns, std::size_t rows) : columns_(columns), rows_(rows) {}

  void feed(std::string_view bytes);

  /// All lines, those that have scrolled off included, without blanks at their ends.
  std::vector<std::string> lines() const;
  /// The same as one text.
  std::string text() const;
  /// True when a line was wider than the terminal.
  bool hasWrapped() const { return hasWrapped_; }
  /// Sequences that this knows nothing of.
  const std::vector<std::string>& unknown() const { return unknown_; }

 private:
  void put(std::string_view character);
  void control(std::string_view parameters, char command);
  std::vector<std::string>& line();

  const std::size_t columns_;
  const std::size_t rows_;
  std::vector<std::vector<std::string>> lines_ = {{}};  // a text for each column
  std::size_t row_ = 0;
  std::size_t column_ = 0;
  bool hasWrapped_ = false;
  std::vector<std::string> unknown_;
};

}  // namespace test
