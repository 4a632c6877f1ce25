#pragma once

// Internal: not installed.

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <QLTTraffic.h>
#include <QLTValue.h>

namespace quillon::internal {

/// The replies that all simulated transports of one class share. Any thread.
class ResponseMap {
 public:
  void install(QLTDictionary map) { set(std::make_shared<const QLTDictionary>(std::move(map))); }
  void remove() { set(nullptr); }

  /// The reply to a command, `fallback` when the map has none; absent when no map is installed.
  std::optional<std::string> reply(const std::optional<std::string>& command,
                                   const std::string& fallback) const;

 private:
  void set(std::shared_ptr<const QLTDictionary> map);

  mutable std::mutex mutex_;
  std::shared_ptr<const QLTDictionary> map_;
};

/// What one simulated transport knows of its last write, and whether the reply to it is still held
/// back. `lastCmd` and the delay may be used on any thread.
class SimulatedExchange {
 public:
  std::optional<std::string> lastCmd() const;
  void setLastCmd(std::optional<std::string> lastCmd);
  double delayTimeInSeconds() const { return delayTimeInSeconds_; }
  void setDelayTimeInSeconds(double seconds) { delayTimeInSeconds_ = seconds; }

  /// Keeps the text of a write and starts the delay.
  void write(const std::string& text);
  /// True while the delay runs, and with a delay also before the first write.
  bool isHeldBack() const;
  /// Ends the delay until the next write.
  void answer();

 private:
  using Clock = std::chrono::steady_clock;

  mutable std::mutex mutex_;
  std::optional<std::string> lastCmd_;
  std::atomic<double> delayTimeInSeconds_ = 0.0;
  std::optional<Clock::time_point> writeDate_;
  bool isAnswered_ = false;
};

/// What a recording has as the answer of a simulated transport; absent when there is no recording,
/// or nothing was read here: the simulation answers then.
std::optional<std::string> recordedReply(const QLTTrafficLine& traffic);

}  // namespace quillon::internal
