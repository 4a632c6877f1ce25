#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "results/Rows.h"
#include "results/StoreError.h"

namespace results {

class Connection;

/// How many runs ended how.
struct Counters {
  std::int64_t running = 0;
  std::int64_t passed = 0;
  std::int64_t failed = 0;
  std::int64_t brokenOff = 0;
  std::int64_t incomplete = 0;
};

/// A record that failed, with its limits.
struct FailedRecord {
  Measurement record;
  Spec spec;
};

/// What a station and its page ask a results store, on a connection of its own that only reads: it
/// sees what is on disk, and keeps nobody from writing. For one thread at a time. Every operation
/// throws `StoreError` when it cannot read.
class Queries {
 public:
  /// Opens a store that exists and has the present version of the schema.
  explicit Queries(const std::filesystem::path& file,
                   std::chrono::milliseconds patience = std::chrono::seconds(10));
  ~Queries();
  Queries(const Queries&) = delete;
  Queries& operator=(const Queries&) = delete;

  /// The runs of production of a station that started at or after `fromUs` and before `untilUs`.
  Counters counters(const std::string& stationId, std::int64_t fromUs, std::int64_t untilUs);
  /// How long each test of a flow usually takes, by its name, in microseconds: the median of its
  /// last attempts in up to the last hundred passing runs.
  std::map<std::string, std::int64_t> usualDurations(const std::string& bundle,
                                                     const std::string& flow);
  /// The last runs of a station that have started, the latest first.
  std::vector<Run> lastRuns(const std::string& stationId, std::size_t most);
  /// The runs that never came to an end by themselves: RUNNING and INCOMPLETE, the latest first.
  std::vector<Run> unfinishedRuns(const std::string& stationId);
  /// All runs of a serial number, the earliest first.
  std::vector<Run> runsOf(const std::string& serial);
  /// The record that a run failed at first; absent when it names none.
  std::optional<FailedRecord> firstFailure(const Run& run);
  /// A run with everything that belongs to it; absent when there is none of that id.
  std::optional<RunContent> run(const std::string& runId);
  /// The last events of a station, the latest first.
  std::vector<Event> lastEvents(const std::string& stationId, std::size_t most);

 private:
  std::unique_ptr<Connection> connection_;
};

}  // namespace results
