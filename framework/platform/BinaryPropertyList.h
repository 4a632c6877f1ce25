#pragma once

// Internal: not installed.

#include <optional>
#include <string>
#include <string_view>

#include <QLTValue.h>

#include "platform/XmlPropertyList.h"

namespace quillon::internal {

/// Whether `bytes` begin like a binary property list.
bool isBinaryPropertyList(std::string_view bytes);

/// Reads a binary property list; absent with `complaint` filled when it is malformed.
std::optional<QLTValue> parseBinaryPropertyList(std::string_view bytes,
                                                PropertyListComplaint& complaint);

}  // namespace quillon::internal
