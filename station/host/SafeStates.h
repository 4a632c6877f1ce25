#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "ConsoleLogFile.h"
#include "SiteSafety.h"
#include "link/Messages.h"

namespace station {

/// Keeps which fixtures have still to be brought into their safe state, and what comes of it: a
/// site where it fails is unsafe. One where it cannot be tried is so only if its fixture was left
/// in the middle of a test. For the station's thread.
class SafeStates {
 public:
  using Clock = std::chrono::steady_clock;

  /// `limit` is what a fixture gets for it.
  SafeStates(SiteSafety& safety, const ConsoleLogFile& diagnostics, std::chrono::seconds limit)
      : safety_(safety), diagnostics_(diagnostics), limit_(limit) {}

  /// The fixtures of these sites were left in the middle of a test.
  void leftInTest(const std::set<std::string>& sites);
  /// From now on these sites want their safe state.
  void want(const std::vector<std::string>& sites);
  /// Asks with `ask`, all at once, the sites that want it and have no `problem`, which tells why
  /// one is not loaded.
  void ask(const std::function<std::optional<std::string>(const std::string&)>& problem,
           const std::function<void(const SafeState&)>& ask);
  void answered(const SafeStateDone& answer);
  /// No site wants it any more.
  bool areDone() const { return wanted_.empty(); }
  /// A site that was asked has not answered in time. Why its worker is ended then; absent before.
  std::optional<std::string> lateness() const;
  /// The worker ended; who has not answered is unsafe.
  void workerEnded(const std::string& reason);
  /// There is no worker that could be asked.
  void couldNotBeTried(const std::string& reason);

 private:
  SiteSafety& safety_;
  const ConsoleLogFile& diagnostics_;
  const std::chrono::seconds limit_;
  std::set<std::string> wanted_;
  std::set<std::string> inTest_;  // until its safe state was tried, or could not be
  Clock::time_point until_;
};

}  // namespace station
