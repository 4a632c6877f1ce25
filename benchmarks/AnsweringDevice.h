#pragma once

#include <atomic>
#include <chrono>
#include <random>
#include <semaphore>
#include <string>
#include <thread>
#include <utility>

#include <time.h>
#include <unistd.h>

#include "Comparison.h"

namespace bench {

/// Sends one reply each time it is asked, on a thread of its own and after a while that is long
/// enough for whoever asks to wait already. The while varies, so that a poll is met at any phase.
class AnsweringDevice {
 public:
  AnsweringDevice(int descriptor, std::string reply, std::chrono::microseconds shortest,
                  std::chrono::microseconds longest)
      : thread_([=, this, reply = std::move(reply)](const std::stop_token& stop) {
          std::minstd_rand random(1);
          std::uniform_int_distribution<long> pause(shortest.count(), longest.count());
          while (true) {
            asked_.acquire();
            if (stop.stop_requested()) return;
            std::this_thread::sleep_for(std::chrono::microseconds(pause(random)));
            sent_ = Clock::now();
            if (write(descriptor, reply.data(), reply.size()) < 0) return;
          }
        }) {}
  ~AnsweringDevice() {
    thread_.request_stop();
    asked_.release();
  }
  AnsweringDevice(const AnsweringDevice&) = delete;
  AnsweringDevice& operator=(const AnsweringDevice&) = delete;

  /// The time from the sending of the reply to the end of `operation`, which waits for it.
  template <typename Operation>
  Clock::duration latencyOf(Operation operation) {
    asked_.release();
    operation();
    return Clock::now() - sent_.load();
  }

 private:
  std::binary_semaphore asked_{0};
  std::atomic<Clock::time_point> sent_;
  std::jthread thread_;
};

}  // namespace bench
