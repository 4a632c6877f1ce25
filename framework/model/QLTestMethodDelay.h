#pragma once

#include <QLTestMethod.h>

/// Waits for the seconds in the parameter "delayInSeconds" (fractions allowed; absent is 0), then
/// compares them with the limits of the first sub-test, which it needs.
class QLT_EXPORT QLTestMethodDelay : public QLTestMethod {
 public:
  using QLTestMethod::QLTestMethod;
  bool run(std::int32_t index, QLTError* error = nullptr) override;
};
