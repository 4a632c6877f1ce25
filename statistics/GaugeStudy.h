#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "statistics/Computed.h"

namespace statistics {

/// One measurement of a gauge study. The readings of one part by one appraiser are its trials, in
/// the order given.
struct Reading {
  std::string part;
  std::string appraiser;
  double value = 0;
};

/// A trial that a study lacks.
struct MissingTrial {
  std::string part;
  std::string appraiser;
  /// From 1.
  std::int64_t trial = 0;
  /// Whether there is a reading that is no finite number.
  bool notFinite = false;
};

enum class GaugeMethod { Anova, AverageAndRange };

struct GaugeOptions {
  GaugeMethod method = GaugeMethod::Anova;
  /// Upper less lower limit, above 0; absent when there are not both.
  std::optional<double> tolerance;
  /// The interaction counts as repeatability when its p is above this.
  double poolAbove = 0.25;
};

/// One source of variation.
struct Component {
  double variance = 0;
  double deviation = 0;
  /// Six deviations.
  double studyVariation = 0;
  /// Of the total variance, in percent. Absent when there is no variation at all.
  Figure contribution;
  /// Of the total deviation, in percent; these do not add up to 100. Absent as `contribution`.
  Figure percentStudy;
  /// Six deviations, of the tolerance in percent. Absent without a tolerance.
  Figure percentTolerance;
};

/// One line of a table of the analysis of variance.
struct AnovaRow {
  std::string source;
  std::int64_t degreesOfFreedom = 0;
  double sumOfSquares = 0;
  /// Absent for the total, as F and p are for what is not tested.
  Figure meanSquare;
  Figure f;
  Figure p;
};

/// The trials of one part by one appraiser, both as positions in the lists of the study.
struct Cell {
  std::size_t part = 0;
  std::size_t appraiser = 0;
  double mean = 0;
  double range = 0;
};

struct GaugeStudy {
  GaugeMethod method = GaugeMethod::Anova;
  /// In the order of their first reading.
  std::vector<std::string> parts;
  std::vector<std::string> appraisers;
  std::int64_t trials = 0;
  /// All appraisers of the first part, then of the next.
  std::vector<Cell> cells;

  /// Repeatability and reproducibility together.
  Component gauge;
  Component repeatability;
  /// Appraiser and interaction together.
  Component reproducibility;
  Component appraiser;
  /// 0 when pooled, and by average and range, which does not know it.
  Component interaction;
  Component partToPart;
  Component total;
  /// How many classes of parts the gauge tells apart (ndc): the square root of 2 times the
  /// deviation of the parts over that of the gauge, without its fraction, at least 1. Absent when
  /// the gauge shows no variation.
  Computed<std::int64_t> distinctCategories;

  /// With the interaction; empty by average and range.
  std::vector<AnovaRow> anova;
  /// Without it, when it was pooled; else empty.
  std::vector<AnovaRow> pooledAnova;
  /// Whether the interaction counts as repeatability.
  bool pooled = false;
  /// Sentences on what was done to the figures: the pooling, and which component came out below 0
  /// and is taken as 0.
  std::vector<std::string> notes;
};

inline bool isFinite(const GaugeStudy& study) { return std::isfinite(study.total.variance); }

/// Evaluates a crossed study: every part by every appraiser equally often. Absent when it is none
/// or too small, and the reason says what is missing.
Computed<GaugeStudy> gaugeStudy(std::span<const Reading> readings,
                                const GaugeOptions& options = {});

/// All trials that readings lack to be a balanced study of as many trials as any part has by any
/// appraiser, in the order of parts, appraisers and trials.
std::vector<MissingTrial> missingTrials(std::span<const Reading> readings);

/// How far to draw in a limit, so that a value within it is truly within the limit at the given
/// probability (above 0.5, below 1), however the gauge errs: the normal quantile times the gauge's
/// deviation. In the unit of the deviation. Absent for deviations below 0.
Figure guardBand(double gaugeDeviation, double probability = 0.95);

}  // namespace statistics
