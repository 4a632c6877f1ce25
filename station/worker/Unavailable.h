#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include <QLTValue.h>
#include <QLTestSiteManager.h>

namespace station {

/// Why sites cannot be tested at, by their names: every cause in words.
using Unavailable = std::map<std::string, std::vector<std::string>>;

/// The sites that loading left out for want of an instrument. A cause tells the instrument, its
/// path or address, the system's reason and, for a busy port, the process that has it.
Unavailable unavailableSites(QLTestSiteManager& manager);

/// What the operator should know of calibrations although sites can be tested at.
struct CalibrationNotes {
  std::vector<std::string> texts;
  std::vector<std::string> overridden;  ///< of them, what was overdue and is used all the same
};

/// Adds the sites that have an instrument whose calibration is overdue, unless `override` (a name
/// and a reason) allows it.
CalibrationNotes judgeCalibrations(QLTestSiteManager& manager, const std::string& override,
                                   Unavailable& unavailable);

/// What each site tests with: by site and by the name that its tests use, the entry of the
/// tester-config file.
QLTDictionary instrumentsOfSites(QLTestSiteManager& manager);

/// The names of the instruments that a site needs.
std::set<std::string> instrumentsOf(const QLTDictionary& config, const std::string& site);

/// The instruments that did not come up and that no site needs, likewise in words.
std::vector<std::string> unusedFailures(QLTestSiteManager& manager);

}  // namespace station
