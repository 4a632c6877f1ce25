// The tests of the board's power input, measured with the bench multimeter. The flows find them by
// the same names as the board test's own, and so need no change.

#include <QLTAgilentConstants.h>
#include <QLTestMethod.h>

#include "BenchMeter.h"

namespace {

/// A test with one sub-test, a reading of the multimeter.
class MeterTest : public QLTestMethod {
 public:
  using QLTestMethod::QLTestMethod;

 protected:
  bool measureAndCompare(const std::string& function, const std::optional<QLTDictionary>& extras,
                         QLTError* error) {
    const auto meter = resource<BenchMeter>("meter", error);
    if (!meter) return false;  // the error tells which resources there are
    QLTError problem;
    const auto reading = meter->measure(function, &problem);
    if (!reading) {
      addRuntimeError(1, problem.description());
      return false;
    }
    return addResultAndCompare(1, *reading, extras) == kQLTestResultPass;
  }
};

/// Checks the supply voltage. Parameter "nominal": what it should be, for the log.
class PowerUpTest : public MeterTest {
 public:
  using MeterTest::MeterTest;

  bool run(std::int32_t, QLTError* error) override {
    QLTDictionary extras;
    if (const QLTValue* nominal = param("nominal")) extras.set("nominal", *nominal);
    return measureAndCompare(kQLTAgilentDCVoltage, extras, error);
  }
};

/// Checks what the idle board draws. Worth a retest: the first reading may show the inrush.
class IdleCurrentTest : public MeterTest {
 public:
  using MeterTest::MeterTest;

  bool run(std::int32_t, QLTError* error) override {
    return measureAndCompare(kQLTAgilentDCCurrent, std::nullopt, error);
  }
};

}  // namespace

QLT_CLASS(PowerUpTest);
QLT_CLASS(IdleCurrentTest);
