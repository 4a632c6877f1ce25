// The tests of a board: powered by a supply on the network, measured by a meter on the network,
// with a temperature sensor on Modbus beside it.

#include <QLTBenchMeter.h>
#include <QLTBenchSupply.h>
#include <QLTModbus.h>
#include <QLTValue.h>
#include <QLTestMethod.h>

namespace {

constexpr double kAmps = 1;  // more than the board ever draws

/// Switches the supply on, with the parameter "volts", and checks what the meter sees.
class SupplyTest : public QLTestMethod {
 public:
  using QLTestMethod::QLTestMethod;

  bool run(std::int32_t, QLTError* error) override {
    const auto supply = resource<QLTBenchSupply>("supply", error);
    const auto meter = resource<QLTBenchMeter>("meter", error);
    const QLTValue* const volts = param("volts");
    if (!supply || !meter || volts == nullptr) return false;
    if (!supply->set(volts->doubleValue(), kAmps, 1, error)) return false;
    if (!supply->setOutput(true, 1, error)) return false;
    const auto reading = meter->measure(QLTBenchMeter::Function::VoltageDC, error);
    if (!reading) return false;
    return addResultAndCompare(1, *reading) == kQLTestResultPass;
  }
};

/// Reads how warm the board is: tenths of a degree, in the sensor's input register 100.
class TemperatureTest : public QLTestMethod {
 public:
  using QLTestMethod::QLTestMethod;

  bool run(std::int32_t, QLTError* error) override {
    const auto sensor = resource<QLTModbus>("sensor", error);
    if (!sensor) return false;
    const auto degrees =
        sensor->inputNumber(100, {.type = QLTModbusNumber::Type::S16, .scale = 0.1}, error);
    if (!degrees) return false;
    return addResultAndCompare(1, *degrees) == kQLTestResultPass;
  }
};

}  // namespace

QLT_CLASS(SupplyTest);
QLT_CLASS(TemperatureTest);
