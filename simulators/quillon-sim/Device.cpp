#include "Device.h"

#include <utility>

namespace sim {
namespace {

std::string joined(const std::vector<std::string>& lines, const std::string& separator) {
  std::string text;
  for (const std::string& line : lines) {
    if (&line != &lines.front()) text += separator;
    text += line;
  }
  return text;
}

}  // namespace

Device::Device(ReplyTable replies, std::string lineEnd)
    : replies_(std::move(replies)), lineEnd_(std::move(lineEnd)) {}

std::optional<Reply> Device::answer(const std::string& line) {
  const std::optional<std::string> command = commandIn(line);
  if (!command) return std::nullopt;
  const ReplyTable::Answer* const answer = replies_.next(*command);
  const Behaviour& behaviour = answer != nullptr ? answer->behaviour : replies_.behaviour();
  const std::optional<Lines> lines =
      answer != nullptr && answer->lines ? answer->lines : ownReply(*command);
  fail(behaviour);
  if (lines) return Reply{joined(*lines, lineEnd_), endOf(*lines), behaviour};
  // A fault that was asked for takes place, also where there is nothing to say.
  if (answer != nullptr) return Reply{"", "", behaviour};
  return std::nullopt;
}

}  // namespace sim
