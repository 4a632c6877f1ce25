#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include <QLTBundle.h>
#include <QLTExport.h>
#include <QLTValue.h>

/// One thing that a check found in a station's configuration.
struct QLT_EXPORT QLTConfigFinding {
  enum class Severity {
    Error,   ///< loading fails
    Warning  ///< loading goes on, but perhaps not as it was meant
  };
  Severity severity = Severity::Error;
  std::string file;
  int line = 0;         ///< from 1; 0 where it is not known
  int column = 0;       ///< from 1; 0 where it is not known
  std::string key;      ///< the key path within the file; "" for the file or line as a whole
  std::string message;  ///< what is wrong, and what loading makes of it
  std::string advice;   ///< what to do; may be ""

  /// "FILE:LINE:COLUMN: KEY: MESSAGE", without the parts that are not known.
  std::string text() const;
};

/// Checks a station's configuration at the desk, before anything is tested.
///
/// It reads the plug-in's "TestConfig" and the tester-config file as loading does, runs the
/// plug-in's `customizeConfig`, and makes its suites and test methods, but no instrument; so
/// nothing touches hardware. It finds an error exactly where loading would fail, as far as that can
/// be told without instruments: whether the plug-in can make an instrument of its own kind, and
/// whether a device answers, only loading shows.
///
/// Stateless, apart from what the plug-in's own hooks do; the shared site manager is not involved.
class QLT_EXPORT QLTConfigCheck {
 public:
  /// All findings, in the order in which loading comes by the places.
  static std::vector<QLTConfigFinding> check(const QLTBundle& bundle,
                                             const std::filesystem::path& testerConfig,
                                             const QLTDictionary& stationInfo = {});
};
