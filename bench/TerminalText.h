#pragma once

// Internal: not installed.

#include <string>
#include <string_view>

namespace quillon::bench {

/// `text` without what is for a terminal: escape sequences (also one that has just begun at its
/// end), bells and zero bytes.
std::string withoutEscapes(std::string_view text);

}  // namespace quillon::bench
