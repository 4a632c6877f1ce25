#pragma once

// Internal: not installed.

#include <cerrno>

namespace quillon::internal {

/// Makes a system call, again as often as a signal interrupts it. Not for `close`.
template <typename Call>
auto retried(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

}  // namespace quillon::internal
