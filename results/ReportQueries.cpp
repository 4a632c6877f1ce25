#include "ReportQueries.h"

#include <algorithm>
#include <limits>
#include <tuple>
#include <utility>

#include "common/Text.h"
#include "results/Conditions.h"
#include "results/RowStream.h"
#include "results/StoreReader.h"

namespace results {
namespace {

using Text = std::string;
using MaybeText = std::optional<std::string>;
using Integer = std::int64_t;
using MaybeInteger = std::optional<std::int64_t>;

constexpr const char* kCounted = "r.verdict IN ('PASS', 'FAIL')";
constexpr const char* kRunColumns =
    "r.id, r.started_us, r.ended_us, st.name, r.site, r.serial, r.part, r.process, r.operator, "
    "p.flow, p.bundle_version, r.kind, r.verdict, r.records";
constexpr const char* kRunTables =
    " FROM run r JOIN station st ON st.id = r.station_id JOIN plan p ON p.id = r.plan_id";

RunLine runLine(Text id, Integer started, MaybeInteger ended, Text station, Text site, Text serial,
                MaybeText part, MaybeText process, MaybeText operatorName, Text flow,
                MaybeText version, RunKind kind, Verdict verdict, Integer records) {
  return {std::move(id),
          started,
          ended,
          std::move(station),
          std::move(site),
          std::move(serial),
          std::move(part),
          std::move(process),
          std::move(operatorName),
          std::move(flow),
          std::move(version),
          kind,
          verdict,
          records};
}

/// Whether all runs of a unit are in a filter, or none.
bool keepsUnitsWhole(const Filter& filter) {
  return !filter.sinceUs && !filter.untilUs && filter.parts.empty() && filter.stations.empty() &&
         filter.sites.empty() && filter.flows.empty() && filter.versions.empty() &&
         filter.operators.empty() && filter.kinds.empty();
}

/// Tells of each run, unit by unit, whether the unit came to an end before.
class FirstRuns {
 public:
  bool areBefore(const RunLine& run) {
    if (run.serial != serial_ || run.process != process_) {
      serial_ = run.serial;
      process_ = run.process;
      isKnown_ = false;
    }
    if (run.kind != RunKind::Production && run.kind != RunKind::Retest) return false;
    const bool wasKnown = isKnown_;
    isKnown_ = isKnown_ || run.verdict == Verdict::Pass || run.verdict == Verdict::Fail;
    return wasKnown;
  }

