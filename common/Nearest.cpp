#include "Nearest.h"

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <utility>

#include "common/Text.h"

namespace quillon::internal {
namespace {

/// How many letters must be changed, entered or left out to make one text of the other.
std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), 0);
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t changed = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({changed, diagonal + 1, row[j] + 1});
    }
  }
  return row.back();
}

constexpr std::size_t kLongest = 100;  // beyond, nobody mistyped a name

}  // namespace

std::vector<std::string> nearestFirst(std::string_view name, std::vector<std::string> candidates) {
  const std::string wanted = lowerCase(name.substr(0, kLongest));
  std::vector<std::pair<std::size_t, std::string>> byDistance;
  for (std::string& candidate : candidates) {
    const std::size_t d = distance(wanted, lowerCase(candidate).substr(0, kLongest));
    byDistance.emplace_back(d, std::move(candidate));
  }
  std::stable_sort(byDistance.begin(), byDistance.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  std::transform(byDistance.begin(), byDistance.end(), candidates.begin(),
                 [](auto& near) { return std::move(near.second); });
  return candidates;
}

std::optional<std::string> nearestName(std::string_view name,
                                       const std::vector<std::string>& candidates) {
  if (name.size() > kLongest) return std::nullopt;
  const std::string* nearest = nullptr;
  std::size_t best = std::max<std::size_t>(2, name.size() / 3) + 1;
  for (const std::string& candidate : candidates) {
    if (candidate.size() > kLongest) continue;
    const std::size_t d = distance(lowerCase(name), lowerCase(candidate));
    if (d < best && d < candidate.size()) {
      best = d;
      nearest = &candidate;
    }
  }
  return nearest == nullptr ? std::nullopt : std::optional(*nearest);
}

}  // namespace quillon::internal
