#pragma once

// Internal: not installed.

#include <string>
#include <string_view>
#include <vector>

#include <QLTConfigCheck.h>

#include "configuration/StationConfig.h"

namespace quillon::internal {

/// Collects what a check finds.
class ConfigFindings {
 public:
  void error(const Complaint& complaint, std::string advice = {});
  void warning(const Complaint& complaint, std::string advice = {});
  /// Enters complaints as errors, or as warnings when loading does not get that far.
  void add(const Complaints& complaints, QLTConfigFinding::Severity severity);

  /// Warns of the keys of a dictionary that nothing reads.
  void unknownKeys(const ConfigEntry& entry, const std::vector<std::string>& known);
  /// Warns of a text that reads as false although it does not say so.
  void surprisingBoolean(const ConfigEntry& entry);

  std::vector<QLTConfigFinding> take() { return std::move(findings_); }

 private:
  void add(QLTConfigFinding::Severity severity, const Complaint& complaint, std::string advice);
  std::vector<QLTConfigFinding> findings_;
};

/// "did you mean \"X\"?" with the candidate that `name` is most like; "" when none is close.
std::string didYouMean(std::string_view name, const std::vector<std::string>& candidates);

}  // namespace quillon::internal
