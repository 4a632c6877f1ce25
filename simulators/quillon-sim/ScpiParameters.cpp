#include "ScpiParameters.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>

#include "ScpiHeader.h"
#include "ScpiStatus.h"
#include "Text.h"
#include "common/Text.h"

using quillon::internal::kBlanks;
using quillon::internal::trimmed;

namespace sim {
namespace {

int channelIn(std::string_view text) {
  const auto channel = quillon::internal::numberIn<int>(trimmed(text, kBlanks));
  if (!channel || *channel < 0) throw ScpiError{-224};
  return *channel;
}

}  // namespace

std::string scpiReal(double value) {
  std::array<char, 32> text{};
  const int length = std::snprintf(text.data(), text.size(), "%+.8E", value);
  return {text.data(), static_cast<std::size_t>(length)};
}

std::string scpiInteger(std::size_t value) { return '+' + std::to_string(value); }

std::string scpiSwitch(bool isOn) { return isOn ? "1" : "0"; }

ScpiParameters scpiParametersIn(std::string_view text) {
  ScpiParameters parameters;
  if (text.empty()) return parameters;
  for (const std::string_view piece : splitUnquoted(text, ',')) {
    parameters.push_back(trimmed(piece, kBlanks));
    if (parameters.back().empty()) throw ScpiError{-102};
  }
  return parameters;
}

double scpiRealIn(std::string_view text) {
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

double scpiRealIn(const std::string& text, const ScpiLimits& limits) {
  const auto is = [&](std::string_view keyword) { return ScpiHeader(keyword).matches(text); };
  if (is("MINimum")) return limits.least;
  if (is("MAXimum")) return limits.most;
  if (is("DEFault")) return limits.preset;
  const double value = scpiRealIn(text);
  if (value < limits.least || value > limits.most) throw ScpiError{-222};
  return value;
}

std::uint8_t scpiRegisterIn(const std::string& text) {
  const double value = std::round(scpiRealIn(text));
  if (value < 0 || value > 255) throw ScpiError{-222};
  return static_cast<std::uint8_t>(value);
}

bool scpiSwitchIn(const std::string& text) {
  const std::string word = quillon::internal::upperCase(text);
  if (word == "ON") return true;
  if (word == "OFF") return false;
  return std::round(scpiRealIn(text)) != 0;
}

std::string scpiTextIn(std::string_view text) {
  if (text.size() < 2 || (text.front() != '"' && text.front() != '\'')) throw ScpiError{-104};
  return std::string(text.substr(1, text.size() - 2));
}

bool isScpiList(std::string_view text) { return text.starts_with("(@") && text.ends_with(')'); }

std::vector<int> scpiListIn(std::string_view text) {
  constexpr int longestRange = 10000;
  if (!isScpiList(text)) throw ScpiError{-104};
  std::vector<int> channels;
  for (const std::string& piece : quillon::internal::split(text.substr(2, text.size() - 3), ",")) {
    const std::size_t colon = piece.find(':');
    const int first = channelIn(piece.substr(0, colon));
    const int last = colon == piece.npos ? first : channelIn(piece.substr(colon + 1));
    if (last < first || last - first > longestRange) throw ScpiError{-222};
    for (int channel = first; channel <= last; ++channel) channels.push_back(channel);
  }
  return channels;
}

}  // namespace sim
