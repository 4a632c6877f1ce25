#include "ScpiScope.h"

#include <utility>

#include "Problem.h"
#include "common/Text.h"

namespace sim {
namespace {

constexpr double kNoSignal = 9.91e37;
constexpr int kChannels = 4;

/// "(@1)" or "CHAN1".
int channelIn(const std::string& parameter) {
  if (isScpiList(parameter)) {
    const std::vector<int> channels = scpiListIn(parameter);
    if (channels.size() != 1) throw ScpiError{-108};
    return channels.front();
  }
  const std::size_t digits = parameter.find_first_of("0123456789");
  const auto number = quillon::internal::numberIn<int>(
      digits == parameter.npos ? "" : std::string_view(parameter).substr(digits));
  if (!number || !ScpiHeader("CHANnel").matches(parameter.substr(0, digits))) {
    throw ScpiError{-224};
  }
  return *number;
}

}  // namespace

ScpiScope::ScpiScope(ReplyTable replies, std::string lineEnd, std::string identity)
    : ScpiDevice(std::move(replies), std::move(lineEnd), std::move(identity)) {
  const auto entry = [](std::vector<std::string> headers, double value) {
    return Measurement{std::move(headers), value};
  };
  measurements_ = {
      {"VPP", entry({"VOLTage:PTPeak", "VPP"}, 3.3)},
      {"VAMP", entry({"VOLTage:AMPLitude", "VAMPlitude"}, 3.3)},
      {"VMAX", entry({"VOLTage:MAXimum", "VMAX"}, 3.3)},
      {"VMIN", entry({"VOLTage:MINimum", "VMIN"}, 0)},
      {"VTOP", entry({"VOLTage:HIGH", "VTOP"}, 3.3)},
      {"VBAS", entry({"VOLTage:LOW", "VBASe"}, 0)},
      {"VAV", entry({"VOLTage:DC", "VAVerage"}, 1.65)},
      {"VRMS", entry({"VOLTage:AC", "VRMS"}, 2.3334524)},
      {"FREQ", entry({"VOLTage:FREQuency", "FREQuency"}, 1000)},
      {"PER", entry({"VOLTage:PERiod", "PERiod"}, 0.001)},
      {"RIS", entry({"VOLTage:RTIMe", "RISetime"}, 2e-8)},
      {"FALL", entry({"VOLTage:FTIMe", "FALLtime"}, 2.5e-8)},
      {"PWID", entry({"VOLTage:PWIDth", "PWIDth"}, 0.0005)},
      {"NWID", entry({"VOLTage:NWIDth", "NWIDth"}, 0.0005)},
      {"DUTY", entry({"VOLTage:PDUTycycle", "DUTYcycle"}, 50)},
  };
  addCommands();
}

void ScpiScope::setReading(const std::string& name, double value) {
  const auto found = measurements_.find(quillon::internal::upperCase(name));
  if (found == measurements_.end()) {
    throw Problem("the oscilloscope cannot measure '" + name + "'");
  }
  found->second.value = value;
}

void ScpiScope::addCommands() {
  for (const auto& named : measurements_) {
    const double& value = named.second.value;  // as it is when it is asked for
    for (const std::string& header : named.second.headers) {
      add("MEASure[:SCALar]:" + header + '?', 0, 1,
          [this, &value](const Parameters& parameters) { return measured(value, parameters); });
    }
  }
  addQuery("WAVeform:DATA?", [this] { return samples(); });
}

std::string ScpiScope::measured(double value, const Parameters& parameters) const {
  const int channel = parameters.empty() ? 1 : channelIn(parameters.front());
  if (channel < 1 || channel > kChannels) throw ScpiError{-222};
  return scpiReal(channel == 1 ? value : kNoSignal);
}

/// A block of bytes: one period of the first channel, its low samples line feeds.
std::string ScpiScope::samples() const {
  constexpr std::size_t count = 200;
  constexpr std::size_t half = count / 2;
  const std::string length = std::to_string(count);
  return '#' + std::to_string(length.size()) + length + std::string(half, '\n') +
         std::string(half, '\xfa');
}

}  // namespace sim
