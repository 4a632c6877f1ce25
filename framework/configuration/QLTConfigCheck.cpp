#include "QLTConfigCheck.h"

#include <set>
#include <string>

#include "configuration/PlanReader.h"
#include "configuration/StationBuilder.h"

using quillon::internal::BuildProblem;
using quillon::internal::ConfigEntry;
using quillon::internal::ConfigFindings;
using quillon::internal::PlanReader;
using quillon::internal::StationBuilder;
using quillon::internal::SuiteTable;

std::vector<QLTConfigFinding> QLTConfigCheck::check(const QLTBundle& bundle,
                                                    const std::filesystem::path& testerConfig,
                                                    const QLTDictionary& stationInfo,
                                                    QLTStationPlan* result) {
  PlanReader reader(quillon::internal::configFile(bundle), testerConfig,
                    ConfigFindings::Wanted::All);
  const auto config = reader.readStation(bundle, true, stationInfo);
  const auto done = [&] {
    std::vector<QLTConfigFinding> all = reader.findings().all();
    if (result != nullptr) *result = reader.take();
    return all;
  };
  if (!config) return done();

  QLTStationPlan& plan = reader.plan();
  ConfigFindings& findings = reader.findings();
  std::set<std::string> told;  // what goes wrong at one site goes wrong at the others
  StationBuilder builder(&bundle, bundle.principalClass(), StationBuilder::Policy::Pretend,
                         [&](const BuildProblem& problem) {
                           if (!told.insert(problem.finding.text()).second) return;
                           findings.complaint(problem.finding, problem.finding.advice);
                         });
  QLTDictionary attributes;
  quillon::internal::enterVersions(bundle, attributes);
  attributes.merge(plan.stationAttributes);
  SuiteTable suites;
  builder.buildSites(plan, {}, {}, attributes, [&](auto suite, const std::string& name) {
    suites.insert_or_assign(name, std::move(suite));
  });
  const QLTValue* const sites = config->find("Sites");
  if (suites.empty() && sites != nullptr && sites->dictionary() != nullptr) {
    findings.warning(
        ConfigEntry(plan.configFile, "Sites", sites).finding("no site is left to test at"));
  }
  reader.readFlows(*config, bundle, !suites.empty());
  builder.buildFlows(plan, suites);
  return done();
}
