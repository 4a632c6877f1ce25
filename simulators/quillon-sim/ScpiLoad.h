#pragma once

#include <string>
#include <string_view>

#include "ScpiDevice.h"

namespace sim {

/// An electronic load of up to 150 V and 30 A, at a source with an open voltage and an inner
/// resistance.
class ScpiLoad : public ScpiDevice {
 public:
  ScpiLoad(ReplyTable replies, std::string lineEnd, std::string identity);

  /// What it hangs at: 12 V behind 0.1 ohm at first. Throws `Problem` for a resistance that is not
  /// above 0.
  void setSource(double volts, double ohms);

 private:
  enum class Mode { Current, Voltage, Resistance, Power };

  void addCommands();
  void addLevel(std::string_view pattern, double ScpiLoad::*target, const ScpiLimits& limits);
  void reset() override;
  double amps() const;
  double volts() const;

  double sourceVolts_ = 12;
  double sourceOhms_ = 0.1;
  Mode mode_ = Mode::Current;
  double current_ = 0;
  double voltage_ = 0;
  double resistance_ = 0;
  double power_ = 0;
  bool isOn_ = false;
};

}  // namespace sim
