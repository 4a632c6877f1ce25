#include "ScpiMeter.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <utility>

#include "Problem.h"
#include "Text.h"
#include "common/Text.h"

using quillon::internal::kBlanks;
using quillon::internal::trimmed;

namespace sim {
namespace {

constexpr double kOverload = 9.9e37;
constexpr double kOverRange = 1.2;  // a range reaches so far beyond its name
constexpr double kDigits = 1e-6;    // the finest resolution, of the range

std::string real(double value) {
  std::array<char, 32> text{};
  const int length = std::snprintf(text.data(), text.size(), "%+.8E", value);
  return {text.data(), static_cast<std::size_t>(length)};
}

std::string integer(std::size_t value) { return '+' + std::to_string(value); }

double realIn(std::string_view text) {
  if (text.starts_with('+')) text.remove_prefix(1);
  double value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, problem] = std::from_chars(text.data(), end, value);
  const bool isQuoted = text.starts_with('"') || text.starts_with('\'');
  if (problem == std::errc::result_out_of_range) throw ScpiError{-222};
  if (isQuoted) throw ScpiError{-104};
  if (problem != std::errc() || !std::isfinite(value)) throw ScpiError{-224};
  if (stop != end) throw ScpiError{-131};
  return value;
}

std::uint8_t registerIn(const std::string& text) {
  const double value = std::round(realIn(text));
  if (value < 0 || value > 255) throw ScpiError{-222};
  return static_cast<std::uint8_t>(value);
}

void checkResolution(const std::string& text) {
  static const std::vector<ScpiHeader> keywords{ScpiHeader("MINimum"), ScpiHeader("MAXimum"),
                                                ScpiHeader("DEFault")};
  const bool isKeyword =
      std::any_of(keywords.begin(), keywords.end(),
                  [&](const ScpiHeader& keyword) { return keyword.matches(text); });
  if (!isKeyword && realIn(text) <= 0) throw ScpiError{-222};
}

std::vector<std::string> parametersIn(std::string_view text) {
  std::vector<std::string> parameters;
  if (text.empty()) return parameters;
  for (const std::string_view piece : splitUnquoted(text, ',')) {
    parameters.push_back(trimmed(piece, kBlanks));
    if (parameters.back().empty()) throw ScpiError{-102};
  }
  return parameters;
}

/// A header that does not begin at the root stands beside the one before it.
std::string fullHeader(std::string_view header, std::string& path) {
  if (header.starts_with('*')) return std::string(header);
  std::string full =
      header.starts_with(':') ? std::string(header.substr(1)) : path + std::string(header);
  const std::size_t last = full.rfind(':');
  path = last == full.npos ? "" : full.substr(0, last + 1);
  return full;
}

}  // namespace

