#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <QLTCSVLogger.h>
#include <QLTLogger.h>
#include <QLTValue.h>
#include <QLTestResult.h>
#include <QLTestSuite.h>

#include "Screen.h"
#include "SiteChoice.h"

namespace station {

/// Where the records go: one CSV file for all sites, and the loggers that suites have of their own.
/// A suite's logger gets the records of its site. The file is closed at the end, and so are the
/// loggers that were opened.
///
/// The station attribute "csvExtraKeys" (an array of texts) names the extras that become columns at
/// the end of each line; "csvAttributeKeys" names the station attributes that become columns at its
/// front.
///
/// What cannot be written is told by the loggers themselves; the console log, which plug-ins write
/// to and may take, has no say in it. `startDevice` and `log` may be called by several sites at
/// once.
class LogChain {
 public:
  /// Asks the suites for their loggers; `CannotRun` when a suite throws, or the station attributes
  /// are wrong. Opens nothing yet.
  LogChain(const std::string& csvPath, const QLTDictionary& stationAttributes, const Suites& suites,
           Screen& screen);
  ~LogChain();
  LogChain(const LogChain&) = delete;
  LogChain& operator=(const LogChain&) = delete;

  /// Opens them all; `CannotRun` when one does not open.
  void open();

  void startDevice(const QLTestSuite& suite);
  /// Logs the records of one test. Gives what could not be written of them, in words; absent when
  /// every one is where it belongs. Throws what the suite's own logger throws.
  std::optional<std::string> log(const QLTestSuite& suite, const QLTestResults& records);
  /// True when the CSV file lacks something.
  bool resultLogFailed() const;

 private:
  struct OwnLogger {
    std::string what;  // in messages
    std::shared_ptr<QLTLogger> logger;
  };

  void addLoggerOf(QLTestSuite& suite);
  void open(QLTLogger& logger, const std::string& what) const;
  void close(QLTLogger& logger, const std::string& what);

  Screen& screen_;
  std::vector<std::string> attributeKeys_;
  std::vector<std::string> extraKeys_;
  const std::string csvName_;  // in messages
  const QLTDictionary stationAttributes_;
  QLTCSVLogger csv_;
  std::map<const QLTestSuite*, std::shared_ptr<QLTLogger>> loggerOf_;
  std::vector<OwnLogger> ownLoggers_;  // each once
  std::size_t opened_ = 0;             // of them
};

}  // namespace station