 private:
  Text serial_;
  MaybeText process_;
  bool isKnown_ = false;
};

/// Runs by unit, with whether the unit came to an end before, anywhere, and whether a test was
/// repeated. The first run of a unit is its first anywhere: a unit that comes back from another
/// site or another day is none that is tested for the first time. Of units that are whole here the
/// rows themselves tell.
Text unitRunsText(const Text& condition, bool areWhole, bool isServer) {
  const Text production = "IN ('production', 'retest')";
  const Text counted = "e.verdict IN ('PASS', 'FAIL') AND e.kind " + production;
  Text start = "SELECT ";
  Text known = "0";
  Text repeats = "EXISTS (SELECT 1 FROM step x WHERE x.run_id = r.id AND x.attempt > 1)";
  Text tables = kRunTables;
  Text end = condition;
  // A file finds the runs of each unit by their serial number. A server would look for each in
  // every month; it reads them once, and likewise the few steps that were repeated.
  if (!areWhole && !isServer) {
    known = "CASE WHEN r.kind " + production +
            " AND EXISTS (SELECT 1 FROM run e WHERE e.serial = r.serial AND "
            "coalesce(e.process, '') = coalesce(r.process, '') AND " +
            counted +
            " AND (e.started_us < r.started_us OR (e.started_us = r.started_us AND e.id < r.id)))"
            " THEN 1 ELSE 0 END";
  } else if (!areWhole) {
    start = "WITH wanted AS MATERIALIZED (SELECT * FROM run r" + condition +
            "), first AS (SELECT DISTINCT ON (e.serial, coalesce(e.process, '')) e.serial, "
            "coalesce(e.process, '') AS process, e.started_us, e.id FROM run e "
            "WHERE e.serial IN (SELECT serial FROM wanted) AND " +
            counted + " ORDER BY e.serial, coalesce(e.process, ''), e.started_us, e.id) SELECT ";
    known = "CASE WHEN r.kind " + production +
            " AND (f.started_us, f.id) < (r.started_us, r.id) THEN 1 ELSE 0 END";
    tables =
        " FROM wanted r JOIN station st ON st.id = r.station_id "
        "JOIN plan p ON p.id = r.plan_id LEFT JOIN first f ON f.serial = r.serial "
        "AND f.process = coalesce(r.process, '')";
    end.clear();
  }
  if (isServer) repeats = "r.id IN (SELECT x.run_id FROM step x WHERE x.attempt > 1)";
  return start + kRunColumns + ", " + known + ", CASE WHEN " + repeats + " THEN 1 ELSE 0 END" +
         tables + end + " ORDER BY r.serial, coalesce(r.process, ''), r.started_us, r.id";
}

/// "3.10" after "3.2".
std::pair<Integer, Integer> placeOf(const std::string& number) {
  const std::size_t point = number.find('.');
  const auto major = quillon::internal::numberIn<Integer>(number.substr(0, point));
  const auto minor = point == std::string::npos
                         ? std::nullopt
                         : quillon::internal::numberIn<Integer>(number.substr(point + 1));
  return {major.value_or(0), minor.value_or(0)};
}

double numberOf(const std::optional<double>& value) {
  return value.value_or(std::numeric_limits<double>::quiet_NaN());
}

/// A number, or one that is not finite.
constexpr const char* kIsNumber = "(m.value IS NOT NULL OR m.text IN ('nan', 'inf', '-inf'))";

}  // namespace

ReportQueries::ReportQueries(const std::string& store, std::chrono::milliseconds patience)
    : connection_(openToRead(store, patience)) {}

ReportQueries::~ReportQueries() = default;

void ReportQueries::addMonths(Conditions& conditions, const Filter& filter,
                              const std::vector<std::string>& columns) {
  const auto ids = connection_->idsOf(filter.sinceUs, filter.untilUs);
  if (!ids) return;
  for (const std::string& column : columns) {
    conditions.compares(column + " >=", ids->low);
    conditions.compares(column + " <", ids->high);
  }
}

std::int64_t ReportQueries::countRuns(const Filter& filter) {
  Conditions conditions;
  conditions.runs(filter);
  addMonths(conditions, filter, {"r.id"});
  std::int64_t count = 0;
  connection_->attempt([&](soci::session& session) {
    forEachRow<Integer>(session, "SELECT count(*) FROM run r" + conditions.text(), conditions,
                        Rows::Whole, [&](Integer runs) { count = runs; });
  });
  return count;
}

std::map<Verdict, std::int64_t> ReportQueries::countVerdicts(const Filter& filter) {
  Conditions conditions;
  conditions.runs(filter);
  addMonths(conditions, filter, {"r.id"});
  std::map<Verdict, std::int64_t> counts;
  connection_->attempt([&](soci::session& session) {
    forEachRow<Verdict, Integer>(
        session,
        "SELECT r.verdict, count(*) FROM run r" + conditions.text() + " GROUP BY r.verdict",
        conditions, Rows::Whole, [&](Verdict verdict, Integer runs) { counts[verdict] = runs; });
  });
  return counts;
}

void ReportQueries::lastRuns(const Filter& filter, std::size_t most, const Each<RunLine>& each) {
  Conditions conditions;
  conditions.runs(filter);
  addMonths(conditions, filter, {"r.id"});
  connection_->attempt([&](soci::session& session) {
    forEachRow<Text, Integer, MaybeInteger, Text, Text, Text, MaybeText, MaybeText, MaybeText, Text,
               MaybeText, RunKind, Verdict, Integer>(
        session,
        std::string("SELECT ") + kRunColumns + kRunTables + conditions.text() +
            " ORDER BY r.started_us DESC, r.id DESC LIMIT " + std::to_string(most),
        conditions, Rows::Streamed,
        [&](auto&&... columns) { each(runLine(std::move(columns)...)); });
  });
}

void ReportQueries::runsByUnit(const Filter& filter, const Each<UnitRun>& each) {
  Conditions conditions;
  conditions.runs(filter);
  addMonths(conditions, filter, {"r.id"});
  const bool areWhole = keepsUnitsWhole(filter);
  FirstRuns firstRuns;
  connection_->attempt([&](soci::session& session) {
    forEachRow<Text, Integer, MaybeInteger, Text, Text, Text, MaybeText, MaybeText, MaybeText, Text,
               MaybeText, RunKind, Verdict, Integer, Integer, Integer>(
        session, unitRunsText(conditions.text(), areWhole, connection_->isServer()), conditions,
        Rows::Streamed, [&](auto&&... columns) {
          auto all = std::make_tuple(std::move(columns)...);
          [&]<std::size_t... I>(std::index_sequence<I...>) {
            UnitRun run{runLine(std::move(std::get<I>(all))...), std::get<14>(all) != 0,
                        std::get<15>(all) != 0};
            if (areWhole) run.isKnown = firstRuns.areBefore(run.run);
            each(run);
          }
          (std::make_index_sequence<14>{});
        });
  });
}

void ReportQueries::failures(const Filter& filter, const Each<FailureCount>& each) {
  const std::string tables =
      " FROM run r JOIN station st ON st.id = r.station_id "
      "JOIN measurement m ON m.run_id = r.id";
  connection_->attempt([&](soci::session& session) {
    Conditions first;
    addMonths(first, filter, {"m.run_id"});
    const std::string months = first.takeFirst();
    first.runs(filter);
    addMonths(first, filter, {"r.id"});
    first.specs(filter);
    first.add("r.verdict = 'FAIL'");
    // A run may have failed by an error, without a record that did.
    forEachRow<MaybeText, Text, Text, Text, Integer>(
        session,
        "SELECT s.test, coalesce(s.sub_test, ''), st.name, r.site, count(*) FROM run r "
        "JOIN station st ON st.id = r.station_id "
        "LEFT JOIN measurement m ON m.run_id = r.id AND m.sequence = r.first_failure" +
            months + " LEFT JOIN spec s ON s.id = m.spec_id" + first.text() +
            " GROUP BY s.test, coalesce(s.sub_test, ''), st.name, r.site",
        first, Rows::Whole,
        [&](MaybeText test, Text subTest, Text station, Text site, Integer count) {
          each({std::move(test), std::move(subTest), std::move(station), std::move(site), count, 0,
                0});
        });
    Conditions all;
    all.runs(filter);
    addMonths(all, filter, {"r.id", "m.run_id"});
    all.specs(filter);
    all.add(kCounted);
    all.add("m.verdict = 'FAIL'");
    forEachRow<Text, Text, Text, Text, Integer, Integer>(
        session,
        "SELECT s.test, s.sub_test, st.name, r.site, sum(1 - m.superseded), sum(m.superseded)" +
            tables + " JOIN spec s ON s.id = m.spec_id" + all.text() +
            " GROUP BY s.test, s.sub_test, st.name, r.site",
        all, Rows::Whole,
        [&](Text test, Text subTest, Text station, Text site, Integer count, Integer superseded) {
          each({std::move(test), std::move(subTest), std::move(station), std::move(site), 0, count,
                superseded});
        });
  });
}

std::vector<Spec> ReportQueries::numericSpecs(const Filter& filter) {
  std::vector<Spec> specs;
  Conditions conditions;
  conditions.specs(filter);
  conditions.add("s.kind <> 'match'");
  connection_->attempt([&](soci::session& session) {
    std::vector<std::string> ids;
    forEachRow<Text>(session, "SELECT s.id FROM spec s" + conditions.text(), conditions,
                     Rows::Whole, [&](Text id) { ids.push_back(std::move(id)); });
    Select<Spec, std::string> select(session, "id = :id");
    for (const std::string& id : ids) {
      for (Spec& spec : select(id)) specs.push_back(std::move(spec));
    }
  });
  std::sort(specs.begin(), specs.end(), [](const Spec& a, const Spec& b) {
    const auto key = [](const Spec& spec) {
      return std::tuple(spec.bundle, spec.flow, placeOf(spec.number), spec.test, spec.subTest,
                        spec.id);
    };
    return key(a) < key(b);
  });
  return specs;
}

std::set<std::string> ReportQueries::measuredSpecs(const Filter& filter) {
  Conditions conditions;
  conditions.specs(filter);
  conditions.runs(filter);
  addMonths(conditions, filter, {"r.id", "m.run_id"});
  conditions.add(kCounted);
  conditions.add("m.superseded = 0");
  conditions.add(kIsNumber);
  std::set<std::string> ids;
  connection_->attempt([&](soci::session& session) {
    forEachRow<Text>(session,
                     "SELECT DISTINCT s.id FROM spec s JOIN measurement m ON m.spec_id = s.id "
                     "JOIN run r ON r.id = m.run_id" +
                         conditions.text(),
                     conditions, Rows::Whole, [&](Text id) { ids.insert(std::move(id)); });
  });
  return ids;
}

void ReportQueries::numbers(const Filter& filter, const Each<SpecNumber>& each) {
  Conditions conditions;
  conditions.specs(filter);
  conditions.runs(filter);
  addMonths(conditions, filter, {"r.id", "m.run_id"});
  conditions.add(kCounted);
  conditions.add("m.superseded = 0");
  conditions.add(kIsNumber);
  // A few sub-tests are found by their index. All of them are read run by run, as they lie in the
  // file: "CROSS JOIN" keeps SQLite to that order.
  const bool areFew = !filter.tests.empty() || !filter.subTests.empty();
  if (!areFew) conditions.add("m.run_id = r.id");
  const std::string tables = areFew ? "spec s JOIN measurement m ON m.spec_id = s.id "
                                      "JOIN run r ON r.id = m.run_id"
                                    : "run r CROSS JOIN measurement m";
  connection_->attempt([&](soci::session& session) {
    SpecNumber number;
    soci::indicator state = soci::i_ok;
    RowSource rows(session,
                   "SELECT m.spec_id, m.value FROM " + tables + conditions.text() +
                       " ORDER BY r.started_us, r.id, m.sequence",
                   conditions, Rows::Streamed, [&](soci::details::prepare_temp_type& preparing) {
                     preparing, soci::into(number.specId), soci::into(number.value, state);
                   });
    while (rows.next()) {
      if (state == soci::i_null) number.value = std::numeric_limits<double>::quiet_NaN();
      each(number);
    }
  });
}

void ReportQueries::values(const Filter& filter, const Each<MeasuredValue>& each) {
  Conditions conditions;
  conditions.specs(filter);
  conditions.runs(filter);
  addMonths(conditions, filter, {"r.id", "m.run_id"});
  conditions.add(kCounted);
  conditions.add("m.superseded = 0");
  conditions.add(kIsNumber);
  connection_->attempt([&](soci::session& session) {
    forEachRow<Integer, Integer, std::optional<double>, Text, Text, Text, Text, MaybeText, Text,
               MaybeText, Mark>(
        session,
        "SELECT r.started_us, m.sequence, m.value, r.id, r.serial, st.name, r.site, r.operator, "
        "m.spec_id, p.bundle_version, m.verdict FROM spec s "
        "JOIN measurement m ON m.spec_id = s.id "
        "JOIN run r ON r.id = m.run_id JOIN station st ON st.id = r.station_id "
        "JOIN plan p ON p.id = r.plan_id" +
            conditions.text() + " ORDER BY r.started_us, r.id, m.sequence",
        conditions, Rows::Streamed,
        [&](Integer started, Integer sequence, const std::optional<double>& value, Text runId,
            Text serial, Text station, Text site, MaybeText operatorName, Text specId,
            MaybeText version, Mark verdict) {
          each({started, sequence, numberOf(value), std::move(runId), std::move(serial),
                std::move(station), std::move(site), std::move(operatorName), std::move(specId),
                std::move(version), verdict});
        });
  });
}

void ReportQueries::instruments(const Filter& filter, const Each<UsedInstrument>& each) {
  Conditions conditions;
  conditions.runs(filter);
  addMonths(conditions, filter, {"r.id", "u.run_id"});
  connection_->attempt([&](soci::session& session) {
    forEachRow<Text, Text, Text, MaybeText, MaybeText>(
        session,
        "SELECT r.id, u.name, i.id, i.model, i.serial FROM run r "
        "JOIN run_instrument u ON u.run_id = r.id JOIN instrument i ON i.id = u.instrument_id" +
            conditions.text() + " ORDER BY r.started_us, r.id, u.name",
        conditions, Rows::Streamed,
        [&](Text runId, Text name, Text id, MaybeText model, MaybeText serial) {
          each({std::move(runId), std::move(name), std::move(id), std::move(model),
                std::move(serial)});
        });
  });
}

void ReportQueries::durations(const Filter& filter, const Each<Duration>& each) {
  connection_->attempt([&](soci::session& session) {
    Conditions runs;
    runs.runs(filter);
    addMonths(runs, filter, {"r.id"});
    runs.add("r.verdict = 'PASS'");
    runs.add("r.ended_us IS NOT NULL");
    forEachRow<Integer>(session, "SELECT r.ended_us - r.started_us FROM run r" + runs.text(), runs,
                        Rows::Streamed, [&](Integer duration) {
                          each({"", duration});
                        });
    Conditions tests;
    tests.runs(filter);
    addMonths(tests, filter, {"r.id", "x.run_id"});
    tests.add("r.verdict = 'PASS'");
    tests.add("x.ended_us IS NOT NULL");
    forEachRow<Text, Integer>(session,
                              "SELECT x.test, x.ended_us - x.started_us FROM run r "
                              "JOIN step x ON x.run_id = r.id" +
                                  tests.text(),
                              tests, Rows::Streamed, [&](Text test, Integer duration) {
                                each({std::move(test), duration});
                              });
  });
}

std::vector<std::string> ReportQueries::names(const std::string& what) {
  static const std::vector<std::pair<std::string, std::string>> all{
      {"part", "part FROM run"},     {"process", "process FROM run"},
      {"site", "site FROM run"},     {"operator", "operator FROM run"},
      {"serial", "serial FROM run"}, {"station", "name FROM station UNION SELECT id FROM station"},
      {"flow", "flow FROM plan"},    {"version", "bundle_version FROM plan"},
      {"test", "test FROM spec"},    {"sub_test", "sub_test FROM spec"}};
  const auto found =
      std::find_if(all.begin(), all.end(), [&](const auto& each) { return each.first == what; });
  std::vector<std::string> names;
  if (found == all.end()) return names;
  connection_->attempt([&](soci::session& session) {
    forEachRow<MaybeText>(session, "SELECT DISTINCT " + found->second + " ORDER BY 1", Conditions(),
                          Rows::Streamed, [&](MaybeText name) {
                            if (name) names.push_back(std::move(*name));
                          });
  });
  return names;
}

}  // namespace results
