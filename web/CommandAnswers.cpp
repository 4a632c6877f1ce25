#include "CommandAnswers.h"

#include <utility>

namespace web {

bool CommandAnswers::ask(const std::string& id, Receiver receiver) {
  const auto [found, isNew] = commands_.try_emplace(id);
  Command& command = found->second;
  if (command.response) {
    receiver(*command.response);
  } else {
    command.waiting.push_back(std::move(receiver));
  }
  return isNew;
}

void CommandAnswers::answered(const std::string& id, Response response) {
  Command& command = commands_[id];
  command.response = std::move(response);
  for (const Receiver& receiver : std::exchange(command.waiting, {})) receiver(*command.response);
  order_.push_back(id);
  while (order_.size() > kept_) {
    commands_.erase(order_.front());
    order_.pop_front();
  }
}

void CommandAnswers::refused(const std::string& id, const Response& response) {
  const auto found = commands_.find(id);
  if (found == commands_.end()) return;
  const auto waiting = std::move(found->second.waiting);
  commands_.erase(found);
  for (const Receiver& receiver : waiting) receiver(response);
}

}  // namespace web
