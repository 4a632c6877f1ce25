// Tests of the board's power input, with the bench supply.

#include <QLTestMethod.h>

#include "BenchSupply.h"

namespace {

/// Switches the board on and checks the supply voltage.
///
/// Sub-test 1: the voltage. Parameter "nominal": what it should be, for the log.
class PowerUpTest : public QLTestMethod {
 public:
  using QLTestMethod::QLTestMethod;

  bool run(std::int32_t, QLTError* error) override {
    const auto supply = resource<BenchSupply>("supply", error);
    if (!supply) return false;  // the error tells which resources there are
    supply->setOutput(true);
    QLTDictionary extras;
    if (const QLTValue* nominal = param("nominal")) extras.set("nominal", *nominal);
    return addResultAndCompare(1, supply->volts(), extras) == kQLTestResultPass;
  }
};

/// Checks what the idle board draws. Worth a retest: the first reading may show the inrush.
///
/// Sub-test 1: the current.
class IdleCurrentTest : public QLTestMethod {
 public:
  using QLTestMethod::QLTestMethod;

  bool run(std::int32_t, QLTError* error) override {
    const auto supply = resource<BenchSupply>("supply", error);
    if (!supply) return false;
    return addResultAndCompare(1, supply->amps()) == kQLTestResultPass;
  }
};

}  // namespace

QLT_CLASS(PowerUpTest);
QLT_CLASS(IdleCurrentTest);
