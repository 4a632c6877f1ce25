#pragma once

// Internal: not installed.

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

#include "common/Text.h"

namespace quillon::bench {

/// Gives the answers of a device that speaks in messages a line end where their end is their only
/// one, as those that read lines want it.
///
/// A block of definite length ("#3200...") may end in the byte that ends lines; that one is part of
/// it.
class MessageEnd {
 public:
  /// A part of a message has come; `isLast` its last.
  void add(std::string_view part, bool isLast, std::string_view lineEnd) {
    head_ += part.substr(0, kLongestHead - std::min(kLongestHead, head_.size()));
    length_ += part.size();
    tail_ += part.substr(part.size() - std::min(part.size(), lineEnd.size()));
    if (tail_.size() > lineEnd.size()) tail_.erase(0, tail_.size() - lineEnd.size());
    if (!isLast) return;
    const bool isBare = tail_ != lineEnd || length_ == blockLength();
    *this = {};
    if (isBare) owed_ = lineEnd;
  }
  /// Forgets all, of messages that nobody reads any more.
  void drop() { *this = {}; }
  /// Whether a line end is to be given before anything else is asked for.
  bool isOwed() const { return !owed_.empty(); }
  /// Gives as much of it as there is room for; how much.
  std::ptrdiff_t give(char* bytes, std::size_t size) {
    const std::size_t count = std::min(size, owed_.size());
    std::copy_n(owed_.begin(), count, bytes);
    owed_.erase(0, count);
    return static_cast<std::ptrdiff_t>(count);
  }

 private:
  static constexpr std::size_t kLongestHead = 11;  // "#", a digit, nine digits

  /// How long a message is that is a block of definite length and nothing else; 0 for others.
  std::size_t blockLength() const {
    if (head_.size() < 2 || head_[0] != '#' || head_[1] < '1' || head_[1] > '9') return 0;
    const auto digits = static_cast<std::size_t>(head_[1] - '0');
    const auto count = internal::numberIn<std::size_t>(head_.substr(2, digits));
    return count && head_.size() >= 2 + digits ? 2 + digits + *count : 0;
  }

  std::string head_;        // of the message
  std::string tail_;        // likewise, as long as a line end
  std::size_t length_ = 0;  // what has come of it
  std::string owed_;
};

}  // namespace quillon::bench
