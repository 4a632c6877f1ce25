#include "statistics/Distributions.h"

#include <boost/math/distributions/chi_squared.hpp>
#include <boost/math/distributions/fisher_f.hpp>
#include <boost/math/distributions/normal.hpp>
#include <boost/math/distributions/students_t.hpp>
#include <cmath>
#include <numbers>

namespace statistics::distributions {

namespace {

// What is beyond the range of numbers becomes infinite or NaN, and so absent in the end, instead of
// thrown.
namespace policies = boost::math::policies;
using Policy = policies::policy<policies::domain_error<policies::errno_on_error>,
                                policies::pole_error<policies::errno_on_error>,
                                policies::overflow_error<policies::errno_on_error>,
                                policies::evaluation_error<policies::errno_on_error>>;
using Normal = boost::math::normal_distribution<double, Policy>;
using ChiSquare = boost::math::chi_squared_distribution<double, Policy>;
using Student = boost::math::students_t_distribution<double, Policy>;
using F = boost::math::fisher_f_distribution<double, Policy>;

}  // namespace

// The normality of a million values asks two million times: erfc() is several times as fast as the
// distribution's own function.
double normalBelow(double z) { return 0.5 * std::erfc(-z / std::numbers::sqrt2); }

double normalAbove(double z) { return normalBelow(-z); }

double logNormalBelow(double z) {
  if (z > 0) return std::log1p(-normalAbove(z));
  if (z > -30) return std::log(normalBelow(z));
  // Further out the probability itself is no number any more: its series.
  const double square = z * z;
  return -square / 2 - std::log(-z) - std::log(2 * std::numbers::pi) / 2 +
         std::log1p(-1 / square + 3 / (square * square));
}

double normalQuantile(double probability) { return quantile(Normal(), probability); }

double chiSquareQuantile(double probability, double degreesOfFreedom) {
  return quantile(ChiSquare(degreesOfFreedom), probability);
}

double studentQuantile(double probability, double degreesOfFreedom) {
  return quantile(Student(degreesOfFreedom), probability);
}

double studentTwoSided(double t, double degreesOfFreedom) {
  return 2 * cdf(complement(Student(degreesOfFreedom), std::abs(t)));
}

double fAbove(double f, double numeratorDegrees, double denominatorDegrees) {
  return cdf(complement(F(numeratorDegrees, denominatorDegrees), f));
}

}  // namespace statistics::distributions
