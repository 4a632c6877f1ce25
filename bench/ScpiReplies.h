#pragma once

// Internal: not installed.

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include <QLTAsciiReadWriteDevice.h>
#include <QLTBenchLine.h>
#include <QLTError.h>

namespace quillon::bench {

/// What comes from an instrument, over any device: whole lines, and so many bytes, whatever pieces
/// the device gives them in. A line of this library does that itself, and waits as long as it is
/// told; of another device, that has a time-out of its own, pieces are asked for until there is
/// enough of them.
class ScpiReplies {
 public:
  explicit ScpiReplies(std::shared_ptr<QLTAsciiReadWriteDevice> device);

  /// A line without its end.
  std::optional<std::string> line(double seconds, QLTError* error);
  /// What comes up to the next line feed, which is dropped.
  std::optional<std::string> rest(double seconds, QLTError* error);
  std::optional<std::string> bytes(std::size_t count, double seconds, QLTError* error);
  /// Drops what has come.
  void drop();

 private:
  using Clock = std::chrono::steady_clock;

  bool takeMore(std::size_t wanted, Clock::time_point deadline, double seconds, QLTError* error);

  std::shared_ptr<QLTAsciiReadWriteDevice> device_;
  QLTBenchLine* line_;  // the same device, where it is one
  std::string received_;
};

}  // namespace quillon::bench
