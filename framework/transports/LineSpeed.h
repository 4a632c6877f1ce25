#pragma once

// Internal: not installed.

#include <cstdint>

namespace quillon::internal {

/// Gives a terminal the line speed `baud`, also one that the terminal interface has no constant
/// for. False, with errno, when its driver settles on another speed.
bool setLineSpeed(int descriptor, std::uint64_t baud);

}  // namespace quillon::internal
