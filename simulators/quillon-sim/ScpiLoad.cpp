#include "ScpiLoad.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "Problem.h"

namespace sim {
namespace {

constexpr ScpiLimits kCurrent{0, 30, 0};
constexpr ScpiLimits kVoltage{0, 150, 150};
constexpr ScpiLimits kResistance{0.05, 10000, 10000};
constexpr ScpiLimits kPower{0, 300, 0};

}  // namespace

ScpiLoad::ScpiLoad(ReplyTable replies, std::string lineEnd, std::string identity)
    : ScpiDevice(std::move(replies), std::move(lineEnd), std::move(identity)) {
  addCommands();
  ScpiLoad::reset();
}

void ScpiLoad::setSource(double volts, double ohms) {
  if (!(ohms > 0)) throw Problem("a source needs a resistance above 0");
  sourceVolts_ = volts;
  sourceOhms_ = ohms;
}

void ScpiLoad::addCommands() {
  const auto setMode = [this](const Parameters& parameters) {
    const auto is = [&](std::string_view word) { return ScpiHeader(word).matches(parameters[0]); };
    if (is("CURRent")) {
      mode_ = Mode::Current;
    } else if (is("VOLTage")) {
      mode_ = Mode::Voltage;
    } else if (is("RESistance")) {
      mode_ = Mode::Resistance;
    } else if (is("POWer")) {
      mode_ = Mode::Power;
    } else {
      throw ScpiError{-224};
    }
    return std::nullopt;
  };
  const auto mode = [this] {
    constexpr const char* names[] = {"CURR", "VOLT", "RES", "POW"};
    return std::string(names[static_cast<int>(mode_)]);
  };
  for (const std::string header : {"[SOURce]:FUNCtion[:MODE]", "[SOURce]:MODE"}) {
    add(header, 1, 1, setMode);
    addQuery(header + '?', mode);
  }
  addLevel("[SOURce]:CURRent[:LEVel][:IMMediate][:AMPLitude]", &ScpiLoad::current_, kCurrent);
  addLevel("[SOURce]:VOLTage[:LEVel][:IMMediate][:AMPLitude]", &ScpiLoad::voltage_, kVoltage);
  addLevel("[SOURce]:RESistance[:LEVel][:IMMediate][:AMPLitude]", &ScpiLoad::resistance_,
           kResistance);
  addLevel("[SOURce]:POWer[:LEVel][:IMMediate][:AMPLitude]", &ScpiLoad::power_, kPower);

  for (const std::string header : {"INPut[:STATe]", "[SOURce]:INPut[:STATe]"}) {
    add(header, 1, 1, [this](const Parameters& parameters) {
      isOn_ = scpiSwitchIn(parameters.front());
      return std::nullopt;
    });
    addQuery(header + '?', [this] { return scpiSwitch(isOn_); });
  }
  addQuery("MEASure[:SCALar]:VOLTage[:DC]?", [this] { return scpiReal(volts()); });
  addQuery("MEASure[:SCALar]:CURRent[:DC]?", [this] { return scpiReal(amps()); });
  addQuery("MEASure[:SCALar]:POWer[:DC]?", [this] { return scpiReal(volts() * amps()); });
}

void ScpiLoad::addLevel(std::string_view pattern, double ScpiLoad::*target,
                        const ScpiLimits& limits) {
  add(pattern, 1, 1, [this, target, limits](const Parameters& parameters) {
    this->*target = scpiRealIn(parameters.front(), limits);
    return std::nullopt;
  });
  addQuery(std::string(pattern) + '?', [this, target] { return scpiReal(this->*target); });
}

void ScpiLoad::reset() {
  mode_ = Mode::Current;
  current_ = kCurrent.preset;
  voltage_ = kVoltage.preset;
  resistance_ = kResistance.preset;
  power_ = kPower.preset;
  isOn_ = false;
}

/// What flows; never more than the source can give.
double ScpiLoad::amps() const {
  if (!isOn_) return 0;
  const double most = std::min(sourceVolts_ / sourceOhms_, kCurrent.most);
  const double half = sourceVolts_ / (2 * sourceOhms_);
  double wanted = 0;
  switch (mode_) {
    case Mode::Current:
      wanted = current_;
      break;
    case Mode::Voltage:
      wanted = (sourceVolts_ - voltage_) / sourceOhms_;
      break;
    case Mode::Resistance:
      wanted = sourceVolts_ / (sourceOhms_ + resistance_);
      break;
    case Mode::Power:  // the smaller current of the two that give the power; the most there is
      wanted = half - std::sqrt(std::max(0.0, half * half - power_ / sourceOhms_));
      break;
  }
  return std::clamp(wanted, 0.0, most);
}

double ScpiLoad::volts() const { return sourceVolts_ - amps() * sourceOhms_; }

}  // namespace sim
