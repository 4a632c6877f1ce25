#pragma once

#include <cstddef>
#include <functional>
#include <optional>

#include <sys/types.h>
#include <termios.h>

namespace test {

/// Sees the library's system calls, for as long as it lives, and may answer in their place: a
/// function that returns nothing lets the call go on. The functions are called on the thread that
/// makes the call; set them, and end this, while no other thread makes any.
class SystemCalls {
 public:
  SystemCalls();
  ~SystemCalls();
  SystemCalls(const SystemCalls&) = delete;
  SystemCalls& operator=(const SystemCalls&) = delete;

  std::function<std::optional<ssize_t>(int descriptor, void* bytes, std::size_t size)> onRead;
  std::function<std::optional<ssize_t>(int descriptor, const void* bytes, std::size_t size)>
      onWrite;
  std::function<std::optional<int>(int descriptor, unsigned long request, void* argument)> onIoctl;
  std::function<std::optional<int>(int descriptor, int command)> onFcntl;
  std::function<std::optional<int>(int descriptor)> onDataSync;
  std::function<std::optional<int>(int descriptor)> onFlush;
  std::function<std::optional<int>()> onPoll;
  std::function<std::optional<int>()> onSocket;
  std::function<std::optional<int>(int descriptor, termios& attributes)> onGetAttributes;
  std::function<std::optional<int>(int descriptor, const termios& attributes)> onSetAttributes;
};

/// Fails a system call: sets errno and gives -1.
int failWith(int errnoValue);

/// Polls that find nothing as often as `times` says, for `SystemCalls::onPoll`.
inline auto nothingFor(int times) {
  return [left = times]() mutable { return left-- > 0 ? std::optional(0) : std::nullopt; };
}

/// Polls that are counted, for `SystemCalls::onPoll`.
inline auto counting(int& polls) {
  return [&polls] {
    ++polls;
    return std::optional<int>();
  };
}

}  // namespace test
