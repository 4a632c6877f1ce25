#pragma once

#include <optional>
#include <string>

#include "Device.h"

namespace sim {

/// A DAVDP unit: one line of fields with commas for each command. By itself it knows the version
/// query "&1,0000" alone.
class DavDP : public Device {
 public:
  /// One that `sleeps` hears nothing until the first "@", which needs no line end.
  DavDP(ReplyTable replies, std::string lineEnd, bool sleeps);

  void restart() override { isAwake_ = !sleeps_; }

 protected:
  std::optional<std::string> commandIn(const std::string& line) override;
  std::optional<Lines> ownReply(const std::string& command) override;

 private:
  bool sleeps_;
  bool isAwake_;
};

}  // namespace sim
