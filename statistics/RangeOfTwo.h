#pragma once

// Internal to statistics/.

#include <cmath>
#include <numbers>

namespace statistics {

// Of two normal values with the deviation 1: the mean of their distance, which is d2, and its
// variance, which is d3 squared.
inline const double kMeanOfTwo = 2 / std::sqrt(std::numbers::pi);
inline const double kVarianceOfTwo = 2 - 4 / std::numbers::pi;

}  // namespace statistics
