#pragma once

#include <filesystem>
#include <vector>

#include <QLTBundle.h>
#include <QLTConfigFinding.h>
#include <QLTExport.h>
#include <QLTStationPlan.h>
#include <QLTValue.h>

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
  /// All findings, in the order in which loading comes by the places. `plan`, unless it is null,
  /// takes what was read, for whoever has more to check; its findings are these.
  static std::vector<QLTConfigFinding> check(const QLTBundle& bundle,
                                             const std::filesystem::path& testerConfig,
                                             const QLTDictionary& stationInfo = {},
                                             QLTStationPlan* plan = nullptr);
};
