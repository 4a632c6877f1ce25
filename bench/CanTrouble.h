#pragma once

// Internal: not installed.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quillon::bench {

/// What an error frame tells of the bus or its controller.
struct CanTrouble {
  std::int32_t code = 0;  ///< of the failure that it is; 0 for what the controller mends by itself
  bool isLoss = false;    ///< nothing goes over the bus any more
  std::string text;       ///< for people
};

/// Absent when `message` (see common/CanText.h) is no error frame.
std::optional<CanTrouble> canTroubleIn(std::string_view message);

}  // namespace quillon::bench
