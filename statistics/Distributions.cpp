#include "statistics/Distributions.h"

#include <boost/math/distributions/chi_squared.hpp>
#include <boost/math/distributions/fisher_f.hpp>
#include <boost/math/distributions/normal.hpp>
#include <boost/math/distributions/students_t.hpp>
#include <cmath>
#include <numbers>

namespace statistics::distributions {

namespace {

// Results beyond the range of numbers become infinite, and so absent in the end, instead of thrown.
using Policy = boost::math::policies::policy<
    boost::math::policies::overflow_error<boost::math::policies::errno_on_error>,
    boost::math::policies::evaluation_error<boost::math::policies::errno_on_error>>;
using Normal = boost::math::normal_distribution<double, Policy>;
using ChiSquare = boost::math::chi_squared_distribution<double, Policy>;
using Student = boost::math::students_t_distribution<double, Policy>;
using F = boost::math::fisher_f_distribution<double, Policy>;

}  // namespace

// The normality of a million values asks two million times: erfc() is several times as fast as the
// distribution's own function.
double normalBelow(double z) { return 0.5 * std::erfc(-z / std::numbers::sqrt2); }

double normalAbove(double z) { return normalBelow(-z); }

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
