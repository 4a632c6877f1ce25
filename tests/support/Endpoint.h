#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <stop_token>

namespace test {

/// The test's end of a line to the code under test: a pty's master, or a TCP peer's connection.
class Endpoint {
 public:
  explicit Endpoint(int descriptor);
  ~Endpoint();
  Endpoint(Endpoint&& other) noexcept;
  Endpoint& operator=(Endpoint&&) = delete;

  int descriptor() const { return descriptor_; }
  /// Sends all bytes; false when the other end does not take them.
  bool send(std::string_view bytes) const;
  /// What comes until `count` bytes are there, the other end is closed, or nothing comes for a
  /// while.
  std::string receive(std::size_t count) const;
  /// What comes until `end` is there; otherwise as `receive`.
  std::string receiveUntil(char end) const;
  /// What has come already.
  std::string receivePending() const;
  void close();

 private:
  bool waitFor(short events, std::chrono::milliseconds time) const;

  int descriptor_;
};

/// What a device answers to a line that was written to it (the line without its end): the pieces
/// are sent one after the other, each for itself.
using Script = std::function<std::vector<std::string>(const std::string& line)>;

/// Plays a device on a thread of its own, for as long as it lives: every line that comes is
/// answered by the script.
class Device {
 public:
  Device(Endpoint& endpoint, Script script, char lineEnd = '\n');
  ~Device();
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

 private:
  std::jthread thread_;
};

/// Sends until the other end, which does not read, takes nothing more; how many bytes it took.
std::size_t fillOutput(int descriptor);

/// How many descriptors the process has open.
std::size_t openDescriptors();

}  // namespace test
