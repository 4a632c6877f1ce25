#pragma once

#include <optional>
#include <string>
#include <utility>

#include "Splitter.h"

namespace sim {

/// Puts lines together from bytes. A line feed, a carriage return and the pair of both end a line.
class LineSplitter : public Splitter {
 public:
  /// The line that `byte` ends, without its end.
  std::optional<std::string> add(char byte) override {
    const bool isPair = byte == '\n' && last_ == '\r';
    last_ = byte;
    echo_.clear();
    if (isPair) return std::nullopt;
    if (byte != '\n' && byte != '\r') {
      if (line_.size() < kLongestLine) line_ += byte;
      echo_ = byte;
      return std::nullopt;
    }
    echo_ = "\r\n";
    return std::exchange(line_, {});
  }

  /// How a terminal shows the byte that was added last.
  std::string echo() const override { return echo_; }

 private:
  static constexpr std::size_t kLongestLine = 65536;  // the rest of a longer one is dropped

  std::string line_;
  std::string echo_;
  char last_ = '\0';
};

}  // namespace sim
