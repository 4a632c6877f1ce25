#include "Console.h"

#include <utility>

namespace sim {

Console::Console(ReplyTable replies, std::string lineEnd, std::string prompt, bool echoes)
    : Device(std::move(replies), std::move(lineEnd)), prompt_(std::move(prompt)), echoes_(echoes) {}

std::optional<std::string> Console::commandIn(const std::string& line) { return line; }

std::optional<Device::Lines> Console::ownReply(const std::string& command) {
  if (command.empty()) return Lines();
  return Lines{"ERR unknown command: " + command};
}

std::string Console::endOf(const Lines& lines) const {
  return lines.empty() ? prompt_ : lineEnd() + prompt_;
}

}  // namespace sim
