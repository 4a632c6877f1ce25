#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace test {

/// Ends the program with a message when it lives longer than `limit`: for operations that must come
/// back by themselves. Make the limit generous; how long an operation takes is not judged by it.
class Watchdog {
 public:
  explicit Watchdog(std::chrono::seconds limit = std::chrono::seconds(30));
  ~Watchdog();
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;

 private:
  std::mutex mutex_;
  std::condition_variable_any condition_;
  std::jthread thread_;
};

}  // namespace test
