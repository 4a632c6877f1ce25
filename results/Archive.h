#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "results/Filter.h"
#include "results/RunJson.h"
#include "results/StoreError.h"

namespace results {

class StoreReader;

/// Whole runs out of a store, for copies of them, on a connection of its own that only reads. For
/// one thread at a time. Every operation throws `StoreError` when it cannot read.
class Archive {
 public:
  /// Opens a store that exists and has the present version of the schema: a file, or a server by
  /// its address.
  explicit Archive(const std::string& store,
                   std::chrono::milliseconds patience = std::chrono::seconds(10));
  ~Archive();
  Archive(const Archive&) = delete;
  Archive& operator=(const Archive&) = delete;

  /// The ids of the runs that have ended, the earliest first.
  std::vector<std::string> endedRuns(const Filter& filter);
  /// How many have not.
  std::int64_t runningRuns(const Filter& filter);
  /// The ids of runs that begin so, the earliest first; at most so many.
  std::vector<std::string> runsBeginning(const std::string& beginning, std::size_t most);
  /// Absent when there is no run of that id.
  std::optional<RunRecord> run(const std::string& id);

 private:
  class Reader;
  std::unique_ptr<StoreReader> connection_;
  std::unique_ptr<Reader> reader_;  // statements of the connection
};

}  // namespace results
