#pragma once

// Internal: not installed.

#include <utility>

namespace quillon::internal {

/// Owns a file descriptor: closes it at its end. Movable; for one thread at a time.
class Descriptor {
 public:
  Descriptor() = default;                                     ///< owns nothing
  explicit Descriptor(int descriptor) : held_(descriptor) {}  ///< a negative one is none
  Descriptor(Descriptor&& other) noexcept : held_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  ~Descriptor() { reset(); }

  int get() const { return held_; }  ///< negative when nothing is owned
  explicit operator bool() const { return held_ >= 0; }
  /// Gives the descriptor up without closing it.
  int release() { return std::exchange(held_, -1); }
  /// Closes what is owned, if anything, and owns `descriptor`. errno stays as it was.
  void reset(int descriptor = -1);

 private:
  int held_ = -1;
};

}  // namespace quillon::internal
