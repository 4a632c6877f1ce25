#include "QLTBenchMeter.h"

#include <string>
#include <utility>

#include "bench/ScpiText.h"

using quillon::bench::scpiArgument;

namespace {

constexpr double kSlowestMains = 50;     // Hz
constexpr double kReadingsOfAValue = 4;  // with autozero and a change of the range

std::string operationFor(QLTBenchMeter::Function function) {
  using Function = QLTBenchMeter::Function;
  switch (function) {
    case Function::VoltageDC:
      return "voltageDC";
    case Function::VoltageAC:
      return "voltageAC";
    case Function::CurrentDC:
      return "currentDC";
    case Function::CurrentAC:
      return "currentAC";
    case Function::Resistance:
      return "resistance";
    case Function::Resistance4:
      return "resistance4";
    case Function::Frequency:
      return "frequency";
    case Function::Period:
      return "period";
    case Function::Temperature:
      return "temperature";
    case Function::Continuity:
      return "continuity";
    case Function::Diode:
      break;
  }
  return "diode";
}

}  // namespace

std::shared_ptr<QLTBenchMeter> QLTBenchMeter::on(std::shared_ptr<QLTBenchScpi> scpi,
                                                 QLTBenchDialect dialect, QLTError* error) {
  if (!scpi) return nullptr;
  std::shared_ptr<QLTBenchMeter> meter(
      new QLTBenchMeter("meter", std::move(scpi), std::move(dialect)));
  return meter->begin(error) ? meter : nullptr;
}

std::optional<double> QLTBenchMeter::measure(Function function, QLTError* error) {
  return configure(function, {}, error) ? read(error) : std::nullopt;
}

std::optional<double> QLTBenchMeter::measure(Function function, double range, QLTError* error) {
  return configure(function, range, error) ? read(error) : std::nullopt;
}

bool QLTBenchMeter::configure(Function function, std::optional<double> range, QLTError* error) {
  const auto name = commandFor(operationFor(function), {}, error);
  if (!name) return false;
  const bool isDone =
      range ? tell("configureRange", {{"function", *name}, {"range", scpiArgument(*range)}}, error)
            : tell("configure", {{"function", *name}}, error);
  if (!isDone) return false;
  function_ = function;
  cycles_ = 0;
  readings_ = 1;
  return true;
}

bool QLTBenchMeter::setIntegration(double cycles, QLTError* error) {
  const auto name = commandFor(operationFor(function_), {}, error);
  if (!name) return false;
  const Values values{{"function", *name}, {"cycles", scpiArgument(cycles)}};
  if (!tell("integration", values, error)) return false;
  cycles_ = cycles;
  return true;
}

bool QLTBenchMeter::setTrigger(Trigger trigger, std::int32_t triggers, std::int32_t samples,
                               QLTError* error) {
  const char* const source = trigger == Trigger::Bus        ? "triggerBus"
                             : trigger == Trigger::External ? "triggerExternal"
                                                            : "triggerImmediate";
  if (!tell(source, {}, error) ||
      !tell("triggerCount", {{"count", std::to_string(triggers)}}, error) ||
      !tell("sampleCount", {{"count", std::to_string(samples)}}, error)) {
    return false;
  }
  readings_ = std::int64_t{triggers} * samples;
  return true;
}

/// The longest wait for them: what they take, beside the usual.
double QLTBenchMeter::secondsForReadings() const {
  const double each = kReadingsOfAValue * cycles_ / kSlowestMains;
  return scpi()->settings().timeOutInSeconds + each * static_cast<double>(readings_);
}

std::optional<double> QLTBenchMeter::read(QLTError* error) {
  return number("read", {}, error, secondsForReadings());
}

std::optional<std::vector<double>> QLTBenchMeter::readAll(QLTError* error) {
  return numbers("read", {}, error, secondsForReadings());
}

bool QLTBenchMeter::initiate(QLTError* error) { return tell("initiate", {}, error); }

bool QLTBenchMeter::trigger(QLTError* error) { return tell("trigger", {}, error); }

std::optional<std::vector<double>> QLTBenchMeter::fetch(QLTError* error) {
  return numbers("fetch", {}, error, secondsForReadings());
}

bool QLTBenchMeter::abort(QLTError* error) { return tell("abort", {}, error); }
