#pragma once

// Internal: not installed.

#include <cstdint>
#include <string>
#include <string_view>

#include <QLTError.h>
#include <QLTValue.h>

namespace quillon::internal {

/// A place in a file, for messages.
struct Place {
  std::string file;
  QLTPosition position = {};
  std::string keyPath = {};  // "" for the file or line as a whole
};

/// `text` as a message may show it: cut after 80 bytes, with "..." in place of the rest, and
/// without control characters.
std::string shown(std::string_view text);

/// "TestConfig.plist:41:7: Flows/main/2/class: REASON", or "TestConfig.plist:offset 417: ...",
/// without the parts that are not known.
std::string placedText(const Place& place, std::string_view reason);

/// A record of the framework's own domain with that text as its description. The parts stand in its
/// user information, too: "file", "line", "column", "keyPath", "reason", and "offset" where it is
/// known.
QLTError placedError(std::int64_t code, const Place& place, std::string_view reason);

}  // namespace quillon::internal
