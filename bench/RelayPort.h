#pragma once

// Internal: not installed.

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <QLTBenchLine.h>
#include <QLTDigitalPort.h>

namespace quillon::bench {

/// Relays behind commands in text: a relay board on a serial line, or a SCPI switch. In a command,
/// "{}" stands for the channel. Its inputs are what the same question asks of a channel.
class RelayPort : public QLTDigitalPort {
 public:
  struct Commands {
    std::string on;
    std::string off;
    std::string confirmation;  ///< what the answer to both holds; "" when they have none
    std::string state;         ///< asks for a channel's state; "" when nothing does
    std::string stateOn;       ///< what the answer holds when it is on; "": it is 0 or 1
    std::string stateOff;      ///< what it holds when it is off; "": anything else
  };

  RelayPort(std::shared_ptr<QLTBenchLine> line, Commands commands);

  std::optional<bool> readInput(const std::string& channel, QLTError* error) override;
  std::optional<bool> readOutput(const std::string& channel, QLTError* error) override;
  /// Where the state can be asked for, it is, and a relay that stays as it is is an error.
  bool writeOutput(const std::string& channel, bool isHigh, QLTError* error) override;
  /// A confirmation is waited for, briefly: it must not be taken for that of the next channel.
  void tellOutput(const std::string& channel, bool isHigh) override;

  bool isLost() const override { return line_->isLost(); }
  std::string where() const override { return line_->where(); }
  bool reopen(QLTError* error) override { return line_->reopen(error); }

 private:
  std::pair<std::optional<bool>, std::string> stateIn(const std::string& answer) const;

  std::shared_ptr<QLTBenchLine> line_;
  Commands commands_;
};

}  // namespace quillon::bench
