#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Device.h"
#include "ScpiHeader.h"
#include "ScpiParameters.h"
#include "ScpiStatus.h"

namespace sim {

/// An instrument that speaks SCPI: its messages, the common commands of IEEE 488.2, the status and
/// the error queue. What it can beyond that, a subclass adds.
class ScpiDevice : public Device {
 public:
  /// `identity` is the answer to "*IDN?".
  ScpiDevice(ReplyTable replies, std::string lineEnd, std::string identity);

  void restart() override;

 protected:
  using Parameters = ScpiParameters;
  using Answer = std::optional<std::string>;

  /// "*RST", and part of switching on.
  virtual void reset() = 0;

  /// Adds a command with as many parameters; what `run` throws as `ScpiError` goes to the queue.
  void add(std::string_view pattern, std::size_t fewest, std::size_t most,
           std::function<Answer(const Parameters&)> run);
  void addQuery(std::string_view pattern, const std::function<std::string()>& answer);
  void addAction(std::string_view pattern, const std::function<void()>& act);

  /// Numbers behind keywords, as in "SOUR2:VOLT2", are channels from now on, and no part of the
  /// header.
  void takeSuffixes() { takesSuffixes_ = true; }
  /// The first such number of the command that is run.
  std::optional<int> suffix() const { return suffix_; }

  std::optional<std::string> commandIn(const std::string& line) override;
  std::optional<Lines> ownReply(const std::string& message) override;
  void fail(const Behaviour& behaviour) override;

 private:
  struct Command {
    ScpiHeader header;
    std::size_t fewest;
    std::size_t most;
    std::function<Answer(const Parameters&)> run;
  };

  void addCommonCommands();
  Answer execute(std::string header, std::string_view parameters);

  std::string identity_;
  std::vector<Command> commands_;
  ScpiStatus status_;
  bool takesSuffixes_ = false;
  std::optional<int> suffix_;
};

}  // namespace sim
