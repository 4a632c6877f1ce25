#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace test {

/// Captures the console log for as long as it lives.
class ConsoleLog {
 public:
  ConsoleLog();
  ~ConsoleLog();
  ConsoleLog(const ConsoleLog&) = delete;
  ConsoleLog& operator=(const ConsoleLog&) = delete;

  /// The messages so far, as they were logged.
  std::vector<std::string> lines() const;
  void clear();

 private:
  struct State {
    std::mutex mutex;
    std::vector<std::string> lines;
  };
  std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace test
