#pragma once

// Internal: not installed.

#include <optional>
#include <string>
#include <string_view>

#include <QLTValue.h>

namespace quillon::internal {

/// Whether `bytes` begin like a binary property list.
bool isBinaryPropertyList(std::string_view bytes);

/// Reads a binary property list. On failure, `complaint` is "offset OFFSET: KEY PATH: REASON"
/// (without the key path at the root).
std::optional<QLTValue> parseBinaryPropertyList(std::string_view bytes, std::string& complaint);

}  // namespace quillon::internal
