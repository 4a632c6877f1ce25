#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <QLTLogger.h>
#include <QLTestResult.h>
#include <QLTestSuite.h>

#include "SiteChoice.h"
#include "link/Messages.h"

namespace station {

/// The loggers that suites have of their own: each gets the records of its site, and is closed at
/// the end if it was opened.
///
/// What cannot be written is told by the loggers themselves; the console log, which plug-ins write
/// to and may take, has no say in it. `startDevice` and `log` may be called by several sites at
/// once.
class OwnLoggers {
 public:
  using Warn = std::function<void(const std::string&)>;

  /// Asks the suites for their loggers; `CannotRun` when a suite throws. Opens nothing yet. `warn`
  /// is told what goes wrong at the end.
  OwnLoggers(const Suites& suites, Warn warn);
  ~OwnLoggers();
  OwnLoggers(const OwnLoggers&) = delete;
  OwnLoggers& operator=(const OwnLoggers&) = delete;

  /// Opens them all; `CannotRun` when one does not open.
  void open(const OpenLoggers& columns);

  void startDevice(const QLTestSuite& suite);
  /// Logs the records of one test. Gives what could not be written of them, in words; absent when
  /// all is well. Throws what the suite's logger throws.
  std::optional<std::string> log(const QLTestSuite& suite, const QLTestResults& records);

 private:
  struct OwnLogger {
    std::string what;  // in messages
    std::shared_ptr<QLTLogger> logger;
  };

  void addLoggerOf(QLTestSuite& suite);
  void close(QLTLogger& logger);

  Warn warn_;
  std::map<const QLTestSuite*, std::shared_ptr<QLTLogger>> loggerOf_;
  std::vector<OwnLogger> loggers_;  // each once
  std::size_t opened_ = 0;          // of them
};

}  // namespace station
