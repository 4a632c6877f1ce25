#include <algorithm>
#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "reports/Breakdown.h"
#include "reports/Format.h"
#include "reports/Reports.h"

namespace reports {
namespace {

using results::Plan;
using results::PlanUse;
using results::Spec;

constexpr std::size_t kNamed = 20;        // more stations nobody reads in one field
constexpr std::size_t kShortDigits = 12;  // of a sum; they tell configurations apart

using Flow = std::pair<std::string, std::string>;  // bundle and flow

/// What one station runs of a flow, now.
struct Present {
  PlanUse use;
  std::int64_t sinceUs = 0;
  std::string differences;  ///< from what most stations run; "" for none
};

/// One version of a flow at all stations.
struct Version {
  Plan plan;
  std::int64_t firstUs = 0;
  std::int64_t lastUs = 0;
  std::int64_t runs = 0;
  std::int64_t stations = 0;  ///< that run it now
};

std::string shortSum(const std::string& sum) { return sum.substr(0, kShortDigits); }

std::string namesOf(const std::set<std::string>& names) {
  std::string text;
  std::size_t shown = 0;
  for (const std::string& name : names) {
    if (shown++ == kNamed) return text + " and " + std::to_string(names.size() - kNamed) + " more";
    text += (text.empty() ? "" : ", ") + name;
  }
  return text;
}

std::string differencesOf(const Plan& plan, const Plan& most) {
  std::string text;
  const auto add = [&](bool differs, const char* what) {
    if (differs) text += (text.empty() ? "" : ", ") + std::string(what);
  };
  add(plan.bundleVersion != most.bundleVersion, "plug-in");
  add(plan.frameworkVersion != most.frameworkVersion, "Quillon");
  add(plan.configSha256 != most.configSha256, "configuration");
  return text;
}

/// The fleet: what each station runs, by flow.
class Fleet {
 public:
  Fleet(results::ReportQueries& queries, const results::Filter& filter) {
    std::map<std::pair<std::string, Flow>, std::vector<PlanUse>> uses;
    queries.plans(filter, [&](const PlanUse& use) {
      uses[{use.stationId, flowOf(use.plan)}].push_back(use);
      Version& version = versions_[flowOf(use.plan)][use.plan.id];
      if (version.runs == 0 || use.firstUs < version.firstUs) version.firstUs = use.firstUs;
      version.plan = use.plan;
      version.lastUs = std::max(version.lastUs, use.lastUs);
      version.runs += use.runs;
    });
    for (const auto& [place, plans] : uses) {
      Present present;
      present.use = plans.back();  // the last one that ran
      present.sinceUs = present.use.firstUs;
      if (plans.size() > 1 && plans.at(plans.size() - 2).lastUs > present.use.firstUs) {
        // It ran before, and others in between.
        present.sinceUs = queries
                              .firstRunAfter(filter, present.use.stationId, present.use.plan.id,
                                             plans.at(plans.size() - 2).lastUs)
                              .value_or(present.use.lastUs);
      }
      ++versions_[place.second][present.use.plan.id].stations;
      present_.push_back(std::move(present));
    }
    std::stable_sort(present_.begin(), present_.end(), [](const Present& a, const Present& b) {
      return std::tuple(flowOf(a.use.plan), a.use.station) <
             std::tuple(flowOf(b.use.plan), b.use.station);
    });
    for (Present& each : present_) {
      each.differences = differencesOf(each.use.plan, most(flowOf(each.use.plan)).plan);
    }
  }

  const std::vector<Present>& present() const { return present_; }
  const std::map<Flow, std::map<std::string, Version>>& versions() const { return versions_; }

  /// What most stations run of a flow now; of as many, what came last.
  const Version& most(const Flow& flow) const {
    const auto& versions = versions_.at(flow);
    return std::max_element(versions.begin(), versions.end(),
                            [](const auto& a, const auto& b) {
                              return std::tuple(a.second.stations, a.second.firstUs) <
                                     std::tuple(b.second.stations, b.second.firstUs);
                            })
        ->second;
  }
  /// What ran first at the latest.
  const Version& newest(const Flow& flow) const {
    const auto& versions = versions_.at(flow);
    return std::max_element(
               versions.begin(), versions.end(),
               [](const auto& a, const auto& b) { return a.second.firstUs < b.second.firstUs; })
        ->second;
  }

  static Flow flowOf(const Plan& plan) { return {plan.bundle, plan.flow}; }

 private:
  std::map<Flow, std::map<std::string, Version>> versions_;  // by the plan's id
  std::vector<Present> present_;
};

Table stationsOf(const Fleet& fleet) {
  Table table{"stations",
              "What each station runs",
              {{"bundle", "Plug-in"},
               {"flow", "Flow"},
               {"station", "Station"},
               {"version", "Version"},
               {"framework", "Quillon"},
               {"configuration", "Configuration"},
               {"since", "Since", Kind::Time},
               {"last", "Last run", Kind::Time},
               {"runs", "Runs", Kind::Count},
               {"differs", "Differs from most in"},
               {"newest", "Newest"}},
              {}};
  for (const Present& each : fleet.present()) {
    const Plan& plan = each.use.plan;
    const bool isNewest = fleet.newest(Fleet::flowOf(plan)).plan.id == plan.id;
    table.rows.push_back(
        {plan.bundle, plan.flow, each.use.station, plan.bundleVersion, plan.frameworkVersion,
         shortSum(plan.configSha256), each.sinceUs, each.use.lastUs, each.use.runs,
         each.differences.empty() ? Cell() : Cell(each.differences), isNewest ? "yes" : "no"});
  }
  return table;
}

Table versionsOf(const Fleet& fleet) {
  Table table{"versions",
              "Versions",
              {{"bundle", "Plug-in"},
               {"flow", "Flow"},
               {"version", "Version"},
               {"framework", "Quillon"},
               {"configuration", "Configuration"},
               {"stations", "Stations now", Kind::Count},
               {"first", "First run", Kind::Time},
               {"last", "Last run", Kind::Time},
               {"runs", "Runs", Kind::Count},
               {"config_sha256", "Sum of the configuration"}},
              {}};
  for (const auto& [flow, versions] : fleet.versions()) {
    std::vector<Version> sorted;
    sorted.reserve(versions.size());
    for (const auto& [id, version] : versions) sorted.push_back(version);
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const Version& a, const Version& b) { return a.firstUs > b.firstUs; });
    for (const Version& each : sorted) {
      const Plan& plan = each.plan;
      table.rows.push_back({plan.bundle, plan.flow, plan.bundleVersion, plan.frameworkVersion,
                            shortSum(plan.configSha256), each.stations, each.firstUs, each.lastUs,
                            each.runs, plan.configSha256});
    }
  }
  return table;
}

