#pragma once

#include <map>
#include <string>
#include <vector>

#include "ScpiDevice.h"

namespace sim {

/// An oscilloscope with four channels, as far as it measures numbers of a signal and gives the
/// samples of a waveform. At the first channel there is a square wave of 3.3 V and 1 kHz, at the
/// others nothing.
class ScpiScope : public ScpiDevice {
 public:
  ScpiScope(ReplyTable replies, std::string lineEnd, std::string identity);

  /// What it measures at the first channel, by the measurement's short name, "VPP" or "FREQ".
  /// Throws `Problem` for one that it does not know.
  void setReading(const std::string& name, double value);

 private:
  struct Measurement {
    std::vector<std::string> headers;  ///< behind "MEASure:", the first with its own list of names
    double value;
  };

  void addCommands();
  std::string measured(double value, const Parameters& parameters) const;
  std::string samples() const;
  void reset() override {}

  std::map<std::string, Measurement> measurements_;
};

}  // namespace sim
