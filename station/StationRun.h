#pragma once

#include <memory>
#include <string>
#include <vector>

#include <QLTestSuite.h>

#include "ConsoleLogFile.h"
#include "LogChain.h"
#include "Outcome.h"
#include "Plugin.h"
#include "Report.h"
#include "RunOptions.h"
#include "Screen.h"
#include "SerialNumbers.h"
#include "Signals.h"

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
  using Suites = std::vector<std::shared_ptr<QLTestSuite>>;

  int runOn(Plugin& plugin, const ConsoleLogFile& diagnostics, const std::string& csvPath);
  Suites chosenSites(Plugin& plugin);
  void reportUnusedSites(Plugin& plugin);
  void checkFlow(const Suites& suites) const;
  void checkSerialNumbers(const Suites& suites) const;
  bool askSerialNumbers(const Suites& suites, int round, std::vector<std::string>& serialNumbers);

  const RunOptions options_;
  const std::shared_ptr<Screen> screen_ = std::make_shared<Screen>();
  const Signals signals_;
  SerialNumberPrompt prompt_{*screen_};
};

}  // namespace station
