#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <variant>

#include "link/Messages.h"

namespace station {

/// The worker is gone, and the device in progress with it.
struct WorkerEnded {
  std::string reason;
  bool isElsewhere = false;  ///< another site's device has ended it
};

/// A question of the device was answered, or is asked no more.
struct QuestionEnded {};

/// What a site hears while its device is tested.
using SiteEvent =
    std::variant<Prepared, HookStarted, DeviceStarted, TestStarted, Reported, Tested, Asked,
                 QuestionEnded, Shown, Progressed, FlowEnded, HookEnded, WorkerEnded>;

/// The events of one site, from the thread that reads to the one that acts on them.
class SiteEvents {
 public:
  using Clock = std::chrono::steady_clock;

  void push(SiteEvent event) {
    const std::lock_guard lock(mutex_);
    events_.push_back(std::move(event));
    arrived_.notify_one();
  }
  /// Forgets what came for an earlier device.
  void clear() {
    const std::lock_guard lock(mutex_);
    events_.clear();
  }
  /// Waits for the next one; absent when none has come by then.
  std::optional<SiteEvent> next(std::optional<Clock::time_point> until) {
    std::unique_lock lock(mutex_);
    const auto hasCome = [&] { return !events_.empty(); };
    if (!until) {
      arrived_.wait(lock, hasCome);
    } else if (!arrived_.wait_until(lock, *until, hasCome)) {
      return std::nullopt;
    }
    SiteEvent event = std::move(events_.front());
    events_.pop_front();
    return event;
  }

 private:
  std::mutex mutex_;  // guards what follows
  std::condition_variable arrived_;
  std::deque<SiteEvent> events_;
};

}  // namespace station
