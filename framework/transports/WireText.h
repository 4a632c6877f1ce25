#pragma once

// Internal: not installed.

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace quillon::internal {

/// What a transport sends of a text in UTF-8: as many bytes as the text has characters. That is all
/// of an ASCII text.
inline std::string_view wireText(std::string_view text) {
  const auto startsCharacter = [](char byte) { return (byte & 0xC0) != 0x80; };
  return text.substr(
      0, static_cast<std::size_t>(std::count_if(text.begin(), text.end(), startsCharacter)));
}

}  // namespace quillon::internal
