#include "ReplyTable.h"

#include <algorithm>
#include <utility>

namespace sim {

ReplyTable::ReplyTable(Behaviour behaviour) : behaviour_(std::move(behaviour)) {}

void ReplyTable::add(const std::string& command, bool isPrefix, Answer answer) {
  const auto entry = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& candidate) {
    return candidate.command == command && candidate.isPrefix == isPrefix;
  });
  if (entry != entries_.end()) {
    entry->answers.push_back(std::move(answer));
  } else {
    entries_.push_back({command, isPrefix, {std::move(answer)}});
  }
}

const ReplyTable::Answer* ReplyTable::next(const std::string& command) {
  Entry* best = nullptr;
  for (Entry& entry : entries_) {
    if (!entry.isPrefix && entry.command == command) {
      best = &entry;
      break;
    }
    const bool fits = entry.isPrefix && command.starts_with(entry.command);
    if (fits && (best == nullptr || entry.command.size() > best->command.size())) best = &entry;
  }
  if (best == nullptr) return nullptr;
  const Answer* const answer = &best->answers[best->turn];
  best->turn = std::min(best->turn + 1, best->answers.size() - 1);
  return answer;
}

}  // namespace sim
