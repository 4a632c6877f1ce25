#pragma once

#include <memory>
#include <optional>
#include <string>

#include <QLTCSVLogger.h>
#include <QLTValue.h>
#include <QLTestResult.h>

#include "Screen.h"
#include "link/Messages.h"

namespace station {

/// A record that nobody can take for a pass, of a device that was not tested to its end. It belongs
/// to no test. Its texts are empty where absent ones would shift the columns of the CSV file.
std::shared_ptr<QLTestResult> brokenOffRecord(const std::string& site,
                                              const std::string& serialNumber, int runIndex,
                                              const std::string& reason);

/// The CSV file, one for all sites. It is closed at the end.
///
/// The station attribute "csvExtraKeys" (an array of texts) names the extras that become columns at
/// the end of each line; "csvAttributeKeys" names the station attributes that become columns at its
/// front.
///
/// `log` may be called by several sites at once.
class ResultLog {
 public:
  /// `CannotRun` when the station attributes are wrong. Opens nothing yet.
  ResultLog(const std::string& path, const QLTDictionary& stationAttributes, Screen& screen);
  ~ResultLog();
  ResultLog(const ResultLog&) = delete;
  ResultLog& operator=(const ResultLog&) = delete;

  const OpenLoggers& columns() const { return columns_; }

  /// `CannotRun` when it does not open.
  void open();
  /// Logs the records of one test. Gives what could not be written of them, in words; absent when
  /// every line is on the disk.
  std::optional<std::string> log(const QLTestResults& records);
  /// True when the file lacks something.
  bool failed() const { return static_cast<bool>(csv_.failure()); }
  /// Why, in words.
  std::string failureText() const;

 private:
  Screen& screen_;
  const OpenLoggers columns_;
  const std::string name_;  // in messages
  const QLTDictionary stationAttributes_;
  QLTCSVLogger csv_;
};

}  // namespace station
