#include <algorithm>
#include <cmath>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "reports/Figures.h"
#include "reports/Format.h"
#include "reports/Reports.h"
#include "reports/SubTest.h"
#include "statistics/ControlChart.h"

namespace reports {
namespace {

using results::MeasuredValue;
using statistics::IndividualsChart;
using statistics::Signal;

constexpr std::size_t kCharted = 1000;  // more points nobody tells apart

struct Change {
  std::size_t at = 0;  ///< the first value after it
  std::string what;
};

std::string limitsText(const results::Spec* spec) {
  if (spec == nullptr) return "none";
  const auto side = [](const std::optional<double>& limit) {
    return limit ? exactText(*limit) : std::string("none");
  };
  return side(spec->low) + " to " + side(spec->high);
}

/// What measured, of each run that tells it.
std::map<std::string, std::string> instrumentsOf(results::ReportQueries& queries,
                                                 const results::Filter& filter) {
  std::map<std::string, std::string> instruments;
  queries.instruments(filter, [&](const results::UsedInstrument& used) {
    std::string& text = instruments[used.runId];
    text += (text.empty() ? "" : ", ") + used.name + " " + used.model.value_or("") + " " +
            used.serial.value_or("(no serial number)") + " [" + used.id.substr(0, 8) + "]";
  });
  return instruments;
}

/// Where limits, plug-in or instruments were others than before.
class Changes {
 public:
  explicit Changes(const SubTest& subTest) {
    for (const results::Spec& spec : subTest.specs) specs_[spec.id] = &spec;
  }

  void look(std::size_t at, const MeasuredValue& value, const std::string& instruments) {
    const auto spec = specs_.find(value.specId);
    note(at, "limits", limits_, limitsText(spec == specs_.end() ? nullptr : spec->second));
    note(at, "plug-in", version_, value.version.value_or("(no version)"));
    // What measures differs from site to site; it changes when it does so at one of them.
    note(at, "instruments of " + value.station + " / " + value.site,
         instruments_[{value.station, value.site}],
         instruments.empty() ? "(none known)" : instruments);
  }

  const std::vector<Change>& changes() const { return changes_; }

 private:
  void note(std::size_t at, const std::string& what, std::optional<std::string>& before,
            const std::string& now) {
    if (before && *before != now) changes_.push_back({at, what + ": " + *before + " -> " + now});
    before = now;
  }

