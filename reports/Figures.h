#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "reports/Report.h"
#include "statistics/Computed.h"

namespace reports {

/// The confidence of every interval.
inline constexpr double kConfidence = 0.95;

/// A figure, or its reason.
template <typename Value>
Cell cellOf(const statistics::Computed<Value>& figure) {
  return figure ? Cell(*figure) : Cell::absent(figure.reason());
}

/// Adds the two bounds, or the reason twice.
inline void addInterval(std::vector<Cell>& row,
                        const statistics::Computed<statistics::Interval>& interval) {
  row.push_back(interval ? Cell(interval->lower) : Cell::absent(interval.reason()));
  row.push_back(interval ? Cell(interval->upper) : Cell::absent(interval.reason()));
}

/// The number of a field that has one.
inline std::optional<double> numberOf(const Cell& cell) {
  if (cell.number() != nullptr) return *cell.number();
  if (cell.count() != nullptr) return static_cast<double>(*cell.count());
  return std::nullopt;
}

}  // namespace reports
