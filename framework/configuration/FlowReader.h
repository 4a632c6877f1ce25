#pragma once

// Internal: not installed.

#include <optional>
#include <string>
#include <vector>

#include <QLTBundle.h>
#include <QLTStationPlan.h>
#include <QLTValue.h>

#include "configuration/ConfigFindings.h"

namespace quillon::internal {

/// The one reading of flows: tests, their classes and sub-tests, and which flow is the default.
class FlowReader {
 public:
  /// Enters what it reads into `plan`. The classes are those of `bundle`, else the framework's.
  FlowReader(const QLTBundle& bundle, QLTStationPlan& plan, ConfigFindings& findings)
      : bundle_(bundle), plan_(plan), findings_(findings) {}

  /// `flows` is a dictionary or absent.
  void read(const ConfigEntry& flows, const ConfigEntry& defaultFlow);

 private:
  struct SubTest;
  void readFlow(const ConfigEntry& entry, const std::string& name);
  void readTest(const ConfigEntry& entry, QLTStationPlan::Flow& flow);
  void readClass(const ConfigEntry& entry, const ConfigEntry& place, QLTStationPlan::Test& test);
  void readSubTest(const ConfigEntry& entry, QLTStationPlan::Test& test);
  void warnOfTexts(const ConfigEntry& entry, const SubTest& content);
  void warnOfLimits(const SubTest& content, const QLTValue* low, const QLTValue* high);
  void readDefaultFlow(const ConfigEntry& entry);
  const std::vector<std::string>& methodNames();

  const QLTBundle& bundle_;
  QLTStationPlan& plan_;
  ConfigFindings& findings_;
  std::vector<std::string> methodNames_;
};

/// What "defaultFlow" lacks, by its name and by the names of the flows that are there.
std::string defaultFlowMissing(const std::optional<std::string>& name,
                               const std::vector<std::string>& flowNames);

}  // namespace quillon::internal
