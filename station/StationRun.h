#pragma once

#include <string>
#include <vector>

#include "LogChain.h"
#include "Outcome.h"
#include "Plugin.h"
#include "Report.h"
#include "RunOptions.h"
#include "Screen.h"
#include "SerialNumberSource.h"
#include "Signals.h"
#include "SiteChoice.h"

namespace station {

/// One `quillon run`, from opening the bundle to the table at the end.
///
/// For the main thread; it starts one thread a site for each round of devices.
class StationRun {
 public:
  explicit StationRun(RunOptions options);

  /// The exit status: 0 when all devices passed, else 1. `CannotRun` when nothing can be tested.
  int run();

 private:
  /// What became of a series of devices.
  struct Series {
    std::vector<Outcome> outcomes;
    bool complete = false;  ///< all rounds were run
  };

  int runOn(Plugin& plugin, const std::string& csvPath);
  Series testSeries(const Suites& suites, SerialNumberSource& source, LogChain& logs,
                    const Report& report);

  const RunOptions options_;
  Screen screen_;
  const Signals signals_;
};

}  // namespace station
