#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ScpiDevice.h"

namespace sim {

/// A bench multimeter that speaks SCPI.
class ScpiMeter : public ScpiDevice {
 public:
  /// `identity` is the answer to "*IDN?".
  ScpiMeter(ReplyTable replies, std::string lineEnd, std::string identity);

  /// What the meter reads from now on when it measures `function`, such as "VOLT:DC". Throws
  /// `Problem` for a function that it does not have.
  void setReading(const std::string& function, double reading);
  /// The functions in their short form.
  std::vector<std::string> functionNames() const;

 private:
  enum class Trigger { Immediate, Bus, External };

  struct Function {
    std::string name;
    std::string pattern;
    double reading;
    std::vector<double> ranges;     ///< ascending; one alone cannot be chosen
    double cycles = kPresetCycles;  ///< of the line, that a reading takes
  };

  static constexpr double kPresetCycles = 10;

  void addCommands();
  void addFunction(std::size_t function);
  void addTrigger();

  void reset() override;
  void configure(std::size_t function, const Parameters& parameters);
  void initiate();
  void take();
  std::string latest() const;
  double chosenRange(const Function& function, const std::string& parameter) const;
  double measure() const;
  std::string configuration() const;
  std::size_t functionNamed(std::string_view name) const;

  std::vector<Function> functions_;
  std::size_t function_ = 0;
  double range_ = 0;  ///< 0 is automatic
  Trigger trigger_ = Trigger::Immediate;
  bool isWaiting_ = false;  ///< for its trigger
  std::size_t triggers_ = 1;
  std::size_t samples_ = 1;
  std::vector<double> latest_;
};

}  // namespace sim
