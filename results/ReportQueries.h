#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "results/Filter.h"
#include "results/Rows.h"
#include "results/StoreError.h"

namespace results {

class Conditions;
class StoreReader;

/// A run as reports look at it.
struct RunLine {
  std::string id;
  std::int64_t startedUs = 0;
  std::optional<std::int64_t> endedUs;
  std::string station;  ///< its name
  std::string site;
  std::string serial;
  std::optional<std::string> part;
  std::optional<std::string> process;
  std::optional<std::string> operatorName;
  std::string flow;
  std::optional<std::string> version;  ///< of the plug-in
  RunKind kind = RunKind::Production;
  Verdict verdict = Verdict::Running;
  std::int64_t records = 0;
};

/// A run among those of its unit.
struct UnitRun {
  RunLine run;
  /// Whether the unit came to an end at this process before all runs of the filter: before their
  /// time, at another site, and so on.
  bool isKnown = false;
  bool hasRepeats = false;  ///< a test was tried again within the run
};

/// Failures of one sub-test at one site.
struct FailureCount {
  std::optional<std::string> test;  ///< absent: the run failed without a failed record
  std::string subTest;
  std::string station;
  std::string site;
  std::int64_t first = 0;       ///< runs that failed here first
  std::int64_t all = 0;         ///< records that failed, and count
  std::int64_t superseded = 0;  ///< records that failed, and a later attempt counts
};

/// A number that was measured.
struct MeasuredValue {
  std::int64_t startedUs = 0;
  std::int64_t sequence = 0;
  double value = 0;  ///< NaN: it was not finite
  std::string runId;
  std::string serial;
  std::string station;
  std::string site;
  std::optional<std::string> operatorName;
  std::string specId;
  std::optional<std::string> version;  ///< of the plug-in
  Mark verdict = Mark::NotApplicable;
};

/// A number of a sub-test; NaN where it was not finite.
struct SpecNumber {
  std::string specId;
  double value = 0;
};

struct UsedInstrument {
  std::string runId;
  std::string name;  ///< by which the plug-in knows it
  std::string id;
  std::optional<std::string> model;
  std::optional<std::string> serial;
};

/// How long one attempt at a test, or a whole run, took.
struct Duration {
  std::string test;  ///< "": the whole run
  std::int64_t microseconds = 0;
};

/// One plan at one station: since when, and how often.
struct PlanUse {
  std::string stationId;
  std::string station;  ///< its name
  Plan plan;
  std::int64_t firstUs = 0;  ///< when its first run there began
  std::int64_t lastUs = 0;   ///< and its last one
  std::int64_t runs = 0;
};

struct PlanRun {
  std::string stationId;
  std::string planId;
  std::string runId;
};

/// What a server knows of a station. Times are of the server's clock.
struct StationState {
  std::string id;
  std::string name;
  std::optional<std::int64_t> heardUs;   ///< absent: never, its runs came some other way
  std::int64_t waiting = 0;              ///< runs that were not here yet when it was heard of
  std::optional<std::int64_t> oldestUs;  ///< since when the oldest of them waits
  std::int64_t parked = 0;               ///< runs that wait for a person
};

/// The stations that a server knows, by their names.
struct StationStates {
  std::int64_t nowUs = 0;  ///< of the server's clock
  std::vector<StationState> stations;
};

/// What reports ask a results store, on a connection of its own that only reads. Rows are handed
/// out one by one, as they are read. For one thread at a time. Every operation throws `StoreError`
/// when it cannot read.
class ReportQueries {
 public:
  /// Opens a store that exists and has the present version of the schema: a file, or a server by
  /// its address.
  explicit ReportQueries(const std::string& store,
                         std::chrono::milliseconds patience = std::chrono::seconds(10));
  ~ReportQueries();
  ReportQueries(const ReportQueries&) = delete;
  ReportQueries& operator=(const ReportQueries&) = delete;

  template <typename Row>
  using Each = std::function<void(const Row&)>;

  std::int64_t countRuns(const Filter& filter);
  /// How many runs have each verdict; those that none has are left out.
  std::map<Verdict, std::int64_t> countVerdicts(const Filter& filter);
  /// The last runs, at most so many, the latest first.
  void lastRuns(const Filter& filter, std::size_t most, const Each<RunLine>& each);
  /// All runs, those of a unit (a serial number at a process) one after the other in the order of
  /// their starts.
  void runsByUnit(const Filter& filter, const Each<UnitRun>& each);
  /// What failed, in runs that came to an end.
  void failures(const Filter& filter, const Each<FailureCount>& each);
  /// The sub-tests of a filter that may have numbers, in the order of their own numbers.
  std::vector<Spec> numericSpecs(const Filter& filter);
  /// Which of them have numbers in the runs of the filter, by their ids.
  std::set<std::string> measuredSpecs(const Filter& filter);
  /// The numbers that count of all sub-tests of a filter, in the order of measuring.
  void numbers(const Filter& filter, const Each<SpecNumber>& each);
  /// The same with what belongs to them.
  void values(const Filter& filter, const Each<MeasuredValue>& each);
  /// What measured, run by run in the order of their starts.
  void instruments(const Filter& filter, const Each<UsedInstrument>& each);
  /// Durations of passing runs and of their tests.
  void durations(const Filter& filter, const Each<Duration>& each);

  /// Which plans were run where, in runs of the filter; by station.
  void plans(const Filter& filter, const Each<PlanUse>& each);
  /// When the first run of a plan at a station began after a time; absent when there is none.
  std::optional<std::int64_t> firstRunAfter(const Filter& filter, const std::string& stationId,
                                            const std::string& planId, std::int64_t afterUs);
  /// The last run of each plan at each station that passed, or else came to an end.
  void lastRunsOfPlans(const Filter& filter, const Each<PlanRun>& each);
  /// The ids of the sub-tests that a run has records of.
  std::vector<std::string> specIdsOf(const std::string& runId);
  /// Absent when there is none of that id.
  std::optional<Spec> spec(const std::string& id);

  /// What a server knows of its stations; absent for the store of one station.
  std::optional<StationStates> stationStates();
  /// The months that were taken out of a server and would be of the filter: "2026_11".
  std::vector<std::string> droppedMonths(const Filter& filter);

  /// All names that a filter could have: "part", "process", "station", "site", "flow", "operator",
  /// "version", "serial", "test", "sub_test".
  std::vector<std::string> names(const std::string& what);

 private:
  /// Keeps a server to the months of a filter: `columns` are ids of runs.
  void addMonths(Conditions& conditions, const Filter& filter,
                 const std::vector<std::string>& columns);

  std::unique_ptr<StoreReader> connection_;
};

}  // namespace results
