#include <algorithm>
#include <map>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "reports/Breakdown.h"
#include "reports/Format.h"
#include "reports/Reports.h"

namespace reports {
namespace {

using results::FailureCount;

constexpr const char* kNoRecord = "(no failed record)";
constexpr std::size_t kCharted = 20;  // more bars nobody reads

struct Counts {
  std::int64_t first = 0;
  std::int64_t all = 0;
  std::int64_t superseded = 0;

  void add(const FailureCount& failures) {
    first += failures.first;
    all += failures.all;
    superseded += failures.superseded;
  }
};

using Cause = std::pair<std::string, std::string>;  // test and sub-test
using Place = std::pair<std::string, std::string>;  // station and site

template <typename Key>
std::vector<std::pair<Key, Counts>> byFirst(const std::map<Key, Counts>& counts) {
  std::vector<std::pair<Key, Counts>> sorted(counts.begin(), counts.end());
  std::stable_sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) {
    return std::tuple(a.second.first, a.second.all) > std::tuple(b.second.first, b.second.all);
  });
  return sorted;
}

template <typename Key>
Counts totalOf(const std::map<Key, Counts>& counts) {
  Counts total;
  for (const auto& [key, each] : counts) {
    total.first += each.first;
    total.all += each.all;
  }
  return total;
}

Cell shareOf(std::int64_t part, std::int64_t whole, const char* what) {
  if (whole == 0) return Cell::absent(std::string("no ") + what);
  return static_cast<double>(part) / static_cast<double>(whole);
}

std::vector<Column> countColumns() {
  return {{"first_failures", "First failures", Kind::Count},
          {"share", "Share", Kind::Share},
          {"cumulative", "Cumulative", Kind::Share},
          {"all_failures", "All failures", Kind::Count},
          {"all_share", "Share of all", Kind::Share},
          {"superseded", "Repeated then", Kind::Count}};
}

/// A table of counts, the most first failures first; `fields` makes the first fields of a row.
template <typename Key, typename Fields>
Table tableOf(const std::string& key, const std::string& title, std::vector<Column> columns,
              const std::map<Key, Counts>& counts, Fields fields) {
  const std::vector<Column> more = countColumns();
  columns.insert(columns.end(), more.begin(), more.end());
  Table table{key, title, std::move(columns), {}};
  const Counts total = totalOf(counts);
  std::int64_t cumulative = 0;
  for (const auto& [each, count] : byFirst(counts)) {
    cumulative += count.first;
    std::vector<Cell> row = fields(each);
    row.emplace_back(count.first);
    row.push_back(shareOf(count.first, total.first, "run failed"));
    row.push_back(shareOf(cumulative, total.first, "run failed"));
    row.emplace_back(count.all);
    row.push_back(shareOf(count.all, total.all, "record failed"));
    row.emplace_back(count.superseded);
    table.rows.push_back(std::move(row));
  }
  return table;
}

Chart chartOf(const std::map<Cause, Counts>& causes) {
  Chart chart{"First failures by sub-test", "", "Runs", {}, {}};
  Series bars{"First failures", Series::Bars, {}};
  Series line{"Cumulative", Series::Line, {}, {}, true};
  const Counts total = totalOf(causes);
  std::int64_t cumulative = 0;
  for (const auto& [cause, count] : byFirst(causes)) {
    if (count.first == 0 || chart.labels.size() == kCharted) break;
    cumulative += count.first;
    chart.labels.push_back(cause.second.empty() ? cause.first : cause.second);
    bars.y.emplace_back(static_cast<double>(count.first));
    line.y.emplace_back(static_cast<double>(cumulative) / static_cast<double>(total.first));
  }
  chart.series = {std::move(bars), std::move(line)};
  return chart;
}

/// What is no failure, and in no table; "" when there is none of it.
std::string unendedText(results::ReportQueries& queries, const results::Filter& filter) {
  using results::Verdict;
  const auto counts = queries.countVerdicts(filter);
  std::string text;
  for (const auto& [verdict, name] : {std::pair(Verdict::BrokenOff, "broken off"),
                                      std::pair(Verdict::Incomplete, "incomplete")}) {
    const auto found = counts.find(verdict);
    if (found == counts.end()) continue;
    text += (text.empty() ? "" : ", ") + counted(found->second, "run") + " " + name;
  }
  return text.empty() ? text : "Not counted, being no failures: " + text + ".";
}

}  // namespace

Report paretoReport(results::ReportQueries& queries, const Request& request) {
  requireRuns(queries, request.filter);
  Request counted = request;
  const bool isDefault = request.filter.kinds.empty();
  if (isDefault) {
    counted.filter.kinds = {results::RunKind::Production, results::RunKind::Retest};
  }
  std::map<Cause, Counts> causes;
  std::map<Place, Counts> places;
  std::map<std::pair<Place, Cause>, Counts> both;
  queries.failures(counted.filter, [&](const FailureCount& failures) {
    const Cause cause{failures.test.value_or(kNoRecord), failures.subTest};
    const Place place{failures.station, failures.site};
    causes[cause].add(failures);
    places[place].add(failures);
    both[{place, cause}].add(failures);
  });

  Report report;
  report.name = "pareto";
  report.title = "What fails";
  report.about = aboutOf(request);
  const std::vector<Column> causeColumns{{"test", "Test"}, {"sub_test", "Sub-test"}};
  const std::vector<Column> placeColumns{{"station", "Station"}, {"site", "Site"}};
  report.tables.push_back(
      tableOf("by_sub_test", "By test and sub-test", causeColumns, causes, [](const Cause& cause) {
        return std::vector<Cell>{cause.first, cause.second};
      }));
  report.tables.push_back(
      tableOf("by_site", "By station and site", placeColumns, places, [](const Place& place) {
        return std::vector<Cell>{place.first, place.second};
      }));
  std::vector<Column> allColumns = placeColumns;
  allColumns.insert(allColumns.end(), causeColumns.begin(), causeColumns.end());
  report.tables.push_back(tableOf("by_site_and_sub_test", "By station, site and sub-test",
                                  allColumns, both, [](const std::pair<Place, Cause>& key) {
                                    return std::vector<Cell>{key.first.first, key.first.second,
                                                             key.second.first, key.second.second};
                                  }));
  if (causes.empty()) report.notes.emplace_back("Nothing failed in the runs of the filter.");
  if (std::string text = unendedText(queries, counted.filter); !text.empty()) {
    report.notes.push_back(std::move(text));
  }
  Chart chart = chartOf(causes);
  if (!chart.labels.empty()) report.charts.push_back(std::move(chart));
  report.definitions = {
      isDefault ? "Counted are the runs of the kinds production and retest that ended."
                : "Counted are the runs of the kinds in the filter that ended.",
      "First failures: runs that failed, each at the record that failed first; " +
          std::string(kNoRecord) + " where an error ended a test without one.",
      "All failures: failed records that count, several of a run where several failed.",
      "Repeated then: failed records that a later attempt in the same run replaced.",
      "Cumulative: the share of the first failures in this line and those above it."};
  return report;
}

}  // namespace reports
