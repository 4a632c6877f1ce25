#pragma once

#include <string>
#include <vector>

#include "statistics/GaugeStudy.h"

namespace test {

/// Readings from values by part, then appraiser, then trial; parts are "1", "2" ..., appraisers
/// "A", "B" ...
inline std::vector<statistics::Reading> readingsOf(int appraisers, int trials,
                                                   const std::vector<double>& values) {
  std::vector<statistics::Reading> readings;
  int i = 0;
  for (const double value : values) {
    const int part = i / (appraisers * trials) + 1;
    const char appraiser = static_cast<char>('A' + i / trials % appraisers);
    readings.push_back({std::to_string(part), std::string(1, appraiser), value});
    ++i;
  }
  return readings;
}

/// AIAG, "Measurement Systems Analysis Reference Manual", the gauge repeatability and
/// reproducibility data sheet: 10 parts, 3 appraisers, 3 trials.
inline std::vector<statistics::Reading> aiagStudy() {
  return readingsOf(3, 3, {0.29,  0.41,  0.64,  0.08,  0.25,  0.07,  0.04,  -0.11, -0.15,  //
                           -0.56, -0.68, -0.58, -0.47, -1.22, -0.68, -1.38, -1.13, -0.96,  //
                           1.34,  1.17,  1.27,  1.19,  0.94,  1.34,  0.88,  1.09,  0.67,   //
                           0.47,  0.50,  0.64,  0.01,  1.03,  0.20,  0.14,  0.20,  0.11,   //
                           -0.80, -0.92, -0.84, -0.56, -1.20, -1.28, -1.46, -1.07, -1.45,  //
                           0.02,  -0.11, -0.21, -0.20, 0.22,  0.06,  -0.29, -0.67, -0.49,  //
                           0.59,  0.75,  0.66,  0.47,  0.55,  0.83,  0.02,  0.01,  0.21,   //
                           -0.31, -0.20, -0.17, -0.63, 0.08,  -0.34, -0.46, -0.56, -0.49,  //
                           2.26,  1.99,  2.01,  1.80,  2.12,  2.19,  1.77,  1.45,  1.87,   //
                           -1.36, -1.25, -1.31, -1.68, -1.62, -1.50, -1.49, -1.77, -2.16});
}

/// D. C. Montgomery, "Introduction to Statistical Quality Control", the thermal impedance of a
/// power module: 10 parts, 3 inspectors, 3 tests.
inline std::vector<statistics::Reading> impedanceStudy() {
  return readingsOf(3, 3, {37, 38, 37, 41, 41, 40, 41, 42, 41,  //
                           42, 41, 43, 42, 42, 42, 43, 42, 43,  //
                           30, 31, 31, 31, 31, 31, 29, 30, 28,  //
                           42, 43, 42, 43, 43, 43, 42, 42, 42,  //
                           28, 30, 29, 29, 30, 29, 31, 29, 29,  //
                           42, 42, 43, 45, 45, 45, 44, 46, 45,  //
                           25, 26, 27, 28, 28, 30, 29, 27, 27,  //
                           40, 40, 40, 43, 42, 42, 43, 43, 41,  //
                           25, 25, 25, 27, 29, 28, 26, 26, 26,  //
                           35, 34, 34, 35, 35, 34, 35, 34, 35});
}

/// D. C. Montgomery, "Design and Analysis of Experiments", the measurement systems capability study
/// of the chapter on random factors: 20 parts, 3 operators, 2 measurements.
inline std::vector<statistics::Reading> capabilityStudy() {
  return readingsOf(
      3, 2, {21, 20, 20, 20, 19, 21, 24, 23, 24, 24, 23, 24, 20, 21, 19, 21, 20, 22, 27, 27,
             28, 26, 27, 28, 19, 18, 19, 18, 18, 21, 23, 21, 24, 21, 23, 22, 22, 21, 22, 24,
             22, 20, 19, 17, 18, 20, 19, 18, 24, 23, 25, 23, 24, 24, 25, 23, 26, 25, 24, 25,
             21, 20, 20, 20, 21, 20, 18, 19, 17, 19, 18, 19, 23, 25, 25, 25, 25, 25, 24, 24,
             23, 25, 24, 25, 29, 30, 30, 28, 31, 30, 26, 26, 25, 26, 25, 27, 20, 20, 19, 20,
             20, 20, 19, 21, 19, 19, 21, 23, 25, 26, 25, 24, 25, 25, 19, 19, 18, 17, 19, 17});
}

}  // namespace test
