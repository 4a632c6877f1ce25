#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <QLTValue.h>
#include <QLTestResult.h>

#include "DeviceSource.h"
#include "Outcome.h"
#include "link/Messages.h"
#include "results/Store.h"

namespace station {

/// The rows of one device in the results store, from its start to its verdict. For one thread.
///
/// What is told is queued; what could not be written shows in `flush` and `finish`.
class RunRecorder {
 public:
  /// What all runs of a session have in common.
  struct Session {
    results::Store& store;
    results::Plan plan;
    results::Run run;  ///< part, revision and process
    QLTDictionary stationAttributes;
    QLTDictionary instruments;  ///< of the sites, see `Loaded::instruments`
  };

  /// Enters the run, on disk when this returns; `identities` as in `Prepared`. Throws
  /// `results::StoreError`.
  RunRecorder(const Session& session, const std::string& site, const NextDevice& device,
              const QLTDictionary& identities);

  const std::string& id() const { return run_.id; }

  void deviceStarted(int runIndex) { runIndex_ = runIndex; }
  void testStarted(const TestStarted& test);
  void tested(const Tested& test);
  /// The test in progress did not come to its end.
  void testBrokenOff(const QLTestResults& reported);
  /// A record that the station makes itself, of no test or of the last one.
  void add(const std::shared_ptr<QLTestResult>& record);

  /// Has all of this written, and does not wait.
  void hurry();
  /// Has all of this entered, to be written with the end, and does not wait.
  void expectEnd();
  /// Waits until all of this is on disk. Throws `results::StoreError`.
  void flush();
  /// Ends the run with the verdict of `outcome`, on disk when this returns. Throws
  /// `results::StoreError`; the verdict does not stand then.
  void finish(const Outcome& outcome);

 private:
  void addInstruments(const QLTDictionary& identities);
  void putStep(results::Step step);
  void addAll(const QLTestResults& records, std::int64_t attempt, bool superseded);

  const Session& session_;
  results::Run run_;
  std::optional<results::Step> step_;  // in progress
  std::int64_t sequence_ = 0;          // of the last record
  std::optional<std::int64_t> firstFailure_;
  std::optional<int> runIndex_;
};

}  // namespace station
