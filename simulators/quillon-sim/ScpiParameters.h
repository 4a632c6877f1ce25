#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

// The forms of SCPI's parameters and answers. What cannot be read throws `ScpiError`.

using ScpiParameters = std::vector<std::string>;

/// What a setting may be.
struct ScpiLimits {
  double least;
  double most;
  double preset;
};

std::string scpiReal(double value);
std::string scpiInteger(std::size_t value);
std::string scpiSwitch(bool isOn);

/// The parameters behind a header, without blanks around them.
ScpiParameters scpiParametersIn(std::string_view text);
double scpiRealIn(std::string_view text);
/// A number within the limits, or MINimum, MAXimum, DEFault.
double scpiRealIn(const std::string& text, const ScpiLimits& limits);
std::uint8_t scpiRegisterIn(const std::string& text);
bool scpiSwitchIn(const std::string& text);     ///< ON, OFF or a number
std::string scpiTextIn(std::string_view text);  ///< what stands in quotes
bool isScpiList(std::string_view text);
/// The channels of "(@101,103:105)", in their order.
std::vector<int> scpiListIn(std::string_view text);

}  // namespace sim
