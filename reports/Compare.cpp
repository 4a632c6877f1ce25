#include <algorithm>
#include <array>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#include "reports/Figures.h"
#include "reports/Format.h"
#include "reports/Moment.h"
#include "reports/Reports.h"
#include "results/Clock.h"
#include "statistics/Comparison.h"
#include "statistics/Proportion.h"
#include "statistics/Summary.h"

namespace reports {
namespace {

using results::Filter;
using statistics::SortedValues;

using Sides = std::vector<std::pair<std::string, Filter>>;  // with their names

constexpr double kSignificant = 0.05;

/// "2026-11-01..2026-11-08": from one moment to before the other; either may be left out.
Filter periodOf(const std::string& text, Filter filter) {
  const std::size_t dots = text.find("..");
  const auto momentAt = [&](const std::string& part, std::optional<std::int64_t>& moment) {
    if (part.empty()) return;
    moment = momentOf(part, results::microsecondsNow());
    if (!moment) throw NoReport(part + " is no time", std::string("Write ") + kMoments + ".");
  };
  if (dots == std::string::npos || text.size() == 2) {
    throw NoReport(text + " is no period", "Write FROM..TO, such as 2026-11-01..2026-11-08.");
  }
  momentAt(text.substr(0, dots), filter.sinceUs);
  momentAt(text.substr(dots + 2), filter.untilUs);
  return filter;
}

Filter sideOf(const CompareOptions& options, const std::string& name, Filter filter) {
  if (!options.by) return periodOf(name, std::move(filter));
  switch (*options.by) {
    case By::Day:
      return periodOf(name, std::move(filter));
    case By::Station:
      filter.stations = {name};
      break;
    case By::Site:
      filter.sites = {name};
      break;
    case By::Part:
      filter.parts = {name};
      break;
    case By::Process:
      filter.processes = {name};
      break;
    case By::Flow:
      filter.flows = {name};
      break;
    case By::Operator:
      filter.operators = {name};
      break;
    case By::Version:
      filter.versions = {name};
      break;
  }
  return filter;
}

Table yieldOf(results::ReportQueries& queries, const Sides& sides) {
  Table table{"runs",
              "Runs",
              {{"side", "Side"},
               {"runs", "Runs", Kind::Count},
               {"passed", "Passed", Kind::Count},
               {"yield", "Report yield", Kind::Share},
               {"low", "from", Kind::Share, "", true},
               {"high", "to", Kind::Share, "", true}},
              {}};
  for (const auto& [name, filter] : sides) {
    std::int64_t runs = 0;
    std::int64_t passed = 0;
    queries.runsByUnit(filter, [&](const results::UnitRun& each) {
      const bool isPass = each.run.verdict == results::Verdict::Pass;
      if (isPass || each.run.verdict == results::Verdict::Fail) ++runs;
      if (isPass) ++passed;
    });
    const auto share = statistics::proportion(passed, runs, kConfidence);
    std::vector<Cell> row{name, runs, passed, cellOf(share.fraction)};
    addInterval(row, share.interval);
    table.rows.push_back(std::move(row));
  }
  return table;
}

/// Which of many probabilities are significant together (Holm): a chance finding among them is as
/// unlikely as one in a single test.
std::vector<bool> significant(const std::vector<std::optional<double>>& probabilities) {
  std::vector<std::size_t> order;
  for (std::size_t i = 0; i < probabilities.size(); ++i) {
    if (probabilities[i]) order.push_back(i);
  }
  std::sort(order.begin(), order.end(),
            [&](std::size_t a, std::size_t b) { return *probabilities[a] < *probabilities[b]; });
  std::vector<bool> found(probabilities.size());
  for (std::size_t rank = 0; rank < order.size(); ++rank) {
    if (*probabilities[order[rank]] > kSignificant / static_cast<double>(order.size() - rank)) {
      break;
    }
    found[order[rank]] = true;
  }
  return found;
}

struct Compared {
  results::Spec spec;  // one of those that it had
  std::vector<double> first;
  std::vector<double> second;
};

/// The numbers of both sides, by sub-test whatever its limits.
std::vector<Compared> numbersOf(results::ReportQueries& queries, const Sides& sides,
                                const Progress& progress) {
  std::vector<Compared> all;
  std::map<std::tuple<std::string, std::string, std::string, std::string>, std::size_t> places;
  const std::vector<results::Spec> specs = queries.numericSpecs(sides.front().second);
  std::unordered_map<std::string, std::size_t> bySpec;
  for (const results::Spec& spec : specs) {
    const auto [place, isNew] = places.emplace(
        std::tuple(spec.bundle, spec.test, spec.subTest, spec.unit.value_or("")), all.size());
    if (isNew) all.push_back({spec, {}, {}});
    bySpec[spec.id] = place->second;
  }
  std::int64_t done = 0;
  for (const bool isFirst : {true, false}) {
    queries.numbers(sides[isFirst ? 0 : 1].second, [&](const results::SpecNumber& number) {
      const auto found = bySpec.find(number.specId);
      if (found == bySpec.end()) return;
      Compared& compared = all[found->second];
      (isFirst ? compared.first : compared.second).push_back(number.value);
      if (++done % 1000 == 0) progress(done, 0);
    });
  }
  std::erase_if(all,
                [](const Compared& each) { return each.first.empty() && each.second.empty(); });
  return all;
}

Table valuesTable(const std::string& first, const std::string& second) {
  return {"values",
          "Values side by side",
          {{"test", "Test"},
           {"sub_test", "Sub-test"},
           {"unit", "Unit"},
           {"n_first", "n " + first, Kind::Count},
           {"n_second", "n " + second, Kind::Count},
           {"mean_first", "Mean " + first, Kind::Number},
           {"mean_second", "Mean " + second, Kind::Number},
           {"shift", "Shift", Kind::Rough},
           {"shift_low", "from", Kind::Rough, "", true},
           {"shift_high", "to", Kind::Rough, "", true},
           {"p_means", "p (means)", Kind::Rough},
           {"deviation_first", "Deviation " + first, Kind::Rough},
           {"deviation_second", "Deviation " + second, Kind::Rough},
           {"ratio", "Ratio", Kind::Index},
           {"p_spreads", "p (spreads)", Kind::Rough},
           {"p_ranks", "p (ranks)", Kind::Rough},
           {"differs", "Differs"}},
          {}};
}

Table compareValues(const std::vector<Compared>& all, const Sides& sides) {
  Table table = valuesTable(sides[0].first, sides[1].first);
  std::vector<std::optional<double>> probabilities;  // of means and spreads in turn
  for (const Compared& compared : all) {
    const SortedValues first(compared.first);
    const SortedValues second(compared.second);
    const auto comparison = statistics::compare(first, second, kConfidence);
    const auto summary1 = statistics::summarize(first);
    const auto summary2 = statistics::summarize(second);
    const auto p = [](const statistics::Computed<statistics::Significance>& test) {
      return test ? Cell(test->p) : Cell::absent(test.reason());
    };
    std::vector<Cell> row{
        compared.spec.test, compared.spec.subTest, compared.spec.unit,    first.n(),
        second.n(),         cellOf(summary1.mean), cellOf(summary2.mean), cellOf(comparison.shift)};
    addInterval(row, comparison.shiftInterval);
    row.push_back(p(comparison.means));
    row.push_back(cellOf(summary1.standardDeviation));
    row.push_back(cellOf(summary2.standardDeviation));
    row.push_back(cellOf(comparison.spreadRatio));
    row.push_back(p(comparison.spreads));
    row.push_back(p(comparison.ranks));
    table.rows.push_back(std::move(row));
    probabilities.push_back(comparison.means ? std::optional(comparison.means->p) : std::nullopt);
    probabilities.push_back(comparison.spreads ? std::optional(comparison.spreads->p)
                                               : std::nullopt);
  }
  const std::vector<bool> found = significant(probabilities);
  for (std::size_t i = 0; i < table.rows.size(); ++i) {
    const bool mean = found[2 * i];
    const bool spread = found[2 * i + 1];
    const bool isTested = probabilities[2 * i] || probabilities[2 * i + 1];
    table.rows[i].push_back(mean && spread ? Cell("mean and spread")
                            : mean         ? Cell("mean")
                            : spread       ? Cell("spread")
                            : isTested     ? Cell("no")
                                           : Cell::absent("too few values, or all the same"));
  }
  return table;
}

Table timesTable(results::ReportQueries& queries, const Sides& sides) {
  Table table{"times",
              "Where the time goes",
              {{"side", "Side"},
               {"test", "Test"},
               {"n", "n", Kind::Count},
               {"p50", "Median", Kind::Seconds, "s"},
               {"p90", "90 % within", Kind::Seconds, "s"},
               {"p99", "99 % within", Kind::Seconds, "s"},
               {"longest", "Longest", Kind::Seconds, "s"},
               {"share", "Of all test time", Kind::Share}},
              {}};
  for (const auto& [name, filter] : sides) {
    std::map<std::string, std::vector<double>> durations;
    std::map<std::string, double> sums;
    double all = 0;
    queries.durations(filter, [&](const results::Duration& duration) {
      const double seconds = static_cast<double>(duration.microseconds) / 1e6;
      durations[duration.test].push_back(seconds);
      sums[duration.test] += seconds;
      if (!duration.test.empty()) all += seconds;
    });
    std::vector<std::string> tests;
    tests.reserve(durations.size());
    for (const auto& [test, times] : durations) tests.push_back(test);
    std::sort(tests.begin(), tests.end(), [&](const std::string& a, const std::string& b) {
      return std::tuple(!a.empty(), -sums[a], a) < std::tuple(!b.empty(), -sums[b], b);
    });
    for (const std::string& test : tests) {
      const SortedValues sorted(durations[test]);
      table.rows.push_back(
          {name, test.empty() ? "(whole device)" : test, sorted.n(),
           cellOf(statistics::percentile(sorted, 50)), cellOf(statistics::percentile(sorted, 90)),
           cellOf(statistics::percentile(sorted, 99)), cellOf(statistics::percentile(sorted, 100)),
           test.empty() || all <= 0 ? Cell() : Cell(sums[test] / all)});
    }
  }
  return table;
}

Chart timesChart(const Table& times, const std::string& side) {
  Chart chart{"Test times, " + side, "", "s", {}, {}};
  Series median{"Median", Series::Bars, {}};
  Series slow{"90 % within", Series::Bars, {}};
  for (const auto& row : times.rows) {
    if (*row.at(0).text() != side || row.at(7).isAbsent()) continue;
    chart.labels.push_back(*row.at(1).text());
    median.y.push_back(numberOf(row.at(3)));
    slow.y.push_back(numberOf(row.at(4)));
  }
  chart.series = {std::move(median), std::move(slow)};
  return chart;
}

}  // namespace

Report compareReport(results::ReportQueries& queries, const Request& request,
                     const CompareOptions& options) {
  requireRuns(queries, request.filter);
  Filter counted = request.filter;
  if (counted.kinds.empty()) {
    counted.kinds = {results::RunKind::Production, results::RunKind::Retest};
  }
  Sides sides;
  sides.reserve(2);
  for (const std::string& name : options.sides) {
    sides.emplace_back(name, sideOf(options, name, counted));
    requireRuns(queries, sides.back().second);
  }
  if (sides.empty()) sides.emplace_back("all runs", counted);

  Report report;
  report.name = "compare";
  report.title = "Test times";
  report.about = aboutOf(request);
  if (sides.size() == 2) {
    report.title = sides[0].first + " and " + sides[1].first;
    report.about.emplace_back("Compared by", options.by ? wordOf(*options.by) : "period");
    const auto all = numbersOf(queries, sides, request.progress);
    report.tables.push_back(compareValues(all, sides));
    if (all.empty()) report.notes.emplace_back("No numbers were measured on either side.");
    report.tables.push_back(yieldOf(queries, sides));
  }
  Table times = timesTable(queries, sides);
  for (const auto& [name, filter] : sides) {
    Chart chart = timesChart(times, name);
    if (!chart.labels.empty()) report.charts.push_back(std::move(chart));
  }
  report.tables.push_back(std::move(times));
  report.definitions = {
      request.filter.kinds.empty()
          ? "Counted are the runs of the kinds production and retest that ended PASS or FAIL, "
            "without attempts that a later one replaced."
          : "Counted are the runs of the kinds in the filter that ended PASS or FAIL, without "
            "attempts that a later one replaced."};
  if (sides.size() == 2) {
    report.definitions.emplace_back(
        "Shift: the mean of the second side less that of the first, with its interval at 95 % "
        "confidence. p (means): Welch's t. Ratio: the deviation of the second side over that "
        "of the first. p (spreads): Brown and Forsythe. p (ranks): Mann and Whitney, for "
        "values that are not normal.");
    report.definitions.emplace_back(
        "Differs: what is significant at 5 % after the correction of Holm for all means and "
        "spreads of the table together. No difference found is no proof that there is none: "
        "the interval of the shift tells how large it may be.");
  }
  report.definitions.emplace_back(
      "Times are those of runs that passed, and of all attempts at a test in them. Runs and "
      "times are those of whole devices, whatever sub-test is chosen.");
  return report;
}

}  // namespace reports
