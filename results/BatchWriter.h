#pragma once

#include <functional>
#include <memory>
#include <string>

#include "results/Change.h"
#include "results/Connection.h"
#include "results/ProcessIdentity.h"

namespace results {

/// Writes changes to the database, several in one transaction, for one station in one process. A
/// connection that failed is opened anew at the next write. For one thread at a time.
class BatchWriter {
 public:
  /// Opens the database. Throws `StoreError`.
  explicit BatchWriter(const StoreOptions& options);
  ~BatchWriter();

  const Station& station() const { return station_; }

  /// Writes what `each` passes to the function that it gets. All of it is on disk when this
  /// returns; when it throws `StoreError`, nothing is. `RowError`: another batch may succeed at
  /// once.
  using Sink = std::function<void(const Change&)>;
  void write(const std::function<void(const Sink&)>& each);
  /// Reads what the end of a run is going to need, while nobody waits. Nothing depends on it.
  void readAhead(const std::string& runId);
  /// Copies what was written into the database file, once its log has so many pages. Nothing that
  /// is promised depends on it.
  void checkpointFrom(int pages);
  /// Notes that the session ends as it should.
  void close();

 private:
  class Rows;
  void open();
  void enterStation(soci::session& session);

  const StoreOptions options_;
  const std::string sessionId_;
  const ProcessIdentity process_;
  Station station_;
  std::unique_ptr<Connection> connection_;
  std::unique_ptr<Rows> rows_;  // statements of the connection
};

}  // namespace results
