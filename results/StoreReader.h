#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace soci {
class session;
}

namespace results {

// Internal to the library, for its sources only.

/// Ids of runs: `low`, and all behind it up to `high`, which is none of them.
struct IdRange {
  std::string low;
  std::string high;
};

/// A connection that reads a results store, of a station or of many. For one thread at a time.
class StoreReader {
 public:
  virtual ~StoreReader() = default;

  /// Does `work`, with the errors of the database as `StoreError`.
  virtual void attempt(const std::function<void(soci::session&)>& work) = 0;
  /// Whether it is the store of many stations.
  virtual bool isServer() const { return false; }
  /// Between which ids the runs of a time are, where a store that is kept in months is then read
  /// in these alone; otherwise absent.
  virtual std::optional<IdRange> idsOf(std::optional<std::int64_t> /*sinceUs*/,
                                       std::optional<std::int64_t> /*untilUs*/) {
    return std::nullopt;
  }
};

/// Opens a store that exists and has the present version of the schema: a file, or a server by its
/// address. `patience`: how long a lock is waited for, and a server to answer. Throws `StoreError`.
///
/// All that is read on a server is of one moment: what comes in meanwhile changes no figure.
std::unique_ptr<StoreReader> openToRead(const std::string& store,
                                        std::chrono::milliseconds patience);

}  // namespace results
