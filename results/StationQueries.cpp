#include <string>
#include <utility>
#include <vector>

#include "results/Conditions.h"
#include "results/ReportQueries.h"
#include "results/RowStream.h"
#include "results/StoreReader.h"

// The questions of ReportQueries that are about stations, and not about devices.

namespace results {
namespace {

using Text = std::string;
using Integer = std::int64_t;

}  // namespace

void ReportQueries::plans(const Filter& filter, const Each<PlanUse>& each) {
  Conditions conditions;
  conditions.runs(filter);
  addMonths(conditions, filter, {"r.id"});
  connection_->attempt([&](soci::session& session) {
    forEachRow<Text, Text, Text, Text, std::optional<Text>, Text, Text, Text, Integer, Integer,
               Integer>(
        session,
        "SELECT st.id, st.name, p.id, p.bundle, p.bundle_version, p.framework_version, p.flow, "
        "p.config_sha256, u.first_us, u.last_us, u.runs FROM ("
        "SELECT r.station_id, r.plan_id, min(r.started_us) AS first_us, "
        "max(r.started_us) AS last_us, count(*) AS runs FROM run r" +
            conditions.text() +
            " GROUP BY r.station_id, r.plan_id) u JOIN station st ON st.id = u.station_id "
            "JOIN plan p ON p.id = u.plan_id ORDER BY st.name, st.id, u.last_us, p.id",
        conditions, Rows::Whole,
        [&](Text stationId, Text station, Text id, Text bundle, std::optional<Text> version,
            Text framework, Text flow, Text config, Integer first, Integer last, Integer runs) {
          each({std::move(stationId),
                std::move(station),
                {std::move(id), std::move(bundle), std::move(version), std::move(framework),
                 std::move(flow), std::move(config)},
                first,
                last,
                runs});
        });
  });
}

std::optional<std::int64_t> ReportQueries::firstRunAfter(const Filter& filter,
                                                         const std::string& stationId,
                                                         const std::string& planId,
                                                         std::int64_t afterUs) {
  Conditions conditions;
  conditions.runs(filter);
  addMonths(conditions, filter, {"r.id"});
  conditions.compares("r.station_id =", stationId);
  conditions.compares("r.plan_id =", planId);
  conditions.compares("r.started_us >", afterUs);
  std::optional<std::int64_t> first;
  connection_->attempt([&](soci::session& session) {
    forEachRow<std::optional<Integer>>(
        session, "SELECT min(r.started_us) FROM run r" + conditions.text(), conditions, Rows::Whole,
        [&](std::optional<Integer> found) { first = found; });
  });
  return first;
}

void ReportQueries::lastRunsOfPlans(const Filter& filter, const Each<PlanRun>& each) {
  Conditions conditions;
  conditions.runs(filter);
  addMonths(conditions, filter, {"r.id"});
  conditions.add("r.verdict IN ('PASS', 'FAIL')");
  connection_->attempt([&](soci::session& session) {
    forEachRow<Text, Text, Text>(
        session,
        "SELECT u.station_id, u.plan_id, u.id FROM ("
        "SELECT r.id, r.station_id, r.plan_id, row_number() OVER ("
        "PARTITION BY r.station_id, r.plan_id ORDER BY CASE r.verdict WHEN 'PASS' THEN 0 ELSE 1 "
        "END, r.started_us DESC, r.id DESC) AS nth FROM run r" +
            conditions.text() + ") u WHERE u.nth = 1 ORDER BY 1, 2",
        conditions, Rows::Whole, [&](Text station, Text plan, Text run) {
          each({std::move(station), std::move(plan), std::move(run)});
        });
  });
}

std::vector<std::string> ReportQueries::specIdsOf(const std::string& runId) {
  Conditions conditions;
  conditions.compares("m.run_id =", runId);
  std::vector<std::string> ids;
  connection_->attempt([&](soci::session& session) {
    forEachRow<Text>(
        session, "SELECT DISTINCT m.spec_id FROM measurement m" + conditions.text() + " ORDER BY 1",
        conditions, Rows::Whole, [&](Text id) { ids.push_back(std::move(id)); });
  });
  return ids;
}

std::optional<Spec> ReportQueries::spec(const std::string& id) {
  std::optional<Spec> found;
  connection_->attempt([&](soci::session& session) {
    for (Spec& spec : select<Spec>(session, "id = :id", id)) found = std::move(spec);
  });
  return found;
}

std::optional<StationStates> ReportQueries::stationStates() {
  if (!connection_->isServer()) return std::nullopt;
  StationStates states;
  connection_->attempt([&](soci::session& session) {
    forEachRow<Integer>(session, "SELECT now_us()", Conditions(), Rows::Whole,
                        [&](Integer now) { states.nowUs = now; });
    forEachRow<Text, Text, std::optional<Integer>, std::optional<Integer>, std::optional<Integer>,
               std::optional<Integer>>(
        session,
        "SELECT st.id, st.name, s.heard_us, s.waiting, s.heard_us - s.oldest_age_us, s.parked "
        "FROM station st LEFT JOIN station_state s ON s.station_id = st.id ORDER BY st.name, st.id",
        Conditions(), Rows::Whole,
        [&](Text id, Text name, std::optional<Integer> heard, std::optional<Integer> waiting,
            std::optional<Integer> oldest, std::optional<Integer> parked) {
          states.stations.push_back({std::move(id), std::move(name), heard, waiting.value_or(0),
                                     oldest, parked.value_or(0)});
        });
  });
  return states;
}

std::vector<std::string> ReportQueries::droppedMonths(const Filter& filter) {
  std::vector<std::string> months;
  if (!connection_->isServer()) return months;
  Conditions conditions;
  conditions.add("dropped_us IS NOT NULL");
  if (filter.sinceUs) conditions.compares("until_us >", *filter.sinceUs);
  if (filter.untilUs) conditions.compares("from_us <", *filter.untilUs);
  connection_->attempt([&](soci::session& session) {
    forEachRow<Text>(session, "SELECT name FROM month" + conditions.text() + " ORDER BY name",
                     conditions, Rows::Whole,
                     [&](Text name) { months.push_back(std::move(name)); });
  });
  return months;
}

}  // namespace results