ScpiMeter::ScpiMeter(ReplyTable replies, std::string lineEnd, std::string identity)
    : Device(std::move(replies), std::move(lineEnd)), identity_(std::move(identity)) {
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

void ScpiMeter::restart() {
  status_ = {};
  reset();
}

std::optional<std::string> ScpiMeter::commandIn(const std::string& line) {
  std::string message = trimmed(line, kBlanks);
  if (message.empty()) return std::nullopt;
  return message;
}

std::optional<Device::Lines> ScpiMeter::ownReply(const std::string& message) {
  std::string reply;
  std::string path;
  try {
    for (const std::string_view piece : splitUnquoted(message, ';')) {
      const std::string unit = trimmed(piece, kBlanks);
      if (unit.empty()) continue;
      const std::size_t end = std::min(unit.find_first_of(" \t"), unit.size());
      const std::string header = fullHeader(unit.substr(0, end), path);
      if (const Answer answer = execute(header, trimmed(unit.substr(end), kBlanks))) {
        reply += (reply.empty() ? "" : ";") + *answer;
      }
    }
  } catch (const ScpiError& error) {
    status_.report(error);
  }
  if (reply.empty()) return std::nullopt;
  return Lines{reply};
}

/// Runs one unit of a message. Throws what makes the rest of the message void; reports the rest.
ScpiMeter::Answer ScpiMeter::execute(const std::string& header, std::string_view parameters) {
  const auto command =
      std::find_if(commands_.begin(), commands_.end(),
                   [&](const Command& candidate) { return candidate.header.matches(header); });
  if (command == commands_.end()) throw ScpiError{-113};
  try {
    const Parameters values = parametersIn(parameters);
    if (values.size() < command->fewest) throw ScpiError{-109};
    if (values.size() > command->most) throw ScpiError{-108};
    return command->run(values);
  } catch (const ScpiError& error) {
    if (error.isCommandError()) throw;
    status_.report(error);
    return std::nullopt;
  }
}

void ScpiMeter::add(std::string_view pattern, std::size_t fewest, std::size_t most,
                    std::function<Answer(const Parameters&)> run) {
  commands_.push_back({ScpiHeader(pattern), fewest, most, std::move(run)});
}

void ScpiMeter::addCommands() {
  const auto query = [&](std::string_view pattern, const std::function<std::string()>& answer) {
    add(pattern, 0, 0, [answer](const Parameters&) { return answer(); });
  };
  const auto action = [&](std::string_view pattern, const std::function<void()>& act) {
    add(pattern, 0, 0, [act](const Parameters&) {
      act();
      return std::nullopt;
    });
  };
  const auto setting = [&](std::string_view pattern, std::uint8_t ScpiStatus::*target) {
    add(pattern, 1, 1, [this, target](const Parameters& parameters) {
      status_.*target = registerIn(parameters.front());
      return std::nullopt;
    });
  };

  query("*IDN?", [this] { return identity_; });
  query("*TST?", [] { return integer(0); });
  query("*OPC?", [] { return "1"; });
  query("*ESR?", [this] { return integer(status_.takeEvents()); });
  query("*STB?", [this] { return integer(status_.byte()); });
  query("*ESE?", [this] { return integer(status_.eventEnable); });
  query("*SRE?", [this] { return integer(status_.serviceEnable); });
  setting("*ESE", &ScpiStatus::eventEnable);
  setting("*SRE", &ScpiStatus::serviceEnable);
  action("*OPC", [this] { status_.set(ScpiStatus::OperationComplete); });
  action("*RST", [this] { reset(); });
  action("*CLS", [this] { status_.clear(); });
  action("*WAI", [] {});

  query("SYSTem:ERRor[:NEXT]?", [this] { return status_.nextError(); });
  query("SYSTem:ERRor:COUNt?", [this] { return integer(status_.errorCount()); });
  query("SYSTem:VERSion?", [] { return "1994.0"; });
  action("SYSTem:REMote", [] {});
  action("SYSTem:LOCal", [] {});
  action("SYSTem:BEEPer[:IMMediate]", [] {});

  for (std::size_t i = 0; i < functions_.size(); ++i) addFunction(i);
  query("CONFigure?", [this] { return '"' + configuration() + '"'; });
  query("[SENSe]:FUNCtion[:ON]?", [this] { return '"' + functions_[function_].name + '"'; });
  add("[SENSe]:FUNCtion[:ON]", 1, 1, [this](const Parameters& parameters) {
    const std::string_view text = parameters.front();
    if (text.size() < 2 || (text.front() != '"' && text.front() != '\'')) throw ScpiError{-104};
    configure(functionNamed(text.substr(1, text.size() - 2)), {});
    return std::nullopt;
  });
  action("INITiate[:IMMediate]", [this] { latest_ = measure(); });
  action("ABORt", [] {});
  query("READ?", [this] {
    latest_ = measure();
    return real(*latest_);
  });
  query("FETCh?", [this] {
    if (!latest_) throw ScpiError{-230};
    return real(*latest_);
  });
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
    latest_ = measure();
    return real(*latest_);
  });
}

void ScpiMeter::reset() { configure(0, {}); }

void ScpiMeter::configure(std::size_t function, const Parameters& parameters) {
  const double range =
      parameters.empty() ? 0 : chosenRange(functions_[function], parameters.front());
  if (parameters.size() > 1) checkResolution(parameters[1]);
  function_ = function;
  range_ = range;
  latest_.reset();
}

double ScpiMeter::chosenRange(const Function& function, const std::string& parameter) const {
  const std::vector<double>& ranges = function.ranges;
  const auto is = [&](std::string_view keyword) { return ScpiHeader(keyword).matches(parameter); };
  if (is("AUTO") || is("DEFault")) return 0;
  if (is("LOW") || is("MINimum")) return ranges.front();
  if (is("MEDium")) return ranges[ranges.size() / 2];
  if (is("HIGH") || is("MAXimum")) return ranges.back();
  const double wanted = realIn(parameter);
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
  return function.name + ' ' + real(range) + ',' + real(range * kDigits);
}

std::size_t ScpiMeter::functionNamed(std::string_view name) const {
  for (std::size_t i = 0; i < functions_.size(); ++i) {
    if (ScpiHeader(functions_[i].pattern).matches(name)) return i;
  }
  throw ScpiError{-224};
}

}  // namespace sim
