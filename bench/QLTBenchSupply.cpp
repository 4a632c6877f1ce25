#include "QLTBenchSupply.h"

#include <algorithm>
#include <utility>

#include <QLTErrorCodes.h>

#include "bench/Fail.h"
#include "bench/ScpiText.h"
#include "common/Format.h"

using quillon::bench::fail;
using quillon::bench::failWith;
using quillon::bench::scpiArgument;
using quillon::internal::format;

namespace {

constexpr double kLongestAtTheEnd = 1;  // seconds that the end of an object waits for an answer

}  // namespace

QLTBenchSupply::QLTBenchSupply(std::shared_ptr<QLTBenchScpi> scpi, std::int32_t outputs,
                               QLTBenchDialect dialect)
    : QLTBenchInstrument("supply", std::move(scpi), std::move(dialect)), outputs_(outputs) {}

QLTBenchSupply::~QLTBenchSupply() {
  if (!wasSwitchedOn_ || staysOn_ || scpi()->isLost()) return;
  scpi()->setTimeOutInSeconds(std::min(scpi()->settings().timeOutInSeconds, kLongestAtTheEnd));
  QLTBenchSupply::makeSafe();
}

std::shared_ptr<QLTBenchSupply> QLTBenchSupply::on(std::shared_ptr<QLTBenchScpi> scpi,
                                                   std::int32_t outputs, QLTBenchDialect dialect,
                                                   QLTError* error) {
  if (!scpi || outputs < 1) return nullptr;
  std::shared_ptr<QLTBenchSupply> supply(
      new QLTBenchSupply(std::move(scpi), outputs, std::move(dialect)));
  return supply->begin(error) ? supply : nullptr;
}

// What a command is for: one of several outputs is chosen first, where the command does not name
// it.

bool QLTBenchSupply::select(std::int32_t output, QLTError* error) {
  if (output < 1 || output > outputs_) {
    return fail(error, kQLTErrorConfigWrong,
                format("%@ has the outputs 1 to %d, not %d", where(), outputs_, output));
  }
  if (!isSelected()) return true;
  return tell("select", {{"channel", std::to_string(output)}}, error);
}

bool QLTBenchSupply::tellOutput(const std::string& operation, std::int32_t output, QLTError* error,
                                std::optional<double> value) {
  Values values{{"channel", std::to_string(output)}};
  if (value) values.emplace_back("value", scpiArgument(*value));
  return select(output, error) && tell(operation, values, error);
}

std::optional<double> QLTBenchSupply::askOutput(const std::string& operation, std::int32_t output,
                                                QLTError* error) {
  if (!select(output, error)) return std::nullopt;
  return number(operation, {{"channel", std::to_string(output)}}, error);
}

std::optional<bool> QLTBenchSupply::askSwitch(const std::string& operation, std::int32_t output,
                                              QLTError* error) {
  if (!select(output, error)) return std::nullopt;
  return boolean(operation, {{"channel", std::to_string(output)}}, error);
}

bool QLTBenchSupply::set(double volts, double amps, std::int32_t output, QLTError* error) {
  return setCurrentLimit(amps, output, error) && setVoltage(volts, output, error);
}

bool QLTBenchSupply::setVoltage(double volts, std::int32_t output, QLTError* error) {
  return tellOutput("voltage", output, error, volts);
}

bool QLTBenchSupply::setCurrentLimit(double amps, std::int32_t output, QLTError* error) {
  return tellOutput("current", output, error, amps);
}

std::optional<double> QLTBenchSupply::voltage(std::int32_t output, QLTError* error) {
  return askOutput("voltage?", output, error);
}

std::optional<double> QLTBenchSupply::currentLimit(std::int32_t output, QLTError* error) {
  return askOutput("current?", output, error);
}

bool QLTBenchSupply::setOutput(bool on, std::int32_t output, QLTError* error) {
  // Before the command, since one whose answer is lost may have been done.
  wasSwitchedOn_ = wasSwitchedOn_ || on;
  if (!tellOutput(on ? "on" : "off", output, error)) return false;
  const auto isNowOn = isOn(output, error);
  if (!isNowOn) return false;
  if (*isNowOn == on) return true;
  return fail(error, kQLTErrorScpiNotDone,
              format("output %d of the supply %@ was switched %s, but says that it is %s", output,
                     where(), on ? "on" : "off", on ? "off" : "on"));
}

std::optional<bool> QLTBenchSupply::isOn(std::int32_t output, QLTError* error) {
  return askSwitch("on?", output, error);
}

std::optional<double> QLTBenchSupply::measureVoltage(std::int32_t output, QLTError* error) {
  return askOutput("measureVoltage", output, error);
}

std::optional<double> QLTBenchSupply::measureCurrent(std::int32_t output, QLTError* error) {
  return askOutput("measureCurrent", output, error);
}

bool QLTBenchSupply::setOverVoltage(std::optional<double> volts, std::int32_t output,
                                    QLTError* error) {
  if (!volts) return tellOutput("overVoltageOff", output, error);
  return tellOutput("overVoltage", output, error, volts) &&
         tellOutput("overVoltageOn", output, error);
}

bool QLTBenchSupply::setOverCurrent(bool on, std::int32_t output, QLTError* error) {
  return tellOutput(on ? "overCurrentOn" : "overCurrentOff", output, error);
}

std::optional<bool> QLTBenchSupply::hasTripped(std::int32_t output, QLTError* error) {
  const auto overVoltage = askSwitch("overVoltageTripped", output, error);
  if (!overVoltage || *overVoltage) return overVoltage;
  return askSwitch("overCurrentTripped", output, error);
}

bool QLTBenchSupply::clearProtection(std::int32_t output, QLTError* error) {
  return tellOutput("clearProtection", output, error);
}

void QLTBenchSupply::tellSafe() {
  for (std::int32_t output = 1; output <= outputs_; ++output) {
    const Values values{{"channel", std::to_string(output)}};
    if (!isSelected() || tellUnasked("select", values)) tellUnasked("off", values);
  }
}

bool QLTBenchSupply::makeSafe(QLTError* error) {
  // All of them before anything is asked: one that does not answer must not keep the others on.
  QLTBenchSupply::tellSafe();
  QLTError first;
  for (std::int32_t output = 1; output <= outputs_; ++output) {
    QLTError problem;
    const auto switchOff = [&](QLTError* reason) { return setOutput(false, output, reason); };
    if (!insist(switchOff, &problem) && !first) first = problem;
  }
  if (first) return failWith(error, first);
  wasSwitchedOn_ = false;
  return true;
}
