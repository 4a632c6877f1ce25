#include "QLTDigitalPort.h"

#include <algorithm>
#include <chrono>

#include "common/Sleep.h"

void QLTDigitalPort::tellOutput(const std::string&, bool) {}

std::optional<bool> QLTDigitalPort::waitForInput(const std::string& channel, bool isHigh,
                                                 double seconds, QLTError* error) {
  using std::chrono::steady_clock;
  constexpr std::chrono::milliseconds step(10);
  constexpr double longest = 1e6;
  const auto end =
      steady_clock::now() + std::chrono::duration_cast<steady_clock::duration>(
                                std::chrono::duration<double>(std::clamp(seconds, 0.0, longest)));
  while (true) {
    const auto state = readInput(channel, error);
    if (!state || *state == isHigh) return state ? std::optional(true) : std::nullopt;
    const auto left = end - steady_clock::now();
    if (left <= steady_clock::duration::zero()) return false;
    quillon::internal::sleepFor(std::min<std::chrono::nanoseconds>(left, step));
  }
}
