#include "statistics/Histogram.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace statistics {

namespace {

double sturgesBins(std::int64_t n) {
  // 1 + log2(n), rounded up
  return 1 + static_cast<double>(std::bit_width(static_cast<std::uint64_t>(n - 1)));
}

/// How many bins Freedman and Diaconis' width asks for; 0 when the quartiles are the same.
double freedmanDiaconisBins(const SortedValues& sorted, double range) {
  const double quartiles = *percentile(sorted, 75) - *percentile(sorted, 25);
  const double width = 2 * quartiles / std::cbrt(static_cast<double>(sorted.n()));
  return width > 0 ? std::ceil(range / width) : 0;
}

}  // namespace

Computed<Histogram> histogram(const SortedValues& sorted, BinRule rule, std::size_t mostBins) {
  if (sorted.n() == 0) return Computed<Histogram>::absent("no values");
  const std::span<const double> values = sorted.values();
  Histogram histogram{.lower = values.front(), .width = 0, .counts = {sorted.n()}, .rule = rule};
  const double range = values.back() - values.front();
  if (!std::isfinite(range)) return Computed<Histogram>::absent("beyond the range of numbers");
  if (range == 0) return histogram;

  double bins = rule == BinRule::FreedmanDiaconis ? freedmanDiaconisBins(sorted, range) : 0;
  if (bins == 0) {
    histogram.rule = BinRule::Sturges;
    bins = sturgesBins(sorted.n());
  }
  const double most = static_cast<double>(std::max<std::size_t>(mostBins, 1));
  const auto count = static_cast<std::size_t>(std::clamp(bins, 1.0, most));
  histogram.width = range / static_cast<double>(count);
  histogram.counts.clear();
  auto begin = values.begin();
  for (std::size_t bin = 1; bin <= count; ++bin) {
    const double edge = histogram.lower + histogram.width * static_cast<double>(bin);
    const auto end = bin == count ? values.end() : std::lower_bound(begin, values.end(), edge);
    histogram.counts.push_back(end - begin);
    begin = end;
  }
  return histogram;
}

}  // namespace statistics
