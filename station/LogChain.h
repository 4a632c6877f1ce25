#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include <QLTCSVLogger.h>
#include <QLTLogger.h>
#include <QLTValue.h>
#include <QLTestResult.h>
#include <QLTestSuite.h>

#include "Screen.h"

namespace station {

/// Where the records go: one CSV file for all sites, and the loggers that suites have of their own.
/// A suite's logger gets the records of its site.
///
/// The station attribute "csvExtraKeys" (an array of texts) names the extras that become columns at
/// the end of each line; "csvAttributeKeys" names the station attributes that become columns at its
/// front.
///
/// `startDevice` and `log` may be called by several sites at once.
class LogChain {
 public:
  /// Opens all of them; `CannotRun` when one does not open.
  LogChain(const std::string& csvPath, const QLTDictionary& stationAttributes,
           const std::vector<std::shared_ptr<QLTestSuite>>& suites, Screen& screen);
  ~LogChain();  ///< closes
  LogChain(const LogChain&) = delete;
  LogChain& operator=(const LogChain&) = delete;

  void startDevice(const QLTestSuite& suite);
  void log(const QLTestSuite& suite, const std::shared_ptr<const QLTestResult>& result);

 private:
  LogChain(const std::string& csvPath, const QLTDictionary& stationAttributes, Screen& screen);
  void openLoggerOf(QLTestSuite& suite);
  void open(QLTLogger& logger, const std::string& what);
  void close(QLTLogger& logger, const std::string& what);

  Screen& screen_;
  std::vector<std::string> attributeKeys_;
  std::vector<std::string> extraKeys_;
  QLTCSVLogger csv_;
  std::map<const QLTestSuite*, std::shared_ptr<QLTLogger>> ownLoggers_;
  std::vector<std::shared_ptr<QLTLogger>> opened_;  // of the suites, each once
};

}  // namespace station
