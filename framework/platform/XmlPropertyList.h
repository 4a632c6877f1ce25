#pragma once

// Internal: not installed.

#include <optional>
#include <string>
#include <string_view>

#include <QLTValue.h>

namespace quillon::internal {

/// How deep arrays and dictionaries may be nested in a property list.
inline constexpr int kDeepestPropertyList = 128;

/// Why a property list cannot be read.
struct PropertyListComplaint {
  QLTPosition position;
  std::string keyPath;  // "" at the root
  std::string reason;
};

/// Reads an XML property list; absent with `complaint` filled when it is malformed.
std::optional<QLTValue> parseXmlPropertyList(std::string_view bytes,
                                             PropertyListComplaint& complaint);

}  // namespace quillon::internal
