#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace station {

/// On a terminal a line on standard error that tells how far something is, once it takes longer
/// than a second; gone at its end. Elsewhere nothing. For one thread at a time.
class ProgressLine {
 public:
  explicit ProgressLine(std::string what);
  ~ProgressLine();
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  void show(std::int64_t done, std::int64_t all);

 private:
  using Clock = std::chrono::steady_clock;

  const std::string what_;
  const bool isTerminal_;
  Clock::time_point next_;
  bool isShown_ = false;
};

}  // namespace station
