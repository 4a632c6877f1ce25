#pragma once

#include <chrono>
#include <cstdint>

namespace results {

/// Microseconds since 1970, UTC, as the store holds times.
inline std::int64_t microsecondsNow() {
  using namespace std::chrono;
  return duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
}

}  // namespace results
