#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace web {

/// Does jobs on a thread of its own, one after the other. Thread-safe. Jobs must not throw.
class Worker {
 public:
  /// `most`: how many jobs may wait.
  explicit Worker(std::size_t most);
  ~Worker();  ///< as `stop`
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  /// False when too many are waiting already.
  bool add(std::function<void()> job);
  /// Ends after the job that is being done; the others are dropped.
  void stop();

 private:
  void work();

  const std::size_t most_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> jobs_;
  bool ending_ = false;
  std::thread thread_;
};

}  // namespace web
