#include "Today.h"

#include <cstdint>
#include <ctime>

#include "results/Queries.h"

namespace station {
namespace {

constexpr std::int64_t kMicroseconds = 1'000'000;

}  // namespace

Counters countersOfToday(const results::Store& store) {
  const std::time_t now = std::time(nullptr);
  std::tm day{};
  localtime_r(&now, &day);
  day.tm_hour = day.tm_min = day.tm_sec = 0;
  day.tm_isdst = -1;
  try {
    const results::Counters counters =
        results::Queries(store.file())
            .counters(store.stationId(), std::mktime(&day) * kMicroseconds,
                      (now + 1) * kMicroseconds);
    return {static_cast<int>(counters.passed), static_cast<int>(counters.failed),
            static_cast<int>(counters.brokenOff)};
  } catch (const results::StoreError&) {
    return {};
  }
}

UsualTimes usualTimes(const results::Store& store, const Loaded& loaded) {
  UsualTimes times;
  try {
    for (const auto& [test, duration] :
         results::Queries(store.file()).usualDurations(loaded.bundle, loaded.flow)) {
      times[test] = static_cast<double>(duration) / kMicroseconds;
    }
  } catch (const results::StoreError&) {
    times.clear();
  }
  return times;
}

}  // namespace station
