#pragma once

// Internal: not installed.

#include <optional>
#include <string>
#include <string_view>

#include <QLTValue.h>

namespace quillon::internal {

/// How deep arrays and dictionaries may be nested in a property list.
inline constexpr int kDeepestPropertyList = 128;

/// Reads an XML property list. On failure, `complaint` is "LINE:COLUMN: KEY PATH: REASON" (without
/// the key path at the root).
std::optional<QLTValue> parseXmlPropertyList(std::string_view bytes, std::string& complaint);

}  // namespace quillon::internal
