#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace station {

/// The time limit of what a plug-in does at one site. It does not run while a person is asked. For
/// one thread.
class TimeLimit {
 public:
  using Clock = std::chrono::steady_clock;

  /// `what` begins now; without `seconds` it may take as long as it wants.
  void start(std::string what, std::optional<double> seconds);
  void stop() { seconds_.reset(); }

  /// A question is open. Several may be, also longer than what asked.
  void pause();
  void resume();

  /// When it will have run out; absent when it does not run.
  std::optional<Clock::time_point> deadline() const;
  /// "test 2 Voltages exceeded its time limit of 10 s"
  std::string excess() const;

 private:
  std::string what_;
  std::optional<double> seconds_;
  Clock::duration left_{};
  Clock::time_point since_;  // `left_` counts from then on
  int questions_ = 0;
};

}  // namespace station
