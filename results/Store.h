#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "results/Rows.h"
#include "results/Schema.h"
#include "results/StoreError.h"

namespace results {

struct StoreOptions {
  std::filesystem::path file;  ///< made when it is missing; its folder must exist
  std::string stationName;
  std::optional<std::string> location;
  /// How long a lock of another process is waited for, at each write.
  std::chrono::milliseconds patience{10'000};
  /// Where the machine's id stands. Without it the store keeps a random one.
  std::filesystem::path machineIdFile = "/etc/machine-id";
  /// The schema, for tests of its steps.
  const std::vector<Migration>& schema = migrations();
};

/// How a run ended, as the station knows it.
struct RunEnd {
  Verdict verdict = Verdict::BrokenOff;
  std::optional<std::int64_t> firstFailure;  ///< the sequence of a measurement
  std::optional<std::string> message;
  std::int64_t endedUs = 0;                   ///< 0: now
  std::optional<std::int64_t> runIndex = {};  ///< where it was not known at the start
};

/// What earlier sessions left.
struct Recovered {
  /// A session of this station ended without closing the store; instruments may be in any state.
  bool unclean = false;
  /// The runs that were still RUNNING, which are INCOMPLETE now: their devices are to be tested
  /// again.
  std::vector<Run> runs;
};

/// The results store of a station: one SQLite file, which several stations and processes may share.
///
/// A thread of its own writes what all sites have queued, in one transaction. `beginRun`, `flush`,
/// `finishRun`, `recordEvent`, `check` and `recover` return when their work is on disk; the others
/// only queue, and wait when the queue is full. All are thread-safe.
///
/// A write that fails fails every run that had rows in it: what is queued for such a run later is
/// dropped, `flush` and `finishRun` throw, and as soon as the store can be written again the run is
/// entered as BROKEN_OFF, whatever was asked for. Nothing else is lost, and every call tries anew.
///
/// Texts that are no UTF-8, zero bytes and numbers that are not finite are stored as `makeStorable`
/// says.
class Store {
 public:
  /// Opens the store, or makes it. Throws `StoreError`.
  explicit Store(const StoreOptions& options);
  /// Writes what is queued, and closes the session. Runs that were not finished are so afterwards.
  ~Store();
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  const std::filesystem::path& file() const;
  const std::string& stationId() const;

  /// Every run of this station that is RUNNING, and whose process is gone or has closed the store,
  /// becomes INCOMPLETE, with the records that it has. Throws `StoreError`.
  Recovered recover();

  /// Enters a run, with `id`, `station_id`, `plan_id` and, unless given, `started_us` made here;
  /// returns it so. Throws `StoreError`.
  Run beginRun(Run run, Plan plan);

  // What belongs to a run in progress. The row's run must have begun and not ended; otherwise these
  // throw `StoreError`. Ids of specs and instruments follow from their contents.

  /// Enters an attempt at a test, or replaces what was entered of it: once as it starts (RUNNING),
  /// once as it ends.
  void putStep(Step step);
  void addMeasurement(Measurement measurement, Spec spec);
  void addAttribute(Attribute attribute);
  void addInstrument(RunInstrument use, Instrument instrument);
  /// Marks the measurements of an attempt as superseded: they count no longer.
  void supersede(const std::string& runId, std::int64_t step, std::int64_t attempt);

  /// Has everything of the run written at once, for `flush` follows; does not wait.
  void hurry(const std::string& runId);
  /// Has everything of the run entered at once, for its end follows: what comes of it within a
  /// moment is made durable together with its end. Does not wait.
  void expectEnd(const std::string& runId);
  /// Waits until everything of the run is on disk. Throws `StoreError` when some of it is not, and
  /// will not be.
  void flush(const std::string& runId);
  /// Ends a run: with its verdict, the number of its records and the sum of its content. Steps that
  /// are still RUNNING become BROKEN_OFF. Throws `StoreError` when anything of the run is not on
  /// disk; the verdict does not stand then. The run is over either way.
  void finishRun(const std::string& runId, RunEnd end);

  /// Enters an event, with `station_id`, `sequence` and, unless given, `at_us` made here. Throws
  /// `StoreError`.
  void recordEvent(Event event);

  /// Writes something of no account. Throws `StoreError` while the store cannot be written.
  void check();
  /// Why the last write failed; absent after one that did not.
  std::optional<StoreError> failure() const;

 private:
  class Session;
  std::unique_ptr<Session> session_;
};

}  // namespace results
