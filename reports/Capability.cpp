#include <algorithm>
#include <cmath>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#include "reports/Figures.h"
#include "reports/Format.h"
#include "reports/GaugeBand.h"
#include "reports/Reports.h"
#include "statistics/Capability.h"
#include "statistics/Histogram.h"
#include "statistics/Normality.h"
#include "statistics/Spread.h"
#include "statistics/Summary.h"

namespace reports {
namespace {

using results::Spec;
using results::SpecNumber;
using statistics::Index;

constexpr std::size_t kCharts = 12;  // a page with more nobody reads; --sub-test chooses
constexpr int kCurvePoints = 81;

using Numbers = std::unordered_map<std::string, std::vector<double>>;

/// The numbers of each sub-test with one set of limits, by its id, in the order of measuring.
Numbers numbersOf(results::ReportQueries& queries, const results::Filter& filter,
                  const std::vector<Spec>& specs, const Progress& progress) {
  Numbers numbers;
  for (const Spec& spec : specs) numbers[spec.id];
  std::int64_t done = 0;
  queries.numbers(filter, [&](const SpecNumber& number) {
    const auto found = numbers.find(number.specId);
    if (found != numbers.end()) found->second.push_back(number.value);
    if (++done % 1000 == 0) progress(done, 0);
  });
  return numbers;
}

void addIndex(std::vector<Cell>& row, const Index& index) {
  row.push_back(cellOf(index.value));
  addInterval(row, index.interval);
}

void addIndexColumns(std::vector<Column>& columns, const std::string& key,
                     const std::string& title) {
  columns.push_back({key, title, Kind::Index});
  columns.push_back({key + "_low", "from", Kind::Index, "", true});
  columns.push_back({key + "_high", "to", Kind::Index, "", true});
}

std::vector<Column> specColumns() {
  return {{"number", "Number"},         {"test", "Test"},
          {"sub_test", "Sub-test"},     {"unit", "Unit"},
          {"low", "Low", Kind::Number}, {"high", "High", Kind::Number}};
}

std::vector<Cell> specCells(const Spec& spec) {
  return {spec.number, spec.test, spec.subTest, spec.unit, spec.low, spec.high};
}

Table valuesTable() {
  Table table{"values", "What was measured", specColumns(), {}};
  const std::vector<Column> more{{"n", "n", Kind::Count},
                                 {"mean", "Mean", Kind::Number},
                                 {"deviation_overall", "Deviation", Kind::Rough},
                                 {"deviation_within", "within", Kind::Rough},
                                 {"minimum", "Minimum", Kind::Number},
                                 {"median", "Median", Kind::Number},
                                 {"maximum", "Maximum", Kind::Number},
                                 {"below", "Below", Kind::Count},
                                 {"above", "Above", Kind::Count},
                                 {"not_finite", "Not finite", Kind::Count},
                                 {"normality_p", "Normality p", Kind::Rough},
                                 {"spec", "Limits"}};
  table.columns.insert(table.columns.end(), more.begin(), more.end());
  return table;
}

Table indicesTable() {
  Table table{"indices", "Capability", specColumns(), {}};
  table.columns.push_back({"n", "n", Kind::Count});
  addIndexColumns(table.columns, "cp", "Cp");
  addIndexColumns(table.columns, "cpk", "Cpk");
  addIndexColumns(table.columns, "pp", "Pp");
  addIndexColumns(table.columns, "ppk", "Ppk");
  table.columns.push_back({"expected_ppm", "Expected ppm outside", Kind::Rough});
  table.columns.push_back({"warnings", "Warnings"});
  table.columns.push_back({"guard_band", "Guard band", Kind::Rough});
  return table;
}

/// The density of the normal distribution, as counts of a histogram.
Series normalCurve(const statistics::Summary& summary, double perCount, double from, double to) {
  Series curve{"Normal", Series::Line, {}};
  const double mean = *summary.mean;
  const double deviation = *summary.standardDeviation;
  const double height = perCount / (deviation * std::sqrt(2 * std::acos(-1.0)));
  for (int i = 0; i < kCurvePoints; ++i) {
    const double x = from + (to - from) * i / (kCurvePoints - 1);
    const double z = (x - mean) / deviation;
    curve.x.push_back(x);
    curve.y.emplace_back(height * std::exp(-z * z / 2));
  }
  return curve;
}

Series limitLine(const std::string& name, double x, double height) {
  return {name, Series::Bound, {0.0, height}, {x, x}};
}

std::optional<Chart> histogramChart(const Spec& spec, const statistics::SortedValues& sorted,
                                    const statistics::Summary& summary) {
  const auto histogram = statistics::histogram(sorted);
  if (!histogram || histogram->width <= 0) return std::nullopt;
  Chart chart{spec.test + " / " + spec.subTest, spec.unit.value_or(""), "Values", {}, {}};
  double edge = histogram->lower;
  Series bins{"Values", Series::Steps, {0.0}, {edge}};
  double highest = 0;
  for (const std::int64_t count : histogram->counts) {
    bins.x.push_back(edge);
    bins.y.emplace_back(static_cast<double>(count));
    highest = std::max(highest, static_cast<double>(count));
    edge += histogram->width;
  }
  bins.x.push_back(edge);
  bins.y.emplace_back(0.0);
  chart.series.push_back(std::move(bins));
  if (summary.standardDeviation && *summary.standardDeviation > 0) {
    const double reach = 4 * *summary.standardDeviation;
    chart.series.push_back(normalCurve(summary, histogram->width * static_cast<double>(summary.n),
                                       *summary.mean - reach, *summary.mean + reach));
  }
  if (spec.low) chart.series.push_back(limitLine("Low limit", *spec.low, highest));
  if (spec.high) chart.series.push_back(limitLine("High limit", *spec.high, highest));
  return chart;
}

std::string warningsOf(const statistics::Capability& capability) {
  std::string text;
  for (const statistics::Warning warning : capability.warnings) {
    text += (text.empty() ? "" : ", ") + std::string(statistics::words(warning));
  }
  return text;
}

class CapabilityTables {
 public:
  explicit CapabilityTables(std::map<std::string, Cell> bands) : bands_(std::move(bands)) {}

