#pragma once

// Internal: not installed.

#include <cstddef>
#include <string_view>

#include <sys/types.h>

namespace quillon::internal {

/// The system's `write`, again when a signal interrupts it. Where the reader of a pipe or socket is
/// gone it fails with EPIPE and raises no signal.
ssize_t writeWithoutSignal(int descriptor, std::string_view bytes);

}  // namespace quillon::internal
