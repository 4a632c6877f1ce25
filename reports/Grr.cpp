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
#include "reports/GaugeBand.h"
#include "reports/Reports.h"
#include "reports/SubTest.h"
#include "statistics/GaugeStudy.h"

namespace reports {
namespace {

using results::MeasuredValue;
using statistics::Component;
using statistics::GaugeMethod;
using statistics::GaugeStudy;
using statistics::Reading;

constexpr const char* kNobody = "(nobody)";

std::string appraiserOf(const MeasuredValue& value, By appraiser) {
  switch (appraiser) {
    case By::Station:
      return value.station;
    case By::Site:
      return value.station + " / " + value.site;
    default:
      return value.operatorName.value_or(kNobody);
  }
}

/// What a study says, or why there is none: the first trials that are missing, by name.
std::string missingOf(const std::vector<Reading>& readings, const std::string& appraiser) {
  constexpr std::size_t kMost = 10;
  const auto missing = statistics::missingTrials(readings);
  std::string text;
  for (std::size_t i = 0; i < missing.size() && i < kMost; ++i) {
    text += "  unit " + missing[i].part + ", " + appraiser + " " + missing[i].appraiser +
            ", trial " + std::to_string(missing[i].trial) +
            (missing[i].notFinite ? ": no finite number" : ": missing") + "\n";
  }
  if (missing.size() > kMost) {
    text += "  and " + std::to_string(missing.size() - kMost) + " more\n";
  }
  if (!text.empty()) text.pop_back();
  return text;
}

void addComponent(Table& table, const std::string& name, const Component& component) {
  const auto share = [](const statistics::Figure& percent) {
    return percent ? Cell(*percent / 100) : Cell::absent(percent.reason());
  };
  table.rows.push_back({name, component.variance, component.deviation, component.studyVariation,
                        share(component.contribution), share(component.percentStudy),
                        share(component.percentTolerance)});
}

Table componentsOf(const GaugeStudy& study) {
  Table table{"components",
              "Where the variation comes from",
              {{"source", "Source"},
               {"variance", "Variance", Kind::Number},
               {"deviation", "Deviation", Kind::Number},
               {"study_variation", "Study variation (6 deviations)", Kind::Number},
               {"contribution", "Contribution", Kind::Share},
               {"study_share", "Of study variation", Kind::Share},
               {"tolerance_share", "Of tolerance", Kind::Share}},
              {}};
  addComponent(table, "Gauge R&R", study.gauge);
  addComponent(table, "  Repeatability", study.repeatability);
  addComponent(table, "  Reproducibility", study.reproducibility);
  if (study.method == GaugeMethod::Anova) {
    addComponent(table, "    Appraiser", study.appraiser);
    addComponent(table, "    Appraiser by unit", study.interaction);
  }
  addComponent(table, "Unit to unit", study.partToPart);
  addComponent(table, "Total", study.total);
  return table;
}

Table anovaOf(const std::string& key, const std::string& title,
              const std::vector<statistics::AnovaRow>& rows) {
  Table table{key,
              title,
              {{"source", "Source"},
               {"df", "DF", Kind::Count},
               {"ss", "Sum of squares", Kind::Number},
               {"ms", "Mean square", Kind::Number},
               {"f", "F", Kind::Number},
               {"p", "p", Kind::Rough}},
              {}};
  const auto plain = [](const statistics::Figure& figure) {
    return figure ? Cell(*figure) : Cell();  // what is not tested needs no reason
  };
  for (const auto& row : rows) {
    table.rows.push_back({row.source, row.degreesOfFreedom, row.sumOfSquares, plain(row.meanSquare),
                          plain(row.f), plain(row.p)});
  }
  return table;
}

Table readingsOf(const std::vector<MeasuredValue>& values, By appraiser) {
  Table table{"readings",
              "Readings",
              {{"unit", "Unit"},
               {"appraiser", "Appraiser"},
               {"started", "Started", Kind::Time},
               {"value", "Value", Kind::Number},
               {"run", "Run"}},
              {},
              true};
  for (const MeasuredValue& value : values) {
    table.rows.push_back(
        {value.serial, appraiserOf(value, appraiser), value.startedUs,
         std::isfinite(value.value) ? Cell(value.value) : Cell::absent("no finite number"),
         value.runId});
  }
  return table;
}

Chart componentsChart(const GaugeStudy& study) {
  Chart chart{"Components of variation",
              "",
              "Share",
              {"Gauge R&R", "Repeatability", "Reproducibility", "Unit to unit"},
              {}};
  Series contribution{"Of variance", Series::Bars, {}, {}, true};
  Series variation{"Of study variation", Series::Bars, {}, {}, true};
  Series tolerance{"Of tolerance", Series::Bars, {}, {}, true};
  const auto share = [](const statistics::Figure& percent) {
    return percent ? std::optional(*percent / 100) : std::nullopt;
  };
  bool hasTolerance = false;
  for (const Component* const component :
       {&study.gauge, &study.repeatability, &study.reproducibility, &study.partToPart}) {
    contribution.y.push_back(share(component->contribution));
    variation.y.push_back(share(component->percentStudy));
    tolerance.y.push_back(share(component->percentTolerance));
    hasTolerance = hasTolerance || component->percentTolerance;
  }
  chart.series = {std::move(contribution), std::move(variation)};
  if (hasTolerance) chart.series.push_back(std::move(tolerance));
  return chart;
}

/// Means or ranges by unit, a line an appraiser.
Chart cellsChart(const GaugeStudy& study, const std::string& title, const std::string& unit,
                 double statistics::Cell::*figure) {
  Chart chart{title, "Unit", unit, study.parts, {}};
  for (std::size_t a = 0; a < study.appraisers.size(); ++a) {
    Series series{study.appraisers[a], Series::Line, {}};
    for (std::size_t p = 0; p < study.parts.size(); ++p) {
      series.y.emplace_back(study.cells.at(p * study.appraisers.size() + a).*figure);
    }
    chart.series.push_back(std::move(series));
  }
  return chart;
}

Chart readingsChart(const std::vector<MeasuredValue>& values, By appraiser,
                    const std::string& unit) {
  Chart chart{"All readings in the order of measuring", "Unit", unit, {}, {}};
  std::map<std::string, std::size_t> places;
  std::vector<MeasuredValue> sorted = values;
  std::stable_sort(sorted.begin(), sorted.end(),
                   [](const auto& a, const auto& b) { return a.serial < b.serial; });
  for (const MeasuredValue& value : sorted) {
    const std::string name = appraiserOf(value, appraiser);
    const auto [place, isNew] = places.emplace(name, chart.series.size());
    if (isNew) chart.series.push_back({name, Series::Points, {}});
    chart.labels.push_back(value.serial);
    for (std::size_t i = 0; i < chart.series.size(); ++i) {
      chart.series[i].y.resize(chart.labels.size());
    }
    chart.series[place->second].y.back() = value.value;
  }
  chart.title = "All readings by unit";
  return chart;
}

std::vector<Reading> readings(const std::vector<MeasuredValue>& values, By appraiser) {
  std::vector<Reading> readings;
  readings.reserve(values.size());
  for (const MeasuredValue& value : values) {
    readings.push_back({value.serial, appraiserOf(value, appraiser), value.value});
  }
  return readings;
}

std::optional<double> toleranceOf(const std::vector<results::Spec>& specs) {
  std::set<std::pair<double, double>> limits;
  for (const results::Spec& spec : specs) {
    if (!spec.low || !spec.high) return std::nullopt;
    limits.emplace(*spec.low, *spec.high);
  }
  if (limits.size() != 1 || limits.begin()->second <= limits.begin()->first) return std::nullopt;
  return limits.begin()->second - limits.begin()->first;
}

/// The specs that values name.
std::vector<results::Spec> usedOf(const std::vector<results::Spec>& specs,
                                  const std::vector<MeasuredValue>& values) {
  std::set<std::string> ids;
  for (const MeasuredValue& value : values) ids.insert(value.specId);
  std::vector<results::Spec> used;
  for (const results::Spec& spec : specs) {
    if (ids.contains(spec.id)) used.push_back(spec);
  }
  return used;
}

}  // namespace

Report grrReport(results::ReportQueries& queries, const Request& request,
                 const GrrOptions& options) {
  Request studied = request;
  if (studied.filter.kinds.empty()) studied.filter.kinds = {results::RunKind::Study};
  requireRuns(queries, request.filter);
  if (queries.countRuns(studied.filter) == 0) {
    throw NoReport("there are no runs of the kind study in the filter",
                   "A gauge study needs every unit tested several times by every " +
                       wordOf(options.appraiser) + ", as runs of the kind study.");
  }
  const SubTest subTest = requireSubTest(queries, studied.filter);
  std::vector<MeasuredValue> values;
  queries.values(studied.filter, [&](const MeasuredValue& value) { values.push_back(value); });
  const std::vector<Reading> all = readings(values, options.appraiser);
  const std::vector<results::Spec> specs = usedOf(subTest.specs, values);
  statistics::GaugeOptions gauge;
  gauge.method = options.averageAndRange ? GaugeMethod::AverageAndRange : GaugeMethod::Anova;
  gauge.tolerance = toleranceOf(specs);
  const auto study = statistics::gaugeStudy(all, gauge);
  if (!study) {
    throw NoReport("this is no gauge study: " + study.reason(),
                   missingOf(all, wordOf(options.appraiser)));
  }

  Report report;
  report.name = "grr";
  report.title = "Gauge R&R of " + subTest.name();
  report.about = aboutOf(studied);
  report.about.emplace_back("Method", options.averageAndRange
                                          ? "average and range"
                                          : "analysis of variance, crossed, random effects");
  report.about.emplace_back(
      "Study", counted(static_cast<std::int64_t>(study->parts.size()), "unit") + ", " +
                   counted(static_cast<std::int64_t>(study->appraisers.size()), "appraiser") +
                   " (" + wordOf(options.appraiser) + "), " + counted(study->trials, "trial"));
  report.tables.push_back(componentsOf(*study));
  Table summary{"summary",
                "What it is good for",
                {{"categories", "Distinct categories (ndc)", Kind::Count},
                 {"tolerance", "Tolerance", Kind::Number, subTest.unit()},
                 {"guard_band", "Guard band at 95 %", Kind::Rough, subTest.unit()}},
                {}};
  summary.rows.push_back({cellOf(study->distinctCategories),
                          gauge.tolerance ? Cell(*gauge.tolerance)
                                          : Cell::absent("the limits are not two, or not one pair"),
                          cellOf(statistics::guardBand(study->gauge.deviation))});
  report.tables.push_back(std::move(summary));
  if (!study->anova.empty()) {
    report.tables.push_back(anovaOf("anova", "Analysis of variance", study->anova));
  }
  if (!study->pooledAnova.empty()) {
    report.tables.push_back(anovaOf("anova_pooled", "Analysis of variance without the interaction",
                                    study->pooledAnova));
  }
  report.tables.push_back(readingsOf(values, options.appraiser));
  report.notes = study->notes;
  report.charts.push_back(componentsChart(*study));
  report.charts.push_back(
      cellsChart(*study, "Means by unit and appraiser", subTest.unit(), &statistics::Cell::mean));
  report.charts.push_back(
      cellsChart(*study, "Ranges by unit and appraiser", subTest.unit(), &statistics::Cell::range));
  report.charts.push_back(readingsChart(values, options.appraiser, subTest.unit()));
  report.definitions = {
      "Counted are the runs of the kind study that ended PASS or FAIL. A unit is a serial "
      "number, a trial one run; appraisers are told apart by " +
          wordOf(options.appraiser) + ".",
      ("Contribution: of the total variance. Of study variation, of tolerance: six deviations, "
       "of the total's six and of the limits' distance; these do not add up to 100 %."),
      ("Distinct categories: how many classes of units the gauge tells apart; fewer than 5 are "
       "too few."),
      ("Guard band: how far to draw in each limit, so that a value within it is within the "
       "limit at 95 % probability, whatever the gauge errs.")};
  return report;
}

std::map<std::string, Cell> guardBands(results::ReportQueries& queries, results::Filter filter,
                                       const std::vector<results::Spec>& specs) {
  std::map<std::string, Cell> bands;
  filter.kinds = {results::RunKind::Study};
  filter.sinceUs.reset();  // a study holds until the next one
  filter.untilUs.reset();
  if (queries.countRuns(filter) == 0) return bands;
  std::map<std::pair<std::string, std::string>, Cell> found;
  for (const results::Spec& spec : specs) {
    const std::pair key{spec.test, spec.subTest};
    if (!found.contains(key)) {
      filter.tests = {spec.test};
      filter.subTests = {spec.subTest};
      std::vector<MeasuredValue> values;
      queries.values(filter, [&](const MeasuredValue& value) { values.push_back(value); });
      const auto study = statistics::gaugeStudy(readings(values, By::Operator));
      found[key] = values.empty() ? Cell()
                   : study        ? cellOf(statistics::guardBand(study->gauge.deviation))
                                  : Cell::absent("the gauge study is none: " + study.reason());
    }
    bands[spec.id] = found[key];
  }
  return bands;
}

}  // namespace reports
