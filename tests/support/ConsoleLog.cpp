#include "ConsoleLog.h"

#include <QLTConsoleLog.h>

namespace test {

ConsoleLog::ConsoleLog() {
  QLTSetLogSink([state = state_](std::string_view message) {
    const std::lock_guard lock(state->mutex);
    state->lines.emplace_back(message);
  });
}

ConsoleLog::~ConsoleLog() { QLTSetLogSink({}); }

std::vector<std::string> ConsoleLog::lines() const {
  const std::lock_guard lock(state_->mutex);
  return state_->lines;
}

void ConsoleLog::clear() {
  const std::lock_guard lock(state_->mutex);
  state_->lines.clear();
}

}  // namespace test
