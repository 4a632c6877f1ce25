#pragma once

// Internal to statistics/.

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "statistics/GaugeStudy.h"

namespace statistics {

/// The readings of a study by part, appraiser and trial, whether complete or not.
struct GaugeReadings {
  explicit GaugeReadings(std::span<const Reading> readings);

  /// The trials of one part by one appraiser; those that are not finite are absent.
  const std::vector<std::optional<double>>& trialsOf(std::size_t part,
                                                     std::size_t appraiser) const {
    return cells_[part * appraisers.size() + appraiser];
  }
  /// As missingTrials().
  std::vector<MissingTrial> missing() const;
  /// Why these are no study, or nothing when they are one.
  std::string trouble() const;

  /// In the order of their first reading.
  std::vector<std::string> parts;
  std::vector<std::string> appraisers;
  /// The most that any part has by any appraiser.
  std::size_t trials = 0;

 private:
  std::vector<std::vector<std::optional<double>>> cells_;
};

}  // namespace statistics
