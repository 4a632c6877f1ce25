#pragma once

// Internal to statistics/: the distributions, so that one source alone compiles their library.

namespace statistics::distributions {

/// The standard normal distribution: the probability below `z`, and above it.
double normalBelow(double z);
double normalAbove(double z);
/// The natural logarithm of the probability below `z`, however small that is.
double logNormalBelow(double z);
/// What a standard normal value is below with `probability`, which lies between 0 and 1.
double normalQuantile(double probability);
/// What a chi-square value is below with `probability`, which lies between 0 and 1.
double chiSquareQuantile(double probability, double degreesOfFreedom);
/// What Student's t is below with `probability`, which lies between 0 and 1.
double studentQuantile(double probability, double degreesOfFreedom);
/// The probability of a Student's t at least as far from 0.
double studentTwoSided(double t, double degreesOfFreedom);
/// The probability of an F at least as large; `f` is 0 or more.
double fAbove(double f, double numeratorDegrees, double denominatorDegrees);

/// Whether `probability` lies between 0 and 1, and is neither.
inline bool isBetween(double probability) { return probability > 0 && probability < 1; }

}  // namespace statistics::distributions
