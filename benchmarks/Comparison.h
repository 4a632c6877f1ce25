#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <vector>

#include <benchmark/benchmark.h>

namespace bench {

using Clock = std::chrono::steady_clock;

template <typename Operation>
Clock::duration timeOf(Operation operation) {
  const auto start = Clock::now();
  operation();
  return Clock::now() - start;
}

/// Times of the framework and of the floor: the same work in bare system calls. Each iteration
/// measures both, one right after the other, so that what the machine does besides touches both.
class Comparison {
 public:
  /// One iteration's two times. The benchmark uses manual time, which is the framework's.
  void add(benchmark::State& state, Clock::duration framework, Clock::duration floor) {
    state.SetIterationTime(std::chrono::duration<double>(framework).count());
    framework_.push_back(framework);
    floor_.push_back(floor);
  }

  /// Enters the medians in µs, for one of `items` done in an iteration, what the framework adds to
  /// the floor, and the ratio.
  void report(benchmark::State& state, std::size_t items = 1) {
    const double framework = median(framework_) / static_cast<double>(items);
    const double floor = median(floor_) / static_cast<double>(items);
    state.counters["median_us"] = framework;
    state.counters["floor_us"] = floor;
    state.counters["over_us"] = framework - floor;
    state.counters["ratio"] = floor > 0 ? framework / floor : 0;
  }

 private:
  static double median(std::vector<Clock::duration>& times) {
    if (times.empty()) return 0;
    const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
    std::nth_element(times.begin(), middle, times.end());
    return std::chrono::duration<double, std::micro>(*middle).count();
  }

  std::vector<Clock::duration> framework_;
  std::vector<Clock::duration> floor_;
};

}  // namespace bench