  /// The figures of a sub-test with one set of limits; false when it has no numbers.
  bool add(const Spec& spec, const std::vector<double>& values) {
    if (values.empty()) return false;
    const statistics::SortedValues sorted(values);
    const auto summary = statistics::summarize(sorted);
    const auto within = statistics::movingRangeSpread(values);
    const auto normality = statistics::andersonDarling(sorted, summary);
    const statistics::Limits limits{spec.low, spec.high};
    const auto capability = statistics::capability(summary, within, normality, limits, kConfidence);
    const auto outside = statistics::outside(sorted, limits);

    std::vector<Cell> row = specCells(spec);
    row.emplace_back(summary.n);
    row.push_back(cellOf(summary.mean));
    row.push_back(cellOf(summary.standardDeviation));
    row.push_back(within ? Cell(within->deviation) : Cell::absent(within.reason()));
    row.push_back(cellOf(summary.minimum));
    row.push_back(cellOf(summary.median));
    row.push_back(cellOf(summary.maximum));
    row.emplace_back(outside.below);
    row.emplace_back(outside.above);
    row.emplace_back(summary.notNumbers + summary.infinite);
    row.push_back(normality ? Cell(normality->p) : Cell::absent(normality.reason()));
    row.emplace_back(spec.id);
    values_.rows.push_back(std::move(row));

    row = specCells(spec);
    row.emplace_back(summary.n);
    addIndex(row, capability.within.both);
    addIndex(row, capability.within.nearest);
    addIndex(row, capability.overall.both);
    addIndex(row, capability.overall.nearest);
    row.push_back(cellOf(capability.overall.ppm.outside));
    row.emplace_back(warningsOf(capability));
    const auto band = bands_.find(spec.id);
    row.push_back(band == bands_.end() ? Cell() : band->second);
    indices_.rows.push_back(std::move(row));

    if (auto chart = histogramChart(spec, sorted, summary)) {
      if (charts_.size() < kCharts) {
        charts_.push_back(std::move(*chart));
      } else {
        hasMore_ = true;
      }
    }
    return true;
  }

  void addTo(Report& report) {
    if (hasMore_) {
      report.notes.push_back("Pictures of the first " + grouped(kCharts) +
                             " sub-tests; --sub-test chooses others.");
    }
    report.tables.push_back(std::move(indices_));
    report.tables.push_back(std::move(values_));
    report.charts = std::move(charts_);
  }

 private:
  std::map<std::string, Cell> bands_;  // by `Spec::id`
  Table values_ = valuesTable();
  Table indices_ = indicesTable();
  std::vector<Chart> charts_;
  bool hasMore_ = false;  // sub-tests than pictures
};

}  // namespace

Report capabilityReport(results::ReportQueries& queries, const Request& request) {
  requireRuns(queries, request.filter);
  results::Filter counted = request.filter;
  const bool isDefault = counted.kinds.empty();
  if (isDefault) counted.kinds = {results::RunKind::Production};
  const std::vector<Spec> specs = queries.numericSpecs(request.filter);
  CapabilityTables tables(guardBands(queries, request.filter, specs));
  std::map<std::tuple<std::string, std::string, std::string, std::string>, int> limits;
  const auto numbers = numbersOf(queries, counted, specs, request.progress);
  bool isAny = false;
  for (const Spec& spec : specs) {
    if (!tables.add(spec, numbers.at(spec.id))) continue;
    isAny = true;
    ++limits[{spec.bundle, spec.flow, spec.test, spec.subTest}];
  }
  if (!isAny) {
    throw NoReport(
        "no numbers were measured in the runs of the filter",
        isDefault ? "Only runs of the kind production count; --kind chooses others." : "");
  }

  Report report;
  report.name = "capability";
  report.title = "Capability";
  report.about = aboutOf(request);
  for (const auto& [name, count] : limits) {
    if (count == 1) continue;
    report.notes.push_back(std::get<2>(name) + " / " + std::get<3>(name) + " had " +
                           grouped(count) + " sets" +
                           " of limits: each has a line of its own, none is mixed.");
  }
  tables.addTo(report);
  report.definitions = {
      isDefault
          ? "Counted are runs of the kind production that ended PASS or FAIL; retests are left "
            "out (--kind retest adds them), and so are attempts that a later one replaced."
          : "Counted are the runs of the kinds in the filter that ended PASS or FAIL, without "
            "attempts that a later one replaced.",
      ("Deviation: the standard deviation of all values (overall). Within: the mean moving "
       "range of values one after the other, divided by 1.128."),
      ("Cp, Cpk: the tolerance, and the distance of the mean to the nearer limit, in deviations "
       "within. Pp, Ppk: the same in overall deviations. With one limit there is no Cp and no "
       "Pp."),
      "In brackets: the interval at 95 % confidence, true for values that are normal.",
      ("Normality p: the test of Anderson and Darling; below 0.05 the values are hardly normal, "
       "and indices and intervals say little."),
      ("Expected ppm: how many of a million would miss the limits if values were normal, by the "
       "overall deviation."),
      ("Guard band: how far to draw in each limit, so that a value within it is within the "
       "limit at 95 % probability, whatever the gauge errs; from the store's gauge study of the "
       "sub-test, where there is one.")};
  return report;
}

}  // namespace reports
