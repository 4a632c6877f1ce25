#pragma once

// Internal: not installed.

#include <optional>
#include <string>

#include <QLTClass.h>
#include <QLTValue.h>

#include "configuration/StationConfig.h"

namespace quillon::internal {

/// One test of a flow, as it is configured.
struct TestEntry {
  std::optional<std::string> className;
  std::optional<std::string> displayName;
  std::optional<QLTValue> params;
  std::optional<bool> retest;
  std::optional<bool> stopOnFail;
  QLTClass::SubTestInfos subTests;
};

/// Reads one test of a flow; absent, with at least one complaint, when it is malformed.
std::optional<TestEntry> readTest(const ConfigEntry& entry, Complaints& complaints);

/// The class of that name: of the plug-in, else of the framework. Null when there is none.
const QLTClass* classOfTest(const QLTBundle& bundle, const std::optional<std::string>& name);

/// The flow that "defaultFlow" names, if it is one of `flowNames`; otherwise absent, with a
/// complaint.
std::optional<std::string> readDefaultFlow(const ConfigEntry& entry,
                                           const std::vector<std::string>& flowNames,
                                           Complaints& complaints);

}  // namespace quillon::internal
