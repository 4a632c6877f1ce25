#include "Worker.h"

#include <utility>

namespace web {

Worker::Worker(std::size_t most) : most_(most), thread_([this] { work(); }) {}

Worker::~Worker() { stop(); }

bool Worker::add(std::function<void()> job) {
  {
    const std::lock_guard lock(mutex_);
    if (ending_ || jobs_.size() >= most_) return false;
    jobs_.push_back(std::move(job));
  }
  changed_.notify_one();
  return true;
}

void Worker::stop() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
    jobs_.clear();
  }
  changed_.notify_one();
  if (thread_.joinable()) thread_.join();
}

void Worker::work() {
  std::unique_lock lock(mutex_);
  while (true) {
    changed_.wait(lock, [this] { return ending_ || !jobs_.empty(); });
    if (ending_) return;
    const std::function<void()> job = std::move(jobs_.front());
    jobs_.pop_front();
    lock.unlock();
    job();
    lock.lock();
  }
}

}  // namespace web
