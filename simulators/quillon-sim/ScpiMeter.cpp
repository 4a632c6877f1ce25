#include "ScpiMeter.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "Problem.h"

namespace sim {
namespace {

constexpr double kOverload = 9.9e37;
constexpr double kOverRange = 1.2;  // a range reaches so far beyond its name
constexpr double kDigits = 1e-6;    // the finest resolution, of the range
constexpr ScpiLimits kCycles{0.02, 100, 10};
constexpr ScpiLimits kReadings{1, 1000, 1};  // triggers, and samples of each

void checkResolution(const std::string& text) {
  static const std::vector<ScpiHeader> keywords{ScpiHeader("MINimum"), ScpiHeader("MAXimum"),
                                                ScpiHeader("DEFault")};
  const bool isKeyword =
      std::any_of(keywords.begin(), keywords.end(),
                  [&](const ScpiHeader& keyword) { return keyword.matches(text); });
  if (!isKeyword && scpiRealIn(text) <= 0) throw ScpiError{-222};
}

}  // namespace

ScpiMeter::ScpiMeter(ReplyTable replies, std::string lineEnd, std::string identity)
    : ScpiDevice(std::move(replies), std::move(lineEnd), std::move(identity)) {
  const std::vector<double> volts{0.1, 1, 10, 100, 1000};
  const std::vector<double> ohms{100, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8};
  functions_ = {
      {"VOLT", "VOLTage[:DC]", 5.0, volts},
      {"VOLT:RAT", "VOLTage[:DC]:RATio", 1.0, volts},
      {"VOLT:AC", "VOLTage:AC", 1.0, {0.1, 1, 10, 100, 750}},
      {"CURR", "CURRent[:DC]", 0.1, {0.01, 0.1, 1, 3}},
      {"CURR:AC", "CURRent:AC", 0.1, {1, 3}},
      {"RES", "RESistance", 1000.0, ohms},
      {"FRES", "FRESistance", 1000.0, ohms},
      {"FREQ", "FREQuency", 1000.0, {3e5, 1e6}},
      {"PER", "PERiod", 0.001, {1e-6, 1.0}},
      {"CONT", "CONTinuity", 1.0, {1000}},
      {"DIOD", "DIODe", 0.6, {1}},
      {"TEMP", "TEMPerature", 23.5, {1000}},
  };
  addCommands();
}

void ScpiMeter::setReading(const std::string& function, double reading) {
  try {
    functions_[functionNamed(function)].reading = reading;
  } catch (const ScpiError&) {
    throw Problem("the multimeter cannot measure '" + function + "'");
  }
}

std::vector<std::string> ScpiMeter::functionNames() const {
  std::vector<std::string> names;
  for (const Function& function : functions_) names.push_back(function.name);
  return names;
}

void ScpiMeter::addCommands() {
  for (std::size_t i = 0; i < functions_.size(); ++i) addFunction(i);
  addQuery("CONFigure?", [this] { return '"' + configuration() + '"'; });
  addQuery("[SENSe]:FUNCtion[:ON]?", [this] { return '"' + functions_[function_].name + '"'; });
  add("[SENSe]:FUNCtion[:ON]", 1, 1, [this](const Parameters& parameters) {
    configure(functionNamed(scpiTextIn(parameters.front())), {});
    return std::nullopt;
  });
  addTrigger();
}

void ScpiMeter::addTrigger() {
  add("TRIGger:SOURce", 1, 1, [this](const Parameters& parameters) {
    const auto is = [&](std::string_view word) { return ScpiHeader(word).matches(parameters[0]); };
    if (!is("IMMediate") && !is("BUS") && !is("EXTernal")) throw ScpiError{-224};
    trigger_ = is("BUS") ? Trigger::Bus : is("EXTernal") ? Trigger::External : Trigger::Immediate;
    return std::nullopt;
  });
  addQuery("TRIGger:SOURce?", [this] {
    return trigger_ == Trigger::Bus ? "BUS" : trigger_ == Trigger::External ? "EXT" : "IMM";
  });
  const auto count = [this](std::string_view pattern, std::size_t ScpiMeter::*target) {
    add(pattern, 1, 1, [this, target](const Parameters& parameters) {
      this->*target = static_cast<std::size_t>(scpiRealIn(parameters.front(), kReadings));
      return std::nullopt;
    });
    addQuery(std::string(pattern) + '?', [this, target] { return scpiInteger(this->*target); });
  };
  count("TRIGger:COUNt", &ScpiMeter::triggers_);
  count("SAMPle:COUNt", &ScpiMeter::samples_);

  addAction("INITiate[:IMMediate]", [this] { initiate(); });
  addAction("ABORt", [this] { isWaiting_ = false; });
  addAction("*TRG", [this] {
    if (!isWaiting_ || trigger_ != Trigger::Bus) throw ScpiError{-211};
    take();
  });
  addQuery("READ?", [this] {
    // A trigger over the line could not come while the answer is awaited.
    if (trigger_ == Trigger::Bus) throw ScpiError{-221};
    initiate();
    return latest();
  });
  addQuery("FETCh?", [this] { return latest(); });
}

void ScpiMeter::initiate() {
  isWaiting_ = true;
  latest_.clear();
  if (trigger_ != Trigger::Bus) take();  // an external trigger is always there
}

void ScpiMeter::take() {
  isWaiting_ = false;
  latest_.assign(triggers_ * samples_, measure());
}

std::string ScpiMeter::latest() const {
  if (latest_.empty()) throw ScpiError{-230};
  std::string text;
  for (const double reading : latest_) text += (text.empty() ? "" : ",") + scpiReal(reading);
  return text;
}

void ScpiMeter::addFunction(std::size_t function) {
  const std::string& pattern = functions_[function].pattern;
  const std::size_t most = functions_[function].ranges.size() > 1 ? 2 : 0;
  add("CONFigure[:SCALar]:" + pattern, 0, most, [this, function](const Parameters& parameters) {
    configure(function, parameters);
    return std::nullopt;
  });
  add("MEASure[:SCALar]:" + pattern + '?', 0, most, [this, function](const Parameters& parameters) {
    configure(function, parameters);
    initiate();
    return latest();
  });
  const std::string cycles = "[SENSe]:" + pattern + ":NPLCycles";
  add(cycles, 1, 1, [this, function](const Parameters& parameters) {
    functions_[function].cycles = scpiRealIn(parameters.front(), kCycles);
    return std::nullopt;
  });
  addQuery(cycles + '?', [this, function] { return scpiReal(functions_[function].cycles); });
}

void ScpiMeter::reset() {
  for (Function& function : functions_) function.cycles = kPresetCycles;
  configure(0, {});
}

void ScpiMeter::configure(std::size_t function, const Parameters& parameters) {
  const double range =
      parameters.empty() ? 0 : chosenRange(functions_[function], parameters.front());
  if (parameters.size() > 1) checkResolution(parameters[1]);
  function_ = function;
  range_ = range;
  trigger_ = Trigger::Immediate;
  triggers_ = samples_ = 1;
  isWaiting_ = false;
  latest_.clear();
}

double ScpiMeter::chosenRange(const Function& function, const std::string& parameter) const {
  const std::vector<double>& ranges = function.ranges;
  const auto is = [&](std::string_view keyword) { return ScpiHeader(keyword).matches(parameter); };
  if (is("AUTO") || is("DEFault")) return 0;
  if (is("LOW") || is("MINimum")) return ranges.front();
  if (is("MEDium")) return ranges[ranges.size() / 2];
  if (is("HIGH") || is("MAXimum")) return ranges.back();
  const double wanted = scpiRealIn(parameter);
  const auto range = std::lower_bound(ranges.begin(), ranges.end(), wanted);
  if (wanted < 0 || range == ranges.end()) throw ScpiError{-222};
  return *range;
}

double ScpiMeter::measure() const {
  const Function& function = functions_[function_];
  const double limit = kOverRange * (range_ > 0 ? range_ : function.ranges.back());
  return std::abs(function.reading) <= limit ? function.reading : kOverload;
}

std::string ScpiMeter::configuration() const {
  const Function& function = functions_[function_];
  const double range = range_ > 0 ? range_ : function.ranges.back();
  return function.name + ' ' + scpiReal(range) + ',' + scpiReal(range * kDigits);
}

std::size_t ScpiMeter::functionNamed(std::string_view name) const {
  for (std::size_t i = 0; i < functions_.size(); ++i) {
    if (ScpiHeader(functions_[i].pattern).matches(name)) return i;
  }
  throw ScpiError{-224};
}

}  // namespace sim
