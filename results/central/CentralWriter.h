#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "results/Rows.h"
#include "results/central/ForwardSource.h"

namespace results {

class Server;

/// What a station says of itself with what it sends.
struct StationWord {
  Station station;
  std::int64_t nowUs = 0;  ///< by its own clock
  std::int64_t waiting = 0;
  std::optional<std::int64_t> oldestAgeUs;
  std::int64_t parked = 0;
  std::string version;  ///< of Quillon
  std::int64_t added = 0;
  std::optional<std::string> lastRunId;
};

/// Adds to a server's database what it does not have, as the role of stations may. For one thread
/// at a time; every operation throws `ServerError`.
class CentralWriter {
 public:
  /// On a connection that lives longer. Throws unless the database has the present schema. Makes
  /// the parts of this month and the next.
  explicit CentralWriter(Server& server);

  /// The sums of those of these runs that are there; absent for one without.
  std::map<std::string, std::optional<std::string>> sums(const std::vector<std::string>& runIds);
  /// Makes the part of the month that a run belongs to, by the time in its id. False: the month was
  /// dropped, and the run is not wanted any more.
  bool makeMonth(const std::string& runId, std::int64_t idUs, std::int64_t startedUs);
  /// Has `makeMonth` ask the server anew: somebody may have dropped a month.
  void forgetMonths() { months_.clear(); }
  /// Adds runs in one transaction, with the rows that they refer to from `source`, and what their
  /// stations say. Gives the ids of those that were added: not of any that came from elsewhere in
  /// the meantime. Throws `NoRun` when `source` cannot vouch for a row.
  std::set<std::string> add(const std::vector<const RunContent*>& runs, ForwardSource& source,
                            std::vector<StationWord> words);
  /// Adds those events that are not there yet, in their order, numbered anew.
  void add(const std::vector<Event>& events);
  void hear(const StationWord& word);

 private:
  void addShared(const std::vector<const RunContent*>& runs, ForwardSource& source);

  Server& server_;
  std::set<std::string> shared_;         // ids of rows that are there
  std::map<std::int64_t, bool> months_;  // by their number: whether they are kept
};

}  // namespace results
