#include "QLTBenchLoad.h"

#include <algorithm>
#include <utility>

#include <QLTErrorCodes.h>

#include "bench/Fail.h"
#include "bench/ScpiText.h"
#include "common/Format.h"

using quillon::bench::fail;
using quillon::bench::scpiArgument;
using quillon::internal::format;

namespace {

constexpr double kLongestAtTheEnd = 1;  // seconds that the end of an object waits for an answer

struct Operations {
  const char* mode;
  const char* level;
};

Operations operationsFor(QLTBenchLoad::Mode mode) {
  switch (mode) {
    case QLTBenchLoad::Mode::Current:
      return {"modeCurrent", "current"};
    case QLTBenchLoad::Mode::Voltage:
      return {"modeVoltage", "voltage"};
    case QLTBenchLoad::Mode::Resistance:
      return {"modeResistance", "resistance"};
    case QLTBenchLoad::Mode::Power:
      break;
  }
  return {"modePower", "power"};
}

}  // namespace

QLTBenchLoad::~QLTBenchLoad() {
  if (!wasSwitchedOn_ || scpi()->isLost()) return;
  scpi()->setTimeOutInSeconds(std::min(scpi()->settings().timeOutInSeconds, kLongestAtTheEnd));
  QLTBenchLoad::makeSafe();
}

std::shared_ptr<QLTBenchLoad> QLTBenchLoad::on(std::shared_ptr<QLTBenchScpi> scpi,
                                               QLTBenchDialect dialect, QLTError* error) {
  if (!scpi) return nullptr;
  std::shared_ptr<QLTBenchLoad> load(new QLTBenchLoad("load", std::move(scpi), std::move(dialect)));
  return load->begin(error) ? load : nullptr;
}

bool QLTBenchLoad::set(Mode mode, double level, QLTError* error) {
  const Operations operations = operationsFor(mode);
  return tell(operations.mode, {}, error) &&
         tell(operations.level, {{"value", scpiArgument(level)}}, error);
}

bool QLTBenchLoad::setInput(bool on, QLTError* error) {
  // Before the command, since one whose answer is lost may have been done.
  wasSwitchedOn_ = wasSwitchedOn_ || on;
  if (!tell(on ? "on" : "off", {}, error)) return false;
  const auto isNowOn = isOn(error);
  if (!isNowOn) return false;
  if (*isNowOn != on) {
    return fail(error, kQLTErrorScpiNotDone,
                format("the load %@ was switched %s, but says that it is %s", where(),
                       on ? "on" : "off", on ? "off" : "on"));
  }
  wasSwitchedOn_ = on;
  return true;
}

std::optional<bool> QLTBenchLoad::isOn(QLTError* error) { return boolean("on?", {}, error); }

std::optional<double> QLTBenchLoad::measureVoltage(QLTError* error) {
  return number("measureVoltage", {}, error);
}

std::optional<double> QLTBenchLoad::measureCurrent(QLTError* error) {
  return number("measureCurrent", {}, error);
}

std::optional<double> QLTBenchLoad::measurePower(QLTError* error) {
  return number("measurePower", {}, error);
}

void QLTBenchLoad::tellSafe() { tellUnasked("off", {}); }

bool QLTBenchLoad::makeSafe(QLTError* error) {
  QLTBenchLoad::tellSafe();  // before anything that the load may not answer
  return insist([this](QLTError* reason) { return setInput(false, reason); }, error);
}
