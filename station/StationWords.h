#pragma once

#include <optional>
#include <string>
#include <vector>

#include <QLTValue.h>

#include "SerialPattern.h"

namespace station {

/// How a scan finds its site.
enum class ScanMode {
  Next,  ///< the next free one takes the device
  Site   ///< the site's label, its name, is scanned before the device
};

/// What a plug-in's station attributes say to this application. An attribute that is not there is
/// absent or an empty list; the others are the plug-in's own.
struct StationWords {
  std::optional<std::string> part;
  std::optional<std::string> revision;
  std::optional<std::string> process;
  std::optional<SerialPattern> serialPattern;
  std::optional<double> timeLimit;  ///< in seconds; see `QLTStationPlan::timeLimitOf`
  ScanMode scan = ScanMode::Next;   ///< at the page
  bool startOnScan = true;          ///< at the page: a device is tested as soon as it is scanned
  std::vector<std::string> ownKeys;
  std::vector<std::string> csvAttributeKeys;
  std::vector<std::string> csvExtraKeys;
};

/// A station attribute that does not say what it should.
struct StationWordFault {
  std::string name;
  QLTPosition position;
  std::string message;  ///< "must be ..."
  std::string meaning;  ///< what the attribute is for
};

/// Reads `attributes` as far as they are right; what is wrong is left absent and entered into
/// `faults`, in the order of the words.
StationWords readStationWords(const QLTDictionary& attributes,
                              std::vector<StationWordFault>& faults);

/// As above; `CannotRun` for the first fault.
StationWords readStationWords(const QLTDictionary& attributes);

}  // namespace station
