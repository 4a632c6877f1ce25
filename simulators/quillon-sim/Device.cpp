#include "Device.h"

#include <utility>

#include "LineSplitter.h"

namespace sim {
Device::Device(ReplyTable replies, std::string lineEnd)
    : replies_(std::move(replies)), lineEnd_(std::move(lineEnd)) {}

std::unique_ptr<Splitter> Device::splitter() const { return std::make_unique<LineSplitter>(); }

std::optional<Reply> Device::answer(const std::string& request) {
  const std::optional<std::string> command = commandIn(request);
  if (!command) return std::nullopt;
  const ReplyTable::Answer* const answer = replies_.next(*command);
  const Behaviour& behaviour = answer != nullptr ? answer->behaviour : replies_.behaviour();
  const std::optional<Lines> lines =
      answer != nullptr && answer->lines ? answer->lines : ownReply(*command);
  fail(behaviour);
  if (lines) return Reply{bytesOf(*lines), endOf(*lines), behaviour};
  // A fault that was asked for takes place, also where there is nothing to say.
  if (answer != nullptr) return Reply{"", "", behaviour};
  return std::nullopt;
}

std::string Device::bytesOf(const Lines& lines) {
  std::string text;
  for (const std::string& line : lines) {
    if (&line != &lines.front()) text += lineEnd_;
    text += line;
  }
  return text;
}

}  // namespace sim
