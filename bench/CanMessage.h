#pragma once

// Internal: not installed.

#include <optional>
#include <string>
#include <string_view>

#include <QLTCanFrame.h>

namespace quillon::bench {

/// A frame as the system's sockets have it (see common/CanText.h); absent when there is no such
/// frame.
std::optional<std::string> canMessageOf(const QLTCanFrame& frame);
/// Absent for what is no frame, and for an error frame.
std::optional<QLTCanFrame> canFrameIn(std::string_view message);

}  // namespace quillon::bench
