#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace station {

/// Tells, as long as it lives, of each site that waits longer than a second for an instrument which
/// another site holds: once for each wait. One object at a time.
class HoldWatch {
 public:
  /// `tell` is called on a thread of its own, with the site and a text for the operator.
  using Tell = std::function<void(const std::string& site, const std::string& text)>;

  explicit HoldWatch(Tell tell);
  ~HoldWatch();
  HoldWatch(const HoldWatch&) = delete;
  HoldWatch& operator=(const HoldWatch&) = delete;

 private:
  /// Shared with calls of the observer that are still under way at the end.
  struct State {
    std::mutex mutex;  // guards what follows
    std::condition_variable changed;
    bool waits = false;  // somebody may wait
    bool ended = false;
  };

  static void watch(State& state, const Tell& tell);

  const std::shared_ptr<State> state_ = std::make_shared<State>();
  std::jthread thread_;
};

}  // namespace station
