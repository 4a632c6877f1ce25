#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "DeviceSource.h"
#include "SerialNumbers.h"

namespace station {

inline constexpr const char* kDefaultLogFolder = "logs";
/// The results store, in the log folder.
inline constexpr const char* kStoreName = "results.db";

/// Which devices' traffic with the instruments is kept.
enum class KeepTraffic { None, NotPassed, All };

/// A recording of traffic that speaks for the instruments.
struct Replay {
  std::filesystem::path file;  ///< absolute
  bool anyway = false;         ///< with another plug-in or configuration than it was made with
};

/// What `quillon run` was asked to do.
struct RunOptions {
  std::filesystem::path bundle;
  std::string flow = "default";
  std::vector<std::string> sites;  ///< empty: every site of the station
  SerialNumbers serialNumbers;
  std::filesystem::path answers;  ///< a file, see `AnswerFile`; empty: none
  std::string logFolder = kDefaultLogFolder;
  int repeat = 1;                   ///< devices per site; 0: without end
  RunPurpose purpose = {};          ///< of all runs
  int safeStateLimit = 30;          ///< seconds for the safe state of a site
  bool allowUnknownKeys = false;    ///< in the plug-in's configuration
  std::string calibrationOverride;  ///< NAME:REASON; empty: none
  KeepTraffic keepTraffic = KeepTraffic::NotPassed;
  std::optional<Replay> replay;
  bool verbose = false;
  bool quiet = false;    ///< show verdicts and the table only
  bool details = false;  ///< show all values of each device
  bool json = false;     ///< standard output is for programs
  std::string wrap;      ///< a command that runs the worker; empty: none
};

}  // namespace station
