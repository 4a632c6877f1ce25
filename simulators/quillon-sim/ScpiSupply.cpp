#include "ScpiSupply.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "Problem.h"

namespace sim {
namespace {

constexpr ScpiLimits kVolts{0, 30, 0};
constexpr ScpiLimits kAmps{0, 5, 5};
constexpr ScpiLimits kProtection{0, 33, 33};

}  // namespace

ScpiSupply::ScpiSupply(ReplyTable replies, std::string lineEnd, std::string identity,
                       std::size_t outputs)
    : ScpiDevice(std::move(replies), std::move(lineEnd), std::move(identity)), outputs_(outputs) {
  takeSuffixes();
  addCommands();
  ScpiSupply::reset();
}

void ScpiSupply::setResistance(std::size_t output, double ohms) {
  if (output < 1 || output > outputs_.size()) {
    throw Problem("the supply has no output " + std::to_string(output));
  }
  outputs_[output - 1].resistance = ohms;
}

void ScpiSupply::setStuck(std::size_t output) {
  if (output < 1 || output > outputs_.size()) {
    throw Problem("the supply has no output " + std::to_string(output));
  }
  outputs_[output - 1].isStuck = true;
}

void ScpiSupply::addCommands() {
  add("INSTrument:NSELect", 1, 1, [this](const Parameters& parameters) {
    selected_ = indexOf(static_cast<int>(std::lround(scpiRealIn(parameters.front()))));
    return std::nullopt;
  });
  addQuery("INSTrument:NSELect?", [this] { return std::to_string(selected_ + 1); });

  limitedSetting("[SOURce]:VOLTage[:LEVel][:IMMediate][:AMPLitude]", &Output::volts, kVolts);
  limitedSetting("[SOURce]:CURRent[:LEVel][:IMMediate][:AMPLitude]", &Output::amps, kAmps);
  limitedSetting("[SOURce]:VOLTage:PROTection[:LEVel]", &Output::voltProtection, kProtection);
  switchSetting("[SOURce]:VOLTage:PROTection:STATe", &Output::hasVoltProtection);
  switchSetting("[SOURce]:CURRent:PROTection:STATe", &Output::hasCurrentProtection);

  perOutput("OUTPut[:STATe]", [](Output& output, const std::string& value) {
    const bool isOn = scpiSwitchIn(value);
    if (isOn && (output.hasOverVoltage || output.hasOverCurrent)) throw ScpiError{-221};
    if (!output.isStuck) output.isOn = isOn;
  });
  perOutput("OUTPut[:STATe]?", [](const Output& output) { return scpiSwitch(output.isOn); });

  const auto query = [this](std::string_view pattern, const Question& answer) {
    perOutput(pattern, answer);
  };
  query("MEASure[:SCALar]:VOLTage[:DC]?",
        [](const Output& output) { return scpiReal(deliveredBy(output).volts); });
  query("MEASure[:SCALar]:CURRent[:DC]?",
        [](const Output& output) { return scpiReal(deliveredBy(output).amps); });
  query("[SOURce]:VOLTage:PROTection:TRIPped?",
        [](const Output& output) { return scpiSwitch(output.hasOverVoltage); });
  query("[SOURce]:CURRent:PROTection:TRIPped?",
        [](const Output& output) { return scpiSwitch(output.hasOverCurrent); });
  for (const char* clear : {"OUTPut:PROTection:CLEar", "[SOURce]:VOLTage:PROTection:CLEar",
                            "[SOURce]:CURRent:PROTection:CLEar"}) {
    add(clear, 0, 1, [this](const Parameters& parameters) {
      for (const std::size_t index : chosen(parameters, 0)) {
        outputs_[index].hasOverVoltage = outputs_[index].hasOverCurrent = false;
      }
      return std::nullopt;
    });
  }
}

void ScpiSupply::perOutput(std::string_view pattern, const Action& act) {
  add(pattern, 1, 2, [this, act](const Parameters& parameters) {
    for (const std::size_t index : chosen(parameters, 1)) {
      act(outputs_[index], parameters.front());
      protect(outputs_[index]);
    }
    return std::nullopt;
  });
}

void ScpiSupply::perOutput(std::string_view pattern, const Question& answer) {
  add(pattern, 0, 1, [this, answer](const Parameters& parameters) {
    std::string text;
    for (const std::size_t index : chosen(parameters, 0)) {
      text += (text.empty() ? "" : ",") + answer(outputs_[index]);
    }
    return text;
  });
}

void ScpiSupply::limitedSetting(std::string_view pattern, double Output::*target,
                                const ScpiLimits& limits) {
  perOutput(pattern, Action([target, limits](Output& output, const std::string& value) {
              output.*target = scpiRealIn(value, limits);
            }));
  perOutput(std::string(pattern) + '?',
            Question([target](const Output& output) { return scpiReal(output.*target); }));
}

void ScpiSupply::switchSetting(std::string_view pattern, bool Output::*target) {
  perOutput(pattern, Action([target](Output& output, const std::string& value) {
              output.*target = scpiSwitchIn(value);
            }));
  perOutput(std::string(pattern) + '?',
            Question([target](const Output& output) { return scpiSwitch(output.*target); }));
}

void ScpiSupply::reset() {
  selected_ = 0;
  for (Output& output : outputs_) {
    const bool isOn = output.isStuck && output.isOn;
    output = {.resistance = output.resistance, .isStuck = output.isStuck, .isOn = isOn};
    output.volts = kVolts.preset;
    output.amps = kAmps.preset;
    output.voltProtection = kProtection.preset;
  }
}

ScpiSupply::Delivered ScpiSupply::deliveredBy(const Output& output) {
  if (!output.isOn) return {0, 0, false};
  const double wanted = output.resistance > 0 ? output.volts / output.resistance : output.amps;
  if (wanted < output.amps) return {output.volts, wanted, false};
  const double volts = std::min(output.volts, output.amps * output.resistance);
  return {std::isfinite(volts) ? volts : output.volts, std::min(wanted, output.amps), true};
}

void ScpiSupply::protect(Output& output) {
  const Delivered delivered = deliveredBy(output);
  if (output.isOn && output.hasVoltProtection && output.volts > output.voltProtection) {
    output.hasOverVoltage = true;
  }
  if (output.isOn && output.hasCurrentProtection && delivered.isLimited) {
    output.hasOverCurrent = true;
  }
  if (output.hasOverVoltage || output.hasOverCurrent) output.isOn = false;
}

std::size_t ScpiSupply::indexOf(int channel) const {
  if (channel < 1 || static_cast<std::size_t>(channel) > outputs_.size()) throw ScpiError{-222};
  return static_cast<std::size_t>(channel) - 1;
}

/// The outputs that a command is for, whose list is the parameter `list` where it has one.
std::vector<std::size_t> ScpiSupply::chosen(const Parameters& parameters, std::size_t list) const {
  std::vector<std::size_t> indices;
  if (parameters.size() > list) {
    for (const int channel : scpiListIn(parameters[list])) indices.push_back(indexOf(channel));
  } else {
    indices.push_back(suffix() ? indexOf(*suffix()) : selected_);
  }
  return indices;
}

}  // namespace sim
