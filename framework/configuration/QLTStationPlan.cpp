#include "QLTStationPlan.h"

#include <algorithm>

#include "configuration/ConfigEntry.h"
#include "configuration/PlanReader.h"

using quillon::internal::ConfigFindings;
using quillon::internal::PlanReader;

QLTStationPlan QLTStationPlan::read(const QLTBundle& bundle,
                                    const std::optional<std::filesystem::path>& testerConfig,
                                    const QLTDictionary& stationInfo) {
  PlanReader reader(quillon::internal::configFile(bundle), testerConfig.value_or(""),
                    ConfigFindings::Wanted::All);
  const auto config = reader.readStation(bundle, testerConfig.has_value(), stationInfo);
  if (config) {
    const QLTStationPlan& plan = reader.plan();
    const bool forSites = std::any_of(plan.sites.begin(), plan.sites.end(),
                                      [&](const Site& site) { return plan.isUsable(site); });
    reader.readFlows(*config, bundle, forSites);
  }
  return reader.take();
}

std::optional<double> QLTStationPlan::timeLimitOf(const QLTValue& value) {
  return quillon::internal::timeLimitOf(value);
}

const QLTConfigFinding* QLTStationPlan::firstError() const {
  const auto found = std::find_if(findings.begin(), findings.end(), [](const auto& finding) {
    return finding.severity == QLTConfigFinding::Severity::Error;
  });
  return found == findings.end() ? nullptr : &*found;
}

bool QLTStationPlan::isUsable(const Site& site) const {
  if (!site.isEnabled || site.refusedBy) return false;
  if (!testerConfig) return true;
  return std::all_of(site.resources.begin(), site.resources.end(), [&](const Resource& resource) {
    const auto found = instruments.find(resource.instrument);
    return found != instruments.end() && found->second.missingAttribute.empty();
  });
}
