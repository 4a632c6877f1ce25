#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "web/Site.h"

namespace web {

/// The answers to the last commands, so that a command which comes again, because its answer got
/// lost, is not done again. For one thread.
class CommandAnswers {
 public:
  using Receiver = std::function<void(const Response&)>;

  explicit CommandAnswers(std::size_t kept) : kept_(kept) {}

  /// `receiver` gets the answer to the command with this id: now when it is known, otherwise when
  /// `answered` tells it. True when the id is new: then the caller has to do the command.
  bool ask(const std::string& id, Receiver receiver);
  void answered(const std::string& id, Response response);
  /// The command was not done and may come again.
  void refused(const std::string& id, const Response& response);

 private:
  struct Command {
    std::optional<Response> response;
    std::vector<Receiver> waiting;
  };

  std::size_t kept_;
  std::map<std::string, Command> commands_;
  std::deque<std::string> order_;  ///< of those that are answered, oldest first
};

}  // namespace web
