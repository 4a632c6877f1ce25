#pragma once

#include <QLTestMethod.h>

/// Asks the person at the station for the colour of the device's LED.
///
/// Sub-test 1: the colour that was chosen is the expected one. It stands in a header, so that
/// UnitTests.cpp can make one without a station.
class LedTest : public QLTestMethod {
 public:
  using QLTestMethod::QLTestMethod;

  bool run(std::int32_t index, QLTError* error) override;
};
