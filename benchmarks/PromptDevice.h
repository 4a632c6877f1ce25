#pragma once

#include <array>
#include <string>
#include <thread>
#include <utility>

#include <sys/socket.h>
#include <unistd.h>

namespace bench {

/// Answers at once whatever comes on a connection, for as long as it lives.
class PromptDevice {
 public:
  PromptDevice(int connection, std::string reply)
      : connection_(connection), thread_([connection, reply = std::move(reply)] {
          std::array<char, 64> question{};
          while (read(connection, question.data(), question.size()) > 0) {
            if (write(connection, reply.data(), reply.size()) < 0) return;
          }
        }) {}
  ~PromptDevice() { shutdown(connection_, SHUT_RDWR); }
  PromptDevice(const PromptDevice&) = delete;
  PromptDevice& operator=(const PromptDevice&) = delete;

 private:
  int connection_;
  std::jthread thread_;
};

}  // namespace bench
