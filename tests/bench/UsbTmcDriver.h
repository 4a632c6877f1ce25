#pragma once

// The kernel's driver of instruments on USB, played: what it answers to the system calls on a
// device file.

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <sys/ioctl.h>

#include <linux/usb/tmc.h>

#include "support/SystemCalls.h"

namespace test {

/// The driver, and an instrument that says what it is told to.
class UsbTmcDriver {
 public:
  /// Of the device file at `path`, which a test's terminal lends.
  explicit UsbTmcDriver(std::string path) : path_(std::move(path)) {
    calls_.onIoctl = [this](int file, unsigned long request, void* argument) {
      return isOurs(file) ? std::optional(control(request, argument)) : std::nullopt;
    };
    calls_.onWrite = [this](int file, const void* bytes,
                            std::size_t size) -> std::optional<ssize_t> {
      if (!isOurs(file)) return std::nullopt;
      if (isInterrupted()) return failWith(EINTR);
      if (writeProblem != 0) return failWith(writeProblem);
      written.emplace_back(static_cast<const char*>(bytes), size);
      onMessage(written.back());
      return static_cast<ssize_t>(size);
    };
    calls_.onRead = [this](int file, void* bytes, std::size_t size) -> std::optional<ssize_t> {
      if (!isOurs(file)) return std::nullopt;
      if (isInterrupted()) return failWith(EINTR);
      return read(static_cast<char*>(bytes), size);
    };
  }

  std::deque<std::string> messages;  // which the instrument has to say
  std::vector<std::string> written;
  std::vector<std::uint32_t> timeOuts;
  int clears = 0;
  int readProblem = ETIMEDOUT;  // when there is no message
  int writeProblem = 0;
  int controlProblem = 0;
  int interruptions = 0;  // of the next calls, by signals
  bool clearsInstrument = true;
  bool endsMessages = true;            // or breaks off amid them
  bool tellsEnds = true;               // of messages, as drivers do since Linux 4.20
  std::size_t longestPiece = 1 << 20;  // of a message that the instrument gives at once

  // What the instrument does.

  std::function<void(const std::string& message)> onMessage = [this](const std::string& message) {
    if (message == "*IDN?\n") messages = {"TEK,1,2,3\n"};
  };
  std::function<void()> onUselessRead = [] {};  // there is no message
  std::function<void()> onClear = [] {};

 private:
  bool isOurs(int file) const {
    std::error_code problem;
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(file), problem) == path_;
  }
  bool isInterrupted() { return interruptions > 0 && interruptions-- > 0; }
  int control(unsigned long request, void* argument) {
    if (isInterrupted()) return failWith(EINTR);
    if (controlProblem != 0) return failWith(controlProblem);
    switch (request) {
      case USBTMC_IOCTL_SET_TIMEOUT:
        timeOuts.push_back(*static_cast<std::uint32_t*>(argument));
        return timeOuts.back() >= 100 ? 0 : failWith(EINVAL);
      case USBTMC_IOCTL_CLEAR:
        ++clears;
        if (!clearsInstrument) return failWith(EPIPE);
        messages.clear();
        onClear();
        return 0;
      case USBTMC488_IOCTL_READ_STB:
        *static_cast<std::uint8_t*>(argument) = 0x50;
        return 0;
      case USBTMC_IOCTL_MSG_IN_ATTR:
        if (!tellsEnds) return failWith(ENOTTY);
        *static_cast<std::uint8_t*>(argument) = isAtEnd_ ? 1 : 0;
        return 0;
      default:
        return failWith(ENOTTY);
    }
  }
  ssize_t read(char* bytes, std::size_t size) {
    if (messages.empty()) {
      onUselessRead();
      return failWith(readProblem);
    }
    std::string& message = messages.front();
    const std::size_t count = std::min({size, longestPiece, message.size()});
    std::copy_n(message.begin(), count, bytes);
    message.erase(0, count);
    isAtEnd_ = message.empty() && endsMessages;
    if (message.empty()) messages.pop_front();
    return static_cast<ssize_t>(count);
  }

  std::string path_;
  bool isAtEnd_ = false;
  SystemCalls calls_;
};

}  // namespace test
