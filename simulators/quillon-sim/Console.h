#pragma once

#include <optional>
#include <string>

#include "Device.h"

namespace sim {

/// A diagnostics console: every line is answered with some lines and the prompt, an empty one with
/// the prompt alone.
class Console : public Device {
 public:
  Console(ReplyTable replies, std::string lineEnd, std::string prompt, bool echoes);

  bool echoes() const override { return echoes_; }

 protected:
  std::optional<std::string> commandIn(const std::string& line) override;
  std::optional<Lines> ownReply(const std::string& command) override;
  std::string endOf(const Lines& lines) const override;

 private:
  std::string prompt_;
  bool echoes_;
};

}  // namespace sim
