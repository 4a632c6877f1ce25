#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "Behaviour.h"

namespace sim {

/// What a device answers to which command, as a reply file has it.
class ReplyTable {
 public:
  struct Answer {
    /// The lines of the reply. Absent: what the device itself would say.
    std::optional<std::vector<std::string>> lines;
    Behaviour behaviour;
  };

  /// `behaviour` is that of every reply that the table does not give.
  explicit ReplyTable(Behaviour behaviour = {});

  /// Adds an answer to `command`, or to all commands that begin with it. A command's answers are
  /// given in the order in which they were added; the last one is repeated.
  void add(const std::string& command, bool isPrefix, Answer answer);
  /// The answer whose turn it is: for exactly this command, else for its longest beginning. Null
  /// without either.
  const Answer* next(const std::string& command);

  const Behaviour& behaviour() const { return behaviour_; }

 private:
  struct Entry {
    std::string command;
    bool isPrefix;
    std::vector<Answer> answers;
    std::size_t turn = 0;
  };

  Behaviour behaviour_;
  std::vector<Entry> entries_;
};

}  // namespace sim
