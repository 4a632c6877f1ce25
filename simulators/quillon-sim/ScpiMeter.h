#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Device.h"
#include "ScpiHeader.h"
#include "ScpiStatus.h"

namespace sim {

/// A bench multimeter that speaks SCPI, with the common commands of IEEE 488.2.
class ScpiMeter : public Device {
 public:
  /// `identity` is the answer to "*IDN?".
  ScpiMeter(ReplyTable replies, std::string lineEnd, std::string identity);

  /// What the meter reads from now on when it measures `function`, such as "VOLT:DC". Throws
  /// `Problem` for a function that it does not have.
  void setReading(const std::string& function, double reading);
  /// The functions in their short form.
  std::vector<std::string> functionNames() const;

  void restart() override;

 protected:
  std::optional<std::string> commandIn(const std::string& line) override;
  std::optional<Lines> ownReply(const std::string& message) override;

 private:
  using Parameters = std::vector<std::string>;
  using Answer = std::optional<std::string>;

  struct Function {
    std::string name;
    std::string pattern;
    double reading;
    std::vector<double> ranges;  ///< ascending; one alone cannot be chosen
  };
  struct Command {
    ScpiHeader header;
    std::size_t fewest;
    std::size_t most;
    std::function<Answer(const Parameters&)> run;
  };

  void addCommands();
  void add(std::string_view pattern, std::size_t fewest, std::size_t most,
           std::function<Answer(const Parameters&)> run);
  void addFunction(std::size_t function);
  Answer execute(const std::string& header, std::string_view parameters);

  void reset();
  void configure(std::size_t function, const Parameters& parameters);
  double chosenRange(const Function& function, const std::string& parameter) const;
  double measure() const;
  std::string configuration() const;
  std::size_t functionNamed(std::string_view name) const;

  std::string identity_;
  std::vector<Function> functions_;
  std::vector<Command> commands_;
  ScpiStatus status_;
  std::size_t function_ = 0;
  double range_ = 0;  ///< 0 is automatic
  std::optional<double> latest_;
};

}  // namespace sim
