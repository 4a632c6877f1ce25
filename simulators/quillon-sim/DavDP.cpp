#include "DavDP.h"

#include <cstddef>
#include <utility>

namespace sim {

DavDP::DavDP(ReplyTable replies, std::string lineEnd, bool sleeps)
    : Device(std::move(replies), std::move(lineEnd)), sleeps_(sleeps), isAwake_(!sleeps) {}

std::optional<std::string> DavDP::commandIn(const std::string& line) {
  // The wake-up stands right before the next command, behind what the unit slept through.
  const std::size_t wakeUp = line.rfind('@');
  if (wakeUp != line.npos) isAwake_ = true;
  const std::string command = wakeUp == line.npos ? line : line.substr(wakeUp + 1);
  if (!isAwake_ || command.empty()) return std::nullopt;
  return command;
}

std::optional<Device::Lines> DavDP::ownReply(const std::string& command) {
  if (command == "&1,0000") return Lines{"&1,F1.0,DP1.0,HD1.0,P1.0"};
  return Lines{"ERR,unknown command"};
}

}  // namespace sim