/// Sub-tests that stations judge by different limits.
Table limitsOf(results::ReportQueries& queries, const results::Filter& filter, const Fleet& fleet) {
  using SubTest = std::tuple<std::string, std::string, std::string, std::string>;
  using Limits = std::tuple<std::string, std::optional<double>, std::optional<double>,
                            std::optional<std::string>, std::optional<std::string>>;
  std::set<std::pair<std::string, std::string>> present;  // station and plan
  std::map<std::string, std::string> names;
  for (const Present& each : fleet.present()) {
    present.emplace(each.use.stationId, each.use.plan.id);
    names[each.use.stationId] = each.use.station;
  }
  std::map<SubTest, std::map<Limits, std::set<std::string>>> stations;
  std::vector<results::PlanRun> runs;
  queries.lastRunsOfPlans(filter, [&](const results::PlanRun& run) {
    if (present.contains({run.stationId, run.planId})) runs.push_back(run);
  });
  std::map<std::string, std::optional<Spec>> specs;
  for (const results::PlanRun& run : runs) {
    for (const std::string& id : queries.specIdsOf(run.runId)) {
      const auto [found, isNew] = specs.try_emplace(id);
      if (isNew) found->second = queries.spec(id);
      const auto& spec = found->second;
      if (!spec) continue;
      stations[{spec->bundle, spec->flow, spec->test, spec->subTest}]
              [{text(spec->kind), spec->low, spec->high, spec->expected, spec->unit}]
                  .insert(names[run.stationId]);
    }
  }
  Table table{"limits",
              "Sub-tests with limits that differ between stations",
              {{"bundle", "Plug-in"},
               {"flow", "Flow"},
               {"test", "Test"},
               {"sub_test", "Sub-test"},
               {"low", "Low", Kind::Number},
               {"high", "High", Kind::Number},
               {"expected", "Expected"},
               {"unit", "Unit"},
               {"count", "Stations", Kind::Count},
               {"stations", "Which"}},
              {}};
  for (const auto& [subTest, sets] : stations) {
    if (sets.size() < 2) continue;
    std::vector<std::pair<Limits, std::set<std::string>>> sorted(sets.begin(), sets.end());
    std::stable_sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) {
      return a.second.size() > b.second.size();
    });
    for (const auto& [limits, where] : sorted) {
      table.rows.push_back({std::get<0>(subTest), std::get<1>(subTest), std::get<2>(subTest),
                            std::get<3>(subTest), std::get<1>(limits), std::get<2>(limits),
                            std::get<3>(limits), std::get<4>(limits),
                            static_cast<std::int64_t>(where.size()), namesOf(where)});
    }
  }
  return table;
}

}  // namespace

Report versionsReport(results::ReportQueries& queries, const Request& request) {
  requireRuns(queries, request.filter);
  results::Filter filter = request.filter;
  if (filter.kinds.empty()) {
    filter.kinds = {results::RunKind::Production, results::RunKind::Retest};
  }
  const Fleet fleet(queries, filter);
  Report report;
  report.name = "versions";
  report.title = "Versions and limits";
  report.about = aboutOf(request);
  report.tables.push_back(stationsOf(fleet));
  report.tables.push_back(versionsOf(fleet));
  report.tables.push_back(limitsOf(queries, filter, fleet));
  for (const auto& [flow, versions] : fleet.versions()) {
    std::set<std::string> different;
    for (const Present& each : fleet.present()) {
      if (Fleet::flowOf(each.use.plan) == flow && !each.differences.empty()) {
        different.insert(each.use.station);
      }
    }
    if (different.empty()) continue;
    report.notes.push_back(flow.first + ", flow " + flow.second + ": " +
                           counted(static_cast<std::int64_t>(different.size()), "station") +
                           (different.size() == 1 ? " differs" : " differ") +
                           " from most: " + namesOf(different) + ".");
  }
  if (report.table("limits")->rows.empty()) {
    report.notes.emplace_back("Where stations run the same flow, they test with the same limits.");
  }
  report.definitions = {
      request.filter.kinds.empty() ? "Looked at are runs of the kinds production and retest."
                                   : "Looked at are runs of the kinds in the filter.",
      ("What a station runs is what its last run of the flow was made with; since: without another "
       "version in between."),
      "Configuration: the first digits of the sum of the configuration as it was used.",
      ("Most: what most stations run of a flow, of as many what came last. Newest: what ran first "
       "at the latest."),
      ("Limits are those of the last run of each station's present version that passed, or else "
       "came to an end.")};
  return report;
}

}  // namespace reports
