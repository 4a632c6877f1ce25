#pragma once

// Internal: not installed.

#include <filesystem>
#include <optional>
#include <string>

#include <QLTBundle.h>
#include <QLTStationPlan.h>
#include <QLTValue.h>

#include "configuration/ConfigFindings.h"
#include "configuration/PluginInstruments.h"

namespace quillon::internal {

/// The one reading of a station's configuration: of each section, when loading comes to it. A
/// section is taken from the configuration as it is then, since the plug-in's code may change it
/// between any two; nothing of the plan refers to it.
class PlanReader {
 public:
  /// `configFile` and `testerConfig` name the files in messages.
  PlanReader(std::string configFile, std::filesystem::path testerConfig,
             ConfigFindings::Wanted wanted);

  /// Reads everything up to the sites, goes on as far as it can, and gives the configuration as
  /// the plug-in customised it; absent, with a finding, when there is none.
  std::optional<QLTDictionary> readStation(const QLTBundle& bundle, bool withTesterConfig,
                                           const QLTDictionary& stationInfo);

  /// Reads the plug-in's file, and looks at what is in it as a whole; absent, with a finding, when
  /// it cannot be read.
  std::optional<QLTDictionary> readConfigFile();
  /// Reads the tester's file into the configuration's "Instruments". When it cannot be read, that
  /// is a finding, and nothing is known of the instruments.
  void readTesterConfigFile(QLTDictionary& config);

  // The sections. Each is false when there is one of a wrong type, which ends loading.

  bool readStationAttributes(const QLTDictionary& config);
  /// `principalClass` may be null.
  bool readInstruments(const QLTDictionary& config, const QLTClass* principalClass);
  bool readSites(const QLTDictionary& config);
  /// Reads "Flows" and "defaultFlow". Loading comes to their content only `forSites`.
  bool readFlows(const QLTDictionary& config, const QLTBundle& bundle, bool forSites);

  QLTStationPlan& plan() { return plan_; }
  ConfigFindings& findings() { return findings_; }
  /// What loading refuses first.
  const QLTConfigFinding& refusal() const { return findings_.all().front(); }
  /// The plan with its findings; the reader is done then.
  QLTStationPlan take();

 private:
  ConfigEntry entryOf(const QLTDictionary& config, std::string_view key) const;
  void checkInstrumentClass(QLTStationPlan::Instrument& instrument, const PluginInstruments& own);
  void readSite(const ConfigEntry& entry, const std::string& name);
  void readResources(const ConfigEntry& entry, QLTStationPlan::Site& site);
  void warnOfResource(const ConfigEntry& resource, const QLTStationPlan::Site& site,
                      const std::string& instrument);

  QLTStationPlan plan_;
  ConfigFindings findings_;
  std::filesystem::path testerConfig_;
};

}  // namespace quillon::internal
