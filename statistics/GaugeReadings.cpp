#include "statistics/GaugeReadings.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace statistics {

namespace {

constexpr std::size_t kMostNamed = 8;

/// The position of a name in a list, which it joins when it is new.
class Positions {
 public:
  explicit Positions(std::vector<std::string>& names) : names_(names) {}

  std::size_t of(const std::string& name) {
    const auto [place, isNew] = positions_.try_emplace(name, names_.size());
    if (isNew) names_.push_back(name);
    return place->second;
  }

 private:
  std::vector<std::string>& names_;
  std::map<std::string, std::size_t> positions_;
};

std::string counted(std::size_t count, const std::string& what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string sentence(const MissingTrial& missing) {
  const std::string trial = "trial " + std::to_string(missing.trial);
  return "part " + missing.part + " by " + missing.appraiser +
         (missing.notFinite ? " has no finite value in " : " lacks ") + trial;
}

}  // namespace

GaugeReadings::GaugeReadings(std::span<const Reading> readings) {
  Positions partsByName(parts);
  Positions appraisersByName(appraisers);
  for (const Reading& reading : readings) {
    partsByName.of(reading.part);
    appraisersByName.of(reading.appraiser);
  }
  cells_.resize(parts.size() * appraisers.size());
  for (const Reading& reading : readings) {
    auto& cell = cells_[partsByName.of(reading.part) * appraisers.size() +
                        appraisersByName.of(reading.appraiser)];
    cell.push_back(std::isfinite(reading.value) ? std::optional(reading.value) : std::nullopt);
    trials = std::max(trials, cell.size());
  }
}

std::vector<MissingTrial> GaugeReadings::missing() const {
  std::vector<MissingTrial> missing;
  for (std::size_t part = 0; part < parts.size(); ++part) {
    for (std::size_t appraiser = 0; appraiser < appraisers.size(); ++appraiser) {
      const auto& cell = trialsOf(part, appraiser);
      for (std::size_t trial = 0; trial < trials; ++trial) {
        if (trial < cell.size() && cell[trial]) continue;
        missing.push_back({parts[part], appraisers[appraiser], static_cast<std::int64_t>(trial + 1),
                           trial < cell.size()});
      }
    }
  }
  return missing;
}

std::string GaugeReadings::trouble() const {
  if (std::min({parts.size(), appraisers.size(), trials}) < 2) {
    return "a study needs at least 2 parts, 2 appraisers and 2 trials; here are " +
           counted(parts.size(), "part") + ", " + counted(appraisers.size(), "appraiser") +
           " and " + counted(trials, "trial");
  }
  const std::vector<MissingTrial> lacking = missing();
  std::string text;
  for (std::size_t i = 0; i < std::min(lacking.size(), kMostNamed); ++i) {
    text += (i == 0 ? "not every part was measured equally often by every appraiser: " : "; ") +
            sentence(lacking[i]);
  }
  if (lacking.size() > kMostNamed) {
    text += "; and " + std::to_string(lacking.size() - kMostNamed) + " more";
  }
  return text;
}

std::vector<MissingTrial> missingTrials(std::span<const Reading> readings) {
  return GaugeReadings(readings).missing();
}

}  // namespace statistics
