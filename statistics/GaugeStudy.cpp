#include "statistics/GaugeStudy.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>
#include <string>

#include "statistics/ControlConstants.h"
#include "statistics/Distributions.h"
#include "statistics/GaugeReadings.h"

namespace statistics {

namespace {

/// Means and ranges of a complete study. Values are distances from the first one, so that values
/// far from 0 keep their digits.
struct Table {
  explicit Table(const GaugeReadings& readings)
      : parts(readings.parts.size()),
        appraisers(readings.appraisers.size()),
        trials(readings.trials),
        first(*readings.trialsOf(0, 0).front()),
        partMeans(parts),
        appraiserMeans(appraisers) {
    for (std::size_t part = 0; part < parts; ++part) {
      for (std::size_t appraiser = 0; appraiser < appraisers; ++appraiser) {
        std::vector<double>& cell = cells.emplace_back();
        for (const auto& value : readings.trialsOf(part, appraiser)) cell.push_back(*value - first);
        const double sum = std::accumulate(cell.begin(), cell.end(), 0.0);
        const double mean = sum / static_cast<double>(trials);
        cellMeans.push_back(mean);
        partMeans[part] += mean / static_cast<double>(appraisers);
        appraiserMeans[appraiser] += mean / static_cast<double>(parts);
        grandMean += mean / static_cast<double>(parts * appraisers);
        const auto [low, high] = std::minmax_element(cell.begin(), cell.end());
        cellRanges.push_back(*high - *low);
      }
    }
  }

  std::size_t parts;
  std::size_t appraisers;
  std::size_t trials;
  double first;
  /// All appraisers of the first part, then of the next; so are the means and the ranges.
  std::vector<std::vector<double>> cells;
  std::vector<double> cellMeans;
  std::vector<double> cellRanges;
  std::vector<double> partMeans;
  std::vector<double> appraiserMeans;
  double grandMean = 0;
};

/// A share of the squares that only the rounding of means can have left.
constexpr double kRounding = 1e-24;

double square(double value) { return value * value; }

/// A sum of squares with its degrees of freedom.
struct Squares {
  double sum = 0;
  std::int64_t degrees = 0;
  double mean() const { return sum / static_cast<double>(degrees); }
  Squares operator+(const Squares& other) const {
    return {sum + other.sum, degrees + other.degrees};
  }
};

struct Analysis {
  explicit Analysis(const Table& table) {
    const auto p = static_cast<std::int64_t>(table.parts);
    const auto a = static_cast<std::int64_t>(table.appraisers);
    const auto r = static_cast<std::int64_t>(table.trials);
    for (const double mean : table.partMeans) {
      part.sum += static_cast<double>(a * r) * square(mean - table.grandMean);
    }
    for (const double mean : table.appraiserMeans) {
      appraiser.sum += static_cast<double>(p * r) * square(mean - table.grandMean);
    }
    for (std::size_t i = 0; i < table.cells.size(); ++i) {
      const double mean = table.cellMeans[i];
      interaction.sum += static_cast<double>(r) *
                         square(mean - table.partMeans[i / table.appraisers] -
                                table.appraiserMeans[i % table.appraisers] + table.grandMean);
      for (const double value : table.cells[i]) {
        repeatability.sum += square(value - mean);
        total.sum += square(value - table.grandMean);
      }
    }
    part.degrees = p - 1;
    appraiser.degrees = a - 1;
    interaction.degrees = (p - 1) * (a - 1);
    repeatability.degrees = p * a * (r - 1);
    total.degrees = p * a * r - 1;
    for (Squares* squares : {&part, &appraiser, &interaction, &repeatability}) {
      if (squares->sum < kRounding * total.sum) squares->sum = 0;
    }
  }

