#pragma once

#include <optional>
#include <string>
#include <utility>

#include "Device.h"

namespace sim {

/// What else is on a CAN bus. It sends what its reply file has for a frame, and is silent
/// otherwise.
///
/// A frame is "123#0102" there, an extended one "18DAF110#", a remote one "123#R4", an FD one
/// "123##10102". The texts of a reply are the frames that are sent, one each, or one of
///
///     cut N FRAME     the first N bytes of the message that the system has for the frame
///     bus-off         the error frame that tells so; likewise
///     no-ack
///     error-passive
///     warning         many errors
///     overflow        the controller has lost frames that came
///     no-wire         CAN high has none
class CanNode : public Device {
 public:
  explicit CanNode(ReplyTable replies) : Device(std::move(replies), "\n") {}

 protected:
  std::optional<std::string> commandIn(const std::string& request) override;
  std::optional<Lines> ownReply(const std::string& command) override;
  std::string bytesOf(const Lines& lines) override;
};

}  // namespace sim
