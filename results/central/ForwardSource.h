#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "results/Rows.h"
#include "results/StoreError.h"

namespace results {

class Connection;

/// A run in the order in which runs were entered, as far as it takes to decide about it.
struct Candidate {
  std::int64_t row = 0;  ///< its place in that order
  std::string id;
  std::string stationId;
  std::optional<std::string> sha256;
  std::int64_t startedUs = 0;
  std::int64_t endedUs = 0;
  std::int64_t records = 0;
  bool hasEnded = false;
};

/// Runs that have ended, and how long the oldest of them has.
struct WaitingRuns {
  std::string stationId;
  std::int64_t count = 0;
  std::optional<std::int64_t> oldestEndedUs;
};

/// What a forwarder reads of a store, on a connection that only reads and holds nothing for longer
/// than a statement takes. For one thread at a time. Every operation throws `StoreError`.
class ForwardSource {
 public:
  explicit ForwardSource(const std::filesystem::path& store);
  ~ForwardSource();
  ForwardSource(const ForwardSource&) = delete;
  ForwardSource& operator=(const ForwardSource&) = delete;

  /// Whether the run is still where it was: the store is the same.
  bool isAt(std::int64_t row, const std::string& runId);
  /// The runs behind a row, at most so many.
  std::vector<Candidate> after(std::int64_t row, std::size_t most);
  std::optional<Candidate> candidate(const std::string& runId);
  /// The ended runs behind a row, by station.
  std::vector<WaitingRuns> waiting(std::int64_t row);
  /// The stations whose own store it is, and not one that their runs were copied to.
  std::vector<Station> ownStations();

  /// A run without its plan, specs and instruments; throws `NoRun` when it is not what its sum
  /// says.
  RunContent run(const std::string& id);
  // What runs refer to; throw `NoRun` when it is missing, or not what its id says.
  Station station(const std::string& id);
  Plan plan(const std::string& id);
  Spec spec(const std::string& id);
  Instrument instrument(const std::string& id);

  struct NumberedEvent {
    std::int64_t row = 0;
    Event event;
  };
  /// The events behind a row, at most so many.
  std::vector<NumberedEvent> eventsAfter(std::int64_t row, std::size_t most);

 private:
  class Reader;
  std::unique_ptr<Connection> connection_;
  std::unique_ptr<Reader> reader_;  // statements of the connection
};

}  // namespace results
