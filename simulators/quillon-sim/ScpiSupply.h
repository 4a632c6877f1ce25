#pragma once

#include <cstddef>
#include <functional>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "ScpiDevice.h"

namespace sim {

/// A power supply of up to 30 V and 5 A, with one or several outputs that a resistance hangs at.
/// It limits its current, and its protections switch an output off.
///
/// A command is for the output of its list, "VOLT 5,(@2)", of its header, "SOUR2:VOLT 5", or the
/// one that "INST:NSEL 2" has chosen.
class ScpiSupply : public ScpiDevice {
 public:
  ScpiSupply(ReplyTable replies, std::string lineEnd, std::string identity, std::size_t outputs);

  /// What hangs at an output, counted from 1; nothing does at first. Throws `Problem` for one that
  /// it does not have.
  void setResistance(std::size_t output, double ohms);
  /// The output stays as it is, whatever it is told: a relay that sticks.
  void setStuck(std::size_t output);

 private:
  struct Output {
    double resistance = std::numeric_limits<double>::infinity();
    bool isStuck = false;
    double volts = 0;
    double amps = 0;
    double voltProtection = 0;
    bool hasVoltProtection = false;
    bool hasCurrentProtection = false;
    bool isOn = false;
    bool hasOverVoltage = false;  ///< has tripped
    bool hasOverCurrent = false;
  };
  struct Delivered {
    double volts;
    double amps;
    bool isLimited;
  };

  using Action = std::function<void(Output&, const std::string&)>;
  using Question = std::function<std::string(const Output&)>;

  void addCommands();
  void perOutput(std::string_view pattern, const Action& act);
  void perOutput(std::string_view pattern, const Question& answer);
  void limitedSetting(std::string_view pattern, double Output::*target, const ScpiLimits& limits);
  void switchSetting(std::string_view pattern, bool Output::*target);

  void reset() override;
  static Delivered deliveredBy(const Output& output);
  static void protect(Output& output);
  std::size_t indexOf(int channel) const;
  std::vector<std::size_t> chosen(const Parameters& parameters, std::size_t list) const;

  std::vector<Output> outputs_;
  std::size_t selected_ = 0;
};

}  // namespace sim