  std::map<std::string, const results::Spec*> specs_;
  std::optional<std::string> limits_;
  std::optional<std::string> version_;
  std::map<std::pair<std::string, std::string>, std::optional<std::string>> instruments_;
  std::vector<Change> changes_;
};

Table limitsTable(const IndividualsChart& chart, const std::string& unit) {
  Table table{"control_limits",
              "Control limits",
              {{"of", "Of"},
               {"n", "n", Kind::Count},
               {"lower", "Lower", Kind::Number, unit},
               {"centre", "Centre", Kind::Number, unit},
               {"upper", "Upper", Kind::Number, unit},
               {"deviation", "Deviation within", Kind::Number, unit}},
              {}};
  const auto add = [&](const char* name, const statistics::Computed<statistics::ChartLimits>& of,
                       std::int64_t n) {
    const auto field = [&](double statistics::ChartLimits::*member) {
      return of ? Cell(of.value().*member) : Cell::absent(of.reason());
    };
    table.rows.push_back({name, n, field(&statistics::ChartLimits::lower),
                          field(&statistics::ChartLimits::centre),
                          field(&statistics::ChartLimits::upper), cellOf(chart.deviation)});
  };
  add("values", chart.values, chart.n);
  add("moving ranges", chart.ranges, std::max<std::int64_t>(chart.n - 1, 0));
  return table;
}

std::vector<Column> placeColumns() {
  return {{"started", "Started", Kind::Time},
          {"serial", "Serial number"},
          {"station", "Station"},
          {"site", "Site"}};
}

std::vector<Cell> placeOf(const MeasuredValue& value) {
  return {value.startedUs, value.serial, value.station, value.site};
}

Cell numberCell(double value) {
  return std::isfinite(value) ? Cell(value) : Cell::absent("not finite");
}

Table signalsTable(const IndividualsChart& chart, const std::vector<MeasuredValue>& values,
                   const std::string& unit) {
  Table table{"signals", "Signals", placeColumns(), {}};
  table.columns.push_back({"value", "Value", Kind::Number, unit});
  table.columns.push_back({"rule", "What is unlikely"});
  std::vector<std::pair<std::size_t, std::string>> found;
  found.reserve(chart.signals.size() + chart.rangesAbove.size());
  for (const Signal& signal : chart.signals) {
    found.emplace_back(signal.at, std::string(statistics::words(signal.rule)));
  }
  for (const std::size_t at : chart.rangesAbove) {
    found.emplace_back(at, "distance to the value before it above the limit of the ranges");
  }
  std::sort(found.begin(), found.end());
  for (const auto& [at, rule] : found) {
    std::vector<Cell> row = placeOf(values.at(at));
    row.push_back(numberCell(values[at].value));
    row.emplace_back(rule);
    table.rows.push_back(std::move(row));
  }
  return table;
}

Table changesTable(const std::vector<Change>& changes, const std::vector<MeasuredValue>& values) {
  Table table{"changes", "Changes", placeColumns(), {}};
  table.columns.push_back({"change", "Change"});
  for (const Change& change : changes) {
    std::vector<Cell> row = placeOf(values.at(change.at));
    row.emplace_back(change.what);
    table.rows.push_back(std::move(row));
  }
  return table;
}

Table valuesTable(const std::vector<MeasuredValue>& values, const std::string& unit) {
  Table table{"values", "Values", placeColumns(), {}, true};
  table.columns.push_back({"value", "Value", Kind::Number, unit});
  table.columns.push_back({"verdict", "Verdict"});
  table.columns.push_back({"version", "Plug-in"});
  table.columns.push_back({"limits", "Limits"});
  table.columns.push_back({"run", "Run"});
  for (const MeasuredValue& value : values) {
    std::vector<Cell> row = placeOf(value);
    row.push_back(numberCell(value.value));
    row.emplace_back(text(value.verdict));
    row.emplace_back(value.version);
    row.emplace_back(value.specId);
    row.emplace_back(value.runId);
    table.rows.push_back(std::move(row));
  }
  return table;
}

/// "11-21 08:00"; the axis tells the year.
std::string shortTime(std::int64_t microseconds) { return localTime(microseconds).substr(5, 11); }

std::string daysOf(const std::vector<MeasuredValue>& values, std::size_t from) {
  const std::string first = localDay(values.at(from).startedUs);
  const std::string last = localDay(values.back().startedUs);
  return first == last ? first : first + " to " + last;
}

Series constant(const std::string& name, double y, std::size_t n) {
  return {name, Series::Limit, std::vector<std::optional<double>>(n, y)};
}

Chart valuesChart(const IndividualsChart& control, const std::vector<MeasuredValue>& values,
                  const std::vector<Change>& changes, const SubTest& subTest) {
  const std::size_t from = values.size() > kCharted ? values.size() - kCharted : 0;
  const std::size_t n = values.size() - from;
  Chart chart{"Run chart", daysOf(values, from), subTest.unit(), {}, {}, true};
  Series line{"Values", Series::Line, {}};
  Series signals{"Signals", Series::Marks, std::vector<std::optional<double>>(n)};
  Series marks{"Changes", Series::Changes, std::vector<std::optional<double>>(n)};
  std::map<std::string, const results::Spec*> specs;
  for (const results::Spec& spec : subTest.specs) specs[spec.id] = &spec;
  Series low{"Low limit", Series::Bound, std::vector<std::optional<double>>(n)};
  Series high{"High limit", Series::Bound, std::vector<std::optional<double>>(n)};
  for (std::size_t i = from; i < values.size(); ++i) {
    const MeasuredValue& value = values[i];
    chart.labels.push_back(shortTime(value.startedUs));
    line.y.push_back(std::isfinite(value.value) ? std::optional(value.value) : std::nullopt);
    const auto spec = specs.find(value.specId);
    if (spec == specs.end()) continue;
    low.y[i - from] = spec->second->low;
    high.y[i - from] = spec->second->high;
  }
  for (const Signal& signal : control.signals) {
    if (signal.at >= from) signals.y[signal.at - from] = values.at(signal.at).value;
  }
  for (const Change& change : changes) {
    if (change.at >= from && std::isfinite(values.at(change.at).value)) {
      marks.y[change.at - from] = values[change.at].value;
    }
  }
  const auto hasAny = [](const Series& series) {
    return std::any_of(series.y.begin(), series.y.end(),
                       [](const auto& y) { return y.has_value(); });
  };
  chart.series.push_back(std::move(line));
  if (control.values) {
    chart.series.push_back(constant("Control limits", control.values->lower, n));
    chart.series.push_back(constant("", control.values->upper, n));
    chart.series.push_back(constant("Centre", control.values->centre, n));
  }
  for (Series* const series : {&low, &high, &signals, &marks}) {
    if (hasAny(*series)) chart.series.push_back(std::move(*series));
  }
  return chart;
}

Chart rangesChart(const IndividualsChart& control, const std::vector<MeasuredValue>& values,
                  const std::string& unit) {
  const std::size_t from = values.size() > kCharted ? values.size() - kCharted : 0;
  Chart chart{"Moving ranges", daysOf(values, from), unit, {}, {}, true};
  Series line{"Distance to the value before", Series::Line, {}};
  std::optional<double> before;
  for (std::size_t i = 0; i < values.size(); ++i) {
    std::optional<double> range;
    if (std::isfinite(values[i].value)) {
      if (before) range = std::abs(values[i].value - *before);
      before = values[i].value;
    }
    if (i < from) continue;
    chart.labels.push_back(shortTime(values[i].startedUs));
    line.y.push_back(range);
  }
  const std::size_t n = chart.labels.size();
  chart.series.push_back(std::move(line));
  if (control.ranges) {
    chart.series.push_back(constant("Limit", control.ranges->upper, n));
    chart.series.push_back(constant("Centre", control.ranges->centre, n));
  }
  return chart;
}

}  // namespace

Report trendReport(results::ReportQueries& queries, const Request& request) {
  requireRuns(queries, request.filter);
  results::Filter filter = request.filter;
  const bool isDefault = filter.kinds.empty();
  if (isDefault) filter.kinds = {results::RunKind::Production};
  const SubTest subTest = requireSubTest(queries, filter);
  const std::map<std::string, std::string> instruments = instrumentsOf(queries, filter);
  std::vector<MeasuredValue> values;
  Changes changes(subTest);
  queries.values(filter, [&](const MeasuredValue& value) {
    const auto found = instruments.find(value.runId);
    changes.look(values.size(), value, found == instruments.end() ? "" : found->second);
    values.push_back(value);
    request.progress(static_cast<std::int64_t>(values.size()), 0);
  });
  std::vector<double> numbers;
  numbers.reserve(values.size());
  for (const MeasuredValue& value : values) numbers.push_back(value.value);
  const IndividualsChart control = statistics::individualsChart(numbers);

  Report report;
  report.name = "trend";
  report.title = "Trend of " + subTest.name();
  report.about = aboutOf(request);
  const std::string unit = subTest.unit();
  report.tables.push_back(limitsTable(control, unit));
  report.tables.push_back(signalsTable(control, values, unit));
  report.tables.push_back(changesTable(changes.changes(), values));
  report.tables.push_back(valuesTable(values, unit));
  const std::int64_t left = control.notNumbers + control.infinite;
  if (left > 0) {
    report.notes.push_back(counted(left, "value") + " left out: not finite.");
  }
  if (!changes.changes().empty()) {
    report.notes.emplace_back(
        "Something changed among these values: the control limits are those of all together.");
  }
  if (control.deviation && *control.deviation == 0) {
    report.notes.emplace_back("All values are the same: no rule is applied.");
  }
  if (values.size() > kCharted) {
    report.notes.push_back("Pictures of the last " + grouped(kCharted) + " of " +
                           counted(static_cast<std::int64_t>(values.size()), "value") +
                           "; --since and --until choose others.");
  }
  report.charts.push_back(valuesChart(control, values, changes.changes(), subTest));
  report.charts.push_back(rangesChart(control, values, unit));
  report.definitions = {
      isDefault
          ? "Counted are runs of the kind production that ended PASS or FAIL, without attempts "
            "that a later one replaced."
          : "Counted are the runs of the kinds in the filter that ended PASS or FAIL, without "
            "attempts that a later one replaced.",
      ("Control limits: the mean, and three deviations to both sides; the deviation is the mean "
       "moving range divided by 1.128. They tell what the process does, not what it should do."),
      ("Signals are the rules of Western Electric: one point beyond three deviations, two of "
       "three beyond two, four of five beyond one, eight in a row on one side of the centre.")};
  return report;
}

}  // namespace reports
