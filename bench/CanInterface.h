#pragma once

// Internal: not installed.

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <QLTCanFrame.h>

#include "common/Descriptor.h"

namespace quillon::bench {

/// A CAN interface of the system, by its name. Any thread.
class CanInterface {
 public:
  /// What it has to be, so that it can be used, and which frames are wanted.
  struct Wanted {
    bool isFd = false;
    std::int64_t bitRate = 0;                ///< 0: whatever it is
    std::vector<QLTCanFilter> filters = {};  ///< none: all frames
  };

  explicit CanInterface(std::string name) : name_(std::move(name)) {}

  /// A socket that has its frames and error frames, not blocking. None with a text for people and
  /// errno, when there is no such interface, or it is not as wanted.
  internal::Descriptor open(const Wanted& wanted, std::string& reason) const;
  /// Whether frames can go over it: it is there, up, and on the bus.
  bool isUp() const;

 private:
  std::string complaint(const Wanted& wanted) const;
  std::string startCommand(const Wanted& wanted) const;

  std::string name_;
};

}  // namespace quillon::bench