  Squares part;
  Squares appraiser;
  Squares interaction;
  Squares repeatability;
  Squares total;
};

AnovaRow row(const std::string& source, const Squares& squares) {
  const Figure untested = Figure::absent("not tested");
  return {source, squares.degrees, squares.sum, squares.mean(), untested, untested};
}

AnovaRow totalRow(const Squares& squares) {
  AnovaRow total = row("total", squares);
  total.meanSquare = Figure::absent("not computed of the total");
  return total;
}

AnovaRow testedRow(const std::string& source, const Squares& squares, const Squares& error) {
  AnovaRow tested = row(source, squares);
  if (!(error.mean() > 0)) {
    tested.f = tested.p = Figure::absent("there is no variation to test against");
    return tested;
  }
  tested.f = squares.mean() / error.mean();
  tested.p = tested.f
                 ? Figure(distributions::fAbove(*tested.f, static_cast<double>(squares.degrees),
                                                static_cast<double>(error.degrees)))
                 : Figure::absent(tested.f.reason());
  return tested;
}

std::string fixed(double value) {
  std::string text = std::to_string(std::round(value * 1000) / 1000);
  text.erase(text.size() - 3);
  return text;
}

/// The variance of a source, which the study notes when it is taken as 0.
double notBelowZero(GaugeStudy& study, const std::string& source, double variance) {
  if (!(variance < 0)) return variance;
  study.notes.push_back("The variance of the " + source + " came out below 0 and is taken as 0.");
  return 0;
}

void analyse(GaugeStudy& study, const Table& table, const GaugeOptions& options) {
  const Analysis analysis(table);
  const auto p = static_cast<double>(table.parts);
  const auto a = static_cast<double>(table.appraisers);
  const auto r = static_cast<double>(table.trials);
  study.anova = {testedRow("part", analysis.part, analysis.interaction),
                 testedRow("appraiser", analysis.appraiser, analysis.interaction),
                 testedRow("part x appraiser", analysis.interaction, analysis.repeatability),
                 row("repeatability", analysis.repeatability), totalRow(analysis.total)};
  const Figure& interactionP = study.anova[2].p;
  study.pooled = interactionP ? *interactionP > options.poolAbove : !(analysis.interaction.sum > 0);
  const Squares error =
      study.pooled ? analysis.repeatability + analysis.interaction : analysis.repeatability;
  const Squares& against = study.pooled ? error : analysis.interaction;
  if (study.pooled) {
    study.pooledAnova = {testedRow("part", analysis.part, error),
                         testedRow("appraiser", analysis.appraiser, error),
                         row("repeatability", error), totalRow(analysis.total)};
    study.notes.push_back(
        interactionP ? "The interaction of part and appraiser (p = " + fixed(*interactionP) +
                           ", above " + fixed(options.poolAbove) + ") counts as repeatability."
                     : "There is no interaction of part and appraiser.");
  }
  study.repeatability.variance = error.mean();
  study.interaction.variance =
      study.pooled ? 0 : notBelowZero(study, "interaction", (against.mean() - error.mean()) / r);
  study.appraiser.variance =
      notBelowZero(study, "appraisers", (analysis.appraiser.mean() - against.mean()) / (p * r));
  study.partToPart.variance =
      notBelowZero(study, "parts", (analysis.part.mean() - against.mean()) / (a * r));
}

double rangeOf(const std::vector<double>& values) {
  const auto [low, high] = std::minmax_element(values.begin(), values.end());
  return *high - *low;
}

/// Why it is not possible, or nothing.
std::string averageAndRange(GaugeStudy& study, const Table& table) {
  const auto ranges = static_cast<std::int64_t>(table.cells.size());
  const auto trials = static_cast<std::int64_t>(table.trials);
  // Of more than 15 ranges, d2 itself is in use.
  const Computed<ControlConstants> constants = controlConstants(trials);
  const Figure ofTrials = ranges <= 15 ? d2Star(trials, ranges)
                          : constants  ? Figure(constants->d2)
                                       : Figure::absent(constants.reason());
  const Figure ofAppraisers = d2Star(static_cast<std::int64_t>(table.appraisers), 1);
  const Figure ofParts = d2Star(static_cast<std::int64_t>(table.parts), 1);
  for (const Figure* figure : {&ofTrials, &ofAppraisers, &ofParts}) {
    if (!*figure) return figure->reason();
  }
  const double meanRange = std::accumulate(table.cellRanges.begin(), table.cellRanges.end(), 0.0) /
                           static_cast<double>(ranges);
  study.repeatability.variance = square(meanRange / *ofTrials);
  study.appraiser.variance = notBelowZero(
      study, "appraisers",
      square(rangeOf(table.appraiserMeans) / *ofAppraisers) -
          study.repeatability.variance / static_cast<double>(table.parts * table.trials));
  study.partToPart.variance = square(rangeOf(table.partMeans) / *ofParts);
  return {};
}

void complete(Component& component, const Component& total, const GaugeOptions& options) {
  component.deviation = std::sqrt(component.variance);
  component.studyVariation = 6 * component.deviation;
  if (total.variance > 0) {
    component.contribution = 100 * component.variance / total.variance;
    component.percentStudy = 100 * component.deviation / std::sqrt(total.variance);
  } else {
    component.contribution = component.percentStudy = Figure::absent("there is no variation");
  }
  if (!options.tolerance) {
    component.percentTolerance = Figure::absent("no tolerance");
  } else if (!(*options.tolerance > 0 && std::isfinite(*options.tolerance))) {
    component.percentTolerance = Figure::absent("the tolerance is not above 0");
  } else {
    component.percentTolerance = 100 * component.studyVariation / *options.tolerance;
  }
}

void completeAll(GaugeStudy& study, const GaugeOptions& options) {
  study.reproducibility.variance = study.appraiser.variance + study.interaction.variance;
  study.gauge.variance = study.repeatability.variance + study.reproducibility.variance;
  study.total.variance = study.gauge.variance + study.partToPart.variance;
  for (Component* component :
       {&study.gauge, &study.repeatability, &study.reproducibility, &study.appraiser,
        &study.interaction, &study.partToPart, &study.total}) {
    complete(*component, study.total, options);
  }
  const double ratio = std::numbers::sqrt2 * study.partToPart.deviation / study.gauge.deviation;
  constexpr double kMost = 1e15;  // beyond, a number is no count any more
  if (!(study.gauge.deviation > 0) || !(ratio < kMost)) {
    study.distinctCategories = Computed<std::int64_t>::absent("the gauge shows no variation");
  } else {
    study.distinctCategories = std::max<std::int64_t>(1, static_cast<std::int64_t>(ratio));
  }
}

}  // namespace

Computed<GaugeStudy> gaugeStudy(std::span<const Reading> readings, const GaugeOptions& options) {
  const GaugeReadings sorted(readings);
  if (std::string trouble = sorted.trouble(); !trouble.empty()) {
    return Computed<GaugeStudy>::absent(trouble);
  }
  const Table table(sorted);
  GaugeStudy study;
  study.method = options.method;
  study.parts = sorted.parts;
  study.appraisers = sorted.appraisers;
  study.trials = static_cast<std::int64_t>(sorted.trials);
  for (std::size_t i = 0; i < table.cells.size(); ++i) {
    study.cells.push_back({i / table.appraisers, i % table.appraisers,
                           table.first + table.cellMeans[i], table.cellRanges[i]});
  }
  if (options.method == GaugeMethod::Anova) {
    analyse(study, table, options);
  } else if (std::string trouble = averageAndRange(study, table); !trouble.empty()) {
    return Computed<GaugeStudy>::absent(trouble);
  }
  completeAll(study, options);
  return study;
}

Figure guardBand(double gaugeDeviation, double probability) {
  if (!(gaugeDeviation >= 0)) return Figure::absent("the deviation is below 0");
  if (!(probability > 0.5 && probability < 1)) {
    return Figure::absent("the probability is not between 0.5 and 1");
  }
  return distributions::normalQuantile(probability) * gaugeDeviation;
}

}  // namespace statistics
